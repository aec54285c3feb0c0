#include "flows/FlowMaker.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "flows/SampledHeaderParser.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow9/NetFlowPacketV9.h"
#include "sflow/SFlowPacket.h"
#include "util/TextConvert.h"

using K = EFlowKey;

namespace {

// The time of an uptime reading, given the export time and the uptime at export. The difference is
// taken as a signed 32-bit number, so an uptime that wrapped between the flow and the export still
// gives the right time.
int64_t TimeOfUptime(int64_t exportTime, uint32_t sysUptime, uint32_t uptime) {
    return exportTime - static_cast<int32_t>(sysUptime - uptime);
}

// The largest value a key can have. A larger one (from a field of an unusual width, or a garbled
// record) is no value of that key and leaves the key null.
int64_t Largest(K key) {
    switch (key) {
    case K::SrcPort:
    case K::DstPort:
    case K::TcpFlags: // IPFIX's TCP control bits take 16 bits
        return 65535;
    case K::Proto:
    case K::Tos:
        return 255;
    case K::SrcMask:
    case K::DstMask:
        return 128;
    case K::Vlan:
        return 4095;
    default:
        return std::numeric_limits<int64_t>::max();
    }
}

void SetChecked(CFlowRecord& flow, K key, int64_t value) {
    if (value >= 0 && value <= Largest(key))
        flow.Set(key, value);
}

// The keys every flow of one packet shares.
CFlowRecord PacketFlow(const CFlowContext& context, EFlowProtocol protocol) {
    CFlowRecord flow;
    flow.Set(K::TimeReceived, context.timeReceived);
    if (context.exporter.length == 4 || context.exporter.length == 16) {
        flow.SetAddress(K::Exporter,
                        CFlowAddress::FromBytes(context.exporter.bytes.data(), context.exporter.length));
        flow.Set(K::ExporterPort, context.exporter.port);
    }
    flow.SetProtocol(protocol);
    flow.Set(K::SamplingRate, 1);
    return flow;
}

// Export time in ms of a NetFlow v1/v5/v7/v8 header, which carries residual nanoseconds.
int64_t ExportTime(const CNetFlowHeaderCommonFields& header) {
    return int64_t(header.m_unixSecs) * 1000 + header.m_unixNsecs / 1000000;
}

void SetTimes(CFlowRecord& flow, int64_t exportTime, uint32_t sysUptime, uint32_t first, uint32_t last) {
    flow.Set(K::FlowStart, TimeOfUptime(exportTime, sysUptime, first));
    flow.Set(K::FlowEnd, TimeOfUptime(exportTime, sysUptime, last));
}

// The 36 bytes v1, v5 and v7 records share.
void SetCommonFields(CFlowRecord& flow, const CNetFlowRecordCommonFields& record, int64_t exportTime,
                     uint32_t sysUptime) {
    flow.Set(K::IpVersion, 4);
    flow.SetAddress(K::SrcAddr, CFlowAddress::IPv4(record.m_srcAddr));
    flow.SetAddress(K::DstAddr, CFlowAddress::IPv4(record.m_dstAddr));
    flow.SetAddress(K::NextHop, CFlowAddress::IPv4(record.m_nextHop));
    flow.Set(K::InIf, record.m_inputIf);
    flow.Set(K::OutIf, record.m_outputIf);
    flow.Set(K::Packets, record.m_dPkts);
    flow.Set(K::Bytes, record.m_dOctets);
    SetTimes(flow, exportTime, sysUptime, record.m_first, record.m_last);
    flow.Set(K::SrcPort, record.m_srcPort);
    flow.Set(K::DstPort, record.m_dstPort);
}

void SetV5Fields(CFlowRecord& flow, const CNetFlowRecordV5& record, int64_t exportTime, uint32_t sysUptime) {
    SetCommonFields(flow, record, exportTime, sysUptime);
    flow.Set(K::Proto, record.m_prot);
    flow.Set(K::Tos, record.m_tos);
    flow.Set(K::TcpFlags, record.m_tcpFlags);
    flow.Set(K::SrcAs, record.m_srcAS);
    flow.Set(K::DstAs, record.m_dstAS);
    SetChecked(flow, K::SrcMask, record.m_srcMask);
    SetChecked(flow, K::DstMask, record.m_dstMask);
}

// The fixed-format packets hand out their record arrays by reference only from a non-const packet;
// reading them changes nothing.
template <class Packet>
const auto& RecordsOf(const Packet& packet) {
    return const_cast<Packet&>(packet).GetRecords();
}

// The bytes of a value of 1 to 8 bytes as one big-endian number; false for other lengths.
bool Bits(const CByteArray& value, uint64_t& out) {
    if (value.empty() || value.size() > 8)
        return false;
    out = 0;
    for (uint8_t b : value)
        out = (out << 8) | b;
    return true;
}

// A v9 or IPFIX field value as an unsigned big-endian number of 1 to 8 bytes; false for other lengths. A
// value beyond the 64-bit signed range is kept at its largest value.
bool UnsignedValue(const CByteArray& value, int64_t& out) {
    uint64_t number;
    if (!Bits(value, number))
        return false;
    out = number > uint64_t(std::numeric_limits<int64_t>::max()) ? std::numeric_limits<int64_t>::max()
                                                                 : static_cast<int64_t>(number);
    return true;
}

void SetAddressField(CFlowRecord& flow, K key, const CByteArray& value, size_t length) {
    if (value.size() == length)
        flow.SetAddress(key, CFlowAddress::FromBytes(value.data(), length));
}

void SetIntegerField(CFlowRecord& flow, K key, const CByteArray& value) {
    int64_t number;
    if (UnsignedValue(value, number))
        SetChecked(flow, key, number);
}

// Sets a key from a fallback field only when its preferred field has not set it (e.g. OUT_BYTES where
// a record has no IN_BYTES); the preferred field overwrites whatever a fallback set.
void SetFallbackField(CFlowRecord& flow, K key, const CByteArray& value, bool preferredSeen) {
    if (!preferredSeen)
        SetIntegerField(flow, key, value);
}

// 4 or 6 by the kind of address a v9 record carries.
int AddressVersion(const CFlowRecord& flow) {
    const CFlowAddress& address =
        flow.IsNull(K::SrcAddr) ? flow.GetAddress(K::DstAddr) : flow.GetAddress(K::SrcAddr);
    return address.length == 4 ? 4 : 6;
}

// The interface of a version 5 sample: format 0 names one interface, 0x3FFFFFFF an unknown one; the
// other formats (discarded, several interfaces) name none.
void SetSFlowInterface(CFlowRecord& flow, K key, int32_t format, uint32_t port, bool compact) {
    if (!compact) {
        // Version 2/4: one word; the output's top bit marks several interfaces.
        if (key == K::InIf || (port & 0x80000000u) == 0)
            flow.Set(key, port);
        return;
    }
    if (format == 0 && port != 0x3FFFFFFF)
        flow.Set(key, port);
}

CFlowAddress AddressOf(const CNetFlowIPAddress& address) {
    CFlowAddress result;
    const size_t length = address.m_address.size();
    if (length != 4 && length != 16)
        return result;
    result.length = static_cast<uint8_t>(length);
    for (size_t i = 0; i < length; ++i)
        result.bytes[i] = static_cast<uint8_t>(address.m_address[i]);
    return result;
}

// The destination AS of a gateway record: the last AS on the path, or the router's own AS when the
// path is empty (the destination is local).
bool DestinationAS(const CSFlowExtendedGatewayRecord& gateway, uint32_t version, uint32_t& as) {
    const CUIntArray* last = nullptr;
    if (version == 2) {
        last = &gateway.m_dstASPath;
    } else {
        for (const CSFlowASPath& segment : gateway.m_asPath) {
            const CUIntArray& numbers = segment.m_type == 1 ? segment.m_asSet : segment.m_asSequence;
            if (!numbers.empty())
                last = &numbers;
        }
    }
    if (last != nullptr && !last->empty()) {
        as = last->back();
        return true;
    }
    as = gateway.m_as;
    return gateway.m_as != 0xFFFFFFFF;
}

// The packet data of a flow sample: a sampled header, or a sampled IPv4 or IPv6 record. False when the
// record is none of these or cannot be read. Record: the packet's compact record or a full holder.
template <class Record>
bool SetPacketData(CFlowRecord& flow, const Record& record) {
    if (const auto* header = record.template Get<CSFlowHeaderRecord>()) {
        if (!CSampledHeaderParser::Parse(header->m_protocol, header->m_header.data(), header->m_header.size(),
                                         flow))
            return false;
        flow.Set(K::Bytes, header->m_frameLength);
        return true;
    }
    if (const auto* ip = record.template Get<CSFlowIPv4Record>()) {
        flow.Set(K::IpVersion, 4);
        flow.Set(K::Bytes, ip->m_length);
        SetChecked(flow, K::Proto, ip->m_protocol);
        flow.SetAddress(K::SrcAddr, AddressOf(ip->m_srcIP));
        flow.SetAddress(K::DstAddr, AddressOf(ip->m_dstIP));
        SetChecked(flow, K::SrcPort, ip->m_srcPort);
        SetChecked(flow, K::DstPort, ip->m_dstPort);
        SetChecked(flow, K::TcpFlags, ip->m_tcpFlags);
        SetChecked(flow, K::Tos, ip->m_tos);
        return true;
    }
    if (const auto* ip = record.template Get<CSFlowIPv6Record>()) {
        flow.Set(K::IpVersion, 6);
        flow.Set(K::Bytes, ip->m_length);
        SetChecked(flow, K::Proto, ip->m_protocol);
        flow.SetAddress(K::SrcAddr, AddressOf(ip->m_srcIP));
        flow.SetAddress(K::DstAddr, AddressOf(ip->m_dstIP));
        SetChecked(flow, K::SrcPort, ip->m_srcPort);
        SetChecked(flow, K::DstPort, ip->m_dstPort);
        SetChecked(flow, K::TcpFlags, ip->m_tcpFlags);
        SetChecked(flow, K::Tos, ip->m_priority);
        return true;
    }
    return false;
}

// Forwarding data of the extended records: VLAN, next hop, masks, AS numbers.
template <class Record>
void SetExtendedData(CFlowRecord& flow, const Record& record, uint32_t version) {
    if (const auto* sw = record.template Get<CSFlowExtendedSwitchRecord>()) {
        // a VLAN tag in the sampled header is the frame's own and comes first
        if (flow.IsNull(K::Vlan))
            SetChecked(flow, K::Vlan, sw->m_srcVLAN);
    } else if (const auto* router = record.template Get<CSFlowExtendedRouterRecord>()) {
        const CFlowAddress nextHop = AddressOf(router->m_nextHop);
        if (nextHop.length != 0)
            flow.SetAddress(K::NextHop, nextHop);
        SetChecked(flow, K::SrcMask, router->m_srcMask);
        SetChecked(flow, K::DstMask, router->m_dstMask);
    } else if (const auto* gateway = record.template Get<CSFlowExtendedGatewayRecord>()) {
        flow.Set(K::SrcAs, gateway->m_srcAS);
        uint32_t dstAS;
        if (DestinationAS(*gateway, version, dstAS))
            flow.Set(K::DstAs, dstAS);
    }
}

const CSFlowSample& FieldsOf(const CSFlowSample& sample) {
    return sample;
}

const CSFlowSample& FieldsOf(const CSFlowCompactSample& sample) {
    return sample.m_fields;
}

// The flow of one sample, unless it is no flow sample or has no packet data.
template <class Sample>
void AppendSFlowSample(const Sample& sample, const CFlowRecord& base, uint32_t version,
                       std::vector<CFlowRecord>& flows) {
    const CSFlowSample& fields = FieldsOf(sample);
    const bool compact = version >= 5;
    const bool flowSample = fields.m_sampleType == 1 || (compact && fields.m_sampleType == 3);
    if (!flowSample)
        return;
    CFlowRecord& flow = flows.emplace_back(base);
    flow.Set(K::ObservationDomain, fields.m_sourceIdIndex);
    if (fields.m_samplingRate != 0)
        flow.Set(K::SamplingRate, fields.m_samplingRate);
    SetSFlowInterface(flow, K::InIf, fields.m_inputPortFormat, fields.m_inputPort, compact);
    SetSFlowInterface(flow, K::OutIf, fields.m_outputPortFormat, fields.m_outputPort, compact);
    bool packetData = false;
    for (const auto& record : sample.m_records) {
        if (!packetData)
            packetData = SetPacketData(flow, record);
        SetExtendedData(flow, record, version);
    }
    if (!packetData)
        flows.pop_back();
}

// IANA information elements IPFIX adds to the v9 field types that flows read (RFC 7011, RFC 5477, IANA's
// IPFIX registry).
enum EIPFIXElement : int {
    ICMP_TYPE_CODE_IPV6 = 139,
    FLOW_START_SECONDS = 150,
    FLOW_END_SECONDS = 151,
    FLOW_START_MILLISECONDS = 152,
    FLOW_END_MILLISECONDS = 153,
    FLOW_START_MICROSECONDS = 154,
    FLOW_END_MICROSECONDS = 155,
    FLOW_START_NANOSECONDS = 156,
    FLOW_END_NANOSECONDS = 157,
    FLOW_START_DELTA_MICROSECONDS = 158,
    FLOW_END_DELTA_MICROSECONDS = 159,
    SYSTEM_INIT_TIME_MILLISECONDS = 160,
    ICMP_TYPE_IPV4 = 176,
    ICMP_CODE_IPV4 = 177,
    ICMP_TYPE_IPV6 = 178,
    ICMP_CODE_IPV6 = 179,
    SAMPLING_PACKET_INTERVAL = 305,
    SAMPLING_PACKET_SPACE = 306,
    SAMPLING_SIZE = 309,
    SAMPLING_POPULATION = 310,
    SAMPLING_PROBABILITY = 311,
};

// Milliseconds since 1970 (rounded down) of an NTP timestamp, as RFC 7011 encodes dateTimeMicroseconds
// and dateTimeNanoseconds: seconds since 1900, then a binary fraction of a second (the bits a
// microsecond value must ignore are far below a millisecond). Seconds with the top bit clear are taken
// as the era from 2036 on (RFC 5905's convention). False for a value of other than 8 bytes, or all zeros
// (no time).
bool NtpMilliseconds(const CByteArray& value, int64_t& ms) {
    uint64_t bits;
    if (value.size() != 8 || !Bits(value, bits) || bits == 0)
        return false;
    int64_t seconds = static_cast<int64_t>(bits >> 32);
    const uint64_t fraction = bits & 0xFFFFFFFF;
    if (seconds < 0x80000000)
        seconds += int64_t(1) << 32;
    ms = (seconds - 2208988800) * 1000 + static_cast<int64_t>((fraction * 1000) >> 32);
    return true;
}

// An IEEE 754 value of 8 bytes, or of 4 (RFC 7011's reduced-size float64).
bool FloatValue(const CByteArray& value, double& out) {
    uint64_t bits;
    if ((value.size() != 8 && value.size() != 4) || !Bits(value, bits))
        return false;
    if (value.size() == 8) {
        std::memcpy(&out, &bits, sizeof out);
    } else {
        const uint32_t narrow = static_cast<uint32_t>(bits);
        float single;
        std::memcpy(&single, &narrow, sizeof single);
        out = single;
    }
    return true;
}

// A flow's start or end as the finest of the time elements a record carries.
struct CFlowTime {
    int64_t ms = 0;
    int precision = 0; // 0: none; higher is finer, and a later element of the same precision wins

