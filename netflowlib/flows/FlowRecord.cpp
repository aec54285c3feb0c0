#include "flows/FlowRecord.h"

#include <cstring>

namespace {

struct KeyInfo {
    std::string_view name;
    EFlowKeyKind kind;
};

constexpr KeyInfo kKeys[FLOW_KEY_COUNT] = {
    {"time_received", EFlowKeyKind::Integer}, {"exporter", EFlowKeyKind::Address},
    {"exporter_port", EFlowKeyKind::Integer}, {"protocol", EFlowKeyKind::Protocol},
    {"sequence", EFlowKeyKind::Integer},      {"observation_domain", EFlowKeyKind::Integer},
    {"flow_start", EFlowKeyKind::Integer},    {"flow_end", EFlowKeyKind::Integer},
    {"ip_version", EFlowKeyKind::Integer},    {"src_addr", EFlowKeyKind::Address},
    {"dst_addr", EFlowKeyKind::Address},      {"next_hop", EFlowKeyKind::Address},
    {"src_port", EFlowKeyKind::Integer},      {"dst_port", EFlowKeyKind::Integer},
    {"proto", EFlowKeyKind::Integer},         {"tos", EFlowKeyKind::Integer},
    {"tcp_flags", EFlowKeyKind::Integer},     {"packets", EFlowKeyKind::Integer},
    {"bytes", EFlowKeyKind::Integer},         {"sampling_rate", EFlowKeyKind::Integer},
    {"in_if", EFlowKeyKind::Integer},         {"out_if", EFlowKeyKind::Integer},
    {"src_as", EFlowKeyKind::Integer},        {"dst_as", EFlowKeyKind::Integer},
    {"src_mask", EFlowKeyKind::Integer},      {"dst_mask", EFlowKeyKind::Integer},
    {"vlan", EFlowKeyKind::Integer},          {"src_mac", EFlowKeyKind::Mac},
    {"dst_mac", EFlowKeyKind::Mac},
};

constexpr char kHex[] = "0123456789abcdef";

char* WriteDecimal(char* out, unsigned value) {
    char digits[3];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n > 0)
        *out++ = digits[--n];
    return out;
}

char* WriteDotted(char* out, const uint8_t* bytes) {
    for (int i = 0; i < 4; ++i) {
        if (i != 0)
            *out++ = '.';
        out = WriteDecimal(out, bytes[i]);
    }
    return out;
}

// One group in lower-case hexadecimal without leading zeros.
char* WriteGroup(char* out, unsigned group) {
    bool started = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
        unsigned digit = (group >> shift) & 0x0F;
        if (digit != 0 || started || shift == 0) {
            *out++ = kHex[digit];
            started = true;
        }
    }
    return out;
}

char* WriteIPv6(char* out, const uint8_t* bytes) {
    static constexpr uint8_t kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(bytes, kMappedPrefix, sizeof kMappedPrefix) == 0) {
        std::memcpy(out, "::ffff:", 7);
        return WriteDotted(out + 7, bytes + 12);
    }
    unsigned groups[8];
    for (int i = 0; i < 8; ++i)
        groups[i] = (unsigned(bytes[2 * i]) << 8) | bytes[2 * i + 1];
    // The longest run of at least two zero groups, the first of equal ones, becomes "::".
    int bestStart = -1, bestLength = 1;
    for (int i = 0; i < 8;) {
        if (groups[i] != 0) {
            ++i;
            continue;
        }
        int j = i;
        while (j < 8 && groups[j] == 0)
            ++j;
        if (j - i > bestLength) {
            bestStart = i;
            bestLength = j - i;
        }
        i = j;
    }
    for (int i = 0; i < 8; ++i) {
        if (i == bestStart) {
            *out++ = ':';
            *out++ = ':';
            i += bestLength - 1;
            continue;
        }
        if (i != 0 && i != bestStart + bestLength)
            *out++ = ':';
        out = WriteGroup(out, groups[i]);
    }
    return out;
}

} // namespace

