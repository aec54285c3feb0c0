#pragma once

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Extended NAT data (flow format 1007).
class CSFlowExtendedNATRecord {
public:
    CSFlowExtendedNATRecord() = default;
    CSFlowExtendedNATRecord(const CSFlowExtendedNATRecord&) = default;
    CSFlowExtendedNATRecord(CSFlowExtendedNATRecord&&) noexcept = default;
    CSFlowExtendedNATRecord& operator=(const CSFlowExtendedNATRecord&) = default;
    CSFlowExtendedNATRecord& operator=(CSFlowExtendedNATRecord&&) noexcept = default;
    virtual ~CSFlowExtendedNATRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CNetFlowIPAddress m_srcAddress{0u};
    CNetFlowIPAddress m_dstAddress{0u};
};
