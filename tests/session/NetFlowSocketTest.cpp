// Receiving over a real loopback socket: version dispatch, decode failures, malformed datagrams dropped
// at the loop boundary, and the sender recorded on each packet.

#include <gtest/gtest.h>

#include <typeinfo>

#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "netflow9/NetFlowPacketV9.h"
#include "session/SessionTestSupport.h"
#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "util/Format.h"

using namespace tpnf::test;

namespace {

// NetFlow v5 header (24 bytes) announcing `count` records, followed by that many 48-byte records.
ByteBuilder NetFlowV5(uint16_t count, int recordsPresent) {
    ByteBuilder b;
    b.u16(5).u16(count).u32(1000).u32(1700000000).u32(0); // version, count, uptime, secs, nsecs
    b.u32(77).u8(0).u8(0).u16(0);                         // flow sequence, engine type/id, sampling
    for (int i = 0; i < recordsPresent; ++i) {
        b.ipv4(10, 0, 0, static_cast<uint8_t>(i)).ipv4(192, 168, 0, 1).ipv4(0, 0, 0, 0); // src, dst, hop
        b.u16(1).u16(2).u32(10).u32(1500).u32(100).u32(200);                             // ifs, counters
        b.u16(1024).u16(80).u8(0).u8(0x12).u8(6).u8(0);                                  // ports, flags
        b.u16(65001).u16(65002).u8(24).u8(16).u16(0);                                    // AS, masks
    }
    return b;
}

// NetFlow v1 header with count 0 (16 bytes).
ByteBuilder NetFlowV1Empty() {
    return ByteBuilder().u16(1).u16(0).u32(1000).u32(1700000000).u32(0);
}

// NetFlow v7 header with count 0 (24 bytes).
ByteBuilder NetFlowV7Empty() {
    return ByteBuilder().u16(7).u16(0).u32(1000).u32(1700000000).u32(0).u32(5).u32(0);
}

// NetFlow v8 header, aggregation 1 (AS), count 0 (28 bytes).
ByteBuilder NetFlowV8Empty() {
    ByteBuilder b;
    b.u16(8).u16(0).u32(1000).u32(1700000000).u32(0).u32(5); // common header, flow sequence
    b.u8(0).u8(0).u8(1).u8(2).u32(0);                        // engine type/id, aggregation, agg. version
    return b;
}

// NetFlow v9 header without flowsets (20 bytes).
ByteBuilder NetFlowV9Empty() {
    return ByteBuilder().u16(9).u16(0).u32(1000).u32(1700000000).u32(1).u32(0);
}

// sFlow header with an IPv4 agent and no samples; version 5 carries the agent sub-id.
ByteBuilder SFlowEmpty(uint32_t version) {
    ByteBuilder b;
    b.u32(version).u32(1).ipv4(10, 9, 8, 7); // version, agent address type IPv4, agent
    if (version == 5)
        b.u32(0);              // agent sub-id
    b.u32(1).u32(5000).u32(0); // sequence, uptime, samples
    return b;
}

class SocketTest : public ::testing::Test {
protected:
    void SetUp() override {
        owner.CreateEx(loop, L"owner");
        ASSERT_TRUE(session.Init(&owner, 0, L""));
        port = session.GetLocalPort();
    }
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
    }

    // Sends one datagram and runs the loop until the session has handled it.
    void Deliver(const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        sender.Send(port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }))
            << "datagram not received";
    }
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> Take() {
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
        session.GetPackets(packets);
        return packets;
    }
    // Delivers one datagram that must become one listed packet, and takes it.
    CTPAbstractPacket* DeliverOnePacket(const std::vector<uint8_t>& datagram) {
        Deliver(datagram);
        auto packets = Take();
        if (packets.size() != 1) {
            ADD_FAILURE() << "expected one packet, got " << packets.size();
            DeletePackets(packets);
            return nullptr;
        }
        return packets[0];
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
};

template <class Kind>
void ExpectKind(CTPAbstractPacket* packet, const wchar_t* protocol) {
    ASSERT_NE(packet, nullptr);
    EXPECT_NE(dynamic_cast<Kind*>(packet), nullptr) << typeid(*packet).name();
    EXPECT_EQ(packet->GetProtocol(), protocol);
    delete packet;
}

} // namespace

