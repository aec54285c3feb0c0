#include <gtest/gtest.h>

#include "netflow/NetFlowPacketV5.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

const V5Header kHeader{.count = 2,
                       .sysUptime = 123456,
                       .unixSecs = 1000000000,
                       .unixNsecs = 500,
                       .flowSequence = 77,
                       .engineType = 1,
                       .engineId = 2,
                       .samplingInterval = 0x4064};

const V5Record kRecord0{.common = {.srcAddr = IPv4(10, 0, 0, 1),
                                   .dstAddr = IPv4(10, 0, 0, 2),
                                   .nextHop = IPv4(0, 0, 0, 0),
                                   .input = 1,
                                   .output = 2,
                                   .dPkts = 10,
                                   .dOctets = 840,
                                   .first = 100,
                                   .last = 200,
                                   .srcPort = 53,
                                   .dstPort = 33000},
                        .pad1 = 0xEE,
                        .tcpFlags = 0x1B,
                        .prot = 6,
                        .tos = 16,
                        .srcAS = 64512,
                        .dstAS = 65535,
                        .srcMask = 24,
                        .dstMask = 32,
                        .pad2 = 0xABCD};

const V5Record kRecord1{.common = {.srcAddr = IPv4(192, 168, 1, 1),
                                   .dstAddr = IPv4(255, 255, 255, 255),
                                   .nextHop = IPv4(192, 168, 1, 254),
                                   .input = 65535,
                                   .output = 0,
                                   .dPkts = 1,
                                   .dOctets = 76,
                                   .first = 4294967295u,
                                   .last = 0,
                                   .srcPort = 123,
                                   .dstPort = 123},
                        .tcpFlags = 0,
                        .prot = 17,
                        .tos = 255,
                        .srcAS = 0,
                        .dstAS = 1,
                        .srcMask = 0,
                        .dstMask = 8};

const wchar_t kRecord0Text[] =
    L"SrcAddr: 10.0.0.1\r\nDstAddr: 10.0.0.2\r\nNextHop: 0.0.0.0\r\nInputIf: 1\r\nOutputIf: 2\r\n"
    L"DPkts: 10\r\nDOctets: 840\r\nFirst: 100\r\nLast: 200\r\nSrcPort: 53\r\nDstPort: 33000\r\n"
    L"TcpFlags: 27\r\nProt: 6\r\nTOS: 16\r\nSrcAS: 64512\r\nDstAS: 65535\r\nSrcMask: 24\r\n"
    L"DstMask: 32";

const wchar_t kRecord1Text[] =
    L"SrcAddr: 192.168.1.1\r\nDstAddr: 255.255.255.255\r\nNextHop: 192.168.1.254\r\nInputIf: 65535\r\n"
    L"OutputIf: 0\r\nDPkts: 1\r\nDOctets: 76\r\nFirst: 4294967295\r\nLast: 0\r\nSrcPort: 123\r\nDstPort: "
    L"123\r\n"
    L"TcpFlags: 0\r\nProt: 17\r\nTOS: 255\r\nSrcAS: 0\r\nDstAS: 1\r\nSrcMask: 0\r\nDstMask: 8";

CNetFlowPacketV5 Decoded(const CByteArray& datagram) {
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    return packet;
}

} // namespace

TEST(NetFlowPacketV5, FreshHeaderHasSequenceAllOnesAndOtherwiseZeros) {
    CNetFlowPacketV5 packet;
    CNetFlowHeaderV5 header = packet.GetHeader();
    EXPECT_EQ(header.m_flowSequence, -1);
    EXPECT_EQ(header.m_version, 0);
    EXPECT_EQ(header.m_count, 0);
    EXPECT_EQ(header.m_sysUptime, 0u);
    EXPECT_EQ(header.m_unixSecs, 0u);
    EXPECT_EQ(header.m_unixNsecs, 0u);
    EXPECT_EQ(header.m_engineType, 0);
    EXPECT_EQ(header.m_engineId, 0);
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_TRUE(packet.IsEmpty());
}

