// Flows of IPFIX messages. Each test starts from an empty template store; messages come from the
// exporter 192.0.2.1:2055 unless a test says otherwise.
#include <gtest/gtest.h>

#include <vector>

#include "flows/FlowTestSupport.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/DecodeContext.h"
#include "support/IPFIXDatagram.h"

using namespace tpnf::test;
using K = EFlowKey;

namespace {

const CExporterAddress kExporter = ExporterV4(192, 0, 2, 1, 2055);
// Export time 1700000000 s, sequence 31, observation domain 7.
const IPFIXHeaderValues kHeader{.exportTime = 1700000000, .sequence = 31, .domain = 7};
constexpr uint32_t kReverse = 29305; // RFC 5103 reverse elements

class FlowMakerIPFIX : public EmptyTemplateStore {
protected:
    // Decodes the message as a session would for that exporter and makes its flows with this test's
    // maker, which remembers what earlier messages announced.
    std::vector<CFlowRecord> Flows(const CByteArray& message, const CExporterAddress& exporter = kExporter) {
        CIPFIXPacket packet;
        packet.SetDecodeContext(GlobalScope(exporter));
        EXPECT_EQ(packet.Decode(message), 1);
        CFlowContext context = Context(1700000000500);
        context.exporter = exporter;
        std::vector<CFlowRecord> flows;
        const size_t made = m_maker.Append(packet, context, flows);
        EXPECT_EQ(made, flows.size());
        return flows;
    }

    CFlowMaker m_maker;
};

// The NTP timestamp of a time in seconds since 1970 plus a binary fraction of a second.
uint64_t Ntp(uint32_t secondsSince1970, uint32_t fraction) {
    return (uint64_t(secondsSince1970 + 2208988800u) << 32) | fraction;
}

} // namespace

TEST_F(FlowMakerIPFIX, EveryKeyOfAnIPv4Record) {
    const CByteArray message =
        IPFIXDatagram(kHeader)
            .Template(256, {{8, 4},  {12, 4}, {15, 4}, {7, 2},  {11, 2},  {4, 1},   {5, 1},  {6, 2},
                            {2, 8},  {1, 8},  {34, 4}, {10, 4}, {14, 4},  {16, 4},  {17, 4}, {9, 1},
                            {13, 1}, {58, 2}, {56, 6}, {80, 6}, {152, 8}, {153, 8}, {60, 1}})
            .Data(256, ByteBuilder()
                           .ipv4(10, 1, 0, 1)
                           .ipv4(10, 2, 0, 1)
                           .ipv4(10, 0, 0, 1)
                           .u16(40000)
                           .u16(443)
                           .u8(6)
                           .u8(0x20)
                           .u16(0x011B)
                           .u64(12)
                           .u64(0x100000000)
                           .u32(64)
                           .u32(3)
                           .u32(70000)
                           .u32(4200000000)
                           .u32(15169)
                           .u8(24)
                           .u8(16)
                           .u16(100)
                           .bytes({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E})
                           .bytes({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF})
                           .u64(1699999940000)
                           .u64(1699999999000)
                           .u8(4));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"IPFIX","sequence":31,"observation_domain":7,"flow_start":1699999940000,)"
              R"("flow_end":1699999999000,"ip_version":4,"src_addr":"10.1.0.1","dst_addr":"10.2.0.1",)"
              R"("next_hop":"10.0.0.1","src_port":40000,"dst_port":443,"proto":6,"tos":32,"tcp_flags":283,)"
              R"("packets":12,"bytes":4294967296,"sampling_rate":64,"in_if":3,"out_if":70000,)"
              R"("src_as":4200000000,"dst_as":15169,"src_mask":24,"dst_mask":16,"vlan":100,)"
              R"("src_mac":"00:1a:2b:3c:4d:5e","dst_mac":"aa:bb:cc:dd:ee:ff"})");
}

TEST_F(FlowMakerIPFIX, KeysTheTemplateLacksAreNull) {
    const CByteArray message = IPFIXDatagram({.exportTime = 1700000000, .sequence = 4000000000, .domain = 0})
                                   .Template(256, {{8, 4}, {12, 4}, {1, 4}})
                                   .Data(256, ByteBuilder().ipv4(1, 2, 3, 4).ipv4(5, 6, 7, 8).u32(99));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(Json(flows[0]),
              R"({"time_received":1700000000500,"exporter":"192.0.2.1","exporter_port":2055,)"
              R"("protocol":"IPFIX","sequence":4000000000,"observation_domain":0,"flow_start":null,)"
              R"("flow_end":null,"ip_version":4,"src_addr":"1.2.3.4","dst_addr":"5.6.7.8",)"
              R"("next_hop":null,"src_port":null,"dst_port":null,"proto":null,"tos":null,"tcp_flags":null,)"
              R"("packets":null,"bytes":99,"sampling_rate":1,"in_if":null,"out_if":null,)"
              R"("src_as":null,"dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,)"
              R"("src_mac":null,"dst_mac":null})");
}

