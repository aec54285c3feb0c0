#include <gtest/gtest.h>

#include "netflow/NetFlowPacketV8.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

V8Header Header(uint8_t aggregation, uint16_t count) {
    return V8Header{.count = count,
                    .sysUptime = 360000,
                    .unixSecs = 1100000000,
                    .unixNsecs = 9,
                    .flowSequence = 4000,
                    .engineType = 3,
                    .engineId = 4,
                    .aggregation = aggregation,
                    .aggregationVersion = 2,
                    .reserved = 0xFFFFFFFF};
}

// The opening every text below shares, for the header above.
CString Opening(int aggregation, int count) {
    return L"NetFlow packet received from: 203.0.113.9:9996\r\nV8FlowHeader [ version = 8, count = " +
           std::to_wstring(count) +
           L", sysUptime = 360000, unixSecs = 1100000000, unixNsecs = 9, flowSequence = 4000,engineType = 3, "
           L"engineId = 4, aggregation = " +
           std::to_wstring(aggregation) + L", aggregationVersion = 2 ]\r\n=====Records:=====";
}

const V8Counters kCounters0{.flows = 2, .packets = 30, .octets = 4000, .first = 5000, .last = 6000};
const V8Counters kCounters1{
    .flows = 0xFFFFFFFF, .packets = 0x80000000, .octets = 1, .first = 0xFFFFFFFF, .last = 0};
const wchar_t kCounters0Text[] = L"Flows: 2\r\nPackets: 30\r\nOctets: 4000\r\nFirst: 5000\r\nLast: 6000";
const wchar_t kCounters1Text[] =
    L"Flows: -1\r\nPackets: -2147483648\r\nOctets: 1\r\nFirst: 4294967295\r\nLast: 0";
const CStringArray kCounters0Values{L"2", L"30", L"4000", L"5000", L"6000"};

CNetFlowPacketV8 Decoded(const CByteArray& datagram) {
    CNetFlowPacketV8 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    packet.SetSenderInfo(L"203.0.113.9", 9996);
    return packet;
}

void Fields(CNetFlowPacketV8& packet, int index, CUIntArray& ids, CStringArray& values) {
    ids.clear();
    values.clear();
    packet.GetRecordFields(index, ids, values);
}

CStringArray Join(const CStringArray& a, const CStringArray& b) {
    CStringArray all = a;
    all.insert(all.end(), b.begin(), b.end());
    return all;
}

} // namespace

TEST(NetFlowPacketV8, FreshPacketHasNoSchemeAndSizeMinusOne) {
    CNetFlowPacketV8 packet;
    CNetFlowHeaderV8 header = packet.GetHeader();
    EXPECT_EQ(header.m_flowSequence, -1);
    EXPECT_EQ(header.m_aggregation, -1);
    EXPECT_EQ(header.m_version, 0);
    EXPECT_EQ(header.m_count, 0);
    EXPECT_EQ(header.m_sysUptime, 0u);
    EXPECT_EQ(header.m_unixSecs, 0u);
    EXPECT_EQ(header.m_unixNsecs, 0u);
    EXPECT_EQ(header.m_engineType, 0);
    EXPECT_EQ(header.m_engineId, 0);
    EXPECT_EQ(header.m_aggregationVersion, 0);
    EXPECT_EQ(packet.GetSize(), -1);
    EXPECT_NE(packet.IsEmpty(), 0);
    EXPECT_EQ(packet.ToString(),
              L"NetFlow packet received from: :0\r\nV8FlowHeader [ version = 0, count = 0, "
              L"sysUptime = 0, unixSecs = 0, unixNsecs = 0, flowSequence = -1,engineType = 0, "
              L"engineId = 0, aggregation = -1, aggregationVersion = 0 ]\r\n=====Records:=====");
}

TEST(NetFlowPacketV8, ProtocolIsNetFlowV8) {
    EXPECT_EQ(CNetFlowPacketV8().GetProtocol(), L"NetFlow v8");
}

