// Flows of sFlow packets: one per flow sample whose packet data can be read.
#include <gtest/gtest.h>

#include "flows/FlowTestSupport.h"
#include "sflow/SFlowPacket.h"
#include "support/FrameBuilder.h"
#include "support/NetFlowDatagram.h"
#include "support/SFlowDatagram.h"

using namespace tpnf::test;
using namespace tpnf::test::sflow;
using K = EFlowKey;

namespace {

constexpr int64_t kReceived = 1700000000500;

// A tagged Ethernet/IPv4/TCP frame start, padded to a whole number of words as agents send it.
Bytes TaggedTcpFrame(uint16_t vlan) {
    ByteBuilder b;
    TaggedEthernetHeader{.tcis = {vlan}, .type = 0x0800}.AppendTo(b);
    IPv4Header{.tos = 0x10, .protocol = 6, .src = IPv4(10, 0, 0, 1), .dst = IPv4(10, 0, 0, 2)}.AppendTo(b);
    TcpHeader{.srcPort = 40000, .dstPort = 443, .flags = 0x18}.AppendTo(b);
    b.u16(0); // 2 payload bytes: 60 in all
    return b.build();
}

Bytes UdpFrame() {
    ByteBuilder b;
    EthernetHeader{}.AppendTo(b);
    IPv4Header{.protocol = 17, .src = IPv4(10, 1, 1, 1), .dst = IPv4(10, 2, 2, 2)}.AppendTo(b);
    UdpHeader{.srcPort = 5353, .dstPort = 53}.AppendTo(b);
    b.u16(0);
    return b.build();
}

// Extended router (1002), version 5: IPv4 next hop, source and destination mask.
Bytes Router(uint32_t nextHop, uint32_t srcMask, uint32_t dstMask) {
    return ByteBuilder().u32(1).u32(nextHop).u32(srcMask).u32(dstMask).build();
}

// Extended gateway (1003), version 5: IPv4 next hop, AS numbers, one AS-sequence segment (or none), no
// communities, local preference.
Bytes Gateway(uint32_t as, uint32_t srcAS, uint32_t peerAS, const std::vector<uint32_t>& sequence) {
    ByteBuilder b;
    b.u32(1).ipv4(10, 9, 9, 9).u32(as).u32(srcAS).u32(peerAS);
    if (sequence.empty()) {
        b.u32(0);
    } else {
        b.u32(1).u32(2).u32(static_cast<uint32_t>(sequence.size()));
        for (uint32_t n : sequence)
            b.u32(n);
    }
    b.u32(0).u32(100);
    return b.build();
}

std::vector<CFlowRecord> Flows(const Bytes& datagram) {
    return FlowsOf<CSFlowPacket>(datagram, kReceived);
}

} // namespace

TEST(FlowMakerSFlow, EveryKeyOfAFlowSample) {
    const Bytes datagram =
        Datagram(HeaderFields{.sequence = 900},
                 {FlowSampleV5(FlowFields{.sourceId = 3, .samplingRate = 512, .input = 7, .output = 8},
                               {Record(1001, ExtendedSwitch(10, 0, 20, 0)),
                                Record(1, SampledHeader(1, 1522, 4, TaggedTcpFrame(42))),
                                Record(1002, Router(IPv4(10, 0, 0, 254), 24, 16)),
                                Record(1003, Gateway(65000, 65001, 65002, {65010, 65020}))})});
    const auto flows = Flows(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"sFlow v5","sequence":900,"observation_domain":3,"flow_start":1700000000500,)"
              R"("flow_end":1700000000500,"ip_version":4,"src_addr":"10.0.0.1","dst_addr":"10.0.0.2",)"
              R"("next_hop":"10.0.0.254","src_port":40000,"dst_port":443,"proto":6,"tos":16,"tcp_flags":24,)"
              R"("packets":1,"bytes":1522,"sampling_rate":512,"in_if":7,"out_if":8,"src_as":65001,)"
              R"("dst_as":65020,"src_mask":24,"dst_mask":16,"vlan":42,"src_mac":"02:00:00:00:00:01",)"
              R"("dst_mac":"00:1a:2b:3c:4d:5e"})");
}