    void Offer(int64_t value, int elementPrecision) {
        if (elementPrecision >= precision) {
            ms = value;
            precision = elementPrecision;
        }
    }
};

// The keys of one v9 or IPFIX data record, field by field, in template order. A key with a preferred
// field and a fallback (IN_BYTES, else OUT_BYTES) takes the preferred one wherever the two stand; keys
// made of several fields (IP version, ICMP type and code, times from uptimes, IPFIX sampling) are settled
// by Finish.
class CTemplateFields {
public:
    // NetFlow v9: uptimes are read against the header's export time and uptime.
    CTemplateFields(CFlowRecord& flow, int64_t exportTime, uint32_t sysUptime)
        : m_flow(flow), m_exportTime(exportTime), m_sysUptime(sysUptime) {}

    // IPFIX: export time in ms; uptimes need the exporter's system init time (ms since 1970, -1: unknown),
    // which the record's own systemInitTimeMilliseconds replaces.
    static CTemplateFields IPFIX(CFlowRecord& flow, int64_t exportTime, int64_t initTime) {
        CTemplateFields fields(flow, exportTime, 0);
        fields.m_ipfix = true;
        fields.m_initTime = initTime;
        return fields;
    }

    void Take(int type, const CByteArray& value, bool scope) {
        m_scope = m_scope || scope;
        switch (type) {
        case CNetFlowField::IN_BYTES:
            m_inBytes = true;
            SetIntegerField(m_flow, K::Bytes, value);
            break;
        case CNetFlowField::OUT_BYTES:
            SetFallbackField(m_flow, K::Bytes, value, m_inBytes);
            break;
        case CNetFlowField::IN_PKTS:
            m_inPackets = true;
            SetIntegerField(m_flow, K::Packets, value);
            break;
        case CNetFlowField::OUT_PKTS:
            SetFallbackField(m_flow, K::Packets, value, m_inPackets);
            break;
        case CNetFlowField::PROT:
            SetIntegerField(m_flow, K::Proto, value);
            break;
        case CNetFlowField::SRC_TOS:
            SetIntegerField(m_flow, K::Tos, value);
            break;
        case CNetFlowField::TCP_FLAGS:
            SetIntegerField(m_flow, K::TcpFlags, value);
            break;
        case CNetFlowField::L4_SRC_PORT:
            SetIntegerField(m_flow, K::SrcPort, value);
            break;
        case CNetFlowField::L4_DST_PORT:
            SetIntegerField(m_flow, K::DstPort, value);
            break;
        case CNetFlowField::ICMP_TYPE:
            UnsignedValue(value, m_icmpType);
            break;
        case CNetFlowField::IPV4_SRC_ADDR:
            SetAddressField(m_flow, K::SrcAddr, value, 4);
            break;
        case CNetFlowField::IPV4_DST_ADDR:
            SetAddressField(m_flow, K::DstAddr, value, 4);
            break;
        case CNetFlowField::IPV4_NEXT_HOP:
            SetAddressField(m_flow, K::NextHop, value, 4);
            break;
        case CNetFlowField::IPV6_SRC_ADDR:
            SetAddressField(m_flow, K::SrcAddr, value, 16);
            break;
        case CNetFlowField::IPV6_DST_ADDR:
            SetAddressField(m_flow, K::DstAddr, value, 16);
            break;
        case CNetFlowField::IPV6_NEXT_HOP:
            SetAddressField(m_flow, K::NextHop, value, 16);
            break;
        case CNetFlowField::SRC_MASK:
        case CNetFlowField::IPV6_SRC_MASK:
            SetIntegerField(m_flow, K::SrcMask, value);
            break;
        case CNetFlowField::DST_MASK:
        case CNetFlowField::IPV6_DST_MASK:
            SetIntegerField(m_flow, K::DstMask, value);
            break;
        case CNetFlowField::INPUT_SNMP:
            SetIntegerField(m_flow, K::InIf, value);
            break;
        case CNetFlowField::OUTPUT_SNMP:
            SetIntegerField(m_flow, K::OutIf, value);
            break;
        case CNetFlowField::SRC_AS:
            SetIntegerField(m_flow, K::SrcAs, value);
            break;
        case CNetFlowField::DST_AS:
            SetIntegerField(m_flow, K::DstAs, value);
            break;
        case CNetFlowField::FIRST_SWITCHED:
            UnsignedValue(value, m_startUptime);
            break;
        case CNetFlowField::LAST_SWITCHED:
            UnsignedValue(value, m_endUptime);
            break;
        case CNetFlowField::SAMPLING_INTERVAL:
        case CNetFlowField::FLOW_SAMPLER_RANDOM_INTERVAL: {
            int64_t rate;
            if (UnsignedValue(value, rate) && rate != 0) {
                m_flow.Set(K::SamplingRate, rate);
                m_sampled = true;
            }
            break;
        }
        case CNetFlowField::IN_SRC_MAC:
            m_inSrcMac = true;
            if (value.size() == 6)
                m_flow.SetMac(K::SrcMac, value.data());
            break;
        case CNetFlowField::OUT_SRC_MAC:
            if (!m_inSrcMac && value.size() == 6)
                m_flow.SetMac(K::SrcMac, value.data());
            break;
        case CNetFlowField::IN_DST_MAC:
            m_inDstMac = true;
            if (value.size() == 6)
                m_flow.SetMac(K::DstMac, value.data());
            break;
        case CNetFlowField::OUT_DST_MAC:
            if (!m_inDstMac && value.size() == 6)
                m_flow.SetMac(K::DstMac, value.data());
            break;
        case CNetFlowField::SRC_VLAN:
            m_srcVlan = true;
            SetIntegerField(m_flow, K::Vlan, value);
            break;
        case CNetFlowField::DST_VLAN:
            SetFallbackField(m_flow, K::Vlan, value, m_srcVlan);
            break;
        case CNetFlowField::IP_PROTOCOL_VERSION:
            UnsignedValue(value, m_ipVersion);
            break;
        default:
            break;
        }
    }

