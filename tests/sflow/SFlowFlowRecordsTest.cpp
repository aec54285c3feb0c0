#include <gtest/gtest.h>

#include "sflow/SFlowEthernetRecord.h"
#include "sflow/SFlowExtendedGatewayRecord.h"
#include "sflow/SFlowExtendedMPLSRecord.h"
#include "sflow/SFlowExtendedMPLSTunnelRecord.h"
#include "sflow/SFlowExtendedMPLS_FTNRecord.h"
#include "sflow/SFlowExtendedMPLS_LDP_FECRecord.h"
#include "sflow/SFlowExtendedMPLS_VCRecord.h"
#include "sflow/SFlowExtendedNATRecord.h"
#include "sflow/SFlowExtendedProcessRecord.h"
#include "sflow/SFlowExtendedRouterRecord.h"
#include "sflow/SFlowExtendedSwitchRecord.h"
#include "sflow/SFlowExtendedURLRecord.h"
#include "sflow/SFlowExtendedUserRecord.h"
#include "sflow/SFlowExtendedVLANTunnelRecord.h"
#include "sflow/SFlowHeaderRecord.h"
#include "sflow/SFlowIPv4Record.h"
#include "sflow/SFlowIPv6Record.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

// A body as it sits in a datagram: readers look at the version word at offset 0 themselves.
Bytes InDatagram(uint32_t version, const Bytes& body) {
    return ByteBuilder().u32(version).bytes(body).build();
}

// Decodes one record from a body placed after the version word; reports the bytes consumed.
template <class Record>
Record Read(uint32_t version, const Bytes& body, int* consumed = nullptr) {
    Bytes data = InDatagram(version, body);
    Record record;
    int offset = 4;
    record.Decode(data, offset);
    if (consumed != nullptr)
        *consumed = offset - 4;
    return record;
}

// The characters a string field holds: its length word's bytes, then the text, length in all.
CString Held(std::initializer_list<wchar_t> chars) {
    return CString(chars);
}

} // namespace

// --- sampled header ---

TEST(SFlowHeaderRecord, FreshRecordHasProtocolZeroAndAllOnes) {
    CSFlowHeaderRecord r;
    EXPECT_EQ(r.m_protocol, 0u);
    EXPECT_EQ(r.m_frameLength, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_stripped, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_headerLength, 0xFFFFFFFFu);
    EXPECT_TRUE(r.m_header.empty());
}

TEST(SFlowHeaderRecord, Version5ReadsStrippedCountAndHeaderBytes) {
    int consumed = 0;
    auto r = Read<CSFlowHeaderRecord>(
        5, ByteBuilder().u32(1).u32(1518).u32(4).u32(2).bytes({0x0A, 0xFF}).build(), &consumed);
    EXPECT_EQ(consumed, 18);
    EXPECT_EQ(r.m_protocol, 1u);
    EXPECT_EQ(r.m_frameLength, 1518u);
    EXPECT_EQ(r.m_stripped, 4u);
    EXPECT_EQ(r.m_headerLength, 2u);
    EXPECT_EQ(r.m_header, (Bytes{0x0A, 0xFF}));
    EXPECT_EQ(r.ToString(), L"Sampled Header Record:\r\nProtocol: ETHERNET ISO8023\r\nFrame Length: 1518\r\n"
                            L"Stripped: 4\r\nHeader Length: 2\r\nHeader Bytes: 0A-FF\r\n");
}

TEST(SFlowHeaderRecord, Version2And4HaveNoStrippedCount) {
    for (uint32_t version : {2u, 4u}) {
        int consumed = 0;
        auto r = Read<CSFlowHeaderRecord>(version, ByteBuilder().u32(11).u32(60).u32(1).u8(0x45).build(),
                                          &consumed);
        EXPECT_EQ(consumed, 13);
        EXPECT_EQ(r.m_stripped, 0xFFFFFFFFu);
        EXPECT_EQ(r.ToString(), L"Sampled Header Record:\r\nProtocol: IPv4\r\nFrame Length: 60\r\n"
                                L"Stripped: 4294967295\r\nHeader Length: 1\r\nHeader Bytes: 45\r\n");
    }
}

