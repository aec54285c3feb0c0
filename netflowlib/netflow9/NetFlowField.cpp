#include "netflow9/NetFlowField.h"

#include "util/Format.h"
#include "util/NetFlowUtility.h"

#include <cwchar>
#include <mutex>

std::map<CNetFlowField::eFields, CString> CNetFlowField::m_FieldNames;
std::map<CNetFlowField::eFields, CString> CNetFlowField::m_FieldDescriptions;
std::map<CNetFlowField::eFields, CNetFlowField::eTypes> CNetFlowField::m_FieldTypes;

namespace {

struct FieldEntry {
    CNetFlowField::eFields id;
    const wchar_t* name;
    CNetFlowField::eTypes type;
    const wchar_t* description; // null: no description entry
};

// Texts as the exporters' documentation gave them, irregular punctuation included.
const FieldEntry kCatalogue[] = {
    {CNetFlowField::IN_BYTES, L"IN_BYTES", CNetFlowField::TYPE_INTEGER,
     L"Incoming counter with length N x 8 bits for number of bytes associated with an IP Flow."},
    {CNetFlowField::IN_PKTS, L"IN_PKTS", CNetFlowField::TYPE_INTEGER,
     L"Incoming counter with length N x 8 bits for the number of packets associated with an IP Flow"},
    {CNetFlowField::FLOWS, L"FLOWS", CNetFlowField::TYPE_INTEGER,
     L"Number of flows that were aggregated; default for N is 4"},
    {CNetFlowField::PROT, L"PROT", CNetFlowField::TYPE_INTEGER, L"IP protocol byte"},
    {CNetFlowField::SRC_TOS, L"SRC_TOS", CNetFlowField::TYPE_INTEGER,
     L"Type of Service byte setting when entering incoming interface"},
    {CNetFlowField::TCP_FLAGS, L"TCP_FLAGS", CNetFlowField::TYPE_INTEGER,
     L"Cumulative of all the TCP flags seen for this flow"},
    {CNetFlowField::L4_SRC_PORT, L"L4_SRC_PORT", CNetFlowField::TYPE_INTEGER,
     L"TCP/UDP source port number e.g. FTP, Telnet, or equivalent"},
    {CNetFlowField::IPV4_SRC_ADDR, L"IPV4_SRC_ADDR", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 source address"},
    {CNetFlowField::SRC_MASK, L"SRC_MASK", CNetFlowField::TYPE_INTEGER,
     L"The number of contiguous bits in the source address subnet mask i.e. the submask in slash notation"},
    {CNetFlowField::INPUT_SNMP, L"INPUT_SNMP", CNetFlowField::TYPE_INTEGER,
     L"Input interface index; default for N is 2 but higher values could be used"},
    {CNetFlowField::L4_DST_PORT, L"L4_DST_PORT", CNetFlowField::TYPE_INTEGER,
     L"TCP/UDP destination port number e.g. FTP, Telnet, or equivalent"},
    {CNetFlowField::IPV4_DST_ADDR, L"IPV4_DST_ADDR", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 destination address"},
    {CNetFlowField::DST_MASK, L"DST_MASK", CNetFlowField::TYPE_INTEGER,
     L"The number of contiguous bits in the destination address subnet mask i.e. the submask in slash "
     L"notation"},
    {CNetFlowField::OUTPUT_SNMP, L"OUTPUT_SNMP", CNetFlowField::TYPE_INTEGER,
     L"Output interface index; default for N is 2 but higher values could be used"},
    {CNetFlowField::IPV4_NEXT_HOP, L"IPV4_NEXT_HOP", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 address of next-hop router"},
    {CNetFlowField::SRC_AS, L"SRC_AS", CNetFlowField::TYPE_INTEGER,
     L"Source BGP autonomous system number where N could be 2 or 4"},
    {CNetFlowField::DST_AS, L"DST_AS", CNetFlowField::TYPE_INTEGER,
     L"Destination BGP autonomous system number where N could be 2 or 4"},
    {CNetFlowField::BGP_NEXT_HOP, L"BGP_NEXT_HOP", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"Next-hop router's IP in the BGP domain"},
    {CNetFlowField::IPM_DPKTS, L"IPM_DPKTS", CNetFlowField::TYPE_INTEGER,
     L"IP multicast outgoing packet counter with length N x 8 bits for packets associated with the IP Flow"},
    {CNetFlowField::IPM_DOCTETS, L"IPM_DOCTETS", CNetFlowField::TYPE_INTEGER,
     L"IP multicast outgoing byte counter with length N x 8 bits for bytes associated with the IP Flow"},
    {CNetFlowField::LAST_SWITCHED, L"LAST_SWITCHED", CNetFlowField::TYPE_INTEGER,
     L"System uptime at which the last packet of this flow was switched"},
    {CNetFlowField::FIRST_SWITCHED, L"FIRST_SWITCHED", CNetFlowField::TYPE_INTEGER,
     L"System uptime at which the first packet of this flow was switched"},
    {CNetFlowField::OUT_BYTES, L"OUT_BYTES", CNetFlowField::TYPE_INTEGER,
     L"Outgoing counter with length N x 8 bits for the number of bytes associated with an IP Flow"},
    {CNetFlowField::OUT_PKTS, L"OUT_PKTS", CNetFlowField::TYPE_INTEGER,
     L"Outgoing counter with length N x 8 bits for the number of packets associated with an IP Flow."},
    {CNetFlowField::MIN_PKT_LENGTH, L"MIN_PKT_LENGTH", CNetFlowField::TYPE_INTEGER,
     L"Minimum IP packet length on incoming packets of the flow"},
    {CNetFlowField::MAX_PKT_LENGTH, L"MAX_PKT_LENGTH", CNetFlowField::TYPE_INTEGER,
     L"Maximum IP packet length on incoming packets of the flow"},
    {CNetFlowField::IPV6_SRC_ADDR, L"IPV6_SRC_ADDR", CNetFlowField::TYPE_IPV6_ADDRESS,
     L"IPv6 Source Address"},
    {CNetFlowField::IPV6_DST_ADDR, L"IPV6_DST_ADDR", CNetFlowField::TYPE_IPV6_ADDRESS,
     L"IPv6 Destination Address"},
    {CNetFlowField::IPV6_SRC_MASK, L"IPV6_SRC_MASK", CNetFlowField::TYPE_INTEGER,
     L"Length of the IPv6 source mask in contiguous bits"},
    {CNetFlowField::IPV6_DST_MASK, L"IPV6_DST_MASK", CNetFlowField::TYPE_INTEGER,
     L"Length of the IPv6 destination mask in contiguous bits"},
    {CNetFlowField::IPV6_FLOW_LABEL, L"IPV6_FLOW_LABEL", CNetFlowField::TYPE_INTEGER,
     L"IPv6 flow label as per RFC 2460 definition"},
    {CNetFlowField::ICMP_TYPE, L"ICMP_TYPE", CNetFlowField::TYPE_INTEGER,
     L"Internet Control Message Protocol (ICMP) packet type; reported as ((ICMP Type * 256) + ICMP code)"},
    {CNetFlowField::MUL_IGMP_TYPE, L"MUL_IGMP_TYPE", CNetFlowField::TYPE_INTEGER,
     L"Internet Group Management Protocol (IGMP) packet type"},
    {CNetFlowField::SAMPLING_INTERVAL, L"SAMPLING_INTERVAL", CNetFlowField::TYPE_INTEGER,
     L"When using sampled NetFlow, the rate at which packets are sampled e.g. a value of 100 indicates that "
     L"one of every 100 packets is sampled"},
    {CNetFlowField::SAMPLING_ALGORITHM, L"SAMPLING_ALGORITHM", CNetFlowField::TYPE_INTEGER,
     L"The type of algorithm used for sampled NetFlow: 0x01 Deterministic Sampling ,0x02 Random Sampling"},
    {CNetFlowField::FLOW_ACTIVE_TIMEOUT, L"FLOW_ACTIVE_TIMEOUT", CNetFlowField::TYPE_INTEGER,
     L"Timeout value (in seconds) for active flow entries in the NetFlow cache"},
    {CNetFlowField::FLOW_INACTIVE_TIMEOUT, L"FLOW_INACTIVE_TIMEOUT", CNetFlowField::TYPE_INTEGER,
     L"Timeout value (in seconds) for inactive flow entries in the NetFlow cache"},
    {CNetFlowField::ENGINE_TYPE, L"ENGINE_TYPE", CNetFlowField::TYPE_INTEGER,
     L"Type of flow switching engine: RP = 0, VIP/Linecard = 1"},
    {CNetFlowField::ENGINE_ID, L"ENGINE_ID", CNetFlowField::TYPE_INTEGER,
     L"ID number of the flow switching engine"},
    {CNetFlowField::TOTAL_BYTES_EXPORTED, L"TOTAL_BYTES_EXPORTED", CNetFlowField::TYPE_INTEGER,
     L"Counter with length N x 8 bits for bytes for the number of bytes exported by the Observation Domain"},
    {CNetFlowField::TOTAL_EXPORT_PKTS_SENT, L"TOTAL_EXPORT_PKTS_SENT", CNetFlowField::TYPE_INTEGER,
     L"Counter with length N x 8 bits for bytes for the number of packets exported by the Observation "
     L"Domain"},
    {CNetFlowField::TOTAL_FLOWS_EXPORTED, L"TOTAL_FLOWS_EXPORTED", CNetFlowField::TYPE_INTEGER,
     L"Counter with length N x 8 bits for bytes for the number of flows exported by the Observation Domain"},
    {CNetFlowField::IPV4_SRC_PREFIX, L"IPV4_SRC_PREFIX", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 source address prefix (specific for Catalyst architecture)"},
    {CNetFlowField::IPV4_DST_PREFIX, L"IPV4_DST_PREFIX", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IPv4 destination address prefix (specific for Catalyst architecture)"},
    {CNetFlowField::MPLS_TOP_LABEL_TYPE, L"MPLS_TOP_LABEL_TYPE", CNetFlowField::TYPE_INTEGER,
     L"MPLS Top Label Type: 0x00 UNKNOWN 0x01 TE-MIDPT 0x02 ATOM 0x03 VPN 0x04 BGP 0x05 LDP"},
    {CNetFlowField::MPLS_TOP_LABEL_IP_ADDR, L"MPLS_TOP_LABEL_IP_ADDR", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"Forwarding Equivalent Class corresponding to the MPLS Top Label"},
    {CNetFlowField::FLOW_SAMPLER_ID, L"FLOW_SAMPLER_ID", CNetFlowField::TYPE_INTEGER,
     L"Identifier shown in \"show flow-sampler\""},
    {CNetFlowField::FLOW_SAMPLER_MODE, L"FLOW_SAMPLER_MODE", CNetFlowField::TYPE_INTEGER,
     L"The type of algorithm used for sampling data: 0x02 random sampling. Use in connection with "
     L"FLOW_SAMPLER_MODE"},
    {CNetFlowField::FLOW_SAMPLER_RANDOM_INTERVAL, L"FLOW_SAMPLER_RANDOM_INTERVAL",
     CNetFlowField::TYPE_INTEGER,
     L"Packet interval at which to sample. Use in connection with FLOW_SAMPLER_MODE"},
    {CNetFlowField::MIN_TTL, L"MIN_TTL", CNetFlowField::TYPE_INTEGER,
     L"Minimum TTL on incoming packets of the flow"},
    {CNetFlowField::MAX_TTL, L"MAX_TTL", CNetFlowField::TYPE_INTEGER,
     L"Maximum TTL on incoming packets of the flow"},
    {CNetFlowField::IPV4_IDENT, L"IPV4_IDENT", CNetFlowField::TYPE_INTEGER,
     L"The IP v4 identification field"},
    {CNetFlowField::DST_TOS, L"DST_TOS", CNetFlowField::TYPE_INTEGER,
     L"Type of Service byte setting when exiting outgoing interface"},
    {CNetFlowField::IN_SRC_MAC, L"IN_SRC_MAC", CNetFlowField::TYPE_MAC_ADDRESS,
     L"Incoming source MAC address"},
    {CNetFlowField::OUT_DST_MAC, L"OUT_DST_MAC", CNetFlowField::TYPE_MAC_ADDRESS,
     L"Outgoing destination MAC address"},
    {CNetFlowField::SRC_VLAN, L"SRC_VLAN", CNetFlowField::TYPE_INTEGER,
     L"Virtual LAN identifier associated with ingress interface"},
    {CNetFlowField::DST_VLAN, L"DST_VLAN", CNetFlowField::TYPE_INTEGER,
     L"Virtual LAN identifier associated with egress interface"},
    {CNetFlowField::IP_PROTOCOL_VERSION, L"IP_PROTOCOL_VERSION", CNetFlowField::TYPE_INTEGER,
     L"Internet Protocol Version Set to 4 for IPv4, set to 6 for IPv6. If not present in the template, then "
     L"version 4 is assumed."},
    {CNetFlowField::DIRECTION, L"DIRECTION", CNetFlowField::TYPE_INTEGER,
     L"Flow direction: 0 - ingress flow, 1 - egress flow"},
    {CNetFlowField::IPV6_NEXT_HOP, L"IPV6_NEXT_HOP", CNetFlowField::TYPE_IPV6_ADDRESS,
     L"IPv6 address of the next-hop router"},
    {CNetFlowField::BGP_IPV6_NEXT_HOP, L"BGP_IPV6_NEXT_HOP", CNetFlowField::TYPE_IPV6_ADDRESS,
     L"Next-hop router in the BGP domain"},
    {CNetFlowField::IPV6_OPTION_HEADERS, L"IPV6_OPTION_HEADERS", CNetFlowField::TYPE_INTEGER,
     L"Bit-encoded field identifying IPv6 option headers found in the flow"},
    {CNetFlowField::MPLS_LABEL_1, L"MPLS_LABEL_1", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 1 in the stack"},
    {CNetFlowField::MPLS_LABEL_2, L"MPLS_LABEL_2", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 2 in the stack"},
    {CNetFlowField::MPLS_LABEL_3, L"MPLS_LABEL_3", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 3 in the stack"},
    {CNetFlowField::MPLS_LABEL_4, L"MPLS_LABEL_4", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 4 in the stack"},
    {CNetFlowField::MPLS_LABEL_5, L"MPLS_LABEL_5", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 5 in the stack"},
    {CNetFlowField::MPLS_LABEL_6, L"MPLS_LABEL_6", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 6 in the stack"},
    {CNetFlowField::MPLS_LABEL_7, L"MPLS_LABEL_7", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 7 in the stack"},
    {CNetFlowField::MPLS_LABEL_8, L"MPLS_LABEL_8", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 8 in the stack"},
    {CNetFlowField::MPLS_LABEL_9, L"MPLS_LABEL_9", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 9 in the stack"},
    {CNetFlowField::MPLS_LABEL_10, L"MPLS_LABEL_10", CNetFlowField::TYPE_INTEGER,
     L"MPLS label at position 10 in the stack"},
    {CNetFlowField::IN_DST_MAC, L"IN_DST_MAC", CNetFlowField::TYPE_MAC_ADDRESS,
     L"Incoming destination MAC address"},
    {CNetFlowField::OUT_SRC_MAC, L"OUT_SRC_MAC", CNetFlowField::TYPE_MAC_ADDRESS,
     L"Outgoing source MAC address"},
    {CNetFlowField::IF_NAME, L"IF_NAME", CNetFlowField::TYPE_STRING,
     L"Shortened interface name e.g. \"FE1/0\""},
    {CNetFlowField::IF_DESC, L"IF_DESC", CNetFlowField::TYPE_STRING,
     L"Full interface name e.g. \"FastEthernet 1/0\""},
    {CNetFlowField::SAMPLER_NAME, L"SAMPLER_NAME", CNetFlowField::TYPE_STRING, L"Name of the flow sampler"},
    {CNetFlowField::IN_PERMANENT_BYTES, L"IN_PERMANENT_BYTES", CNetFlowField::TYPE_INTEGER,
     L"Running byte counter for a permanent flow"},
    {CNetFlowField::IN_PERMANENT_PKTS, L"IN_PERMANENT_PKTS", CNetFlowField::TYPE_INTEGER,
     L"Running packet counter for a permanent flow"},
    {CNetFlowField::FRAGMENT_OFFSET, L"FRAGMENT_OFFSET", CNetFlowField::TYPE_INTEGER, nullptr},
    {CNetFlowField::FORWARDING_STATUS, L"FORWARDING_STATUS", CNetFlowField::TYPE_INTEGER, nullptr},
    {CNetFlowField::FLAGS, L"FLAGS", CNetFlowField::TYPE_INTEGER,
     L"Flags indicating, among other things, what flows are invalid"},
    {CNetFlowField::ROUTER_SC, L"ROUTER_SC", CNetFlowField::TYPE_IPV4_ADDRESS,
     L"IP address of the router that is bypassed by the Catalyst 5000 series switch. This is the same "
     L"address the router uses when it sends NetFlow export packets. This IP address is propagated to all "
     L"switches bypassing the router through the FCP protocol."},
};

} // namespace

void CNetFlowField::Init() {
    // Once per process, so decoders on several threads can make the first call together.
    static std::once_flag filled;
    std::call_once(filled, [] {
        if (!m_FieldNames.empty())
            return;
        for (const FieldEntry& entry : kCatalogue)
            m_FieldNames[entry.id] = entry.name;
        // FRAGMENT_OFFSET and FORWARDING_STATUS deliberately have no description.
        for (const FieldEntry& entry : kCatalogue)
            if (entry.description != nullptr)
                m_FieldDescriptions[entry.id] = entry.description;
        for (const FieldEntry& entry : kCatalogue)
            m_FieldTypes[entry.id] = entry.type;
    });
}

CString CNetFlowField::GetName(eFields id) {
    Init();
    auto it = m_FieldNames.find(id);
    if (it == m_FieldNames.end())
        return tpnf::FormatText(L"UNKNOWN(%d)", static_cast<int>(id));
    return it->second;
}

CString CNetFlowField::GetDescription(eFields id) {
    Init();
    auto it = m_FieldDescriptions.find(id);
    return it == m_FieldDescriptions.end() ? CString() : it->second;
}

BOOL CNetFlowField::Decode(const CByteArray& data, int& offset) {
    m_type = (ElementAt(data, offset) << 8) | ElementAt(data, WrapAdd(offset, 1));
    offset = WrapAdd(offset, 2);
    m_length = (ElementAt(data, offset) << 8) | ElementAt(data, WrapAdd(offset, 1));
    offset = WrapAdd(offset, 2);
    return TRUE;
}

CString CNetFlowField::GetValue() const {
    Init();
    CString text;
    auto it = m_FieldTypes.find(static_cast<eFields>(m_type));
    if (it == m_FieldTypes.end()) {
        // Unknown type: each byte as "%d ", trailing space kept.
        text.reserve(m_value.size() * 4);
        for (uint8_t byte : m_value) {
            tpnf::AppendDecimal(text, byte);
            text += L' ';
        }
        return text;
    }
    switch (it->second) {
    case TYPE_INTEGER:
        switch (m_value.size()) {
        case 1:
            tpnf::AppendDecimal(text, m_value[0]);
            break;
        case 2:
            tpnf::AppendDecimal(text, CNetFlowUtility::GetUShort(m_value, 0));
            break;
        case 4:
            // Signed 32-bit on purpose: counters from 2^31 on print negative.
            tpnf::AppendDecimal(text, CNetFlowUtility::GetULong(m_value, 0));
            break;
        default:
            // Other lengths, 8-byte counters included, print as plain hexadecimal: intended.
            text.reserve(m_value.size() * 2);
            for (uint8_t byte : m_value)
                tpnf::AppendHex(text, byte);
            break;
        }
        return text;
    case TYPE_IPV4_ADDRESS:
        // Bytes past the fourth are ignored; fewer than four throw from the reader.
        return CNetFlowIPAddress::FormatIPv4(static_cast<uint32_t>(CNetFlowUtility::GetULong(m_value, 0)));
    case TYPE_IPV6_ADDRESS:
        // Two-byte groups, no zero compression; an odd length throws at the unpaired byte.
        text.reserve(m_value.size() / 2 * 5);
        for (size_t i = 0; i < m_value.size(); i += 2) {
            tpnf::AppendHex(text, m_value[i]);
            tpnf::AppendHex(text, ElementAt(m_value, static_cast<int64_t>(i) + 1));
            text += L':';
        }
        break;
    case TYPE_STRING:
        // Every byte becomes one character, zero bytes included.
        return CString(m_value.begin(), m_value.end());
    case TYPE_MAC_ADDRESS:
        text.reserve(m_value.size() * 3);
        for (uint8_t byte : m_value) {
            tpnf::AppendHex(text, byte);
            text += L':';
        }
        break;
    }
    while (!text.empty() && text.back() == L':')
        text.pop_back();
    return text;
}

CString CNetFlowField::ToString() const {
    return FormatField(GetName(), GetValue());
}

CString CNetFlowField::FormatField(CString name, const CString& value) {
    // The text of "%s=%s": each part ends at its first zero character, as %s does.
    name.resize(std::wcslen(name.c_str()));
    name += L'=';
    name.append(value.c_str(), std::wcslen(value.c_str()));
    return name;
}