TEST(NetFlowPacketV8, DecodeReadsEveryHeaderField) {
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(2, 0)));
    CNetFlowHeaderV8 header = packet.GetHeader();
    EXPECT_EQ(header.m_version, 8);
    EXPECT_EQ(header.m_count, 0);
    EXPECT_EQ(header.m_sysUptime, 360000u);
    EXPECT_EQ(header.m_unixSecs, 1100000000u);
    EXPECT_EQ(header.m_unixNsecs, 9u);
    EXPECT_EQ(header.m_flowSequence, 4000);
    EXPECT_EQ(header.m_engineType, 3);
    EXPECT_EQ(header.m_engineId, 4);
    EXPECT_EQ(header.m_aggregation, 2);
    EXPECT_EQ(header.m_aggregationVersion, 2);
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_NE(packet.IsEmpty(), 0);
    EXPECT_EQ(packet.ToString(), Opening(2, 0));
    EXPECT_EQ(packet.GetSysUpTime(), L"(360000) 1:00:00.00");
}

TEST(NetFlowPacketV8, DatagramShorterThanHeaderReturnsZero) {
    CByteArray datagram = Datagram(Header(1, 0));
    datagram.pop_back();
    CNetFlowPacketV8 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.GetHeader().m_aggregation, -1);
    EXPECT_EQ(packet.GetSize(), -1);
}

TEST(NetFlowPacketV8, RouterASRecordsDecodeRenderAndList) {
    const V8RouterASRecord r0{
        .counters = kCounters0, .srcAS = 65001, .dstAS = 65002, .input = 7, .output = 8};
    const V8RouterASRecord r1{
        .counters = kCounters1, .srcAS = 0, .dstAS = 65535, .input = 65535, .output = 0};
    CByteArray datagram = Datagram(Header(1, 2), r0, r1);
    ASSERT_EQ(datagram.size(), 28u + 2 * 28);
    CNetFlowPacketV8 packet = Decoded(datagram);
    ASSERT_EQ(packet.GetSize(), 2);

    CNetFlowPacketV8::CRouterASArray records;
    packet.GetRecords(records);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].m_flows, 2u);
    EXPECT_EQ(records[0].m_srcAS, 65001);
    EXPECT_EQ(records[0].m_dstAS, 65002);
    EXPECT_EQ(records[0].m_inputIf, 7);
    EXPECT_EQ(records[0].m_outputIf, 8);

    EXPECT_EQ(packet.ToString(), Opening(1, 2) + L"\r\n*****Record 0*****\r\n" + kCounters0Text +
                                     L"\r\nSrcAS: 65001\r\nDstAS: 65002\r\nInput: 7\r\nOutput: 8" +
                                     L"\r\n*****Record 1*****\r\n" + kCounters1Text +
                                     L"\r\nSrcAS: 0\r\nDstAS: 65535\r\nInput: 65535\r\nOutput: 0");

    CUIntArray ids;
    CStringArray values;
    Fields(packet, 0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{3, 19, 20, 22, 21, 16, 17, 10, 14}));
    EXPECT_EQ(values, Join(kCounters0Values, {L"65001", L"65002", L"7", L"8"}));
    Fields(packet, 1, ids, values);
    EXPECT_EQ(values, (CStringArray{L"4294967295", L"2147483648", L"1", L"4294967295", L"0", L"0", L"65535",
                                    L"65535", L"0"}));
}

TEST(NetFlowPacketV8, RouterProtoPortRecordsDecodeRenderAndList) {
    const V8RouterProtoPortRecord r0{.counters = kCounters0,
                                     .prot = 6,
                                     .pad = 0xAA,
                                     .reserved = 0xBBBB,
                                     .srcPort = 8080,
                                     .dstPort = 51000};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(2, 1), r0));
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.ToString(), Opening(2, 1) + L"\r\n*****Record 0*****\r\n" + kCounters0Text +
                                     L"\r\nProt: 6\r\nSrcPort: 8080\r\nDstPort: 51000");
    CUIntArray ids;
    CStringArray values;
    Fields(packet, 0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{3, 19, 20, 22, 21, 4, 7, 11}));
    EXPECT_EQ(values, Join(kCounters0Values, {L"TCP", L"8080", L"51000"}));
}

