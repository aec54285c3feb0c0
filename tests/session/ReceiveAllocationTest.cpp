// Receiving allocates nothing per datagram beyond the packet: the allocations made while the loop reads,
// decodes and lists datagrams are those of decoding the same datagrams directly, give or take the list's
// growth. Counted with a replaced operator new, so not in a sanitized build (the sanitizer brings its own).

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "netflow/NetFlowPacketV5.h"
#include "session/ReceiveTestSupport.h"
#include "session/SessionTestSupport.h"

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TPNF_COUNT_ALLOCATIONS 1
// GCC pairs the replaced operators' malloc and free with the new-expressions it inlines from headers and
// warns falsely.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {
thread_local bool t_counting = false;
thread_local uint64_t t_allocations = 0;
} // namespace

void* operator new(std::size_t size) {
    if (t_counting)
        ++t_allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#endif

using namespace tpnf::test;

namespace {

#ifdef TPNF_COUNT_ALLOCATIONS
// Allocations this thread makes while `work` runs.
template <class Work>
uint64_t AllocationsOf(Work&& work) {
    t_allocations = 0;
    t_counting = true;
    work();
    t_counting = false;
    return t_allocations;
}
#endif

} // namespace

TEST(ReceiveAllocationTest, ReceivingAllocatesNoMorePerDatagramThanDecodingIt) {
#ifndef TPNF_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocations are not counted in a sanitized build";
#else
    constexpr int kRounds = 5;
    constexpr uint32_t kPerRound = 100;
    const std::vector<uint8_t> datagram = V5Datagram(1, 0, 3);

    asio::io_context loop;
    RecordingWnd owner;
    owner.CreateEx(loop, L"owner");
    owner.messages.reserve(2 * kRounds * kPerRound); // the test's own record of messages
    TestSession session;
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    UdpSender sender;
    // Warm up: the loop's first handlers, the sender cache, the catalogues.
    sender.Send(session.GetLocalPort(), datagram);
    ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == 1; }));

    uint64_t received = 0;
    for (int round = 0; round < kRounds; ++round) {
        for (uint32_t i = 0; i < kPerRound; ++i)
            sender.Send(session.GetLocalPort(), datagram);
        const uint64_t wanted = 1 + (round + 1) * kPerRound;
        received += AllocationsOf([&] {
            while (session.GetStatistics().datagrams < wanted)
                loop.run_one();
        });
    }
    ASSERT_EQ(session.GetStatistics().packets, 1 + kRounds * kPerRound);

    // The same datagrams decoded and given their sender without any socket.
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> direct;
    direct.reserve(kRounds * kPerRound);
    const CString senderText = L"127.0.0.1";
    const uint64_t decoding = AllocationsOf([&] {
        for (uint32_t i = 0; i < kRounds * kPerRound; ++i) {
            auto* packet = new CNetFlowPacketV5;
            packet->Decode(datagram);
            packet->SetSenderInfo(senderText, 2055);
            direct.push_back(packet);
        }
    });
    DeletePackets(direct);

    std::printf("allocations for %u datagrams: %llu receiving, %llu decoding directly\n", kRounds * kPerRound,
                static_cast<unsigned long long>(received), static_cast<unsigned long long>(decoding));
    EXPECT_GE(received, decoding);
    // What is left is the session list growing (about log2 of 500) and the loop's own bookkeeping: far
    // below one per datagram.
    EXPECT_LE(received - decoding, 25u);

    session.Stop();
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
    session.GetPackets(rest);
    DeletePackets(rest);
#endif
}
