#pragma once

#include "util/Types.h"

// Generic interface counters (counter format 1; also every counters block of a version 2/4 sample).
class CSFlowGenericCounters {
public:
    CSFlowGenericCounters() = default;
    CSFlowGenericCounters(const CSFlowGenericCounters&) = default;
    CSFlowGenericCounters(CSFlowGenericCounters&&) noexcept = default;
    CSFlowGenericCounters& operator=(const CSFlowGenericCounters&) = default;
    CSFlowGenericCounters& operator=(CSFlowGenericCounters&&) noexcept = default;
    virtual ~CSFlowGenericCounters() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_ifIndex = 0xFFFFFFFF;
    uint32_t m_ifType = 0xFFFFFFFF;
    uint64_t m_ifSpeed = ~uint64_t{0};
    uint32_t m_ifDirection = 0xFFFFFFFF;
    uint32_t m_ifStatus = 0xFFFFFFFF;
    uint64_t m_ifInOctets = ~uint64_t{0};
    uint32_t m_ifInUcastPkts = 0xFFFFFFFF;
    uint32_t m_ifInMulticastPkts = 0xFFFFFFFF;
    uint32_t m_ifInBroadcastPkts = 0xFFFFFFFF;
    uint32_t m_ifInDiscards = 0xFFFFFFFF;
    uint32_t m_ifInErrors = 0xFFFFFFFF;
    uint32_t m_ifInUnknownProtos = 0xFFFFFFFF;
    uint64_t m_ifOutOctets = ~uint64_t{0};
    uint32_t m_ifOutUcastPkts = 0xFFFFFFFF;
    uint32_t m_ifOutMulticastPkts = 0xFFFFFFFF;
    uint32_t m_ifOutBroadcastPkts = 0xFFFFFFFF;
    uint32_t m_ifOutDiscards = 0xFFFFFFFF;
    uint32_t m_ifOutErrors = 0xFFFFFFFF;
    uint32_t m_ifPromiscuousMode = 0xFFFFFFFF;
};