TEST(NetFlowPacketV8, RouterSrcPrefixRecordsDecodeRenderAndList) {
    const V8RouterOnePrefixRecord r0{.counters = kCounters0,
                                     .prefix = IPv4(10, 0, 0, 0),
                                     .mask = 8,
                                     .pad = 0xFF,
                                     .as = 64600,
                                     .interfaceIndex = 3,
                                     .reserved = 0xFFFF};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(3, 1), r0));
    ASSERT_EQ(packet.GetSize(), 1);
    CNetFlowPacketV8::CRouterSrcPrefixArray records;
    packet.GetRecords(records);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].m_srcPrefix, IPv4(10, 0, 0, 0));
    EXPECT_EQ(records[0].m_srcMask, 8);
    EXPECT_EQ(records[0].m_srcAS, 64600);
    EXPECT_EQ(records[0].m_inputIf, 3);
    EXPECT_EQ(packet.ToString(), Opening(3, 1) + L"\r\n*****Record 0*****\r\n" + kCounters0Text +
                                     L"\r\nPrefix: 10.0.0.0\r\nMask: 8\r\nSrcAS: 64600\r\nInput: 3");
    CUIntArray ids;
    CStringArray values;
    Fields(packet, 0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{3, 19, 20, 22, 21, 44, 9, 16, 10}));
    EXPECT_EQ(values, Join(kCounters0Values, {L"10.0.0.0", L"8", L"64600", L"3"}));
}

TEST(NetFlowPacketV8, RouterDstPrefixRecordsShareTheLayoutButNotTheText) {
    const V8RouterOnePrefixRecord r0{
        .counters = kCounters0, .prefix = IPv4(192, 0, 2, 128), .mask = 25, .as = 3356, .interfaceIndex = 9};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(4, 1), r0));
    ASSERT_EQ(packet.GetSize(), 1);
    CNetFlowPacketV8::CRouterDstPrefixArray records;
    packet.GetRecords(records);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].m_dstPrefix, IPv4(192, 0, 2, 128));
    EXPECT_EQ(records[0].m_dstMask, 25);
    EXPECT_EQ(records[0].m_dstAS, 3356);
    EXPECT_EQ(records[0].m_outputIf, 9);
    EXPECT_EQ(packet.ToString(), Opening(4, 1) + L"\r\n*****Record 0*****\r\n" + kCounters0Text +
                                     L"\r\nPrefix: 192.0.2.128\r\nMask: 25\r\nDstAS: 3356\r\nOutput: 9");
    CUIntArray ids;
    CStringArray values;
    Fields(packet, 0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{3, 19, 20, 22, 21, 45, 13, 17, 14}));
    EXPECT_EQ(values, Join(kCounters0Values, {L"192.0.2.128", L"25", L"3356", L"9"}));
}