    // An IPFIX field: IANA elements 1 to 127 are the v9 field types; enterprise elements, RFC 5103's
    // reverse elements among them, are not read (a biflow gives one flow, of its forward direction).
    void Take(const CIPFIXField& field) {
        m_scope = m_scope || field.IsScope();
        if (field.IsEnterprise())
            return;
        const CByteArray& value = field.GetValueBytes();
        const int id = field.GetElementId();
        int64_t number;
        switch (id) {
        case ICMP_TYPE_CODE_IPV6:
            UnsignedValue(value, m_icmpType);
            break;
        case ICMP_TYPE_IPV4:
        case ICMP_TYPE_IPV6:
            UnsignedValue(value, m_icmpTypeOnly);
            break;
        case ICMP_CODE_IPV4:
        case ICMP_CODE_IPV6:
            UnsignedValue(value, m_icmpCodeOnly);
            break;
        case FLOW_START_SECONDS:
        case FLOW_END_SECONDS:
            if (UnsignedValue(value, number) && number <= 0xFFFFFFFF)
                TimeOf(id == FLOW_START_SECONDS).Offer(number * 1000, 2);
            break;
        case FLOW_START_MILLISECONDS:
        case FLOW_END_MILLISECONDS:
            if (UnsignedValue(value, number))
                TimeOf(id == FLOW_START_MILLISECONDS).Offer(number, 3);
            break;
        case FLOW_START_MICROSECONDS:
        case FLOW_END_MICROSECONDS:
            if (NtpMilliseconds(value, number))
                TimeOf(id == FLOW_START_MICROSECONDS).Offer(number, 4);
            break;
        case FLOW_START_NANOSECONDS:
        case FLOW_END_NANOSECONDS:
            if (NtpMilliseconds(value, number))
                TimeOf(id == FLOW_START_NANOSECONDS).Offer(number, 5);
            break;
        case FLOW_START_DELTA_MICROSECONDS:
        case FLOW_END_DELTA_MICROSECONDS:
            // Microseconds before the export time.
            if (UnsignedValue(value, number) && number <= 0xFFFFFFFF)
                TimeOf(id == FLOW_START_DELTA_MICROSECONDS)
                    .Offer(FloorDiv(m_exportTime * 1000 - number, 1000), 1);
            break;
        case SYSTEM_INIT_TIME_MILLISECONDS:
            if (UnsignedValue(value, number))
                m_recordInitTime = number;
            break;
        case SAMPLING_PACKET_INTERVAL:
            UnsignedValue(value, m_packetInterval);
            break;
        case SAMPLING_PACKET_SPACE:
            UnsignedValue(value, m_packetSpace);
            break;
        case SAMPLING_SIZE:
            UnsignedValue(value, m_sampleSize);
            break;
        case SAMPLING_POPULATION:
            UnsignedValue(value, m_population);
            break;
        case SAMPLING_PROBABILITY:
            FloatValue(value, m_probability);
            break;
        default:
            if (id < 128)
                Take(id, value, false);
            break;
        }
    }

