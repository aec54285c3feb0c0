#include <gtest/gtest.h>

#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::V9FieldSpecifier;

namespace {

// Template 260: one field of each rendering kind, an 8-byte counter and a type the catalogue lacks.
const std::vector<V9FieldSpecifier> kMixedFields = {
    {8, 4},  // IPV4_SRC_ADDR
    {12, 4}, // IPV4_DST_ADDR
    {7, 2},  // L4_SRC_PORT
    {11, 2}, // L4_DST_PORT
    {4, 1},  // PROT
    {1, 8},  // IN_BYTES
    {2, 4},  // IN_PKTS
    {56, 6}, // IN_SRC_MAC
    {95, 2}, // not in the catalogue
    {82, 5}, // IF_NAME
};

CNetFlowPacketV9 MixedPacket() {
    ByteBuilder records;
    records.ipv4(10, 1, 2, 3)
        .ipv4(192, 168, 0, 9)
        .u16(1024)
        .u16(53)
        .u8(0x11)
        .u64(1532)
        .u32(0xFFFFFFFF)
        .bytes({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF})
        .bytes({0x01, 0x02})
        .text("FE1/0");
    records.ipv4(172, 16, 5, 4)
        .ipv4(8, 8, 8, 8)
        .u16(50000)
        .u16(443)
        .u8(6)
        .u64(0x100000000ull)
        .u32(12)
        .bytes({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E})
        .bytes({0xFF, 0x00})
        .text("Gi0/1");
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram({.count = 2,
                                     .sysUptime = 123456,
                                     .unixSecs = 1700000000,
                                     .packageSequence = 0x80000001,
                                     .sourceId = 0xFFFFFFFF})
                      .Template(260, kMixedFields)
                      .Data(260, records));
    packet.SetSenderInfo(L"10.0.0.254", 2055);
    return packet;
}

} // namespace

class V9Text : public EmptyTemplateStore {};

TEST_F(V9Text, WholePacketRendersCharacterForCharacter) {
    CNetFlowPacketV9 packet = MixedPacket();
    ASSERT_EQ(packet.GetSize(), 2);
    const CString expected =
        L"NetFlow packet received from: 10.0.0.254:2055\r\n"
        L"V9FlowHeader [ version = 9, flowSets = 2, sysUptime = 123456, unixSecs = 1700000000, "
        L"packageSequence = -2147483647, sourceID = -1 ]"
        L"\r\n=====Records:====="
        L"\r\n*****Record 0*****\r\n"
        L"IPV4_SRC_ADDR=10.1.2.3\r\n"
        L"IPV4_DST_ADDR=192.168.0.9\r\n"
        L"L4_SRC_PORT=1024\r\n"
        L"L4_DST_PORT=53\r\n"
        L"PROT=17\r\n"
        L"IN_BYTES=00000000000005FC\r\n"
        L"IN_PKTS=-1\r\n"
        L"IN_SRC_MAC=AA:BB:CC:DD:EE:FF\r\n"
        L"UNKNOWN(95)=1 2 \r\n"
        L"IF_NAME=FE1/0\r\n"
        L"\r\n*****Record 1*****\r\n"
        L"IPV4_SRC_ADDR=172.16.5.4\r\n"
        L"IPV4_DST_ADDR=8.8.8.8\r\n"
        L"L4_SRC_PORT=50000\r\n"
        L"L4_DST_PORT=443\r\n"
        L"PROT=6\r\n"
        L"IN_BYTES=0000000100000000\r\n"
        L"IN_PKTS=12\r\n"
        L"IN_SRC_MAC=00:1A:2B:3C:4D:5E\r\n"
        L"UNKNOWN(95)=255 0 \r\n"
        L"IF_NAME=Gi0/1\r\n";
    EXPECT_EQ(packet.ToString(), expected);
}

TEST_F(V9Text, PacketWithoutRecordsEndsAfterTheRecordsBanner) {
    CNetFlowPacketV9 packet;
    packet.Decode(
        NetFlowV9Datagram({.count = 0, .sysUptime = 1, .unixSecs = 2, .packageSequence = 3, .sourceId = 4}));
    EXPECT_EQ(packet.ToString(), L"NetFlow packet received from: :0\r\n"
                                 L"V9FlowHeader [ version = 9, flowSets = 0, sysUptime = 1, unixSecs = 2, "
                                 L"packageSequence = 3, sourceID = 4 ]\r\n=====Records:=====");
}

TEST_F(V9Text, UptimeAndSecondsPrintUnsignedWhileSequenceAndSourcePrintSigned) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram({.count = 65535,
                                     .sysUptime = 0xFFFFFFF0,
                                     .unixSecs = 4000000000u,
                                     .packageSequence = 0xFFFFFFFE,
                                     .sourceId = 0x80000000}));
    packet.SetSenderInfo(L"192.0.2.1", 65535);
    EXPECT_EQ(packet.ToString(), L"NetFlow packet received from: 192.0.2.1:65535\r\n"
                                 L"V9FlowHeader [ version = 9, flowSets = 65535, sysUptime = 4294967280, "
                                 L"unixSecs = 4000000000, packageSequence = -2, sourceID = -2147483648 ]"
                                 L"\r\n=====Records:=====");
}

