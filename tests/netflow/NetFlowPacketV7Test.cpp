#include <gtest/gtest.h>

#include "netflow/NetFlowPacketV7.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

const V7Header kHeader{.count = 2,
                       .sysUptime = 17280001,
                       .unixSecs = 1600000000,
                       .unixNsecs = 7,
                       .flowSequence = 0x80000000,
                       .reserved = 0xFFFFFFFF};

const V7Record kRecord0{.common = {.srcAddr = IPv4(10, 0, 0, 1),
                                   .dstAddr = IPv4(10, 0, 0, 2),
                                   .nextHop = IPv4(10, 0, 0, 3),
                                   .input = 11,
                                   .output = 12,
                                   .dPkts = 13,
                                   .dOctets = 14,
                                   .first = 15,
                                   .last = 16,
                                   .srcPort = 17,
                                   .dstPort = 18},
                        .pad1 = 0x99,
                        .tcpFlags = 0x10,
                        .prot = 6,
                        .tos = 4,
                        .srcAS = 100,
                        .dstAS = 200,
                        .srcMask = 16,
                        .dstMask = 20,
                        .flags = 0x0102,
                        .routerSC = IPv4(10, 1, 2, 3)};

const V7Record kRecord1{.common = {.srcAddr = IPv4(8, 8, 8, 8), .dstPort = 53},
                        .prot = 17,
                        .flags = 0xFFFF,
                        .routerSC = IPv4(255, 0, 0, 0)};

const wchar_t kRecord0Text[] =
    L"SrcAddr: 10.0.0.1\r\nDstAddr: 10.0.0.2\r\nNextHop: 10.0.0.3\r\nInputIf: 11\r\nOutputIf: 12\r\nDPkts: "
    L"13\r\n"
    L"DOctets: 14\r\nFirst: 15\r\nLast: 16\r\nSrcPort: 17\r\nDstPort: 18\r\nTcpFlags: 16\r\nProt: 6\r\nTOS: "
    L"4\r\n"
    L"SrcAS: 100\r\nDstAS: 200\r\nSrcMask: 16\r\nDstMask: 20\r\nFlags: 258\r\nRouterSC: 0.0.0.10";

const wchar_t kRecord1Text[] =
    L"SrcAddr: 8.8.8.8\r\nDstAddr: 0.0.0.0\r\nNextHop: 0.0.0.0\r\nInputIf: 0\r\nOutputIf: 0\r\nDPkts: 0\r\n"
    L"DOctets: 0\r\nFirst: 0\r\nLast: 0\r\nSrcPort: 0\r\nDstPort: 53\r\nTcpFlags: 0\r\nProt: 17\r\nTOS: 0\r\n"
    L"SrcAS: 0\r\nDstAS: 0\r\nSrcMask: 0\r\nDstMask: 0\r\nFlags: 65535\r\nRouterSC: 0.0.0.255";

CNetFlowPacketV7 Decoded(const CByteArray& datagram) {
    CNetFlowPacketV7 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    return packet;
}

} // namespace

TEST(NetFlowPacketV7, FreshHeaderIsAllZeroIncludingSequence) {
    CNetFlowPacketV7 packet;
    CNetFlowHeaderV7 header = packet.GetHeader();
    EXPECT_EQ(header.m_flowSequence, 0);
    EXPECT_EQ(header.m_version, 0);
    EXPECT_EQ(header.m_count, 0);
    EXPECT_EQ(header.m_sysUptime, 0u);
    EXPECT_EQ(header.m_unixSecs, 0u);
    EXPECT_EQ(header.m_unixNsecs, 0u);
    EXPECT_EQ(packet.ToString(),
              L"NetFlow packet received from: :0\r\nV7FlowHeader [ version = 0, count = 0, "
              L"sysUptime = 0, unixSecs = 0, unixNsecs = 0, flowSequence = 0 ]\r\n"
              L"=====Records:=====");
}

TEST(NetFlowPacketV7, ProtocolIsNetFlowV7) {
    EXPECT_EQ(CNetFlowPacketV7().GetProtocol(), L"NetFlow v7");
}

TEST(NetFlowPacketV7, DecodeReadsHeaderAndRecordFields) {
    CNetFlowPacketV7 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    EXPECT_EQ(packet.GetHeader().m_version, 7);
    EXPECT_EQ(packet.GetHeader().m_count, 2);
    EXPECT_EQ(packet.GetHeader().m_flowSequence, INT32_MIN);
    ASSERT_EQ(packet.GetSize(), 2);
    const CNetFlowRecordV7& r = packet.GetRecords()[0];
    EXPECT_EQ(r.m_srcAddr, IPv4(10, 0, 0, 1));
    EXPECT_EQ(r.m_dstPort, 18);
    EXPECT_EQ(r.m_tcpFlags, 0x10);
    EXPECT_EQ(r.m_prot, 6);
    EXPECT_EQ(r.m_tos, 4);
    EXPECT_EQ(r.m_srcAS, 100);
    EXPECT_EQ(r.m_dstAS, 200);
    EXPECT_EQ(r.m_srcMask, 16);
    EXPECT_EQ(r.m_dstMask, 20);
    EXPECT_EQ(r.m_flags, 258);
    EXPECT_EQ(r.m_routerSC, 10u);
    EXPECT_EQ(packet.GetRecords()[1].m_srcAddr, IPv4(8, 8, 8, 8));
}

