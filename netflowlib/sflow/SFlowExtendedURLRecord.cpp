#include "sflow/SFlowExtendedURLRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedURLRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    m_direction = ReadU32(data, offset);
    m_url = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
    if (DatagramVersion(data) >= 5)
        m_host = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
}

CString CSFlowExtendedURLRecord::ToString() const {
    const wchar_t* direction = m_direction == 1 ? L"Source" : m_direction == 2 ? L"Destination" : L"";
    return tpnf::FormatText(L"Extended URL Flow:\r\n"
                            L"Direction: %s\r\n"
                            L"URL: %s\r\n"
                            L"Host: %s\r\n",
                            direction, m_url, m_host);
}