TEST(SFlowHeaderRecord, HeaderLengthIsNotRoundedUpToAWord) {
    // 14 header bytes: the cursor stops 2 bytes short of the word boundary.
    int consumed = 0;
    auto r =
        Read<CSFlowHeaderRecord>(5, ByteBuilder().u32(1).u32(64).u32(0).u32(14).zeros(16).build(), &consumed);
    EXPECT_EQ(consumed, 16 + 14);
    EXPECT_EQ(r.m_header.size(), 14u);
}

TEST(SFlowHeaderRecord, EveryProtocolNumberHasItsName) {
    const wchar_t* names[] = {L"",
                              L"ETHERNET ISO8023",
                              L"ISO88024 TOKENBUS",
                              L"ISO88025 TOKENRING",
                              L"FDDI",
                              L"FRAME RELAY",
                              L"X25",
                              L"PPP",
                              L"SMDS",
                              L"AAL5",
                              L"AAL5 IP",
                              L"IPv4",
                              L"IPv6",
                              L"MPLS",
                              L""};
    for (uint32_t i = 0; i < std::size(names); ++i)
        EXPECT_EQ(CSFlowHeaderRecord::GetProtocolName(i), names[i]) << i;
    EXPECT_EQ(CSFlowHeaderRecord::GetProtocolName(0xFFFFFFFF), L"");
}

TEST(SFlowHeaderRecord, UnknownProtocolAndEmptyHeaderRenderEmptyValues) {
    auto r = Read<CSFlowHeaderRecord>(5, ByteBuilder().u32(14).u32(0).u32(0).u32(0).build());
    EXPECT_EQ(r.ToString(), L"Sampled Header Record:\r\nProtocol: \r\nFrame Length: 0\r\nStripped: 0\r\n"
                            L"Header Length: 0\r\nHeader Bytes: \r\n");
}

TEST(SFlowHeaderRecord, HeaderLongerThanTheDatagramThrows) {
    EXPECT_THROW(Read<CSFlowHeaderRecord>(5, ByteBuilder().u32(1).u32(64).u32(0).u32(100).zeros(20).build()),
                 CInvalidArgException);
    EXPECT_THROW(Read<CSFlowHeaderRecord>(5, ByteBuilder().u32(1).u32(64).u32(0).u32(0x7FFFFFFF).build()),
                 CInvalidArgException);
    EXPECT_THROW(Read<CSFlowHeaderRecord>(5, ByteBuilder().u32(1).u32(64).u32(0).u32(0xFFFFFFFF).build()),
                 CInvalidArgException);
}

// --- Ethernet ---

TEST(SFlowEthernetRecord, ReadsTwentyBytesWithUnpaddedMACs) {
    // As an agent pads it: length, source MAC + 2, destination MAC + 2, type = 24 bytes. The reader takes
    // 20: the destination MAC starts at the source MAC's padding.
    Bytes body = ByteBuilder()
                     .u32(1514)
                     .bytes({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x00, 0x00})
                     .bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x00, 0x00})
                     .u32(0x0800)
                     .build();
    int consumed = 0;
    auto r = Read<CSFlowEthernetRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, 20);
    EXPECT_EQ(r.m_length, 1514u);
    EXPECT_EQ(r.m_srcMAC, (Bytes{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}));
    EXPECT_EQ(r.m_dstMAC, (Bytes{0x00, 0x00, 0x00, 0x11, 0x22, 0x33}));
    EXPECT_EQ(r.m_type, 0x44550000u);
    EXPECT_EQ(r.ToString(), L"Ethernet Flow:\r\nPacket Length: 1514\r\nSrc MAC: 00-1A-2B-3C-4D-5E\r\n"
                            L"Dst MAC: 00-00-00-11-22-33\r\nPacket Type: 1146421248\r\n");
}

TEST(SFlowEthernetRecord, FreshRecordRendersEmptyMACs) {
    EXPECT_EQ(CSFlowEthernetRecord().ToString(),
              L"Ethernet Flow:\r\nPacket Length: 4294967295\r\nSrc MAC: \r\n"
              L"Dst MAC: \r\nPacket Type: 4294967295\r\n");
}

// --- sampled IPv4 / IPv6 ---

