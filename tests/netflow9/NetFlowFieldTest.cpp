#include <gtest/gtest.h>

#include <climits>
#include <iterator>

#include "netflow9/NetFlowField.h"
#include "support/ByteBuilder.h"

using tpnf::test::ByteBuilder;

namespace {

struct ExpectedField {
    int id;
    const wchar_t* name;
    CNetFlowField::eTypes kind;
    const wchar_t* description; // nullptr: the field has no description
};

// The field vocabulary as exporters document it, typed out independently of the library's own table.
const ExpectedField kExpectedCatalogue[] = {
    {1, L"IN_BYTES", CNetFlowField::TYPE_INTEGER,
     L"Incoming counter with length N x 8 bits for number of bytes associated with an IP Flow."},
    {2, L"IN_PKTS", CNetFlowField::TYPE_INTEGER,
     L"Incoming counter with length N x 8 bits for the number of packets associated with an IP Flow"},
    {3, L"FLOWS", CNetFlowField::TYPE_INTEGER, L"Number of flows that were aggregated; default for N is 4"},
    {4, L"PROT", CNetFlowField::TYPE_INTEGER, L"IP protocol byte"},
    {5, L"SRC_TOS", CNetFlowField::TYPE_INTEGER,
     L"Type of Service byte setting when entering incoming interface"},
    {6, L"TCP_FLAGS", CNetFlowField::TYPE_INTEGER, L"Cumulative of all the TCP flags seen for this flow"},
    {7, L"L4_SRC_PORT", CNetFlowField::TYPE_INTEGER,
     L"TCP/UDP source port number e.g. FTP, Telnet, or equivalent"},
    {8, L"IPV4_SRC_ADDR", CNetFlowField::TYPE_IPV4_ADDRESS, L"IPv4 source address"},
    {9, L"SRC_MASK", CNetFlowField::TYPE_INTEGER,
     L"The number of contiguous bits in the source address subnet mask i.e. the submask in slash notation"},
    {10, L"INPUT_SNMP", CNetFlowField::TYPE_INTEGER,
     L"Input interface index; default for N is 2 but higher values could be used"},
    {11, L"L4_DST_PORT", CNetFlowField::TYPE_INTEGER,
     L"TCP/UDP destination port number e.g. FTP, Telnet, or equivalent"},
    {12, L"IPV4_DST_ADDR", CNetFlowField::TYPE_IPV4_ADDRESS, L"IPv4 destination address"},
    {13, L"DST_MASK", CNetFlowField::TYPE_INTEGER,
     L"The number of contiguous bits in the destination address subnet mask i.e. the submask in slash "
     L"notation"},
    {14, L"OUTPUT_SNMP", CNetFlowField::TYPE_INTEGER,
     L"Output interface index; default for N is 2 but higher values could be used"},
    {15, L"IPV4_NEXT_HOP", CNetFlowField::TYPE_IPV4_ADDRESS, L"IPv4 address of next-hop router"},
    {16, L"SRC_AS", CNetFlowField::TYPE_INTEGER,
     L"Source BGP autonomous system number where N could be 2 or 4"},
    {17, L"DST_AS", CNetFlowField::TYPE_INTEGER,
     L"Destination BGP autonomous system number where N could be 2 or 4"},
    {18, L"BGP_NEXT_HOP", CNetFlowField::TYPE_IPV4_ADDRESS, L"Next-hop router's IP in the BGP domain"},
    {19, L"IPM_DPKTS", CNetFlowField::TYPE_INTEGER,
     L"IP multicast outgoing packet counter with length N x 8 bits for packets associated with the IP Flow"},
    {20, L"IPM_DOCTETS", CNetFlowField::TYPE_INTEGER,
     L"IP multicast outgoing byte counter with length N x 8 bits for bytes associated with the IP Flow"},
    {21, L"LAST_SWITCHED", CNetFlowField::TYPE_INTEGER,
     L"System uptime at which the last packet of this flow was switched"},
    {22, L"FIRST_SWITCHED", CNetFlowField::TYPE_INTEGER,
     L"System uptime at which the first packet of this flow was switched"},
    {23, L"OUT_BYTES", CNetFlowField::TYPE_INTEGER,
     L"Outgoing counter with length N x 8 bits for the number of bytes associated with an IP Flow"},
    {24, L"OUT_PKTS", CNetFlowField::TYPE_INTEGER,
     L"Outgoing counter with length N x 8 bits for the number of packets associated with an IP Flow."},
    {25, L"MIN_PKT_LENGTH", CNetFlowField::TYPE_INTEGER,
     L"Minimum IP packet length on incoming packets of the flow"},
    {26, L"MAX_PKT_LENGTH", CNetFlowField::TYPE_INTEGER,
     L"Maximum IP packet length on incoming packets of the flow"},
    {27, L"IPV6_SRC_ADDR", CNetFlowField::TYPE_IPV6_ADDRESS, L"IPv6 Source Address"},
    {28, L"IPV6_DST_ADDR", CNetFlowField::TYPE_IPV6_ADDRESS, L"IPv6 Destination Address"},
    {29, L"IPV6_SRC_MASK", CNetFlowField::TYPE_INTEGER, L"Length of the IPv6 source mask in contiguous bits"},
    {30, L"IPV6_DST_MASK", CNetFlowField::TYPE_INTEGER,
     L"Length of the IPv6 destination mask in contiguous bits"},
    {31, L"IPV6_FLOW_LABEL", CNetFlowField::TYPE_INTEGER, L"IPv6 flow label as per RFC 2460 definition"},
    {32, L"ICMP_TYPE", CNetFlowField::TYPE_INTEGER,
     L"Internet Control Message Protocol (ICMP) packet type; reported as ((ICMP Type * 256) + ICMP code)"},
    {33, L"MUL_IGMP_TYPE", CNetFlowField::TYPE_INTEGER,
     L"Internet Group Management Protocol (IGMP) packet type"},
    {34, L"SAMPLING_INTERVAL", CNetFlowField::TYPE_INTEGER,
     L"When using sampled NetFlow, the rate at which packets are sampled e.g. a value of 100 indicates that "
     L"one of every 100 packets is sampled"},
    {35, L"SAMPLING_ALGORITHM", CNetFlowField::TYPE_INTEGER,
     L"The type of algorithm used for sampled NetFlow: 0x01 Deterministic Sampling ,0x02 Random Sampling"},
    {36, L"FLOW_ACTIVE_TIMEOUT", CNetFlowField::TYPE_INTEGER,
     L"Timeout value (in seconds) for active flow entries in the NetFlow cache"},
    {37, L"FLOW_INACTIVE_TIMEOUT", CNetFlowField::TYPE_INTEGER,
     L"Timeout value (in seconds) for inactive flow entries in the NetFlow cache"},
    {38, L"ENGINE_TYPE", CNetFlowField::TYPE_INTEGER,
     L"Type of flow switching engine: RP = 0, VIP/Linecard = 1"},
    {39, L"ENGINE_ID", CNetFlowField::TYPE_INTEGER, L"ID number of the flow switching engine"},
    {40, L"TOTAL_BYTES_EXPORTED", CNetFlowField::TYPE_INTEGER,
     L"Counter with length N x 8 bits for bytes for the number of bytes exported by the Observation Domain"},
    {41, L"TOTAL_EXPORT_PKTS_SENT", CNetFlowField::TYPE_INTEGER,
     L"Counter with length N x 8 bits for bytes for the number of packets exported by the Observation "
     L"Domain"},
    {42, L"TOTAL_FLOWS_EXPORTED", CNetFlowField::TYPE_INTEGER,
     L"Counter with length N x 8 bits for bytes for the number of flows exported by the Observation Domain"},
    {44, L"IPV4_SRC_PREFIX", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 source address prefix (specific for Catalyst architecture)"},
    {45, L"IPV4_DST_PREFIX", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 destination address prefix (specific for Catalyst architecture)"},
    {46, L"MPLS_TOP_LABEL_TYPE", CNetFlowField::TYPE_INTEGER,
     L"MPLS Top Label Type: 0x00 UNKNOWN 0x01 TE-MIDPT 0x02 ATOM 0x03 VPN 0x04 BGP 0x05 LDP"},
    {47, L"MPLS_TOP_LABEL_IP_ADDR", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"Forwarding Equivalent Class corresponding to the MPLS Top Label"},
    {48, L"FLOW_SAMPLER_ID", CNetFlowField::TYPE_INTEGER, L"Identifier shown in \"show flow-sampler\""},
    {49, L"FLOW_SAMPLER_MODE", CNetFlowField::TYPE_INTEGER,
     L"The type of algorithm used for sampling data: 0x02 random sampling. Use in connection with "
     L"FLOW_SAMPLER_MODE"},
    {50, L"FLOW_SAMPLER_RANDOM_INTERVAL", CNetFlowField::TYPE_INTEGER,
     L"Packet interval at which to sample. Use in connection with FLOW_SAMPLER_MODE"},
    {52, L"MIN_TTL", CNetFlowField::TYPE_INTEGER, L"Minimum TTL on incoming packets of the flow"},
    {53, L"MAX_TTL", CNetFlowField::TYPE_INTEGER, L"Maximum TTL on incoming packets of the flow"},
    {54, L"IPV4_IDENT", CNetFlowField::TYPE_INTEGER, L"The IP v4 identification field"},
    {55, L"DST_TOS", CNetFlowField::TYPE_INTEGER,
     L"Type of Service byte setting when exiting outgoing interface"},
    {56, L"IN_SRC_MAC", CNetFlowField::TYPE_MAC_ADDRESS, L"Incoming source MAC address"},
    {57, L"OUT_DST_MAC", CNetFlowField::TYPE_MAC_ADDRESS, L"Outgoing destination MAC address"},
    {58, L"SRC_VLAN", CNetFlowField::TYPE_INTEGER,
     L"Virtual LAN identifier associated with ingress interface"},
    {59, L"DST_VLAN", CNetFlowField::TYPE_INTEGER,
     L"Virtual LAN identifier associated with egress interface"},
    {60, L"IP_PROTOCOL_VERSION", CNetFlowField::TYPE_INTEGER,
     L"Internet Protocol Version Set to 4 for IPv4, set to 6 for IPv6. If not present in the template, then "
     L"version 4 is assumed."},
    {61, L"DIRECTION", CNetFlowField::TYPE_INTEGER, L"Flow direction: 0 - ingress flow, 1 - egress flow"},
    {62, L"IPV6_NEXT_HOP", CNetFlowField::TYPE_IPV6_ADDRESS, L"IPv6 address of the next-hop router"},
    {63, L"BGP_IPV6_NEXT_HOP", CNetFlowField::TYPE_IPV6_ADDRESS, L"Next-hop router in the BGP domain"},
    {64, L"IPV6_OPTION_HEADERS", CNetFlowField::TYPE_INTEGER,
     L"Bit-encoded field identifying IPv6 option headers found in the flow"},
    {70, L"MPLS_LABEL_1", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 1 in the stack"},
    {71, L"MPLS_LABEL_2", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 2 in the stack"},
    {72, L"MPLS_LABEL_3", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 3 in the stack"},
    {73, L"MPLS_LABEL_4", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 4 in the stack"},
    {74, L"MPLS_LABEL_5", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 5 in the stack"},
    {75, L"MPLS_LABEL_6", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 6 in the stack"},
    {76, L"MPLS_LABEL_7", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 7 in the stack"},
    {77, L"MPLS_LABEL_8", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 8 in the stack"},
    {78, L"MPLS_LABEL_9", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 9 in the stack"},
    {79, L"MPLS_LABEL_10", CNetFlowField::TYPE_INTEGER, L"MPLS label at position 10 in the stack"},
    {80, L"IN_DST_MAC", CNetFlowField::TYPE_MAC_ADDRESS, L"Incoming destination MAC address"},
    {81, L"OUT_SRC_MAC", CNetFlowField::TYPE_MAC_ADDRESS, L"Outgoing source MAC address"},
    {82, L"IF_NAME", CNetFlowField::TYPE_STRING, L"Shortened interface name e.g. \"FE1/0\""},
    {83, L"IF_DESC", CNetFlowField::TYPE_STRING, L"Full interface name e.g. \"FastEthernet 1/0\""},
    {84, L"SAMPLER_NAME", CNetFlowField::TYPE_STRING, L"Name of the flow sampler"},
    {85, L"IN_PERMANENT_BYTES", CNetFlowField::TYPE_INTEGER, L"Running byte counter for a permanent flow"},
    {86, L"IN_PERMANENT_PKTS", CNetFlowField::TYPE_INTEGER, L"Running packet counter for a permanent flow"},
    {88, L"FRAGMENT_OFFSET", CNetFlowField::TYPE_INTEGER, nullptr},
    {89, L"FORWARDING_STATUS", CNetFlowField::TYPE_INTEGER, nullptr},
    {1000, L"FLAGS", CNetFlowField::TYPE_INTEGER,
     L"Flags indicating, among other things, what flows are invalid"},
    {1001, L"ROUTER_SC", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IP address of the router that is bypassed by the Catalyst 5000 series switch. This is the same "
     L"address the router uses when it sends NetFlow export packets. This IP address is propagated to all "
     L"switches bypassing the router through the FCP protocol."},
};

CNetFlowField MakeField(int type, const CByteArray& value) {
    CNetFlowField field;
    field.SetType(type);
    field.SetLength(static_cast<int>(value.size()));
    field.SetValue(value);
    return field;
}

CString ValueOf(int type, const CByteArray& value) {
    return MakeField(type, value).GetValue();
}

} // namespace

// --- Catalogue ----------------------------------------------------------------------------------------

TEST(NetFlowFieldCatalogue, EveryNameMatches) {
    static_assert(std::size(kExpectedCatalogue) == 83);
    for (const ExpectedField& f : kExpectedCatalogue)
        EXPECT_EQ(CNetFlowField::GetName(static_cast<CNetFlowField::eFields>(f.id)), f.name) << f.id;
}

TEST(NetFlowFieldCatalogue, EveryDescriptionMatches) {
    for (const ExpectedField& f : kExpectedCatalogue)
        EXPECT_EQ(CNetFlowField::GetDescription(static_cast<CNetFlowField::eFields>(f.id)),
                  f.description != nullptr ? f.description : L"")
            << f.id;
}

TEST(NetFlowFieldCatalogue, EveryKindMatches) {
    CNetFlowField::Init();
    for (const ExpectedField& f : kExpectedCatalogue) {
        auto it = CNetFlowField::m_FieldTypes.find(static_cast<CNetFlowField::eFields>(f.id));
        ASSERT_NE(it, CNetFlowField::m_FieldTypes.end()) << f.id;
        EXPECT_EQ(it->second, f.kind) << f.id;
    }
}

TEST(NetFlowFieldCatalogue, MapsHold83Names81Descriptions83Kinds) {
    CNetFlowField::Init();
    EXPECT_EQ(CNetFlowField::m_FieldNames.size(), 83u);
    EXPECT_EQ(CNetFlowField::m_FieldDescriptions.size(), 81u);
    EXPECT_EQ(CNetFlowField::m_FieldTypes.size(), 83u);
    for (const ExpectedField& f : kExpectedCatalogue) {
        auto id = static_cast<CNetFlowField::eFields>(f.id);
        EXPECT_EQ(CNetFlowField::m_FieldNames.count(id), 1u) << f.id;
        EXPECT_EQ(CNetFlowField::m_FieldDescriptions.count(id), f.description != nullptr ? 1u : 0u) << f.id;
    }
}

TEST(NetFlowFieldCatalogue, RepeatedInitChangesNothing) {
    CNetFlowField::Init();
    CNetFlowField::Init();
    EXPECT_EQ(CNetFlowField::m_FieldNames.size(), 83u);
    EXPECT_EQ(CNetFlowField::m_FieldDescriptions.size(), 81u);
    EXPECT_EQ(CNetFlowField::m_FieldTypes.size(), 83u);
    EXPECT_EQ(CNetFlowField::GetName(CNetFlowField::IN_BYTES), L"IN_BYTES");
}

TEST(NetFlowFieldCatalogue, EnumeratorsCarryTheirFieldNumbers) {
    EXPECT_EQ(CNetFlowField::IN_BYTES, 1);
    EXPECT_EQ(CNetFlowField::IN_PKTS, 2);
    EXPECT_EQ(CNetFlowField::FLOWS, 3);
    EXPECT_EQ(CNetFlowField::PROT, 4);
    EXPECT_EQ(CNetFlowField::SRC_TOS, 5);
    EXPECT_EQ(CNetFlowField::TCP_FLAGS, 6);
    EXPECT_EQ(CNetFlowField::L4_SRC_PORT, 7);
    EXPECT_EQ(CNetFlowField::IPV4_SRC_ADDR, 8);
    EXPECT_EQ(CNetFlowField::SRC_MASK, 9);
    EXPECT_EQ(CNetFlowField::INPUT_SNMP, 10);
    EXPECT_EQ(CNetFlowField::L4_DST_PORT, 11);
    EXPECT_EQ(CNetFlowField::IPV4_DST_ADDR, 12);
    EXPECT_EQ(CNetFlowField::DST_MASK, 13);
    EXPECT_EQ(CNetFlowField::OUTPUT_SNMP, 14);
    EXPECT_EQ(CNetFlowField::IPV4_NEXT_HOP, 15);
    EXPECT_EQ(CNetFlowField::SRC_AS, 16);
    EXPECT_EQ(CNetFlowField::DST_AS, 17);
    EXPECT_EQ(CNetFlowField::BGP_NEXT_HOP, 18);
    EXPECT_EQ(CNetFlowField::IPM_DPKTS, 19);
    EXPECT_EQ(CNetFlowField::IPM_DOCTETS, 20);
    EXPECT_EQ(CNetFlowField::LAST_SWITCHED, 21);
    EXPECT_EQ(CNetFlowField::FIRST_SWITCHED, 22);
    EXPECT_EQ(CNetFlowField::OUT_BYTES, 23);
    EXPECT_EQ(CNetFlowField::OUT_PKTS, 24);
    EXPECT_EQ(CNetFlowField::MIN_PKT_LENGTH, 25);
    EXPECT_EQ(CNetFlowField::MAX_PKT_LENGTH, 26);
    EXPECT_EQ(CNetFlowField::IPV6_SRC_ADDR, 27);
    EXPECT_EQ(CNetFlowField::IPV6_DST_ADDR, 28);
    EXPECT_EQ(CNetFlowField::IPV6_SRC_MASK, 29);
    EXPECT_EQ(CNetFlowField::IPV6_DST_MASK, 30);
    EXPECT_EQ(CNetFlowField::IPV6_FLOW_LABEL, 31);
    EXPECT_EQ(CNetFlowField::ICMP_TYPE, 32);
    EXPECT_EQ(CNetFlowField::MUL_IGMP_TYPE, 33);
    EXPECT_EQ(CNetFlowField::SAMPLING_INTERVAL, 34);
    EXPECT_EQ(CNetFlowField::SAMPLING_ALGORITHM, 35);
    EXPECT_EQ(CNetFlowField::FLOW_ACTIVE_TIMEOUT, 36);
    EXPECT_EQ(CNetFlowField::FLOW_INACTIVE_TIMEOUT, 37);
    EXPECT_EQ(CNetFlowField::ENGINE_TYPE, 38);
    EXPECT_EQ(CNetFlowField::ENGINE_ID, 39);
    EXPECT_EQ(CNetFlowField::TOTAL_BYTES_EXPORTED, 40);
    EXPECT_EQ(CNetFlowField::TOTAL_EXPORT_PKTS_SENT, 41);
    EXPECT_EQ(CNetFlowField::TOTAL_FLOWS_EXPORTED, 42);
    EXPECT_EQ(CNetFlowField::IPV4_SRC_PREFIX, 44);
    EXPECT_EQ(CNetFlowField::IPV4_DST_PREFIX, 45);
    EXPECT_EQ(CNetFlowField::MPLS_TOP_LABEL_TYPE, 46);
    EXPECT_EQ(CNetFlowField::MPLS_TOP_LABEL_IP_ADDR, 47);
    EXPECT_EQ(CNetFlowField::FLOW_SAMPLER_ID, 48);
    EXPECT_EQ(CNetFlowField::FLOW_SAMPLER_MODE, 49);
    EXPECT_EQ(CNetFlowField::FLOW_SAMPLER_RANDOM_INTERVAL, 50);
    EXPECT_EQ(CNetFlowField::MIN_TTL, 52);
    EXPECT_EQ(CNetFlowField::MAX_TTL, 53);
    EXPECT_EQ(CNetFlowField::IPV4_IDENT, 54);
    EXPECT_EQ(CNetFlowField::DST_TOS, 55);
    EXPECT_EQ(CNetFlowField::IN_SRC_MAC, 56);
    EXPECT_EQ(CNetFlowField::OUT_DST_MAC, 57);
    EXPECT_EQ(CNetFlowField::SRC_VLAN, 58);
    EXPECT_EQ(CNetFlowField::DST_VLAN, 59);
    EXPECT_EQ(CNetFlowField::IP_PROTOCOL_VERSION, 60);
    EXPECT_EQ(CNetFlowField::DIRECTION, 61);
    EXPECT_EQ(CNetFlowField::IPV6_NEXT_HOP, 62);
    EXPECT_EQ(CNetFlowField::BGP_IPV6_NEXT_HOP, 63);
    EXPECT_EQ(CNetFlowField::IPV6_OPTION_HEADERS, 64);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_1, 70);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_2, 71);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_3, 72);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_4, 73);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_5, 74);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_6, 75);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_7, 76);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_8, 77);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_9, 78);
    EXPECT_EQ(CNetFlowField::MPLS_LABEL_10, 79);
    EXPECT_EQ(CNetFlowField::IN_DST_MAC, 80);
    EXPECT_EQ(CNetFlowField::OUT_SRC_MAC, 81);
    EXPECT_EQ(CNetFlowField::IF_NAME, 82);
    EXPECT_EQ(CNetFlowField::IF_DESC, 83);
    EXPECT_EQ(CNetFlowField::SAMPLER_NAME, 84);
    EXPECT_EQ(CNetFlowField::IN_PERMANENT_BYTES, 85);
    EXPECT_EQ(CNetFlowField::IN_PERMANENT_PKTS, 86);
    EXPECT_EQ(CNetFlowField::FRAGMENT_OFFSET, 88);
    EXPECT_EQ(CNetFlowField::FORWARDING_STATUS, 89);
    EXPECT_EQ(CNetFlowField::FLAGS, 1000);
    EXPECT_EQ(CNetFlowField::ROUTER_SC, 1001);
}

TEST(NetFlowFieldCatalogue, KindEnumeratorValues) {
    EXPECT_EQ(CNetFlowField::TYPE_INTEGER, 0);
    EXPECT_EQ(CNetFlowField::TYPE_IPV4_ADDRESS, 1);
    EXPECT_EQ(CNetFlowField::TYPE_IPV6_ADDRESS, 2);
    EXPECT_EQ(CNetFlowField::TYPE_STRING, 3);
    EXPECT_EQ(CNetFlowField::TYPE_MAC_ADDRESS, 4);
}

TEST(NetFlowFieldGetName, KnownIdentifiers) {
    EXPECT_EQ(CNetFlowField::GetName(CNetFlowField::IN_BYTES), L"IN_BYTES");
    EXPECT_EQ(CNetFlowField::GetName(CNetFlowField::ROUTER_SC), L"ROUTER_SC");
    EXPECT_EQ(CNetFlowField::GetName(CNetFlowField::FLAGS), L"FLAGS");
}

TEST(NetFlowFieldGetName, UnknownIdentifiersAreNamedBySignedNumber) {
    auto name = [](int id) { return CNetFlowField::GetName(static_cast<CNetFlowField::eFields>(id)); };
    EXPECT_EQ(name(43), L"UNKNOWN(43)");
    EXPECT_EQ(name(95), L"UNKNOWN(95)");
    EXPECT_EQ(name(0), L"UNKNOWN(0)");
    EXPECT_EQ(name(87), L"UNKNOWN(87)");
    EXPECT_EQ(name(999), L"UNKNOWN(999)");
    EXPECT_EQ(name(1002), L"UNKNOWN(1002)");
    EXPECT_EQ(name(65535), L"UNKNOWN(65535)");
    EXPECT_EQ(name(-5), L"UNKNOWN(-5)");
}

TEST(NetFlowFieldGetName, NumbersWithoutEnumeratorAreUnknown) {
    for (int id : {43, 51, 65, 66, 67, 68, 69, 87, 90, 500, 999})
        EXPECT_EQ(CNetFlowField::GetName(static_cast<CNetFlowField::eFields>(id)),
                  L"UNKNOWN(" + std::to_wstring(id) + L")");
}

TEST(NetFlowFieldGetName, MemberFormUsesTheFieldType) {
    CNetFlowField field;
    field.SetType(CNetFlowField::L4_DST_PORT);
    EXPECT_EQ(field.GetName(), L"L4_DST_PORT");
    field.SetType(4242);
    EXPECT_EQ(field.GetName(), L"UNKNOWN(4242)");
}

TEST(NetFlowFieldGetDescription, FragmentOffsetAndForwardingStatusHaveNone) {
    EXPECT_EQ(CNetFlowField::GetDescription(CNetFlowField::FRAGMENT_OFFSET), L"");
    EXPECT_EQ(CNetFlowField::GetDescription(CNetFlowField::FORWARDING_STATUS), L"");
    EXPECT_EQ(CNetFlowField::GetName(CNetFlowField::FRAGMENT_OFFSET), L"FRAGMENT_OFFSET");
    EXPECT_EQ(CNetFlowField::GetName(CNetFlowField::FORWARDING_STATUS), L"FORWARDING_STATUS");
}

TEST(NetFlowFieldGetDescription, UnknownIdentifiersHaveNone) {
    EXPECT_EQ(CNetFlowField::GetDescription(static_cast<CNetFlowField::eFields>(500)), L"");
    EXPECT_EQ(CNetFlowField::GetDescription(static_cast<CNetFlowField::eFields>(43)), L"");
    EXPECT_EQ(CNetFlowField::GetDescription(static_cast<CNetFlowField::eFields>(0)), L"");
}

TEST(NetFlowFieldGetDescription, SelfReferenceAndQuotesKept) {
    EXPECT_EQ(CNetFlowField::GetDescription(CNetFlowField::FLOW_SAMPLER_MODE),
              L"The type of algorithm used for sampling data: 0x02 random sampling. Use in connection with "
              L"FLOW_SAMPLER_MODE");
    EXPECT_EQ(CNetFlowField::GetDescription(CNetFlowField::IF_NAME),
              L"Shortened interface name e.g. \"FE1/0\"");
}

// --- Value class --------------------------------------------------------------------------------------

TEST(NetFlowField, DefaultIsTypeZeroLengthZeroNoScopeNoValue) {
    CNetFlowField field;
    EXPECT_EQ(field.GetType(), 0);
    EXPECT_EQ(field.GetLength(), 0);
    EXPECT_FALSE(field.IsScope());
    CByteArray value = {9};
    field.GetValue(value);
    EXPECT_TRUE(value.empty());
}

TEST(NetFlowField, AccessorsStoreWhatTheyAreGiven) {
    CNetFlowField field;
    field.SetType(8);
    field.SetLength(4);
    field.SetScope(TRUE);
    field.SetValue(CByteArray{10, 0, 0, 1});
    EXPECT_EQ(field.GetType(), 8);
    EXPECT_EQ(field.GetLength(), 4);
    EXPECT_TRUE(field.IsScope());
    CByteArray value;
    field.GetValue(value);
    EXPECT_EQ(value, (CByteArray{10, 0, 0, 1}));
}

TEST(NetFlowField, CopyConstructorAssignmentAndCopyCopyAllFourMembersDeeply) {
    CNetFlowField original = MakeField(CNetFlowField::IN_PKTS, CByteArray{0, 0, 1, 0});
    original.SetScope(TRUE);
    CNetFlowField constructed(original);
    CNetFlowField assigned;
    assigned = original;
    CNetFlowField copied;
    copied.Copy(original);
    original.SetValue(CByteArray{0xFF});
    original.SetType(1);
    for (const CNetFlowField* f : {&constructed, &assigned, &copied}) {
        EXPECT_EQ(f->GetType(), CNetFlowField::IN_PKTS);
        EXPECT_EQ(f->GetLength(), 4);
        EXPECT_TRUE(f->IsScope());
        CByteArray value;
        f->GetValue(value);
        EXPECT_EQ(value, (CByteArray{0, 0, 1, 0}));
    }
}

// --- Decode -------------------------------------------------------------------------------------------

TEST(NetFlowFieldDecode, ReadsTypeAndLengthAndAdvancesByFour) {
    CByteArray data = ByteBuilder().u16(0xFFFF).u16(CNetFlowField::IPV4_SRC_ADDR).u16(4).u16(0xEEEE);
    CNetFlowField field;
    field.SetScope(TRUE);
    field.SetValue(CByteArray{1, 2});
    int offset = 2;
    EXPECT_EQ(field.Decode(data, offset), TRUE);
    EXPECT_EQ(offset, 6);
    EXPECT_EQ(field.GetType(), CNetFlowField::IPV4_SRC_ADDR);
    EXPECT_EQ(field.GetLength(), 4);
    // Scope and value are left as they were.
    EXPECT_TRUE(field.IsScope());
    CByteArray value;
    field.GetValue(value);
    EXPECT_EQ(value, (CByteArray{1, 2}));
}

TEST(NetFlowFieldDecode, SixteenBitNumbersAreUnsigned) {
    CByteArray data = ByteBuilder().u16(0x8001).u16(0xFFFF);
    CNetFlowField field;
    int offset = 0;
    field.Decode(data, offset);
    EXPECT_EQ(field.GetType(), 0x8001);
    EXPECT_EQ(field.GetLength(), 65535);
}

TEST(NetFlowFieldDecode, SpecifierEndingExactlyAtTheEndIsRead) {
    CByteArray data = ByteBuilder().u16(1).u16(8);
    CNetFlowField field;
    int offset = 0;
    EXPECT_EQ(field.Decode(data, offset), TRUE);
    EXPECT_EQ(offset, 4);
    EXPECT_EQ(field.GetLength(), 8);
}

TEST(NetFlowFieldDecode, TwoBytesBeforeTheEndThrows) {
    CByteArray data = ByteBuilder().u16(1).u16(4).u16(2);
    CNetFlowField field;
    int offset = 4;
    EXPECT_THROW(field.Decode(data, offset), CInvalidArgException);
}

TEST(NetFlowFieldDecode, ThreeOrOneBytesBeforeTheEndThrows) {
    CByteArray data = ByteBuilder().u16(1).u16(4).u16(2);
    CNetFlowField field;
    int offset = 3;
    EXPECT_THROW(field.Decode(data, offset), CInvalidArgException);
    offset = 5;
    EXPECT_THROW(field.Decode(data, offset), CInvalidArgException);
}

TEST(NetFlowFieldDecode, OffsetAtEndOrNegativeThrows) {
    CByteArray data = ByteBuilder().u16(1).u16(4);
    CNetFlowField field;
    int offset = 4;
    EXPECT_THROW(field.Decode(data, offset), CInvalidArgException);
    offset = -2;
    EXPECT_THROW(field.Decode(data, offset), CInvalidArgException);
    offset = INT_MAX;
    EXPECT_THROW(field.Decode(data, offset), CInvalidArgException);
}

// --- GetValue: integers -------------------------------------------------------------------------------

TEST(NetFlowFieldIntegerValue, OneByteIsUnsignedDecimal) {
    EXPECT_EQ(ValueOf(CNetFlowField::PROT, CByteArray{6}), L"6");
    EXPECT_EQ(ValueOf(CNetFlowField::TCP_FLAGS, CByteArray{0xFF}), L"255");
}

TEST(NetFlowFieldIntegerValue, TwoBytesAreBigEndianUnsigned) {
    EXPECT_EQ(ValueOf(CNetFlowField::IN_BYTES, CByteArray{0x05, 0xFC}), L"1532");
    EXPECT_EQ(ValueOf(CNetFlowField::L4_SRC_PORT, CByteArray{0xFF, 0xFF}), L"65535");
}

TEST(NetFlowFieldIntegerValue, FourBytesPrintSigned) {
    EXPECT_EQ(ValueOf(CNetFlowField::IN_BYTES, CByteArray{0xFF, 0xFF, 0xFF, 0xFF}), L"-1");
    EXPECT_EQ(ValueOf(CNetFlowField::IN_BYTES, CByteArray{0x80, 0x00, 0x00, 0x00}), L"-2147483648");
    EXPECT_EQ(ValueOf(CNetFlowField::IN_PKTS, CByteArray{0x7F, 0xFF, 0xFF, 0xFF}), L"2147483647");
    EXPECT_EQ(ValueOf(CNetFlowField::FLOWS, CByteArray{0x00, 0x00, 0x00, 0x00}), L"0");
    EXPECT_EQ(ValueOf(CNetFlowField::FLAGS, CByteArray{0x00, 0x01, 0x00, 0x00}), L"65536");
}

TEST(NetFlowFieldIntegerValue, EightBytesPrintAsHexadecimal) {
    EXPECT_EQ(ValueOf(CNetFlowField::IN_BYTES, CByteArray{0, 0, 0, 0, 0, 0, 0x05, 0xFC}),
              L"00000000000005FC");
}

TEST(NetFlowFieldIntegerValue, OtherLengthsPrintAsHexadecimal) {
    EXPECT_EQ(ValueOf(CNetFlowField::IN_BYTES, CByteArray{0x01, 0xAB, 0x0F}), L"01AB0F");
    EXPECT_EQ(ValueOf(CNetFlowField::IPV6_FLOW_LABEL, CByteArray(16, 0xEE)), CString(32, L'E'));
    EXPECT_EQ(ValueOf(CNetFlowField::IN_BYTES, CByteArray{}), L"");
}

// --- GetValue: addresses and strings ------------------------------------------------------------------

TEST(NetFlowFieldIPv4Value, FourBytesRenderDotted) {
    EXPECT_EQ(ValueOf(CNetFlowField::IPV4_SRC_ADDR, CByteArray{192, 168, 1, 10}), L"192.168.1.10");
    EXPECT_EQ(ValueOf(CNetFlowField::ROUTER_SC, CByteArray{255, 255, 255, 255}), L"255.255.255.255");
}

TEST(NetFlowFieldIPv4Value, BytesBeyondTheFourthAreIgnored) {
    EXPECT_EQ(ValueOf(CNetFlowField::IPV4_NEXT_HOP, CByteArray{10, 0, 0, 1, 99, 98}), L"10.0.0.1");
}

TEST(NetFlowFieldIPv4Value, FewerThanFourBytesThrow) {
    EXPECT_THROW(ValueOf(CNetFlowField::IPV4_DST_ADDR, CByteArray{10, 0, 0}), CInvalidArgException);
    EXPECT_THROW(ValueOf(CNetFlowField::IPV4_DST_ADDR, CByteArray{}), CInvalidArgException);
}

TEST(NetFlowFieldIPv6Value, SixteenZeroBytesRenderEightZeroGroups) {
    EXPECT_EQ(ValueOf(CNetFlowField::IPV6_SRC_ADDR, CByteArray(16, 0)),
              L"0000:0000:0000:0000:0000:0000:0000:0000");
}

TEST(NetFlowFieldIPv6Value, UpperCaseGroupsWithoutCompression) {
    CByteArray bytes = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x02, 0xB3, 0xFF, 0xFE, 0x1E, 0x83, 0x29};
    EXPECT_EQ(ValueOf(CNetFlowField::IPV6_DST_ADDR, bytes), L"FE80:0000:0000:0000:0202:B3FF:FE1E:8329");
}

TEST(NetFlowFieldIPv6Value, ShortAndEmptyValues) {
    EXPECT_EQ(ValueOf(CNetFlowField::IPV6_NEXT_HOP, CByteArray{0xAB, 0xCD}), L"ABCD");
    EXPECT_EQ(ValueOf(CNetFlowField::IPV6_NEXT_HOP, CByteArray{}), L"");
}

TEST(NetFlowFieldIPv6Value, OddLengthThrowsAtUnpairedByte) {
    EXPECT_THROW(ValueOf(CNetFlowField::BGP_IPV6_NEXT_HOP, CByteArray{0xAB, 0xCD, 0xEF}),
                 CInvalidArgException);
}

TEST(NetFlowFieldStringValue, EveryByteBecomesOneCharacter) {
    EXPECT_EQ(ValueOf(CNetFlowField::IF_NAME, ByteBuilder().text("FE1/0").build()), L"FE1/0");
    EXPECT_EQ(ValueOf(CNetFlowField::IF_DESC, CByteArray{'a', 0, 'b', 0}), CString(L"a\0b\0", 4));
    EXPECT_EQ(ValueOf(CNetFlowField::SAMPLER_NAME, CByteArray{0xE9, 0x80}), CString(L"\x00E9\x0080"));
    EXPECT_EQ(ValueOf(CNetFlowField::SAMPLER_NAME, CByteArray{}), L"");
}

TEST(NetFlowFieldMacValue, SixBytesJoinedByColonsWithoutTrailingColon) {
    EXPECT_EQ(ValueOf(CNetFlowField::IN_SRC_MAC, CByteArray{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}),
              L"AA:BB:CC:DD:EE:FF");
    EXPECT_EQ(ValueOf(CNetFlowField::OUT_DST_MAC, CByteArray{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}),
              L"00:1A:2B:3C:4D:5E");
}

TEST(NetFlowFieldMacValue, OtherLengths) {
    EXPECT_EQ(ValueOf(CNetFlowField::IN_DST_MAC, CByteArray{0x0A}), L"0A");
    EXPECT_EQ(ValueOf(CNetFlowField::OUT_SRC_MAC, CByteArray{}), L"");
}

TEST(NetFlowFieldUnknownValue, EachByteAsDecimalWithTrailingSpace) {
    EXPECT_EQ(ValueOf(95, CByteArray{0x01, 0x02}), L"1 2 ");
    EXPECT_EQ(ValueOf(43, CByteArray{0x0A, 0x00, 0xFF}), L"10 0 255 ");
    EXPECT_EQ(ValueOf(65535, CByteArray{}), L"");
}

TEST(NetFlowFieldValue, KindOutsideTheKnownKindsGivesEmptyText) {
    auto id = static_cast<CNetFlowField::eFields>(999);
    CNetFlowField::Init();
    CNetFlowField::m_FieldTypes[id] = static_cast<CNetFlowField::eTypes>(7);
    CString text = ValueOf(999, CByteArray{1, 2, 3, 4});
    CNetFlowField::m_FieldTypes.erase(id);
    EXPECT_EQ(text, L"");
}

// --- ToString -----------------------------------------------------------------------------------------

TEST(NetFlowFieldToString, NameEqualsValue) {
    EXPECT_EQ(MakeField(CNetFlowField::IN_BYTES, CByteArray{0x05, 0xFC}).ToString(), L"IN_BYTES=1532");
    EXPECT_EQ(MakeField(CNetFlowField::IPV4_SRC_ADDR, CByteArray{10, 0, 0, 1}).ToString(),
              L"IPV4_SRC_ADDR=10.0.0.1");
}

TEST(NetFlowFieldToString, UnknownFieldKeepsTrailingSpace) {
    EXPECT_EQ(MakeField(95, CByteArray{0x01, 0x02}).ToString(), L"UNKNOWN(95)=1 2 ");
}

TEST(NetFlowFieldToString, StringValueStopsAtFirstZeroCharacter) {
    EXPECT_EQ(MakeField(CNetFlowField::IF_NAME, CByteArray{'e', 't', 'h', '0', 0, 0}).ToString(),
              L"IF_NAME=eth0");
    EXPECT_EQ(MakeField(CNetFlowField::IF_NAME, CByteArray{0, 'x'}).ToString(), L"IF_NAME=");
}

TEST(NetFlowFieldToString, RenderingFailurePropagates) {
    EXPECT_THROW(MakeField(CNetFlowField::IPV4_SRC_ADDR, CByteArray{1}).ToString(), CInvalidArgException);
}
