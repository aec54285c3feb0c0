#include <gtest/gtest.h>

#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

const V1Header kHeader{.count = 2, .sysUptime = 8640000, .unixSecs = 1234567890, .unixNsecs = 42};

const V1Record kRecord0{.common = {.srcAddr = IPv4(10, 9, 8, 7),
                                   .dstAddr = IPv4(1, 2, 3, 4),
                                   .nextHop = IPv4(10, 9, 8, 1),
                                   .input = 4,
                                   .output = 5,
                                   .dPkts = 3,
                                   .dOctets = 180,
                                   .first = 1000,
                                   .last = 2000,
                                   .srcPort = 0,
                                   .dstPort = 2048},
                        .pad1 = 0xFFFF,
                        .prot = 1,
                        .tos = 0xC0,
                        .tcpFlags = 0x12,
                        .pad2 = 0xFF,
                        .pad3 = 0xFFFF,
                        .reserved = 0xFFFFFFFF};

const V1Record kRecord1{.common = {.srcAddr = IPv4(172, 31, 255, 255), .dPkts = 0xFFFFFFFF, .dstPort = 80},
                        .prot = 6,
                        .tos = 0,
                        .tcpFlags = 0x02};

const wchar_t kRecord0Text[] =
    L"SrcAddr: 10.9.8.7\r\nDstAddr: 1.2.3.4\r\nNextHop: 10.9.8.1\r\nInputIf: 4\r\nOutputIf: 5\r\n"
    L"DPkts: 3\r\nDOctets: 180\r\nFirst: 1000\r\nLast: 2000\r\nSrcPort: 0\r\nDstPort: 2048\r\n"
    L"TcpFlags: 18\r\nProt: 1\r\nTOS: 192";

const wchar_t kRecord1Text[] =
    L"SrcAddr: 172.31.255.255\r\nDstAddr: 0.0.0.0\r\nNextHop: 0.0.0.0\r\nInputIf: 0\r\n"
    L"OutputIf: 0\r\nDPkts: -1\r\nDOctets: 0\r\nFirst: 0\r\nLast: 0\r\nSrcPort: 0\r\n"
    L"DstPort: 80\r\nTcpFlags: 2\r\nProt: 6\r\nTOS: 0";

} // namespace

TEST(NetFlowPacketV1, FreshHeaderIsAllZero) {
    CNetFlowPacketV1 packet;
    CNetFlowHeaderV1 header = packet.GetHeader();
    EXPECT_EQ(header.m_version, 0);
    EXPECT_EQ(header.m_count, 0);
    EXPECT_EQ(header.m_sysUptime, 0u);
    EXPECT_EQ(header.m_unixSecs, 0u);
    EXPECT_EQ(header.m_unixNsecs, 0u);
    EXPECT_EQ(packet.ToString(),
              L"NetFlow packet received from: :0\r\nV1FlowHeader [ version = 0, count = 0, "
              L"sysUptime = 0, unixSecs = 0, unixNsecs = 0 ]\r\n=====Records:=====");
}

TEST(NetFlowPacketV1, ProtocolIsNetFlowV1) {
    EXPECT_EQ(CNetFlowPacketV1().GetProtocol(), L"NetFlow v1");
}

TEST(NetFlowPacketV1, DecodeReadsHeaderAndRecordsAfterSixteenBytes) {
    CNetFlowPacketV1 packet;
    ASSERT_EQ(packet.Decode(Datagram(kHeader, kRecord0, kRecord1)), 1);
    EXPECT_EQ(packet.GetHeader().m_version, 1);
    EXPECT_EQ(packet.GetHeader().m_count, 2);
    EXPECT_EQ(packet.GetHeader().m_sysUptime, 8640000u);
    EXPECT_EQ(packet.GetHeader().m_unixSecs, 1234567890u);
    EXPECT_EQ(packet.GetHeader().m_unixNsecs, 42u);
    ASSERT_EQ(packet.GetSize(), 2);
    const CNetFlowRecordV1& r = packet.GetRecords()[0];
    EXPECT_EQ(r.m_srcAddr, IPv4(10, 9, 8, 7));
    EXPECT_EQ(r.m_dstPort, 2048);
    EXPECT_EQ(r.m_prot, 1);
    EXPECT_EQ(r.m_tos, 0xC0);
    EXPECT_EQ(r.m_tcpFlags, 0x12);
    EXPECT_EQ(packet.GetRecords()[1].m_srcAddr, IPv4(172, 31, 255, 255));
}

