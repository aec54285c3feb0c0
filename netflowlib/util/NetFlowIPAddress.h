#pragma once

#include "util/Types.h"

// An IPv4 (4 elements) or IPv6 (16 elements) address, one byte value per element, most significant first.
class CNetFlowIPAddress {
public:
    CNetFlowIPAddress() = default;
    explicit CNetFlowIPAddress(uint32_t address);
    CNetFlowIPAddress(const CNetFlowIPAddress&) = default;
    CNetFlowIPAddress(CNetFlowIPAddress&&) noexcept = default;
    CNetFlowIPAddress& operator=(const CNetFlowIPAddress&) = default;
    CNetFlowIPAddress& operator=(CNetFlowIPAddress&&) noexcept = default;
    virtual ~CNetFlowIPAddress() = default;

    CString ToString() const;
    static CString FormatIPv4(uint32_t address);

    CInlineUIntArray<16> m_address; // an IPv6 address fits inline
};
