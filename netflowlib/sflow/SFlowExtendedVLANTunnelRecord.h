#pragma once

#include "util/Types.h"

// Extended VLAN tunnel data (flow format 1012).
class CSFlowExtendedVLANTunnelRecord {
public:
    CSFlowExtendedVLANTunnelRecord() = default;
    CSFlowExtendedVLANTunnelRecord(const CSFlowExtendedVLANTunnelRecord&) = default;
    CSFlowExtendedVLANTunnelRecord(CSFlowExtendedVLANTunnelRecord&&) noexcept = default;
    CSFlowExtendedVLANTunnelRecord& operator=(const CSFlowExtendedVLANTunnelRecord&) = default;
    CSFlowExtendedVLANTunnelRecord& operator=(CSFlowExtendedVLANTunnelRecord&&) noexcept = default;
    virtual ~CSFlowExtendedVLANTunnelRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CUIntArray m_stack;
};
