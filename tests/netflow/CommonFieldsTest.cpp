#include <gtest/gtest.h>

#include "netflow/NetFlowHeaderCommonFields.h"
#include "netflow/NetFlowRecordCommonFields.h"
#include "netflow/NetFlowRecordCommonFieldsV8.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

const CommonRecordBlock kBlock{.srcAddr = IPv4(10, 1, 2, 3),
                               .dstAddr = IPv4(192, 168, 0, 254),
                               .nextHop = IPv4(172, 16, 0, 1),
                               .input = 3,
                               .output = 65535,
                               .dPkts = 12,
                               .dOctets = 3456,
                               .first = 4000000000u,
                               .last = 4000000100u,
                               .srcPort = 1024,
                               .dstPort = 443};

const wchar_t kBlockText[] =
    L"SrcAddr: 10.1.2.3\r\nDstAddr: 192.168.0.254\r\nNextHop: 172.16.0.1\r\nInputIf: 3\r\n"
    L"OutputIf: 65535\r\nDPkts: 12\r\nDOctets: 3456\r\nFirst: 4000000000\r\n"
    L"Last: 4000000100\r\nSrcPort: 1024\r\nDstPort: 443";

} // namespace

TEST(NetFlowHeaderCommonFields, FreshHeaderIsAllZero) {
    CNetFlowHeaderCommonFields header;
    EXPECT_EQ(header.m_version, 0);
    EXPECT_EQ(header.m_count, 0);
    EXPECT_EQ(header.m_sysUptime, 0u);
    EXPECT_EQ(header.m_unixSecs, 0u);
    EXPECT_EQ(header.m_unixNsecs, 0u);
}

TEST(NetFlowHeaderCommonFields, DecodeReadsTheFiveWordsBigEndian) {
    CNetFlowHeaderCommonFields header;
    ByteBuilder b;
    b.u16(5).u16(0xFFFF).u32(0xFFFFFFFE).u32(0x80000001).u32(999999999);
    EXPECT_EQ(header.Decode(b), 1);
    EXPECT_EQ(header.m_version, 5);
    EXPECT_EQ(header.m_count, 65535);
    EXPECT_EQ(header.m_sysUptime, 0xFFFFFFFEu);
    EXPECT_EQ(header.m_unixSecs, 0x80000001u);
    EXPECT_EQ(header.m_unixNsecs, 999999999u);
}

TEST(NetFlowHeaderCommonFields, VersionNineLeavesNanosecondsUnchanged) {
    CNetFlowHeaderCommonFields header;
    ByteBuilder b;
    b.u16(9).u16(2).u32(100).u32(200).u32(0x12345678);
    header.Decode(b);
    EXPECT_EQ(header.m_version, 9);
    EXPECT_EQ(header.m_unixSecs, 200u);
    EXPECT_EQ(header.m_unixNsecs, 0u);

    header.m_unixNsecs = 42;
    header.Decode(b);
    EXPECT_EQ(header.m_unixNsecs, 42u);
}

TEST(NetFlowHeaderCommonFields, DecodeOfShortDatagramThrows) {
    CNetFlowHeaderCommonFields header;
    ByteBuilder b;
    b.u16(5).u16(1).u32(1).u32(1).u16(0); // 14 of 16 bytes
    EXPECT_THROW(header.Decode(b), CInvalidArgException);
}

TEST(NetFlowRecordCommonFields, FreshRecordIsAllZero) {
    CNetFlowRecordCommonFields record;
    EXPECT_EQ(record.m_srcAddr, 0u);
    EXPECT_EQ(record.m_dstAddr, 0u);
    EXPECT_EQ(record.m_nextHop, 0u);
    EXPECT_EQ(record.m_inputIf, 0);
    EXPECT_EQ(record.m_outputIf, 0);
    EXPECT_EQ(record.m_dPkts, 0u);
    EXPECT_EQ(record.m_dOctets, 0u);
    EXPECT_EQ(record.m_first, 0u);
    EXPECT_EQ(record.m_last, 0u);
    EXPECT_EQ(record.m_srcPort, 0);
    EXPECT_EQ(record.m_dstPort, 0);
}

TEST(NetFlowRecordCommonFields, DecodeReadsAtTheGivenOffset) {
    ByteBuilder b;
    b.zeros(5);
    kBlock.AppendTo(b);
    CNetFlowRecordCommonFields record;
    record.Decode(b, 5);
    EXPECT_EQ(record.m_srcAddr, IPv4(10, 1, 2, 3));
    EXPECT_EQ(record.m_dstAddr, IPv4(192, 168, 0, 254));
    EXPECT_EQ(record.m_nextHop, IPv4(172, 16, 0, 1));
    EXPECT_EQ(record.m_inputIf, 3);
    EXPECT_EQ(record.m_outputIf, 65535);
    EXPECT_EQ(record.m_dPkts, 12u);
    EXPECT_EQ(record.m_dOctets, 3456u);
    EXPECT_EQ(record.m_first, 4000000000u);
    EXPECT_EQ(record.m_last, 4000000100u);
    EXPECT_EQ(record.m_srcPort, 1024);
    EXPECT_EQ(record.m_dstPort, 443);
}

