#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"
#include "util/NetFlowUtility.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

CSFlowPacket Decoded(const Bytes& datagram) {
    CSFlowPacket packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    return packet;
}

Bytes SwitchFlowSample(uint32_t sequence) {
    return FlowSampleV5({.sequence = sequence}, {Record(1001, ExtendedSwitch(sequence, 0, 2, 0))});
}

// Exposes the protected copy of header and samples.
class CopyablePacket : public CSFlowPacket {
public:
    using CSFlowPacket::Copy;
};

} // namespace

// --- header ---

TEST(SFlowHeader, FreshHeaderDefaults) {
    CSFlowHeader h;
    EXPECT_EQ(h.m_version, 0u);
    EXPECT_EQ(h.m_agentSubId, 0xFFFFFFFFu);
    EXPECT_EQ(h.m_sequenceNumber, 0xFFFFFFFFu);
    EXPECT_EQ(h.m_sysUptime, 0xFFFFFFFFu);
    EXPECT_EQ(h.m_numSamples, 0u);
    EXPECT_EQ(h.m_agentAddress.m_address.size(), 4u);
}

TEST(SFlowHeader, Version5HeaderWithIPv4AgentStartsSamplesAtTwentyEight) {
    Bytes data = Datagram({.subId = 9, .sequence = 77, .uptime = 123456, .samples = 3}, {});
    CSFlowHeader h;
    EXPECT_EQ(h.Decode(data), 28);
    EXPECT_EQ(h.m_version, 5u);
    EXPECT_EQ(h.m_agentAddress.ToString(), L"192.0.2.1");
    EXPECT_EQ(h.m_agentSubId, 9u);
    EXPECT_EQ(h.m_sequenceNumber, 77u);
    EXPECT_EQ(h.m_sysUptime, 123456u);
    EXPECT_EQ(h.m_numSamples, 3u);
}

TEST(SFlowHeader, IPv6AgentAndNoSubIdBeforeVersion5) {
    Bytes v6 = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34};
    Bytes data = Datagram(
        {.version = 4, .addressType = 2, .address = v6, .sequence = 5, .uptime = 6, .samples = 0}, {});
    CSFlowHeader h;
    EXPECT_EQ(h.Decode(data), 36);
    EXPECT_EQ(h.m_agentAddress.ToString(), L"2001:0DB8:0000:0000:0000:0000:0000:1234");
    EXPECT_EQ(h.m_agentSubId, 0xFFFFFFFFu);
    EXPECT_EQ(h.m_sequenceNumber, 5u);
    EXPECT_EQ(h.m_sysUptime, 6u);
}

TEST(SFlowHeader, UnknownAgentAddressTypeContinuesAtOffsetThree) {
    // 00 00 00 05 | 00 00 00 00 | 11 22 33 44 | ...: after the unknown type the sub-id is read from
    // offset 3 (05 00 00 00), the sequence from 7 (00 11 22 33) and so on.
    Bytes data = ByteBuilder().u32(5).u32(0).u32(0x11223344).u32(0x55667788).u32(0x99AABBCC).u32(0).build();
    CSFlowHeader h;
    EXPECT_EQ(h.Decode(data), 3 + 16);
    EXPECT_EQ(h.m_agentAddress.ToString(), L"0.0.0.0");
    EXPECT_EQ(h.m_agentSubId, 0x05000000u);
    EXPECT_EQ(h.m_sequenceNumber, 0x00112233u);
    EXPECT_EQ(h.m_sysUptime, 0x44556677u);
    EXPECT_EQ(h.m_numSamples, 0x8899AABBu);
}

TEST(SFlowHeader, UnsupportedVersionStoresOnlyTheVersion) {
    for (uint32_t version : {0u, 1u, 3u, 6u}) {
        CSFlowHeader h;
        EXPECT_EQ(h.Decode(Datagram({.version = 5, .samples = 1}, {})), 28);
        EXPECT_EQ(
            h.Decode(ByteBuilder().u32(version).u32(1).ipv4(1, 2, 3, 4).u32(8).u32(8).u32(8).u32(8).build()),
            -1);
        EXPECT_EQ(h.m_version, version);
        EXPECT_EQ(h.m_agentAddress.ToString(), L"192.0.2.1");
        EXPECT_EQ(h.m_numSamples, 1u);
    }
}