TEST_F(SocketTest, VersionOneBecomesNetFlowV1Packet) {
    ExpectKind<CNetFlowPacketV1>(DeliverOnePacket(NetFlowV1Empty()), L"NetFlow v1");
}

TEST_F(SocketTest, VersionFiveBecomesNetFlowV5Packet) {
    ExpectKind<CNetFlowPacketV5>(DeliverOnePacket(NetFlowV5(0, 0)), L"NetFlow v5");
}

TEST_F(SocketTest, VersionSevenBecomesNetFlowV7Packet) {
    ExpectKind<CNetFlowPacketV7>(DeliverOnePacket(NetFlowV7Empty()), L"NetFlow v7");
}

TEST_F(SocketTest, VersionEightBecomesNetFlowV8Packet) {
    ExpectKind<CNetFlowPacketV8>(DeliverOnePacket(NetFlowV8Empty()), L"NetFlow v8");
}

TEST_F(SocketTest, StartingZeroNineBecomesNetFlowV9Packet) {
    ExpectKind<CNetFlowPacketV9>(DeliverOnePacket(NetFlowV9Empty()), L"NetFlow v9");
}

TEST_F(SocketTest, StartingZeroSixIsIgnored) {
    Deliver(ByteBuilder().u16(6).u16(0).zeros(20));
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().ignored, 1u);
}

TEST_F(SocketTest, StartingZeroZeroZeroFiveBecomesSFlowPacket) {
    ExpectKind<CSFlowPacket>(DeliverOnePacket(SFlowEmpty(5)), L"sFlow v5");
}

TEST_F(SocketTest, SFlowVersionsTwoAndFourBecomeSFlowPackets) {
    ExpectKind<CSFlowPacket>(DeliverOnePacket(SFlowEmpty(2)), L"sFlow v2");
    ExpectKind<CSFlowPacket>(DeliverOnePacket(SFlowEmpty(4)), L"sFlow v4");
}

TEST_F(SocketTest, StartingZeroZeroZeroThreeIsIgnored) {
    Deliver(SFlowEmpty(3));
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().ignored, 1u);
}

TEST_F(SocketTest, UnknownVersionsAreIgnoredSilently) {
    for (uint32_t version : {2u, 3u, 4u, 6u, 10u, 0xFFFFu})
        Deliver(ByteBuilder().u16(version).zeros(30));
    Deliver(ByteBuilder().u32(1).zeros(30)); // 00 00 00 01: not an sFlow version
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().ignored, 7u);
}

TEST_F(SocketTest, OneByteDatagramIsIgnored) {
    Deliver(ByteBuilder().u8(5));
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().ignored, 1u);
    EXPECT_EQ(session.GetStatistics().malformed, 0u);
}

TEST_F(SocketTest, EmptyDatagramIsIgnored) {
    Deliver(ByteBuilder());
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().ignored, 1u);
}

TEST_F(SocketTest, ShortZeroZeroDatagramsThrowAndAreDroppedAtTheLoopBoundary) {
    for (size_t length : {2u, 3u}) {
        Deliver(ByteBuilder().zeros(length));
        EXPECT_TRUE(Take().empty()) << length;
        EXPECT_TRUE(owner.messages.empty()) << length;
    }
    EXPECT_EQ(session.GetStatistics().malformed, 2u);
    EXPECT_EQ(session.GetStatistics().ignored, 0u);
    // Receiving goes on: the next datagram is decoded.
    ExpectKind<CNetFlowPacketV5>(DeliverOnePacket(NetFlowV5(0, 0)), L"NetFlow v5");
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 1u);
}

TEST_F(SocketTest, ExceptionInsideDecodeSendsNoMessageAndReceivingGoesOn) {
    Deliver(ByteBuilder().u16(1).u16(0).u32(1000).u32(1700000000)); // v1 cut inside its header
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().malformed, 1u);
    ExpectKind<CNetFlowPacketV1>(DeliverOnePacket(NetFlowV1Empty()), L"NetFlow v1");
}

TEST_F(SocketTest, DecodeFailureSendsExactlyOneErrorAndNoPacketMessage) {
    Deliver(ByteBuilder().u16(5).u16(0).zeros(6)); // v5 shorter than its 24-byte header
    EXPECT_TRUE(Take().empty());
    ASSERT_EQ(owner.messages.size(), 1u);
    EXPECT_EQ(owner.messages[0].message, WM_NETFLOW_ERROR);
    EXPECT_EQ(owner.messages[0].wParam, 0u);
    EXPECT_EQ(owner.messages[0].lParam, 0);
    EXPECT_EQ(session.GetStatistics().decodeFailures, 1u);
}

