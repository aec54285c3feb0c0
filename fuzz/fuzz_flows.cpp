// The flows layer: each input is decoded as every packet kind (decoders do not check the version word,
// the socket picks the kind; IPFIX does, and its templates live in a store bounded per exporter), every
// packet that decodes is turned into flows, and each flow into its JSON line; the input is also read as a
// sampled packet header of each kind the parser knows. Beyond the sanitizers, it checks what holds for any
// input: no more flows than the packet holds records or samples, the keys every flow has, the ranges that the
// wire widths guarantee, one JSON object with every key. No text of the packets is rendered, so it runs at
// decoding speed.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

#include "flows/FlowJson.h"
#include "flows/FlowMaker.h"
#include "flows/SampledHeaderParser.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "netflow9/NetFlowPacketV9.h"
#include "sflow/SFlowPacket.h"

namespace {

using K = EFlowKey;

constexpr int64_t kReceived = 1700000000500;

void Check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
        std::abort();
    }
}

bool InRange(const CFlowRecord& flow, K key, int64_t low, int64_t high) {
    return flow.IsNull(key) || (flow.Get(key) >= low && flow.Get(key) <= high);
}

// One object of every key: as many name separators and value separators outside strings as there are
// keys (a byte loop rather than string searches, which the fuzzer would trace and slow down on).
void CheckJson(const CFlowRecord& flow) {
    static std::string line;
    line.clear();
    CFlowJson::Append(line, flow);
    Check(line.size() > 2 && line.front() == '{' && line.back() == '}', "JSON line is not one object");
    size_t colons = 0, commas = 0;
    bool inString = false;
    for (char c : line) {
        if (c == '"')
            inString = !inString;
        else if (!inString && c == ':')
            ++colons;
        else if (!inString && c == ',')
            ++commas;
    }
    Check(!inString && colons == FLOW_KEY_COUNT && commas + 1 == FLOW_KEY_COUNT, "JSON line of other keys");
}

// The ranges of the keys whose values have one: whatever width a field came in, a value out of range
// is no value.
void CheckRanges(const CFlowRecord& flow) {
    Check(InRange(flow, K::SrcPort, 0, 65535) && InRange(flow, K::DstPort, 0, 65535), "port range");
    Check(InRange(flow, K::Proto, 0, 255) && InRange(flow, K::Tos, 0, 255), "byte range");
    Check(InRange(flow, K::TcpFlags, 0, 65535), "TCP flags range");
    Check(InRange(flow, K::SrcMask, 0, 128) && InRange(flow, K::DstMask, 0, 128), "mask range");
    Check(InRange(flow, K::Vlan, 0, 4095), "VLAN range");
}

// What every flow of every kind has.
void CheckFlow(const CFlowRecord& flow) {
    Check(!flow.IsNull(K::TimeReceived) && flow.Get(K::TimeReceived) == kReceived, "time received");
    Check(flow.GetAddress(K::Exporter) == CFlowAddress::IPv4(0xC0000201), "exporter");
    Check(!flow.IsNull(K::Protocol), "protocol");
    Check(!flow.IsNull(K::SamplingRate) && flow.Get(K::SamplingRate) >= 1, "sampling rate below 1");
    Check(InRange(flow, K::IpVersion, 4, 6) && flow.Get(K::IpVersion) != 5, "IP version");
    for (K key : {K::SrcAddr, K::DstAddr, K::NextHop, K::Exporter}) {
        const uint8_t length = flow.GetAddress(key).length;
        Check(flow.IsNull(key) || length == 4 || length == 16, "address length");
    }
    CheckRanges(flow);
}

template <class Packet>
void MakeFlows(const CByteArray& datagram, CFlowMaker& maker, std::vector<CFlowRecord>& flows) {
    Packet packet;
    if constexpr (std::is_same_v<Packet, CIPFIXPacket>) {
        CDecodeContext context;
        context.options.ipfix = true;
        context.options.maxTemplates = 64; // the store stays small across inputs
        context.exporter.bytes = {192, 0, 2, 1};
        context.exporter.length = 4;
        context.exporter.port = 2055;
        packet.SetDecodeContext(context);
    }
    try {
        if (packet.Decode(datagram) == 0)
            return;
    } catch (const CInvalidArgException&) {
        return;
    }
    packet.SetSenderInfo(L"192.0.2.1", 2055);
    flows.clear();
    const size_t made = maker.Append(packet, CFlowContext::ForPacket(packet, kReceived), flows);
    Check(made == flows.size(), "count of flows made");
    const int64_t size = packet.GetSize();
    if constexpr (std::is_same_v<Packet, CNetFlowPacketV9> || std::is_same_v<Packet, CSFlowPacket> ||
                  std::is_same_v<Packet, CIPFIXPacket>)
        Check(static_cast<int64_t>(made) <= size, "more flows than records or samples");
    else
        Check(static_cast<int64_t>(made) == (size < 0 ? 0 : size), "one flow per record");
    if (!flows.empty())
        CheckJson(flows.front());
    for (const CFlowRecord& flow : flows) {
        CheckFlow(flow);
        if constexpr (std::is_same_v<Packet, CSFlowPacket>) {
            Check(flow.Get(K::Packets) == 1, "an sFlow sample is one packet");
            Check(flow.Get(K::FlowStart) == kReceived && flow.Get(K::FlowEnd) == kReceived, "sFlow times");
            Check(InRange(flow, K::InIf, 0, 0xFFFFFFFF) && InRange(flow, K::OutIf, 0, 0xFFFFFFFF),
                  "interface range");
        } else if constexpr (std::is_same_v<Packet, CIPFIXPacket>) {
            const CIPFIXHeader& header = packet.GetHeader();
            Check(flow.Get(K::Sequence) == header.m_sequenceNumber &&
                      flow.Get(K::ObservationDomain) == header.m_observationDomainId,
                  "IPFIX sequence and domain");
            Check(flow.GetProtocol() == EFlowProtocol::IPFIX, "IPFIX protocol");
        } else if constexpr (!std::is_same_v<Packet, CNetFlowPacketV9>) {
            Check(flow.Get(K::IpVersion) == 4, "NetFlow v1 to v8 carry IPv4");
            Check(InRange(flow, K::InIf, 0, 65535) && InRange(flow, K::OutIf, 0, 65535), "interface range");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CFlowMaker maker;
    static std::vector<CFlowRecord> flows;
    const CByteArray datagram(data, data + size);
    MakeFlows<CNetFlowPacketV1>(datagram, maker, flows);
    MakeFlows<CNetFlowPacketV5>(datagram, maker, flows);
    MakeFlows<CNetFlowPacketV7>(datagram, maker, flows);
    MakeFlows<CNetFlowPacketV8>(datagram, maker, flows);
    MakeFlows<CNetFlowPacketV9>(datagram, maker, flows);
    MakeFlows<CIPFIXPacket>(datagram, maker, flows);
    MakeFlows<CSFlowPacket>(datagram, maker, flows);
    for (uint32_t protocol :
         {CSampledHeaderParser::ETHERNET, CSampledHeaderParser::IPV4, CSampledHeaderParser::IPV6}) {
        CFlowRecord flow;
        const bool read = CSampledHeaderParser::Parse(protocol, data, size, flow);
        Check(read || flow == CFlowRecord(), "a header that cannot be read sets keys");
        CheckRanges(flow);
        Check(flow.IsNull(K::SrcAddr) ||
                  flow.GetAddress(K::SrcAddr).length == (flow.Get(K::IpVersion) == 4 ? 4 : 16),
              "address of another IP version");
    }
    return 0;
}