TEST(NetFlowRecordCommonFields, DecodePastTheEndThrows) {
    ByteBuilder b;
    kBlock.AppendTo(b);
    CNetFlowRecordCommonFields record;
    EXPECT_THROW(record.Decode(b, 1), CInvalidArgException);
}

TEST(NetFlowRecordCommonFields, TextHasNoLeadingOrTrailingLineEnd) {
    CNetFlowRecordCommonFields record;
    record.Decode(Datagram(kBlock), 0);
    EXPECT_EQ(record.ToString(), kBlockText);
}

TEST(NetFlowRecordCommonFields, CountersWithBit31PrintNegativeInTextButUnsignedInFields) {
    CNetFlowRecordCommonFields record;
    record.m_dPkts = 0x80000000u;
    record.m_dOctets = 0xFFFFFFFFu;
    CString text = record.ToString();
    EXPECT_NE(text.find(L"\r\nDPkts: -2147483648\r\n"), CString::npos) << text;
    EXPECT_NE(text.find(L"\r\nDOctets: -1\r\n"), CString::npos) << text;

    CUIntArray ids;
    CStringArray values;
    record.GetRecordFields(ids, values);
    ASSERT_EQ(ids.size(), 11u);
    EXPECT_EQ(ids[5], 19u);
    EXPECT_EQ(values[5], L"2147483648");
    EXPECT_EQ(ids[6], 20u);
    EXPECT_EQ(values[6], L"4294967295");
}

TEST(NetFlowRecordCommonFields, FieldsComeInIdentifierOrderWithTheirTexts) {
    CNetFlowRecordCommonFields record;
    record.Decode(Datagram(kBlock), 0);
    CUIntArray ids;
    CStringArray values;
    record.GetRecordFields(ids, values);
    EXPECT_EQ(ids, (CUIntArray{8, 12, 15, 10, 14, 19, 20, 22, 21, 7, 11}));
    EXPECT_EQ(values, (CStringArray{L"10.1.2.3", L"192.168.0.254", L"172.16.0.1", L"3", L"65535", L"12",
                                    L"3456", L"4000000000", L"4000000100", L"1024", L"443"}));
}

TEST(NetFlowRecordCommonFields, FieldsAppendAfterExistingPairs) {
    CNetFlowRecordCommonFields record;
    CUIntArray ids{99, 98};
    CStringArray values{L"a", L"b"};
    record.GetRecordFields(ids, values);
    ASSERT_EQ(ids.size(), 13u);
    ASSERT_EQ(values.size(), 13u);
    EXPECT_EQ(ids[0], 99u);
    EXPECT_EQ(ids[1], 98u);
    EXPECT_EQ(values[0], L"a");
    EXPECT_EQ(values[1], L"b");
    EXPECT_EQ(ids[2], 8u);
    EXPECT_EQ(values[2], L"0.0.0.0");
}

TEST(NetFlowRecordCommonFieldsV8, DecodeTextAndFields) {
    ByteBuilder b;
    b.zeros(3);
    V8Counters{.flows = 7, .packets = 0x80000000u, .octets = 1500, .first = 4294967295u, .last = 5}.AppendTo(
        b);
    CNetFlowRecordCommonFieldsV8 record;
    record.Decode(b, 3);
    EXPECT_EQ(record.m_flows, 7u);
    EXPECT_EQ(record.m_packets, 0x80000000u);
    EXPECT_EQ(record.m_octets, 1500u);
    EXPECT_EQ(record.m_first, 4294967295u);
    EXPECT_EQ(record.m_last, 5u);
    EXPECT_EQ(record.ToString(),
              L"Flows: 7\r\nPackets: -2147483648\r\nOctets: 1500\r\nFirst: 4294967295\r\nLast: 5");

    CUIntArray ids{1};
    CStringArray values{L"x"};
    record.GetRecordFields(ids, values);
    EXPECT_EQ(ids, (CUIntArray{1, 3, 19, 20, 22, 21}));
    EXPECT_EQ(values, (CStringArray{L"x", L"7", L"2147483648", L"1500", L"4294967295", L"5"}));
}

TEST(NetFlowRecordCommonFieldsV8, FreshBlockIsAllZeroAndShortDataThrows) {
    CNetFlowRecordCommonFieldsV8 record;
    EXPECT_EQ(record.m_flows, 0u);
    EXPECT_EQ(record.m_packets, 0u);
    EXPECT_EQ(record.m_octets, 0u);
    EXPECT_EQ(record.m_first, 0u);
    EXPECT_EQ(record.m_last, 0u);
    ByteBuilder b;
    b.zeros(19);
    EXPECT_THROW(record.Decode(b, 0), CInvalidArgException);
}
