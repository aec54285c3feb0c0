// Flows of NetFlow v9 packets. Template ids differ between tests: the template store is process-wide.
#include <gtest/gtest.h>

#include "flows/FlowTestSupport.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/NetFlowV9Datagram.h"

using namespace tpnf::test;
using K = EFlowKey;

namespace {

// Export time 1700000000 s at uptime 100 s.
const V9Header kHeader{
    .count = 2, .sysUptime = 100000, .unixSecs = 1700000000, .packageSequence = 31, .sourceId = 7};

} // namespace

TEST(FlowMakerV9, EveryKeyOfAnIPv4Record) {
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader)
            .Template(300, {{8, 4},  {12, 4}, {15, 4}, {7, 2},  {11, 2}, {4, 1},  {5, 1},  {6, 1},
                            {2, 4},  {1, 8},  {34, 4}, {10, 2}, {14, 4}, {16, 4}, {17, 2}, {9, 1},
                            {13, 1}, {58, 2}, {56, 6}, {80, 6}, {22, 4}, {21, 4}, {60, 1}})
            .Data(300,
                  ByteBuilder()
                      .ipv4(10, 1, 0, 1)
                      .ipv4(10, 2, 0, 1)
                      .ipv4(10, 0, 0, 1)
                      .u16(40000)
                      .u16(443)
                      .u8(6)
                      .u8(0x20)
                      .u8(0x1B)
                      .u32(12)
                      .u64(0x100000000)
                      .u32(64)
                      .u16(3)
                      .u32(70000)
                      .u32(4200000000)
                      .u16(15169)
                      .u8(24)
                      .u8(16)
                      .u16(100)
                      .bytes({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E})
                      .bytes({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF})
                      .u32(40000)
                      .u32(99000)
                      .u8(4),
                  1);
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"NetFlow v9","sequence":31,"observation_domain":7,"flow_start":1699999940000,)"
              R"("flow_end":1699999999000,"ip_version":4,"src_addr":"10.1.0.1","dst_addr":"10.2.0.1",)"
              R"("next_hop":"10.0.0.1","src_port":40000,"dst_port":443,"proto":6,"tos":32,"tcp_flags":27,)"
              R"("packets":12,"bytes":4294967296,"sampling_rate":64,"in_if":3,"out_if":70000,)"
              R"("src_as":4200000000,"dst_as":15169,"src_mask":24,"dst_mask":16,"vlan":100,)"
              R"("src_mac":"00:1a:2b:3c:4d:5e","dst_mac":"aa:bb:cc:dd:ee:ff"})");
}

TEST(FlowMakerV9, IPv6Record) {
    ByteBuilder src, dst, hop;
    src.u32(0x20010db8).u32(0).u32(0).u32(0x10);
    dst.u32(0x20010db8).u32(1).u32(0).u32(0x20);
    hop.u32(0xfe800000).u32(0).u32(0).u32(1);
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader)
            .Template(301, {{27, 16}, {28, 16}, {62, 16}, {29, 1}, {30, 1}, {4, 1}, {2, 4}, {1, 4}})
            .Data(301, ByteBuilder().bytes(src).bytes(dst).bytes(hop).u8(48).u8(64).u8(58).u32(2).u32(208));
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    const CFlowRecord& flow = flows[0];
    EXPECT_EQ(flow.Get(K::IpVersion), 6);
    EXPECT_EQ(flow.Text(K::SrcAddr), "2001:db8::10");
    EXPECT_EQ(flow.Text(K::DstAddr), "2001:db8:0:1::20");
    EXPECT_EQ(flow.Text(K::NextHop), "fe80::1");
    EXPECT_EQ(flow.Get(K::SrcMask), 48);
    EXPECT_EQ(flow.Get(K::DstMask), 64);
    EXPECT_EQ(flow.Get(K::Proto), 58);
    EXPECT_EQ(flow.Get(K::Packets), 2);
    EXPECT_EQ(flow.Get(K::Bytes), 208);
}

