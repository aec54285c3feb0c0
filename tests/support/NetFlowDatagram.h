#pragma once
// NetFlow v1, v5, v7 and v8 datagrams for tests: one struct per header or record layout, fields in
// wire order, so a test shows exactly what it sends. Append the parts to a ByteBuilder:
//   ByteBuilder b;
//   V5Header{.count = 1, .unixSecs = 1000000000}.AppendTo(b);
//   V5Record{.srcAddr = IPv4(10, 0, 0, 1), .dPkts = 3}.AppendTo(b);

#include <cstdint>

#include "support/ByteBuilder.h"

namespace tpnf::test {

constexpr uint32_t IPv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    return (uint32_t(a) << 24) | (uint32_t(b) << 16) | (uint32_t(c) << 8) | d;
}

// 16 bytes.
struct V1Header {
    uint16_t version = 1;
    uint16_t count = 0;
    uint32_t sysUptime = 0;
    uint32_t unixSecs = 0;
    uint32_t unixNsecs = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u16(version).u16(count).u32(sysUptime).u32(unixSecs).u32(unixNsecs);
    }
};

// 24 bytes.
struct V5Header {
    uint16_t version = 5;
    uint16_t count = 0;
    uint32_t sysUptime = 0;
    uint32_t unixSecs = 0;
    uint32_t unixNsecs = 0;
    uint32_t flowSequence = 0;
    uint8_t engineType = 0;
    uint8_t engineId = 0;
    uint16_t samplingInterval = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u16(version).u16(count).u32(sysUptime).u32(unixSecs).u32(unixNsecs);
        b.u32(flowSequence).u8(engineType).u8(engineId).u16(samplingInterval);
    }
};

// 24 bytes.
struct V7Header {
    uint16_t version = 7;
    uint16_t count = 0;
    uint32_t sysUptime = 0;
    uint32_t unixSecs = 0;
    uint32_t unixNsecs = 0;
    uint32_t flowSequence = 0;
    uint32_t reserved = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u16(version).u16(count).u32(sysUptime).u32(unixSecs).u32(unixNsecs).u32(flowSequence).u32(reserved);
    }
};

// 28 bytes.
struct V8Header {
    uint16_t version = 8;
    uint16_t count = 0;
    uint32_t sysUptime = 0;
    uint32_t unixSecs = 0;
    uint32_t unixNsecs = 0;
    uint32_t flowSequence = 0;
    uint8_t engineType = 0;
    uint8_t engineId = 0;
    uint8_t aggregation = 1;
    uint8_t aggregationVersion = 2;
    uint32_t reserved = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u16(version).u16(count).u32(sysUptime).u32(unixSecs).u32(unixNsecs);
        b.u32(flowSequence).u8(engineType).u8(engineId).u8(aggregation).u8(aggregationVersion).u32(reserved);
    }
};

// The first 36 bytes shared by v1, v5 and v7 records.
struct CommonRecordBlock {
    uint32_t srcAddr = 0;
    uint32_t dstAddr = 0;
    uint32_t nextHop = 0;
    uint16_t input = 0;
    uint16_t output = 0;
    uint32_t dPkts = 0;
    uint32_t dOctets = 0;
    uint32_t first = 0;
    uint32_t last = 0;
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;

    void AppendTo(ByteBuilder& b) const {
        b.u32(srcAddr).u32(dstAddr).u32(nextHop).u16(input).u16(output);
        b.u32(dPkts).u32(dOctets).u32(first).u32(last).u16(srcPort).u16(dstPort);
    }
};

// 48 bytes.
struct V1Record {
    CommonRecordBlock common{};
    uint16_t pad1 = 0;
    uint8_t prot = 0;
    uint8_t tos = 0;
    uint8_t tcpFlags = 0;
    uint8_t pad2 = 0;
    uint16_t pad3 = 0;
    uint32_t reserved = 0;

    void AppendTo(ByteBuilder& b) const {
        common.AppendTo(b);
        b.u16(pad1).u8(prot).u8(tos).u8(tcpFlags).u8(pad2).u16(pad3).u32(reserved);
    }
};

// 48 bytes.
struct V5Record {
    CommonRecordBlock common{};
    uint8_t pad1 = 0;
    uint8_t tcpFlags = 0;
    uint8_t prot = 0;
    uint8_t tos = 0;
    uint16_t srcAS = 0;
    uint16_t dstAS = 0;
    uint8_t srcMask = 0;
    uint8_t dstMask = 0;
    uint16_t pad2 = 0;