TEST(SFlowIPv4Record, ReaderAlwaysThrowsAfterTheTwoAddresses) {
    Bytes body = ByteBuilder()
                     .u32(60)
                     .u32(6)
                     .ipv4(10, 0, 0, 1)
                     .ipv4(10, 0, 0, 2)
                     .u32(1234)
                     .u32(80)
                     .u32(2)
                     .u32(0)
                     .build();
    Bytes data = InDatagram(5, body);
    CSFlowIPv4Record r;
    int offset = 4;
    EXPECT_THROW(r.Decode(data, offset), CInvalidArgException);
    EXPECT_EQ(r.m_length, 60u);
    EXPECT_EQ(r.m_protocol, 6u);
    EXPECT_EQ(offset, 4 + 16); // both addresses consumed, ports never reached
    EXPECT_EQ(r.m_srcPort, 0xFFFFFFFFu);
}

TEST(SFlowIPv4Record, RendersARecordBuiltByOtherMeans) {
    CSFlowIPv4Record r;
    r.m_length = 60;
    r.m_protocol = 17;
    r.m_srcIP = CNetFlowIPAddress(0x0A000001);
    r.m_dstIP = CNetFlowIPAddress(0xC0A80102);
    r.m_srcPort = 53;
    r.m_dstPort = 40000;
    r.m_tcpFlags = 0;
    r.m_tos = 184;
    EXPECT_EQ(r.ToString(),
              L"Sampled IPv4 Record:\r\nPacket Length: 60\r\nProtocol: 17\r\nSrc Address: 10.0.0.1\r\n"
              L"Dst Address: 192.168.1.2\r\nSrc Port: 53\r\nDst Port: 40000\r\nTCP Flags: 0\r\n"
              L"TOS: 184\r\n");
}

TEST(SFlowIPv6Record, ReadsSixteenByteAddresses) {
    Bytes src = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01};
    Bytes dst = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x1A, 0x2B, 0xFF, 0xFE, 0x3C, 0x4D, 0x5E};
    int consumed = 0;
    auto r = Read<CSFlowIPv6Record>(
        5, ByteBuilder().u32(1280).u32(58).bytes(src).bytes(dst).u32(0).u32(0).u32(0).u32(7).build(),
        &consumed);
    EXPECT_EQ(consumed, 56);
    EXPECT_EQ(r.ToString(),
              L"Sampled IPv6 Record:\r\nPacket Length: 1280\r\nProtocol: 58\r\n"
              L"Src Address: 2001:0DB8:0000:0000:0000:0000:0000:0001\r\n"
              L"Dst Address: FE80:0000:0000:0000:021A:2BFF:FE3C:4D5E\r\nSrc Port: 0\r\nDst Port: 0\r\n"
              L"TCP Flags: 0\r\nPriority: 7\r\n");
}

TEST(SFlowIPv6Record, AddressFromBytesTakesSixteenCheckedPositions) {
    Bytes sixteen(16, 0xAB);
    EXPECT_EQ(CSFlowIPv6Record::AddressFromBytes(sixteen).m_address.size(), 16u);
    EXPECT_THROW(CSFlowIPv6Record::AddressFromBytes(Bytes{10, 0, 0, 1}), CInvalidArgException);
}

// --- extended switch / router ---

TEST(SFlowExtendedSwitchRecord, ReadsFourWords) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedSwitchRecord>(5, ExtendedSwitch(10, 3, 20, 5), &consumed);
    EXPECT_EQ(consumed, 16);
    EXPECT_EQ(r.ToString(), L"Extended Switch Flow:\r\nSrc VLAN: 10\r\nSrc Priority: 3\r\nDst VLAN: 20\r\n"
                            L"Dst Priority: 5\r\n");
}

TEST(SFlowExtendedRouterRecord, KeepsTheNextHopButDoesNotPrintIt) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedRouterRecord>(
        5, ByteBuilder().u32(1).ipv4(10, 1, 1, 254).u32(24).u32(16).build(), &consumed);
    EXPECT_EQ(consumed, 16);
    EXPECT_EQ(r.m_nextHop.ToString(), L"10.1.1.254");
    EXPECT_EQ(r.ToString(), L"Extended Router Flow:\r\nSrc Mask: 24\r\nDst Mask: 16\r\n");
}

