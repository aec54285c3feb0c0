#include "sflow/SFlowEthernetRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// By default 20 bytes, MACs unpadded: intended. Exact: each MAC is a 6-byte opaque padded to 8.
void CSFlowEthernetRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    m_length = ReadU32(data, offset);
    if (exact) {
        ReadPaddedBytes(data, offset, 6, m_srcMAC);
        ReadPaddedBytes(data, offset, 6, m_dstMAC);
    } else {
        ReadOpaque(data, offset, 6, m_srcMAC);
        ReadOpaque(data, offset, 6, m_dstMAC);
    }
    m_type = ReadU32(data, offset);
}

CString CSFlowEthernetRecord::ToString() const {
    return tpnf::FormatText(L"Ethernet Flow:\r\n"
                            L"Packet Length: %lu\r\n"
                            L"Src MAC: %s\r\n"
                            L"Dst MAC: %s\r\n"
                            L"Packet Type: %lu\r\n",
                            m_length, FormatHexBytes(m_srcMAC), FormatHexBytes(m_dstMAC), m_type);
}