    // False for a record of an options template (it has scope fields): it describes the exporter, not
    // traffic.
    bool IsFlow() const { return !m_scope; }

    // The record's own systemInitTimeMilliseconds, -1 when it has none.
    int64_t RecordInitTime() const { return m_recordInitTime; }

    void Finish() {
        if (m_ipVersion == 4 || m_ipVersion == 6)
            m_flow.Set(K::IpVersion, m_ipVersion);
        else if (!m_flow.IsNull(K::SrcAddr) || !m_flow.IsNull(K::DstAddr))
            m_flow.Set(K::IpVersion, AddressVersion(m_flow));
        // ICMP type and code in their own fields go where NetFlow's ports carry them.
        if (m_icmpType < 0 && m_icmpTypeOnly >= 0 && m_icmpTypeOnly <= 255 && m_icmpCodeOnly <= 255)
            m_icmpType = m_icmpTypeOnly * 256 + std::max<int64_t>(m_icmpCodeOnly, 0);
        if (m_icmpType >= 0 && m_icmpType <= Largest(K::DstPort) &&
            (m_flow.IsNull(K::DstPort) || m_flow.Get(K::DstPort) == 0)) {
            m_flow.Set(K::DstPort, m_icmpType);
            if (m_flow.IsNull(K::SrcPort))
                m_flow.Set(K::SrcPort, 0);
        }
        FinishTimes();
        if (m_ipfix && !m_sampled)
            FinishIPFIXSampling();
    }

private:
    static int64_t FloorDiv(int64_t a, int64_t b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

    CFlowTime& TimeOf(bool start) { return start ? m_start : m_end; }

    // Absolute times first; otherwise uptimes, which an IPFIX record can read only with its exporter's
    // init time. IPFIX's uptime at export is taken modulo 2^32, so that an uptime that wrapped (after 49.7
    // days) still gives the time nearest the export, as v9's does.
    void FinishTimes() {
        uint32_t sysUptime = m_sysUptime;
        bool uptimes = true;
        if (m_ipfix) {
            const int64_t initTime = m_recordInitTime >= 0 ? m_recordInitTime : m_initTime;
            uptimes = initTime >= 0;
            sysUptime = static_cast<uint32_t>(static_cast<uint64_t>(m_exportTime - initTime));
        }
        auto finish = [&](K key, const CFlowTime& time, int64_t uptime) {
            if (time.precision > 0)
                m_flow.Set(key, time.ms);
            else if (uptimes && uptime >= 0)
                m_flow.Set(key, TimeOfUptime(m_exportTime, sysUptime, static_cast<uint32_t>(uptime)));
        };
        finish(K::FlowStart, m_start, m_startUptime);
        finish(K::FlowEnd, m_end, m_endUptime);
    }

    // RFC 5477's sampling in the record, when no sampling interval gave the rate: n of every n + space
    // packets, n of a population, or a probability; the rate is rounded to the nearest integer.
    void FinishIPFIXSampling() {
        constexpr int64_t kLimit = 0xFFFFFFFF;
        int64_t rate = 0;
        if (m_packetInterval > 0 && m_packetInterval <= kLimit && m_packetSpace <= kLimit)
            rate = (2 * (m_packetInterval + std::max<int64_t>(m_packetSpace, 0)) + m_packetInterval) /
                   (2 * m_packetInterval);
        else if (m_sampleSize > 0 && m_sampleSize <= kLimit && m_population >= m_sampleSize &&
                 m_population <= kLimit)
            rate = (2 * m_population + m_sampleSize) / (2 * m_sampleSize);
        else if (m_probability > 0 && m_probability <= 1 && 1 / m_probability <= double(kLimit))
            rate = std::llround(1 / m_probability);
        if (rate >= 1)
            m_flow.Set(K::SamplingRate, rate);
    }

    CFlowRecord& m_flow;
    const int64_t m_exportTime;
    const uint32_t m_sysUptime;
    bool m_ipfix = false;
    bool m_scope = false;
    bool m_inBytes = false, m_inPackets = false, m_inSrcMac = false, m_inDstMac = false, m_srcVlan = false;
    bool m_sampled = false;
    int64_t m_icmpType = -1, m_icmpTypeOnly = -1, m_icmpCodeOnly = -1;
    int64_t m_ipVersion = 0;
    int64_t m_startUptime = -1, m_endUptime = -1;
    CFlowTime m_start, m_end;
    int64_t m_initTime = -1, m_recordInitTime = -1;
    int64_t m_packetInterval = 0, m_packetSpace = 0, m_sampleSize = 0, m_population = 0;
    double m_probability = 0;
};

} // namespace

CFlowContext CFlowContext::ForPacket(const CTPAbstractPacket& packet, int64_t timeReceived) {
    CFlowContext context;
    context.timeReceived = timeReceived;
    const std::string text = tpnf::ToUtf8(packet.GetSenderIPAddress());
    in6_addr v6;
    if (inet_pton(AF_INET, text.c_str(), context.exporter.bytes.data()) == 1) {
        context.exporter.length = 4;
    } else if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
        static constexpr uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
        const bool mapped = std::equal(kMapped, kMapped + 12, v6.s6_addr);
        context.exporter.length = mapped ? 4 : 16;
        std::copy_n(v6.s6_addr + (mapped ? 12 : 0), context.exporter.length, context.exporter.bytes.begin());
    }
    if (context.exporter.length != 0)
        context.exporter.port = static_cast<uint16_t>(packet.GetSenderPort());
    return context;
}

