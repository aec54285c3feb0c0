#pragma once

#include "util/Types.h"

// 100BaseVG interface counters (counter format 4).
class CSFlowVGCounters {
public:
    CSFlowVGCounters() = default;
    CSFlowVGCounters(const CSFlowVGCounters&) = default;
    CSFlowVGCounters(CSFlowVGCounters&&) noexcept = default;
    CSFlowVGCounters& operator=(const CSFlowVGCounters&) = default;
    CSFlowVGCounters& operator=(CSFlowVGCounters&&) noexcept = default;
    virtual ~CSFlowVGCounters() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_dot12InHighPriorityFrames = 0xFFFFFFFF;
    uint64_t m_dot12InHighPriorityOctets = ~uint64_t{0};
    uint32_t m_dot12InNormPriorityFrames = 0xFFFFFFFF;
    uint64_t m_dot12InNormPriorityOctets = ~uint64_t{0};
    uint32_t m_dot12InIPMErrors = 0xFFFFFFFF;
    uint32_t m_dot12InOversizeFrameErrors = 0xFFFFFFFF;
    uint32_t m_dot12InDataErrors = 0xFFFFFFFF;
    uint32_t m_dot12InNullAddressedFrames = 0xFFFFFFFF;
    uint32_t m_dot12OutHighPriorityFrames = 0xFFFFFFFF;
    uint64_t m_dot12OutHighPriorityOctets = ~uint64_t{0};
    uint32_t m_dot12TransitionIntoTrainings = 0xFFFFFFFF;
    uint64_t m_dot12HCInHighPriorityOctets = ~uint64_t{0};
    uint64_t m_dot12HCInNormPriorityOctets = ~uint64_t{0};
    uint64_t m_dot12HCOutHighPriorityOctets = ~uint64_t{0};
};
