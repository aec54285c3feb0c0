// Several queued datagrams are handled per readiness: each alone and in arrival order, at most
// kDrainLimit per round, with the sender of each, and a session stopped from a handler stops the round.
// A round that read few datagrams is followed by the session's coalescing pause, when it has one.

#include <gtest/gtest.h>

#include <asio/post.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "corelib/Utility.h"
#include "netflow/NetFlowPacketV5.h"
#include "session/SessionTestSupport.h"
#include "support/ByteBuilder.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
namespace fs = std::filesystem;

namespace {

// NetFlow v5 header announcing `count` records with flow sequence `sequence`, then `present` records whose
// source address ends in the record's number and whose packet counter is `sequence`.
std::vector<uint8_t> NetFlowV5(uint32_t sequence, uint16_t count, int present) {
    ByteBuilder b;
    b.u16(5).u16(count).u32(1000).u32(1700000000).u32(0); // version, count, uptime, secs, nsecs
    b.u32(sequence).u8(0).u8(0).u16(0);                   // flow sequence, engine type/id, sampling
    for (int i = 0; i < present; ++i) {
        b.ipv4(10, 0, 0, static_cast<uint8_t>(i)).ipv4(192, 168, 0, 1).ipv4(0, 0, 0, 0); // src, dst, hop
        b.u16(1).u16(2).u32(sequence).u32(1500).u32(100).u32(200);                       // ifs, counters
        b.u16(1024).u16(80).u8(0).u8(0x12).u8(6).u8(0);                                  // ports, flags
        b.u16(65001).u16(65002).u8(24).u8(16).u16(0);                                    // AS, masks
    }
    return b.build();
}

// A sender bound to a given loopback address.
class BoundSender {
public:
    explicit BoundSender(const char* address)
        : m_socket(m_loop, asio::ip::udp::endpoint(asio::ip::make_address_v4(address), 0)) {}
    void Send(UINT port, const std::vector<uint8_t>& datagram) {
        m_socket.send_to(asio::buffer(datagram), asio::ip::udp::endpoint(asio::ip::address_v4::loopback(),
                                                                         static_cast<uint16_t>(port)));
    }
    UINT LocalPort() const { return m_socket.local_endpoint().port(); }

private:
    asio::io_context m_loop;
    asio::ip::udp::socket m_socket;
};

class DrainTest : public ::testing::Test {
protected:
    void SetUp() override {
        owner.CreateEx(loop, L"owner");
        ASSERT_TRUE(session.Init(&owner, 0, L""));
        port = session.GetLocalPort();
    }
    void TearDown() override {
        session.Stop();
        DeletePackets(packets);
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
    }
    uint64_t Datagrams() const { return session.GetStatistics().datagrams; }
    // Runs one handler at a time until `total` datagrams were handled; returns how many each handler that
    // handled any took.
    std::vector<uint64_t> RunRounds(uint64_t total) {
        std::vector<uint64_t> rounds;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (Datagrams() < total && std::chrono::steady_clock::now() < deadline) {
            const uint64_t before = Datagrams();
            if (loop.stopped())
                loop.restart();
            loop.run_one_for(std::chrono::milliseconds(10));
            if (Datagrams() > before)
                rounds.push_back(Datagrams() - before);
        }
        return rounds;
    }
    void TakeAll() {
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> taken;
        session.GetPackets(taken);
        packets.insert(packets.end(), taken.begin(), taken.end());
    }
    // Takes the session's packets and checks that they are the datagrams of flow sequence 0 to count - 1,
    // in that order.
    void ExpectSequencesInOrder(uint32_t count) {
        TakeAll();
        ASSERT_EQ(packets.size(), count);
        for (uint32_t i = 0; i < count; ++i) {
            CNetFlowPacketV5* packet = V5(i);
            ASSERT_NE(packet, nullptr);
            EXPECT_EQ(packet->GetHeader().m_flowSequence, static_cast<int32_t>(i));
        }
    }
    CNetFlowPacketV5* V5(size_t index) {
        EXPECT_LT(index, packets.size());
        if (index >= packets.size())
            return nullptr;
        auto* packet = dynamic_cast<CNetFlowPacketV5*>(packets[index]);
        EXPECT_NE(packet, nullptr);
        return packet;
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
};

} // namespace

TEST_F(DrainTest, QueuedDatagramsAreHandledSeveralPerReadinessInArrivalOrder) {
    constexpr uint32_t kCount = 40; // fewer than one round's limit
    static_assert(kCount < CNetFlowSocket::kDrainLimit);
    for (uint32_t i = 0; i < kCount; ++i)
        sender.Send(port, NetFlowV5(i, 1, 1)); // loopback: queued at the socket when send returns
    const std::vector<uint64_t> rounds = RunRounds(kCount);
    ASSERT_EQ(Datagrams(), kCount);
    ASSERT_FALSE(rounds.empty());
    EXPECT_EQ(rounds.front(), kCount) << "all queued datagrams in the first round";
    ExpectSequencesInOrder(kCount);
    // Each datagram was handed to the owner on its own.
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), kCount);
}

