#pragma once

#include <cstddef>
#include <cstdint>

#include "flows/FlowRecord.h"

// Reads the start of a sampled packet (an sFlow sampled header) into the keys of a flow: an Ethernet
// frame's MACs and first 802.1Q/802.1ad tag, then IPv4 or IPv6 (past IPv6 extension headers), then
// TCP or UDP ports and TCP flags, or ICMP type * 256 + code as the destination port (source port 0).
//
// A sampled header is usually cut short (128 bytes is common), so running out of bytes is not an
// error: every layer is read only as far as the bytes go, and keys it cannot reach stay null. Every
// read is tested against the size first, so any bytes at all are safe.
class CSampledHeaderParser {
public:
    // Header protocol numbers of sFlow's sampled header.
    static constexpr uint32_t ETHERNET = 1;
    static constexpr uint32_t IPV4 = 11;
    static constexpr uint32_t IPV6 = 12;

    // Sets the keys found in data; false, with nothing set, when the first layer (the Ethernet header,
    // or the IP header for the IPv4 and IPv6 header protocols) cannot be read or the header protocol is
    // another one.
    static bool Parse(uint32_t headerProtocol, const uint8_t* data, size_t size, CFlowRecord& flow);
};