TEST(NetFlowPacketV8, RouterPrefixRecordsDecodeRenderAndList) {
    const V8RouterPrefixRecord r0{.counters = kCounters0,
                                  .srcPrefix = IPv4(10, 20, 0, 0),
                                  .dstPrefix = IPv4(172, 16, 32, 0),
                                  .dstMask = 20,
                                  .srcMask = 16,
                                  .reserved = 0xFFFF,
                                  .srcAS = 1,
                                  .dstAS = 2,
                                  .input = 3,
                                  .output = 4};
    const V8RouterPrefixRecord r1{.counters = kCounters1, .srcPrefix = IPv4(255, 255, 255, 255)};
    CByteArray datagram = Datagram(Header(5, 2), r0, r1);
    ASSERT_EQ(datagram.size(), 28u + 2 * 40);
    CNetFlowPacketV8 packet = Decoded(datagram);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_EQ(packet.ToString(), Opening(5, 2) + L"\r\n*****Record 0*****\r\n" + kCounters0Text +
                                     L"\r\nSrcPrefix: 10.20.0.0\r\nDstPrefix: 172.16.32.0\r\nDstMask: 20\r\n"
                                     L"SrcMask: 16\r\nSrcAS: 1\r\nDstAS: 2\r\nInput: 3\r\nOutput: 4" +
                                     L"\r\n*****Record 1*****\r\n" + kCounters1Text +
                                     L"\r\nSrcPrefix: 255.255.255.255\r\nDstPrefix: 0.0.0.0\r\nDstMask: 0\r\n"
                                     L"SrcMask: 0\r\nSrcAS: 0\r\nDstAS: 0\r\nInput: 0\r\nOutput: 0");
    CUIntArray ids;
    CStringArray values;
    Fields(packet, 0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{3, 19, 20, 22, 21, 44, 45, 13, 9, 16, 17, 10, 14}));
    EXPECT_EQ(values,
              Join(kCounters0Values, {L"10.20.0.0", L"172.16.32.0", L"20", L"16", L"1", L"2", L"3", L"4"}));
}

TEST(NetFlowPacketV8, OnlyTheSchemesArrayHoldsRecords) {
    const V8RouterPrefixRecord r0{.counters = kCounters0};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(5, 1), r0));
    CNetFlowPacketV8::CRouterASArray as;
    CNetFlowPacketV8::CRouterProtoPortArray protoPort;
    CNetFlowPacketV8::CRouterSrcPrefixArray srcPrefix;
    CNetFlowPacketV8::CRouterDstPrefixArray dstPrefix;
    CNetFlowPacketV8::CRouterPrefixArray prefix;
    packet.GetRecords(as);
    packet.GetRecords(protoPort);
    packet.GetRecords(srcPrefix);
    packet.GetRecords(dstPrefix);
    packet.GetRecords(prefix);
    EXPECT_TRUE(as.empty());
    EXPECT_TRUE(protoPort.empty());
    EXPECT_TRUE(srcPrefix.empty());
    EXPECT_TRUE(dstPrefix.empty());
    EXPECT_EQ(prefix.size(), 1u);
}

TEST(NetFlowPacketV8, SourcePrefixRecordOneByteShortFailsKeepingTheFirst) {
    const V8RouterOnePrefixRecord r0{.counters = kCounters0, .prefix = IPv4(10, 0, 0, 0), .mask = 8};
    const V8RouterOnePrefixRecord r1{.counters = kCounters1};
    CByteArray datagram = Datagram(Header(3, 2), r0, r1);
    ASSERT_EQ(datagram.size(), 28u + 64);
    datagram.pop_back(); // 28 + 63 bytes
    CNetFlowPacketV8 packet;
    packet.SetSenderInfo(L"203.0.113.9", 9996);
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.IsEmpty(), 0);
}

TEST(NetFlowPacketV8, TextOfPacketHoldingFewerRecordsThanCountedThrows) {
    const V8RouterASRecord r0{.counters = kCounters0};
    CByteArray datagram = Datagram(Header(1, 3), r0, r0);
    CNetFlowPacketV8 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_THROW(packet.ToString(), CInvalidArgException);
}

TEST(NetFlowPacketV8, TextRunsOverTheHeaderCountNotTheStoredRecords) {
    const V8RouterASRecord r0{.counters = kCounters0, .srcAS = 1};
    const V8RouterASRecord r1{.counters = kCounters0, .srcAS = 2};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(1, 2), r0, r1));
    CNetFlowHeaderV8 header = packet.GetHeader();
    header.m_count = 1;
    packet.SetHeader(header);
    CString text = packet.ToString();
    EXPECT_NE(text.find(L"SrcAS: 1"), CString::npos);
    EXPECT_EQ(text.find(L"Record 1"), CString::npos);
    EXPECT_EQ(packet.GetSize(), 2);
}