size_t CFlowMaker::Append(const CTPAbstractPacket& packet, const CFlowContext& context,
                          std::vector<CFlowRecord>& flows) {
    const size_t before = flows.size();
    if (const auto* v5 = dynamic_cast<const CNetFlowPacketV5*>(&packet))
        AppendV5(*v5, context, flows);
    else if (const auto* v9 = dynamic_cast<const CNetFlowPacketV9*>(&packet))
        AppendV9(*v9, context, flows);
    else if (const auto* ipfix = dynamic_cast<const CIPFIXPacket*>(&packet))
        AppendIPFIX(*ipfix, context, flows);
    else if (const auto* sflow = dynamic_cast<const CSFlowPacket*>(&packet))
        AppendSFlow(*sflow, context, flows);
    else if (const auto* v1 = dynamic_cast<const CNetFlowPacketV1*>(&packet))
        AppendV1(*v1, context, flows);
    else if (const auto* v7 = dynamic_cast<const CNetFlowPacketV7*>(&packet))
        AppendV7(*v7, context, flows);
    else if (const auto* v8 = dynamic_cast<const CNetFlowPacketV8*>(&packet))
        AppendV8(*v8, context, flows);
    return flows.size() - before;
}

void CFlowMaker::AppendV1(const CNetFlowPacketV1& packet, const CFlowContext& context,
                          std::vector<CFlowRecord>& flows) {
    const CNetFlowHeaderV1 header = packet.GetHeader();
    const CFlowRecord base = PacketFlow(context, EFlowProtocol::NetFlowV1);
    const int64_t exportTime = ExportTime(header);
    const auto& records = RecordsOf(packet);
    for (const CNetFlowRecordV1& record : records) {
        CFlowRecord& flow = flows.emplace_back(base);
        SetCommonFields(flow, record, exportTime, header.m_sysUptime);
        flow.Set(K::Proto, record.m_prot);
        flow.Set(K::Tos, record.m_tos);
        flow.Set(K::TcpFlags, record.m_tcpFlags);
    }
}

