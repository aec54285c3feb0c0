#include <gtest/gtest.h>

#include <string>

#include "flows/FlowJson.h"
#include "flows/FlowRecord.h"
#include "flows/FlowTestSupport.h"

using namespace tpnf::test;
using K = EFlowKey;

namespace {

std::string Text(const CFlowAddress& address) {
    char buffer[CFlowAddress::MAX_TEXT];
    return std::string(buffer, address.Format(buffer));
}

CFlowAddress IPv6(std::initializer_list<uint16_t> groups) {
    uint8_t bytes[16] = {};
    size_t i = 0;
    for (uint16_t g : groups) {
        bytes[i++] = static_cast<uint8_t>(g >> 8);
        bytes[i++] = static_cast<uint8_t>(g);
    }
    return CFlowAddress::FromBytes(bytes, 16);
}

const char* const kAllNull = R"({"time_received":null,"exporter":null,"exporter_port":null,"protocol":null,)"
                             R"("sequence":null,"observation_domain":null,"flow_start":null,"flow_end":null,)"
                             R"("ip_version":null,"src_addr":null,"dst_addr":null,"next_hop":null,)"
                             R"("src_port":null,"dst_port":null,"proto":null,"tos":null,"tcp_flags":null,)"
                             R"("packets":null,"bytes":null,"sampling_rate":null,"in_if":null,"out_if":null,)"
                             R"("src_as":null,"dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,)"
                             R"("src_mac":null,"dst_mac":null})";

} // namespace

TEST(FlowAddressText, IPv4IsDotted) {
    EXPECT_EQ(Text(CFlowAddress::IPv4(0x0A000001)), "10.0.0.1");
    EXPECT_EQ(Text(CFlowAddress::IPv4(0xFFFFFFFF)), "255.255.255.255");
    EXPECT_EQ(Text(CFlowAddress::IPv4(0)), "0.0.0.0");
}

TEST(FlowAddressText, IPv6ShortensTheLongestRunOfZeroGroups) {
    EXPECT_EQ(Text(IPv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1})), "2001:db8::1");
    EXPECT_EQ(Text(IPv6({0, 0, 0, 0, 0, 0, 0, 1})), "::1");
    EXPECT_EQ(Text(IPv6({0, 0, 0, 0, 0, 0, 0, 0})), "::");
    EXPECT_EQ(Text(IPv6({0xfe80, 0, 0, 0, 0x202, 0xb3ff, 0xfe1e, 0x8329})), "fe80::202:b3ff:fe1e:8329");
    EXPECT_EQ(Text(IPv6({1, 0, 0, 0, 0, 0, 0, 0})), "1::");
    // Of two equal runs the first is shortened; a single zero group is written out.
    EXPECT_EQ(Text(IPv6({1, 0, 0, 2, 3, 0, 0, 4})), "1::2:3:0:0:4");
    EXPECT_EQ(Text(IPv6({1, 0, 2, 3, 4, 5, 6, 7})), "1:0:2:3:4:5:6:7");
    EXPECT_EQ(Text(IPv6({1, 0, 0, 2, 0, 0, 0, 3})), "1:0:0:2::3");
    EXPECT_EQ(Text(IPv6({0xABCD, 0xEF01, 0x2345, 0x6789, 0xabcd, 0xef01, 0x2345, 0x6789})),
              "abcd:ef01:2345:6789:abcd:ef01:2345:6789");
}

TEST(FlowAddressText, IPv4MappedIPv6KeepsTheDottedPart) {
    EXPECT_EQ(Text(IPv6({0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201})), "::ffff:192.0.2.1");
    EXPECT_EQ(Text(IPv6({0, 0, 0, 0, 0, 0xffff, 0xffff, 0xffff})), "::ffff:255.255.255.255");
    EXPECT_EQ(Text(IPv6({0, 0, 0, 0, 0, 0xfffe, 0xffff, 0xffff})), "::fffe:ffff:ffff");
}

TEST(FlowAddressText, OtherLengthsGiveNoAddress) {
    const uint8_t bytes[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(CFlowAddress::FromBytes(bytes, 6).length, 0);
    EXPECT_EQ(Text(CFlowAddress::FromBytes(bytes, 6)), "");
}

TEST(FlowRecord, AFreshRecordIsNullEverywhere) {
    CFlowRecord flow;
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i)
        EXPECT_TRUE(flow.IsNull(static_cast<K>(i))) << CFlowRecord::KeyName(static_cast<K>(i));
    EXPECT_EQ(Json(flow), kAllNull);
}