TEST(SFlowHeader, TruncatedHeaderThrows) {
    Bytes data = Datagram({}, {});
    data.resize(data.size() - 1);
    CSFlowHeader h;
    EXPECT_THROW(h.Decode(data), CInvalidArgException);
}

// --- packet basics ---

TEST(SFlowPacket, FreshPacketIsEmptyWithNoSender) {
    CSFlowPacket p;
    EXPECT_EQ(p.GetSenderIPAddress(), L"");
    EXPECT_EQ(p.GetSenderPort(), 0);
    EXPECT_TRUE(p.IsEmpty());
    EXPECT_EQ(p.GetSize(), 0);
    EXPECT_EQ(p.GetProtocol(), L"");
}

TEST(SFlowPacket, ProtocolNamesTheVersion) {
    EXPECT_EQ(Decoded(Datagram({.version = 2}, {})).GetProtocol(), L"sFlow v2");
    EXPECT_EQ(Decoded(Datagram({.version = 4}, {})).GetProtocol(), L"sFlow v4");
    EXPECT_EQ(Decoded(Datagram({.version = 5}, {})).GetProtocol(), L"sFlow v5");
    EXPECT_EQ(Decoded(Datagram({.version = 3}, {})).GetProtocol(), L"");
    EXPECT_EQ(Decoded(Datagram({.version = 6}, {})).GetProtocol(), L"");
}

TEST(SFlowPacket, ZeroSamplesGivesAnEmptyPacketWhoseTextEndsAtTheSamplesLine) {
    CSFlowPacket p = Decoded(Datagram({.samples = 0}, {}));
    EXPECT_EQ(p.GetSize(), 0);
    EXPECT_TRUE(p.IsEmpty());
    EXPECT_EQ(p.ToString(),
              L"sFlow packet received from: :0\r\nHeader:\r\n Version: 5, Agent Address: 192.0.2.1, "
              L"Agent Sub ID: 0, Seq Num: 1, SysUptime: 360000, Samples In Packet: 0\r\n"
              L"===============Samples===============\r\n");
}

TEST(SFlowPacket, UnsupportedVersionDecodesToAnEmptyPacket) {
    for (uint32_t version : {3u, 6u}) {
        CSFlowPacket p;
        Bytes data = Datagram({.version = 5, .samples = 1}, {SwitchFlowSample(1)});
        data[3] = static_cast<uint8_t>(version);
        EXPECT_EQ(p.Decode(data), 1);
        EXPECT_TRUE(p.IsEmpty());
        EXPECT_EQ(p.GetProtocol(), L"");
        EXPECT_EQ(p.ToString(),
                  L"sFlow packet received from: :0\r\nHeader:\r\n Version: " + std::to_wstring(version) +
                      L", Agent Address: 0.0.0.0, Agent Sub ID: 4294967295, Seq Num: 4294967295, "
                      L"SysUptime: 4294967295, Samples In Packet: 0\r\n"
                      L"===============Samples===============\r\n");
    }
}

TEST(SFlowPacket, UnsupportedVersionAfterADecodeReadsFromOffsetMinusOneAndThrows) {
    CSFlowPacket p = Decoded(Datagram({.samples = 1}, {SwitchFlowSample(1)}));
    ASSERT_EQ(p.GetSize(), 1);
    Bytes v6 = Datagram({.version = 6}, {SwitchFlowSample(2)});
    EXPECT_THROW(p.Decode(v6), CInvalidArgException);
    EXPECT_EQ(p.GetSize(), 1);
}

TEST(SFlowPacket, SizeCountsHeldSamplesNotTheAnnouncedCount) {
    // Three announced, one present: the exception keeps the first.
    Bytes data = Datagram({.samples = 3}, {SwitchFlowSample(1)});
    CSFlowPacket p;
    EXPECT_THROW(p.Decode(data), CInvalidArgException);
    EXPECT_EQ(p.GetSize(), 1);
    EXPECT_EQ(p.GetHeader().m_numSamples, 3u);
}