void CFlowMaker::AppendV5(const CNetFlowPacketV5& packet, const CFlowContext& context,
                          std::vector<CFlowRecord>& flows) {
    const CNetFlowHeaderV5 header = packet.GetHeader();
    CFlowRecord base = PacketFlow(context, EFlowProtocol::NetFlowV5);
    base.Set(K::Sequence, static_cast<uint32_t>(header.m_flowSequence));
    base.Set(K::ObservationDomain, header.m_engineType * 256 + header.m_engineId);
    // Sampling mode in the top 2 bits, interval below; 0 means not sampled.
    const CByteArray* datagram = context.datagram;
    if (datagram != nullptr && datagram->size() >= 24 && (*datagram)[0] == 0 && (*datagram)[1] == 5) {
        const int interval = (((*datagram)[22] << 8) | (*datagram)[23]) & 0x3FFF;
        if (interval != 0)
            base.Set(K::SamplingRate, interval);
    }
    const int64_t exportTime = ExportTime(header);
    const auto& records = RecordsOf(packet);
    for (const CNetFlowRecordV5& record : records)
        SetV5Fields(flows.emplace_back(base), record, exportTime, header.m_sysUptime);
}

void CFlowMaker::AppendV7(const CNetFlowPacketV7& packet, const CFlowContext& context,
                          std::vector<CFlowRecord>& flows) {
    const CNetFlowHeaderV7 header = packet.GetHeader();
    CFlowRecord base = PacketFlow(context, EFlowProtocol::NetFlowV7);
    base.Set(K::Sequence, static_cast<uint32_t>(header.m_flowSequence));
    const int64_t exportTime = ExportTime(header);
    const auto& records = RecordsOf(packet);
    for (const CNetFlowRecordV7& record : records)
        SetV5Fields(flows.emplace_back(base), record, exportTime, header.m_sysUptime);
}