TEST_F(FlowMakerIPFIX, IPv6RecordWithIcmpTypeAndCode) {
    ByteBuilder src, dst;
    src.u32(0x20010db8).u32(0).u32(0).u32(0x10);
    dst.u32(0x20010db8).u32(1).u32(0).u32(0x20);
    const CByteArray message =
        IPFIXDatagram(kHeader)
            .Template(256, {{27, 16}, {28, 16}, {29, 1}, {30, 1}, {4, 1}, {139, 2}, {2, 4}, {1, 4}})
            .Data(256, ByteBuilder().bytes(src).bytes(dst).u8(48).u8(64).u8(58).u16(0x8000).u32(2).u32(208));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    const CFlowRecord& flow = flows[0];
    EXPECT_EQ(flow.Get(K::IpVersion), 6);
    EXPECT_EQ(flow.Text(K::SrcAddr), "2001:db8::10");
    EXPECT_EQ(flow.Text(K::DstAddr), "2001:db8:0:1::20");
    EXPECT_EQ(flow.Get(K::SrcMask), 48);
    EXPECT_EQ(flow.Get(K::DstMask), 64);
    EXPECT_EQ(flow.Get(K::Proto), 58);
    EXPECT_EQ(flow.Get(K::SrcPort), 0);
    EXPECT_EQ(flow.Get(K::DstPort), 0x8000); // echo request, code 0
    EXPECT_EQ(flow.Get(K::Packets), 2);
    EXPECT_EQ(flow.Get(K::Bytes), 208);
}

TEST_F(FlowMakerIPFIX, IcmpTypeAndCodeInSeparateElements) {
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{4, 1}, {176, 1}, {177, 1}})
                                   .Data(256, ByteBuilder().u8(1).u8(3).u8(1))
                                   .Template(257, {{4, 1}, {178, 1}})
                                   .Data(257, ByteBuilder().u8(58).u8(135))
                                   .Template(258, {{4, 1}, {177, 1}})
                                   .Data(258, ByteBuilder().u8(1).u8(4));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 3u);
    EXPECT_EQ(flows[0].Get(K::DstPort), 0x0301);
    EXPECT_EQ(flows[0].Get(K::SrcPort), 0);
    EXPECT_EQ(flows[1].Get(K::DstPort), 135 * 256); // no code element: code 0
    EXPECT_TRUE(flows[2].IsNull(K::DstPort));       // a code without a type is no ICMP key
}

TEST_F(FlowMakerIPFIX, TimesInEveryAbsoluteUnit) {
    const CByteArray message =
        IPFIXDatagram(kHeader)
            .Template(256, {{150, 4}, {151, 4}})
            .Data(256, ByteBuilder().u32(1699999990).u32(1699999995))
            .Template(257, {{152, 8}, {153, 8}})
            .Data(257, ByteBuilder().u64(1699999990123).u64(1699999995456))
            .Template(258, {{154, 8}, {155, 8}})
            .Data(258, ByteBuilder().u64(Ntp(1699999990, 0x40000000)).u64(Ntp(1699999995, 0xFFFFFFFF)))
            .Template(259, {{156, 8}, {157, 8}})
            .Data(259, ByteBuilder().u64(Ntp(1699999990, 0x80000000)).u64(Ntp(1699999995, 0x00418938)))
            .Template(260, {{158, 4}, {159, 4}})
            .Data(260, ByteBuilder().u32(2500000).u32(1));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 5u);
    const int64_t expected[5][2] = {{1699999990000, 1699999995000},
                                    {1699999990123, 1699999995456},
                                    {1699999990250, 1699999995999},  // fractions of 1/4 and nearly 1
                                    {1699999990500, 1699999995001},  // 0x00418938: just above 1 ms
                                    {1699999997500, 1699999999999}}; // 2.5 s and 1 us before the export
    for (size_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(flows[i].Get(K::FlowStart), expected[i][0]);
        EXPECT_EQ(flows[i].Get(K::FlowEnd), expected[i][1]);
    }
}

TEST_F(FlowMakerIPFIX, NtpSecondsWithTheTopBitClearAreInTheEraFrom2036) {
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{156, 8}, {157, 8}})
                                   .Data(256, ByteBuilder().u64(uint64_t(1) << 32).u64(0));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    // 2^32 + 1 - 2208988800 s: 7 February 2036 06:28:17 UTC.
    EXPECT_EQ(flows[0].Get(K::FlowStart), 2085978497000);
    EXPECT_TRUE(flows[0].IsNull(K::FlowEnd)); // all zeros: no time
}