TEST_F(DrainTest, ARoundTakesAtMostTheLimitAndTheLoopRunsOtherWorkBetweenRounds) {
    const uint32_t count = 2 * CNetFlowSocket::kDrainLimit + 5;
    for (uint32_t i = 0; i < count; ++i)
        sender.Send(port, NetFlowV5(i, 0, 0));
    bool otherWorkRan = false;
    uint64_t datagramsWhenOtherWorkRan = 0;
    // Posted before the first round: it must run before every queued datagram is handled.
    asio::post(loop, [&] {
        otherWorkRan = true;
        datagramsWhenOtherWorkRan = Datagrams();
    });
    const std::vector<uint64_t> rounds = RunRounds(count);
    ASSERT_EQ(Datagrams(), count);
    ASSERT_GE(rounds.size(), 3u);
    for (uint64_t n : rounds)
        EXPECT_LE(n, static_cast<uint64_t>(CNetFlowSocket::kDrainLimit));
    EXPECT_EQ(*std::max_element(rounds.begin(), rounds.end()),
              static_cast<uint64_t>(CNetFlowSocket::kDrainLimit));
    EXPECT_TRUE(otherWorkRan);
    EXPECT_LT(datagramsWhenOtherWorkRan, count);
    ExpectSequencesInOrder(count);
}

TEST_F(DrainTest, StopFromAPacketHandlerEndsTheRoundAndNothingMoreIsRead) {
    for (uint32_t i = 0; i < 10; ++i)
        sender.Send(port, NetFlowV5(i, 0, 0));
    owner.onPacket = [&] {
        if (owner.Count(WM_NETFLOW_PACKET) == 3)
            session.Stop();
    };
    RunUntil(loop, [&] { return session.m_pSocket == nullptr; });
    ASSERT_EQ(session.m_pSocket, nullptr);
    // Whatever is still queued in the loop runs out without reading the closed socket.
    RunUntil(
        loop, [] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(Datagrams(), 3u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 3u);
    ExpectSequencesInOrder(3);
}

TEST_F(DrainTest, StopFromTheDatagramCallbackEndsTheRound) {
    for (uint32_t i = 0; i < 10; ++i)
        sender.Send(port, ByteBuilder().u16(99).u16(0).build()); // unknown version: ignored
    session.onDatagram = [&] {
        if (session.GetStatistics().datagrams == 4)
            session.Stop();
    };
    RunUntil(loop, [&] { return session.m_pSocket == nullptr; });
    RunUntil(
        loop, [] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(Datagrams(), 4u);
    EXPECT_EQ(session.GetStatistics().ignored, 4u);
}

TEST_F(DrainTest, SizesGrowingAndShrinkingDecodeFromExactlyTheirOwnBytes) {
    // A short datagram after a long one must not see the long one's bytes: 2 records announced, 1 present.
    const std::vector<std::vector<uint8_t>> datagrams = {
        NetFlowV5(1, 1, 1),   NetFlowV5(2, 30, 30), NetFlowV5(3, 2, 1),  NetFlowV5(4, 0, 0),
        NetFlowV5(5, 30, 30), NetFlowV5(6, 3, 3),   NetFlowV5(7, 30, 29)};
    for (const auto& d : datagrams)
        sender.Send(port, d);
    RunRounds(datagrams.size());
    ASSERT_EQ(Datagrams(), datagrams.size());
    EXPECT_EQ(session.GetStatistics().decodeFailures, 2u); // sequences 3 and 7 are short of a record
    TakeAll();
    ASSERT_EQ(packets.size(), 5u);
    const int32_t sequences[] = {1, 2, 4, 5, 6};
    const size_t records[] = {1, 30, 0, 30, 3};
    for (size_t i = 0; i < 5; ++i) {
        CNetFlowPacketV5* packet = V5(i);
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->GetHeader().m_flowSequence, sequences[i]);
        EXPECT_EQ(packet->GetSize(), static_cast<int64_t>(records[i]));
        CUIntArray ids;
        CStringArray values;
        if (records[i] > 0) {
            packet->GetRecordFields(static_cast<int>(records[i] - 1), ids, values);
            ASSERT_FALSE(values.empty());
            // The last record's source address: 10.0.0.<index>.
            EXPECT_EQ(values[0], tpnf::FromUtf8("10.0.0." + std::to_string(records[i] - 1)));
        }
    }
}

TEST_F(DrainTest, EachPacketCarriesItsOwnSenderWhenSendersAlternate) {
    BoundSender other("127.0.0.2");
    BoundSender third("127.0.0.1");
    sender.Send(port, NetFlowV5(1, 0, 0));
    other.Send(port, NetFlowV5(2, 0, 0));
    other.Send(port, NetFlowV5(3, 0, 0));
    third.Send(port, NetFlowV5(4, 0, 0));
    sender.Send(port, NetFlowV5(5, 0, 0));
    RunRounds(5);
    ASSERT_EQ(Datagrams(), 5u);
    TakeAll();
    ASSERT_EQ(packets.size(), 5u);
    const wchar_t* addresses[] = {L"127.0.0.1", L"127.0.0.2", L"127.0.0.2", L"127.0.0.1", L"127.0.0.1"};
    const UINT ports[] = {sender.LocalPort(), other.LocalPort(), other.LocalPort(), third.LocalPort(),
                          sender.LocalPort()};
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(packets[i]->GetSenderIPAddress(), addresses[i]) << i;
        EXPECT_EQ(static_cast<UINT>(packets[i]->GetSenderPort()), ports[i]) << i;
    }
}

