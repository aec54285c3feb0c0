// Records that hold only their own kind (CSFlowCompactRecord) read, render and convert exactly as the
// holder of every kind (CSFlowRecord); the packet keeps them and builds full samples on request.
#include <gtest/gtest.h>

#include <thread>

#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

Bytes FirstBytes(const Bytes& bytes, size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<long>(count));
}

// Every flow and counter kind in the layout of the sFlow version 5 document, and an unknown one of each.
Bytes EveryKindExactV5() {
    Bytes v6(16, 0x20);
    return Datagram(
        {},
        {FlowSampleV5(
             {.sourceId = 0x01000005, .input = 0x40000002, .output = 0x80000003},
             {Record(1, SampledHeader(1, 70, 4, FirstBytes(Frame128(), 66))),
              Record(2, SampledEthernet(64, {0, 1, 2, 3, 4, 5}, {6, 7, 8, 9, 10, 11}, 0x86DD)),
              Record(3, SampledIp({.length = 40, .protocol = 6, .src = {10, 0, 0, 1}, .dst = {10, 0, 0, 2}})),
              Record(4, SampledIp({.length = 60, .protocol = 17, .src = v6, .dst = v6, .srcPort = 1})),
              Record(1001, ExtendedSwitch(1, 2, 3, 4)),
              Record(1002, ByteBuilder().bytes(Address({1, 1, 1, 1})).u32(24).u32(16).build()),
              Record(1003, ByteBuilder()
                               .bytes(Address(v6))
                               .u32(1)
                               .u32(2)
                               .u32(3)
                               .u32(1)
                               .u32(2)
                               .u32(2)
                               .u32(65001)
                               .u32(65002)
                               .u32(1)
                               .u32(9)
                               .u32(100)
                               .build()),
              Record(1004,
                     ByteBuilder().u32(106).bytes(XdrString("alice")).u32(106).bytes(XdrString("")).build()),
              Record(1005,
                     ByteBuilder().u32(1).bytes(XdrString("/a/b")).bytes(XdrString("example.org")).build()),
              Record(1006, ByteBuilder().bytes(Address({3, 3, 3, 3})).u32(1).u32(0x12345).u32(0).build()),
              Record(1007, ByteBuilder().bytes(Address({4, 4, 4, 4})).bytes(Address({5, 5, 5, 5})).build()),
              Record(1008, ByteBuilder().bytes(XdrString("lsp")).u32(1).u32(2).build()),
              Record(1009, ByteBuilder().bytes(XdrString("vc-1")).u32(3).u32(4).build()),
              Record(1010, ByteBuilder().bytes(XdrString("ftn")).u32(24).build()),
              Record(1011, ByteBuilder().u32(24).build()),
              Record(1012, ByteBuilder().u32(2).u32(0x81000064).u32(0x810000C8).build()),
              Record(17612803, ByteBuilder().u32(1).u32(42).bytes(XdrString("init")).build()),
              Record(2000, Words(0, 2))}),
         CounterSampleV5(1, 1,
                         {Record(6, Words(0, 1)), Record(1, GenericCounters(1)), Record(2, Words(1, 13)),
                          Record(3, Words(1, 18)), Record(4, Words(1, 20)), Record(5, Words(1, 7)),
                          Record(1001, Words(0x80000000, 7))})});
}