TEST_F(FlowMakerIPFIX, TheFinestTimeElementWinsWhereverItStands) {
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{152, 8}, {150, 4}, {151, 4}, {153, 8}, {22, 4}, {160, 8}})
                                   .Data(256, ByteBuilder()
                                                  .u64(1699999990123)
                                                  .u32(1699999990)
                                                  .u32(1699999995)
                                                  .u64(1699999995456)
                                                  .u32(1000)
                                                  .u64(1699000000000));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::FlowStart), 1699999990123);
    EXPECT_EQ(flows[0].Get(K::FlowEnd), 1699999995456);
}

TEST_F(FlowMakerIPFIX, UptimesWithTheInitTimeInTheRecord) {
    // The init time after the uptimes: it is applied once the record is read.
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{22, 4}, {21, 4}, {160, 8}})
                                   .Data(256, ByteBuilder().u32(5000000).u32(9999000).u64(1699990000000));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::FlowStart), 1699995000000);
    EXPECT_EQ(flows[0].Get(K::FlowEnd), 1699999999000);
}

TEST_F(FlowMakerIPFIX, UptimesWithoutAnInitTimeAreNoTimes) {
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{22, 4}, {21, 4}, {1, 4}})
                                   .Data(256, ByteBuilder().u32(5000000).u32(9999000).u32(40));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_TRUE(flows[0].IsNull(K::FlowStart));
    EXPECT_TRUE(flows[0].IsNull(K::FlowEnd));
    EXPECT_EQ(flows[0].Get(K::Bytes), 40);
}

TEST_F(FlowMakerIPFIX, InitTimeOfAnOptionsRecordServesLaterRecordsOfItsExporterAndDomain) {
    // softflowd's layout: metering process scope, init time, sampling; then flows with uptimes.
    const CByteArray announcement = IPFIXDatagram(kHeader)
                                        .Template(1024, {{22, 4}, {21, 4}, {1, 4}})
                                        .Data(1024, ByteBuilder().u32(5000000).u32(9999000).u32(1))
                                        .OptionsTemplate(256, {{143, 4}}, {{160, 8}, {305, 4}, {306, 4}})
                                        .Data(256, ByteBuilder().u32(99).u64(1699990000000).u32(1).u32(99))
                                        .Data(1024, ByteBuilder().u32(5000000).u32(9999000).u32(2));
    const auto first = Flows(announcement);
    ASSERT_EQ(first.size(), 2u);
    // Records before the options record have no init time yet.
    EXPECT_TRUE(first[0].IsNull(K::FlowStart));
    EXPECT_EQ(first[1].Get(K::FlowStart), 1699995000000);
    EXPECT_EQ(first[1].Get(K::FlowEnd), 1699999999000);
    // The options record's sampling does not reach the flows.
    EXPECT_EQ(first[1].Get(K::SamplingRate), 1);

    const CByteArray data = IPFIXDatagram({.exportTime = 1700000100, .sequence = 32, .domain = 7})
                                .Data(1024, ByteBuilder().u32(5100000).u32(5200000).u32(3));
    const auto later = Flows(data);
    ASSERT_EQ(later.size(), 1u);
    EXPECT_EQ(later[0].Get(K::FlowStart), 1699995100000);
    EXPECT_EQ(later[0].Get(K::FlowEnd), 1699995200000);

    // Another domain of the same exporter, and the same domain of another exporter, know no init time.
    const auto template1024 = [](uint32_t domain) {
        return IPFIXDatagram({.exportTime = 1700000100, .sequence = 1, .domain = domain})
            .Template(1024, {{22, 4}, {21, 4}, {1, 4}})
            .Data(1024, ByteBuilder().u32(5100000).u32(5200000).u32(4))
            .build();
    };
    const auto otherDomain = Flows(template1024(8));
    ASSERT_EQ(otherDomain.size(), 1u);
    EXPECT_TRUE(otherDomain[0].IsNull(K::FlowStart));
    const auto otherExporter = Flows(template1024(7), ExporterV4(192, 0, 2, 2, 2055));
    ASSERT_EQ(otherExporter.size(), 1u);
    EXPECT_TRUE(otherExporter[0].IsNull(K::FlowStart));
}

TEST_F(FlowMakerIPFIX, UptimesThatWrappedGiveTheTimeNearestTheExport) {
    // Up for 2^32 + 1000 ms at the export: the uptime counter shows 1000.
    const int64_t initTime = 1700000000000 - 4294968296;
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{160, 8}, {22, 4}, {21, 4}})
                                   .Data(256, ByteBuilder().u64(initTime).u32(4294967000).u32(500));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Get(K::FlowStart), 1699999998704); // before the counter wrapped
    EXPECT_EQ(flows[0].Get(K::FlowEnd), 1699999999500);   // after it
}

