#include "session/AddressPrefix.h"

#include <asio/ip/address.hpp>

#include <algorithm>
#include <charconv>
#include <initializer_list>

namespace {

constexpr std::array<uint8_t, 12> kMappedHead = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

std::array<uint8_t, 16> MappedForm(const CExporterAddress& address) {
    std::array<uint8_t, 16> bytes{};
    if (address.length == 4) {
        std::copy(kMappedHead.begin(), kMappedHead.end(), bytes.begin());
        std::copy(address.bytes.begin(), address.bytes.begin() + 4, bytes.begin() + 12);
    } else {
        bytes = address.bytes;
    }
    return bytes;
}

// True when the first `bits` bits of a and b agree.
bool SameLeadingBits(const std::array<uint8_t, 16>& a, const std::array<uint8_t, 16>& b, int bits) {
    const int whole = bits / 8;
    for (int i = 0; i < whole; ++i)
        if (a[i] != b[i])
            return false;
    const int rest = bits % 8;
    if (rest == 0)
        return true;
    const uint8_t mask = static_cast<uint8_t>(0xFF << (8 - rest));
    return ((a[whole] ^ b[whole]) & mask) == 0;
}

void ClearBitsFrom(std::array<uint8_t, 16>& bytes, int bits) {
    for (int i = 0; i < 16; ++i) {
        const int keep = std::max(0, std::min(8, bits - 8 * i));
        bytes[i] &= static_cast<uint8_t>(0xFF00 >> keep);
    }
}

// Sets `error` to "'<text>' is not an address prefix: " and the reason's pieces; returns false.
bool Refuse(std::string& error, std::string_view text, std::initializer_list<std::string_view> reason) {
    std::string message;
    message += '\'';
    message += text;
    message += "' is not an address prefix: ";
    for (std::string_view piece : reason)
        message += piece;
    error = std::move(message);
    return false;
}

} // namespace

bool CAddressPrefix::Parse(std::string_view text, CAddressPrefix& prefix, std::string& error) {
    const size_t slash = text.find('/');
    const std::string_view addressText = text.substr(0, slash);
    if (addressText.empty())
        return Refuse(error, text, {"the address is missing (write e.g. 10.0.0.0/8 or 2001:db8::/32)"});
    std::error_code parseError;
    const asio::ip::address address = asio::ip::make_address(std::string(addressText), parseError);
    if (parseError || addressText.find('%') != std::string_view::npos)
        return Refuse(error, text, {"'", addressText, "' is not an IPv4 or IPv6 address"});
    const int familyBits = address.is_v4() ? 32 : 128;
    int length = familyBits;
    if (slash != std::string_view::npos) {
        const std::string_view lengthText = text.substr(slash + 1);
        const char* end = lengthText.data() + lengthText.size();
        const auto [stop, fault] = std::from_chars(lengthText.data(), end, length);
        if (lengthText.empty() || fault != std::errc() || stop != end || lengthText[0] == '+' ||
            lengthText[0] == '-' || length < 0 || length > familyBits)
            return Refuse(
                error, text,
                {"the length after '/' must be a whole number from 0 to ", address.is_v4() ? "32" : "128"});
    }

    CAddressPrefix parsed;
    parsed.m_valid = true;
    if (address.is_v4()) {
        const auto v4 = address.to_v4().to_bytes();
        std::copy(kMappedHead.begin(), kMappedHead.end(), parsed.m_bytes.begin());
        std::copy(v4.begin(), v4.end(), parsed.m_bytes.begin() + 12);
        parsed.m_bits = 96 + length;
        parsed.m_ipv4 = true;
    } else {
        parsed.m_bytes = address.to_v6().to_bytes();
        parsed.m_bits = length;
        // ::ffff:a.b.c.d/n with n >= 96 is the IPv4 prefix a.b.c.d/(n-96) and is written so.
        parsed.m_ipv4 =
            length >= 96 && std::equal(kMappedHead.begin(), kMappedHead.end(), parsed.m_bytes.begin());
    }
    CAddressPrefix masked = parsed;
    ClearBitsFrom(masked.m_bytes, masked.m_bits);
    if (masked.m_bytes != parsed.m_bytes)
        return Refuse(error, text,
                      {"the address has bits set beyond the first ", std::to_string(length),
                       " bits (did you mean ", masked.ToString(), "?)"});
    prefix = parsed;
    return true;
}

bool CAddressPrefix::Contains(const CExporterAddress& address) const {
    if (!m_valid || (address.length != 4 && address.length != 16))
        return false;
    return SameLeadingBits(m_bytes, MappedForm(address), m_bits);
}

std::string CAddressPrefix::ToString() const {
    if (!m_valid)
        return std::string();
    if (m_ipv4) {
        asio::ip::address_v4::bytes_type v4;
        std::copy(m_bytes.begin() + 12, m_bytes.end(), v4.begin());
        return asio::ip::address_v4(v4).to_string() + "/" + std::to_string(m_bits - 96);
    }
    return asio::ip::address_v6(m_bytes).to_string() + "/" + std::to_string(m_bits);
}