namespace {

std::vector<uint8_t> ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace

// Trace files hold the raw bytes, so they show exactly what the receive buffer held for each datagram.
TEST(DrainTraceTest, TraceFilesHoldExactlyEachDatagramWhateverTheSizeBefore) {
    char pattern[] = "/tmp/tpnf_drain_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const fs::path dir = pattern;
    CUtility::SetPduTraceDir(tpnf::FromUtf8(dir.string() + "/"));
    asio::io_context loop;
    RecordingWnd owner;
    owner.CreateEx(loop, L"owner");
    TestSession session;
    session.SetTraceMode(TRUE);
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    UdpSender sender;
    std::vector<std::vector<uint8_t>> datagrams;
    for (size_t size : {100u, 65507u, 0u, 1u, 3000u, 2999u, 65507u, 7u}) {
        std::vector<uint8_t> d(size);
        for (size_t i = 0; i < size; ++i)
            d[i] = static_cast<uint8_t>(i * 31 + size);
        datagrams.push_back(std::move(d));
    }
    CNetFlowSocket::SetTraceFileCounter(1000); // away from the wrap-around
    const int first = 1001;
    for (const auto& d : datagrams)
        sender.Send(session.GetLocalPort(), d);
    ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == datagrams.size(); }));
    session.Stop();
    EXPECT_EQ(session.GetStatistics().traced, datagrams.size());
    for (size_t i = 0; i < datagrams.size(); ++i) {
        const fs::path file = dir / ("nf_trace_" + std::to_string(first + static_cast<int>(i)) + ".nfdmp");
        EXPECT_EQ(ReadFile(file), datagrams[i])
            << "datagram " << i << " of " << datagrams[i].size() << " bytes";
    }
    CUtility::SetPduTraceDir(L"");
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

// The pause follows a round of fewer than kCoalesceBelow datagrams and no other; half a second, so that
// the rounds with it and without it cannot be mistaken for each other on a loaded machine.
TEST_F(DrainTest, ARoundOfFewDatagramsIsFollowedByTheCoalescingPause) {
    EXPECT_EQ(session.GetCoalesceDelay(), std::chrono::microseconds(0)) << "off by default";
    constexpr std::chrono::milliseconds kPause(500);
    session.SetCoalesceDelay(kPause);
    uint32_t sequence = 0;
    // Queues count datagrams, then runs the rounds that handle them: one round, timed.
    auto timedRound = [&](uint32_t count) {
        for (uint32_t i = 0; i < count; ++i)
            sender.Send(port, NetFlowV5(sequence++, 1, 1));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(RunRounds(Datagrams() + count), std::vector<uint64_t>{count});
        return std::chrono::steady_clock::now() - start;
    };
    EXPECT_GE(timedRound(1), kPause);
    EXPECT_GE(timedRound(CNetFlowSocket::kCoalesceBelow - 1), kPause);
    EXPECT_LT(timedRound(CNetFlowSocket::kCoalesceBelow), kPause);
    session.SetCoalesceDelay(std::chrono::microseconds(0));
    EXPECT_LT(timedRound(1), kPause);

    ExpectSequencesInOrder(sequence);
}