TEST(FlowMakerV9, KeysTheTemplateLacksAreNull) {
    const CByteArray datagram = NetFlowV9Datagram(kHeader)
                                    .Template(302, {{8, 4}, {12, 4}, {1, 4}})
                                    .Data(302, ByteBuilder().ipv4(1, 2, 3, 4).ipv4(5, 6, 7, 8).u32(99));
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"NetFlow v9","sequence":31,"observation_domain":7,"flow_start":null,)"
              R"("flow_end":null,"ip_version":4,"src_addr":"1.2.3.4","dst_addr":"5.6.7.8",)"
              R"("next_hop":null,"src_port":null,"dst_port":null,"proto":null,"tos":null,"tcp_flags":null,)"
              R"("packets":null,"bytes":99,"sampling_rate":1,"in_if":null,"out_if":null,)"
              R"("src_as":null,"dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,)"
              R"("src_mac":null,"dst_mac":null})");
}

TEST(FlowMakerV9, OptionsRecordsAreNotFlows) {
    // softflowd's options: scope system (1), sampling interval and algorithm.
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader)
            .OptionsTemplate(303, {{1, 4}}, {{34, 4}, {35, 1}})
            .Template(304, {{8, 4}, {1, 4}})
            .Data(303, ByteBuilder().u32(0).u32(100).u8(2), 3)
            .Data(304, ByteBuilder().ipv4(10, 0, 0, 1).u32(40).ipv4(10, 0, 0, 2).u32(41));
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].Text(K::SrcAddr), "10.0.0.1");
    EXPECT_EQ(flows[1].Get(K::Bytes), 41);
    // The options record's interval does not reach the data records.
    EXPECT_EQ(flows[0].Get(K::SamplingRate), 1);
}

TEST(FlowMakerV9, IcmpTypeFieldGoesToTheDestinationPort) {
    const CByteArray datagram = NetFlowV9Datagram(kHeader)
                                    .Template(305, {{4, 1}, {32, 2}})
                                    .Data(305, ByteBuilder().u8(1).u16(0x0800), 1)
                                    .Template(306, {{4, 1}, {7, 2}, {11, 2}, {32, 2}})
                                    .Data(306, ByteBuilder().u8(1).u16(0).u16(0x0303).u16(0x0800), 3);
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].Get(K::SrcPort), 0);
    EXPECT_EQ(flows[0].Get(K::DstPort), 0x0800);
    // A destination port already carrying type and code is kept.
    EXPECT_EQ(flows[1].Get(K::DstPort), 0x0303);
}

TEST(FlowMakerV9, OutgoingCountersAndMacsStandInForMissingIncomingOnes) {
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader)
            .Template(307, {{24, 4}, {23, 4}, {81, 6}, {57, 6}, {59, 2}})
            .Data(307,
                  ByteBuilder().u32(5).u32(500).bytes({1, 2, 3, 4, 5, 6}).bytes({6, 5, 4, 3, 2, 1}).u16(20),
                  2)
            .Template(308, {{23, 4}, {1, 4}, {2, 4}, {24, 4}, {59, 2}, {58, 2}})
            .Data(308, ByteBuilder().u32(500).u32(700).u32(7).u32(5).u16(20).u16(30));
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].Get(K::Packets), 5);
    EXPECT_EQ(flows[0].Get(K::Bytes), 500);
    EXPECT_EQ(flows[0].Text(K::SrcMac), "01:02:03:04:05:06");
    EXPECT_EQ(flows[0].Text(K::DstMac), "06:05:04:03:02:01");
    EXPECT_EQ(flows[0].Get(K::Vlan), 20);
    // Both present: the incoming ones win, whatever their order.
    EXPECT_EQ(flows[1].Get(K::Bytes), 700);
    EXPECT_EQ(flows[1].Get(K::Packets), 7);
    EXPECT_EQ(flows[1].Get(K::Vlan), 30);
}

