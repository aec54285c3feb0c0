#pragma once
// Builds sFlow datagrams of versions 2, 4 and 5 from their parts, so a test shows the layout it sends:
// a datagram is a header and samples, a version 5 sample is its fields and records, a record is a
// format, a length and a body written with ByteBuilder.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "support/ByteBuilder.h"

// The field structs below are meant for designated initializers that name only the fields a test
// cares about; GCC 12 warns about every member left to its default initializer there.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif

namespace tpnf::test::sflow {

using Bytes = std::vector<uint8_t>;

struct HeaderFields {
    uint32_t version = 5;
    uint32_t addressType = 1;       // 1 IPv4, 2 IPv6
    Bytes address = {192, 0, 2, 1}; // 4 or 16 bytes
    uint32_t subId = 0;             // written for version 5 only
    uint32_t sequence = 1;
    uint32_t uptime = 360000;        // milliseconds
    std::optional<uint32_t> samples; // announced count; the number of samples given when unset
};

// A whole datagram: header, then the samples as given.
inline Bytes Datagram(const HeaderFields& h, const std::vector<Bytes>& samples) {
    ByteBuilder b;
    b.u32(h.version).u32(h.addressType).bytes(h.address);
    if (h.version >= 5)
        b.u32(h.subId);
    b.u32(h.sequence).u32(h.uptime).u32(h.samples.value_or(static_cast<uint32_t>(samples.size())));
    for (const Bytes& sample : samples)
        b.bytes(sample);
    return b.build();
}

// A version 5 flow or counter record: format, body length, body.
inline Bytes Record(uint32_t format, const Bytes& body) {
    return ByteBuilder().u32(format).u32(static_cast<uint32_t>(body.size())).bytes(body).build();
}

inline void AppendAll(ByteBuilder& b, const std::vector<Bytes>& parts) {
    for (const Bytes& part : parts)
        b.bytes(part);
}

// A version 5 sample: tag, length of the body (unless a length is forced), body.
inline Bytes SampleV5(uint32_t tag, const Bytes& body, std::optional<uint32_t> length = std::nullopt) {
    return ByteBuilder()
        .u32(tag)
        .u32(length.value_or(static_cast<uint32_t>(body.size())))
        .bytes(body)
        .build();
}

struct FlowFields {
    uint32_t sequence = 1;
    uint32_t sourceId = 3; // compact: type in the top 8 bits, index below
    uint32_t samplingRate = 512;
    uint32_t samplePool = 1024;
    uint32_t drops = 0;
    uint32_t input = 1;  // compact: format in the top 2 bits, port below
    uint32_t output = 2; // compact
};

// Flow sample (tag 1).
inline Bytes FlowSampleV5(const FlowFields& f, const std::vector<Bytes>& records) {
    ByteBuilder b;
    b.u32(f.sequence).u32(f.sourceId).u32(f.samplingRate).u32(f.samplePool).u32(f.drops).u32(f.input);
    b.u32(f.output).u32(static_cast<uint32_t>(records.size()));
    AppendAll(b, records);
    return SampleV5(1, b.build());
}

struct ExpandedFlowFields {
    uint32_t sequence = 1;
    uint32_t sourceIdType = 0;
    uint32_t sourceIdIndex = 3;
    uint32_t samplingRate = 512;
    uint32_t samplePool = 1024;
    uint32_t drops = 0;
    uint32_t inputFormat = 0;
    uint32_t inputPort = 1;
    uint32_t outputFormat = 0;
    uint32_t outputPort = 2;
};

// Expanded flow sample (tag 3).
inline Bytes ExpandedFlowSampleV5(const ExpandedFlowFields& f, const std::vector<Bytes>& records) {
    ByteBuilder b;
    b.u32(f.sequence).u32(f.sourceIdType).u32(f.sourceIdIndex).u32(f.samplingRate).u32(f.samplePool);
    b.u32(f.drops).u32(f.inputFormat).u32(f.inputPort).u32(f.outputFormat).u32(f.outputPort);
    b.u32(static_cast<uint32_t>(records.size()));
    AppendAll(b, records);
    return SampleV5(3, b.build());
}

// Counter sample (tag 2).
inline Bytes CounterSampleV5(uint32_t sequence, uint32_t sourceId, const std::vector<Bytes>& records) {
    ByteBuilder b;
    b.u32(sequence).u32(sourceId).u32(static_cast<uint32_t>(records.size()));
    AppendAll(b, records);
    return SampleV5(2, b.build());
}

// Expanded counter sample (tag 4).
inline Bytes ExpandedCounterSampleV5(uint32_t sequence, uint32_t sourceIdType, uint32_t sourceIdIndex,
                                     const std::vector<Bytes>& records) {
    ByteBuilder b;
    b.u32(sequence).u32(sourceIdType).u32(sourceIdIndex).u32(static_cast<uint32_t>(records.size()));
    AppendAll(b, records);
    return SampleV5(4, b.build());
}

// Version 2/4 flow sample (tag 1, no length): fields with whole-word ports, the packet data (its type
// word first), then the extended-data elements (each its type word first).
inline Bytes FlowSampleV24(const FlowFields& f, const Bytes& packetData, const std::vector<Bytes>& elements) {
    ByteBuilder b;
    b.u32(1).u32(f.sequence).u32(f.sourceId).u32(f.samplingRate).u32(f.samplePool).u32(f.drops);
    b.u32(f.input).u32(f.output).bytes(packetData).u32(static_cast<uint32_t>(elements.size()));
    AppendAll(b, elements);
    return b.build();
}

// Version 2/4 counter sample (tag 2, no length): fields, counters type, then the counter blocks.
inline Bytes CounterSampleV24(uint32_t sequence, uint32_t sourceId, uint32_t interval, uint32_t countersType,
                              const std::vector<Bytes>& blocks) {
    ByteBuilder b;
    b.u32(2).u32(sequence).u32(sourceId).u32(interval).u32(countersType);
    AppendAll(b, blocks);
    return b.build();
}

// --- record bodies ---

// Sampled header body; the stripped count is written only when given (version 5). The header bytes
// are padded to a word, as agents send them.
inline Bytes SampledHeader(uint32_t protocol, uint32_t frameLength, std::optional<uint32_t> stripped,
                           const Bytes& header) {
    ByteBuilder b;
    b.u32(protocol).u32(frameLength);
    if (stripped)
        b.u32(*stripped);
    b.u32(static_cast<uint32_t>(header.size())).bytes(header).zeros((4 - header.size() % 4) % 4);
    return b.build();
}

inline Bytes ExtendedSwitch(uint32_t srcVlan, uint32_t srcPriority, uint32_t dstVlan, uint32_t dstPriority) {
    return ByteBuilder().u32(srcVlan).u32(srcPriority).u32(dstVlan).u32(dstPriority).build();
}

// Generic interface counters with recognisable values: word i of the 88 bytes holds base + i.
inline Bytes GenericCounters(uint32_t base) {
    ByteBuilder b;
    for (uint32_t i = 0; i < 22; ++i)
        b.u32(base + i);
    return b.build();
}

// --- bodies in the layout of the sFlow documents (XDR: opaque data and strings padded to 4 bytes) ---

// A string or variable-length opaque: length word, the bytes, zeros up to a multiple of 4.
inline Bytes XdrString(std::string_view text) {
    return ByteBuilder()
        .u32(static_cast<uint32_t>(text.size()))
        .text(text)
        .zeros((4 - text.size() % 4) % 4)
        .build();
}

// An address union: type 1 and 4 bytes, or type 2 and 16 bytes.
inline Bytes Address(const Bytes& bytes) {
    return ByteBuilder().u32(bytes.size() == 16 ? 2 : 1).bytes(bytes).build();
}

// Ethernet frame data (flow format 2): each MAC a 6-byte opaque padded to 8.
inline Bytes SampledEthernet(uint32_t length, const Bytes& srcMac, const Bytes& dstMac, uint32_t type) {
    return ByteBuilder().u32(length).bytes(srcMac).zeros(2).bytes(dstMac).zeros(2).u32(type).build();
}

struct IpFields {
    uint32_t length = 0;
    uint32_t protocol = 0;
    Bytes src; // 4 or 16 bytes
    Bytes dst;
    uint32_t srcPort = 0;
    uint32_t dstPort = 0;
    uint32_t tcpFlags = 0;
    uint32_t tosOrPriority = 0;
};

// Sampled IPv4 (flow format 3) or IPv6 (format 4) data: the addresses are fixed-size opaques.
inline Bytes SampledIp(const IpFields& f) {
    ByteBuilder b;
    b.u32(f.length).u32(f.protocol).bytes(f.src).bytes(f.dst);
    b.u32(f.srcPort).u32(f.dstPort).u32(f.tcpFlags).u32(f.tosOrPriority);
    return b.build();
}

// n consecutive words base, base + 1, ...
inline Bytes Words(uint32_t base, uint32_t n) {
    ByteBuilder b;
    for (uint32_t i = 0; i < n; ++i)
        b.u32(base + i);
    return b.build();
}

// A typical 128-byte Ethernet/IPv4/TCP frame start, for header records.
inline Bytes Frame128() {
    ByteBuilder b;
    b.bytes({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55}).u16(0x0800);
    b.u8(0x45).u8(0).u16(1500).u16(1).u16(0x4000).u8(64).u8(6).u16(0).ipv4(10, 0, 0, 1).ipv4(10, 0, 0, 2);
    b.u16(40000).u16(443).u32(1).u32(0).u16(0x5010).u16(65535).u32(0);
    while (b.size() < 128)
        b.u8(static_cast<uint32_t>(b.size()));
    return b.build();
}

} // namespace tpnf::test::sflow
