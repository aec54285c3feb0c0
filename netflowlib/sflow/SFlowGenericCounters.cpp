#include "sflow/SFlowGenericCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// Exact: 64-bit counters are the plain unsigned reading of their two words.
void CSFlowGenericCounters::Decode(const CByteArray& data, int& offset, bool exact) {
    auto read64 = exact ? ReadU64Exact : ReadU64;
    m_ifIndex = ReadU32(data, offset);
    m_ifType = ReadU32(data, offset);
    m_ifSpeed = read64(data, offset);
    m_ifDirection = ReadU32(data, offset);
    m_ifStatus = ReadU32(data, offset);
    m_ifInOctets = read64(data, offset);
    m_ifInUcastPkts = ReadU32(data, offset);
    m_ifInMulticastPkts = ReadU32(data, offset);
    m_ifInBroadcastPkts = ReadU32(data, offset);
    m_ifInDiscards = ReadU32(data, offset);
    m_ifInErrors = ReadU32(data, offset);
    m_ifInUnknownProtos = ReadU32(data, offset);
    m_ifOutOctets = read64(data, offset);
    m_ifOutUcastPkts = ReadU32(data, offset);
    m_ifOutMulticastPkts = ReadU32(data, offset);
    m_ifOutBroadcastPkts = ReadU32(data, offset);
    m_ifOutDiscards = ReadU32(data, offset);
    m_ifOutErrors = ReadU32(data, offset);
    m_ifPromiscuousMode = ReadU32(data, offset);
}

CString CSFlowGenericCounters::ToString() const {
    return tpnf::FormatText(L"Generic Counters:\r\n"
                            L"Index: %lu\r\n"
                            L"Type: %lu\r\n"
                            L"Speed: %I64u\r\n"
                            L"Direction: %lu\r\n"
                            L"Status: %lu\r\n"
                            L"In Octets: %I64u\r\n"
                            L"In Ucast Pkts: %lu\r\n"
                            L"In Multicast Pkts: %lu\r\n"
                            L"In Broadcast Pkts: %lu\r\n"
                            L"In Discards: %lu\r\n"
                            L"In Errors: %lu\r\n"
                            L"In Unknown Protos: %lu\r\n"
                            L"Out Octets: %I64u\r\n"
                            L"Out Ucast Pkts: %lu\r\n"
                            L"Out Multicast Pkts: %lu\r\n"
                            L"Out Broadcast Pkts: %lu\r\n"
                            L"Out Discards: %lu\r\n"
                            L"Out Errors: %lu\r\n"
                            L"Promiscuous Mode: %lu\r\n",
                            m_ifIndex, m_ifType, m_ifSpeed, m_ifDirection, m_ifStatus, m_ifInOctets,
                            m_ifInUcastPkts, m_ifInMulticastPkts, m_ifInBroadcastPkts, m_ifInDiscards,
                            m_ifInErrors, m_ifInUnknownProtos, m_ifOutOctets, m_ifOutUcastPkts,
                            m_ifOutMulticastPkts, m_ifOutBroadcastPkts, m_ifOutDiscards, m_ifOutErrors,
                            m_ifPromiscuousMode);
}
