#pragma once

#include "util/Types.h"

// Extended MPLS tunnel data (flow format 1008).
class CSFlowExtendedMPLSTunnelRecord {
public:
    CSFlowExtendedMPLSTunnelRecord() = default;
    CSFlowExtendedMPLSTunnelRecord(const CSFlowExtendedMPLSTunnelRecord&) = default;
    CSFlowExtendedMPLSTunnelRecord(CSFlowExtendedMPLSTunnelRecord&&) noexcept = default;
    CSFlowExtendedMPLSTunnelRecord& operator=(const CSFlowExtendedMPLSTunnelRecord&) = default;
    CSFlowExtendedMPLSTunnelRecord& operator=(CSFlowExtendedMPLSTunnelRecord&&) noexcept = default;
    virtual ~CSFlowExtendedMPLSTunnelRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CString m_tunnelName;
    uint32_t m_tunnelId = 0xFFFFFFFF;
    uint32_t m_tunnelCos = 0xFFFFFFFF;
};