TEST(SFlowPacket, SysUpTimeIsTheHeaderUptimeThroughFormatSysUptime) {
    CSFlowPacket p = Decoded(Datagram({.uptime = 8640000}, {}));
    EXPECT_EQ(p.GetSysUpTime(), L"(8640000) 1 day 0:00:00.00");
    EXPECT_EQ(CSFlowPacket().GetSysUpTime(), CNetFlowUtility::FormatSysUptime(-1));
}

TEST(SFlowPacket, TimestampIsTheClockAtTheCall) {
    CSFlowPacket p = Decoded(Datagram({}, {}));
    CString before = CTPAbstractPacket::FormatTimestamp(std::time(nullptr));
    CString stamp = p.GetTimestamp();
    CString after = CTPAbstractPacket::FormatTimestamp(std::time(nullptr));
    EXPECT_TRUE(stamp == before || stamp == after);
    EXPECT_EQ(stamp.size(), 19u); // mm/dd/yyyy hh:mm:ss
}

TEST(SFlowPacket, TimestampsASecondApartDiffer) {
    CSFlowPacket p = Decoded(Datagram({}, {}));
    CString first = p.GetTimestamp();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_NE(p.GetTimestamp(), first);
}

TEST(SFlowPacket, RecordFieldsLeaveBothArraysAsGiven) {
    CSFlowPacket p = Decoded(Datagram({}, {SwitchFlowSample(1)}));
    CUIntArray ids = {1, 2};
    CStringArray values = {L"a", L"b"};
    for (int index : {-1, 0, 1, 1000}) {
        p.GetRecordFields(index, ids, values);
        EXPECT_EQ(ids, (CUIntArray{1, 2}));
        EXPECT_EQ(values, (CStringArray{L"a", L"b"}));
    }
}

TEST(SFlowPacket, PrepareSQLAddsNothing) {
    CSFlowPacket p = Decoded(Datagram({}, {SwitchFlowSample(1)}));
    CDatabase db;
    CODBCRecordset records(&db);
    CODBCRecordset attributes(&db);
    int recordId = 41;
    p.PrepareSQL(recordId, records, attributes);
    EXPECT_EQ(recordId, 41);
    EXPECT_FALSE(records.IsOpen());
    EXPECT_FALSE(attributes.IsOpen());
}

TEST(SFlowPacket, CopyAndAssignmentCopySenderAndContentDeeply) {
    CSFlowPacket original =
        Decoded(Datagram({.subId = 3, .sequence = 9}, {SwitchFlowSample(1), SwitchFlowSample(2)}));
    original.SetSenderInfo(L"10.0.0.9", 6343);

    CSFlowPacket copy(original);
    EXPECT_EQ(copy.GetSenderIPAddress(), L"10.0.0.9");
    EXPECT_EQ(copy.GetSenderPort(), 6343);
    EXPECT_EQ(copy.ToString(), original.ToString());

    CSFlowPacket assigned;
    assigned.SetSenderInfo(L"1.1.1.1", 1);
    assigned = original;
    EXPECT_EQ(assigned.GetSenderIPAddress(), L"10.0.0.9");
    EXPECT_EQ(assigned.GetSenderPort(), 6343);
    EXPECT_EQ(assigned.ToString(), original.ToString());
    EXPECT_EQ(assigned.GetProtocol(), L"sFlow v5");

    // decoding more into the copy leaves the original alone
    copy.Decode(Datagram({}, {SwitchFlowSample(3)}));
    EXPECT_EQ(copy.GetSize(), 3);
    EXPECT_EQ(original.GetSize(), 2);
}

TEST(SFlowPacket, SelfAssignmentKeepsEverything) {
    CSFlowPacket p = Decoded(Datagram({}, {SwitchFlowSample(1)}));
    p.SetSenderInfo(L"10.0.0.9", 6343);
    CString before = p.ToString();
    CSFlowPacket& self = p;
    p = self;
    EXPECT_EQ(p.ToString(), before);
}

