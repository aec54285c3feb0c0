#pragma once

#include "util/Types.h"

// VLAN counters (counter format 5; counters type 7 of a version 2/4 sample).
class CSFlowVLANCounters {
public:
    CSFlowVLANCounters() = default;
    CSFlowVLANCounters(const CSFlowVLANCounters&) = default;
    CSFlowVLANCounters(CSFlowVLANCounters&&) noexcept = default;
    CSFlowVLANCounters& operator=(const CSFlowVLANCounters&) = default;
    CSFlowVLANCounters& operator=(CSFlowVLANCounters&&) noexcept = default;
    virtual ~CSFlowVLANCounters() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_vlanId = 0xFFFFFFFF;
    uint64_t m_octets = ~uint64_t{0};
    uint32_t m_ucastPkts = 0xFFFFFFFF;
    uint32_t m_multicastPkts = 0xFFFFFFFF;
    uint32_t m_broadcastPkts = 0xFFFFFFFF;
    uint32_t m_discards = 0xFFFFFFFF;
};