void CFlowMaker::AppendV8(const CNetFlowPacketV8& packet, const CFlowContext& context,
                          std::vector<CFlowRecord>& flows) {
    const CNetFlowHeaderV8 header = packet.GetHeader();
    CFlowRecord base = PacketFlow(context, EFlowProtocol::NetFlowV8);
    base.Set(K::Sequence, static_cast<uint32_t>(header.m_flowSequence));
    base.Set(K::ObservationDomain, header.m_engineType * 256 + header.m_engineId);
    base.Set(K::IpVersion, 4);
    const int64_t exportTime = ExportTime(header);
    // The counters every scheme's record opens with.
    auto add = [&](const CNetFlowRecordCommonFieldsV8& record) -> CFlowRecord& {
        CFlowRecord& flow = flows.emplace_back(base);
        flow.Set(K::Packets, record.m_packets);
        flow.Set(K::Bytes, record.m_octets);
        SetTimes(flow, exportTime, header.m_sysUptime, record.m_first, record.m_last);
        return flow;
    };
    switch (header.m_aggregation) {
    case 1:
        packet.GetRecords(m_routerAS);
        for (const CNetFlowRecordRouterASV8& record : m_routerAS) {
            CFlowRecord& flow = add(record);
            flow.Set(K::SrcAs, record.m_srcAS);
            flow.Set(K::DstAs, record.m_dstAS);
            flow.Set(K::InIf, record.m_inputIf);
            flow.Set(K::OutIf, record.m_outputIf);
        }
        break;
    case 2:
        packet.GetRecords(m_routerProtoPort);
        for (const CNetFlowRecordRouterProtoPortV8& record : m_routerProtoPort) {
            CFlowRecord& flow = add(record);
            flow.Set(K::Proto, record.m_prot);
            flow.Set(K::SrcPort, record.m_srcPort);
            flow.Set(K::DstPort, record.m_dstPort);
        }
        break;
    case 3:
        packet.GetRecords(m_routerSrcPrefix);
        for (const CNetFlowRecordRouterSrcPrefixV8& record : m_routerSrcPrefix) {
            CFlowRecord& flow = add(record);
            flow.SetAddress(K::SrcAddr, CFlowAddress::IPv4(record.m_srcPrefix));
            SetChecked(flow, K::SrcMask, record.m_srcMask);
            flow.Set(K::SrcAs, record.m_srcAS);
            flow.Set(K::InIf, record.m_inputIf);
        }
        break;
    case 4:
        packet.GetRecords(m_routerDstPrefix);
        for (const CNetFlowRecordRouterDstPrefixV8& record : m_routerDstPrefix) {
            CFlowRecord& flow = add(record);
            flow.SetAddress(K::DstAddr, CFlowAddress::IPv4(record.m_dstPrefix));
            SetChecked(flow, K::DstMask, record.m_dstMask);
            flow.Set(K::DstAs, record.m_dstAS);
            flow.Set(K::OutIf, record.m_outputIf);
        }
        break;
    case 5:
        packet.GetRecords(m_routerPrefix);
        for (const CNetFlowRecordRouterPrefixV8& record : m_routerPrefix) {
            CFlowRecord& flow = add(record);
            flow.SetAddress(K::SrcAddr, CFlowAddress::IPv4(record.m_srcPrefix));
            flow.SetAddress(K::DstAddr, CFlowAddress::IPv4(record.m_dstPrefix));
            SetChecked(flow, K::SrcMask, record.m_srcMask);
            SetChecked(flow, K::DstMask, record.m_dstMask);
            flow.Set(K::SrcAs, record.m_srcAS);
            flow.Set(K::DstAs, record.m_dstAS);
            flow.Set(K::InIf, record.m_inputIf);
            flow.Set(K::OutIf, record.m_outputIf);
        }
        break;
    default: // other schemes hold no records
        break;
    }
}

