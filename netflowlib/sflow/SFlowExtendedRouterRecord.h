#pragma once

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Extended router data (flow format 1002; extended type 2 of version 2/4).
class CSFlowExtendedRouterRecord {
public:
    CSFlowExtendedRouterRecord() = default;
    CSFlowExtendedRouterRecord(const CSFlowExtendedRouterRecord&) = default;
    CSFlowExtendedRouterRecord(CSFlowExtendedRouterRecord&&) noexcept = default;
    CSFlowExtendedRouterRecord& operator=(const CSFlowExtendedRouterRecord&) = default;
    CSFlowExtendedRouterRecord& operator=(CSFlowExtendedRouterRecord&&) noexcept = default;
    virtual ~CSFlowExtendedRouterRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CNetFlowIPAddress m_nextHop{0u};
    uint32_t m_srcMask = 0xFFFFFFFF;
    uint32_t m_dstMask = 0xFFFFFFFF;
};