TEST(NetFlowPacketV7, FullTextMatchesCharacterForCharacter) {
    CNetFlowPacketV7 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    packet.SetSenderInfo(L"198.51.100.20", 65535);
    CString expected =
        CString(L"NetFlow packet received from: 198.51.100.20:65535\r\n"
                L"V7FlowHeader [ version = 7, count = 2, sysUptime = 17280001, unixSecs = 1600000000, "
                L"unixNsecs = 7, flowSequence = -2147483648 ]\r\n=====Records:=====\r\n"
                L"*****Record 0*****\r\n") +
        kRecord0Text + L"\r\n*****Record 1*****\r\n" + kRecord1Text;
    EXPECT_EQ(packet.ToString(), expected);
}

TEST(NetFlowPacketV7, RouterAddressKeepsOnlyItsFirstByte) {
    CNetFlowPacketV7 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CString text = packet.GetRecords()[0].ToString();
    EXPECT_NE(text.find(L"\r\nRouterSC: 0.0.0.10"), CString::npos) << text;
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    ASSERT_EQ(ids.size(), 20u);
    EXPECT_EQ(ids[19], 1001u);
    EXPECT_EQ(values[19], L"0.0.0.10");
}

TEST(NetFlowPacketV7, FlagsAreSixteenBitsBigEndian) {
    CNetFlowPacketV7 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    EXPECT_EQ(packet.GetRecords()[0].m_flags, 258);
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids[18], 1000u);
    EXPECT_EQ(values[18], L"258");
}

TEST(NetFlowPacketV7, RecordFieldsAreTheV5PairsThenFlagsAndRouter) {
    CNetFlowPacketV7 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids,
              (CUIntArray{8, 12, 15, 10, 14, 19, 20, 22, 21, 7, 11, 6, 4, 5, 16, 17, 9, 13, 1000, 1001}));
    EXPECT_EQ(values, (CStringArray{L"10.0.0.1", L"10.0.0.2", L"10.0.0.3", L"11", L"12",  L"13",      L"14",
                                    L"15",       L"16",       L"17",       L"18", L"16",  L"TCP",     L"4",
                                    L"100",      L"200",      L"16",       L"20", L"258", L"0.0.0.10"}));
}

TEST(NetFlowPacketV7, DatagramShorterThanHeaderReturnsZero) {
    CByteArray datagram = Datagram(kHeader);
    datagram.pop_back();
    CNetFlowPacketV7 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.GetHeader().m_version, 0);
}

TEST(NetFlowPacketV7, RecordOneByteShortReturnsZeroWithNoRecord) {
    V7Header header = kHeader;
    header.count = 1;
    CByteArray datagram = Datagram(header, kRecord0);
    datagram.pop_back(); // 24 + 51 bytes
    CNetFlowPacketV7 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.GetSize(), 0);
}

TEST(NetFlowPacketV7, MissingSecondRecordKeepsTheFirst) {
    CByteArray datagram = Datagram(kHeader, kRecord0, kRecord1);
    datagram.resize(24 + 52 + 48); // a v5-sized second record is not enough
    CNetFlowPacketV7 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].ToString(), kRecord0Text);
}

TEST(NetFlowPacketV7, CountZeroAndTrailingBytes) {
    CNetFlowPacketV7 empty = Decoded(Datagram(V7Header{.count = 0}));
    EXPECT_NE(empty.IsEmpty(), 0);
    V7Header header = kHeader;
    header.count = 1;
    CNetFlowPacketV7 one = Decoded(Datagram(header, kRecord0, kRecord1));
    EXPECT_EQ(one.GetSize(), 1);
}

TEST(NetFlowPacketV7, RecordFieldsOutOfRangeThrow) {
    CNetFlowPacketV7 packet = Decoded(Datagram(kHeader, kRecord0, kRecord1));
    CUIntArray ids;
    CStringArray values;
    EXPECT_THROW(packet.GetRecordFields(2, ids, values), CInvalidArgException);
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(values.empty());
}

TEST(NetFlowPacketV7, SysUpTimeOfTwoDays) {
    EXPECT_EQ(Decoded(Datagram(kHeader, kRecord0, kRecord1)).GetSysUpTime(),
              L"(17280001) 2 days, 0:00:00.01");
}