TEST(SFlowExtendedRouterRecord, IPv6NextHopConsumesTwentyBytes) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedRouterRecord>(5, ByteBuilder().u32(2).zeros(15).u8(1).u32(64).u32(48).build(),
                                              &consumed);
    EXPECT_EQ(consumed, 28);
    EXPECT_EQ(r.m_nextHop.ToString(), L"0000:0000:0000:0000:0000:0000:0000:0001");
    EXPECT_EQ(r.m_srcMask, 64u);
}

TEST(SFlowExtendedRouterRecord, UnknownAddressTypeStepsTheCursorOneByteBack) {
    // Type 7 is unknown: GetAddress consumes -1 bytes.
    int consumed = 0;
    auto r = Read<CSFlowExtendedRouterRecord>(5, ByteBuilder().u32(7).u32(0x18000000).u32(0x10000000).build(),
                                              &consumed);
    // Datagram: 00 00 00 05 | 00 00 00 07 | 18 00 00 00 | ...; the type word is at offset 4, so the
    // masks are read at offsets 3 and 7.
    EXPECT_EQ(consumed, 7);
    EXPECT_EQ(r.m_nextHop.ToString(), L"0.0.0.0");
    EXPECT_EQ(r.m_srcMask, 0x05000000u);
    EXPECT_EQ(r.m_dstMask, 0x07180000u);
}

// --- extended gateway ---

TEST(SFlowExtendedGatewayRecord, Version5ReadsNextHopSegmentsCommunitiesAndLocalPref) {
    Bytes body = ByteBuilder()
                     .u32(1)
                     .ipv4(192, 0, 2, 254) // next hop
                     .u32(65000)           // AS
                     .u32(65100)           // source AS
                     .u32(65200)           // source peer AS
                     .u32(2)               // segments
                     .u32(2)
                     .u32(2)
                     .u32(65001)
                     .u32(65002) // sequence
                     .u32(1)
                     .u32(1)
                     .u32(64512) // set
                     .u32(2)
                     .u32(0xFDE80064)
                     .u32(0xFDE800C8) // communities
                     .u32(100)        // local pref
                     .build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedGatewayRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, static_cast<int>(body.size()));
    ASSERT_EQ(r.m_asPath.size(), 2u);
    EXPECT_EQ(r.m_asPath[0].m_type, 2u);
    EXPECT_EQ(r.m_asPath[0].m_asSequence, (CUIntArray{65001, 65002}));
    EXPECT_TRUE(r.m_asPath[0].m_asSet.empty());
    EXPECT_EQ(r.m_asPath[1].m_asSet, (CUIntArray{64512}));
    EXPECT_EQ(r.ToString(),
              L"Extended Gateway Flow:\r\nBGP Next Hop: 192.0.2.254\r\nAS: 65000\r\nSrc AS: 65100\r\n"
              L"Src Peer AS: 65200\r\nAS SEQUENCE: 65001 - 65002\r\nAS SET: 64512\r\n"
              L"BGP Communities:\r\n4259840100 - 4259840200\r\nBGP Local Pref: 100\r\n");
}

TEST(SFlowExtendedGatewayRecord, SegmentWithoutCommunitiesStillPrintsCommunitiesAndLocalPref) {
    Bytes body = ByteBuilder()
                     .u32(1)
                     .ipv4(10, 0, 0, 1)
                     .u32(1)
                     .u32(2)
                     .u32(3)
                     .u32(1)
                     .u32(2)
                     .u32(2)
                     .u32(65001)
                     .u32(65002)
                     .u32(0)          // no communities
                     .u32(0xFFFFFFFF) // local pref, printed signed
                     .build();
    auto r = Read<CSFlowExtendedGatewayRecord>(5, body);
    EXPECT_EQ(r.ToString(), L"Extended Gateway Flow:\r\nBGP Next Hop: 10.0.0.1\r\nAS: 1\r\nSrc AS: 2\r\n"
                            L"Src Peer AS: 3\r\nAS SEQUENCE: 65001 - 65002\r\nBGP Communities:\r\n\r\n"
                            L"BGP Local Pref: -1\r\n");
}