TEST(NetFlowPacketV8, UnknownSchemeDecodesToHeadingsOnly) {
    // Count 3 with no record bytes at all: an unknown scheme reads nothing after the header.
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(6, 3)));
    EXPECT_EQ(packet.GetHeader().m_aggregation, 6);
    EXPECT_EQ(packet.GetSize(), -1);
    EXPECT_NE(packet.IsEmpty(), 0);
    EXPECT_EQ(packet.ToString(),
              Opening(6, 3) +
                  L"\r\n*****Record 0*****\r\n\r\n*****Record 1*****\r\n\r\n*****Record 2*****\r\n");

    CUIntArray ids{5};
    CStringArray values{L"v"};
    EXPECT_NO_THROW(packet.GetRecordFields(0, ids, values));
    EXPECT_NO_THROW(packet.GetRecordFields(-7, ids, values));
    EXPECT_EQ(ids, CUIntArray{5});
    EXPECT_EQ(values, CStringArray{L"v"});
}

TEST(NetFlowPacketV8, SchemeZeroIsUnknownToo) {
    const V8RouterASRecord r0{.counters = kCounters0};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(0, 1), r0));
    EXPECT_EQ(packet.GetSize(), -1);
    CNetFlowPacketV8::CRouterASArray as;
    packet.GetRecords(as);
    EXPECT_TRUE(as.empty());
}

TEST(NetFlowPacketV8, CountZeroDecodesToAnEmptyArray) {
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(1, 0)));
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_NE(packet.IsEmpty(), 0);
}

TEST(NetFlowPacketV8, BytesAfterTheCountedRecordsAreIgnored) {
    const V8RouterProtoPortRecord r0{.counters = kCounters0, .prot = 17};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(2, 1), r0, r0, r0));
    EXPECT_EQ(packet.GetSize(), 1);
}

TEST(NetFlowPacketV8, RecordFieldsOutOfRangeThrowAndLeaveArraysUnchanged) {
    const V8RouterASRecord r0{.counters = kCounters0};
    CNetFlowPacketV8 packet = Decoded(Datagram(Header(1, 1), r0));
    CUIntArray ids;
    CStringArray values;
    EXPECT_THROW(packet.GetRecordFields(1, ids, values), CInvalidArgException);
    EXPECT_THROW(packet.GetRecordFields(-1, ids, values), CInvalidArgException);
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(values.empty());
}

TEST(NetFlowPacketV8, SetRecordsAndSchemeSelectTheArrayInUse) {
    CNetFlowPacketV8 packet;
    CNetFlowPacketV8::CRouterProtoPortArray protoPort(3);
    packet.SetRecords(protoPort);
    EXPECT_EQ(packet.GetSize(), -1);
    CNetFlowHeaderV8 header;
    header.m_aggregation = 2;
    header.m_count = 3;
    packet.SetHeader(header);
    EXPECT_EQ(packet.GetSize(), 3);
    EXPECT_EQ(packet.IsEmpty(), 0);
    header.m_aggregation = 1;
    packet.SetHeader(header);
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_NE(packet.IsEmpty(), 0);

    CNetFlowPacketV8::CRouterProtoPortArray out(1);
    packet.GetRecords(out);
    EXPECT_EQ(out.size(), 3u);
}

TEST(NetFlowPacketV8, DecodeAppendsWithoutClearing) {
    const V8RouterASRecord r0{.counters = kCounters0};
    CByteArray datagram = Datagram(Header(1, 1), r0);
    CNetFlowPacketV8 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    EXPECT_EQ(packet.Decode(datagram), 1);
    EXPECT_EQ(packet.GetSize(), 2);
}