TEST(SFlowPacket, ProtectedCopyLeavesTheSenderAsItWas) {
    CSFlowPacket source = Decoded(Datagram({.subId = 4, .sequence = 8, .uptime = 12}, {SwitchFlowSample(1)}));
    source.SetSenderInfo(L"10.0.0.9", 6343);
    CopyablePacket target;
    target.SetSenderInfo(L"192.168.1.1", 2055);
    target.Copy(source);
    EXPECT_EQ(target.GetSenderIPAddress(), L"192.168.1.1");
    EXPECT_EQ(target.GetSenderPort(), 2055);
    EXPECT_EQ(target.GetSize(), 1);
    EXPECT_EQ(target.GetHeader().m_agentSubId, 4u);
    EXPECT_EQ(target.GetHeader().m_sequenceNumber, 8u);
    EXPECT_EQ(target.GetHeader().m_sysUptime, 12u);
    EXPECT_EQ(target.GetHeader().m_numSamples, 1u);
    EXPECT_EQ(target.GetHeader().m_agentAddress.ToString(), L"192.0.2.1");
}

// --- samples ---

TEST(SFlowSample, FreshSampleDefaults) {
    CSFlowSample s;
    EXPECT_EQ(s.m_sampleType, 0u);
    EXPECT_EQ(s.m_sequenceNumber, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_sourceIdType, -1);
    EXPECT_EQ(s.m_sourceIdIndex, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_samplingRate, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_samplePool, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_inputPortFormat, -1);
    EXPECT_EQ(s.m_inputPort, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_outputPortFormat, -1);
    EXPECT_EQ(s.m_outputPort, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_drops, 0xFFFFFFFFu);
    EXPECT_TRUE(s.m_records.empty());
}

TEST(SFlowSample, Version5FlowSampleSplitsSourceIdAndInterfaces) {
    Bytes data = Datagram({}, {FlowSampleV5({.sequence = 12,
                                             .sourceId = 0x02000105,
                                             .samplingRate = 400,
                                             .samplePool = 8000,
                                             .drops = 6,
                                             .input = 0x40000003,
                                             .output = 0x3FFFFFFF},
                                            {})});
    CSFlowPacket p = Decoded(data);
    ASSERT_EQ(p.GetSize(), 1);
    const CSFlowSample& s = p.GetSamples()[0];
    EXPECT_EQ(s.m_sampleType, 1u);
    EXPECT_EQ(s.m_sequenceNumber, 12u);
    EXPECT_EQ(s.m_sourceIdType, 2);
    EXPECT_EQ(s.m_sourceIdIndex, 0x105u);
    EXPECT_EQ(s.m_samplingRate, 400u);
    EXPECT_EQ(s.m_samplePool, 8000u);
    EXPECT_EQ(s.m_drops, 6u);
    EXPECT_EQ(s.m_inputPortFormat, 1);
    EXPECT_EQ(s.m_inputPort, 3u);
    EXPECT_EQ(s.m_outputPortFormat, 0);
    EXPECT_EQ(s.m_outputPort, 0x3FFFFFFFu);
}

TEST(SFlowSample, InputInterfaceWithTopBitSetGivesFormatMinusTwo) {
    CSFlowPacket p = Decoded(Datagram({}, {FlowSampleV5({.sourceId = 0xFF000001, .input = 0x80000007}, {})}));
    const CSFlowSample& s = p.GetSamples()[0];
    EXPECT_EQ(s.m_inputPortFormat, -2);
    EXPECT_EQ(s.m_inputPort, 7u);
    EXPECT_EQ(s.m_sourceIdType, -1);
    EXPECT_EQ(s.m_sourceIdIndex, 1u);
    EXPECT_NE(s.ToString().find(L"Source ID Type: 4294967295, Source ID Index: 1,"), CString::npos);
    EXPECT_NE(s.ToString().find(L"Input Port: 7, Input Port Format: 4294967294,"), CString::npos);
}