TEST(SFlowExtendedGatewayRecord, CommunitiesWithoutSegments) {
    Bytes body =
        ByteBuilder().u32(1).ipv4(10, 0, 0, 1).u32(1).u32(2).u32(3).u32(0).u32(1).u32(42).u32(200).build();
    auto r = Read<CSFlowExtendedGatewayRecord>(5, body);
    EXPECT_EQ(r.ToString(), L"Extended Gateway Flow:\r\nBGP Next Hop: 10.0.0.1\r\nAS: 1\r\nSrc AS: 2\r\n"
                            L"Src Peer AS: 3\r\nBGP Communities:\r\n42\r\nBGP Local Pref: 200\r\n");
}

TEST(SFlowExtendedGatewayRecord, NeitherSegmentsNorCommunitiesLeavesOutLocalPref) {
    Bytes body = ByteBuilder().u32(1).ipv4(10, 0, 0, 1).u32(1).u32(2).u32(3).u32(0).u32(0).u32(200).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedGatewayRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, static_cast<int>(body.size()));
    EXPECT_EQ(r.m_localPref, 200u);
    EXPECT_EQ(r.ToString(), L"Extended Gateway Flow:\r\nBGP Next Hop: 10.0.0.1\r\nAS: 1\r\nSrc AS: 2\r\n"
                            L"Src Peer AS: 3\r\n");
}

TEST(SFlowExtendedGatewayRecord, Version4HasNoNextHop) {
    Bytes body = ByteBuilder().u32(1).u32(2).u32(3).u32(1).u32(1).u32(2).u32(7).u32(8).u32(0).u32(50).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedGatewayRecord>(4, body, &consumed);
    EXPECT_EQ(consumed, static_cast<int>(body.size()));
    EXPECT_EQ(r.ToString(),
              L"Extended Gateway Flow:\r\nBGP Next Hop: 0.0.0.0\r\nAS: 1\r\nSrc AS: 2\r\n"
              L"Src Peer AS: 3\r\nAS SET: 7 - 8\r\nBGP Communities:\r\n\r\nBGP Local Pref: 50\r\n");
}

TEST(SFlowExtendedGatewayRecord, Version2FlatPathWithoutCommunitiesOrLocalPref) {
    Bytes body =
        ByteBuilder().u32(1).u32(2).u32(3).u32(3).u32(65001).u32(65002).u32(65003).u32(0xEEEEEEEE).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedGatewayRecord>(2, body, &consumed);
    EXPECT_EQ(consumed, 28); // the flat path ends the record
    EXPECT_EQ(r.m_dstASPath, (CUIntArray{65001, 65002, 65003}));
    EXPECT_EQ(r.m_localPref, 0xFFFFFFFFu);
    EXPECT_EQ(r.ToString(), L"Extended Gateway Flow:\r\nBGP Next Hop: 0.0.0.0\r\nAS: 1\r\nSrc AS: 2\r\n"
                            L"Src Peer AS: 3\r\n65001 - 65002 - 65003\r\n");
}

TEST(SFlowExtendedGatewayRecord, UnknownSegmentTypeConsumesOnlyItsTypeWord) {
    // Segment 1 has type 9: its next word is read as segment 2's type (2, a sequence).
    Bytes body = ByteBuilder()
                     .u32(1)
                     .ipv4(10, 0, 0, 1)
                     .u32(1)
                     .u32(2)
                     .u32(3)
                     .u32(2)
                     .u32(9)
                     .u32(2)
                     .u32(1)
                     .u32(65010)
                     .u32(0)
                     .u32(10)
                     .build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedGatewayRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, static_cast<int>(body.size()));
    ASSERT_EQ(r.m_asPath.size(), 2u);
    EXPECT_EQ(r.m_asPath[0].m_type, 9u);
    EXPECT_EQ(r.m_asPath[1].m_asSequence, (CUIntArray{65010}));
    EXPECT_EQ(r.ToString(), L"Extended Gateway Flow:\r\nBGP Next Hop: 10.0.0.1\r\nAS: 1\r\nSrc AS: 2\r\n"
                            L"Src Peer AS: 3\r\n\r\nAS SEQUENCE: 65010\r\nBGP Communities:\r\n\r\n"
                            L"BGP Local Pref: 10\r\n");
}