void CFlowMaker::AppendV9(const CNetFlowPacketV9& packet, const CFlowContext& context,
                          std::vector<CFlowRecord>& flows) {
    const CNetFlowHeaderV9& header = packet.GetHeader();
    CFlowRecord base = PacketFlow(context, EFlowProtocol::NetFlowV9);
    base.Set(K::Sequence, header.m_packageSequence);
    base.Set(K::ObservationDomain, header.m_sourceID);
    const int64_t exportTime = int64_t(header.m_unixSecs) * 1000;
    for (const CNetFlowSetRecord& record : packet.GetRecords()) {
        CTemplateFields fields(flows.emplace_back(base), exportTime, header.m_sysUptime);
        record.ForEachField([&](const CNetFlowField& field) {
            fields.Take(field.GetType(), field.m_value, field.IsScope() != FALSE);
        });
        if (fields.IsFlow())
            fields.Finish();
        else
            flows.pop_back();
    }
}

void CFlowMaker::AppendIPFIX(const CIPFIXPacket& packet, const CFlowContext& context,
                             std::vector<CFlowRecord>& flows) {
    const CIPFIXHeader& header = packet.GetHeader();
    CFlowRecord base = PacketFlow(context, EFlowProtocol::IPFIX);
    base.Set(K::Sequence, header.m_sequenceNumber);
    base.Set(K::ObservationDomain, header.m_observationDomainId);
    const int64_t exportTime = int64_t(header.m_exportTime) * 1000;
    const CExporterDomain exporter{context.exporter.bytes, context.exporter.length,
                                   header.m_observationDomainId};
    int64_t initTime = m_initTimes.Find(exporter);
    for (const CIPFIXRecord& record : packet.GetRecords()) {
        auto fields = CTemplateFields::IPFIX(flows.emplace_back(base), exportTime, initTime);
        record.ForEachField([&fields](const CIPFIXField& field) { fields.Take(field); });
        if (fields.IsFlow()) {
            fields.Finish();
            continue;
        }
        flows.pop_back();
        // An options record announcing the exporter's init time: later records and messages use it.
        if (fields.RecordInitTime() >= 0) {
            initTime = fields.RecordInitTime();
            m_initTimes.Remember(exporter, initTime);
        }
    }
}

size_t CFlowMaker::CExporterDomainHash::operator()(const CExporterDomain& key) const {
    // FNV-1a over the address and the domain.
    uint64_t hash = 14695981039346656037ull;
    auto mix = [&hash](uint8_t byte) { hash = (hash ^ byte) * 1099511628211ull; };
    for (size_t i = 0; i < key.length && i < key.address.size(); ++i)
        mix(key.address[i]);
    mix(key.length);
    for (int shift = 24; shift >= 0; shift -= 8)
        mix(static_cast<uint8_t>(key.domain >> shift));
    return static_cast<size_t>(hash);
}

int64_t CFlowMaker::CInitTimes::Find(const CExporterDomain& key) const {
    if (m_times.empty())
        return -1;
    const auto found = m_times.find(key);
    return found == m_times.end() ? -1 : found->second;
}

void CFlowMaker::CInitTimes::Remember(const CExporterDomain& key, int64_t initTime) {
    if (m_times.size() >= MAX_EXPORTERS && m_times.find(key) == m_times.end())
        m_times.erase(m_times.begin());
    m_times[key] = initTime;
}

void CFlowMaker::AppendSFlow(const CSFlowPacket& packet, const CFlowContext& context,
                             std::vector<CFlowRecord>& flows) {
    const CSFlowHeader& header = packet.GetHeader();
    const uint32_t version = header.m_version;
    EFlowProtocol protocol;
    switch (version) {
    case 2:
        protocol = EFlowProtocol::SFlowV2;
        break;
    case 4:
        protocol = EFlowProtocol::SFlowV4;
        break;
    case 5:
        protocol = EFlowProtocol::SFlowV5;
        break;
    default:
        return;
    }
    CFlowRecord base = PacketFlow(context, protocol);
    base.Set(K::Sequence, header.m_sequenceNumber);
    base.Set(K::FlowStart, context.timeReceived);
    base.Set(K::FlowEnd, context.timeReceived);
    base.Set(K::Packets, 1);
    // The decoded samples are read as the packet keeps them; full samples are built only for samples a
    // subclass placed in the packet beside decoded ones.
    const auto& decoded = packet.GetCompactSamples();
    const size_t placed = static_cast<size_t>(packet.GetSize()) - decoded.size();
    if (placed > 0) {
        const auto& samples = packet.GetSamples();
        for (size_t i = 0; i < placed; ++i)
            AppendSFlowSample(samples[i], base, version, flows);
    }
    for (const CSFlowCompactSample& sample : decoded)
        AppendSFlowSample(sample, base, version, flows);
}
