#include "sflow/SFlowIPv6Record.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

CNetFlowIPAddress CSFlowIPv6Record::AddressFromBytes(const CByteArray& bytes) {
    CNetFlowIPAddress address;
    address.m_address.resize(16);
    for (int i = 0; i < 16; ++i)
        address.m_address[i] = ElementAt(bytes, i);
    return address;
}

// The same 56 bytes in both modes.
void CSFlowIPv6Record::Decode(const CByteArray& data, int& offset, bool) {
    m_length = ReadU32(data, offset);
    m_protocol = ReadU32(data, offset);
    CByteArray bytes;
    ReadOpaque(data, offset, 16, bytes);
    m_srcIP = AddressFromBytes(bytes);
    ReadOpaque(data, offset, 16, bytes);
    m_dstIP = AddressFromBytes(bytes);
    m_srcPort = ReadU32(data, offset);
    m_dstPort = ReadU32(data, offset);
    m_tcpFlags = ReadU32(data, offset);
    m_priority = ReadU32(data, offset);
}

CString CSFlowIPv6Record::ToString() const {
    return tpnf::FormatText(L"Sampled IPv6 Record:\r\n"
                            L"Packet Length: %lu\r\n"
                            L"Protocol: %lu\r\n"
                            L"Src Address: %s\r\n"
                            L"Dst Address: %s\r\n"
                            L"Src Port: %lu\r\n"
                            L"Dst Port: %lu\r\n"
                            L"TCP Flags: %lu\r\n"
                            L"Priority: %lu\r\n",
                            m_length, m_protocol, m_srcIP.ToString(), m_dstIP.ToString(), m_srcPort,
                            m_dstPort, m_tcpFlags, m_priority);
}
