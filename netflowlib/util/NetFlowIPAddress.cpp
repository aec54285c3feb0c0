#include "util/NetFlowIPAddress.h"

#include "util/Format.h"

CNetFlowIPAddress::CNetFlowIPAddress(uint32_t address)
    : m_address{(address >> 24) & 0xFF, (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF} {}

namespace {

// "%d.%d.%d.%d" of four element values.
CString DottedText(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    CString text;
    text.reserve(15);
    for (uint32_t element : {a, b, c, d}) {
        if (!text.empty())
            text += L'.';
        tpnf::AppendDecimal(text, static_cast<int32_t>(element));
    }
    return text;
}

} // namespace

CString CNetFlowIPAddress::ToString() const {
    if (m_address.size() == 4)
        return DottedText(m_address[0], m_address[1], m_address[2], m_address[3]);

    CString result;
    result.reserve(m_address.size() / 2 * 5);
    CString group;
    for (uint32_t element : m_address) {
        if (group.size() < 4)
            tpnf::AppendHex(group, element); // "%02X"
        if (group.size() == 4) {
            group += L':';
            result += group;
            group.clear();
        }
    }
    // An odd element count leaves an unfinished group, which is dropped.
    while (!result.empty() && result.back() == L':')
        result.pop_back();
    return result;
}

// The text of the four-element form of the value, without building it.
CString CNetFlowIPAddress::FormatIPv4(uint32_t address) {
    return DottedText(address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF);
}
