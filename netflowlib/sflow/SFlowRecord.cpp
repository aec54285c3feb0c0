#include "sflow/SFlowRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

namespace {
const wchar_t* const kUnknownRecord = L"Unknown record"; // no line end: the next record follows on its line
}

// Known formats read exactly the fields they know; the length only skips unknown ones.
void CSFlowRecord::Decode(const CByteArray& data, int& offset) {
    m_flowFormat = ReadU32(data, offset);
    int32_t length = CNetFlowUtility::GetULongOffset(data, offset);
    switch (m_flowFormat) {
    case 1:
        m_headerRecord.Decode(data, offset);
        break;
    case 2:
        m_ethernetRecord.Decode(data, offset);
        break;
    case 3:
        m_ipv4Record.Decode(data, offset);
        break;
    case 4:
        m_ipv6Record.Decode(data, offset);
        break;
    case 1001:
        m_switchRecord.Decode(data, offset);
        break;
    case 1002:
        m_routerRecord.Decode(data, offset);
        break;
    case 1003:
        m_gatewayRecord.Decode(data, offset);
        break;
    case 1004:
        m_userRecord.Decode(data, offset);
        break;
    case 1005:
        m_urlRecord.Decode(data, offset);
        break;
    case 1006:
        m_mplsRecord.Decode(data, offset);
        break;
    case 1007:
        m_natRecord.Decode(data, offset);
        break;
    case 1008:
        m_mplsTunnelRecord.Decode(data, offset);
        break;
    case 1009:
        m_mplsVCRecord.Decode(data, offset);
        break;
    case 1010:
        m_mplsFTNRecord.Decode(data, offset);
        break;
    case 1011:
        m_mplsLDPFECRecord.Decode(data, offset);
        break;
    case 1012:
        m_vlanTunnelRecord.Decode(data, offset);
        break;
    case 17612803:
        m_processRecord.Decode(data, offset);
        break;
    default:
        Advance(offset, length);
        break;
    }
}

// Readers take their fixed size whatever the length says; the length only skips unknown formats.
void CSFlowRecord::DecodeCounters(const CByteArray& data, int& offset) {
    m_counterFormat = ReadU32(data, offset);
    int32_t length = CNetFlowUtility::GetULongOffset(data, offset);
    switch (m_counterFormat) {
    case 1:
        m_genericCounters.Decode(data, offset);
        break;
    case 2:
        m_ethernetCounters.Decode(data, offset);
        break;
    case 3:
        m_tokenringCounters.Decode(data, offset);
        break;
    case 4:
        m_vgCounters.Decode(data, offset);
        break;
    case 5:
        m_vlanCounters.Decode(data, offset);
        break;
    case 1001:
        m_processorCounters.Decode(data, offset);
        break;
    default:
        Advance(offset, length);
        break;
    }
}

void CSFlowRecord::DecodePacketData(const CByteArray& data, int& offset) {
    switch (ReadU32(data, offset)) {
    case 1:
        m_flowFormat = 1;
        m_headerRecord.Decode(data, offset);
        break;
    case 2:
        m_flowFormat = 3;
        m_ipv4Record.Decode(data, offset);
        break;
    case 3:
        m_flowFormat = 4;
        m_ipv6Record.Decode(data, offset);
        break;
    default:
        break;
    }
}

// No length is available, so an unknown type reads nothing further.
void CSFlowRecord::DecodeExtendedData(const CByteArray& data, int& offset) {
    switch (ReadU32(data, offset)) {
    case 1:
        m_flowFormat = 1001;
        m_switchRecord.Decode(data, offset);
        break;
    case 2:
        m_flowFormat = 1002;
        m_routerRecord.Decode(data, offset);
        break;
    case 3:
        m_flowFormat = 1003;
        m_gatewayRecord.Decode(data, offset);
        break;
    case 4:
        m_flowFormat = 1004;
        m_userRecord.Decode(data, offset);
        break;
    case 5:
        m_flowFormat = 1005;
        m_urlRecord.Decode(data, offset);
        break;
    default:
        break;
    }
}

CString CSFlowRecord::ToString() const {
    switch (m_flowFormat) {
    case 0:
        switch (m_counterFormat) {
        case 1:
            return m_genericCounters.ToString();
        case 2:
            return m_ethernetCounters.ToString();
        case 3:
            return m_tokenringCounters.ToString();
        case 4:
            return m_vgCounters.ToString();
        case 5:
            return m_vlanCounters.ToString();
        case 1001:
            return m_processorCounters.ToString();
        default:
            return kUnknownRecord;
        }
    case 1:
        return m_headerRecord.ToString();
    case 2:
        return m_ethernetRecord.ToString();
    case 3:
        return m_ipv4Record.ToString();
    case 4:
        return m_ipv6Record.ToString();
    case 1001:
        return m_switchRecord.ToString();
    case 1002:
        return m_routerRecord.ToString();
    case 1003:
        return m_gatewayRecord.ToString();
    case 1004:
        return m_userRecord.ToString();
    case 1005:
        return m_urlRecord.ToString();
    case 1006:
        return m_mplsRecord.ToString();
    case 1007:
        return m_natRecord.ToString();
    case 1008:
        return m_mplsTunnelRecord.ToString();
    case 1009:
        return m_mplsVCRecord.ToString();
    case 1010:
        return m_mplsFTNRecord.ToString();
    case 1011:
        return m_mplsLDPFECRecord.ToString();
    case 1012:
        return m_vlanTunnelRecord.ToString();
    case 17612803:
        return m_processRecord.ToString();
    default:
        return kUnknownRecord;
    }
}
