#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "flows/FlowTestSupport.h"
#include "flows/SampledHeaderParser.h"
#include "support/FrameBuilder.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;
using K = EFlowKey;

namespace {

constexpr IPv6Bytes kSrc6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01};
constexpr IPv6Bytes kDst6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x02};

CFlowRecord Parse(uint32_t protocol, const std::vector<uint8_t>& bytes, bool expected = true) {
    CFlowRecord flow;
    EXPECT_EQ(CSampledHeaderParser::Parse(protocol, bytes.data(), bytes.size(), flow), expected);
    return flow;
}

std::vector<uint8_t> EthernetIPv4Tcp() {
    ByteBuilder b;
    EthernetHeader{.type = 0x0800}.AppendTo(b);
    IPv4Header{
        .tos = 0x28, .totalLength = 1500, .protocol = 6, .src = IPv4(10, 0, 0, 1), .dst = IPv4(10, 0, 0, 2)}
        .AppendTo(b);
    TcpHeader{.srcPort = 40000, .dstPort = 443, .flags = 0x18}.AppendTo(b);
    return b.build();
}

} // namespace

TEST(SampledHeaderParser, EthernetIPv4Tcp) {
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, EthernetIPv4Tcp());
    EXPECT_EQ(flow.Text(K::DstMac), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(flow.Text(K::SrcMac), "02:00:00:00:00:01");
    EXPECT_TRUE(flow.IsNull(K::Vlan));
    EXPECT_EQ(flow.Get(K::IpVersion), 4);
    EXPECT_EQ(flow.Text(K::SrcAddr), "10.0.0.1");
    EXPECT_EQ(flow.Text(K::DstAddr), "10.0.0.2");
    EXPECT_EQ(flow.Get(K::Proto), 6);
    EXPECT_EQ(flow.Get(K::Tos), 0x28);
    EXPECT_EQ(flow.Get(K::SrcPort), 40000);
    EXPECT_EQ(flow.Get(K::DstPort), 443);
    EXPECT_EQ(flow.Get(K::TcpFlags), 0x18);
}

TEST(SampledHeaderParser, TheOuterVlanTagNamesTheVlan) {
    ByteBuilder b;
    TaggedEthernetHeader{.tpids = {0x88A8, 0x8100}, .tcis = {0xA000 | 300, 42}, .type = 0x0800}.AppendTo(b);
    IPv4Header{.protocol = 17, .src = IPv4(10, 1, 1, 1), .dst = IPv4(10, 2, 2, 2)}.AppendTo(b);
    UdpHeader{.srcPort = 5353, .dstPort = 53}.AppendTo(b);
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, b);
    EXPECT_EQ(flow.Get(K::Vlan), 300); // priority bits are not part of the id
    EXPECT_EQ(flow.Text(K::SrcAddr), "10.1.1.1");
    EXPECT_EQ(flow.Get(K::Proto), 17);
    EXPECT_EQ(flow.Get(K::SrcPort), 5353);
    EXPECT_EQ(flow.Get(K::DstPort), 53);
    EXPECT_TRUE(flow.IsNull(K::TcpFlags));
}

TEST(SampledHeaderParser, SingleDot1QTag) {
    ByteBuilder b;
    TaggedEthernetHeader{.tcis = {(5 << 13) | 42}, .type = 0x0800}.AppendTo(b);
    IPv4Header{.protocol = 6, .src = IPv4(10, 0, 0, 1), .dst = IPv4(10, 0, 0, 2)}.AppendTo(b);
    TcpHeader{.srcPort = 1, .dstPort = 2, .flags = 0x02}.AppendTo(b);
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, b);
    EXPECT_EQ(flow.Get(K::Vlan), 42);
    EXPECT_EQ(flow.Get(K::TcpFlags), 2);
}

TEST(SampledHeaderParser, IcmpTypeAndCodeGoToTheDestinationPort) {
    ByteBuilder b;
    EthernetHeader{}.AppendTo(b);
    IPv4Header{.protocol = 1, .src = IPv4(10, 0, 0, 1), .dst = IPv4(10, 0, 0, 2)}.AppendTo(b);
    IcmpHeader{.type = 3, .code = 13}.AppendTo(b);
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, b);
    EXPECT_EQ(flow.Get(K::Proto), 1);
    EXPECT_EQ(flow.Get(K::SrcPort), 0);
    EXPECT_EQ(flow.Get(K::DstPort), 3 * 256 + 13);
    EXPECT_TRUE(flow.IsNull(K::TcpFlags));
}