TEST(SFlowExtendedGatewayRecord, SegmentCountBeyondTheDatagramThrows) {
    Bytes body = ByteBuilder().u32(1).ipv4(10, 0, 0, 1).u32(1).u32(2).u32(3).u32(0x7FFFFFFF).u32(2).build();
    EXPECT_THROW(Read<CSFlowExtendedGatewayRecord>(5, body), CInvalidArgException);
}

// --- strings: extended user and URL ---

TEST(SFlowExtendedUserRecord, Version5StringsStartAtTheirLengthWordAndAdvanceByTheLengthAlone) {
    // Source user length word 8: the string is the length word and the next 4 bytes ("ab" and two
    // zeros); the destination charset follows those 8 bytes.
    Bytes body = ByteBuilder().u32(106).u32(8).text("ab").zeros(2).u32(3).u32(4).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedUserRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, 20);
    EXPECT_EQ(r.m_srcCharset, 106u);
    EXPECT_EQ(r.m_srcUser, Held({0, 0, 0, 8, L'a', L'b', 0, 0}));
    EXPECT_EQ(r.m_dstCharset, 3u);
    EXPECT_EQ(r.m_dstUser, Held({0, 0, 0, 4}));
    EXPECT_EQ(r.ToString(),
              L"Extended User Flow:\r\nSrc User Charset: 106\r\nSrc User: \r\nDst User Charset: 3\r\n"
              L"Dst User: 4\r\n");
}

TEST(SFlowExtendedUserRecord, PaddedAgentLayoutIsReadFromTheLengthWord) {
    // As an agent writes it: charset, length 5, "alice" + 3 padding bytes, charset, length 3, "bob" + 1.
    Bytes body =
        ByteBuilder().u32(106).u32(5).text("alice").zeros(3).u32(106).u32(3).text("bob").zeros(1).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedUserRecord>(5, body, &consumed);
    EXPECT_EQ(r.m_srcUser, Held({0, 0, 0, 5, L'a'}));
    EXPECT_EQ(r.m_dstCharset, 0x6C696365u); // "lice"
    // the destination length word is the padding and the charset's first byte: 0, an empty string
    EXPECT_EQ(r.m_dstUser, Held({}));
    EXPECT_EQ(consumed, 13);
}

TEST(SFlowExtendedUserRecord, RendersCharsetsAndTheDestinationUserLength) {
    CSFlowExtendedUserRecord r;
    r.m_srcCharset = 106;
    r.m_srcUser = Held({0, 0, 0, 5, L'a'});
    r.m_dstCharset = 3;
    r.m_dstUser = Held({0, 0, 0, 7, L'b', L'o', L'b'});
    EXPECT_EQ(r.ToString(),
              L"Extended User Flow:\r\nSrc User Charset: 106\r\nSrc User: \r\nDst User Charset: 3\r\n"
              L"Dst User: 7\r\n");
}

TEST(SFlowExtendedUserRecord, Version2HasNoCharsets) {
    Bytes body = ByteBuilder().u32(4).u32(0).u32(6).text("ab").build();
    // source user length 4: its own length word; destination length word 0: empty, cursor stays.
    int consumed = 0;
    auto r = Read<CSFlowExtendedUserRecord>(2, body, &consumed);
    EXPECT_EQ(r.m_srcCharset, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_dstCharset, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_srcUser, Held({0, 0, 0, 4}));
    EXPECT_EQ(r.m_dstUser, Held({}));
    EXPECT_EQ(consumed, 4);
    EXPECT_EQ(r.ToString(), L"Extended User Flow:\r\nSrc User Charset: 4294967295\r\nSrc User: \r\n"
                            L"Dst User Charset: 4294967295\r\nDst User: 0\r\n");
}

TEST(SFlowExtendedURLRecord, Version5ReadsDirectionUrlAndHost) {
    Bytes body = ByteBuilder().u32(1).u32(6).text("/a").u32(8).text("host").build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedURLRecord>(5, body, &consumed);
    EXPECT_EQ(r.m_direction, 1u);
    EXPECT_EQ(r.m_url, Held({0, 0, 0, 6, L'/', L'a'}));
    EXPECT_EQ(r.m_host, Held({0, 0, 0, 8, L'h', L'o', L's', L't'}));
    EXPECT_EQ(consumed, 4 + 6 + 8);
    EXPECT_EQ(r.ToString(), L"Extended URL Flow:\r\nDirection: Source\r\nURL: \r\nHost: \r\n");
}

