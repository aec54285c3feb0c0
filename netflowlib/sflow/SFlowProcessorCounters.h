#pragma once

#include "util/Types.h"

// Processor counters (counter format 1001; version 5 only).
class CSFlowProcessorCounters {
public:
    CSFlowProcessorCounters() = default;
    CSFlowProcessorCounters(const CSFlowProcessorCounters&) = default;
    CSFlowProcessorCounters(CSFlowProcessorCounters&&) noexcept = default;
    CSFlowProcessorCounters& operator=(const CSFlowProcessorCounters&) = default;
    CSFlowProcessorCounters& operator=(CSFlowProcessorCounters&&) noexcept = default;
    virtual ~CSFlowProcessorCounters() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_5sCpu = 0xFFFFFFFF; // loads as received, not scaled
    uint32_t m_1mCpu = 0xFFFFFFFF;
    uint32_t m_5mCpu = 0xFFFFFFFF;
    uint64_t m_totalMemory = ~uint64_t{0};
    uint64_t m_freeMemory = ~uint64_t{0};
};
