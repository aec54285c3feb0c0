// Flows of the fixed-format NetFlow packets (v1, v5, v7, v8).
#include <gtest/gtest.h>

#include "flows/FlowTestSupport.h"
#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;
using K = EFlowKey;

namespace {

// Export time 1700000000.250 s at uptime 100 s: uptime u ms is the time 1699999900250 + u.
constexpr uint32_t kUptime = 100000;
constexpr uint32_t kSecs = 1700000000;
constexpr uint32_t kNsecs = 250000000;

const CommonRecordBlock kCommon{.srcAddr = IPv4(10, 0, 0, 1),
                                .dstAddr = IPv4(10, 0, 0, 2),
                                .nextHop = IPv4(10, 0, 0, 254),
                                .input = 3,
                                .output = 4,
                                .dPkts = 10,
                                .dOctets = 5000,
                                .first = 40000,
                                .last = 99000,
                                .srcPort = 40000,
                                .dstPort = 443};

const V5Record kV5Record{.common = kCommon,
                         .tcpFlags = 0x1B,
                         .prot = 6,
                         .tos = 0x10,
                         .srcAS = 64512,
                         .dstAS = 15169,
                         .srcMask = 24,
                         .dstMask = 16};

} // namespace

TEST(FlowMakerV5, EveryKeyOfARecord) {
    const CByteArray datagram = Datagram(V5Header{.count = 1,
                                                  .sysUptime = kUptime,
                                                  .unixSecs = kSecs,
                                                  .unixNsecs = kNsecs,
                                                  .flowSequence = 77,
                                                  .engineType = 1,
                                                  .engineId = 2,
                                                  .samplingInterval = 0x4000 | 100},
                                         kV5Record);
    const auto flows = FlowsOf<CNetFlowPacketV5>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"NetFlow v5","sequence":77,"observation_domain":258,"flow_start":1699999940250,)"
              R"("flow_end":1699999999250,"ip_version":4,"src_addr":"10.0.0.1","dst_addr":"10.0.0.2",)"
              R"("next_hop":"10.0.0.254","src_port":40000,"dst_port":443,"proto":6,"tos":16,"tcp_flags":27,)"
              R"("packets":10,"bytes":5000,"sampling_rate":100,"in_if":3,"out_if":4,"src_as":64512,)"
              R"("dst_as":15169,"src_mask":24,"dst_mask":16,"vlan":null,"src_mac":null,"dst_mac":null})");
}

TEST(FlowMakerV5, OneFlowPerRecordInOrder) {
    ByteBuilder b;
    V5Header{.count = 3, .sysUptime = kUptime, .unixSecs = kSecs}.AppendTo(b);
    for (uint32_t i = 0; i < 3; ++i) {
        V5Record record = kV5Record;
        record.common.srcPort = static_cast<uint16_t>(1000 + i);
        record.AppendTo(b);
    }
    const auto flows = FlowsOf<CNetFlowPacketV5>(b);
    ASSERT_EQ(flows.size(), 3u);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(flows[i].Get(K::SrcPort), int64_t(1000 + i));
}

TEST(FlowMakerV5, SamplingRateNeedsTheDatagramAndAnInterval) {
    const CByteArray sampled = Datagram(V5Header{.count = 1, .samplingInterval = 0x4000 | 100}, kV5Record);
    EXPECT_EQ(FlowsOf<CNetFlowPacketV5>(sampled, 0, false)[0].Get(K::SamplingRate), 1);
    const CByteArray modeOnly = Datagram(V5Header{.count = 1, .samplingInterval = 0x8000}, kV5Record);
    EXPECT_EQ(FlowsOf<CNetFlowPacketV5>(modeOnly)[0].Get(K::SamplingRate), 1);
    const CByteArray plain = Datagram(V5Header{.count = 1, .samplingInterval = 1000}, kV5Record);
    EXPECT_EQ(FlowsOf<CNetFlowPacketV5>(plain)[0].Get(K::SamplingRate), 1000);
}

TEST(FlowMakerV5, TimesAcrossAnUptimeWrap) {
    V5Record record = kV5Record;
    record.common.first = 0xFFFFF000; // 4096 ms before the counter wrapped
    record.common.last = 500;
    const CByteArray datagram = Datagram(V5Header{.count = 1, .sysUptime = 1000, .unixSecs = kSecs}, record);
    const auto flows = FlowsOf<CNetFlowPacketV5>(datagram);
    EXPECT_EQ(flows[0].Get(K::FlowStart), 1700000000000 - 5096);
    EXPECT_EQ(flows[0].Get(K::FlowEnd), 1700000000000 - 500);
}