TEST(SFlowExtendedURLRecord, Version4HasNoHost) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedURLRecord>(4, ByteBuilder().u32(2).u32(4).u32(99).build(), &consumed);
    EXPECT_EQ(consumed, 8);
    EXPECT_TRUE(r.m_host.empty());
    EXPECT_EQ(r.ToString(), L"Extended URL Flow:\r\nDirection: Destination\r\nURL: \r\nHost: \r\n");
}

TEST(SFlowExtendedURLRecord, UnknownDirectionRendersEmpty) {
    CSFlowExtendedURLRecord r;
    EXPECT_EQ(r.m_direction, 0u);
    r.m_direction = 3;
    EXPECT_EQ(r.ToString(), L"Extended URL Flow:\r\nDirection: \r\nURL: \r\nHost: \r\n");
}

TEST(SFlowExtendedURLRecord, HeldTextWithoutLeadingZeroIsShown) {
    CSFlowExtendedURLRecord r;
    r.m_direction = 2;
    r.m_url = L"http://example.org/";
    r.m_host = L"example.org";
    EXPECT_EQ(
        r.ToString(),
        L"Extended URL Flow:\r\nDirection: Destination\r\nURL: http://example.org/\r\nHost: example.org\r\n");
}

TEST(SFlowStringFields, NegativeLengthThrows) {
    EXPECT_THROW(Read<CSFlowExtendedURLRecord>(5, ByteBuilder().u32(1).u32(0xFFFFFFFC).u32(0).build()),
                 CInvalidArgException);
}

TEST(SFlowStringFields, LengthBeyondTheDatagramThrows) {
    EXPECT_THROW(Read<CSFlowExtendedMPLS_FTNRecord>(5, ByteBuilder().u32(100).u32(0).build()),
                 CInvalidArgException);
}

// --- MPLS family ---

TEST(SFlowExtendedMPLSRecord, LabelEntrySplitsTwentyThreeOneEight) {
    EXPECT_EQ(CSFlowExtendedMPLSRecord::PrintLabelStack({0x00012345}), L"18.1.1.69");
    EXPECT_EQ(CSFlowExtendedMPLSRecord::PrintLabelStack({0x00012345, 0xFFFFFFFF}),
              L"18.1.1.69 - 1048575.7.1.255");
    EXPECT_EQ(CSFlowExtendedMPLSRecord::PrintLabelStack({}), L"");
}

TEST(SFlowExtendedMPLSRecord, ReadsNextHopAndBothStacks) {
    Bytes body = ByteBuilder().u32(1).ipv4(10, 9, 9, 9).u32(2).u32(0x00012345).u32(0x000641FF).u32(0).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedMPLSRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, static_cast<int>(body.size()));
    EXPECT_EQ(r.ToString(),
              L"Extended MPLS Flow:\r\nNext Hop: 10.9.9.9\r\nInput Stack: 18.1.1.69 - 100.0.1.255\r\n"
              L"Output Stack: \r\n");
}

TEST(SFlowExtendedNATRecord, ReadsTwoAddresses) {
    Bytes body = ByteBuilder().u32(1).ipv4(192, 168, 0, 10).u32(1).ipv4(203, 0, 113, 7).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedNATRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, 16);
    EXPECT_EQ(r.ToString(),
              L"Extended NAT Flow:\r\nSrc Address: 192.168.0.10\r\nDst Address: 203.0.113.7\r\n");
}

TEST(SFlowExtendedMPLSTunnelRecord, NameLengthEightTakesTheIdFromTheNameText) {
    // The name's length word is 8: the id comes from the 4 bytes 8 after the length word (the last 4
    // bytes of the text "tun1abcd") and the COS from the 4 bytes after them.
    Bytes body = ByteBuilder().u32(8).text("tun1").text("abcd").u32(77).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedMPLSTunnelRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, 16);
    EXPECT_EQ(r.m_tunnelName, Held({0, 0, 0, 8, L't', L'u', L'n', L'1'}));
    EXPECT_EQ(r.m_tunnelId, 0x61626364u); // "abcd"
    EXPECT_EQ(r.m_tunnelCos, 77u);
    EXPECT_EQ(r.ToString(), L"Extended MPLS Tunnel Flow:\r\nName: \r\nID: 1633837924\r\nCOS: 77\r\n");
}

