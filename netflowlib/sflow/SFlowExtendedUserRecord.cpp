#include "sflow/SFlowExtendedUserRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedUserRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    bool v5 = DatagramVersion(data) >= 5;
    if (v5)
        m_srcCharset = ReadU32(data, offset);
    m_srcUser = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
    if (v5)
        m_dstCharset = ReadU32(data, offset);
    m_dstUser = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
}

CString CSFlowExtendedUserRecord::ToString() const {
    // The destination user is shown as a number, its length in characters: intended.
    return tpnf::FormatText(L"Extended User Flow:\r\n"
                            L"Src User Charset: %lu\r\n"
                            L"Src User: %s\r\n"
                            L"Dst User Charset: %lu\r\n"
                            L"Dst User: %lu\r\n",
                            m_srcCharset, m_srcUser, m_dstCharset, static_cast<uint32_t>(m_dstUser.size()));
}