TEST(FlowMakerV5, AFlowSwitchedAfterTheExportUptimeEndsAfterTheExportTime) {
    V5Record record = kV5Record;
    record.common.first = kUptime + 10;
    record.common.last = kUptime + 20;
    const CByteArray datagram =
        Datagram(V5Header{.count = 1, .sysUptime = kUptime, .unixSecs = kSecs}, record);
    const auto flows = FlowsOf<CNetFlowPacketV5>(datagram);
    EXPECT_EQ(flows[0].Get(K::FlowStart), 1700000000010);
    EXPECT_EQ(flows[0].Get(K::FlowEnd), 1700000000020);
}

TEST(FlowMakerV5, SequenceIsUnsigned) {
    const CByteArray datagram = Datagram(V5Header{.count = 1, .flowSequence = 0xFFFFFFFE}, kV5Record);
    EXPECT_EQ(FlowsOf<CNetFlowPacketV5>(datagram)[0].Get(K::Sequence), 4294967294);
}

TEST(FlowMakerV5, AnEmptyPacketHasNoFlows) {
    EXPECT_TRUE(FlowsOf<CNetFlowPacketV5>(Datagram(V5Header{.count = 0})).empty());
}

TEST(FlowMakerV1, EveryKeyOfARecord) {
    const CByteArray datagram =
        Datagram(V1Header{.count = 1, .sysUptime = kUptime, .unixSecs = kSecs, .unixNsecs = kNsecs},
                 V1Record{.common = kCommon, .prot = 17, .tos = 4, .tcpFlags = 0});
    const auto flows = FlowsOf<CNetFlowPacketV1>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(
        Json(flows[0]),
        R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
        R"("protocol":"NetFlow v1","sequence":null,"observation_domain":null,"flow_start":1699999940250,)"
        R"("flow_end":1699999999250,"ip_version":4,"src_addr":"10.0.0.1","dst_addr":"10.0.0.2",)"
        R"("next_hop":"10.0.0.254","src_port":40000,"dst_port":443,"proto":17,"tos":4,"tcp_flags":0,)"
        R"("packets":10,"bytes":5000,"sampling_rate":1,"in_if":3,"out_if":4,"src_as":null,)"
        R"("dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,"src_mac":null,"dst_mac":null})");
}

TEST(FlowMakerV7, EveryKeyOfARecord) {
    const CByteArray datagram = Datagram(
        V7Header{.count = 1, .sysUptime = kUptime, .unixSecs = kSecs, .unixNsecs = kNsecs, .flowSequence = 9},
        V7Record{.common = kCommon,
                 .tcpFlags = 0x02,
                 .prot = 6,
                 .tos = 0,
                 .srcAS = 1,
                 .dstAS = 2,
                 .srcMask = 8,
                 .dstMask = 32,
                 .flags = 0x0102,
                 .routerSC = IPv4(10, 1, 2, 3)});
    const auto flows = FlowsOf<CNetFlowPacketV7>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"NetFlow v7","sequence":9,"observation_domain":null,"flow_start":1699999940250,)"
              R"("flow_end":1699999999250,"ip_version":4,"src_addr":"10.0.0.1","dst_addr":"10.0.0.2",)"
              R"("next_hop":"10.0.0.254","src_port":40000,"dst_port":443,"proto":6,"tos":0,"tcp_flags":2,)"
              R"("packets":10,"bytes":5000,"sampling_rate":1,"in_if":3,"out_if":4,"src_as":1,)"
              R"("dst_as":2,"src_mask":8,"dst_mask":32,"vlan":null,"src_mac":null,"dst_mac":null})");
}

