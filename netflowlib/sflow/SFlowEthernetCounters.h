#pragma once

#include "util/Types.h"

// Ethernet interface counters (counter format 2).
class CSFlowEthernetCounters {
public:
    CSFlowEthernetCounters() = default;
    CSFlowEthernetCounters(const CSFlowEthernetCounters&) = default;
    CSFlowEthernetCounters(CSFlowEthernetCounters&&) noexcept = default;
    CSFlowEthernetCounters& operator=(const CSFlowEthernetCounters&) = default;
    CSFlowEthernetCounters& operator=(CSFlowEthernetCounters&&) noexcept = default;
    virtual ~CSFlowEthernetCounters() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_dot3StatsAlignmentErrors = 0xFFFFFFFF;
    uint32_t m_dot3StatsFCSErrors = 0xFFFFFFFF;
    uint32_t m_dot3StatsSingleCollisionFrames = 0xFFFFFFFF;
    uint32_t m_dot3StatsMultipleCollisionFrames = 0xFFFFFFFF;
    uint32_t m_dot3StatsSQETestErrors = 0xFFFFFFFF;
    uint32_t m_dot3StatsDeferredTransmissions = 0xFFFFFFFF;
    uint32_t m_dot3StatsLateCollisions = 0xFFFFFFFF;
    uint32_t m_dot3StatsExcessiveCollisions = 0xFFFFFFFF;
    uint32_t m_dot3StatsInternalMacTransmitErrors = 0xFFFFFFFF;
    uint32_t m_dot3StatsCarrierSenseErrors = 0xFFFFFFFF;
    uint32_t m_dot3StatsFrameTooLongs = 0xFFFFFFFF;
    uint32_t m_dot3StatsInternalMacReceiveErrors = 0xFFFFFFFF;
    uint32_t m_dot3StatsSymbolErrors = 0xFFFFFFFF;
};
