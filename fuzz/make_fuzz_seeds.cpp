// Writes well-formed datagrams of every kind and layout the decoders know, built with the test builders,
// one file per datagram, as starting points for the fuzz harnesses.
//   usage: make_fuzz_seeds <directory>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "nfreplay/Samples.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowDatagram.h"
#include "support/NetFlowV9Datagram.h"
#include "support/SFlowDatagram.h"

namespace {

using namespace tpnf::test;
using Bytes = std::vector<uint8_t>;

struct Seed {
    std::string name;
    Bytes bytes;
};

CommonRecordBlock Common(uint32_t i) {
    return {.srcAddr = IPv4(10, 0, 0, static_cast<uint8_t>(i)),
            .dstAddr = IPv4(192, 168, 1, static_cast<uint8_t>(i)),
            .nextHop = IPv4(10, 0, 0, 254),
            .input = 1,
            .output = 2,
            .dPkts = 10 + i,
            .dOctets = 1500 * (i + 1),
            .first = 1000,
            .last = 2000,
            .srcPort = static_cast<uint16_t>(40000 + i),
            .dstPort = 443};
}

void NetFlowFixed(std::vector<Seed>& seeds) {
    seeds.push_back(
        {"v1_two", Datagram(V1Header{.count = 2, .sysUptime = 3600000, .unixSecs = 1700000000},
                            V1Record{.common = Common(1), .prot = 6, .tos = 0x10, .tcpFlags = 0x1B},
                            V1Record{.common = Common(2), .prot = 17})});
    seeds.push_back({"v1_empty", Datagram(V1Header{.count = 0})});
    seeds.push_back(
        {"v5_three",
         Datagram(V5Header{.count = 3, .sysUptime = 90061000, .unixSecs = 1700000000, .flowSequence = 7},
                  V5Record{.common = Common(1),
                           .tcpFlags = 0x12,
                           .prot = 6,
                           .srcAS = 65001,
                           .dstAS = 65002,
                           .srcMask = 24,
                           .dstMask = 16},
                  V5Record{.common = Common(2), .prot = 17, .tos = 0xB8},
                  V5Record{.common = Common(3), .prot = 1})});
    seeds.push_back(
        {"v5_count_beyond_records", Datagram(V5Header{.count = 2}, V5Record{.common = Common(1)})});
    seeds.push_back(
        {"v7_two",
         Datagram(V7Header{.count = 2, .unixSecs = 1700000000},
                  V7Record{.common = Common(1), .prot = 6, .flags = 3, .routerSC = IPv4(10, 0, 0, 9)},
                  V7Record{.common = Common(2), .prot = 17})});
    const V8Counters counters{.flows = 3, .packets = 30, .octets = 4500, .first = 100, .last = 900};
    seeds.push_back({"v8_as", Datagram(V8Header{.count = 2, .unixSecs = 1700000000, .aggregation = 1},
                                       V8RouterASRecord{.counters = counters, .srcAS = 65001, .dstAS = 65002},
                                       V8RouterASRecord{.counters = counters, .input = 3, .output = 4})});
    seeds.push_back(
        {"v8_protoport",
         Datagram(V8Header{.count = 1, .aggregation = 2},
                  V8RouterProtoPortRecord{.counters = counters, .prot = 6, .srcPort = 1024, .dstPort = 80})});
    seeds.push_back(
        {"v8_srcprefix",
         Datagram(V8Header{.count = 1, .aggregation = 3},
                  V8RouterOnePrefixRecord{.counters = counters, .prefix = IPv4(10, 1, 0, 0), .mask = 16})});
    seeds.push_back(
        {"v8_dstprefix",
         Datagram(V8Header{.count = 1, .aggregation = 4},
                  V8RouterOnePrefixRecord{.counters = counters, .prefix = IPv4(10, 2, 0, 0), .mask = 24})});
    seeds.push_back({"v8_prefix", Datagram(V8Header{.count = 1, .aggregation = 5},
                                           V8RouterPrefixRecord{.counters = counters,
                                                                .srcPrefix = IPv4(10, 1, 0, 0),
                                                                .dstPrefix = IPv4(10, 2, 0, 0),
                                                                .dstMask = 24,
                                                                .srcMask = 16,
                                                                .srcAS = 1,
                                                                .dstAS = 2})});
    seeds.push_back({"v8_unknown_scheme", Datagram(V8Header{.count = 2, .aggregation = 9})});
}

void NetFlowV9(std::vector<Seed>& seeds) {
    // Addresses, ports, protocol, counters of 4 and 8 bytes, a MAC, an IPv6 address, flags, a name.
    const std::vector<V9FieldSpecifier> fields = {{8, 4}, {12, 4}, {7, 2},  {11, 2}, {4, 1},  {6, 1},
                                                  {1, 8}, {2, 4},  {21, 4}, {22, 4}, {56, 6}, {27, 16},
                                                  {5, 1}, {10, 2}, {14, 2}, {16, 4}, {17, 4}, {82, 8}};
    ByteBuilder record;
    record.ipv4(10, 0, 0, 1).ipv4(10, 0, 0, 2).u16(40000).u16(443).u8(6).u8(0x1B);
    record.u64(123456789012ULL).u32(42).u32(2000).u32(1000);
    record.bytes({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E});
    record.bytes({0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x1A, 0x2B, 0xFF, 0xFE, 0x3C, 0x4D, 0x5E});
    record.u8(0).u16(3).u16(4).u32(65001).u32(65002).text("eth0").zeros(4);
    ByteBuilder two;
    two.bytes(record.build()).bytes(record.build());
    seeds.push_back(
        {"v9_template_and_data",
         NetFlowV9Datagram({.count = 2, .sysUptime = 3600000, .unixSecs = 1700000000, .packageSequence = 1})
             .Template(256, fields)
             .Data(256, two.build(), 2)
             .build()});
    seeds.push_back({"v9_two_templates", NetFlowV9Datagram({.count = 3})
                                             .Templates({{300, {{8, 4}, {4, 1}}}, {301, {{12, 4}, {7, 2}}}})
                                             .Data(300, ByteBuilder().ipv4(10, 0, 0, 1).u8(17).build(), 3)
                                             .Data(301, ByteBuilder().ipv4(10, 0, 0, 2).u16(53).build(), 2)
                                             .build()});
    seeds.push_back({"v9_options", NetFlowV9Datagram({.count = 2})
                                       .OptionsTemplate(257, {{1, 4}}, {{34, 4}, {35, 1}})
                                       .Data(257, ByteBuilder().u32(1).u32(100).u8(2).build(), 3)
                                       .build()});
    seeds.push_back({"v9_zero_length_field", NetFlowV9Datagram({.count = 2})
                                                 .Template(258, {{8, 0}, {4, 0}})
                                                 .Data(258, ByteBuilder().u32(0).build())
                                                 .build()});
    seeds.push_back({"v9_data_id_255", NetFlowV9Datagram({.count = 2})
                                           .Template(255, {{10, 2}})
                                           .Data(255, ByteBuilder().u16(7).build(), 2)
                                           .build()});
    seeds.push_back(
        {"v9_unknown_data",
         NetFlowV9Datagram({.count = 1}).Data(4000, ByteBuilder().u32(1).u32(2).build()).build()});
    seeds.push_back({"v9_short_flowset_lengths",
                     NetFlowV9Datagram({.count = 2}).RawFlowSet(0, 0).RawFlowSet(300, 4).build()});
}

namespace sf = tpnf::test::sflow;

// Flow records of every version 5 kind but the sampled IPv4 one (which always throws; a seed of its own).
std::vector<Bytes> FlowRecordsV5() {
    std::vector<Bytes> r;
    r.push_back(sf::Record(1, sf::SampledHeader(1, 1518, 4, sf::Frame128())));
    r.push_back(sf::Record(2, ByteBuilder()
                                  .u32(1518)
                                  .bytes({0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0, 0x11, 0x22, 0x33, 0x44, 0x55})
                                  .u32(0x0800)
                                  .build()));
    ByteBuilder ipv6;
    ipv6.u32(1280).u32(17).bytes({0x20, 0x01, 0x0D, 0xB8}).zeros(11).u8(1);
    ipv6.bytes({0x20, 0x01, 0x0D, 0xB8}).zeros(11).u8(2).u32(5353).u32(53).u32(0).u32(0);
    r.push_back(sf::Record(4, ipv6.build()));
    r.push_back(sf::Record(1001, sf::ExtendedSwitch(10, 1, 20, 2)));
    r.push_back(sf::Record(1002, ByteBuilder().u32(1).ipv4(10, 0, 0, 254).u32(24).u32(16).build()));
    r.push_back(sf::Record(1003, ByteBuilder()
                                     .u32(1)
                                     .ipv4(10, 0, 0, 253)
                                     .u32(65000)
                                     .u32(65001)
                                     .u32(65002)
                                     .u32(2) // segments
                                     .u32(2) // AS sequence
                                     .u32(2)
                                     .u32(65001)
                                     .u32(65002)
                                     .u32(1) // AS set
                                     .u32(1)
                                     .u32(65003)
                                     .u32(2)
                                     .u32(0xFFFFFF01)
                                     .u32(100) // communities
                                     .u32(100) // local preference
                                     .build()));
    r.push_back(sf::Record(
        1004,
        ByteBuilder().u32(106).u32(5).text("alice").zeros(3).u32(106).u32(3).text("bob").zeros(1).build()));
    r.push_back(sf::Record(1005, ByteBuilder()
                                     .u32(1)
                                     .u32(10)
                                     .text("/index.htm")
                                     .zeros(2)
                                     .u32(11)
                                     .text("example.org")
                                     .zeros(1)
                                     .build()));
    r.push_back(sf::Record(1006, ByteBuilder()
                                     .u32(1)
                                     .ipv4(10, 0, 0, 1)
                                     .u32(2)
                                     .u32(0x00012345)
                                     .u32(0x00034140)
                                     .u32(1)
                                     .u32(0x000FF1FF)
                                     .build()));
    r.push_back(
        sf::Record(1007, ByteBuilder().u32(1).ipv4(192, 0, 2, 1).u32(1).ipv4(198, 51, 100, 1).build()));
    r.push_back(sf::Record(1008, ByteBuilder().u32(4).text("tun0").u32(7).u32(3).build()));
    r.push_back(sf::Record(1009, ByteBuilder().u32(3).text("vc1").zeros(1).u32(9).u32(1).build()));
    r.push_back(sf::Record(1010, ByteBuilder().u32(3).text("ftn").zeros(1).u32(24).build()));
    r.push_back(sf::Record(1011, ByteBuilder().u32(24).build()));
    r.push_back(sf::Record(1012, ByteBuilder().u32(2).u32(0x00064140).u32(0x000C8140).build()));
    r.push_back(sf::Record(
        17612803,
        ByteBuilder().u32(2).u32(100).u32(4).text("init").u32(200).u32(3).text("ssh").zeros(1).build()));
    r.push_back(sf::Record(2000, ByteBuilder().u32(1).u32(2).u32(3).build()));
    return r;
}

std::vector<Bytes> CounterRecordsV5() {
    return {sf::Record(1, sf::GenericCounters(100)), sf::Record(2, sf::Words(200, 13)),
            sf::Record(3, sf::Words(300, 18)),       sf::Record(4, sf::Words(400, 20)),
            sf::Record(5, sf::Words(500, 7)),        sf::Record(1001, sf::Words(600, 7)),
            sf::Record(7, sf::Words(700, 2))};
}

void SFlow(std::vector<Seed>& seeds) {
    seeds.push_back({"sflow5_flow_records", sf::Datagram({}, {sf::FlowSampleV5({}, FlowRecordsV5())})});
    seeds.push_back(
        {"sflow5_expanded_flow",
         sf::Datagram(
             {.addressType = 2, .address = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
             {sf::ExpandedFlowSampleV5({}, {sf::Record(1001, sf::ExtendedSwitch(1, 2, 3, 4))})})});
    seeds.push_back({"sflow5_counters", sf::Datagram({}, {sf::CounterSampleV5(1, 3, CounterRecordsV5())})});
    seeds.push_back(
        {"sflow5_expanded_counters",
         sf::Datagram({}, {sf::ExpandedCounterSampleV5(2, 0, 5, {sf::Record(1, sf::GenericCounters(1))})})});
    seeds.push_back({"sflow5_unknown_sample_tag",
                     sf::Datagram({}, {sf::SampleV5(5, sf::Words(1, 4)), sf::CounterSampleV5(1, 3, {})})});
    seeds.push_back(
        {"sflow5_sampled_ipv4", sf::Datagram({}, {sf::FlowSampleV5({}, {sf::Record(3, sf::Words(1, 8))})})});
    seeds.push_back({"sflow5_no_samples", sf::Datagram({}, {})});

    const Bytes packetHeader =
        ByteBuilder().u32(1).bytes(sf::SampledHeader(1, 1518, std::nullopt, sf::Frame128())).build();
    const std::vector<Bytes> elements = {
        ByteBuilder().u32(1).bytes(sf::ExtendedSwitch(1, 2, 3, 4)).build(),
        ByteBuilder().u32(2).u32(1).ipv4(10, 0, 0, 254).u32(24).u32(16).build(),
        ByteBuilder().u32(3).u32(65000).u32(65001).u32(65002).u32(2).u32(65001).u32(65002).build(),
        ByteBuilder().u32(4).u32(5).text("alice").zeros(3).u32(3).text("bob").zeros(1).build(),
        ByteBuilder().u32(5).u32(2).u32(4).text("/url").build(),
        ByteBuilder().u32(9).build()};
    for (uint32_t version : {2u, 4u}) {
        const std::string v = std::to_string(version);
        seeds.push_back(
            {"sflow" + v + "_flow",
             sf::Datagram({.version = version}, {sf::FlowSampleV24({}, packetHeader, elements)})});
        std::vector<Bytes> counterSamples;
        for (uint32_t type = 1; type <= 8; ++type) {
            Bytes blocks = sf::GenericCounters(type * 100);
            if (type == 2)
                blocks = ByteBuilder().bytes(blocks).bytes(sf::Words(1, 13)).build();
            else if (type == 3)
                blocks = ByteBuilder().bytes(blocks).bytes(sf::Words(1, 18)).build();
            else if (type == 5)
                blocks = ByteBuilder().bytes(blocks).bytes(sf::Words(1, 20)).build();
            else if (type == 7)
                blocks = sf::Words(1, 7);
            counterSamples.push_back(sf::CounterSampleV24(type, 3, 30, type, {blocks}));
        }
        seeds.push_back({"sflow" + v + "_counters", sf::Datagram({.version = version}, counterSamples)});
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <directory>\n", argv[0]);
        return 2;
    }
    const std::filesystem::path dir = argv[1];
    std::filesystem::create_directories(dir);
    std::vector<Seed> seeds;
    NetFlowFixed(seeds);
    NetFlowV9(seeds);
    SFlow(seeds);
    // nfreplay's built-in samples: the throughput runs' datagrams.
    for (const std::string& name : tpnf::tools::SampleNames())
        seeds.push_back({"sample_" + name, tpnf::tools::MakeSample(name)});
    for (const Seed& seed : seeds) {
        std::ofstream out(dir / (seed.name + ".bin"), std::ios::binary);
        out.write(reinterpret_cast<const char*>(seed.bytes.data()),
                  static_cast<std::streamsize>(seed.bytes.size()));
        if (!out) {
            std::fprintf(stderr, "cannot write %s\n", seed.name.c_str());
            return 1;
        }
    }
    std::printf("%zu seeds written to %s\n", seeds.size(), dir.c_str());
    return 0;
}
