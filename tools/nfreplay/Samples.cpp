#include "Samples.h"

#include <utility>

namespace tpnf::tools {
namespace {

// Big-endian writer for the sample layouts.
class Writer {
public:
    Writer& u8(uint32_t v) {
        m_bytes.push_back(static_cast<uint8_t>(v));
        return *this;
    }
    Writer& u16(uint32_t v) { return u8(v >> 8).u8(v); }
    Writer& u32(uint32_t v) { return u16(v >> 16).u16(v); }
    Writer& uint(uint32_t v, int length) {
        for (int shift = 8 * (length - 1); shift >= 0; shift -= 8)
            u8(v >> shift);
        return *this;
    }
    Writer& bytes(const std::vector<uint8_t>& more) {
        m_bytes.insert(m_bytes.end(), more.begin(), more.end());
        return *this;
    }
    size_t size() const { return m_bytes.size(); }
    std::vector<uint8_t> take() { return std::move(m_bytes); }

private:
    std::vector<uint8_t> m_bytes;
};

constexpr uint32_t IPv4(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return (a << 24) | (b << 16) | (c << 8) | d;
}

std::vector<uint8_t> NetFlowV5(uint32_t records = 30) {
    Writer w;
    w.u16(5).u16(records).u32(123456).u32(1700000000).u32(0).u32(42).u8(0).u8(0).u16(0);
    for (uint32_t i = 0; i < records; ++i) {
        w.u32(IPv4(10, 0, i / 256, i % 256)).u32(IPv4(192, 168, 1, i % 256)).u32(IPv4(10, 0, 0, 1));
        w.u16(1).u16(2).u32(10 + i).u32(1500 * (i + 1)).u32(1000).u32(2000).u16(1024 + i).u16(80);
        w.u8(0).u8(0x1B).u8(6).u8(0).u16(65001).u16(65002).u8(24).u8(16).u16(0);
    }
    return w.take();
}

std::vector<uint8_t> NetFlowV9(uint32_t records = 20, uint32_t templateId = 256) {
    static const std::pair<uint32_t, int> kFields[] = {{8, 4}, {12, 4}, {15, 4}, {10, 2}, {14, 2}, {2, 4},
                                                       {1, 4}, {22, 4}, {21, 4}, {7, 2},  {11, 2}, {6, 1},
                                                       {4, 1}, {5, 1},  {16, 2}, {17, 2}};
    constexpr uint32_t kFieldCount = sizeof kFields / sizeof kFields[0];
    Writer w;
    w.u16(9).u16(2).u32(123456).u32(1700000000).u32(7).u32(1);
    w.u16(0).u16(4 + 4 + 4 * kFieldCount).u16(templateId).u16(kFieldCount);
    for (const auto& [type, length] : kFields)
        w.u16(type).u16(static_cast<uint32_t>(length));
    Writer data;
    for (uint32_t i = 0; i < records; ++i) {
        const uint32_t values[kFieldCount] = {IPv4(10, 1, 0, i),
                                              IPv4(10, 2, 0, i),
                                              IPv4(10, 0, 0, 1),
                                              3,
                                              4,
                                              5 + i,
                                              700 + i,
                                              1000,
                                              2000,
                                              40000 + i,
                                              443,
                                              0x18,
                                              6,
                                              0,
                                              64512,
                                              64513};
        for (uint32_t f = 0; f < kFieldCount; ++f)
            data.uint(values[f], kFields[f].second);
    }
    const uint32_t padding = (4 - (4 + data.size()) % 4) % 4;
    w.u16(templateId).u16(static_cast<uint32_t>(4 + data.size() + padding)).bytes(data.take());
    for (uint32_t i = 0; i < padding; ++i)
        w.u8(0);
    return w.take();
}

// The first 128 bytes of an Ethernet frame carrying IPv4/TCP, so that collectors decode it.
std::vector<uint8_t> EthernetIPv4Tcp(uint32_t s) {
    Writer w;
    w.u16(0x0200).u32(0x00000002).u16(0x0200).u32(0x00000001).u16(0x0800);
    w.u8(0x45)
        .u8(0)
        .u16(1500)
        .u16(s)
        .u16(0x4000)
        .u8(64)
        .u8(6)
        .u16(0)
        .u32(IPv4(10, 3, 0, s + 1))
        .u32(IPv4(10, 4, 0, 1));
    w.u16(50000 + s).u16(443).u32(1).u32(0).u8(0x50).u8(0x18).u16(65535).u16(0).u16(0);
    for (uint32_t i = 0, filler = 128 - static_cast<uint32_t>(w.size()); i < filler; ++i)
        w.u8((i * 7 + s) & 0xFF);
    return w.take();
}

std::vector<uint8_t> SFlowV5(uint32_t samples = 8) {
    Writer w;
    w.u32(5).u32(1).u32(IPv4(127, 0, 0, 1)).u32(0).u32(99).u32(3600000).u32(samples);
    for (uint32_t s = 0; s < samples; ++s) {
        Writer sample;
        sample.u32(s).u32(3).u32(512).u32(512 * s).u32(0).u32(3).u32(4).u32(2);
        // Sampled header: Ethernet, frame length 1518, 4 bytes stripped, 128 bytes of header.
        sample.u32(1).u32(16 + 128).u32(1).u32(1518).u32(4).u32(128).bytes(EthernetIPv4Tcp(s));
        // Extended switch: VLAN 10 in, VLAN 20 out.
        sample.u32(1001).u32(16).u32(10).u32(0).u32(20).u32(0);
        w.u32(1).u32(static_cast<uint32_t>(sample.size())).bytes(sample.take());
    }
    return w.take();
}

} // namespace

const std::vector<std::string>& SampleNames() {
    static const std::vector<std::string> kNames = {"v5", "v9", "sflow"};
    return kNames;
}

std::vector<uint8_t> MakeSample(const std::string& name) {
    if (name == "v5")
        return NetFlowV5();
    if (name == "v9")
        return NetFlowV9();
    if (name == "sflow")
        return SFlowV5();
    return {};
}

std::string SampleFileName(const std::string& name) {
    if (name == "v5")
        return "v5_30.bin";
    if (name == "v9")
        return "v9_t16x20.bin";
    return "sflow5_8.bin";
}

} // namespace tpnf::tools