TEST_F(FlowMakerIPFIX, OptionsRecordsAreNotFlows) {
    const CByteArray message =
        IPFIXDatagram(kHeader)
            .OptionsTemplate(256, {{149, 4}}, {{34, 4}, {35, 1}})
            .Template(257, {{8, 4}, {1, 4}})
            .Data(256, ByteBuilder().u32(7).u32(100).u8(2), 3)
            .Data(257, ByteBuilder().ipv4(10, 0, 0, 1).u32(40).ipv4(10, 0, 0, 2).u32(41));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].Text(K::SrcAddr), "10.0.0.1");
    EXPECT_EQ(flows[1].Get(K::Bytes), 41);
    EXPECT_EQ(flows[0].Get(K::SamplingRate), 1);
}

TEST_F(FlowMakerIPFIX, SamplingElementsInTheRecord) {
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{305, 4}, {306, 4}})
                                   .Data(256, ByteBuilder().u32(1).u32(99).u32(3).u32(7))
                                   .Template(257, {{309, 4}, {310, 4}})
                                   .Data(257, ByteBuilder().u32(1).u32(64))
                                   .Template(258, {{311, 8}})
                                   .Data(258, ByteBuilder().u64(0x3F50624DD2F1A9FC)) // 0.001
                                   .Template(259, {{311, 4}})
                                   .Data(259, ByteBuilder().u32(0x3E99999A)) // 0.3 as a float32
                                   .Template(260, {{305, 4}, {306, 4}, {34, 4}})
                                   .Data(260, ByteBuilder().u32(1).u32(99).u32(512))
                                   .Template(261, {{50, 4}})
                                   .Data(261, ByteBuilder().u32(0));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 7u);
    EXPECT_EQ(flows[0].Get(K::SamplingRate), 100); // 1 of every 1 + 99
    EXPECT_EQ(flows[1].Get(K::SamplingRate), 3);   // 3 of every 10, rounded
    EXPECT_EQ(flows[2].Get(K::SamplingRate), 64);  // 1 of a population of 64
    EXPECT_EQ(flows[3].Get(K::SamplingRate), 1000);
    EXPECT_EQ(flows[4].Get(K::SamplingRate), 3);
    EXPECT_EQ(flows[5].Get(K::SamplingRate), 512); // the sampling interval comes first
    EXPECT_EQ(flows[6].Get(K::SamplingRate), 1);   // interval 0: not sampled
}

TEST_F(FlowMakerIPFIX, ReverseAndEnterpriseElementsAreNotRead) {
    // A biflow as softflowd sends it: forward counters, then the reverse direction's (enterprise 29305),
    // and one element of another enterprise with the id of IN_BYTES.
    const CByteArray message = IPFIXDatagram(kHeader)
                                   .Template(256, {{8, 4},
                                                   {12, 4},
                                                   {1, 4},
                                                   {2, 4},
                                                   {1, 4, kReverse},
                                                   {2, 4, kReverse},
                                                   {1, 8, 43874},
                                                   {3, 65535, 43874}})
                                   .Data(256, ByteBuilder()
                                                  .ipv4(10, 0, 0, 1)
                                                  .ipv4(10, 0, 0, 2)
                                                  .u32(1000)
                                                  .u32(10)
                                                  .u32(2000)
                                                  .u32(20)
                                                  .u64(3000)
                                                  .bytes(VariableLength("gold")));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Text(K::SrcAddr), "10.0.0.1");
    EXPECT_EQ(flows[0].Text(K::DstAddr), "10.0.0.2");
    EXPECT_EQ(flows[0].Get(K::Bytes), 1000);
    EXPECT_EQ(flows[0].Get(K::Packets), 10);
}

TEST_F(FlowMakerIPFIX, EgressMacsAndVlanStandInForMissingIngressOnes) {
    const CByteArray message =
        IPFIXDatagram(kHeader)
            .Template(256, {{56, 6}, {57, 6}, {59, 2}})
            .Data(256, ByteBuilder().bytes({2, 0, 0, 0, 0, 1}).bytes({2, 0, 0, 0, 0, 2}).u16(42));
    const auto flows = Flows(message);
    ASSERT_EQ(flows.size(), 1u);
    EXPECT_EQ(flows[0].Text(K::SrcMac), "02:00:00:00:00:01");
    EXPECT_EQ(flows[0].Text(K::DstMac), "02:00:00:00:00:02");
    EXPECT_EQ(flows[0].Get(K::Vlan), 42);
}

TEST_F(FlowMakerIPFIX, DataWithoutItsTemplateGivesNoFlows) {
    const CByteArray message = IPFIXDatagram(kHeader).Data(300, ByteBuilder().ipv4(10, 0, 0, 1).u32(40));
    EXPECT_TRUE(Flows(message).empty());
}