TEST(SFlowExtendedMPLS_VCRecord, LaidOutAsTheTunnelRecord) {
    Bytes body = ByteBuilder().u32(4).u32(500).u32(3).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedMPLS_VCRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, 12);
    EXPECT_EQ(r.ToString(), L"Extended MPLS VC Flow:\r\nInstanceName: \r\nID: 500\r\nCOS: 3\r\n");
}

TEST(SFlowExtendedMPLS_FTNRecord, ReadsDescriptionAndMask) {
    Bytes body = ByteBuilder().u32(6).text("ab").u32(24).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedMPLS_FTNRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, 10);
    EXPECT_EQ(r.m_ftnDescr, Held({0, 0, 0, 6, L'a', L'b'}));
    EXPECT_EQ(r.ToString(), L"Extended MPLS FTN Flow:\r\nDescr: \r\nMask: 24\r\n");
    EXPECT_EQ(r.m_ftnMask, 24u);
}

TEST(SFlowExtendedMPLS_LDP_FECRecord, ReadsPrefixLength) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedMPLS_LDP_FECRecord>(5, ByteBuilder().u32(22).build(), &consumed);
    EXPECT_EQ(consumed, 4);
    EXPECT_EQ(r.ToString(), L"Extended MPLS LDP FEC Flow:\r\nAddress Prefix Length: 22\r\n");
}

TEST(SFlowExtendedVLANTunnelRecord, StackIsRenderedAsLabelEntries) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedVLANTunnelRecord>(
        5, ByteBuilder().u32(2).u32(0x81000064).u32(0x00012345).build(), &consumed);
    EXPECT_EQ(consumed, 12);
    EXPECT_EQ(r.ToString(), L"Extended VLAN Tunnel Flow:\r\nStack: 528384.0.0.100 - 18.1.1.69\r\n");
    EXPECT_EQ(CSFlowExtendedVLANTunnelRecord().ToString(), L"Extended VLAN Tunnel Flow:\r\nStack: \r\n");
}

// --- process ---

TEST(SFlowExtendedProcessRecord, CountZeroRendersOnlyTheHeading) {
    int consumed = 0;
    auto r = Read<CSFlowExtendedProcessRecord>(5, ByteBuilder().u32(0).u32(1234).build(), &consumed);
    EXPECT_EQ(consumed, 4);
    EXPECT_EQ(r.ToString(), L"Extended Process Flow:\r\n");
}

TEST(SFlowExtendedProcessRecord, EntriesAreIdThenNameWithIdPrintedSigned) {
    // entry 1: id 4242, name length word 8 covering "ngin"; entry 2: id 0xFFFFFFFF, name length 0.
    Bytes body = ByteBuilder().u32(2).u32(4242).u32(8).text("ngin").u32(0xFFFFFFFF).u32(0).build();
    int consumed = 0;
    auto r = Read<CSFlowExtendedProcessRecord>(5, body, &consumed);
    EXPECT_EQ(r.m_processIds, (CUIntArray{4242, 0xFFFFFFFF}));
    ASSERT_EQ(r.m_processNames.size(), 2u);
    EXPECT_EQ(r.m_processNames[0], Held({0, 0, 0, 8, L'n', L'g', L'i', L'n'}));
    EXPECT_EQ(r.m_processNames[1], Held({}));
    EXPECT_EQ(consumed, 20); // an empty name leaves the cursor on its length word
    EXPECT_EQ(r.ToString(), L"Extended Process Flow:\r\nProcess: [4242]\r\nProcess: [-1]\r\n");
}

TEST(SFlowExtendedProcessRecord, RendersOneLinePerEntry) {
    CSFlowExtendedProcessRecord r;
    r.m_processIds = {4242, 0xFFFFFFFF};
    r.m_processNames = {L"sshd", Held({0, 0, 0, 4})};
    EXPECT_EQ(r.ToString(), L"Extended Process Flow:\r\nProcess: sshd[4242]\r\nProcess: [-1]\r\n");
}
