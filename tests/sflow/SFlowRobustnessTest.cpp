// Network input never ends a decode in anything but success or CInvalidArgException.
#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

// Every flow and counter kind once, in one version 5 datagram without a sampled IPv4 record. Its last
// record is read field by field, so every shorter prefix must fail.
Bytes EveryKindV5() {
    Bytes v6(16, 0x20);
    return Datagram(
        {},
        {FlowSampleV5(
             {},
             {Record(1, SampledHeader(1, 128, 4, Frame128())),
              Record(2, ByteBuilder().u32(64).zeros(16).build()),
              Record(4, ByteBuilder().u32(1).u32(6).bytes(v6).bytes(v6).zeros(16).build()),
              Record(1001, ExtendedSwitch(1, 2, 3, 4)),
              Record(1002, ByteBuilder().u32(1).ipv4(1, 1, 1, 1).u32(24).u32(24).build()),
              Record(1003, ByteBuilder()
                               .u32(1)
                               .ipv4(2, 2, 2, 2)
                               .u32(1)
                               .u32(2)
                               .u32(3)
                               .u32(1)
                               .u32(2)
                               .u32(1)
                               .u32(65001)
                               .u32(1)
                               .u32(9)
                               .u32(100)
                               .build()),
              Record(1004, ByteBuilder().u32(3).u32(4).u32(3).u32(4).build()),
              Record(1005, ByteBuilder().u32(1).u32(4).u32(4).build()),
              Record(1006, ByteBuilder().u32(1).ipv4(3, 3, 3, 3).u32(1).u32(0x12345).u32(0).build()),
              Record(1007, ByteBuilder().u32(1).ipv4(4, 4, 4, 4).u32(1).ipv4(5, 5, 5, 5).build()),
              Record(1008, ByteBuilder().u32(4).u32(1).u32(2).build()),
              Record(1009, ByteBuilder().u32(4).u32(1).u32(2).build()),
              Record(1010, ByteBuilder().u32(4).u32(24).build()), Record(1011, ByteBuilder().u32(24).build()),
              Record(1012, ByteBuilder().u32(1).u32(0x81000064).build()),
              Record(17612803, ByteBuilder().u32(1).u32(42).u32(4).build()), Record(2000, Words(0, 2))}),
         CounterSampleV5(1, 1,
                         {Record(6, Words(0, 1)), Record(1, GenericCounters(1)), Record(2, Words(1, 13)),
                          Record(3, Words(1, 18)), Record(4, Words(1, 20)), Record(5, Words(1, 7)),
                          Record(1001, Words(1, 7))})});
}

// Decodes and reports: 1 decoded, 0 CInvalidArgException; anything else fails the test.
int DecodeOutcome(const Bytes& data) {
    CSFlowPacket packet;
    try {
        EXPECT_EQ(packet.Decode(data), 1);
        packet.ToString();
        return 1;
    } catch (const CInvalidArgException&) {
        packet.ToString(); // what was kept still renders
        return 0;
    }
}

} // namespace

TEST(SFlowRobustness, EveryKindDatagramDecodesWhole) {
    CSFlowPacket packet;
    Bytes data = EveryKindV5();
    ASSERT_EQ(packet.Decode(data), 1);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_EQ(packet.GetSamples()[0].m_records.size(), 17u);
    EXPECT_EQ(packet.GetSamples()[1].m_records.size(), 7u);
}

TEST(SFlowRobustness, EveryTruncationThrowsTheInvalidArgumentException) {
    Bytes data = EveryKindV5();
    for (size_t size = 0; size < data.size(); ++size)
        EXPECT_EQ(DecodeOutcome(Bytes(data.begin(), data.begin() + static_cast<long>(size))), 0) << size;
}

TEST(SFlowRobustness, RandomByteChangesNeverEscapeAsAnythingElse) {
    Bytes original = EveryKindV5();
    std::mt19937 random(20240601);
    for (int round = 0; round < 3000; ++round) {
        Bytes data = original;
        int changes = 1 + static_cast<int>(random() % 8);
        for (int i = 0; i < changes; ++i) {
            size_t at = random() % data.size();
            // favour values that make lengths and counts huge or negative
            static const uint8_t values[] = {0x00, 0x01, 0x7F, 0x80, 0xFF};
            data[at] = random() % 2 ? values[random() % 5] : static_cast<uint8_t>(random());
        }
        DecodeOutcome(data);
    }
}

TEST(SFlowRobustness, HugeCountsFailFastWithoutReservingForThem) {
    auto start = std::chrono::steady_clock::now();
    // samples, flow records, counter records, v2/4 elements, process entries, AS segments
    EXPECT_EQ(DecodeOutcome(Datagram({.samples = 0xFFFFFFFF}, {SampleV5(5, {})})), 0);
    EXPECT_EQ(DecodeOutcome(Datagram({}, {SampleV5(1, ByteBuilder().zeros(28).u32(0xFFFFFFFF).build())})), 0);
    EXPECT_EQ(DecodeOutcome(Datagram({}, {SampleV5(2, ByteBuilder().zeros(8).u32(0x7FFFFFFF).build())})), 0);
    EXPECT_EQ(DecodeOutcome(Datagram({.version = 4}, {FlowSampleV24({}, ByteBuilder().u32(9).build(), {})})),
              1);
    Bytes manyElements = Datagram({.version = 4}, {FlowSampleV24({}, ByteBuilder().u32(9).build(), {})});
    ByteBuilder patched;
    patched.bytes(manyElements).patch32(manyElements.size() - 4, 0xFFFFFFFF);
    EXPECT_EQ(DecodeOutcome(patched.build()), 0);
    EXPECT_EQ(DecodeOutcome(Datagram(
                  {}, {FlowSampleV5({}, {Record(17612803, ByteBuilder().u32(0x7FFFFFFF).build())})})),
              0);
    EXPECT_EQ(
        DecodeOutcome(Datagram(
            {}, {FlowSampleV5({}, {Record(1003, ByteBuilder().u32(1).zeros(16).u32(0xFFFFFFFF).build())})})),
        0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(SFlowRobustness, NegativeLengthsThatWouldMoveBackwardsAreMalformed) {
    // An unknown record whose length is -8 would be read again and again by the record count.
    EXPECT_EQ(DecodeOutcome(Datagram({}, {FlowSampleV5({}, {Record(2000, {})})})), 1);
    Bytes flow = Datagram({}, {FlowSampleV5({}, {ByteBuilder().u32(2000).u32(0xFFFFFFF8).build()})});
    EXPECT_EQ(DecodeOutcome(flow), 0);
    Bytes counters = Datagram({}, {CounterSampleV5(1, 1, {ByteBuilder().u32(99).u32(0xFFFFFFF8).build()})});
    EXPECT_EQ(DecodeOutcome(counters), 0);
    // A process name with length -4 would leave each entry where it started.
    Bytes process = Datagram(
        {},
        {FlowSampleV5({}, {Record(17612803, ByteBuilder().u32(0x7FFFFFFF).u32(1).u32(0xFFFFFFFC).build())})});
    EXPECT_EQ(DecodeOutcome(process), 0);
}