TEST(SampledHeaderParser, IPv6Udp) {
    ByteBuilder b;
    EthernetHeader{.type = 0x86DD}.AppendTo(b);
    IPv6Header{.trafficClass = 0xB8, .nextHeader = 17, .src = kSrc6, .dst = kDst6}.AppendTo(b);
    UdpHeader{.srcPort = 546, .dstPort = 547}.AppendTo(b);
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, b);
    EXPECT_EQ(flow.Get(K::IpVersion), 6);
    EXPECT_EQ(flow.Text(K::SrcAddr), "2001:db8::1");
    EXPECT_EQ(flow.Text(K::DstAddr), "2001:db8::2");
    EXPECT_EQ(flow.Get(K::Tos), 0xB8);
    EXPECT_EQ(flow.Get(K::Proto), 17);
    EXPECT_EQ(flow.Get(K::SrcPort), 546);
    EXPECT_EQ(flow.Get(K::DstPort), 547);
}

TEST(SampledHeaderParser, IPv6ExtensionHeadersAreSteppedOver) {
    ByteBuilder b;
    EthernetHeader{.type = 0x86DD}.AppendTo(b);
    IPv6Header{.nextHeader = 0, .src = kSrc6, .dst = kDst6}.AppendTo(b);
    IPv6ExtensionHeader{.nextHeader = 60, .lengthUnits = 1}.AppendTo(b); // hop-by-hop, 16 bytes
    IPv6ExtensionHeader{.nextHeader = 58, .lengthUnits = 0}.AppendTo(b); // destination options, 8 bytes
    IcmpHeader{.type = 128, .code = 0}.AppendTo(b);
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, b);
    EXPECT_EQ(flow.Get(K::Proto), 58);
    EXPECT_EQ(flow.Get(K::SrcPort), 0);
    EXPECT_EQ(flow.Get(K::DstPort), 128 * 256);
}

TEST(SampledHeaderParser, OnlyAFirstFragmentHasPorts) {
    for (uint16_t offset : {0, 185}) {
        ByteBuilder b;
        IPv6Header{.nextHeader = 44, .src = kSrc6, .dst = kDst6}.AppendTo(b);
        IPv6FragmentHeader{.nextHeader = 17, .offsetUnits = offset, .more = true}.AppendTo(b);
        UdpHeader{.srcPort = 1000, .dstPort = 2000}.AppendTo(b);
        const CFlowRecord flow = Parse(CSampledHeaderParser::IPV6, b);
        EXPECT_EQ(flow.Get(K::Proto), 17);
        EXPECT_EQ(flow.IsNull(K::SrcPort), offset != 0);
        EXPECT_EQ(flow.Get(K::DstPort), offset == 0 ? 2000 : 0);
    }
    for (uint16_t fragment : {0x2000, 0x00B9}) { // more fragments at offset 0; a later fragment
        ByteBuilder b;
        IPv4Header{.flagsAndFragment = fragment, .protocol = 17, .src = 1, .dst = 2}.AppendTo(b);
        UdpHeader{.srcPort = 1000, .dstPort = 2000}.AppendTo(b);
        const CFlowRecord flow = Parse(CSampledHeaderParser::IPV4, b);
        EXPECT_EQ(flow.IsNull(K::DstPort), fragment != 0x2000);
    }
}

TEST(SampledHeaderParser, IPv4OptionsMoveTheTransportHeader) {
    ByteBuilder b;
    IPv4Header{.headerWords = 7, .protocol = 6, .src = 1, .dst = 2}.AppendTo(b);
    TcpHeader{.srcPort = 22, .dstPort = 50000, .flags = 0x11}.AppendTo(b);
    const CFlowRecord flow = Parse(CSampledHeaderParser::IPV4, b);
    EXPECT_EQ(flow.Get(K::SrcPort), 22);
    EXPECT_EQ(flow.Get(K::DstPort), 50000);
    EXPECT_EQ(flow.Get(K::TcpFlags), 0x11);
    EXPECT_TRUE(flow.IsNull(K::SrcMac));
}

TEST(SampledHeaderParser, ACutHeaderGivesWhatItHolds) {
    const std::vector<uint8_t> full = EthernetIPv4Tcp();
    // Cut inside the TCP header after the ports: ports but no flags.
    std::vector<uint8_t> bytes(full.begin(), full.begin() + 14 + 20 + 10);
    CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, bytes);
    EXPECT_EQ(flow.Get(K::DstPort), 443);
    EXPECT_TRUE(flow.IsNull(K::TcpFlags));
    // Cut inside the ports: addresses and protocol only.
    bytes.assign(full.begin(), full.begin() + 14 + 20 + 3);
    flow = Parse(CSampledHeaderParser::ETHERNET, bytes);
    EXPECT_EQ(flow.Get(K::Proto), 6);
    EXPECT_TRUE(flow.IsNull(K::SrcPort));
    EXPECT_TRUE(flow.IsNull(K::DstPort));
    // Cut inside the IP header: the Ethernet layer only.
    bytes.assign(full.begin(), full.begin() + 14 + 19);
    flow = Parse(CSampledHeaderParser::ETHERNET, bytes);
    EXPECT_EQ(flow.Text(K::SrcMac), "02:00:00:00:00:01");
    EXPECT_TRUE(flow.IsNull(K::IpVersion));
    EXPECT_TRUE(flow.IsNull(K::SrcAddr));
    // Cut inside the Ethernet header: nothing at all.
    bytes.assign(full.begin(), full.begin() + 13);
    EXPECT_EQ(Parse(CSampledHeaderParser::ETHERNET, bytes, false), CFlowRecord());
}