TEST(NetFlowPacketV5, FreshPacketText) {
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.ToString(),
              L"NetFlow packet received from: :0\r\n"
              L"V5FlowHeader [ version = 0, count = 0, sysUptime = 0, unixSecs = 0, unixNsecs = 0, "
              L"flowSequence = -1,engineType = 0, engineId = 0 ]\r\n=====Records:=====");
}

TEST(NetFlowPacketV5, ProtocolIsNetFlowV5) {
    EXPECT_EQ(CNetFlowPacketV5().GetProtocol(), L"NetFlow v5");
}

TEST(NetFlowPacketV5, DecodeReadsEveryHeaderField) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CNetFlowHeaderV5 header = packet.GetHeader();
    EXPECT_EQ(header.m_version, 5);
    EXPECT_EQ(header.m_count, 2);
    EXPECT_EQ(header.m_sysUptime, 123456u);
    EXPECT_EQ(header.m_unixSecs, 1000000000u);
    EXPECT_EQ(header.m_unixNsecs, 500u);
    EXPECT_EQ(header.m_flowSequence, 77);
    EXPECT_EQ(header.m_engineType, 1);
    EXPECT_EQ(header.m_engineId, 2);
}

TEST(NetFlowPacketV5, DecodeReadsEveryRecordFieldInOrder) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    ASSERT_EQ(packet.GetSize(), 2);
    const CNetFlowRecordV5& r = packet.GetRecords()[0];
    EXPECT_EQ(r.m_srcAddr, IPv4(10, 0, 0, 1));
    EXPECT_EQ(r.m_dstAddr, IPv4(10, 0, 0, 2));
    EXPECT_EQ(r.m_nextHop, 0u);
    EXPECT_EQ(r.m_inputIf, 1);
    EXPECT_EQ(r.m_outputIf, 2);
    EXPECT_EQ(r.m_dPkts, 10u);
    EXPECT_EQ(r.m_dOctets, 840u);
    EXPECT_EQ(r.m_first, 100u);
    EXPECT_EQ(r.m_last, 200u);
    EXPECT_EQ(r.m_srcPort, 53);
    EXPECT_EQ(r.m_dstPort, 33000);
    EXPECT_EQ(r.m_tcpFlags, 0x1B);
    EXPECT_EQ(r.m_prot, 6);
    EXPECT_EQ(r.m_tos, 16);
    EXPECT_EQ(r.m_srcAS, 64512);
    EXPECT_EQ(r.m_dstAS, 65535);
    EXPECT_EQ(r.m_srcMask, 24);
    EXPECT_EQ(r.m_dstMask, 32);
    const CNetFlowRecordV5& r1 = packet.GetRecords()[1];
    EXPECT_EQ(r1.m_srcAddr, IPv4(192, 168, 1, 1));
    EXPECT_EQ(r1.m_first, 4294967295u);
    EXPECT_EQ(r1.m_prot, 17);
    EXPECT_EQ(r1.m_dstMask, 8);
}

TEST(NetFlowPacketV5, FullTextMatchesCharacterForCharacter) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    packet.SetSenderInfo(L"192.0.2.7", 2055);
    CString expected =
        CString(L"NetFlow packet received from: 192.0.2.7:2055\r\n"
                L"V5FlowHeader [ version = 5, count = 2, sysUptime = 123456, unixSecs = 1000000000, "
                L"unixNsecs = 500, flowSequence = 77,engineType = 1, engineId = 2 ]\r\n"
                L"=====Records:=====\r\n*****Record 0*****\r\n") +
        kRecord0Text + L"\r\n*****Record 1*****\r\n" + kRecord1Text;
    EXPECT_EQ(packet.ToString(), expected);
}

TEST(NetFlowPacketV5, RecordTextIsCommonTextFollowedByOwnFields) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    EXPECT_EQ(packet.GetRecords()[0].ToString(), kRecord0Text);
}

TEST(NetFlowPacketV5, FirstRecordInTextIsNumberedZero) {
    V5Header header = kHeader;
    header.count = 1;
    CString text = Decoded(Datagram(header, kRecord0)).ToString();
    EXPECT_NE(text.find(L"=====Records:=====\r\n*****Record 0*****\r\nSrcAddr: 10.0.0.1"), CString::npos);
    EXPECT_EQ(text.find(L"Record 1"), CString::npos);
}

