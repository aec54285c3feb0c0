// Datagrams made by a real sFlow agent (pmacctd's sfprobe, fed a generated pcap; see
// tests/data/README.md). Expected values come from the traffic the agent was given and from an
// independent dissector's reading of the same datagrams.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "sflow/SFlowPacket.h"
#include "util/Format.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes ReadFile(const std::string& name) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t LittleEndian32(const Bytes& data, size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, data.data() + at, 4);
    return value;
}

// The frames of a little-endian classic pcap file, as scapy writes it.
std::vector<Bytes> PcapFrames(const std::string& name) {
    Bytes file = ReadFile(name);
    std::vector<Bytes> frames;
    if (file.size() < 24 || LittleEndian32(file, 0) != 0xA1B2C3D4) {
        ADD_FAILURE() << name << " is not a little-endian pcap file";
        return frames;
    }
    for (size_t at = 24; at + 16 <= file.size();) {
        uint32_t length = LittleEndian32(file, at + 8);
        at += 16;
        frames.emplace_back(file.begin() + static_cast<long>(at),
                            file.begin() + static_cast<long>(at + length));
        at += length;
    }
    return frames;
}

CString Hex(const Bytes& bytes) {
    CString text;
    for (uint8_t b : bytes)
        text += tpnf::FormatText(L"%02X-", b);
    if (!text.empty())
        text.pop_back();
    return text;
}

// What the agent reports for every sample on loopback: source 0:1, every packet sampled, no drops,
// both interfaces 0x3FFFFFFF (format 0, port 1073741823).
void ExpectAgentSampleFields(const CSFlowSample& s, uint32_t number) {
    EXPECT_EQ(s.m_sampleType, 1u);
    EXPECT_EQ(s.m_sequenceNumber, number);
    EXPECT_EQ(s.m_sourceIdType, 0);
    EXPECT_EQ(s.m_sourceIdIndex, 1u);
    EXPECT_EQ(s.m_samplingRate, 1u);
    EXPECT_EQ(s.m_samplePool, number);
    EXPECT_EQ(s.m_drops, 0u);
    EXPECT_EQ(s.m_inputPortFormat, 0);
    EXPECT_EQ(s.m_inputPort, 0x3FFFFFFFu);
    EXPECT_EQ(s.m_outputPortFormat, 0);
    EXPECT_EQ(s.m_outputPort, 0x3FFFFFFFu);
}

void ExpectAgentHeader(const CSFlowPacket& p, uint32_t samples) {
    const CSFlowHeader& h = p.GetHeader();
    EXPECT_EQ(h.m_version, 5u);
    EXPECT_EQ(h.m_agentAddress.ToString(), L"192.0.2.10");
    EXPECT_EQ(h.m_agentSubId, 1402u);
    EXPECT_EQ(h.m_sequenceNumber, 1u);
    EXPECT_EQ(h.m_sysUptime, 0u);
    EXPECT_EQ(h.m_numSamples, samples);
    EXPECT_EQ(p.GetProtocol(), L"sFlow v5");
}

// Records in the agent's order: extended switch, then the sampled header.
void ExpectSwitchAndHeader(const CSFlowSample& s, uint32_t vlan, uint32_t priority, const Bytes& frame) {
    ASSERT_EQ(s.m_records.size(), 2u);
    const CSFlowRecord& sw = s.m_records[0];
    EXPECT_EQ(sw.m_flowFormat, 1001u);
    EXPECT_EQ(sw.m_switchRecord.m_srcVLAN, vlan);
    EXPECT_EQ(sw.m_switchRecord.m_srcPriority, priority);
    EXPECT_EQ(sw.m_switchRecord.m_dstVLAN, 0u);
    EXPECT_EQ(sw.m_switchRecord.m_dstPriority, 0u);

    const CSFlowRecord& header = s.m_records[1];
    size_t kept = std::min<size_t>(frame.size(), 128);
    EXPECT_EQ(header.m_flowFormat, 1u);
    EXPECT_EQ(header.m_headerRecord.m_protocol, 1u);
    EXPECT_EQ(header.m_headerRecord.m_frameLength, frame.size() + 4); // with the frame check sequence
    EXPECT_EQ(header.m_headerRecord.m_stripped, 4u);
    EXPECT_EQ(header.m_headerRecord.m_headerLength, kept);
    EXPECT_EQ(header.m_headerRecord.m_header, Bytes(frame.begin(), frame.begin() + static_cast<long>(kept)));
    EXPECT_EQ(header.ToString(),
              tpnf::FormatText(L"Sampled Header Record:\r\nProtocol: ETHERNET ISO8023\r\n"
                               L"Frame Length: %u\r\nStripped: 4\r\nHeader Length: %u\r\n"
                               L"Header Bytes: %s\r\n",
                               static_cast<uint32_t>(frame.size() + 4), static_cast<uint32_t>(kept),
                               Hex(Bytes(frame.begin(), frame.begin() + static_cast<long>(kept)))));
}

} // namespace