TEST_F(SocketTest, RecordThatDoesNotFitFailsTheDecode) {
    Deliver(NetFlowV5(2, 1).zeros(47)); // count 2, second record one byte short
    Deliver(ByteBuilder().u16(9).u16(0).u32(1000).u32(1700000000).u32(1).zeros(3)); // v9 header, 19 bytes
    EXPECT_TRUE(Take().empty());
    EXPECT_EQ(owner.Count(WM_NETFLOW_ERROR), 2u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 0u);
}

TEST_F(SocketTest, DecodeFailureWithoutOwnerSendsNothing) {
    session.Stop();
    ASSERT_TRUE(session.Init(loop, nullptr, 0, L""));
    port = session.GetLocalPort();
    Deliver(ByteBuilder().u16(5).zeros(8));
    EXPECT_TRUE(Take().empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().decodeFailures, 1u);
}

TEST_F(SocketTest, DecodedPacketCarriesSenderAddressAndPort) {
    CTPAbstractPacket* packet = DeliverOnePacket(NetFlowV5(1, 1));
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->GetSenderIPAddress(), L"127.0.0.1");
    EXPECT_EQ(packet->GetSenderPort(), static_cast<int>(sender.LocalPort()));
    EXPECT_EQ(packet->GetSize(), 1);
    const CString firstLine = tpnf::FormatText(L"NetFlow packet received from: 127.0.0.1:%d\r\n",
                                               static_cast<int>(sender.LocalPort()));
    EXPECT_EQ(packet->ToString().substr(0, firstLine.size()), firstLine);
    delete packet;
}

TEST_F(SocketTest, EachDecodedPacketIsAnnouncedOnceInArrivalOrder) {
    Deliver(NetFlowV5(1, 1));
    Deliver(NetFlowV9Empty());
    Deliver(SFlowEmpty(5));
    auto packets = Take();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0]->GetProtocol(), L"NetFlow v5");
    EXPECT_EQ(packets[1]->GetProtocol(), L"NetFlow v9");
    EXPECT_EQ(packets[2]->GetProtocol(), L"sFlow v5");
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 3u);
    EXPECT_EQ(owner.messages.size(), 3u);
    EXPECT_EQ(session.GetStatistics().packets, 3u);
    DeletePackets(packets);
}

TEST_F(SocketTest, ThirtyRecordV5DatagramDecodesWhole) {
    CTPAbstractPacket* packet = DeliverOnePacket(NetFlowV5(30, 30));
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->GetSize(), 30);
    CUIntArray ids;
    CStringArray values;
    packet->GetRecordFields(29, ids, values);
    ASSERT_FALSE(values.empty());
    EXPECT_EQ(values[0], L"10.0.0.29");
    delete packet;
}

TEST_F(SocketTest, OwnerMayStopTheSessionFromItsPacketHandler) {
    owner.onPacket = [&] { session.Stop(); };
    Deliver(NetFlowV5(0, 0));
    EXPECT_FALSE(session.IsStarted());
    // The port is closed: nothing more arrives, and the loop runs on without the socket.
    sender.Send(port, NetFlowV5(0, 0));
    RunUntil(
        loop, [] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(session.GetStatistics().datagrams, 1u);
    auto packets = Take();
    EXPECT_EQ(packets.size(), 1u);
    DeletePackets(packets);
}

TEST_F(SocketTest, HostHookRunsAfterEveryDatagramWhateverBecameOfIt) {
    int calls = 0;
    session.onDatagram = [&] { ++calls; };
    Deliver(NetFlowV5(0, 0));        // listed
    Deliver(ByteBuilder().u8(1));    // ignored
    Deliver(ByteBuilder().zeros(2)); // malformed
    Deliver(ByteBuilder().u16(5));   // decode failure
    EXPECT_EQ(calls, 4);
}

TEST_F(SocketTest, HostHookMayStopTheSession) {
    session.onDatagram = [&] { session.Stop(); };
    Deliver(NetFlowV5(0, 0));
    EXPECT_FALSE(session.IsStarted());
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 1u);
}
