#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "packet/DecodeOptions.h"

// An IPv4 or IPv6 address prefix (CIDR) that senders are matched against.
//
// Both families are kept in one 128-bit form: an IPv4 prefix a.b.c.d/n is the IPv4-mapped prefix
// ::ffff:a.b.c.d/(96+n). So an IPv4 prefix matches an IPv4 sender whether it arrived on an IPv4 socket or
// as an IPv4-mapped address on a dual-stack one, an IPv6 prefix that covers ::ffff:0:0/96 (such as ::/0)
// matches IPv4 senders too, and 2001:db8::/32 never does.
class CAddressPrefix {
public:
    // The empty prefix: matches nothing until Parse fills it.
    CAddressPrefix() = default;

    // Parses "10.0.0.0/8", "2001:db8::/32", or a bare address (a host prefix: /32 or /128). Address bits
    // beyond the prefix length must be zero ("10.0.0.1/8" is refused, naming 10.0.0.0/8). On failure
    // returns false, leaves `prefix` alone and sets `error` to a sentence naming the text and the fault.
    static bool Parse(std::string_view text, CAddressPrefix& prefix, std::string& error);

    // True when the address lies inside the prefix; an unknown address (length 0) matches nothing.
    bool Contains(const CExporterAddress& address) const;

    // The prefix as it is usually written: "10.0.0.0/8", "2001:db8::/32".
    std::string ToString() const;

    bool IsIPv4() const { return m_ipv4; }
    // Prefix length in the family's own terms (0-32 for IPv4, 0-128 for IPv6).
    int GetLength() const { return m_ipv4 ? m_bits - 96 : m_bits; }
    bool IsValid() const { return m_valid; }

    bool operator==(const CAddressPrefix&) const = default;

private:
    std::array<uint8_t, 16> m_bytes{}; // the 128-bit form, bits beyond m_bits zero
    int m_bits = 0;                    // prefix length in the 128-bit form
    bool m_ipv4 = false;               // written as an IPv4 prefix
    bool m_valid = false;
};
