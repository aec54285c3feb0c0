// Flows of the real captures in tests/data compared with tshark's reading of the same datagrams
// (flows.expected, made by tests/data/make_flows_expected.py).
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "flows/FlowTestSupport.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowPacketV9.h"
#include "sflow/SFlowPacket.h"
#include "support/DecodeContext.h"

using namespace tpnf::test;
using K = EFlowKey;

namespace {

CByteArray ReadData(const std::string& name) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in) << name;
    return CByteArray(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The expected lines of one capture file, split into their words.
std::vector<std::vector<std::string>> Expected(const std::string& kind, const std::string& file) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/flows.expected");
    EXPECT_TRUE(in);
    std::vector<std::vector<std::string>> lines;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::vector<std::string> fields{std::istream_iterator<std::string>(words),
                                        std::istream_iterator<std::string>()};
        if (fields.size() > 2 && fields[0] == kind && fields[1] == file)
            lines.push_back(fields);
    }
    return lines;
}

// The flows of each datagram in turn, decoded as a session would: one packet per datagram.
template <class Packet>
std::vector<std::vector<CFlowRecord>> FlowsOfFiles(const std::vector<std::string>& files) {
    std::vector<std::vector<CFlowRecord>> result;
    CFlowMaker maker;
    for (const std::string& file : files) {
        const CByteArray datagram = ReadData(file);
        Packet packet;
        EXPECT_EQ(packet.Decode(datagram), 1) << file;
        maker.Append(packet, Context(1795294252500, &datagram), result.emplace_back());
    }
    return result;
}

// The flows of each IPFIX message of one exporter in turn, decoded as a session would for that exporter
// (its templates and init time apply to its own later messages).
std::vector<std::vector<CFlowRecord>> IPFIXFlowsOfFiles(const std::vector<std::string>& files,
                                                        const CExporterAddress& exporter) {
    std::vector<std::vector<CFlowRecord>> result;
    CFlowMaker maker;
    for (const std::string& file : files) {
        const CByteArray datagram = ReadData(file);
        CIPFIXPacket packet;
        packet.SetDecodeContext(GlobalScope(exporter));
        EXPECT_EQ(packet.Decode(datagram), 1) << file;
        EXPECT_EQ(packet.GetNotes().unknownTemplateSets, 0) << file;
        CFlowContext context = Context(1795294252500, &datagram);
        context.exporter = exporter;
        maker.Append(packet, context, result.emplace_back());
    }
    return result;
}

// An integer key against tshark's text; "-" means null.
void ExpectInteger(const CFlowRecord& flow, K key, const std::string& text) {
    if (text == "-")
        EXPECT_TRUE(flow.IsNull(key)) << CFlowRecord::KeyName(key);
    else
        EXPECT_EQ(flow.Get(key), std::stoll(text)) << CFlowRecord::KeyName(key);
}

// Ports as NetFlow carries them: ICMP type * 256 + code in the destination port, source port 0.
void ExpectPorts(const CFlowRecord& flow, const std::string& src, const std::string& dst,
                 const std::string& icmp) {
    if (icmp != "-") {
        EXPECT_EQ(flow.Get(K::SrcPort), 0);
        ExpectInteger(flow, K::DstPort, icmp);
        return;
    }
    ExpectInteger(flow, K::SrcPort, src);
    ExpectInteger(flow, K::DstPort, dst);
}

// A text key against tshark's text; "-" means null.
void ExpectText(const CFlowRecord& flow, K key, const std::string& text) {
    if (text == "-")
        EXPECT_TRUE(flow.IsNull(key)) << CFlowRecord::KeyName(key);
    else
        EXPECT_EQ(flow.Text(key), text) << CFlowRecord::KeyName(key);
}

// An sFlow interface value: 0x3FFFFFFF is the unknown interface.
std::string Interface(const std::string& value) {
    return value == "1073741823" ? "-" : value;
}

} // namespace

TEST(RealCaptureFlows, SoftflowdNetFlowV9AsTsharkReadsIt) {
    const std::vector<std::string> files = {"v9_softflowd_1.bin", "v9_softflowd_2.bin"};
    const auto flows = FlowsOfFiles<CNetFlowPacketV9>(files);
    for (size_t f = 0; f < files.size(); ++f) {
        const auto expected = Expected("v9", files[f]);
        ASSERT_EQ(flows[f].size(), expected.size()) << files[f];
        ASSERT_FALSE(expected.empty());
        for (size_t i = 0; i < expected.size(); ++i) {
            SCOPED_TRACE(files[f] + " flow " + std::to_string(i));
            const CFlowRecord& flow = flows[f][i];
            const auto& e = expected[i];
            EXPECT_EQ(flow.Text(K::SrcAddr), e[2]);
            EXPECT_EQ(flow.Text(K::DstAddr), e[3]);
            ExpectPorts(flow, e[4], e[5], e[6]);
            ExpectInteger(flow, K::Proto, e[7]);
            ExpectInteger(flow, K::Bytes, e[8]);
            ExpectInteger(flow, K::Packets, e[9]);
            ExpectInteger(flow, K::InIf, e[10]);
            ExpectInteger(flow, K::OutIf, e[11]);
            ExpectInteger(flow, K::FlowStart, e[12]);
            ExpectInteger(flow, K::FlowEnd, e[13]);
            EXPECT_EQ(flow.Text(K::Protocol), "NetFlow v9");
            EXPECT_EQ(flow.Get(K::IpVersion), 4);
        }
    }
}

