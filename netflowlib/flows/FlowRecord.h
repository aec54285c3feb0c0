#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The keys of a flow, in the order every output of flows (JSON line, flows table) lists them.
enum class EFlowKey : uint8_t {
    TimeReceived,      // ms since 1970 (UTC) when the datagram was read
    Exporter,          // the sender's address
    ExporterPort,      // the sender's UDP port
    Protocol,          // the packet's protocol name
    Sequence,          // the header's flow, package or datagram sequence
    ObservationDomain, // v9 source id, IPFIX domain, sFlow source index, v5/v8 engine type * 256 + id
    FlowStart,         // ms since 1970 (UTC)
    FlowEnd,           // ms since 1970 (UTC)
    IpVersion,         // 4 or 6
    SrcAddr,
    DstAddr,
    NextHop,
    SrcPort, // ICMP: 0
    DstPort, // ICMP: type * 256 + code
    Proto,
    Tos,
    TcpFlags,
    Packets, // as carried, not scaled
    Bytes,   // as carried, not scaled
    SamplingRate,
    InIf,
    OutIf,
    SrcAs,
    DstAs,
    SrcMask,
    DstMask,
    Vlan,
    SrcMac,
    DstMac,
};

inline constexpr size_t FLOW_KEY_COUNT = static_cast<size_t>(EFlowKey::DstMac) + 1;

// How a key's value is held and shown: a 64-bit integer, or a text made from an address, a MAC or the
// protocol.
enum class EFlowKeyKind : uint8_t { Integer, Address, Mac, Protocol };

// The protocol a flow arrived in.
enum class EFlowProtocol : uint8_t {
    NetFlowV1 = 1,
    NetFlowV5,
    NetFlowV7,
    NetFlowV8,
    NetFlowV9,
    IPFIX,
    SFlowV2,
    SFlowV4,
    SFlowV5,
};

// An IPv4 or IPv6 address in network byte order.
struct CFlowAddress {
    // The longest text: an IPv4-mapped IPv6 address written in full.
    static constexpr size_t MAX_TEXT = 45;

    std::array<uint8_t, 16> bytes{};
    uint8_t length = 0; // 4 or 16

    static CFlowAddress IPv4(uint32_t address);
    // length 4 or 16; any other length gives an empty address.
    static CFlowAddress FromBytes(const uint8_t* data, size_t length);

    // Dotted IPv4, or IPv6 as RFC 5952 writes it (lower case, the longest run of zero groups shortened
    // to "::", an IPv4-mapped address with its IPv4 part dotted). Writes at most MAX_TEXT characters,
    // no terminator, and gives the count.
    size_t Format(char* out) const;

    bool operator==(const CFlowAddress&) const = default;
};

// One flow, the same for every protocol. Every key may be null; integers are 64-bit. The record is a
// plain value (no allocation), so a vector of them is reused by clearing it.
class CFlowRecord {
public:
    // Room for the longest text of any key.
    static constexpr size_t TEXT_CAPACITY = CFlowAddress::MAX_TEXT + 1;

    static std::string_view KeyName(EFlowKey key);
    static EFlowKeyKind KeyKind(EFlowKey key);
    static std::string_view ProtocolName(EFlowProtocol protocol);

    bool IsNull(EFlowKey key) const { return (m_present & Bit(key)) == 0; }
    void SetNull(EFlowKey key) { m_present &= ~Bit(key); }

    // Integer keys; 0 when null.
    int64_t Get(EFlowKey key) const { return m_values[Index(key)]; }
    void Set(EFlowKey key, int64_t value) {
        assert(KeyKind(key) == EFlowKeyKind::Integer);
        m_values[Index(key)] = value;
        m_present |= Bit(key);
    }

    // Address keys; an empty address when null.
    const CFlowAddress& GetAddress(EFlowKey key) const { return m_addresses[AddressSlot(key)]; }
    void SetAddress(EFlowKey key, const CFlowAddress& address) {
        m_addresses[AddressSlot(key)] = address;
        m_present |= Bit(key);
    }

    // MAC keys: the six bytes as a 48-bit number, first byte highest.
    uint64_t GetMac(EFlowKey key) const { return static_cast<uint64_t>(m_values[Index(key)]); }
    void SetMac(EFlowKey key, const uint8_t* sixBytes);

    EFlowProtocol GetProtocol() const {
        return static_cast<EFlowProtocol>(m_values[Index(EFlowKey::Protocol)]);
    }
    void SetProtocol(EFlowProtocol protocol) {
        m_values[Index(EFlowKey::Protocol)] = static_cast<int64_t>(protocol);
        m_present |= Bit(EFlowKey::Protocol);
    }

    // The text of a text key (address, MAC, protocol) in buffer or in static storage; empty when null.
    std::string_view FormatText(EFlowKey key, char (&buffer)[TEXT_CAPACITY]) const;
    // The same as a string, for callers that do not mind the allocation.
    std::string Text(EFlowKey key) const;

    bool operator==(const CFlowRecord& other) const;

private:
    static constexpr size_t Index(EFlowKey key) { return static_cast<size_t>(key); }
    static constexpr uint32_t Bit(EFlowKey key) { return uint32_t(1) << Index(key); }
    static size_t AddressSlot(EFlowKey key) {
        assert(KeyKind(key) == EFlowKeyKind::Address);
        return key == EFlowKey::Exporter
                   ? 0
                   : static_cast<size_t>(key) - static_cast<size_t>(EFlowKey::SrcAddr) + 1;
    }

    uint32_t m_present = 0;
    int64_t m_values[FLOW_KEY_COUNT] = {};
    CFlowAddress m_addresses[4]; // exporter, source, destination, next hop
};

static_assert(FLOW_KEY_COUNT <= 32, "the presence bits are one 32-bit word");