TEST(SFlowSample, SampleLengthIsIgnored) {
    // A sample length of 0 or far too long changes nothing: the cursor moves by what was read.
    for (uint32_t length : {0u, 4u, 100000u}) {
        Bytes flowBody = ByteBuilder().u32(1).u32(3).u32(10).u32(20).u32(0).u32(1).u32(2).u32(0).build();
        Bytes data = Datagram({}, {SampleV5(1, flowBody, length), SwitchFlowSample(2)});
        CSFlowPacket p = Decoded(data);
        ASSERT_EQ(p.GetSize(), 2) << length;
        EXPECT_EQ(p.GetSamples()[1].m_records[0].m_switchRecord.m_srcVLAN, 2u);
    }
}

TEST(SFlowSample, UnknownTagIsHeldAloneAndTheNextTagIsItsLengthWord) {
    // Sample 2 has tag 5 and a "length" word of 2; decoding goes on at that word, which is read as the
    // tag of a counter sample whose body follows.
    Bytes counterBody =
        ByteBuilder().u32(0).u32(7).u32(4).u32(0).build(); // length, seq, source id, 0 records
    Bytes data = Datagram({.samples = 3},
                          {SwitchFlowSample(1), ByteBuilder().u32(5).u32(2).bytes(counterBody).build()});
    CSFlowPacket p = Decoded(data);
    ASSERT_EQ(p.GetSize(), 3);
    const CSFlowSample& unknown = p.GetSamples()[1];
    EXPECT_EQ(unknown.m_sampleType, 5u);
    EXPECT_EQ(unknown.m_sequenceNumber, 0xFFFFFFFFu);
    EXPECT_EQ(unknown.m_sourceIdType, -1);
    EXPECT_EQ(unknown.m_drops, 0xFFFFFFFFu);
    EXPECT_TRUE(unknown.m_records.empty());
    const CSFlowSample& third = p.GetSamples()[2];
    EXPECT_EQ(third.m_sampleType, 2u);
    EXPECT_EQ(third.m_sequenceNumber, 7u);
    EXPECT_EQ(third.m_sourceIdIndex, 4u);
}

TEST(SFlowSample, TagIsComparedWhole) {
    // Enterprise 1, format 1 is not a flow sample: held with its tag, nothing read.
    Bytes data = Datagram({.samples = 1}, {ByteBuilder().u32((1u << 12) | 1).build()});
    CSFlowPacket p = Decoded(data);
    ASSERT_EQ(p.GetSize(), 1);
    EXPECT_EQ(p.GetSamples()[0].m_sampleType, 4097u);
}

TEST(SFlowSample, UnknownFlowFormatIsSkippedAndListed) {
    Bytes data = Datagram(
        {}, {FlowSampleV5({}, {Record(2000, Words(1, 3)), Record(1001, ExtendedSwitch(5, 0, 6, 0))})});
    CSFlowPacket p = Decoded(data);
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 2u);
    EXPECT_EQ(s.m_records[0].m_flowFormat, 2000u);
    EXPECT_EQ(s.m_records[1].m_switchRecord.m_srcVLAN, 5u);
    EXPECT_NE(s.ToString().find(L"Drops: 0\r\nUnknown recordExtended Switch Flow:\r\n"), CString::npos);
}

TEST(SFlowSample, CounterSampleWithProcessorAndUnknownFormat) {
    Bytes processor = ByteBuilder().u32(1).u32(2).u32(3).u64(4).u64(5).build();
    Bytes data =
        Datagram({}, {CounterSampleV5(3, 0x00000011, {Record(1001, processor), Record(7, Words(0, 2))})});
    CSFlowPacket p = Decoded(data);
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 2u);
    EXPECT_EQ(s.m_records[0].m_counterFormat, 1001u);
    EXPECT_EQ(s.m_records[0].m_flowFormat, 0u);
    EXPECT_EQ(s.m_records[1].m_counterFormat, 7u);
    EXPECT_EQ(s.m_records[1].ToString(), L"Unknown record");
    EXPECT_EQ(s.m_samplingRate, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_inputPort, 0xFFFFFFFFu);
    EXPECT_EQ(s.m_drops, 0xFFFFFFFFu);
}

