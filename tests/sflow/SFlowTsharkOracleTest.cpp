// Captures from real agents (pmacctd's sfprobe, Open vSwitch; see tests/data/README.md) decoded in exact
// mode agree with tshark's reading of the same datagrams, kept in the .expected files: every field tshark
// shows for every datagram, sample and record. Decoded by default, the same datagrams drift exactly where
// a sampled header's length is not a multiple of 4.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "sflow/SFlowPacket.h"
#include "support/Pcap.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Fields = std::vector<std::pair<std::string, std::string>>;

// One line of an .expected file: "datagram D", "sample D.S" or "record D.S.R", then tshark's fields.
struct Line {
    std::string kind;
    std::vector<size_t> path; // 1-based
    Fields fields;
};

std::vector<Line> ReadExpected(const std::string& name) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/" + name);
    std::vector<Line> lines;
    for (std::string text; std::getline(in, text);) {
        if (text.empty() || text[0] == '#')
            continue;
        std::istringstream words(text);
        Line line;
        std::string path;
        words >> line.kind >> path;
        std::istringstream numbers(path);
        for (std::string n; std::getline(numbers, n, '.');)
            line.path.push_back(std::stoul(n));
        for (std::string field; words >> field;) {
            size_t eq = field.find('=');
            line.fields.emplace_back(field.substr(0, eq), field.substr(eq + 1));
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

std::string Dec(uint64_t value) {
    return std::to_string(value);
}

std::string Narrow(const CString& text) {
    return std::string(text.begin(), text.end());
}

// Header bytes as tshark prints them: lower-case hexadecimal, ':' between bytes.
std::string ColonHex(const Bytes& bytes) {
    std::string text;
    static const char digits[] = "0123456789abcdef";
    for (uint8_t b : bytes) {
        if (!text.empty())
            text += ':';
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}

// Fields tshark shows that no decoded value corresponds to: the lengths a decoder frames samples and
// records by, and which record of tshark's reading a line came from.
bool NotHeld(const std::string& name) {
    return name == "sflow_5.sample_length" || name == "sflow_5.flow_data_length" || name == "read";
}

std::optional<std::string> DatagramField(const CSFlowPacket& p, const std::string& name) {
    const CSFlowHeader& h = p.GetHeader();
    if (name == "sflow_245.version")
        return Dec(h.m_version);
    if (name == "sflow_245.agenttype")
        return Dec(h.m_agentAddress.m_address.size() == 16 ? 2 : 1);
    if (name == "sflow_245.agent")
        return Narrow(h.m_agentAddress.ToString());
    if (name == "sflow_245.sub_agent_id")
        return Dec(h.m_agentSubId);
    if (name == "sflow_245.sequence_number")
        return Dec(h.m_sequenceNumber);
    if (name == "sflow_245.sysuptime")
        return Dec(h.m_sysUptime);
    if (name == "sflow_245.numsamples")
        return Dec(h.m_numSamples);
    return std::nullopt;
}

std::optional<std::string> SampleField(const CSFlowSample& s, const std::string& name) {
    static const std::map<std::string, uint32_t CSFlowSample::*> words = {
        {"sflow.flow_sample.sequence_number", &CSFlowSample::m_sequenceNumber},
        {"sflow.counters_sample.sequence_number", &CSFlowSample::m_sequenceNumber},
        {"sflow.flow_sample.index", &CSFlowSample::m_sourceIdIndex},
        {"sflow.counters_sample.source_id_index", &CSFlowSample::m_sourceIdIndex},
        {"sflow.flow_sample.sampling_rate", &CSFlowSample::m_samplingRate},
        {"sflow.flow_sample.sample_pool", &CSFlowSample::m_samplePool},
        {"sflow.flow_sample.dropped_packets", &CSFlowSample::m_drops},
        {"sflow.flow_sample.output_interface_value", &CSFlowSample::m_outputPort},
    };
    if (auto it = words.find(name); it != words.end())
        return Dec(s.*(it->second));
    if (name == "sflow.enterprise")
        return Dec(s.m_sampleType >> 12);
    if (name == "sflow_245.sampletype")
        return Dec(s.m_sampleType & 0xFFF);
    if (name == "sflow.flow_sample.source_id_class" || name == "sflow.counters_sample.source_id_type")
        return Dec(static_cast<uint32_t>(s.m_sourceIdType));
    if (name == "sflow.flow_sample.input_interface")
        return Dec((static_cast<uint32_t>(s.m_inputPortFormat) << 30) | s.m_inputPort);
    if (name == "sflow.flow_sample.output_interface") {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08x",
                      (static_cast<uint32_t>(s.m_outputPortFormat) << 30) | s.m_outputPort);
        return std::string(text);
    }
    if (name == "sflow.flow_sample.output_interface_format")
        return Dec(static_cast<uint32_t>(s.m_outputPortFormat));
    if (name == "sflow.flow_sample.flow_record" || name == "sflow.counters_sample.counters_records")
        return Dec(s.m_records.size());
    return std::nullopt;
}

// A record field: the value, or a note that the record is not of the kind the field belongs to.
std::optional<std::string> RecordField(const CSFlowRecord& r, const std::string& name) {
    const uint32_t format = r.m_flowFormat != 0 ? r.m_flowFormat : r.m_counterFormat;
    if (name == "sflow.enterprise")
        return Dec(format >> 12);
    if (name == "sflow_245.flow_record_format")
        return r.m_flowFormat != 0 ? Dec(r.m_flowFormat & 0xFFF) : "(a counter record)";
    if (name == "sflow_245.counters_record_format")
        return r.m_flowFormat == 0 ? Dec(r.m_counterFormat & 0xFFF) : "(a flow record)";
    auto of = [&](uint32_t flow, uint32_t counter, auto value) -> std::string {
        if (r.m_flowFormat != flow || (flow == 0 && r.m_counterFormat != counter))
            return "(another kind of record)";
        return value();
    };

    const CSFlowExtendedSwitchRecord& sw = r.m_switchRecord;
    static const std::map<std::string, uint32_t CSFlowExtendedSwitchRecord::*> switchFields = {
        {"sflow_245.vlan.in", &CSFlowExtendedSwitchRecord::m_srcVLAN},
        {"sflow_245.pri.in", &CSFlowExtendedSwitchRecord::m_srcPriority},
        {"sflow_245.vlan.out", &CSFlowExtendedSwitchRecord::m_dstVLAN},
        {"sflow_245.pri.out", &CSFlowExtendedSwitchRecord::m_dstPriority}};
    if (auto it = switchFields.find(name); it != switchFields.end())
        return of(1001, 0, [&] { return Dec(sw.*(it->second)); });

    const CSFlowHeaderRecord& h = r.m_headerRecord;
    static const std::map<std::string, uint32_t CSFlowHeaderRecord::*> headerFields = {
        {"sflow_245.header_protocol", &CSFlowHeaderRecord::m_protocol},
        {"sflow_245.header.frame_length", &CSFlowHeaderRecord::m_frameLength},
        {"sflow_245.header.payload_stripped", &CSFlowHeaderRecord::m_stripped},
        {"sflow_245.header.sampled_header_length", &CSFlowHeaderRecord::m_headerLength}};
    if (auto it = headerFields.find(name); it != headerFields.end())
        return of(1, 0, [&] { return Dec(h.*(it->second)); });
    if (name == "sflow_245.header")
        return of(1, 0, [&] { return ColonHex(h.m_header); });

    using E = CSFlowEthernetCounters;
    static const std::map<std::string, uint32_t E::*> ethernetFields = {
        {"sflow_245.dot3StatsAlignmentErrors", &E::m_dot3StatsAlignmentErrors},
        {"sflow_245.dot3StatsFCSErrors", &E::m_dot3StatsFCSErrors},
        {"sflow_245.dot3StatsSingleCollisionFrames", &E::m_dot3StatsSingleCollisionFrames},
        {"sflow_245.dot3StatsMultipleCollisionFrames", &E::m_dot3StatsMultipleCollisionFrames},
        {"sflow_245.dot3StatsSQETestErrors", &E::m_dot3StatsSQETestErrors},
        {"sflow_245.dot3StatsDeferredTransmissions", &E::m_dot3StatsDeferredTransmissions},
        {"sflow_245.dot3StatsLateCollisions", &E::m_dot3StatsLateCollisions},
        {"sflow_245.dot3StatsExcessiveCollisions", &E::m_dot3StatsExcessiveCollisions},
        {"sflow_245.dot3StatsInternalMacTransmitErrors", &E::m_dot3StatsInternalMacTransmitErrors},
        {"sflow_245.dot3StatsCarrierSenseErrors", &E::m_dot3StatsCarrierSenseErrors},
        {"sflow_245.dot3StatsFrameTooLongs", &E::m_dot3StatsFrameTooLongs},
        {"sflow_245.dot3StatsInternalMacReceiveErrors", &E::m_dot3StatsInternalMacReceiveErrors},
        {"sflow_245.dot3StatsSymbolErrors", &E::m_dot3StatsSymbolErrors}};
    if (auto it = ethernetFields.find(name); it != ethernetFields.end())
        return of(0, 2, [&] { return Dec(r.m_ethernetCounters.*(it->second)); });

    using G = CSFlowGenericCounters;
    const G& g = r.m_genericCounters;
    static const std::map<std::string, uint32_t G::*> generic32 = {
        {"sflow_245.ifindex", &G::m_ifIndex},
        {"sflow_245.iftype", &G::m_ifType},
        {"sflow_245.ifdirection", &G::m_ifDirection},
        {"sflow_245.ifinpkt", &G::m_ifInUcastPkts},
        {"sflow_245.ifinmcast", &G::m_ifInMulticastPkts},
        {"sflow_245.ifinbcast", &G::m_ifInBroadcastPkts},
        {"sflow_245.ifindisc", &G::m_ifInDiscards},
        {"sflow_245.ifinerr", &G::m_ifInErrors},
        {"sflow_245.ifinunk", &G::m_ifInUnknownProtos},
        {"sflow_245.ifoutpkt", &G::m_ifOutUcastPkts},
        {"sflow_245.ifoutmcast", &G::m_ifOutMulticastPkts},
        {"sflow_245.ifoutbcast", &G::m_ifOutBroadcastPkts},
        {"sflow_245.ifoutdisc", &G::m_ifOutDiscards},
        {"sflow_245.ifouterr", &G::m_ifOutErrors},
        {"sflow_245.ifpromisc", &G::m_ifPromiscuousMode}};
    static const std::map<std::string, uint64_t G::*> generic64 = {{"sflow_245.ifspeed", &G::m_ifSpeed},
                                                                   {"sflow_245.ifinoct", &G::m_ifInOctets},
                                                                   {"sflow_245.ifoutoct", &G::m_ifOutOctets}};
    if (auto it = generic32.find(name); it != generic32.end())
        return of(0, 1, [&] { return Dec(g.*(it->second)); });
    if (auto it = generic64.find(name); it != generic64.end())
        return of(0, 1, [&] { return Dec(g.*(it->second)); });
    // tshark splits the status word: bit 0 administrative, bit 1 operational status.
    if (name == "sflow_245.ifadmin_status")
        return of(0, 1, [&] { return Dec(g.m_ifStatus & 1); });
    if (name == "sflow_245.ifoper_status")
        return of(0, 1, [&] { return Dec((g.m_ifStatus >> 1) & 1); });
    return std::nullopt;
}

struct Comparison {
    std::vector<std::string> differences; // "where field: ours != tshark's"
    size_t fields = 0;                    // fields compared
    size_t samples = 0;
};

// tshark shows a sampled header with the padding that follows it on the wire (some agents fill it with
// leftover bytes): the header bytes are the first header-length bytes of that, and the rest pads them to
// a multiple of 4.
std::string WithoutPadding(const std::string& name, const std::string& expected,
                           const std::optional<std::string>& ours) {
    if (name != "sflow_245.header" || !ours || ours->size() > expected.size())
        return expected;
    size_t bytes = (ours->size() + 1) / 3;
    size_t padded = (bytes + 3) / 4 * 4;
    if ((expected.size() + 1) / 3 != padded)
        return expected;
    return expected.substr(0, ours->size());
}

void Compare(Comparison& c, const std::string& where, const std::string& name, const std::string& shown,
             const std::optional<std::string>& ours) {
    if (NotHeld(name))
        return;
    const std::string expected = WithoutPadding(name, shown, ours);
    ++c.fields;
    if (!ours)
        c.differences.push_back(where + " " + name + ": a field the test does not map");
    else if (*ours != expected)
        c.differences.push_back(where + " " + name + ": " + *ours + " != " + expected);
}

// Compares one decoded datagram with tshark's lines for it.
void CompareDatagram(Comparison& c, const CSFlowPacket& p, const std::vector<const Line*>& lines, size_t d) {
    const auto& samples = p.GetSamples();
    size_t sampleLines = 0;
    for (const Line* line : lines) {
        std::string where = line->kind + " " + std::to_string(d);
        for (size_t i = 1; i < line->path.size(); ++i)
            where += "." + std::to_string(line->path[i]);
        if (line->kind == "datagram") {
            for (const auto& [name, value] : line->fields)
                Compare(c, where, name, value, DatagramField(p, name));
            continue;
        }
        size_t s = line->path[1] - 1;
        if (s >= samples.size()) {
            c.differences.push_back(where + ": sample not decoded");
            continue;
        }
        if (line->kind == "sample") {
            ++sampleLines;
            for (const auto& [name, value] : line->fields)
                Compare(c, where, name, value, SampleField(samples[s], name));
            continue;
        }
        size_t r = line->path[2] - 1;
        if (r >= samples[s].m_records.size()) {
            c.differences.push_back(where + ": record not decoded");
            continue;
        }
        for (const auto& [name, value] : line->fields)
            Compare(c, where, name, value, RecordField(samples[s].m_records[r], name));
    }
    c.samples += sampleLines;
    if (samples.size() != sampleLines)
        c.differences.push_back("datagram " + std::to_string(d) + ": " + std::to_string(samples.size()) +
                                " samples decoded, tshark shows " + std::to_string(sampleLines));
}

// Whether a sampled header whose length is not a multiple of 4 comes before the datagram's last word.
bool UnpaddedReadingDrifts(const std::vector<const Line*>& lines) {
    for (size_t i = 0; i < lines.size(); ++i)
        for (const auto& [name, value] : lines[i]->fields)
            if (name == "sflow_245.header.sampled_header_length" && std::stoul(value) % 4 != 0 &&
                i + 1 < lines.size())
                return true;
    return false;
}

struct CaptureResult {
    size_t datagrams = 0;
    size_t samples = 0;
    size_t fields = 0;
    size_t defaultDrifting = 0; // datagrams the default decoding reads differently from tshark
    size_t defaultMisread = 0;  // samples it reads with another type than tshark, or loses
};

CaptureResult CheckCapture(const std::string& pcap, const std::string& expected) {
    std::vector<Bytes> datagrams = tpnf::test::UdpPayloads(pcap);
    std::vector<Line> lines = ReadExpected(expected);
    std::vector<std::vector<const Line*>> byDatagram(datagrams.size());
    for (const Line& line : lines) {
        if (line.path.empty() || line.path[0] < 1 || line.path[0] > datagrams.size()) {
            ADD_FAILURE() << expected << ": a line for a datagram the capture does not hold";
            continue;
        }
        byDatagram[line.path[0] - 1].push_back(&line);
    }
    CaptureResult result;
    result.datagrams = datagrams.size();
    for (size_t d = 0; d < datagrams.size(); ++d) {
        SCOPED_TRACE(pcap + " datagram " + std::to_string(d + 1));
        CSFlowPacket exact;
        CDecodeContext context;
        context.options.sflowExact = true;
        exact.SetDecodeContext(context);
        EXPECT_EQ(exact.Decode(datagrams[d]), 1);
        Comparison c;
        CompareDatagram(c, exact, byDatagram[d], d + 1);
        for (const std::string& difference : c.differences)
            ADD_FAILURE() << difference;
        result.samples += c.samples;
        result.fields += c.fields;

        // Decoded by default: the same reading, unless an unpadded header shifts what follows it.
        Comparison byDefault;
        bool threw = false;
        CSFlowPacket plain;
        try {
            plain.Decode(datagrams[d]);
        } catch (const CInvalidArgException&) {
            threw = true;
        }
        if (!threw)
            CompareDatagram(byDefault, plain, byDatagram[d], d + 1);
        const auto& exactSamples = exact.GetSamples();
        const auto& plainSamples = plain.GetSamples();
        size_t same = 0;
        for (size_t i = 0; i < plainSamples.size() && i < exactSamples.size(); ++i)
            same += plainSamples[i].m_sampleType == exactSamples[i].m_sampleType ? 1 : 0;
        result.defaultMisread += exactSamples.size() - same;
        bool drifted = threw || !byDefault.differences.empty();
        EXPECT_EQ(drifted, UnpaddedReadingDrifts(byDatagram[d]));
        result.defaultDrifting += drifted ? 1 : 0;
    }
    return result;
}

} // namespace

TEST(SFlowTsharkOracle, PmacctSfprobeCaptureAgreesWithTsharkInExactMode) {
    CaptureResult r = CheckCapture("sflow_pmacct_3.pcap", "sflow_pmacct_3.expected");
    EXPECT_EQ(r.datagrams, 44u);
    EXPECT_EQ(r.samples, 267u);
    EXPECT_GT(r.fields, 267u * 20);
    EXPECT_GT(r.defaultDrifting, 0u);
    std::printf("pmacct: %zu datagrams, %zu samples, %zu fields agree; by default %zu datagrams drift, %zu "
                "samples read with another type or lost\n",
                r.datagrams, r.samples, r.fields, r.defaultDrifting, r.defaultMisread);
}

TEST(SFlowTsharkOracle, OpenVSwitchCaptureAgreesWithTsharkInExactMode) {
    // Each run of the capture script gives other datagrams: at least the traffic it sends is there.
    CaptureResult r = CheckCapture("sflow_ovs.pcap", "sflow_ovs.expected");
    EXPECT_GE(r.datagrams, 10u);
    EXPECT_GE(r.samples, 100u);
    EXPECT_GT(r.fields, r.samples * 15);
    EXPECT_GT(r.defaultDrifting, 0u);
    std::printf("ovs: %zu datagrams, %zu samples, %zu fields agree; by default %zu datagrams drift, %zu "
                "samples read with another type or lost\n",
                r.datagrams, r.samples, r.fields, r.defaultDrifting, r.defaultMisread);
}