TEST(NetFlowPacketV1, FullTextMatchesCharacterForCharacter) {
    CNetFlowPacketV1 packet;
    ASSERT_EQ(packet.Decode(Datagram(kHeader, kRecord0, kRecord1)), 1);
    packet.SetSenderInfo(L"10.0.0.254", 9995);
    CString expected =
        CString(L"NetFlow packet received from: 10.0.0.254:9995\r\n"
                L"V1FlowHeader [ version = 1, count = 2, sysUptime = 8640000, unixSecs = 1234567890, "
                L"unixNsecs = 42 ]\r\n=====Records:=====\r\n*****Record 0*****\r\n") +
        kRecord0Text + L"\r\n*****Record 1*****\r\n" + kRecord1Text;
    EXPECT_EQ(packet.ToString(), expected);
}

TEST(NetFlowPacketV1, RecordTextShowsFlagsBeforeProtocolAndTos) {
    CNetFlowPacketV1 packet;
    ASSERT_EQ(packet.Decode(Datagram(kHeader, kRecord0, kRecord1)), 1);
    EXPECT_EQ(packet.GetRecords()[0].ToString(), kRecord0Text);
}

TEST(NetFlowPacketV1, HeaderOnlyDatagramWithCountZeroDecodesEmpty) {
    CByteArray datagram = Datagram(V1Header{.count = 0});
    ASSERT_EQ(datagram.size(), 16u);
    CNetFlowPacketV1 packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_NE(packet.IsEmpty(), 0);
}

TEST(NetFlowPacketV1, ShortDatagramThrowsWhereVersion5ReturnsZero) {
    CByteArray datagram = Datagram(kHeader);
    datagram.resize(12);
    CNetFlowPacketV1 v1;
    EXPECT_THROW(v1.Decode(datagram), CInvalidArgException);
    CNetFlowPacketV5 v5;
    EXPECT_EQ(v5.Decode(datagram), 0);

    datagram.resize(15);
    EXPECT_THROW(v1.Decode(datagram), CInvalidArgException);
    EXPECT_THROW(v1.Decode(CByteArray{}), CInvalidArgException);
}

TEST(NetFlowPacketV1, RecordOneByteShortReturnsZeroWithNoRecord) {
    V1Header header = kHeader;
    header.count = 1;
    CByteArray datagram = Datagram(header, kRecord0);
    datagram.pop_back(); // 16 + 47 bytes
    CNetFlowPacketV1 packet;
    EXPECT_EQ(packet.Decode(datagram), 0);
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_EQ(packet.GetHeader().m_count, 1);
}

TEST(NetFlowPacketV1, SecondRecordMissingReturnsZeroKeepingTheFirst) {
    CNetFlowPacketV1 packet;
    EXPECT_EQ(packet.Decode(Datagram(kHeader, kRecord0)), 0);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].m_srcAddr, IPv4(10, 9, 8, 7));
}

TEST(NetFlowPacketV1, BytesAfterTheCountedRecordsAreIgnored) {
    V1Header header = kHeader;
    header.count = 1;
    CNetFlowPacketV1 packet;
    EXPECT_EQ(packet.Decode(Datagram(header, kRecord0, kRecord1)), 1);
    EXPECT_EQ(packet.GetSize(), 1);
}

TEST(NetFlowPacketV1, RecordFieldsListFourteenPairsInOrder) {
    CNetFlowPacketV1 packet;
    ASSERT_EQ(packet.Decode(Datagram(kHeader, kRecord0, kRecord1)), 1);
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{8, 12, 15, 10, 14, 19, 20, 22, 21, 7, 11, 6, 4, 5}));
    EXPECT_EQ(values, (CStringArray{L"10.9.8.7", L"1.2.3.4", L"10.9.8.1", L"4", L"5", L"3", L"180", L"1000",
                                    L"2000", L"0", L"2048", L"18", L"ICMP", L"192"}));

    packet.GetRecordFields(1, ids, values);
    ASSERT_EQ(values.size(), 28u);
    EXPECT_EQ(values[14 + 5], L"4294967295");
    EXPECT_EQ(values[14 + 12], L"TCP");
}

TEST(NetFlowPacketV1, RecordFieldsOutOfRangeThrowAndLeaveArraysUnchanged) {
    CNetFlowPacketV1 packet;
    ASSERT_EQ(packet.Decode(Datagram(kHeader, kRecord0, kRecord1)), 1);
    CUIntArray ids;
    CStringArray values;
    EXPECT_THROW(packet.GetRecordFields(2, ids, values), CInvalidArgException);
    EXPECT_THROW(packet.GetRecordFields(-1, ids, values), CInvalidArgException);
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(values.empty());
}

TEST(NetFlowPacketV1, SysUpTimeOfOneDay) {
    CNetFlowPacketV1 packet;
    ASSERT_EQ(packet.Decode(Datagram(kHeader, kRecord0, kRecord1)), 1);
    EXPECT_EQ(packet.GetSysUpTime(), L"(8640000) 1 day 0:00:00.00");
}
