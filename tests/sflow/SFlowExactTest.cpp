// Protocol-exact decoding (CDecodeOptions::sflowExact): the layouts of the sFlow version 5 document and
// of RFC 3176, next to what the default decoding makes of the same bytes.
#include <gtest/gtest.h>

#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

const Bytes kSrcMac = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const Bytes kDstMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

CSFlowPacket Decoded(const Bytes& data, bool exact) {
    CSFlowPacket p;
    CDecodeContext context;
    context.options.sflowExact = exact;
    p.SetDecodeContext(context);
    EXPECT_EQ(p.Decode(data), 1);
    return p;
}

CSFlowPacket Exact(const Bytes& data) {
    return Decoded(data, true);
}

// Decodes one record body placed after the version word, exactly; reports the bytes consumed.
template <class Record>
Record ReadExact(uint32_t version, const Bytes& body, int* consumed = nullptr) {
    Bytes data = ByteBuilder().u32(version).bytes(body).build();
    Record record;
    int offset = 4;
    record.Decode(data, offset, true);
    if (consumed != nullptr)
        *consumed = offset - 4;
    return record;
}

Bytes Bytes66() {
    Bytes frame = Frame128();
    frame.resize(66);
    return frame;
}

} // namespace

// --- version 5 samples and records ---

TEST(SFlowExact, HeaderBytesArePaddedSoTheRecordsAfterThemAreRead) {
    // A 66-byte header, padded to 68 on the wire, then a switch record; a second sample follows.
    Bytes data = Datagram({}, {FlowSampleV5({.sequence = 1}, {Record(1, SampledHeader(1, 70, 4, Bytes66())),
                                                              Record(1001, ExtendedSwitch(42, 5, 0, 0))}),
                               FlowSampleV5({.sequence = 2}, {Record(1001, ExtendedSwitch(7, 0, 0, 0))})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSize(), 2);
    const CSFlowSample& first = p.GetSamples()[0];
    ASSERT_EQ(first.m_records.size(), 2u);
    EXPECT_EQ(first.m_records[0].m_headerRecord.m_headerLength, 66u);
    EXPECT_EQ(first.m_records[0].m_headerRecord.m_header, Bytes66());
    EXPECT_EQ(first.m_records[1].m_flowFormat, 1001u);
    EXPECT_EQ(first.m_records[1].m_switchRecord.m_srcVLAN, 42u);
    EXPECT_EQ(first.m_records[1].m_switchRecord.m_srcPriority, 5u);
    EXPECT_EQ(p.GetSamples()[1].m_sequenceNumber, 2u);
    EXPECT_EQ(p.GetSamples()[1].m_records[0].m_switchRecord.m_srcVLAN, 7u);

    // By default the reading goes on two bytes short of the padding: the switch record's format comes
    // from the padding and half the format word (0), its length from the other half and half the length
    // word, so the cursor leaves the datagram and the second sample cannot be read.
    CSFlowPacket drift;
    EXPECT_THROW(drift.Decode(data), CInvalidArgException);
    ASSERT_EQ(drift.GetSize(), 1);
    ASSERT_EQ(drift.GetSamples()[0].m_records.size(), 2u);
    EXPECT_EQ(drift.GetSamples()[0].m_records[1].m_flowFormat, 0u);
    EXPECT_EQ(drift.GetSamples()[0].m_records[1].ToString(), L"Unknown record");
}

TEST(SFlowExact, UnknownSampleTypeIsSkippedByItsLength) {
    Bytes unknown = SampleV5(5, Words(1, 3));
    Bytes enterprise = SampleV5((4300u << 12) | 1, Words(9, 5));
    Bytes data = Datagram({}, {unknown, enterprise, FlowSampleV5({.sequence = 3}, {})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSize(), 3);
    EXPECT_EQ(p.GetSamples()[0].m_sampleType, 5u);
    EXPECT_EQ(p.GetSamples()[0].m_sequenceNumber, 0xFFFFFFFFu);
    EXPECT_TRUE(p.GetSamples()[0].m_records.empty());
    EXPECT_EQ(p.GetSamples()[1].m_sampleType, (4300u << 12) | 1);
    EXPECT_EQ(p.GetSamples()[2].m_sampleType, 1u);
    EXPECT_EQ(p.GetSamples()[2].m_sequenceNumber, 3u);
    EXPECT_EQ(p.GetSamples()[2].m_samplingRate, 512u);
}

TEST(SFlowExact, KnownSampleEndsWhereItsLengthSays) {
    // A counter sample announcing 8 bytes more than its fields: the next sample starts after them.
    Bytes body = ByteBuilder().u32(4).u32(3).u32(0).zeros(8).build();
    Bytes data = Datagram({}, {SampleV5(2, body), FlowSampleV5({.sequence = 9}, {})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSize(), 2);
    EXPECT_EQ(p.GetSamples()[0].m_sequenceNumber, 4u);
    EXPECT_EQ(p.GetSamples()[1].m_sequenceNumber, 9u);
}

TEST(SFlowExact, SampleLongerThanTheDatagramIsAnError) {
    Bytes data = Datagram({}, {FlowSampleV5({.sequence = 1}, {}), SampleV5(1, Words(0, 8), 400)});
    CSFlowPacket p;
    CDecodeContext context;
    context.options.sflowExact = true;
    p.SetDecodeContext(context);
    EXPECT_THROW(p.Decode(data), CInvalidArgException);
    ASSERT_EQ(p.GetSize(), 1);
    EXPECT_EQ(p.GetSamples()[0].m_sequenceNumber, 1u);
}

TEST(SFlowExact, RecordEndsWhereItsLengthSays) {
    // A switch record announcing 20 bytes: the reader takes its 16 and the record's last word is skipped.
    Bytes longSwitch = ByteBuilder().u32(1001).u32(20).bytes(ExtendedSwitch(1, 2, 3, 4)).u32(0xAB).build();
    Bytes data = Datagram({}, {FlowSampleV5({}, {longSwitch, Record(1011, Words(24, 1))})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSamples()[0].m_records.size(), 2u);
    EXPECT_EQ(p.GetSamples()[0].m_records[0].m_switchRecord.m_dstPriority, 4u);
    EXPECT_EQ(p.GetSamples()[0].m_records[1].m_flowFormat, 1011u);
    EXPECT_EQ(p.GetSamples()[0].m_records[1].m_mplsLDPFECRecord.m_fecAddrPrefixLength, 24u);

    // By default the extra word is read as the next record's format.
    CSFlowPacket drift = Decoded(data, false);
    ASSERT_EQ(drift.GetSamples()[0].m_records.size(), 2u);
    EXPECT_EQ(drift.GetSamples()[0].m_records[1].m_flowFormat, 0xABu);
}

TEST(SFlowExact, RecordShorterThanItsFieldsIsAnError) {
    Bytes shortSwitch = ByteBuilder().u32(1001).u32(8).bytes(ExtendedSwitch(1, 2, 3, 4)).build();
    Bytes data =
        Datagram({}, {FlowSampleV5({.sequence = 1}, {}), FlowSampleV5({.sequence = 2}, {shortSwitch})});
    CSFlowPacket p;
    CDecodeContext context;
    context.options.sflowExact = true;
    p.SetDecodeContext(context);
    EXPECT_THROW(p.Decode(data), CInvalidArgException);
    EXPECT_EQ(p.GetSize(), 1);
}

TEST(SFlowExact, UnknownFlowAndCounterRecordsAreSkippedAndListed) {
    Bytes data =
        Datagram({}, {FlowSampleV5({}, {Record(2000, Words(0, 3)), Record(1001, ExtendedSwitch(5, 0, 0, 0))}),
                      CounterSampleV5(1, 1, {Record(7, Words(0, 2)), Record(1001, Words(1, 7))})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSize(), 2);
    const CSFlowSample& flow = p.GetSamples()[0];
    ASSERT_EQ(flow.m_records.size(), 2u);
    EXPECT_EQ(flow.m_records[0].ToString(), L"Unknown record");
    EXPECT_EQ(flow.m_records[1].m_switchRecord.m_srcVLAN, 5u);
    const CSFlowSample& counters = p.GetSamples()[1];
    ASSERT_EQ(counters.m_records.size(), 2u);
    EXPECT_EQ(counters.m_records[0].ToString(), L"Unknown record");
    EXPECT_EQ(counters.m_records[1].m_counterFormat, 1001u);
    EXPECT_EQ(counters.m_records[1].m_processorCounters.m_5sCpu, 1u);
    EXPECT_EQ(counters.m_records[1].m_processorCounters.m_freeMemory, (uint64_t{6} << 32) | 7);
}

TEST(SFlowExact, CompactSourceIdAndInterfacesSplitUnsigned) {
    Bytes data =
        Datagram({}, {FlowSampleV5({.sourceId = 0xFF000001, .input = 0x80000007, .output = 0xC0000001}, {}),
                      CounterSampleV5(2, 0x80000003, {})});
    CSFlowPacket p = Exact(data);
    const CSFlowSample& s = p.GetSamples()[0];
    EXPECT_EQ(s.m_sourceIdType, 255);
    EXPECT_EQ(s.m_sourceIdIndex, 1u);
    EXPECT_EQ(s.m_inputPortFormat, 2);
    EXPECT_EQ(s.m_inputPort, 7u);
    EXPECT_EQ(s.m_outputPortFormat, 3);
    EXPECT_EQ(s.m_outputPort, 1u);
    EXPECT_EQ(s.ToString(), L"Seq Number: 1, Source ID Type: 255, Source ID Index: 1, Sampling Rate: 512, "
                            L"Sample Pool: 1024, Input Port: 7, Input Port Format: 2, Output Port: 1, "
                            L"Output Port Format: 3, Drops: 0\r\n");
    EXPECT_EQ(p.GetSamples()[1].m_sourceIdType, 128);
    EXPECT_EQ(p.GetSamples()[1].m_sourceIdIndex, 3u);

    // By default the shifts keep the sign: source type -1, input format -2, output format -1.
    CSFlowPacket signedShift = Decoded(data, false);
    EXPECT_EQ(signedShift.GetSamples()[0].m_sourceIdType, -1);
    EXPECT_EQ(signedShift.GetSamples()[0].m_inputPortFormat, -2);
    EXPECT_EQ(signedShift.GetSamples()[0].m_outputPortFormat, -1);
}

TEST(SFlowExact, CountersOf64BitsAreUnsigned) {
    Bytes generic = ByteBuilder()
                        .u32(3)
                        .u32(6)
                        .u32(0)
                        .u32(0x80000000) // speed
                        .u32(1)
                        .u32(1)
                        .u32(1)
                        .u32(0xFFFFFFFF) // in octets
                        .bytes(Words(10, 6))
                        .u32(0)
                        .u32(0x80000001) // out octets
                        .bytes(Words(20, 6))
                        .build();
    ASSERT_EQ(generic.size(), 88u);
    Bytes vlan = ByteBuilder().u32(42).u32(2).u32(0x90000000).bytes(Words(1, 4)).build();
    Bytes data = Datagram({}, {CounterSampleV5(1, 1, {Record(1, generic), Record(5, vlan)})});
    CSFlowPacket p = Exact(data);
    const CSFlowGenericCounters& g = p.GetSamples()[0].m_records[0].m_genericCounters;
    EXPECT_EQ(g.m_ifSpeed, 2147483648u);
    EXPECT_EQ(g.m_ifInOctets, (uint64_t{1} << 32) | 0xFFFFFFFF);
    EXPECT_EQ(g.m_ifOutOctets, 0x80000001u);
    EXPECT_EQ(g.m_ifPromiscuousMode, 25u);
    EXPECT_NE(p.ToString().find(L"Speed: 2147483648\r\n"), CString::npos);
    const CSFlowVLANCounters& v = p.GetSamples()[0].m_records[1].m_vlanCounters;
    EXPECT_EQ(v.m_octets, (uint64_t{2} << 32) | 0x90000000);

    // By default the low word is widened with its sign.
    CSFlowPacket widened = Decoded(data, false);
    EXPECT_EQ(widened.GetSamples()[0].m_records[0].m_genericCounters.m_ifSpeed, 0xFFFFFFFF80000000u);
}

TEST(SFlowExact, SampledIPv4AndIPv6RecordsDecode) {
    Bytes v4 = SampledIp({.length = 60,
                          .protocol = 6,
                          .src = {10, 0, 0, 1},
                          .dst = {192, 0, 2, 9},
                          .srcPort = 40000,
                          .dstPort = 443,
                          .tcpFlags = 0x18,
                          .tosOrPriority = 0x10});
    Bytes v6src(16, 0);
    v6src[0] = 0x20, v6src[1] = 0x01, v6src[2] = 0x0D, v6src[3] = 0xB8, v6src[15] = 1;
    Bytes v6dst = v6src;
    v6dst[15] = 2;
    Bytes v6 = SampledIp({.length = 80,
                          .protocol = 17,
                          .src = v6src,
                          .dst = v6dst,
                          .srcPort = 1000,
                          .dstPort = 2000,
                          .tcpFlags = 0,
                          .tosOrPriority = 3});
    Bytes data = Datagram({}, {FlowSampleV5({}, {Record(3, v4), Record(4, v6)})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSamples()[0].m_records.size(), 2u);
    const CSFlowIPv4Record& r4 = p.GetSamples()[0].m_records[0].m_ipv4Record;
    EXPECT_EQ(r4.m_srcIP.ToString(), L"10.0.0.1");
    EXPECT_EQ(r4.m_tos, 0x10u);
    EXPECT_EQ(p.GetSamples()[0].m_records[0].ToString(),
              L"Sampled IPv4 Record:\r\nPacket Length: 60\r\nProtocol: 6\r\nSrc Address: 10.0.0.1\r\n"
              L"Dst Address: 192.0.2.9\r\nSrc Port: 40000\r\nDst Port: 443\r\nTCP Flags: 24\r\nTOS: 16\r\n");
    const CSFlowIPv6Record& r6 = p.GetSamples()[0].m_records[1].m_ipv6Record;
    EXPECT_EQ(r6.m_dstPort, 2000u);
    EXPECT_EQ(r6.m_priority, 3u);
    EXPECT_EQ(r6.m_srcIP.m_address.size(), 16u);
    EXPECT_EQ(r6.m_dstIP.m_address[15], 2u);

    // By default a sampled IPv4 record ends the datagram with the invalid-argument exception.
    CSFlowPacket failing;
    EXPECT_THROW(failing.Decode(data), CInvalidArgException);
}

TEST(SFlowExact, EthernetMacsArePaddedToEightBytes) {
    int consumed = 0;
    auto r = ReadExact<CSFlowEthernetRecord>(5, SampledEthernet(1514, kSrcMac, kDstMac, 0x0800), &consumed);
    EXPECT_EQ(consumed, 24);
    EXPECT_EQ(r.m_srcMAC, kSrcMac);
    EXPECT_EQ(r.m_dstMAC, kDstMac);
    EXPECT_EQ(r.m_type, 0x0800u);
    EXPECT_EQ(r.ToString(), L"Ethernet Flow:\r\nPacket Length: 1514\r\nSrc MAC: 00-1A-2B-3C-4D-5E\r\n"
                            L"Dst MAC: 00-11-22-33-44-55\r\nPacket Type: 2048\r\n");
}

TEST(SFlowExact, StringsHoldTheirTextAndArePadded) {
    int consumed = 0;
    auto url = ReadExact<CSFlowExtendedURLRecord>(
        5, ByteBuilder().u32(2).bytes(XdrString("/index.html")).bytes(XdrString("example.org")).build(),
        &consumed);
    EXPECT_EQ(consumed, 4 + 16 + 16);
    EXPECT_EQ(url.m_url, L"/index.html");
    EXPECT_EQ(url.ToString(), L"Extended URL Flow:\r\nDirection: Destination\r\nURL: /index.html\r\n"
                              L"Host: example.org\r\n");

    auto user = ReadExact<CSFlowExtendedUserRecord>(
        5, ByteBuilder().u32(106).bytes(XdrString("alice")).u32(3).bytes(XdrString("bob")).build(),
        &consumed);
    EXPECT_EQ(consumed, 4 + 12 + 4 + 8);
    EXPECT_EQ(user.m_srcUser, L"alice");
    EXPECT_EQ(user.m_dstUser, L"bob");
    // The format string's number for the destination user is its length.
    EXPECT_EQ(user.ToString(), L"Extended User Flow:\r\nSrc User Charset: 106\r\nSrc User: alice\r\n"
                               L"Dst User Charset: 3\r\nDst User: 3\r\n");

    auto tunnel = ReadExact<CSFlowExtendedMPLSTunnelRecord>(
        5, ByteBuilder().bytes(XdrString("lsp-a")).u32(7).u32(2).build(), &consumed);
    EXPECT_EQ(consumed, 12 + 8);
    EXPECT_EQ(tunnel.ToString(), L"Extended MPLS Tunnel Flow:\r\nName: lsp-a\r\nID: 7\r\nCOS: 2\r\n");

    auto vc =
        ReadExact<CSFlowExtendedMPLS_VCRecord>(5, ByteBuilder().bytes(XdrString("vc")).u32(9).u32(1).build());
    EXPECT_EQ(vc.ToString(), L"Extended MPLS VC Flow:\r\nInstanceName: vc\r\nID: 9\r\nCOS: 1\r\n");

    auto ftn =
        ReadExact<CSFlowExtendedMPLS_FTNRecord>(5, ByteBuilder().bytes(XdrString("ftn")).u32(24).build());
    EXPECT_EQ(ftn.ToString(), L"Extended MPLS FTN Flow:\r\nDescr: ftn\r\nMask: 24\r\n");

    auto process = ReadExact<CSFlowExtendedProcessRecord>(
        5, ByteBuilder().u32(2).u32(100).bytes(XdrString("sshd")).u32(200).bytes(XdrString("nginx")).build(),
        &consumed);
    EXPECT_EQ(consumed, 4 + 4 + 8 + 4 + 12);
    EXPECT_EQ(process.ToString(), L"Extended Process Flow:\r\nProcess: sshd[100]\r\nProcess: nginx[200]\r\n");
}

TEST(SFlowExact, StringLongerThanTheDatagramIsAnError) {
    Bytes data = ByteBuilder().u32(5).u32(1).u32(64).text("abcd").build();
    CSFlowExtendedURLRecord r;
    int offset = 4;
    EXPECT_THROW(r.Decode(data, offset, true), CInvalidArgException);
}

TEST(SFlowExact, GatewayRecordReadsSegmentsCommunitiesAndLocalPreference) {
    Bytes body = ByteBuilder()
                     .bytes(Address({10, 0, 0, 254}))
                     .u32(65000)
                     .u32(65001)
                     .u32(65002)
                     .u32(2)
                     .u32(2)
                     .u32(2)
                     .u32(65001)
                     .u32(65100) // AS sequence
                     .u32(1)
                     .u32(1)
                     .u32(64512) // AS set
                     .u32(1)
                     .u32(0xFDE80001) // community
                     .u32(100)
                     .build();
    int consumed = 0;
    auto r = ReadExact<CSFlowExtendedGatewayRecord>(5, body, &consumed);
    EXPECT_EQ(consumed, static_cast<int>(body.size()));
    EXPECT_EQ(r.m_nextHop.ToString(), L"10.0.0.254");
    ASSERT_EQ(r.m_asPath.size(), 2u);
    EXPECT_EQ(r.m_asPath[0].m_asSequence, (CUIntArray{65001, 65100}));
    EXPECT_EQ(r.m_asPath[1].m_asSet, (CUIntArray{64512}));
    EXPECT_EQ(r.m_communities, (CUIntArray{0xFDE80001}));
    EXPECT_EQ(r.m_localPref, 100u);
}

TEST(SFlowExact, AddressOfUnknownTypeIsAnErrorAndTypeZeroHoldsNone) {
    Bytes none = ByteBuilder().u32(0).u32(16).u32(24).build();
    int consumed = 0;
    auto router = ReadExact<CSFlowExtendedRouterRecord>(5, none, &consumed);
    EXPECT_EQ(consumed, 12);
    EXPECT_EQ(router.m_nextHop.ToString(), L"0.0.0.0");
    EXPECT_EQ(router.m_srcMask, 16u);
    EXPECT_EQ(router.m_dstMask, 24u);

    Bytes unknown = ByteBuilder().u32(3).u32(16).u32(24).build();
    EXPECT_THROW(ReadExact<CSFlowExtendedRouterRecord>(5, unknown), CInvalidArgException);
    EXPECT_THROW(Exact(Datagram({.addressType = 7}, {})), CInvalidArgException);
}

TEST(SFlowExact, UnsupportedVersionLeavesThePacketEmpty) {
    CSFlowPacket p = Exact(ByteBuilder().u32(6).zeros(24).build());
    EXPECT_TRUE(p.IsEmpty());
    EXPECT_EQ(p.GetProtocol(), L"");
}

// --- versions 2 and 4 ---

TEST(SFlowExact, Version4ExtendedDataAreKeptAsRecordsOfTheirOwn) {
    // A 3-byte header padded to 4, then a switch and a router element.
    Bytes packetData = ByteBuilder().u32(1).u32(1).u32(64).u32(3).bytes({0xDE, 0xAD, 0xBE}).zeros(1).build();
    Bytes switchElement = ByteBuilder().u32(1).bytes(ExtendedSwitch(1, 2, 3, 4)).build();
    Bytes routerElement = ByteBuilder().u32(2).bytes(Address({10, 0, 0, 1})).u32(8).u32(16).build();
    Bytes data = Datagram({.version = 4},
                          {FlowSampleV24({.input = 0x80000005}, packetData, {switchElement, routerElement}),
                           CounterSampleV24(7, 3, 30, 7, {Words(42, 7)})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSize(), 2);
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 3u);
    EXPECT_EQ(s.m_records[0].m_flowFormat, 1u);
    EXPECT_EQ(s.m_records[0].m_headerRecord.m_header, (Bytes{0xDE, 0xAD, 0xBE}));
    EXPECT_EQ(s.m_records[1].m_flowFormat, 1001u);
    EXPECT_EQ(s.m_records[1].m_switchRecord.m_dstPriority, 4u);
    EXPECT_EQ(s.m_records[2].m_flowFormat, 1002u);
    EXPECT_EQ(s.m_records[2].m_routerRecord.m_nextHop.ToString(), L"10.0.0.1");
    EXPECT_EQ(s.m_records[2].m_routerRecord.m_dstMask, 16u);
    EXPECT_EQ(s.m_inputPort, 0x80000005u); // a whole word in versions 2 and 4
    EXPECT_EQ(s.m_inputPortFormat, -1);
    const CSFlowSample& counters = p.GetSamples()[1];
    ASSERT_EQ(counters.m_records.size(), 1u);
    EXPECT_EQ(counters.m_records[0].m_counterFormat, 5u);
    EXPECT_EQ(counters.m_records[0].m_vlanCounters.m_vlanId, 42u);
}

TEST(SFlowExact, Version2SampledIPv4AndStringsDecode) {
    Bytes packetData = ByteBuilder()
                           .u32(2)
                           .bytes(SampledIp({.length = 40,
                                             .protocol = 17,
                                             .src = {10, 1, 1, 1},
                                             .dst = {10, 2, 2, 2},
                                             .srcPort = 53,
                                             .dstPort = 5353,
                                             .tcpFlags = 0,
                                             .tosOrPriority = 0}))
                           .build();
    Bytes userElement = ByteBuilder().u32(4).bytes(XdrString("carol")).bytes(XdrString("dave")).build();
    Bytes urlElement = ByteBuilder().u32(5).u32(1).bytes(XdrString("/x")).build();
    Bytes data = Datagram({.version = 2}, {FlowSampleV24({}, packetData, {userElement, urlElement})});
    CSFlowPacket p = Exact(data);
    const CSFlowSample& s = p.GetSamples()[0];
    ASSERT_EQ(s.m_records.size(), 3u);
    EXPECT_EQ(s.m_records[0].m_flowFormat, 3u);
    EXPECT_EQ(s.m_records[0].m_ipv4Record.m_dstIP.ToString(), L"10.2.2.2");
    EXPECT_EQ(s.m_records[0].m_ipv4Record.m_dstPort, 5353u);
    EXPECT_EQ(s.m_records[1].m_userRecord.m_srcUser, L"carol");
    EXPECT_EQ(s.m_records[1].m_userRecord.m_dstUser, L"dave");
    EXPECT_EQ(s.m_records[1].m_userRecord.m_srcCharset, 0xFFFFFFFFu); // version 5 only
    EXPECT_EQ(s.m_records[2].ToString(), L"Extended URL Flow:\r\nDirection: Source\r\nURL: /x\r\nHost: \r\n");
}

TEST(SFlowExact, Version4TypeWithoutLayoutEndsTheDatagramAfterItsSample) {
    Bytes packetData = ByteBuilder().u32(1).u32(1).u32(64).u32(4).u32(0xDEADBEEF).build();
    Bytes unknownElement = ByteBuilder().u32(9).u32(1).build();
    Bytes data = Datagram({.version = 4}, {FlowSampleV24({.sequence = 1}, packetData, {unknownElement}),
                                           FlowSampleV24({.sequence = 2}, packetData, {})});
    CSFlowPacket p = Exact(data);
    ASSERT_EQ(p.GetSize(), 1);
    ASSERT_EQ(p.GetSamples()[0].m_records.size(), 2u);
    EXPECT_EQ(p.GetSamples()[0].m_records[1].ToString(), L"Unknown record");

    Bytes counters =
        Datagram({.version = 2}, {CounterSampleV24(1, 1, 30, 9, {}), CounterSampleV24(2, 1, 30, 9, {})});
    CSFlowPacket c = Exact(counters);
    ASSERT_EQ(c.GetSize(), 1);
    EXPECT_EQ(c.GetSamples()[0].m_records[0].ToString(), L"Unknown record");

    Bytes unknownSample =
        Datagram({.version = 4}, {ByteBuilder().u32(3).u32(1).build(), CounterSampleV24(2, 1, 30, 9, {})});
    CSFlowPacket u = Exact(unknownSample);
    ASSERT_EQ(u.GetSize(), 1);
    EXPECT_EQ(u.GetSamples()[0].m_sampleType, 3u);

    Bytes unknownPacketData = Datagram({.version = 4}, {FlowSampleV24({}, ByteBuilder().u32(7).build(), {})});
    CSFlowPacket d = Exact(unknownPacketData);
    ASSERT_EQ(d.GetSize(), 1);
    EXPECT_EQ(d.GetSamples()[0].m_records[0].ToString(), L"Unknown record");
}