TEST_F(V9Text, RecordTextIsEachFieldWithLineEndAndEmptyForNoFields) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram()
                      .Template(265, {{8, 4}, {11, 2}})
                      .Data(265, ByteBuilder().ipv4(1, 2, 3, 4).u16(22)));
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].ToString(), L"IPV4_SRC_ADDR=1.2.3.4\r\nL4_DST_PORT=22\r\n");
    EXPECT_EQ(CNetFlowSetRecord().ToString(), L"");
}

TEST_F(V9Text, RecordFieldsListTypeNumbersAndValueTextsWithProtocolName) {
    CNetFlowPacketV9 packet = MixedPacket();
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{8, 12, 7, 11, 4, 1, 2, 56, 95, 82}));
    EXPECT_EQ(values, (CStringArray{L"10.1.2.3", L"192.168.0.9", L"1024", L"53", L"UDP", L"00000000000005FC",
                                    L"-1", L"AA:BB:CC:DD:EE:FF", L"1 2 ", L"FE1/0"}));
    packet.GetRecordFields(1, ids, values);
    EXPECT_EQ(values[4], L"TCP");
    EXPECT_EQ(values[8], L"255 0 ");
}

TEST_F(V9Text, ProtocolByte0x11IsUdpInFieldsAnd17InText) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(261, {{4, 1}}).Data(261, ByteBuilder().u8(0x11).u8(0).u16(0)));
    ASSERT_EQ(packet.GetSize(), 1);
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{4}));
    EXPECT_EQ(values, (CStringArray{L"UDP"}));
    EXPECT_NE(packet.ToString().find(L"\r\nPROT=17\r\n"), CString::npos);
    EXPECT_EQ(packet.GetRecords()[0].GetField(0).GetValue(), L"17");
}

TEST_F(V9Text, ProtocolNameComesFromTheLeadingNumberOfTheValueText) {
    // PROT of other lengths: 2 bytes "6"; 3 bytes render as hexadecimal "00001A" whose leading digits are
    // 00001; 4 bytes FF FF FF FF render "-1", outside the table; 200 is unassigned.
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram()
                      .Template(262, {{4, 2}, {4, 3}, {4, 4}, {4, 1}, {4, 0}})
                      .Data(262, ByteBuilder().u16(6).bytes({0x00, 0x00, 0x1A}).u32(0xFFFFFFFF).u8(200)));
    ASSERT_EQ(packet.GetSize(), 1);
    CUIntArray ids;
    CStringArray values;
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(values, (CStringArray{L"TCP", L"ICMP", L"Undefined", L"Unassigned", L"HOPOPT"}));
}

TEST_F(V9Text, RecordFieldsOverwriteWhatTheArraysHeld) {
    CNetFlowPacketV9 packet;
    packet.Decode(
        NetFlowV9Datagram().Template(263, {{7, 2}, {11, 2}}).Data(263, ByteBuilder().u16(80).u16(8080)));
    CUIntArray ids = {1, 2, 3};
    CStringArray values = {L"a", L"b", L"c"};
    packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids, (CUIntArray{7, 11}));
    EXPECT_EQ(values, (CStringArray{L"80", L"8080"}));
}

TEST_F(V9Text, RecordFieldsOfIndexEqualToSizeOrNegativeThrowAndLeaveArraysAlone) {
    CNetFlowPacketV9 packet = MixedPacket();
    CUIntArray ids = {7};
    CStringArray values = {L"x"};
    EXPECT_THROW(packet.GetRecordFields(static_cast<int>(packet.GetSize()), ids, values),
                 CInvalidArgException);
    EXPECT_THROW(packet.GetRecordFields(-1, ids, values), CInvalidArgException);
    EXPECT_EQ(ids, (CUIntArray{7}));
    EXPECT_EQ(values, (CStringArray{L"x"}));
    CNetFlowPacketV9 empty;
    EXPECT_THROW(empty.GetRecordFields(0, ids, values), CInvalidArgException);
}

TEST_F(V9Text, ScopeFieldsOfOptionsRecordsRenderLikeAnyField) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram()
                      .OptionsTemplate(264, {{1, 4}}, {{34, 4}, {35, 1}})
                      .Data(264, ByteBuilder().u32(0x0A000001).u32(100).u8(2), 3));
    packet.SetSenderInfo(L"10.0.0.1", 9);
    EXPECT_EQ(packet.ToString(), L"NetFlow packet received from: 10.0.0.1:9\r\n"
                                 L"V9FlowHeader [ version = 9, flowSets = 0, sysUptime = 0, unixSecs = 0, "
                                 L"packageSequence = 0, sourceID = 0 ]"
                                 L"\r\n=====Records:====="
                                 L"\r\n*****Record 0*****\r\n"
                                 L"IN_BYTES=167772161\r\n"
                                 L"SAMPLING_INTERVAL=100\r\n"
                                 L"SAMPLING_ALGORITHM=2\r\n");
}
