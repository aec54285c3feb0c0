#include "netflow/NetFlowRecordCommonFieldsV8.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

void CNetFlowRecordCommonFieldsV8::Decode(const CByteArray& data, int offset) {
    using U = CNetFlowUtility;
    m_flows = static_cast<uint32_t>(U::GetULong(data, offset));
    m_packets = static_cast<uint32_t>(U::GetULong(data, offset + 4));
    m_octets = static_cast<uint32_t>(U::GetULong(data, offset + 8));
    m_first = static_cast<uint32_t>(U::GetULong(data, offset + 12));
    m_last = static_cast<uint32_t>(U::GetULong(data, offset + 16));
}

int CNetFlowRecordCommonFieldsV8::DecodePrefixRecord(const CByteArray& data, int offset, uint32_t& prefix,
                                                     int& mask, int& as, int& interfaceIndex) {
    if (!Fits(data, offset, 32))
        return 0;
    Decode(data, offset);
    prefix = static_cast<uint32_t>(CNetFlowUtility::GetULong(data, offset + 20));
    mask = CNetFlowUtility::GetUByte(data, offset + 24);
    as = CNetFlowUtility::GetUShort(data, offset + 26);
    interfaceIndex = CNetFlowUtility::GetUShort(data, offset + 28);
    return 1;
}

CString CNetFlowRecordCommonFieldsV8::ToString() const {
    return tpnf::FormatText(L"Flows: %d\r\nPackets: %d\r\nOctets: %d\r\nFirst: %u\r\nLast: %u", m_flows,
                            m_packets, m_octets, m_first, m_last);
}

void CNetFlowRecordCommonFieldsV8::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using F = CNetFlowField;
    using U = CNetFlowUtility;
    AddField(fieldIds, values, F::FLOWS, U::IntToString(m_flows));
    AddField(fieldIds, values, F::IPM_DPKTS, U::IntToString(m_packets));
    AddField(fieldIds, values, F::IPM_DOCTETS, U::IntToString(m_octets));
    AddField(fieldIds, values, F::FIRST_SWITCHED, U::IntToString(m_first));
    AddField(fieldIds, values, F::LAST_SWITCHED, U::IntToString(m_last));
}