TEST(FlowMakerV9, ValuesOfUnusualLengthsAreReadOrLeftNull) {
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader)
            .Template(309, {{8, 3}, {12, 16}, {1, 3}, {2, 9}, {56, 4}, {60, 1}, {7, 0}})
            .Data(309,
                  ByteBuilder().bytes({1, 2, 3}).zeros(16).bytes({0x01, 0x00, 0x00}).zeros(9).zeros(4).u8(6));
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 1u);
    const CFlowRecord& flow = flows[0];
    EXPECT_TRUE(flow.IsNull(K::SrcAddr)); // an IPv4 field of 3 bytes
    EXPECT_TRUE(flow.IsNull(K::DstAddr)); // an IPv4 field of 16 bytes
    EXPECT_EQ(flow.Get(K::Bytes), 65536); // a 3-byte counter
    EXPECT_TRUE(flow.IsNull(K::Packets)); // wider than 64 bits
    EXPECT_TRUE(flow.IsNull(K::SrcMac));  // a MAC of 4 bytes
    EXPECT_EQ(flow.Get(K::IpVersion), 6); // as the record says
    EXPECT_TRUE(flow.IsNull(K::SrcPort)); // no bytes at all
}

TEST(FlowMakerV9, CountersBeyondTheSignedRangeKeepTheLargestValue) {
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader).Template(310, {{1, 8}}).Data(310, ByteBuilder().u64(0xFFFFFFFFFFFFFFFF));
    EXPECT_EQ(FlowsOf<CNetFlowPacketV9>(datagram)[0].Get(K::Bytes), INT64_MAX);
}

TEST(FlowMakerV9, SamplerIntervalInTheRecord) {
    const CByteArray datagram = NetFlowV9Datagram(kHeader)
                                    .Template(311, {{50, 4}, {1, 4}})
                                    .Data(311, ByteBuilder().u32(512).u32(1).u32(0).u32(2));
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].Get(K::SamplingRate), 512);
    EXPECT_EQ(flows[1].Get(K::SamplingRate), 1); // 0: not sampled
}

TEST(FlowMakerV9, NoRecordsNoFlows) {
    EXPECT_TRUE(FlowsOf<CNetFlowPacketV9>(NetFlowV9Datagram(kHeader).Template(312, {{1, 4}})).empty());
}

TEST(FlowMakerV9, ValuesOutOfTheirKeysRangeAreNoValues) {
    const CByteArray datagram =
        NetFlowV9Datagram(kHeader)
            .Template(313, {{7, 4}, {11, 4}, {4, 2}, {9, 1}, {58, 2}, {32, 4}})
            .Data(313, ByteBuilder().u32(70000).u32(443).u16(256).u8(129).u16(4096).u32(0x10000))
            .Template(314, {{6, 2}, {13, 1}, {59, 2}, {32, 4}})
            .Data(314, ByteBuilder().u16(0x01FF).u8(128).u16(4095).u32(0x0303), 3);
    const auto flows = FlowsOf<CNetFlowPacketV9>(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_TRUE(flows[0].IsNull(K::SrcPort));
    EXPECT_EQ(flows[0].Get(K::DstPort), 443);
    EXPECT_TRUE(flows[0].IsNull(K::Proto));
    EXPECT_TRUE(flows[0].IsNull(K::SrcMask));
    EXPECT_TRUE(flows[0].IsNull(K::Vlan));
    EXPECT_EQ(flows[1].Get(K::TcpFlags), 0x01FF); // up to 16 bits, as IPFIX carries them
    EXPECT_EQ(flows[1].Get(K::DstMask), 128);
    EXPECT_EQ(flows[1].Get(K::Vlan), 4095);
    EXPECT_EQ(flows[1].Get(K::DstPort), 0x0303);
}
