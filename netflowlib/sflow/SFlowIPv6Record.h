#pragma once

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Sampled IPv6 packet summary (flow format 4; packet-data type 3 of a version 2/4 sample).
class CSFlowIPv6Record {
public:
    CSFlowIPv6Record() = default;
    CSFlowIPv6Record(const CSFlowIPv6Record&) = default;
    CSFlowIPv6Record(CSFlowIPv6Record&&) noexcept = default;
    CSFlowIPv6Record& operator=(const CSFlowIPv6Record&) = default;
    CSFlowIPv6Record& operator=(CSFlowIPv6Record&&) noexcept = default;
    virtual ~CSFlowIPv6Record() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    // The address of raw address bytes: takes 16 positions, each bounds-tested.
    static CNetFlowIPAddress AddressFromBytes(const CByteArray& bytes);

    uint32_t m_length = 0xFFFFFFFF;
    uint32_t m_protocol = 0xFFFFFFFF;
    CNetFlowIPAddress m_srcIP{0u};
    CNetFlowIPAddress m_dstIP{0u};
    uint32_t m_srcPort = 0xFFFFFFFF;
    uint32_t m_dstPort = 0xFFFFFFFF;
    uint32_t m_tcpFlags = 0xFFFFFFFF;
    uint32_t m_priority = 0xFFFFFFFF;
};