TEST(SFlowSample, ExpandedSamplesTakeWholeWords) {
    Bytes data = Datagram({}, {ExpandedFlowSampleV5({.sourceIdType = 0x80000001,
                                                     .sourceIdIndex = 0x01000001,
                                                     .inputFormat = 3,
                                                     .inputPort = 0xC0000001,
                                                     .outputFormat = 0xFFFFFFFF,
                                                     .outputPort = 9},
                                                    {}),
                               ExpandedCounterSampleV5(4, 0x7F, 0x12345678, {})});
    CSFlowPacket p = Decoded(data);
    ASSERT_EQ(p.GetSize(), 2);
    const CSFlowSample& flow = p.GetSamples()[0];
    EXPECT_EQ(flow.m_sampleType, 3u);
    EXPECT_EQ(flow.m_sourceIdType, static_cast<int32_t>(0x80000001));
    EXPECT_EQ(flow.m_sourceIdIndex, 0x01000001u);
    EXPECT_EQ(flow.m_inputPortFormat, 3);
    EXPECT_EQ(flow.m_inputPort, 0xC0000001u);
    EXPECT_EQ(flow.m_outputPortFormat, -1);
    EXPECT_EQ(flow.m_outputPort, 9u);
    const CSFlowSample& counters = p.GetSamples()[1];
    EXPECT_EQ(counters.m_sampleType, 4u);
    EXPECT_EQ(counters.m_sequenceNumber, 4u);
    EXPECT_EQ(counters.m_sourceIdType, 0x7F);
    EXPECT_EQ(counters.m_sourceIdIndex, 0x12345678u);
}

TEST(SFlowSample, Version4FlowSampleHoldsThePacketDataRecordOncePerExtendedElementMore) {
    Bytes packetData = ByteBuilder().u32(1).u32(1).u32(64).u32(4).u32(0xDEADBEEF).build();
    Bytes switchElement = ByteBuilder().u32(1).bytes(ExtendedSwitch(1, 2, 3, 4)).build();
    Bytes routerElement = ByteBuilder().u32(2).u32(1).ipv4(10, 0, 0, 1).u32(8).u32(16).build();
    Bytes data = Datagram({.version = 4},
                          {FlowSampleV24({.input = 0x80000005}, packetData, {switchElement, routerElement})});
    CSFlowPacket p = Decoded(data);
    ASSERT_EQ(p.GetSize(), 1);
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 3u);
    for (const CSFlowRecord& r : s.m_records) {
        EXPECT_EQ(r.m_flowFormat, 1u);
        EXPECT_EQ(r.m_headerRecord.m_header, (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
        EXPECT_EQ(r.m_switchRecord.m_srcVLAN, 0xFFFFFFFFu); // the element's data is not kept
        EXPECT_EQ(r.ToString(), s.m_records[0].ToString());
    }
    EXPECT_EQ(s.m_inputPort, 0x80000005u);
    EXPECT_EQ(s.m_inputPortFormat, -1);
    EXPECT_EQ(s.m_outputPortFormat, -1);
}

TEST(SFlowSample, Version2FlowSampleWithUnknownPacketTypeHoldsUnknownRecords) {
    Bytes data = Datagram({.version = 2},
                          {FlowSampleV24({}, ByteBuilder().u32(9).build(), {ByteBuilder().u32(7).build()})});
    CSFlowPacket p = Decoded(data);
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 2u);
    EXPECT_NE(s.ToString().find(L"Drops: 0\r\nUnknown recordUnknown record"), CString::npos);
}

TEST(SFlowSample, Version4SampledIPv4PacketDataThrows) {
    Bytes packetData =
        ByteBuilder().u32(2).u32(60).u32(6).ipv4(1, 2, 3, 4).ipv4(5, 6, 7, 8).zeros(16).build();
    Bytes data = Datagram({.version = 4, .samples = 2}, {CounterSampleV24(1, 1, 30, 1, {GenericCounters(1)}),
                                                         FlowSampleV24({}, packetData, {})});
    CSFlowPacket p;
    EXPECT_THROW(p.Decode(data), CInvalidArgException);
    EXPECT_EQ(p.GetSize(), 1);
}

