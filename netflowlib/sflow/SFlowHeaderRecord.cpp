#include "sflow/SFlowHeaderRecord.h"

#include "sflow/SFlowWire.h"

#include <iterator>

using namespace tpnf::sflow;

void CSFlowHeaderRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    m_protocol = ReadU32(data, offset);
    m_frameLength = ReadU32(data, offset);
    if (DatagramVersion(data) >= 5)
        m_stripped = ReadU32(data, offset);
    m_headerLength = ReadU32(data, offset);
    if (exact)
        ReadPaddedBytes(data, offset, m_headerLength, m_header);
    else // the cursor moves by the header length, not rounded up to a word: intended
        ReadOpaque(data, offset, static_cast<int32_t>(m_headerLength), m_header);
}

CString CSFlowHeaderRecord::GetProtocolName(uint32_t protocol) {
    static const wchar_t* const names[] = {L"ETHERNET ISO8023",
                                           L"ISO88024 TOKENBUS",
                                           L"ISO88025 TOKENRING",
                                           L"FDDI",
                                           L"FRAME RELAY",
                                           L"X25",
                                           L"PPP",
                                           L"SMDS",
                                           L"AAL5",
                                           L"AAL5 IP",
                                           L"IPv4",
                                           L"IPv6",
                                           L"MPLS"};
    if (protocol < 1 || protocol > std::size(names))
        return CString();
    return names[protocol - 1];
}

CString CSFlowHeaderRecord::ToString() const {
    return tpnf::FormatText(L"Sampled Header Record:\r\n"
                            L"Protocol: %s\r\n"
                            L"Frame Length: %lu\r\n"
                            L"Stripped: %lu\r\n"
                            L"Header Length: %lu\r\n"
                            L"Header Bytes: %s\r\n",
                            GetProtocolName(m_protocol), m_frameLength, m_stripped, m_headerLength,
                            FormatHexBytes(m_header));
}
