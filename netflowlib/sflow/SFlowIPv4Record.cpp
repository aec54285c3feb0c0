#include "sflow/SFlowIPv4Record.h"

#include "sflow/SFlowIPv6Record.h"
#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowIPv4Record::Decode(const CByteArray& data, int& offset, bool exact) {
    m_length = ReadU32(data, offset);
    m_protocol = ReadU32(data, offset);
    if (exact) {
        m_srcIP = CNetFlowIPAddress(ReadU32(data, offset));
        m_dstIP = CNetFlowIPAddress(ReadU32(data, offset));
        m_srcPort = ReadU32(data, offset);
        m_dstPort = ReadU32(data, offset);
        m_tcpFlags = ReadU32(data, offset);
        m_tos = ReadU32(data, offset);
        return;
    }
    CByteArray src;
    CByteArray dst;
    ReadOpaque(data, offset, 4, src);
    ReadOpaque(data, offset, 4, dst);
    // The conversion takes 16 positions from these 4-byte arrays and so always raises
    // CInvalidArgException: intended, a sampled IPv4 record ends the datagram's decoding.
    m_srcIP = CSFlowIPv6Record::AddressFromBytes(src);
    m_dstIP = CSFlowIPv6Record::AddressFromBytes(dst);
    m_srcPort = ReadU32(data, offset);
    m_dstPort = ReadU32(data, offset);
    m_tcpFlags = ReadU32(data, offset);
    m_tos = ReadU32(data, offset);
}

CString CSFlowIPv4Record::ToString() const {
    return tpnf::FormatText(L"Sampled IPv4 Record:\r\n"
                            L"Packet Length: %lu\r\n"
                            L"Protocol: %lu\r\n"
                            L"Src Address: %s\r\n"
                            L"Dst Address: %s\r\n"
                            L"Src Port: %lu\r\n"
                            L"Dst Port: %lu\r\n"
                            L"TCP Flags: %lu\r\n"
                            L"TOS: %lu\r\n",
                            m_length, m_protocol, m_srcIP.ToString(), m_dstIP.ToString(), m_srcPort,
                            m_dstPort, m_tcpFlags, m_tos);
}