CFlowAddress CFlowAddress::IPv4(uint32_t address) {
    CFlowAddress result;
    result.length = 4;
    result.bytes[0] = static_cast<uint8_t>(address >> 24);
    result.bytes[1] = static_cast<uint8_t>(address >> 16);
    result.bytes[2] = static_cast<uint8_t>(address >> 8);
    result.bytes[3] = static_cast<uint8_t>(address);
    return result;
}

CFlowAddress CFlowAddress::FromBytes(const uint8_t* data, size_t length) {
    CFlowAddress result;
    if (length == 4 || length == 16) {
        std::memcpy(result.bytes.data(), data, length);
        result.length = static_cast<uint8_t>(length);
    }
    return result;
}

size_t CFlowAddress::Format(char* out) const {
    if (length == 4)
        return static_cast<size_t>(WriteDotted(out, bytes.data()) - out);
    if (length == 16)
        return static_cast<size_t>(WriteIPv6(out, bytes.data()) - out);
    return 0;
}

std::string_view CFlowRecord::KeyName(EFlowKey key) {
    return kKeys[Index(key)].name;
}

EFlowKeyKind CFlowRecord::KeyKind(EFlowKey key) {
    return kKeys[Index(key)].kind;
}

std::string_view CFlowRecord::ProtocolName(EFlowProtocol protocol) {
    switch (protocol) {
    case EFlowProtocol::NetFlowV1:
        return "NetFlow v1";
    case EFlowProtocol::NetFlowV5:
        return "NetFlow v5";
    case EFlowProtocol::NetFlowV7:
        return "NetFlow v7";
    case EFlowProtocol::NetFlowV8:
        return "NetFlow v8";
    case EFlowProtocol::NetFlowV9:
        return "NetFlow v9";
    case EFlowProtocol::IPFIX:
        return "IPFIX";
    case EFlowProtocol::SFlowV2:
        return "sFlow v2";
    case EFlowProtocol::SFlowV4:
        return "sFlow v4";
    case EFlowProtocol::SFlowV5:
        return "sFlow v5";
    }
    return {};
}

void CFlowRecord::SetMac(EFlowKey key, const uint8_t* sixBytes) {
    assert(KeyKind(key) == EFlowKeyKind::Mac);
    uint64_t value = 0;
    for (int i = 0; i < 6; ++i)
        value = (value << 8) | sixBytes[i];
    m_values[Index(key)] = static_cast<int64_t>(value);
    m_present |= Bit(key);
}

std::string_view CFlowRecord::FormatText(EFlowKey key, char (&buffer)[TEXT_CAPACITY]) const {
    if (IsNull(key))
        return {};
    switch (KeyKind(key)) {
    case EFlowKeyKind::Address:
        return std::string_view(buffer, GetAddress(key).Format(buffer));
    case EFlowKeyKind::Mac: {
        const uint64_t mac = GetMac(key);
        char* out = buffer;
        for (int shift = 40; shift >= 0; shift -= 8) {
            if (shift != 40)
                *out++ = ':';
            *out++ = kHex[(mac >> (shift + 4)) & 0x0F];
            *out++ = kHex[(mac >> shift) & 0x0F];
        }
        return std::string_view(buffer, static_cast<size_t>(out - buffer));
    }
    case EFlowKeyKind::Protocol:
        return ProtocolName(GetProtocol());
    case EFlowKeyKind::Integer:
        break;
    }
    return {};
}

std::string CFlowRecord::Text(EFlowKey key) const {
    char buffer[TEXT_CAPACITY];
    return std::string(FormatText(key, buffer));
}

bool CFlowRecord::operator==(const CFlowRecord& other) const {
    if (m_present != other.m_present)
        return false;
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i) {
        const EFlowKey key = static_cast<EFlowKey>(i);
        if (IsNull(key))
            continue;
        if (KeyKind(key) == EFlowKeyKind::Address ? GetAddress(key) != other.GetAddress(key)
                                                  : m_values[i] != other.m_values[i])
            return false;
    }
    return true;
}