// Version 2 and 4 datagrams with every packet-data type, every extended type and every counters type.
std::vector<Bytes> EveryKindV24() {
    std::vector<Bytes> datagrams;
    for (uint32_t version : {2u, 4u}) {
        Bytes header = ByteBuilder().u32(1).u32(1).u32(64).u32(4).u32(0xDEADBEEF).build();
        Bytes ipv4 = ByteBuilder()
                         .u32(2)
                         .bytes(SampledIp({.length = 40, .src = {1, 2, 3, 4}, .dst = {5, 6, 7, 8}}))
                         .build();
        Bytes ipv6 =
            ByteBuilder().u32(3).bytes(SampledIp({.src = Bytes(16, 1), .dst = Bytes(16, 2)})).build();
        Bytes gateway = version == 2 ? ByteBuilder().u32(3).u32(1).u32(2).u32(3).u32(1).u32(65001).build()
                                     : ByteBuilder().u32(3).u32(1).u32(2).u32(3).u32(0).u32(0).u32(7).build();
        std::vector<Bytes> elements = {
            ByteBuilder().u32(1).bytes(ExtendedSwitch(1, 2, 3, 4)).build(),
            ByteBuilder().u32(2).bytes(Address({9, 9, 9, 9})).u32(8).u32(16).build(), gateway,
            ByteBuilder().u32(4).bytes(XdrString("u1")).bytes(XdrString("u2")).build(),
            ByteBuilder().u32(5).u32(2).bytes(XdrString("/u")).build()};
        std::vector<Bytes> samples = {FlowSampleV24({.sequence = 1}, header, elements),
                                      FlowSampleV24({.sequence = 2}, ipv6, {}),
                                      FlowSampleV24({.sequence = 3}, ipv4, {elements[0]})};
        for (uint32_t type = 1; type <= 7; ++type) {
            std::vector<Bytes> blocks = {type == 7 ? Words(1, 7) : GenericCounters(type)};
            if (type == 2)
                blocks.push_back(Words(2, 13));
            if (type == 3)
                blocks.push_back(Words(3, 18));
            if (type == 5)
                blocks.push_back(Words(5, 20));
            samples.push_back(CounterSampleV24(10 + type, 1, 30, type, blocks));
        }
        datagrams.push_back(Datagram({.version = version}, samples));
    }
    return datagrams;
}

CSFlowPacket Decoded(const Bytes& data, bool exact) {
    CSFlowPacket p;
    CDecodeContext context;
    context.options.sflowExact = exact;
    p.SetDecodeContext(context);
    EXPECT_EQ(p.Decode(data), 1);
    return p;
}

// The samples as the holders of every kind read them, one CSFlowSample::Decode after another.
std::vector<CSFlowSample> FullHolderSamples(const Bytes& data, bool exact) {
    CSFlowHeader header;
    int offset = header.Decode(data, exact);
    std::vector<CSFlowSample> samples;
    for (uint32_t i = 0; i < header.m_numSamples; ++i) {
        bool more = samples.emplace_back().Decode(data, offset, exact);
        if (!more)
            break;
    }
    return samples;
}

void ExpectSameSamples(const std::vector<CSFlowSample>& expected, const CSFlowPacket& packet) {
    const auto& samples = packet.GetSamples();
    ASSERT_EQ(samples.size(), expected.size());
    ASSERT_EQ(packet.GetCompactSamples().size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(samples[i].ToString(), expected[i].ToString());
        EXPECT_EQ(packet.GetCompactSamples()[i].ToString(), expected[i].ToString());
        EXPECT_EQ(samples[i].m_sampleType, expected[i].m_sampleType);
        ASSERT_EQ(samples[i].m_records.size(), expected[i].m_records.size());
        for (size_t j = 0; j < expected[i].m_records.size(); ++j) {
            const CSFlowRecord& a = samples[i].m_records[j];
            const CSFlowRecord& b = expected[i].m_records[j];
            EXPECT_EQ(a.m_flowFormat, b.m_flowFormat) << j;
            EXPECT_EQ(a.m_counterFormat, b.m_counterFormat) << j;
            // Every member, not only the one the format names, renders the same.
            EXPECT_EQ(a.m_headerRecord.m_header, b.m_headerRecord.m_header) << j;
            EXPECT_EQ(a.m_ipv4Record.ToString(), b.m_ipv4Record.ToString()) << j;
            EXPECT_EQ(a.m_gatewayRecord.ToString(), b.m_gatewayRecord.ToString()) << j;
            EXPECT_EQ(a.m_userRecord.m_srcUser, b.m_userRecord.m_srcUser) << j;
            EXPECT_EQ(a.m_switchRecord.ToString(), b.m_switchRecord.ToString()) << j;
            EXPECT_EQ(a.m_genericCounters.ToString(), b.m_genericCounters.ToString()) << j;
            EXPECT_EQ(a.m_vlanCounters.ToString(), b.m_vlanCounters.ToString()) << j;
        }
    }
}

} // namespace