TEST(SFlowAgentCapture, FiveTcpSamplesDecodeCompletely) {
    std::vector<Bytes> frames = PcapFrames("sflow_pmacct_1_traffic.pcap");
    ASSERT_EQ(frames.size(), 5u);
    CSFlowPacket p;
    ASSERT_EQ(p.Decode(ReadFile("sflow_pmacct_1.bin")), 1);
    ExpectAgentHeader(p, 5);
    ASSERT_EQ(p.GetSize(), 5);
    for (uint32_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(frames[i].size(), 154u);
        ExpectAgentSampleFields(p.GetSamples()[i], i + 1);
        ExpectSwitchAndHeader(p.GetSamples()[i], 0, 0, frames[i]);
    }
    p.SetSenderInfo(L"127.0.0.1", 40000);
    CString text = p.ToString();
    const CString opening =
        L"sFlow packet received from: 127.0.0.1:40000\r\n"
        L"Header:\r\n Version: 5, Agent Address: 192.0.2.10, Agent Sub ID: 1402, Seq Num: "
        L"1, SysUptime: 0, Samples In Packet: 5\r\n"
        L"===============Samples===============\r\n"
        L"-----<Sample 1>-----\r\n"
        L"Seq Number: 1, Source ID Type: 0, Source ID Index: 1, Sampling Rate: 1, ";
    EXPECT_EQ(text.substr(0, opening.size()), opening);
    EXPECT_NE(
        text.find(L"-----<Sample 5>-----\r\nSeq Number: 5, Source ID Type: 0, Source ID Index: 1, "
                  L"Sampling Rate: 1, Sample Pool: 5, Input Port: 1073741823, Input Port Format: 0, "
                  L"Output Port: 1073741823, Output Port Format: 0, Drops: 0\r\nExtended Switch Flow:\r\n"
                  L"Src VLAN: 0\r\nSrc Priority: 0\r\nDst VLAN: 0\r\nDst Priority: 0\r\n"
                  L"Sampled Header Record:\r\nProtocol: ETHERNET ISO8023\r\nFrame Length: 158\r\n"),
        CString::npos);
}

TEST(SFlowAgentCapture, UnpaddedSixtySixByteHeaderShiftsTheLastSample) {
    // Frames: two TCP, a VLAN 42 priority 5 UDP frame of 66 bytes, an IPv6 UDP frame. The agent pads
    // the 66 header bytes to 68; reading on after 66 bytes takes the fourth sample's tag from the two
    // padding bytes and the tag's first half (0), so that sample holds only its type: intended.
    std::vector<Bytes> frames = PcapFrames("sflow_pmacct_2_traffic.pcap");
    ASSERT_EQ(frames.size(), 4u);
    ASSERT_EQ(frames[2].size(), 66u);
    CSFlowPacket p;
    ASSERT_EQ(p.Decode(ReadFile("sflow_pmacct_2.bin")), 1);
    ExpectAgentHeader(p, 4);
    ASSERT_EQ(p.GetSize(), 4);
    for (uint32_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        ExpectAgentSampleFields(p.GetSamples()[i], i + 1);
    }
    ExpectSwitchAndHeader(p.GetSamples()[0], 0, 0, frames[0]);
    ExpectSwitchAndHeader(p.GetSamples()[1], 0, 0, frames[1]);
    ExpectSwitchAndHeader(p.GetSamples()[2], 42, 5, frames[2]);

    const CSFlowSample& shifted = p.GetSamples()[3];
    EXPECT_EQ(shifted.m_sampleType, 0u);
    EXPECT_EQ(shifted.m_sequenceNumber, 0xFFFFFFFFu);
    EXPECT_TRUE(shifted.m_records.empty());
}
