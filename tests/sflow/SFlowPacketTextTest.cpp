// Whole renderings of one datagram per sample type, compared character for character.
#include <gtest/gtest.h>

#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

CString Render(const Bytes& datagram) {
    CSFlowPacket packet;
    EXPECT_EQ(packet.Decode(datagram), 1);
    packet.SetSenderInfo(L"10.1.2.3", 6343);
    return packet.ToString();
}

// GenericCounters(1): word i holds 1 + i; 64-bit fields combine two consecutive words.
const wchar_t* const kGeneric1 = L"Generic Counters:\r\n"
                                 L"Index: 1\r\n"
                                 L"Type: 2\r\n"
                                 L"Speed: 12884901892\r\n"
                                 L"Direction: 5\r\n"
                                 L"Status: 6\r\n"
                                 L"In Octets: 30064771080\r\n"
                                 L"In Ucast Pkts: 9\r\n"
                                 L"In Multicast Pkts: 10\r\n"
                                 L"In Broadcast Pkts: 11\r\n"
                                 L"In Discards: 12\r\n"
                                 L"In Errors: 13\r\n"
                                 L"In Unknown Protos: 14\r\n"
                                 L"Out Octets: 64424509456\r\n"
                                 L"Out Ucast Pkts: 17\r\n"
                                 L"Out Multicast Pkts: 18\r\n"
                                 L"Out Broadcast Pkts: 19\r\n"
                                 L"Out Discards: 20\r\n"
                                 L"Out Errors: 21\r\n"
                                 L"Promiscuous Mode: 22\r\n";

// Words(31, 13)
const wchar_t* const kEthernet31 = L"Ethernet Counters: \r\n"
                                   L"AlignmentErrors: 31\r\n"
                                   L"FCS Errors: 32\r\n"
                                   L"Single Collision Frames: 33\r\n"
                                   L"Multiple Collision Frames: 34\r\n"
                                   L"SQE Test Errors: 35\r\n"
                                   L"Deferred Transmissions: 36\r\n"
                                   L"Late Collisions: 37\r\n"
                                   L"Excessive Collisions: 38\r\n"
                                   L"Internal Mac Transmit Errors: 39\r\n"
                                   L"Carrier Sense Errors: 40\r\n"
                                   L"Frame Too Longs: 41\r\n"
                                   L"Internal Mac Receive Errors: 42\r\n"
                                   L"Symbol Errors: 43\r\n";

} // namespace

TEST(SFlowPacketText, Version5FlowSample) {
    Bytes data = Datagram({.subId = 7, .sequence = 42, .uptime = 360000},
                          {FlowSampleV5({.sequence = 5,
                                         .sourceId = 3,
                                         .samplingRate = 512,
                                         .samplePool = 2048,
                                         .drops = 1,
                                         .input = 1,
                                         .output = 0x40000002},
                                        {Record(1, SampledHeader(1, 64, 4, {0x0A, 0xFF, 0x00, 0x01})),
                                         Record(1001, ExtendedSwitch(10, 0, 20, 1))})});
    EXPECT_EQ(Render(data),
              L"sFlow packet received from: 10.1.2.3:6343\r\n"
              L"Header:\r\n"
              L" Version: 5, Agent Address: 192.0.2.1, Agent Sub ID: 7, Seq Num: 42, SysUptime: "
              L"360000, Samples In Packet: 1\r\n"
              L"===============Samples===============\r\n"
              L"-----<Sample 1>-----\r\n"
              L"Seq Number: 5, Source ID Type: 0, Source ID Index: 3, Sampling Rate: 512, Sample "
              L"Pool: 2048, Input Port: 1, Input Port Format: 0, Output Port: 2, Output Port Format: "
              L"1, Drops: 1\r\n"
              L"Sampled Header Record:\r\n"
              L"Protocol: ETHERNET ISO8023\r\n"
              L"Frame Length: 64\r\n"
              L"Stripped: 4\r\n"
              L"Header Length: 4\r\n"
              L"Header Bytes: 0A-FF-00-01\r\n"
              L"Extended Switch Flow:\r\n"
              L"Src VLAN: 10\r\n"
              L"Src Priority: 0\r\n"
              L"Dst VLAN: 20\r\n"
              L"Dst Priority: 1\r\n");
}