TEST(NetFlowPacketV5, HeaderTextPrintsSequenceSignedAndTimesUnsigned) {
    V5Header header{.count = 0,
                    .sysUptime = 0xFFFFFFFF,
                    .unixSecs = 0x80000000,
                    .unixNsecs = 0xFFFFFFFE,
                    .flowSequence = 0xFFFFFFFE,
                    .engineType = 255,
                    .engineId = 254};
    EXPECT_EQ(Decoded(Datagram(header)).ToString(),
              L"NetFlow packet received from: :0\r\n"
              L"V5FlowHeader [ version = 5, count = 0, sysUptime = 4294967295, unixSecs = 2147483648, "
              L"unixNsecs = 4294967294, flowSequence = -2,engineType = 255, engineId = 254 "
              L"]\r\n=====Records:=====");
}

TEST(NetFlowPacketV5, HeaderOnlyDatagramWithCountZeroDecodesEmpty) {
    CByteArray datagram = Datagram(V5Header{.count = 0});
    ASSERT_EQ(datagram.size(), 24u);
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_NE(packet.IsEmpty(), 0);
    CString text = packet.ToString();
    const CString tail = L"=====Records:=====";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

TEST(NetFlowPacketV5, DatagramShorterThanHeaderReturnsZeroAndReadsNothing) {
    CByteArray datagram = Datagram(kHeader, kRecord0, kRecord1);
    datagram.resize(23);
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.GetHeader().m_version, 0);
    EXPECT_EQ(packet.GetHeader().m_flowSequence, -1);
    EXPECT_EQ(packet.GetSize(), 0);

    datagram.resize(12);
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.Decode(CByteArray{}), 0);
}

TEST(NetFlowPacketV5, RecordThatDoesNotFitFailsKeepingEarlierRecords) {
    CByteArray datagram = Datagram(kHeader, kRecord0, kRecord1);
    datagram.pop_back(); // 24 + 48 + 47 bytes
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].m_srcAddr, IPv4(10, 0, 0, 1));
    EXPECT_EQ(packet.GetHeader().m_count, 2);
    EXPECT_EQ(packet.GetHeader().m_flowSequence, 77);
}

TEST(NetFlowPacketV5, CountAboveWhatTheDatagramHoldsFailsAtTheFirstMissingRecord) {
    V5Header header = kHeader;
    header.count = 65535;
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(Datagram(header, kRecord0, kRecord1)), 0);
    EXPECT_EQ(packet.GetSize(), 2);
}

TEST(NetFlowPacketV5, BytesAfterTheCountedRecordsAreIgnored) {
    V5Header header = kHeader;
    header.count = 1;
    ByteBuilder b;
    header.AppendTo(b);
    kRecord0.AppendTo(b);
    b.bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}); // 24 + 48 + 10 bytes
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(b), 1);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].ToString(), kRecord0Text);
}

TEST(NetFlowPacketV5, ThirtyOneRecordsAreAllDecoded) {
    ByteBuilder b;
    V5Header{.count = 31}.AppendTo(b);
    for (uint32_t i = 0; i < 31; ++i)
        V5Record{.common = {.srcAddr = IPv4(10, 0, 0, static_cast<uint8_t>(i)), .dPkts = i}}.AppendTo(b);
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(b), 1);
    ASSERT_EQ(packet.GetSize(), 31);
    for (uint32_t i = 0; i < 31; ++i) {
        EXPECT_EQ(packet.GetRecords()[i].m_srcAddr, IPv4(10, 0, 0, static_cast<uint8_t>(i)));
        EXPECT_EQ(packet.GetRecords()[i].m_dPkts, i);
    }
    EXPECT_NE(packet.ToString().find(L"\r\n*****Record 30*****\r\nSrcAddr: 10.0.0.30\r\n"), CString::npos);
}