TEST(SFlowSample, Version2CounterTypesDecideTheBlocks) {
    struct Case {
        uint32_t type;
        std::vector<Bytes> blocks;
        std::vector<uint32_t> formats;
    };
    const Case cases[] = {
        {1, {GenericCounters(1)}, {1}},
        {2, {GenericCounters(1), Words(50, 13)}, {1, 2}},
        {3, {GenericCounters(1), Words(50, 18)}, {1, 3}},
        {4, {GenericCounters(1)}, {1}},
        {5, {GenericCounters(1), Words(50, 20)}, {1, 4}},
        {6, {GenericCounters(1)}, {1}},
        {7, {Words(50, 7)}, {5}},
        {9, {}, {0}},
    };
    for (const Case& c : cases) {
        Bytes data = Datagram({.version = 2, .samples = 2}, {CounterSampleV24(1, 2, 30, c.type, c.blocks),
                                                             CounterSampleV24(2, 2, 30, 9, {})});
        CSFlowPacket p = Decoded(data);
        ASSERT_EQ(p.GetSize(), 2) << c.type; // the second sample was found where the blocks end
        const CSFlowSample& s = p.GetSamples()[0];
        ASSERT_EQ(s.m_records.size(), c.formats.size()) << c.type;
        for (size_t i = 0; i < c.formats.size(); ++i) {
            EXPECT_EQ(s.m_records[i].m_counterFormat, c.formats[i]) << c.type;
            EXPECT_EQ(s.m_records[i].m_flowFormat, 0u);
        }
        EXPECT_EQ(s.m_samplingRate, 30u);
        EXPECT_EQ(p.GetSamples()[1].m_sequenceNumber, 2u);
    }
}

TEST(SFlowSample, Version2CounterTypeNineRendersUnknownRecord) {
    CSFlowPacket p = Decoded(Datagram({.version = 2}, {CounterSampleV24(1, 2, 30, 9, {})}));
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 1u);
    EXPECT_EQ(s.m_records[0].ToString(), L"Unknown record");
}

TEST(SFlowSample, Version4GenericBlockConsumesThePromiscuousModeWord) {
    CSFlowPacket p = Decoded(Datagram({.version = 4}, {CounterSampleV24(1, 2, 30, 1, {GenericCounters(1)})}));
    EXPECT_EQ(p.GetSamples()[0].m_records[0].m_genericCounters.m_ifPromiscuousMode, 22u);
}

TEST(SFlowSample, DatagramCutInTheThirdSampleKeepsTheFirstTwo) {
    Bytes data = Datagram({}, {SwitchFlowSample(1), SwitchFlowSample(2), SwitchFlowSample(3)});
    data.resize(data.size() - 6);
    CSFlowPacket p;
    EXPECT_THROW(p.Decode(data), CInvalidArgException);
    ASSERT_EQ(p.GetSize(), 2);
    EXPECT_EQ(p.GetSamples()[1].m_sequenceNumber, 2u);
}

TEST(SFlowSample, SampledIPv4RecordEndsDecodingAndKeepsEarlierSamples) {
    Bytes ipv4 =
        ByteBuilder().u32(60).u32(6).ipv4(1, 2, 3, 4).ipv4(5, 6, 7, 8).u32(1).u32(2).u32(0).u32(0).build();
    Bytes data = Datagram(
        {}, {SwitchFlowSample(1), FlowSampleV5({.sequence = 2}, {Record(3, ipv4)}), SwitchFlowSample(3)});
    CSFlowPacket p;
    EXPECT_THROW(p.Decode(data), CInvalidArgException);
    ASSERT_EQ(p.GetSize(), 1);
    EXPECT_EQ(p.GetSamples()[0].m_sequenceNumber, 1u);
}