TEST(FlowMakerSFlow, TheSwitchRecordGivesTheVlanOfAnUntaggedFrame) {
    const Bytes datagram =
        Datagram(HeaderFields{}, {FlowSampleV5(FlowFields{}, {Record(1, SampledHeader(1, 70, 4, UdpFrame())),
                                                              Record(1001, ExtendedSwitch(10, 0, 20, 0))})});
    const auto flows = Flows(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::Vlan), 10);
    EXPECT_EQ(flows[0].Get(K::SrcPort), 5353);
}

TEST(FlowMakerSFlow, OneFlowPerFlowSampleAndNoneForCounters) {
    const Bytes datagram =
        Datagram(HeaderFields{},
                 {FlowSampleV5(FlowFields{.sequence = 1}, {Record(1, SampledHeader(1, 70, 4, UdpFrame()))}),
                  CounterSampleV5(2, 3, {Record(1, GenericCounters(100))}),
                  FlowSampleV5(FlowFields{.sequence = 3, .sourceId = 5},
                               {Record(1, SampledHeader(1, 80, 4, UdpFrame()))}),
                  ExpandedCounterSampleV5(4, 0, 3, {Record(1, GenericCounters(200))})});
    CSFlowPacket packet;
    ASSERT_EQ(packet.Decode(datagram), 1);
    ASSERT_EQ(packet.GetSize(), 4);
    const auto flows = Flows(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].Get(K::Bytes), 70);
    EXPECT_EQ(flows[1].Get(K::Bytes), 80);
    EXPECT_EQ(flows[1].Get(K::ObservationDomain), 5);
}

TEST(FlowMakerSFlow, AFlowSampleWithoutReadablePacketDataGivesNone) {
    const Bytes onlySwitch =
        Datagram(HeaderFields{}, {FlowSampleV5(FlowFields{}, {Record(1001, ExtendedSwitch(1, 0, 2, 0))})});
    EXPECT_TRUE(Flows(onlySwitch).empty());
    const Bytes fddi = Datagram(
        HeaderFields{}, {FlowSampleV5(FlowFields{}, {Record(1, SampledHeader(4, 70, 4, UdpFrame()))})});
    EXPECT_TRUE(Flows(fddi).empty());
    const Bytes cut = Datagram(
        HeaderFields{}, {FlowSampleV5(FlowFields{}, {Record(1, SampledHeader(1, 70, 4, Bytes(12, 0)))})});
    EXPECT_TRUE(Flows(cut).empty());
}

TEST(FlowMakerSFlow, IPv6AndIcmpFromTheSampledHeader) {
    IPv6Bytes src{}, dst{};
    src[0] = 0xfe;
    src[1] = 0x80;
    src[15] = 1;
    dst[0] = 0xff;
    dst[1] = 0x02;
    dst[15] = 1;
    ByteBuilder frame;
    EthernetHeader{.type = 0x86DD}.AppendTo(frame);
    IPv6Header{.nextHeader = 58, .src = src, .dst = dst}.AppendTo(frame);
    IcmpHeader{.type = 135, .code = 0}.AppendTo(frame);
    frame.u16(0);
    ASSERT_EQ(frame.size() % 4, 0u);
    const auto flows = Flows(
        Datagram(HeaderFields{}, {FlowSampleV5(FlowFields{}, {Record(1, SampledHeader(1, 90, 4, frame))})}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::IpVersion), 6);
    EXPECT_EQ(flows[0].Text(K::SrcAddr), "fe80::1");
    EXPECT_EQ(flows[0].Text(K::DstAddr), "ff02::1");
    EXPECT_EQ(flows[0].Get(K::Proto), 58);
    EXPECT_EQ(flows[0].Get(K::SrcPort), 0);
    EXPECT_EQ(flows[0].Get(K::DstPort), 135 * 256);
}