TEST(NetFlowPacketV5, SamplingIntervalBytesHaveNoEffectOnAnyOutput) {
    V5Header other = kHeader;
    other.samplingInterval = 0;
    CNetFlowPacketV5 a = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CNetFlowPacketV5 b = Decoded(Datagram(other, kRecord0, kRecord1));
    EXPECT_EQ(a.ToString(), b.ToString());
    for (int i = 0; i < 2; ++i) {
        CUIntArray idsA, idsB;
        CStringArray valuesA, valuesB;
        a.GetRecordFields(i, idsA, valuesA);
        b.GetRecordFields(i, idsB, valuesB);
        EXPECT_EQ(idsA, idsB);
        EXPECT_EQ(valuesA, valuesB);
    }
}

TEST(NetFlowPacketV5, PaddingBytesAreNotRead) {
    V5Record plain = kRecord0;
    plain.pad1 = 0;
    plain.pad2 = 0;
    V5Header header = kHeader;
    header.count = 1;
    EXPECT_EQ(Decoded(Datagram(header, plain)).ToString(), Decoded(Datagram(header, kRecord0)).ToString());
}

TEST(NetFlowPacketV5, DecodeAppendsWithoutClearing) {
    CByteArray datagram = Datagram(kHeader, kRecord0, kRecord1);
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    EXPECT_EQ(packet.Decode(datagram), 1);
    ASSERT_EQ(packet.GetSize(), 4);
    EXPECT_EQ(packet.GetRecords()[2].m_srcAddr, IPv4(10, 0, 0, 1));
}

TEST(NetFlowPacketV5, RecordFieldsListEighteenPairsInOrder) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{8, 12, 15, 10, 14, 19, 20, 22, 21, 7, 11, 6, 4, 5, 16, 17, 9, 13}));
    EXPECT_EQ(values,
              (CStringArray{L"10.0.0.1", L"10.0.0.2", L"0.0.0.0", L"1", L"2", L"10", L"840", L"100", L"200",
                            L"53", L"33000", L"27", L"TCP", L"16", L"64512", L"65535", L"24", L"32"}));
}

TEST(NetFlowPacketV5, RecordFieldsAppendAfterExistingPairsAndNameTheProtocol) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    packet.GetRecordFields(1, ids, values);
    ASSERT_EQ(ids.size(), 36u);
    ASSERT_EQ(values.size(), 36u);
    EXPECT_EQ(ids[18], 8u);
    EXPECT_EQ(values[18], L"192.168.1.1");
    EXPECT_EQ(ids[18 + 12], 4u);
    EXPECT_EQ(values[18 + 12], L"UDP");
    EXPECT_EQ(values[18 + 7], L"4294967295");
}

TEST(NetFlowPacketV5, RecordFieldsOutOfRangeThrowAndLeaveArraysUnchanged) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CUIntArray ids{1};
    CStringArray values{L"x"};
    EXPECT_THROW(packet.GetRecordFields(2, ids, values), CInvalidArgException);
    EXPECT_THROW(packet.GetRecordFields(-1, ids, values), CInvalidArgException);
    EXPECT_EQ(ids, CUIntArray{1});
    EXPECT_EQ(values, CStringArray{L"x"});
}

TEST(NetFlowPacketV5, HeaderAndRecordAccessorsCopy) {
    CNetFlowPacketV5 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CNetFlowPacketV5::CRecordArray records{CNetFlowRecordV5()};
    packet.GetRecords(records);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].m_srcAddr, IPv4(192, 168, 1, 1));

    packet.GetRecords(packet.GetRecords()); // its own array: nothing happens
    EXPECT_EQ(packet.GetSize(), 2);

    packet.GetRecords()[0].m_srcPort = 7;
    EXPECT_EQ(packet.GetRecords()[0].m_srcPort, 7);
    records.resize(1);
    packet.SetRecords(records);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].m_srcPort, 53);

    CNetFlowHeaderV5 header;
    header.m_count = 9;
    header.m_flowSequence = 5;
    packet.SetHeader(header);
    EXPECT_EQ(packet.GetHeader().m_count, 9);
    EXPECT_EQ(packet.GetHeader().m_flowSequence, 5);
}

TEST(NetFlowPacketV5, SysUpTimeUsesTheSharedUptimeText) {
    EXPECT_EQ(Decoded(Datagram(kHeader, kRecord0, kRecord1)).GetSysUpTime(), L"(123456) 0:20:34.56");
}