TEST(SFlowCompactRecord, HoldsOnlyTheKindItsFormatNames) {
    Bytes data = ByteBuilder().u32(5).bytes(Record(1001, ExtendedSwitch(1, 2, 3, 4))).build();
    CSFlowCompactRecord r;
    int offset = 4;
    r.Decode(data, offset);
    EXPECT_EQ(offset, static_cast<int>(data.size()));
    EXPECT_EQ(r.GetFlowFormat(), 1001u);
    EXPECT_EQ(r.GetCounterFormat(), 0u);
    ASSERT_NE(r.Get<CSFlowExtendedSwitchRecord>(), nullptr);
    EXPECT_EQ(r.Get<CSFlowExtendedSwitchRecord>()->m_dstVLAN, 3u);
    EXPECT_EQ(r.Get<CSFlowHeaderRecord>(), nullptr);
    EXPECT_EQ(r.Get<CSFlowGenericCounters>(), nullptr);
    EXPECT_LT(sizeof(CSFlowCompactRecord) * 4, sizeof(CSFlowRecord));
}

TEST(SFlowCompactRecord, UnknownFormatHoldsNothingAndRendersAsUnknown) {
    Bytes data = ByteBuilder().u32(5).bytes(Record(2000, Words(0, 3))).bytes(Record(6, Words(0, 2))).build();
    CSFlowCompactRecord flow;
    CSFlowCompactRecord counters;
    int offset = 4;
    flow.Decode(data, offset);
    counters.DecodeCounters(data, offset);
    EXPECT_EQ(offset, static_cast<int>(data.size()));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(flow.GetKind()));
    EXPECT_EQ(flow.ToString(), L"Unknown record");
    EXPECT_EQ(counters.GetCounterFormat(), 6u);
    EXPECT_EQ(counters.ToString(), L"Unknown record");
    EXPECT_EQ(CSFlowCompactRecord().ToString(), L"Unknown record");
    CSFlowRecord full = flow.ToRecord();
    EXPECT_EQ(full.m_flowFormat, 2000u);
    EXPECT_EQ(full.ToString(), L"Unknown record");
}

TEST(SFlowCompactRecord, ConvertsToTheHolderOfEveryKindWithFreshOtherMembers) {
    Bytes data = ByteBuilder().u32(5).bytes(Record(1, SampledHeader(1, 1518, 4, {0x0A, 0xFF}))).build();
    CSFlowCompactRecord compact;
    int offset = 4;
    compact.Decode(data, offset);
    CSFlowRecord full = compact.ToRecord();
    EXPECT_EQ(full.m_flowFormat, 1u);
    EXPECT_EQ(full.m_headerRecord.m_frameLength, 1518u);
    EXPECT_EQ(full.m_headerRecord.m_header, (Bytes{0x0A, 0xFF}));
    EXPECT_EQ(full.m_switchRecord.m_srcVLAN, 0xFFFFFFFFu);
    EXPECT_EQ(full.m_urlRecord.m_direction, 0u);
    EXPECT_EQ(full.m_genericCounters.m_ifSpeed, ~uint64_t{0});
    EXPECT_EQ(full.ToString(), compact.ToString());
}

TEST(SFlowPacketSamples, MatchTheSamplesReadWithHoldersOfEveryKind) {
    // Both modes on the same bytes, each against the full holders read in the same mode.
    std::vector<Bytes> datagrams = EveryKindV24();
    datagrams.push_back(EveryKindExactV5());
    datagrams.push_back(
        Datagram({}, {FlowSampleV5({}, {Record(1, SampledHeader(1, 128, 4, Frame128())),
                                        Record(1001, ExtendedSwitch(5, 0, 6, 0))}),
                      ExpandedFlowSampleV5({.sourceIdType = 2, .inputFormat = 1}, {}),
                      ExpandedCounterSampleV5(1, 3, 9, {Record(5, Words(1, 7))}), SampleV5(9, Words(0, 1))}));
    // Version 2/4 datagrams without strings, which read the same by default.
    for (uint32_t version : {2u, 4u})
        datagrams.push_back(
            Datagram({.version = version},
                     {FlowSampleV24({}, ByteBuilder().u32(1).u32(1).u32(64).u32(4).u32(0xDEADBEEF).build(),
                                    {ByteBuilder().u32(1).bytes(ExtendedSwitch(1, 2, 3, 4)).build(),
                                     ByteBuilder().u32(7).build()}),
                      CounterSampleV24(1, 1, 30, 2, {GenericCounters(1), Words(2, 13)}),
                      CounterSampleV24(2, 1, 30, 9, {})}));
    int compared[2] = {0, 0};
    for (bool exact : {false, true}) {
        for (size_t i = 0; i < datagrams.size(); ++i) {
            SCOPED_TRACE(::testing::Message() << "exact " << exact << ", datagram " << i);
            std::vector<CSFlowSample> expected;
            try {
                expected = FullHolderSamples(datagrams[i], exact);
            } catch (const CInvalidArgException&) {
                // Decoded by default, the exact layout of strings and padded headers runs off the end.
                ASSERT_FALSE(exact);
                continue;
            }
            ExpectSameSamples(expected, Decoded(datagrams[i], exact));
            ++compared[exact];
        }
    }
    EXPECT_EQ(compared[true], static_cast<int>(datagrams.size()));
    EXPECT_GE(compared[false], 3);
}