TEST(SampledHeaderParser, OtherEtherTypesGiveTheEthernetLayer) {
    ByteBuilder b;
    EthernetHeader{.type = 0x0806}.AppendTo(b); // ARP
    b.zeros(28);
    const CFlowRecord flow = Parse(CSampledHeaderParser::ETHERNET, b);
    EXPECT_EQ(flow.Text(K::DstMac), "00:1a:2b:3c:4d:5e");
    EXPECT_TRUE(flow.IsNull(K::IpVersion));
}

TEST(SampledHeaderParser, AnIPHeaderOfTheWrongVersionIsNotRead) {
    ByteBuilder b;
    IPv6Header{.src = kSrc6, .dst = kDst6}.AppendTo(b);
    EXPECT_EQ(Parse(CSampledHeaderParser::IPV4, b, false), CFlowRecord());
    ByteBuilder v4;
    IPv4Header{.src = 1, .dst = 2}.AppendTo(v4);
    v4.zeros(20);
    EXPECT_EQ(Parse(CSampledHeaderParser::IPV6, v4, false), CFlowRecord());
}

TEST(SampledHeaderParser, OtherHeaderProtocolsAreNotRead) {
    const std::vector<uint8_t> bytes = EthernetIPv4Tcp();
    EXPECT_EQ(Parse(4 /* FDDI */, bytes, false), CFlowRecord());
    EXPECT_EQ(Parse(13 /* MPLS */, bytes, false), CFlowRecord());
}

// Every cut of a frame and random bytes of every length: only in-range reads (the sanitizer build
// checks), and a result that never claims more than the bytes hold.
TEST(SampledHeaderParser, AnyBytesAreSafe) {
    ByteBuilder b;
    TaggedEthernetHeader{.tpids = {0x8100, 0x8100}, .tcis = {1, 2}, .type = 0x86DD}.AppendTo(b);
    IPv6Header{.nextHeader = 0, .src = kSrc6, .dst = kDst6}.AppendTo(b);
    IPv6ExtensionHeader{.nextHeader = 6, .lengthUnits = 0}.AppendTo(b);
    TcpHeader{.srcPort = 1, .dstPort = 2, .flags = 3}.AppendTo(b);
    const std::vector<uint8_t>& full = b.build();
    for (size_t n = 0; n <= full.size(); ++n) {
        CFlowRecord flow;
        const std::vector<uint8_t> cut(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(CSampledHeaderParser::Parse(CSampledHeaderParser::ETHERNET, cut.data(), cut.size(), flow),
                  n >= 14);
        EXPECT_EQ(flow.IsNull(K::TcpFlags), n < 14 + 8 + 40 + 8 + 14) << n;
        EXPECT_EQ(flow.IsNull(K::SrcAddr), n < 14 + 8 + 40) << n;
    }
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> bytes(random() % 200);
        for (uint8_t& x : bytes)
            x = static_cast<uint8_t>(random());
        if (bytes.size() > 14 && round % 2 == 0) { // steer half of them into the IP parsers
            bytes[12] = round % 4 == 0 ? 0x86 : 0x08;
            bytes[13] = round % 4 == 0 ? 0xDD : 0x00;
            bytes[14] = round % 4 == 0 ? 0x60 : 0x45;
        }
        for (uint32_t protocol :
             {CSampledHeaderParser::ETHERNET, CSampledHeaderParser::IPV4, CSampledHeaderParser::IPV6}) {
            CFlowRecord flow;
            CSampledHeaderParser::Parse(protocol, bytes.data(), bytes.size(), flow);
            EXPECT_LT(flow.Get(K::Vlan), 4096);
            EXPECT_LT(flow.Get(K::DstPort), 65536);
            EXPECT_LT(flow.Get(K::Proto), 256);
            EXPECT_TRUE(flow.IsNull(K::SrcAddr) ||
                        flow.GetAddress(K::SrcAddr).length == (flow.Get(K::IpVersion) == 4 ? 4 : 16));
        }
    }
}