namespace {

const V8Counters kCounters{.flows = 7, .packets = 70, .octets = 7000, .first = 90000, .last = 95000};

V8Header V8(uint8_t aggregation, uint16_t count) {
    return V8Header{.count = count,
                    .sysUptime = kUptime,
                    .unixSecs = kSecs,
                    .unixNsecs = kNsecs,
                    .flowSequence = 5,
                    .engineType = 0,
                    .engineId = 3,
                    .aggregation = aggregation};
}

// The JSON line of a v8 flow: the keys every scheme shares, with the scheme's own given in key order.
std::string V8Json(const std::string& addresses, const std::string& ports, const std::string& tail) {
    return R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
           R"("protocol":"NetFlow v8","sequence":5,"observation_domain":3,"flow_start":1699999990250,)"
           R"("flow_end":1699999995250,"ip_version":4,)" +
           addresses + "," + ports +
           R"(,"tos":null,"tcp_flags":null,"packets":70,"bytes":7000,)"
           R"("sampling_rate":1,)" +
           tail + R"(,"vlan":null,"src_mac":null,"dst_mac":null})";
}

} // namespace

TEST(FlowMakerV8, RouterAS) {
    const auto flows = FlowsOf<CNetFlowPacketV8>(Datagram(
        V8(1, 1),
        V8RouterASRecord{.counters = kCounters, .srcAS = 100, .dstAS = 200, .input = 5, .output = 6}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              V8Json(R"("src_addr":null,"dst_addr":null,"next_hop":null)",
                     R"("src_port":null,"dst_port":null,"proto":null)",
                     R"("in_if":5,"out_if":6,"src_as":100,"dst_as":200,"src_mask":null,"dst_mask":null)"));
}

TEST(FlowMakerV8, RouterProtoPort) {
    const auto flows = FlowsOf<CNetFlowPacketV8>(
        Datagram(V8(2, 1),
                 V8RouterProtoPortRecord{.counters = kCounters, .prot = 17, .srcPort = 53, .dstPort = 3333}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(
        Json(flows[0]),
        V8Json(R"("src_addr":null,"dst_addr":null,"next_hop":null)",
               R"("src_port":53,"dst_port":3333,"proto":17)",
               R"("in_if":null,"out_if":null,"src_as":null,"dst_as":null,"src_mask":null,"dst_mask":null)"));
}

TEST(FlowMakerV8, RouterSourcePrefix) {
    const auto flows =
        FlowsOf<CNetFlowPacketV8>(Datagram(V8(3, 1), V8RouterOnePrefixRecord{.counters = kCounters,
                                                                             .prefix = IPv4(10, 0, 0, 0),
                                                                             .mask = 8,
                                                                             .as = 65001,
                                                                             .interfaceIndex = 9}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              V8Json(R"("src_addr":"10.0.0.0","dst_addr":null,"next_hop":null)",
                     R"("src_port":null,"dst_port":null,"proto":null)",
                     R"("in_if":9,"out_if":null,"src_as":65001,"dst_as":null,"src_mask":8,"dst_mask":null)"));
}

TEST(FlowMakerV8, RouterDestinationPrefix) {
    const auto flows =
        FlowsOf<CNetFlowPacketV8>(Datagram(V8(4, 1), V8RouterOnePrefixRecord{.counters = kCounters,
                                                                             .prefix = IPv4(172, 16, 0, 0),
                                                                             .mask = 12,
                                                                             .as = 65002,
                                                                             .interfaceIndex = 10}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(
        Json(flows[0]),
        V8Json(R"("src_addr":null,"dst_addr":"172.16.0.0","next_hop":null)",
               R"("src_port":null,"dst_port":null,"proto":null)",
               R"("in_if":null,"out_if":10,"src_as":null,"dst_as":65002,"src_mask":null,"dst_mask":12)"));
}

TEST(FlowMakerV8, RouterPrefix) {
    const auto flows =
        FlowsOf<CNetFlowPacketV8>(Datagram(V8(5, 1), V8RouterPrefixRecord{.counters = kCounters,
                                                                          .srcPrefix = IPv4(10, 1, 0, 0),
                                                                          .dstPrefix = IPv4(10, 2, 0, 0),
                                                                          .dstMask = 16,
                                                                          .srcMask = 15,
                                                                          .srcAS = 1,
                                                                          .dstAS = 2,
                                                                          .input = 3,
                                                                          .output = 4}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              V8Json(R"("src_addr":"10.1.0.0","dst_addr":"10.2.0.0","next_hop":null)",
                     R"("src_port":null,"dst_port":null,"proto":null)",
                     R"("in_if":3,"out_if":4,"src_as":1,"dst_as":2,"src_mask":15,"dst_mask":16)"));
}

TEST(FlowMakerV8, SchemesWithoutRecordsGiveNoFlows) {
    for (uint8_t scheme : {0, 6, 9, 14, 255}) {
        ByteBuilder b;
        V8(scheme, 2).AppendTo(b);
        b.zeros(2 * 40);
        EXPECT_TRUE(FlowsOf<CNetFlowPacketV8>(b).empty()) << int(scheme);
    }
}

TEST(FlowMakerV8, SeveralPacketsOfDifferentSchemesWithOneMaker) {
    const CByteArray as = Datagram(V8(1, 2), V8RouterASRecord{.counters = kCounters, .srcAS = 1},
                                   V8RouterASRecord{.counters = kCounters, .srcAS = 2});
    const CByteArray prefix = Datagram(V8(5, 1), V8RouterPrefixRecord{.counters = kCounters, .srcAS = 3});
    CNetFlowPacketV8 first, second, third;
    ASSERT_EQ(first.Decode(as), 1);
    ASSERT_EQ(second.Decode(prefix), 1);
    ASSERT_EQ(third.Decode(as), 1);
    CFlowMaker maker;
    std::vector<CFlowRecord> flows;
    EXPECT_EQ(maker.Append(first, Context(0), flows), 2u);
    EXPECT_EQ(maker.Append(second, Context(0), flows), 1u);
    EXPECT_EQ(maker.Append(third, Context(0), flows), 2u);
    ASSERT_EQ(flows.size(), 5u);
    const int64_t expected[] = {1, 2, 3, 1, 2};
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(flows[i].Get(K::SrcAs), expected[i]);
}

TEST(FlowContext, ForPacketReadsTheSenderTextAndPort) {
    CNetFlowPacketV5 packet;
    packet.SetSenderInfo(L"198.51.100.7", 9995);
    CFlowContext context = CFlowContext::ForPacket(packet, 42);
    EXPECT_EQ(context.timeReceived, 42);
    EXPECT_EQ(context.exporter.length, 4);
    EXPECT_EQ(context.exporter.port, 9995);
    EXPECT_EQ(CFlowAddress::FromBytes(context.exporter.bytes.data(), 4), CFlowAddress::IPv4(0xC6336407));

    packet.SetSenderInfo(L"2001:db8::7", 2055);
    context = CFlowContext::ForPacket(packet, 0);
    EXPECT_EQ(context.exporter.length, 16);
    EXPECT_EQ(context.exporter.bytes[15], 7);

    // An IPv4-mapped sender is its IPv4 address, as the socket hands exporters to the decoders.
    packet.SetSenderInfo(L"::ffff:192.0.2.9", 1);
    context = CFlowContext::ForPacket(packet, 0);
    EXPECT_EQ(context.exporter.length, 4);
    EXPECT_EQ(CFlowAddress::FromBytes(context.exporter.bytes.data(), 4), CFlowAddress::IPv4(0xC0000209));

    // Without a sender (a packet decoded by hand) the exporter keys are null.
    CNetFlowPacketV5 unsent;
    context = CFlowContext::ForPacket(unsent, 0);
    EXPECT_EQ(context.exporter.length, 0);
    ByteBuilder b;
    V5Header{.count = 1}.AppendTo(b);
    kV5Record.AppendTo(b);
    ASSERT_EQ(unsent.Decode(b), 1);
    std::vector<CFlowRecord> flows;
    CFlowMaker().Append(unsent, context, flows);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_TRUE(flows[0].IsNull(K::Exporter));
    EXPECT_TRUE(flows[0].IsNull(K::ExporterPort));
}

TEST(FlowMaker, AppendsWithoutClearing) {
    const CByteArray datagram = Datagram(V5Header{.count = 1}, kV5Record);
    CNetFlowPacketV5 packet;
    ASSERT_EQ(packet.Decode(datagram), 1);
    std::vector<CFlowRecord> flows(2);
    EXPECT_EQ(CFlowMaker().Append(packet, Context(0), flows), 1u);
    ASSERT_EQ(flows.size(), 3u);
    EXPECT_EQ(flows[0], CFlowRecord());
    EXPECT_EQ(flows[2].Get(K::Bytes), 5000);
}

TEST(FlowMakerV5, MasksBeyond128AreNoMasks) {
    V5Record record = kV5Record;
    record.srcMask = 200;
    record.dstMask = 32;
    const auto flows = FlowsOf<CNetFlowPacketV5>(Datagram(V5Header{.count = 1}, record));
    EXPECT_TRUE(flows[0].IsNull(K::SrcMask));
    EXPECT_EQ(flows[0].Get(K::DstMask), 32);
}