TEST(SFlowPacketSamples, EveryKindOfTheExactDatagramIsRead) {
    CSFlowPacket p = Decoded(EveryKindExactV5(), true);
    ASSERT_EQ(p.GetSize(), 2);
    ASSERT_EQ(p.GetCompactSamples()[0].m_records.size(), 18u);
    ASSERT_EQ(p.GetCompactSamples()[1].m_records.size(), 7u);
    const auto& flow = p.GetCompactSamples()[0].m_records;
    const uint32_t formats[] = {1,    2,    3,    4,    1001, 1002, 1003, 1004,    1005,
                                1006, 1007, 1008, 1009, 1010, 1011, 1012, 17612803};
    for (size_t i = 0; i < std::size(formats); ++i) {
        EXPECT_EQ(flow[i].GetFlowFormat(), formats[i]) << i;
        EXPECT_FALSE(std::holds_alternative<std::monostate>(flow[i].GetKind())) << i;
    }
    EXPECT_EQ(flow[7].Get<CSFlowExtendedUserRecord>()->m_srcUser, L"alice");
    EXPECT_EQ(flow[8].Get<CSFlowExtendedURLRecord>()->m_host, L"example.org");
    EXPECT_EQ(flow[16].Get<CSFlowExtendedProcessRecord>()->m_processNames, (CStringArray{L"init"}));
    EXPECT_EQ(p.GetCompactSamples()[1].m_records[6].Get<CSFlowProcessorCounters>()->m_totalMemory,
              (uint64_t{0x80000003} << 32) | 0x80000004);
}

TEST(SFlowPacketSamples, AreBuiltOnceForReadersOnManyThreads) {
    CSFlowPacket p = Decoded(EveryKindExactV5(), true);
    const CArray<CSFlowSample, const CSFlowSample&>* seen[4] = {};
    std::vector<std::thread> threads;
    for (auto& view : seen)
        threads.emplace_back([&p, &view] { view = &p.GetSamples(); });
    for (std::thread& t : threads)
        t.join();
    for (auto* view : seen)
        EXPECT_EQ(view, &p.GetSamples());
    EXPECT_EQ(p.GetSamples().size(), 2u);
    EXPECT_EQ(p.GetSamples()[0].m_records.size(), 18u);
}

TEST(SFlowPacketSamples, FollowAnotherDecodeAndCopies) {
    Bytes first = Datagram({}, {FlowSampleV5({.sequence = 1}, {Record(1001, ExtendedSwitch(1, 0, 0, 0))})});
    Bytes second = Datagram({}, {FlowSampleV5({.sequence = 2}, {Record(1001, ExtendedSwitch(2, 0, 0, 0))})});
    CSFlowPacket p;
    ASSERT_EQ(p.Decode(first), 1);
    ASSERT_EQ(p.GetSamples().size(), 1u);
    ASSERT_EQ(p.Decode(second), 1); // a decode appends
    ASSERT_EQ(p.GetSamples().size(), 2u);
    EXPECT_EQ(p.GetSamples()[1].m_records[0].m_switchRecord.m_srcVLAN, 2u);

    CSFlowPacket copy(p);
    CSFlowPacket assigned;
    assigned = p;
    ASSERT_EQ(copy.GetSamples().size(), 2u);
    ASSERT_EQ(assigned.GetSamples().size(), 2u);
    EXPECT_NE(&copy.GetSamples(), &p.GetSamples());
    EXPECT_EQ(copy.ToString(), p.ToString());
    EXPECT_EQ(assigned.GetSamples()[0].ToString(), p.GetSamples()[0].ToString());

    p = CSFlowPacket();
    EXPECT_TRUE(p.GetSamples().empty());
    EXPECT_EQ(copy.GetSamples()[1].m_records[0].m_switchRecord.m_srcVLAN, 2u);
}