TEST(FlowRecord, KeysAreInTheirOutputOrder) {
    const char* const names[] = {
        "time_received", "exporter",      "exporter_port", "protocol", "sequence",  "observation_domain",
        "flow_start",    "flow_end",      "ip_version",    "src_addr", "dst_addr",  "next_hop",
        "src_port",      "dst_port",      "proto",         "tos",      "tcp_flags", "packets",
        "bytes",         "sampling_rate", "in_if",         "out_if",   "src_as",    "dst_as",
        "src_mask",      "dst_mask",      "vlan",          "src_mac",  "dst_mac"};
    ASSERT_EQ(std::size(names), FLOW_KEY_COUNT);
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i)
        EXPECT_EQ(CFlowRecord::KeyName(static_cast<K>(i)), names[i]);
    EXPECT_EQ(CFlowRecord::KeyKind(K::Exporter), EFlowKeyKind::Address);
    EXPECT_EQ(CFlowRecord::KeyKind(K::NextHop), EFlowKeyKind::Address);
    EXPECT_EQ(CFlowRecord::KeyKind(K::Protocol), EFlowKeyKind::Protocol);
    EXPECT_EQ(CFlowRecord::KeyKind(K::DstMac), EFlowKeyKind::Mac);
    EXPECT_EQ(CFlowRecord::KeyKind(K::Vlan), EFlowKeyKind::Integer);
}

TEST(FlowRecord, MacTextIsLowerCaseWithColons) {
    CFlowRecord flow;
    const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0xFE};
    flow.SetMac(K::SrcMac, mac);
    EXPECT_EQ(flow.Text(K::SrcMac), "00:1a:2b:3c:4d:fe");
    EXPECT_EQ(flow.GetMac(K::SrcMac), 0x001A2B3C4DFEu);
    EXPECT_EQ(flow.Text(K::DstMac), "");
}

TEST(FlowRecord, ProtocolNames) {
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::NetFlowV1), "NetFlow v1");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::NetFlowV5), "NetFlow v5");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::NetFlowV7), "NetFlow v7");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::NetFlowV8), "NetFlow v8");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::NetFlowV9), "NetFlow v9");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::IPFIX), "IPFIX");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::SFlowV2), "sFlow v2");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::SFlowV4), "sFlow v4");
    EXPECT_EQ(CFlowRecord::ProtocolName(EFlowProtocol::SFlowV5), "sFlow v5");
}

TEST(FlowRecord, SetNullClearsAKey) {
    CFlowRecord flow;
    flow.Set(K::Bytes, 5);
    flow.SetNull(K::Bytes);
    EXPECT_TRUE(flow.IsNull(K::Bytes));
    EXPECT_EQ(flow, CFlowRecord());
}

TEST(FlowRecord, EqualityComparesOnlyKeysThatAreSet) {
    CFlowRecord a, b;
    a.SetAddress(K::SrcAddr, CFlowAddress::IPv4(1));
    b.SetAddress(K::SrcAddr, CFlowAddress::IPv4(1));
    EXPECT_EQ(a, b);
    b.SetAddress(K::SrcAddr, CFlowAddress::IPv4(2));
    EXPECT_NE(a, b);
    b.SetAddress(K::SrcAddr, CFlowAddress::IPv4(1));
    b.Set(K::Vlan, 0);
    EXPECT_NE(a, b);
}

TEST(FlowJson, EveryKindOfValueInKeyOrder) {
    CFlowRecord flow;
    flow.Set(K::TimeReceived, 1700000000123);
    flow.SetAddress(K::Exporter, IPv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0x10}));
    flow.Set(K::ExporterPort, 65535);
    flow.SetProtocol(EFlowProtocol::SFlowV5);
    flow.Set(K::Sequence, 4294967295);
    flow.Set(K::Bytes, INT64_MAX);
    flow.Set(K::SrcAs, -1);
    flow.SetAddress(K::DstAddr, CFlowAddress::IPv4(0xC0A80101));
    const uint8_t mac[6] = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    flow.SetMac(K::DstMac, mac);
    EXPECT_EQ(Json(flow),
              R"({"time_received":1700000000123,"exporter":"2001:db8::10","exporter_port":65535,)"
              R"("protocol":"sFlow v5","sequence":4294967295,"observation_domain":null,"flow_start":null,)"
              R"("flow_end":null,"ip_version":null,"src_addr":null,"dst_addr":"192.168.1.1","next_hop":null,)"
              R"("src_port":null,"dst_port":null,"proto":null,"tos":null,"tcp_flags":null,"packets":null,)"
              R"("bytes":9223372036854775807,"sampling_rate":null,"in_if":null,"out_if":null,"src_as":-1,)"
              R"("dst_as":null,"src_mask":null,"dst_mask":null,"vlan":null,"src_mac":null,)"
              R"("dst_mac":"aa:bb:cc:dd:ee:ff"})");
}

TEST(FlowJson, AppendsAfterWhatTheLineHolds) {
    std::string line = "x";
    CFlowJson::Append(line, CFlowRecord());
    EXPECT_EQ(line, std::string("x") + kAllNull);
}

TEST(FlowJson, StringsAreEscaped) {
    std::string out;
    CFlowJson::AppendString(out, std::string("a\"b\\c\n\x01\x1f/\xc3\xa9", 11));
    EXPECT_EQ(out, "\"a\\\"b\\\\c\\n\\u0001\\u001f/\xc3\xa9\"");
}