TEST(SFlowPacketText, Version5CounterSample) {
    Bytes data = Datagram({.subId = 1, .sequence = 2, .uptime = 3},
                          {CounterSampleV5(9, 5, {Record(1, GenericCounters(1)), Record(2, Words(31, 13))})});
    EXPECT_EQ(Render(data),
              CString(L"sFlow packet received from: 10.1.2.3:6343\r\n"
                      L"Header:\r\n"
                      L" Version: 5, Agent Address: 192.0.2.1, Agent Sub ID: 1, Seq Num: 2, "
                      L"SysUptime: 3, Samples In Packet: 1\r\n"
                      L"===============Samples===============\r\n"
                      L"-----<Sample 1>-----\r\n"
                      L"Seq Number: 9, Source ID Type: 0, Source ID Index: 5, Sampling Rate: "
                      L"4294967295, Sample Pool: 4294967295, Input Port: 4294967295, Input Port "
                      L"Format: 4294967295, Output Port: 4294967295, Output Port Format: 4294967295, "
                      L"Drops: 4294967295\r\n") +
                  kGeneric1 + kEthernet31);
}

TEST(SFlowPacketText, Version5ExpandedFlowSampleWithAnUnknownRecord) {
    Bytes router = ByteBuilder().u32(1).ipv4(10, 0, 0, 1).u32(24).u32(16).build();
    Bytes data = Datagram({.sequence = 8, .uptime = 100},
                          {ExpandedFlowSampleV5({.sequence = 6,
                                                 .sourceIdType = 2,
                                                 .sourceIdIndex = 0x01000001,
                                                 .samplingRate = 1000,
                                                 .samplePool = 5000,
                                                 .drops = 0,
                                                 .inputFormat = 0,
                                                 .inputPort = 0x40000000,
                                                 .outputFormat = 2,
                                                 .outputPort = 3},
                                                {Record(2000, Words(0, 1)), Record(1002, router)})});
    EXPECT_EQ(Render(data),
              L"sFlow packet received from: 10.1.2.3:6343\r\n"
              L"Header:\r\n"
              L" Version: 5, Agent Address: 192.0.2.1, Agent Sub ID: 0, Seq Num: 8, SysUptime: 100, "
              L"Samples In Packet: 1\r\n"
              L"===============Samples===============\r\n"
              L"-----<Sample 1>-----\r\n"
              L"Seq Number: 6, Source ID Type: 2, Source ID Index: 16777217, Sampling Rate: 1000, "
              L"Sample Pool: 5000, Input Port: 1073741824, Input Port Format: 0, Output Port: 3, "
              L"Output Port Format: 2, Drops: 0\r\n"
              L"Unknown recordExtended Router Flow:\r\n"
              L"Src Mask: 24\r\n"
              L"Dst Mask: 16\r\n");
}

TEST(SFlowPacketText, Version5ExpandedCounterSampleAndSampleNumbering) {
    Bytes vlan = ByteBuilder().u32(100).u64(5000000000).u32(1).u32(2).u32(3).u32(4).build();
    Bytes processor = ByteBuilder().u32(1234).u32(5678).u32(9012).u64(17179869184).u64(8589934592).build();
    Bytes data = Datagram({.sequence = 8, .uptime = 100},
                          {ExpandedCounterSampleV5(11, 0x10, 0x12345678, {Record(5, vlan)}),
                           ExpandedCounterSampleV5(12, 2, 1, {Record(1001, processor)})});
    EXPECT_EQ(Render(data),
              L"sFlow packet received from: 10.1.2.3:6343\r\n"
              L"Header:\r\n"
              L" Version: 5, Agent Address: 192.0.2.1, Agent Sub ID: 0, Seq Num: 8, SysUptime: 100, "
              L"Samples In Packet: 2\r\n"
              L"===============Samples===============\r\n"
              L"-----<Sample 1>-----\r\n"
              L"Seq Number: 11, Source ID Type: 16, Source ID Index: 305419896, Sampling Rate: "
              L"4294967295, Sample Pool: 4294967295, Input Port: 4294967295, Input Port Format: "
              L"4294967295, Output Port: 4294967295, Output Port Format: 4294967295, Drops: "
              L"4294967295\r\n"
              L"VLAN Counters:\r\n"
              L"VLAN ID: 100\r\n"
              L"Octets: 5000000000\r\n"
              L"Ucast Pkts: 1\r\n"
              L"Multicast Pkts: 2\r\n"
              L"Broadcast Pkts: 3\r\n"
              L"Discards: 4\r\n"
              L"-----<Sample 2>-----\r\n"
              L"Seq Number: 12, Source ID Type: 2, Source ID Index: 1, Sampling Rate: 4294967295, "
              L"Sample Pool: 4294967295, Input Port: 4294967295, Input Port Format: 4294967295, "
              L"Output Port: 4294967295, Output Port Format: 4294967295, Drops: 4294967295\r\n"
              L"Processor Counters:\r\n"
              L"5s CPU: 1234\r\n"
              L"1m CPU: 5678\r\n"
              L"5m CPU: 9012\r\n"
              L"Total Memory Bytes: 17179869184\r\n"
              L"Free Memory Bytes: 8589934592\r\n");
}