TEST(SFlowPacketSamples, SamplesASubclassPlacesComeBeforeTheDecodedOnes) {
    class Placed : public CSFlowPacket {
    public:
        Placed() {
            CSFlowSample& sample = m_samples.emplace_back();
            sample.m_sampleType = 1;
            sample.m_sequenceNumber = 77;
        }
    };
    Placed p;
    ASSERT_EQ(p.GetSize(), 1);
    EXPECT_EQ(&p.GetSamples(), &p.GetSamples());
    EXPECT_EQ(p.GetSamples()[0].m_sequenceNumber, 77u);
    ASSERT_EQ(
        p.Decode(Datagram({}, {FlowSampleV5({.sequence = 5}, {Record(1001, ExtendedSwitch(9, 0, 0, 0))})})),
        1);
    EXPECT_EQ(p.GetSize(), 2);
    EXPECT_FALSE(p.IsEmpty());
    ASSERT_EQ(p.GetSamples().size(), 2u);
    EXPECT_EQ(p.GetSamples()[0].m_sequenceNumber, 77u);
    EXPECT_EQ(p.GetSamples()[1].m_sequenceNumber, 5u);
    EXPECT_EQ(p.GetSamples()[1].m_records[0].m_switchRecord.m_srcVLAN, 9u);
    EXPECT_EQ(p.GetCompactSamples().size(), 1u);
    CString text = p.ToString();
    EXPECT_NE(text.find(L"-----<Sample 1>-----\r\nSeq Number: 77,"), CString::npos);
    EXPECT_NE(text.find(L"-----<Sample 2>-----\r\nSeq Number: 5,"), CString::npos);
    Placed copy;
    copy = p;
    EXPECT_EQ(copy.GetSize(), 2);
    EXPECT_EQ(copy.ToString(), text);
}

TEST(SFlowCompactRecord, BothHoldersGiveTheRecordTheirFormatsName) {
    CSFlowRecord full;
    EXPECT_EQ(full.Get<CSFlowHeaderRecord>(), nullptr);
    full.m_flowFormat = 1;
    EXPECT_EQ(full.Get<CSFlowHeaderRecord>(), &full.m_headerRecord);
    EXPECT_EQ(full.Get<CSFlowExtendedSwitchRecord>(), nullptr);
    EXPECT_EQ(full.Get<CSFlowGenericCounters>(), nullptr);
    full.m_flowFormat = 0;
    full.m_counterFormat = 1;
    EXPECT_EQ(full.Get<CSFlowGenericCounters>(), &full.m_genericCounters);
    EXPECT_EQ(full.Get<CSFlowHeaderRecord>(), nullptr);
    full.m_counterFormat = 1001;
    EXPECT_EQ(full.Get<CSFlowProcessorCounters>(), &full.m_processorCounters);
    full.m_flowFormat = 1001; // a flow format wins over the counter format
    EXPECT_EQ(full.Get<CSFlowProcessorCounters>(), nullptr);
    EXPECT_EQ(full.Get<CSFlowExtendedSwitchRecord>(), &full.m_switchRecord);

    Bytes data = ByteBuilder()
                     .u32(5)
                     .bytes(Record(1002, ByteBuilder().u32(1).ipv4(10, 0, 0, 1).u32(8).u32(16).build()))
                     .build();
    CSFlowCompactRecord compact;
    int offset = 4;
    compact.Decode(data, offset);
    CSFlowRecord converted = compact.ToRecord();
    ASSERT_NE(converted.Get<CSFlowExtendedRouterRecord>(), nullptr);
    EXPECT_EQ(converted.Get<CSFlowExtendedRouterRecord>()->m_dstMask,
              compact.Get<CSFlowExtendedRouterRecord>()->m_dstMask);
    EXPECT_EQ(converted.Get<CSFlowExtendedRouterRecord>()->m_nextHop.ToString(), L"10.0.0.1");
}