    void AppendTo(ByteBuilder& b) const {
        common.AppendTo(b);
        b.u8(pad1).u8(tcpFlags).u8(prot).u8(tos).u16(srcAS).u16(dstAS).u8(srcMask).u8(dstMask).u16(pad2);
    }
};

// 52 bytes.
struct V7Record {
    CommonRecordBlock common{};
    uint8_t pad1 = 0;
    uint8_t tcpFlags = 0;
    uint8_t prot = 0;
    uint8_t tos = 0;
    uint16_t srcAS = 0;
    uint16_t dstAS = 0;
    uint8_t srcMask = 0;
    uint8_t dstMask = 0;
    uint16_t flags = 0;
    uint32_t routerSC = 0;

    void AppendTo(ByteBuilder& b) const {
        common.AppendTo(b);
        b.u8(pad1).u8(tcpFlags).u8(prot).u8(tos).u16(srcAS).u16(dstAS).u8(srcMask).u8(dstMask);
        b.u16(flags).u32(routerSC);
    }
};

// The 20-byte counter block opening every v8 record.
struct V8Counters {
    uint32_t flows = 0;
    uint32_t packets = 0;
    uint32_t octets = 0;
    uint32_t first = 0;
    uint32_t last = 0;

    void AppendTo(ByteBuilder& b) const { b.u32(flows).u32(packets).u32(octets).u32(first).u32(last); }
};

// Scheme 1, 28 bytes.
struct V8RouterASRecord {
    V8Counters counters{};
    uint16_t srcAS = 0;
    uint16_t dstAS = 0;
    uint16_t input = 0;
    uint16_t output = 0;

    void AppendTo(ByteBuilder& b) const {
        counters.AppendTo(b);
        b.u16(srcAS).u16(dstAS).u16(input).u16(output);
    }
};

// Scheme 2, 28 bytes.
struct V8RouterProtoPortRecord {
    V8Counters counters{};
    uint8_t prot = 0;
    uint8_t pad = 0;
    uint16_t reserved = 0;
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;

    void AppendTo(ByteBuilder& b) const {
        counters.AppendTo(b);
        b.u8(prot).u8(pad).u16(reserved).u16(srcPort).u16(dstPort);
    }
};

// Schemes 3 (source prefix) and 4 (destination prefix), 32 bytes.
struct V8RouterOnePrefixRecord {
    V8Counters counters{};
    uint32_t prefix = 0;
    uint8_t mask = 0;
    uint8_t pad = 0;
    uint16_t as = 0;
    uint16_t interfaceIndex = 0;
    uint16_t reserved = 0;

    void AppendTo(ByteBuilder& b) const {
        counters.AppendTo(b);
        b.u32(prefix).u8(mask).u8(pad).u16(as).u16(interfaceIndex).u16(reserved);
    }
};

// Scheme 5, 40 bytes.
struct V8RouterPrefixRecord {
    V8Counters counters{};
    uint32_t srcPrefix = 0;
    uint32_t dstPrefix = 0;
    uint8_t dstMask = 0;
    uint8_t srcMask = 0;
    uint16_t reserved = 0;
    uint16_t srcAS = 0;
    uint16_t dstAS = 0;
    uint16_t input = 0;
    uint16_t output = 0;

    void AppendTo(ByteBuilder& b) const {
        counters.AppendTo(b);
        b.u32(srcPrefix).u32(dstPrefix).u8(dstMask).u8(srcMask).u16(reserved);
        b.u16(srcAS).u16(dstAS).u16(input).u16(output);
    }
};

// Builds one datagram from its parts, in order.
template <class... Parts>
std::vector<uint8_t> Datagram(const Parts&... parts) {
    ByteBuilder b;
    (parts.AppendTo(b), ...);
    return b.build();
}

// A v5 datagram of one TCP flow, 10.0.0.1 to 10.0.0.2, 3 packets and 180 bytes; the header carries the
// flow sequence number.
inline std::vector<uint8_t> OneFlowV5(uint32_t sequence) {
    ByteBuilder b;
    V5Header{.count = 1, .sysUptime = 5000, .unixSecs = 1000000000, .flowSequence = sequence}.AppendTo(b);
    V5Record{
        .common = {.srcAddr = IPv4(10, 0, 0, 1), .dstAddr = IPv4(10, 0, 0, 2), .dPkts = 3, .dOctets = 180},
        .prot = 6}
        .AppendTo(b);
    return b.build();
}

} // namespace tpnf::test