TEST(SFlowPacketText, Version4FlowSample) {
    Bytes packetData = ByteBuilder().u32(1).u32(11).u32(60).u32(4).bytes({0x45, 0x00, 0x00, 0x3C}).build();
    Bytes switchElement = ByteBuilder().u32(1).bytes(ExtendedSwitch(1, 2, 3, 4)).build();
    Bytes routerElement = ByteBuilder().u32(2).u32(1).ipv4(10, 0, 0, 1).u32(8).u32(16).build();
    Bytes data = Datagram({.version = 4, .address = {10, 0, 0, 1}, .sequence = 3, .uptime = 1000},
                          {FlowSampleV24({.sequence = 1,
                                          .sourceId = 0x01000002,
                                          .samplingRate = 100,
                                          .samplePool = 200,
                                          .drops = 0,
                                          .input = 0x80000005,
                                          .output = 7},
                                         packetData, {switchElement, routerElement})});
    const wchar_t* header = L"Sampled Header Record:\r\n"
                            L"Protocol: IPv4\r\n"
                            L"Frame Length: 60\r\n"
                            L"Stripped: 4294967295\r\n"
                            L"Header Length: 4\r\n"
                            L"Header Bytes: 45-00-00-3C\r\n";
    EXPECT_EQ(Render(data),
              CString(L"sFlow packet received from: 10.1.2.3:6343\r\n"
                      L"Header:\r\n"
                      L" Version: 4, Agent Address: 10.0.0.1, Agent Sub ID: 4294967295, Seq Num: 3, "
                      L"SysUptime: 1000, Samples In Packet: 1\r\n"
                      L"===============Samples===============\r\n"
                      L"-----<Sample 1>-----\r\n"
                      L"Seq Number: 1, Source ID Type: 1, Source ID Index: 2, Sampling Rate: 100, "
                      L"Sample Pool: 200, Input Port: 2147483653, Input Port Format: 4294967295, "
                      L"Output Port: 7, Output Port Format: 4294967295, Drops: 0\r\n") +
                  header + header + header);
}

TEST(SFlowPacketText, Version2CounterSample) {
    Bytes data = Datagram({.version = 2, .address = {10, 0, 0, 2}, .sequence = 4, .uptime = 2000},
                          {CounterSampleV24(8, 4, 30, 2, {GenericCounters(1), Words(31, 13)})});
    EXPECT_EQ(Render(data),
              CString(L"sFlow packet received from: 10.1.2.3:6343\r\n"
                      L"Header:\r\n"
                      L" Version: 2, Agent Address: 10.0.0.2, Agent Sub ID: 4294967295, Seq Num: 4, "
                      L"SysUptime: 2000, Samples In Packet: 1\r\n"
                      L"===============Samples===============\r\n"
                      L"-----<Sample 1>-----\r\n"
                      L"Seq Number: 8, Source ID Type: 0, Source ID Index: 4, Sampling Rate: 30, "
                      L"Sample Pool: 4294967295, Input Port: 4294967295, Input Port Format: "
                      L"4294967295, Output Port: 4294967295, Output Port Format: 4294967295, Drops: "
                      L"4294967295\r\n") +
                  kGeneric1 + kEthernet31);
}

TEST(SFlowPacketText, UnknownSampleTagPrintsOnlyItsDefaults) {
    Bytes data = Datagram({.samples = 1}, {ByteBuilder().u32(5).build()});
    EXPECT_EQ(Render(data),
              L"sFlow packet received from: 10.1.2.3:6343\r\n"
              L"Header:\r\n"
              L" Version: 5, Agent Address: 192.0.2.1, Agent Sub ID: 0, Seq Num: 1, SysUptime: "
              L"360000, Samples In Packet: 1\r\n"
              L"===============Samples===============\r\n"
              L"-----<Sample 1>-----\r\n"
              L"Seq Number: 4294967295, Source ID Type: 4294967295, Source ID Index: 4294967295, "
              L"Sampling Rate: 4294967295, Sample Pool: 4294967295, Input Port: 4294967295, Input "
              L"Port Format: 4294967295, Output Port: 4294967295, Output Port Format: 4294967295, "
              L"Drops: 4294967295\r\n");
}