TEST(FlowMakerSFlow, InterfacesOfCompactSamples) {
    const Bytes datagram =
        Datagram(HeaderFields{}, {FlowSampleV5(FlowFields{.input = 0x3FFFFFFF, .output = 0x80000003},
                                               {Record(1, SampledHeader(1, 70, 4, UdpFrame()))}),
                                  FlowSampleV5(FlowFields{.input = 0x40000005, .output = 0x00000009},
                                               {Record(1, SampledHeader(1, 70, 4, UdpFrame()))})});
    const auto flows = Flows(datagram);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_TRUE(flows[0].IsNull(K::InIf));  // unknown
    EXPECT_TRUE(flows[0].IsNull(K::OutIf)); // format 2: three interfaces
    EXPECT_TRUE(flows[1].IsNull(K::InIf));  // format 1: discarded
    EXPECT_EQ(flows[1].Get(K::OutIf), 9);
}

TEST(FlowMakerSFlow, ExpandedFlowSample) {
    const Bytes datagram =
        Datagram(HeaderFields{}, {ExpandedFlowSampleV5(ExpandedFlowFields{.sourceIdType = 1,
                                                                          .sourceIdIndex = 0x01000000,
                                                                          .samplingRate = 0,
                                                                          .inputFormat = 0,
                                                                          .inputPort = 0x40000000,
                                                                          .outputFormat = 1,
                                                                          .outputPort = 2},
                                                       {Record(1, SampledHeader(1, 70, 4, UdpFrame()))})});
    const auto flows = Flows(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::ObservationDomain), 0x01000000);
    EXPECT_EQ(flows[0].Get(K::SamplingRate), 1); // a rate of 0 is no rate
    EXPECT_EQ(flows[0].Get(K::InIf), 0x40000000);
    EXPECT_TRUE(flows[0].IsNull(K::OutIf));
}

TEST(FlowMakerSFlow, GatewayWithoutAPathNamesTheRoutersOwnAS) {
    const Bytes datagram =
        Datagram(HeaderFields{}, {FlowSampleV5(FlowFields{}, {Record(1, SampledHeader(1, 70, 4, UdpFrame())),
                                                              Record(1003, Gateway(65000, 1, 2, {}))})});
    const auto flows = Flows(datagram);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::SrcAs), 1);
    EXPECT_EQ(flows[0].Get(K::DstAs), 65000);
}

TEST(FlowMakerSFlow, SampledIPv6Record) {
    ByteBuilder body;
    body.u32(1280).u32(17).u32(0x20010db8).u32(0).u32(0).u32(1).u32(0x20010db8).u32(0).u32(0).u32(2);
    body.u32(1000).u32(2000).u32(0).u32(0xB8);
    const auto flows =
        Flows(Datagram(HeaderFields{.version = 5}, {FlowSampleV5(FlowFields{}, {Record(4, body)})}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"sFlow v5","sequence":1,"observation_domain":3,"flow_start":1700000000500,)"
              R"("flow_end":1700000000500,"ip_version":6,"src_addr":"2001:db8::1","dst_addr":"2001:db8::2",)"
              R"("next_hop":null,"src_port":1000,"dst_port":2000,"proto":17,"tos":184,"tcp_flags":0,)"
              R"("packets":1,"bytes":1280,"sampling_rate":512,"in_if":1,"out_if":2,"src_as":null,)"
              R"("dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,"src_mac":null,"dst_mac":null})");
}

// A packet holding a sampled IPv4 record, which decoding can only give with exact sFlow decoding.
TEST(FlowMakerSFlow, SampledIPv4Record) {
    class HeldPacket : public CSFlowPacket {
    public:
        HeldPacket() {
            m_header.m_version = 5;
            m_header.m_sequenceNumber = 4;
            CSFlowSample& sample = m_samples.emplace_back();
            sample.m_sampleType = 1;
            sample.m_sourceIdIndex = 2;
            sample.m_samplingRate = 100;
            sample.m_inputPortFormat = 0;
            sample.m_inputPort = 5;
            sample.m_outputPortFormat = 0;
            sample.m_outputPort = 6;
            CSFlowRecord& record = sample.m_records.emplace_back();
            record.m_flowFormat = 3;
            CSFlowIPv4Record& ip = record.m_ipv4Record;
            ip.m_length = 576;
            ip.m_protocol = 6;
            ip.m_srcIP = CNetFlowIPAddress(IPv4(172, 16, 0, 1));
            ip.m_dstIP = CNetFlowIPAddress(IPv4(172, 16, 0, 2));
            ip.m_srcPort = 22;
            ip.m_dstPort = 61000;
            ip.m_tcpFlags = 0x10;
            ip.m_tos = 0;
        }
    };
    HeldPacket packet;
    std::vector<CFlowRecord> flows;
    ASSERT_EQ(CFlowMaker().Append(packet, Context(kReceived), flows), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"sFlow v5","sequence":4,"observation_domain":2,"flow_start":1700000000500,)"
              R"("flow_end":1700000000500,"ip_version":4,"src_addr":"172.16.0.1","dst_addr":"172.16.0.2",)"
              R"("next_hop":null,"src_port":22,"dst_port":61000,"proto":6,"tos":0,"tcp_flags":16,)"
              R"("packets":1,"bytes":576,"sampling_rate":100,"in_if":5,"out_if":6,"src_as":null,)"
              R"("dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,"src_mac":null,"dst_mac":null})");
}

