#pragma once

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// The datagram header of sFlow versions 2, 4 and 5.
class CSFlowHeader {
public:
    CSFlowHeader() = default;
    CSFlowHeader(const CSFlowHeader&) = default;
    CSFlowHeader(CSFlowHeader&&) noexcept = default;
    CSFlowHeader& operator=(const CSFlowHeader&) = default;
    CSFlowHeader& operator=(CSFlowHeader&&) noexcept = default;
    virtual ~CSFlowHeader() = default;

    // Reads the header from byte 0; gives the offset of the first sample, or -1 for a version other
    // than 2, 4 or 5 (then only the version is stored). exact: an agent address of unknown type is an
    // error instead of a step back.
    int Decode(const CByteArray& data, bool exact = false);
    CString ToString() const;

    uint32_t m_version = 0;
    uint32_t m_agentSubId = 0xFFFFFFFF; // version 5 only
    uint32_t m_sequenceNumber = 0xFFFFFFFF;
    uint32_t m_sysUptime = 0xFFFFFFFF; // milliseconds
    uint32_t m_numSamples = 0;         // as announced
    CNetFlowIPAddress m_agentAddress{0u};
};
