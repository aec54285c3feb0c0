#include <gtest/gtest.h>

#include "sflow/SFlowEthernetCounters.h"
#include "sflow/SFlowGenericCounters.h"
#include "sflow/SFlowProcessorCounters.h"
#include "sflow/SFlowTokenringCounters.h"
#include "sflow/SFlowVGCounters.h"
#include "sflow/SFlowVLANCounters.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

// Generic counters of a 10 Gbit/s port, one value per field in wire order; every 64-bit value has a
// low word below 2^31, so it reads back unchanged.
Bytes GenericBody() {
    return ByteBuilder()
        .u32(7)           // index
        .u32(6)           // type
        .u64(10000000000) // speed
        .u32(1)           // direction
        .u32(3)           // status
        .u64(5000000000)  // in octets
        .u32(1001)
        .u32(1002)
        .u32(1003)
        .u32(1004)
        .u32(1005)
        .u32(1006)
        .u64(6000000000) // out octets
        .u32(2001)
        .u32(2002)
        .u32(2003)
        .u32(2004)
        .u32(2005)
        .u32(1) // promiscuous mode
        .build();
}

} // namespace

TEST(SFlowGenericCounters, FreshCountersAreAllOnes) {
    CSFlowGenericCounters c;
    EXPECT_EQ(c.m_ifIndex, 0xFFFFFFFFu);
    EXPECT_EQ(c.m_ifSpeed, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(c.m_ifInOctets, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(c.m_ifPromiscuousMode, 0xFFFFFFFFu);
}

TEST(SFlowGenericCounters, ReadsEightyEightBytesInWireOrder) {
    Bytes data = ByteBuilder().u32(0xAAAAAAAA).bytes(GenericBody()).u32(0xBBBBBBBB).build();
    CSFlowGenericCounters c;
    int offset = 4;
    c.Decode(data, offset);
    EXPECT_EQ(offset, 4 + 88);
    EXPECT_EQ(c.m_ifIndex, 7u);
    EXPECT_EQ(c.m_ifType, 6u);
    EXPECT_EQ(c.m_ifSpeed, 10000000000ull);
    EXPECT_EQ(c.m_ifDirection, 1u);
    EXPECT_EQ(c.m_ifStatus, 3u);
    EXPECT_EQ(c.m_ifInOctets, 5000000000ull);
    EXPECT_EQ(c.m_ifInUcastPkts, 1001u);
    EXPECT_EQ(c.m_ifInMulticastPkts, 1002u);
    EXPECT_EQ(c.m_ifInBroadcastPkts, 1003u);
    EXPECT_EQ(c.m_ifInDiscards, 1004u);
    EXPECT_EQ(c.m_ifInErrors, 1005u);
    EXPECT_EQ(c.m_ifInUnknownProtos, 1006u);
    EXPECT_EQ(c.m_ifOutOctets, 6000000000ull);
    EXPECT_EQ(c.m_ifOutUcastPkts, 2001u);
    EXPECT_EQ(c.m_ifOutMulticastPkts, 2002u);
    EXPECT_EQ(c.m_ifOutBroadcastPkts, 2003u);
    EXPECT_EQ(c.m_ifOutDiscards, 2004u);
    EXPECT_EQ(c.m_ifOutErrors, 2005u);
    EXPECT_EQ(c.m_ifPromiscuousMode, 1u);
}

TEST(SFlowGenericCounters, RendersEveryFieldOnItsOwnLine) {
    Bytes data = GenericBody();
    CSFlowGenericCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(c.ToString(),
              L"Generic Counters:\r\nIndex: 7\r\nType: 6\r\nSpeed: 10000000000\r\nDirection: 1\r\n"
              L"Status: 3\r\nIn Octets: 5000000000\r\nIn Ucast Pkts: 1001\r\n"
              L"In Multicast Pkts: 1002\r\nIn Broadcast Pkts: 1003\r\nIn Discards: 1004\r\n"
              L"In Errors: 1005\r\nIn Unknown Protos: 1006\r\nOut Octets: 6000000000\r\n"
              L"Out Ucast Pkts: 2001\r\nOut Multicast Pkts: 2002\r\nOut Broadcast Pkts: 2003\r\n"
              L"Out Discards: 2004\r\nOut Errors: 2005\r\nPromiscuous Mode: 1\r\n");
}

TEST(SFlowGenericCounters, LowWordWithTopBitSetAndZeroHighWordIsSignExtended) {
    Bytes data = GenericBody();
    ByteBuilder patched;
    patched.bytes(data);
    patched.patch32(8, 0).patch32(12, 0x80000000); // speed
    data = patched.build();
    CSFlowGenericCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(c.m_ifSpeed, 0xFFFFFFFF80000000ull);
    EXPECT_NE(c.ToString().find(L"\r\nSpeed: 18446744071562067968\r\n"), CString::npos);
}

TEST(SFlowGenericCounters, LowWordWithTopBitSetTakesOneFromTheHighWord) {
    ByteBuilder patched;
    patched.bytes(GenericBody());
    patched.patch32(24, 1).patch32(28, 0x80000000); // in octets
    Bytes data = patched.build();
    CSFlowGenericCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(c.m_ifInOctets, 0x80000000ull);
    EXPECT_NE(c.ToString().find(L"\r\nIn Octets: 2147483648\r\n"), CString::npos);
}

TEST(SFlowGenericCounters, TruncatedBlockThrows) {
    Bytes data = GenericBody();
    data.resize(84);
    CSFlowGenericCounters c;
    int offset = 0;
    EXPECT_THROW(c.Decode(data, offset), CInvalidArgException);
}

TEST(SFlowEthernetCounters, ReadsThirteenWordsAndRendersWithTheBlankAfterTheHeading) {
    Bytes data = Words(11, 13);
    CSFlowEthernetCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(offset, 52);
    EXPECT_EQ(c.m_dot3StatsAlignmentErrors, 11u);
    EXPECT_EQ(c.m_dot3StatsSymbolErrors, 23u);
    EXPECT_EQ(c.ToString(), L"Ethernet Counters: \r\nAlignmentErrors: 11\r\nFCS Errors: 12\r\n"
                            L"Single Collision Frames: 13\r\nMultiple Collision Frames: 14\r\n"
                            L"SQE Test Errors: 15\r\nDeferred Transmissions: 16\r\nLate Collisions: 17\r\n"
                            L"Excessive Collisions: 18\r\nInternal Mac Transmit Errors: 19\r\n"
                            L"Carrier Sense Errors: 20\r\nFrame Too Longs: 21\r\n"
                            L"Internal Mac Receive Errors: 22\r\nSymbol Errors: 23\r\n");
}

TEST(SFlowTokenringCounters, ReadsEighteenWordsInOrder) {
    Bytes data = Words(101, 18);
    CSFlowTokenringCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(offset, 72);
    EXPECT_EQ(c.ToString(),
              L"Tokenring Counters:\r\nLine Errors: 101\r\nBurst Errors: 102\r\nAC Errors: 103\r\n"
              L"Abort Trans Errors: 104\r\nInternal Errors: 105\r\nLost Frame Errors: 106\r\n"
              L"Receive Congestions: 107\r\nFrame Copied Errors: 108\r\nToken Errors: 109\r\n"
              L"Soft Errors: 110\r\nHard Errors: 111\r\nSignal Loss: 112\r\n"
              L"Transmit Beacons: 113\r\nRecoverys: 114\r\nLobe Wires: 115\r\nRemoves: 116\r\n"
              L"Singles: 117\r\nFreq Errors: 118\r\n");
}

TEST(SFlowVGCounters, ReadsEightyBytesWithSixtyFourBitOctets) {
    Bytes data = ByteBuilder()
                     .u32(1)
                     .u64(0x100000002)
                     .u32(3)
                     .u64(4)
                     .u32(5)
                     .u32(6)
                     .u32(7)
                     .u32(8)
                     .u32(9)
                     .u64(10)
                     .u32(11)
                     .u64(12)
                     .u64(0x80000000) // high 0, low top bit set
                     .u64(14)
                     .build();
    ASSERT_EQ(data.size(), 80u);
    CSFlowVGCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(offset, 80);
    EXPECT_EQ(c.m_dot12InHighPriorityOctets, 4294967298ull);
    EXPECT_EQ(c.m_dot12HCInNormPriorityOctets, 0xFFFFFFFF80000000ull);
    EXPECT_EQ(c.ToString(),
              L"VG Counters:\r\nIn High Priority Frames: 1\r\nIn High Priority Octets: 4294967298\r\n"
              L"In Norm Priority Frames: 3\r\nIn Norm Priority Octets: 4\r\nIn IPM Errors: 5\r\n"
              L"In Oversize Frame Errors: 6\r\nIn Data Errors: 7\r\nIn Null Addressed Frames: 8\r\n"
              L"Out High Priority Frames: 9\r\nOut High Priority Octets: 10\r\n"
              L"Transition Into Trainings: 11\r\nHC In High Priority Octets: 12\r\n"
              L"HC In Norm Priority Octets: 18446744071562067968\r\n"
              L"HC Out High Priority Octets: 14\r\n");
}

TEST(SFlowVLANCounters, ReadsTwentyEightBytes) {
    Bytes data = ByteBuilder().u32(100).u64(5000000000).u32(1).u32(2).u32(3).u32(4).build();
    CSFlowVLANCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(offset, 28);
    EXPECT_EQ(c.ToString(), L"VLAN Counters:\r\nVLAN ID: 100\r\nOctets: 5000000000\r\nUcast Pkts: 1\r\n"
                            L"Multicast Pkts: 2\r\nBroadcast Pkts: 3\r\nDiscards: 4\r\n");
}

TEST(SFlowProcessorCounters, KeepsLoadsAsReceived) {
    Bytes data = ByteBuilder().u32(1234).u32(5678).u32(9012).u64(17179869184).u64(0x180000000).build();
    CSFlowProcessorCounters c;
    int offset = 0;
    c.Decode(data, offset);
    EXPECT_EQ(offset, 28);
    // 0x1_80000000: the low word's top bit takes one from the high word.
    EXPECT_EQ(c.m_freeMemory, 0x80000000ull);
    EXPECT_EQ(c.ToString(), L"Processor Counters:\r\n5s CPU: 1234\r\n1m CPU: 5678\r\n5m CPU: 9012\r\n"
                            L"Total Memory Bytes: 17179869184\r\nFree Memory Bytes: 2147483648\r\n");
}

TEST(SFlowCounters, FreshCountersRenderAllOnes) {
    EXPECT_EQ(
        CSFlowVLANCounters().ToString(),
        L"VLAN Counters:\r\nVLAN ID: 4294967295\r\nOctets: 18446744073709551615\r\nUcast Pkts: 4294967295\r\n"
        L"Multicast Pkts: 4294967295\r\nBroadcast Pkts: 4294967295\r\nDiscards: 4294967295\r\n");
    EXPECT_EQ(CSFlowProcessorCounters().m_totalMemory, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(CSFlowEthernetCounters().m_dot3StatsFCSErrors, 0xFFFFFFFFu);
    EXPECT_EQ(CSFlowTokenringCounters().m_dot5StatsFreqErrors, 0xFFFFFFFFu);
    EXPECT_EQ(CSFlowVGCounters().m_dot12HCOutHighPriorityOctets, 0xFFFFFFFFFFFFFFFFull);
}
