#include "sflow/SFlowVLANCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// Exact: 64-bit counters are the plain unsigned reading of their two words.
void CSFlowVLANCounters::Decode(const CByteArray& data, int& offset, bool exact) {
    auto read64 = exact ? ReadU64Exact : ReadU64;
    m_vlanId = ReadU32(data, offset);
    m_octets = read64(data, offset);
    m_ucastPkts = ReadU32(data, offset);
    m_multicastPkts = ReadU32(data, offset);
    m_broadcastPkts = ReadU32(data, offset);
    m_discards = ReadU32(data, offset);
}

CString CSFlowVLANCounters::ToString() const {
    return tpnf::FormatText(L"VLAN Counters:\r\n"
                            L"VLAN ID: %lu\r\n"
                            L"Octets: %I64u\r\n"
                            L"Ucast Pkts: %lu\r\n"
                            L"Multicast Pkts: %lu\r\n"
                            L"Broadcast Pkts: %lu\r\n"
                            L"Discards: %lu\r\n",
                            m_vlanId, m_octets, m_ucastPkts, m_multicastPkts, m_broadcastPkts, m_discards);
}
