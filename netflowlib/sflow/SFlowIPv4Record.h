#pragma once

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Sampled IPv4 packet summary (flow format 3; packet-data type 2 of a version 2/4 sample).
class CSFlowIPv4Record {
public:
    CSFlowIPv4Record() = default;
    CSFlowIPv4Record(const CSFlowIPv4Record&) = default;
    CSFlowIPv4Record(CSFlowIPv4Record&&) noexcept = default;
    CSFlowIPv4Record& operator=(const CSFlowIPv4Record&) = default;
    CSFlowIPv4Record& operator=(CSFlowIPv4Record&&) noexcept = default;
    virtual ~CSFlowIPv4Record() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_length = 0xFFFFFFFF;
    uint32_t m_protocol = 0xFFFFFFFF;
    CNetFlowIPAddress m_srcIP{0u};
    CNetFlowIPAddress m_dstIP{0u};
    uint32_t m_srcPort = 0xFFFFFFFF;
    uint32_t m_dstPort = 0xFFFFFFFF;
    uint32_t m_tcpFlags = 0xFFFFFFFF;
    uint32_t m_tos = 0xFFFFFFFF;
};