TEST(RealCaptureFlows, PmacctSFlowAsTsharkReadsIt) {
    const std::vector<std::string> files = {"sflow_pmacct_1.bin", "sflow_pmacct_2.bin"};
    const auto flows = FlowsOfFiles<CSFlowPacket>(files);
    // The default decoding reads on after the 66 bytes of the tagged frame's header where the agent
    // padded them to 68, so it loses the fourth sample of the second datagram (see the sflow tests).
    const size_t lostAtTheEnd[] = {0, 1};
    for (size_t f = 0; f < files.size(); ++f) {
        const auto expected = Expected("sflow", files[f]);
        ASSERT_FALSE(expected.empty());
        ASSERT_EQ(flows[f].size(), expected.size() - lostAtTheEnd[f]) << files[f];
        for (size_t i = 0; i < flows[f].size(); ++i) {
            SCOPED_TRACE(files[f] + " sample " + std::to_string(i));
            const CFlowRecord& flow = flows[f][i];
            const auto& e = expected[i];
            EXPECT_EQ(flow.Text(K::SrcAddr), e[2]);
            EXPECT_EQ(flow.Text(K::DstAddr), e[3]);
            ExpectPorts(flow, e[4], e[5], e[6]);
            ExpectInteger(flow, K::Proto, e[7]);
            ExpectInteger(flow, K::Bytes, e[8]);
            EXPECT_EQ(flow.Get(K::Packets), 1);
            ExpectInteger(flow, K::InIf, Interface(e[9]));
            ExpectInteger(flow, K::OutIf, Interface(e[10]));
            ExpectInteger(flow, K::SamplingRate, e[11]);
            ExpectInteger(flow, K::ObservationDomain, e[12]);
            ExpectInteger(flow, K::Vlan, e[14] != "-" ? e[14] : e[13]); // the frame's own tag first
            EXPECT_EQ(flow.Text(K::SrcMac), e[15]);
            EXPECT_EQ(flow.Text(K::DstMac), e[16]);
            ExpectInteger(flow, K::Tos, e[17]);
            ExpectInteger(flow, K::TcpFlags, e[18]);
            EXPECT_EQ(flow.Text(K::Protocol), "sFlow v5");
            EXPECT_EQ(flow.Get(K::FlowStart), 1795294252500);
            EXPECT_EQ(flow.Get(K::FlowEnd), 1795294252500);
        }
    }
}

TEST(RealCaptureFlows, IPFIXOfSoftflowdAndPmacctAsTsharkReadsIt) {
    const struct {
        std::string exporter;
        int messages;
        size_t flows;
    } captures[] = {{"softflowd", 2, 45}, {"softflowd_bidir", 3, 45}, {"pmacct", 10, 46}};
    uint8_t host = 1;
    for (const auto& capture : captures) {
        std::vector<std::string> files;
        for (int n = 1; n <= capture.messages; ++n)
            files.push_back("ipfix_" + capture.exporter + "_" + std::to_string(n) + ".bin");
        // Each exporter from an address of its own: the three announce the same template ids.
        const auto flows = IPFIXFlowsOfFiles(files, ExporterV4(127, 0, 0, host++, 40000));
        size_t total = 0;
        for (size_t f = 0; f < files.size(); ++f) {
            const auto expected = Expected("ipfix", files[f]);
            ASSERT_EQ(flows[f].size(), expected.size()) << files[f];
            total += expected.size();
            for (size_t i = 0; i < expected.size(); ++i) {
                SCOPED_TRACE(files[f] + " flow " + std::to_string(i));
                const CFlowRecord& flow = flows[f][i];
                const auto& e = expected[i];
                ExpectText(flow, K::SrcAddr, e[2]);
                ExpectText(flow, K::DstAddr, e[3]);
                ExpectPorts(flow, e[4], e[5], e[6]);
                ExpectInteger(flow, K::Proto, e[7]);
                ExpectInteger(flow, K::Bytes, e[8]);
                ExpectInteger(flow, K::Packets, e[9]);
                ExpectInteger(flow, K::InIf, e[10]);
                ExpectInteger(flow, K::OutIf, e[11]);
                ExpectInteger(flow, K::FlowStart, e[12]);
                ExpectInteger(flow, K::FlowEnd, e[13]);
                ExpectInteger(flow, K::IpVersion, e[14]);
                ExpectInteger(flow, K::Tos, e[15]);
                ExpectInteger(flow, K::TcpFlags, e[16]);
                ExpectText(flow, K::SrcMac, e[17]);
                ExpectText(flow, K::DstMac, e[18]);
                ExpectInteger(flow, K::Vlan, e[19]);
                ExpectInteger(flow, K::Sequence, e[20]);
                ExpectInteger(flow, K::ObservationDomain, e[21]);
                EXPECT_EQ(flow.Text(K::Protocol), "IPFIX");
                EXPECT_EQ(flow.Get(K::SamplingRate), 1);
            }
        }
        EXPECT_EQ(total, capture.flows) << capture.exporter;
    }
}