TEST(FlowMakerSFlow, Version4FlowSampleGivesOneFlow) {
    // Packet data type 1 (a header: protocol, frame length, header length, bytes; no stripped count),
    // then two extended elements (switch), which decoding does not keep.
    ByteBuilder packetData;
    packetData.u32(1).u32(1).u32(70).u32(static_cast<uint32_t>(UdpFrame().size())).bytes(UdpFrame());
    const Bytes element = ByteBuilder().u32(1).bytes(ExtendedSwitch(7, 0, 8, 0)).build();
    for (uint32_t version : {2u, 4u}) {
        const Bytes datagram = Datagram(
            HeaderFields{.version = version, .sequence = 12},
            {FlowSampleV24(FlowFields{.sourceId = 9, .samplingRate = 64, .input = 4, .output = 0x80000002},
                           packetData, {element, element}),
             CounterSampleV24(1, 2, 30, 1, {GenericCounters(1)})});
        const auto flows = Flows(datagram);
        ASSERT_EQ(flows.size(), 1u) << version;
        EXPECT_EQ(flows[0].Text(K::Protocol), version == 2 ? "sFlow v2" : "sFlow v4");
        EXPECT_EQ(flows[0].Get(K::Sequence), 12);
        EXPECT_EQ(flows[0].Get(K::ObservationDomain), 9);
        EXPECT_EQ(flows[0].Get(K::SamplingRate), 64);
        EXPECT_EQ(flows[0].Get(K::InIf), 4);
        EXPECT_TRUE(flows[0].IsNull(K::OutIf)); // two output interfaces
        EXPECT_EQ(flows[0].Get(K::Bytes), 70);
        EXPECT_EQ(flows[0].Text(K::DstAddr), "10.2.2.2");
        EXPECT_TRUE(flows[0].IsNull(K::Vlan));
    }
}

TEST(FlowMakerSFlow, OtherVersionsGiveNone) {
    const Bytes datagram = Datagram(HeaderFields{.version = 3}, {});
    EXPECT_TRUE(Flows(datagram).empty());
}

TEST(FlowMakerSFlow, RecordValuesOutOfTheirKeysRangeAreNoValues) {
    ByteBuilder body;
    body.u32(1280).u32(300).u32(0x20010db8).u32(0).u32(0).u32(1).u32(0x20010db8).u32(0).u32(0).u32(2);
    body.u32(70000).u32(65535).u32(0x10000).u32(256);
    const auto flows = Flows(
        Datagram(HeaderFields{},
                 {FlowSampleV5(FlowFields{}, {Record(4, body), Record(1001, ExtendedSwitch(4096, 0, 0, 0)),
                                              Record(1002, Router(0, 33, 129))})}));
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_TRUE(flows[0].IsNull(K::Proto));
    EXPECT_TRUE(flows[0].IsNull(K::SrcPort));
    EXPECT_EQ(flows[0].Get(K::DstPort), 65535);
    EXPECT_TRUE(flows[0].IsNull(K::TcpFlags));
    EXPECT_TRUE(flows[0].IsNull(K::Tos));
    EXPECT_TRUE(flows[0].IsNull(K::Vlan));
    EXPECT_EQ(flows[0].Get(K::SrcMask), 33);
    EXPECT_TRUE(flows[0].IsNull(K::DstMask));
}
