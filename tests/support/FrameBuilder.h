#pragma once
// The start of a captured packet (an sFlow sampled header) for tests: one struct per protocol header,
// fields in wire order, appended to a ByteBuilder layer by layer:
//   ByteBuilder b;
//   EthernetHeader{.type = 0x0800}.AppendTo(b);
//   IPv4Header{.protocol = 6, .src = IPv4(10, 0, 0, 1), .dst = IPv4(10, 0, 0, 2)}.AppendTo(b);
//   TcpHeader{.srcPort = 40000, .dstPort = 443, .flags = 0x18}.AppendTo(b);

#include <array>
#include <cstdint>

#include "support/ByteBuilder.h"

namespace tpnf::test {

using MacBytes = std::array<uint8_t, 6>;
using IPv6Bytes = std::array<uint8_t, 16>;

// 14 bytes: destination MAC, source MAC, EtherType.
struct EthernetHeader {
    MacBytes dst = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    MacBytes src = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    uint16_t type = 0x0800;

    void AppendTo(ByteBuilder& b) const {
        for (uint8_t x : dst)
            b.u8(x);
        for (uint8_t x : src)
            b.u8(x);
        b.u16(type);
    }
};

// 14 + 4 bytes per tag: the MACs, each tag (its TPID and TCI), then the EtherType of the payload.
struct TaggedEthernetHeader {
    MacBytes dst = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    MacBytes src = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    std::array<uint16_t, 2> tpids = {0x8100, 0}; // a 0 TPID ends the tags
    std::array<uint16_t, 2> tcis = {0, 0};       // priority in the top 3 bits, VLAN id in the low 12
    uint16_t type = 0x0800;

    void AppendTo(ByteBuilder& b) const {
        for (uint8_t x : dst)
            b.u8(x);
        for (uint8_t x : src)
            b.u8(x);
        for (size_t i = 0; i < tpids.size() && tpids[i] != 0; ++i)
            b.u16(tpids[i]).u16(tcis[i]);
        b.u16(type);
    }
};

// 20 bytes (no options unless headerWords says so; option words are zero).
struct IPv4Header {
    uint8_t headerWords = 5;
    uint8_t tos = 0;
    uint16_t totalLength = 0;
    uint16_t identification = 1;
    uint16_t flagsAndFragment = 0x4000; // don't fragment, offset 0
    uint8_t ttl = 64;
    uint8_t protocol = 6;
    uint16_t checksum = 0;
    uint32_t src = 0;
    uint32_t dst = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u8(0x40 | headerWords).u8(tos).u16(totalLength).u16(identification).u16(flagsAndFragment);
        b.u8(ttl).u8(protocol).u16(checksum).u32(src).u32(dst);
        for (int i = 5; i < headerWords; ++i)
            b.u32(0);
    }
};

// 40 bytes.
struct IPv6Header {
    uint8_t trafficClass = 0;
    uint32_t flowLabel = 0;
    uint16_t payloadLength = 0;
    uint8_t nextHeader = 6;
    uint8_t hopLimit = 64;
    IPv6Bytes src{};
    IPv6Bytes dst{};

    void AppendTo(ByteBuilder& b) const {
        b.u32((6u << 28) | (uint32_t(trafficClass) << 20) | (flowLabel & 0xFFFFF));
        b.u16(payloadLength).u8(nextHeader).u8(hopLimit);
        for (uint8_t x : src)
            b.u8(x);
        for (uint8_t x : dst)
            b.u8(x);
    }
};

// An IPv6 extension header of (lengthUnits + 1) * 8 bytes (hop-by-hop, routing, destination options),
// filled with zeros after its first two bytes.
struct IPv6ExtensionHeader {
    uint8_t nextHeader = 6;
    uint8_t lengthUnits = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u8(nextHeader).u8(lengthUnits).zeros(6 + 8 * size_t(lengthUnits));
    }
};

// 8 bytes.
struct IPv6FragmentHeader {
    uint8_t nextHeader = 17;
    uint16_t offsetUnits = 0; // in 8-byte units
    bool more = false;
    uint32_t identification = 1;

    void AppendTo(ByteBuilder& b) const {
        b.u8(nextHeader).u8(0).u16((uint32_t(offsetUnits) << 3) | (more ? 1 : 0)).u32(identification);
    }
};

// 20 bytes.
struct TcpHeader {
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;
    uint32_t sequence = 1;
    uint32_t acknowledgement = 0;
    uint8_t dataOffsetWords = 5;
    uint8_t flags = 0;
    uint16_t window = 65535;
    uint16_t checksum = 0;
    uint16_t urgent = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u16(srcPort).u16(dstPort).u32(sequence).u32(acknowledgement).u8(dataOffsetWords << 4).u8(flags);
        b.u16(window).u16(checksum).u16(urgent);
    }
};

// 8 bytes.
struct UdpHeader {
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;
    uint16_t length = 8;
    uint16_t checksum = 0;

    void AppendTo(ByteBuilder& b) const { b.u16(srcPort).u16(dstPort).u16(length).u16(checksum); }
};

// 8 bytes (ICMP or ICMPv6).
struct IcmpHeader {
    uint8_t type = 8;
    uint8_t code = 0;
    uint16_t checksum = 0;
    uint32_t rest = 0;

    void AppendTo(ByteBuilder& b) const { b.u8(type).u8(code).u16(checksum).u32(rest); }
};

} // namespace tpnf::test
