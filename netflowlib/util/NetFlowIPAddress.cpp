#include "util/NetFlowIPAddress.h"

#include "util/Format.h"

CNetFlowIPAddress::CNetFlowIPAddress(uint32_t address)
    : m_address{(address >> 24) & 0xFF, (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF} {}

CString CNetFlowIPAddress::ToString() const {
    if (m_address.size() == 4)
        return tpnf::FormatText(L"%d.%d.%d.%d", m_address[0], m_address[1], m_address[2], m_address[3]);

    CString result;
    CString group;
    for (uint32_t element : m_address) {
        if (group.size() < 4)
            group += tpnf::FormatText(L"%02X", element);
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

CString CNetFlowIPAddress::FormatIPv4(uint32_t address) {
    return CNetFlowIPAddress(address).ToString();
}
