#include "netflow/NetFlowRecordCommonFields.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowIPAddress.h"
#include "util/NetFlowUtility.h"

void CNetFlowRecordCommonFields::Decode(const CByteArray& data, int offset) {
    using U = CNetFlowUtility;
    m_srcAddr = static_cast<uint32_t>(U::GetULong(data, offset));
    m_dstAddr = static_cast<uint32_t>(U::GetULong(data, offset + 4));
    m_nextHop = static_cast<uint32_t>(U::GetULong(data, offset + 8));
    m_inputIf = U::GetUShort(data, offset + 12);
    m_outputIf = U::GetUShort(data, offset + 14);
    m_dPkts = static_cast<uint32_t>(U::GetULong(data, offset + 16));
    m_dOctets = static_cast<uint32_t>(U::GetULong(data, offset + 20));
    m_first = static_cast<uint32_t>(U::GetULong(data, offset + 24));
    m_last = static_cast<uint32_t>(U::GetULong(data, offset + 28));
    m_srcPort = U::GetUShort(data, offset + 32);
    m_dstPort = U::GetUShort(data, offset + 34);
}

CString CNetFlowRecordCommonFields::ToString() const {
    // Counters go through "%d", so 2^31 and more print negative: intended.
    return tpnf::FormatText(
        L"SrcAddr: %s\r\nDstAddr: %s\r\nNextHop: %s\r\nInputIf: %d\r\nOutputIf: %d"
        L"\r\nDPkts: %d\r\nDOctets: %d\r\nFirst: %u\r\nLast: %u\r\nSrcPort: %d\r\nDstPort: %d",
        CNetFlowIPAddress::FormatIPv4(m_srcAddr), CNetFlowIPAddress::FormatIPv4(m_dstAddr),
        CNetFlowIPAddress::FormatIPv4(m_nextHop), m_inputIf, m_outputIf, m_dPkts, m_dOctets, m_first, m_last,
        m_srcPort, m_dstPort);
}

void CNetFlowRecordCommonFields::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using F = CNetFlowField;
    using U = CNetFlowUtility;
    AddField(fieldIds, values, F::IPV4_SRC_ADDR, CNetFlowIPAddress::FormatIPv4(m_srcAddr));
    AddField(fieldIds, values, F::IPV4_DST_ADDR, CNetFlowIPAddress::FormatIPv4(m_dstAddr));
    AddField(fieldIds, values, F::IPV4_NEXT_HOP, CNetFlowIPAddress::FormatIPv4(m_nextHop));
    AddField(fieldIds, values, F::INPUT_SNMP, U::IntToString(m_inputIf));
    AddField(fieldIds, values, F::OUTPUT_SNMP, U::IntToString(m_outputIf));
    // Packets and bytes go under IPM_DPKTS and IPM_DOCTETS, not IN_PKTS and IN_BYTES: intended.
    AddField(fieldIds, values, F::IPM_DPKTS, U::IntToString(m_dPkts));
    AddField(fieldIds, values, F::IPM_DOCTETS, U::IntToString(m_dOctets));
    AddField(fieldIds, values, F::FIRST_SWITCHED, U::IntToString(m_first));
    AddField(fieldIds, values, F::LAST_SWITCHED, U::IntToString(m_last));
    AddField(fieldIds, values, F::L4_SRC_PORT, U::IntToString(m_srcPort));
    AddField(fieldIds, values, F::L4_DST_PORT, U::IntToString(m_dstPort));
}
