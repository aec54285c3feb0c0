// Port sharing for workers: two sessions, each run by its own thread and loop, listen on one address and
// port with SO_REUSEPORT. Every datagram of many senders arrives exactly once, each sender stays with one
// session, and each sender's datagrams arrive there in the order they were sent.

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "session/ReceiveTestSupport.h"
#include "session/SessionTestSupport.h"

using namespace tpnf::test;

namespace {

// What one worker saw of one sender: the flow sequences in arrival order.
using Arrivals = std::map<UINT, std::vector<uint32_t>>;

// A session on a thread of its own, recording the sender port and flow sequence of each datagram.
class Worker {
public:
    // Starts the thread; the session listens on 127.0.0.1:port with SO_REUSEPORT (port 0: the system's
    // choice, see Port()).
    explicit Worker(UINT port, std::atomic<uint64_t>& handled) : m_handled(handled) {
        std::promise<UINT> bound;
        std::future<UINT> boundPort = bound.get_future();
        m_thread = std::thread([this, port, promise = std::move(bound)]() mutable { Run(port, promise); });
        m_port = boundPort.get();
    }
    ~Worker() { Join(); }

    UINT Port() const { return m_port; }
    void Join() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
    }
    // Valid after Join.
    const Arrivals& GetArrivals() const { return m_arrivals; }
    const CNetFlowSession::Statistics& GetStatistics() const { return m_statistics; }

private:
    class Session : public CNetFlowSession {
    public:
        std::function<void()> onDatagram;
        void OnDatagramHandled() override { onDatagram(); }
    };

    void Run(UINT port, std::promise<UINT>& bound) {
        asio::io_context loop;
        Session session;
        session.SetReusePort(true);
        session.SetListenAddresses({asio::ip::make_address("127.0.0.1")});
        session.onDatagram = [&] {
            const CDatagramInfo* current = session.GetDatagramInfo();
            const CByteArray& bytes = *current->datagram;
            const uint32_t sequence = (uint32_t(bytes[16]) << 24) | (uint32_t(bytes[17]) << 16) |
                                      (uint32_t(bytes[18]) << 8) | bytes[19];
            m_arrivals[current->senderPort].push_back(sequence);
            ++m_handled;
        };
        if (!session.Init(loop, nullptr, port, L"")) {
            bound.set_value(0);
            return;
        }
        bound.set_value(session.GetLocalPort());
        while (!m_stop) {
            if (loop.stopped())
                loop.restart();
            loop.run_one_for(std::chrono::milliseconds(10));
        }
        session.Stop();
        m_statistics = session.GetStatistics();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
        session.GetPackets(packets);
        DeletePackets(packets);
    }

    std::atomic<uint64_t>& m_handled;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    UINT m_port = 0;
    Arrivals m_arrivals;
    CNetFlowSession::Statistics m_statistics;
};

} // namespace

TEST(ReusePortThreadsTest, TwoWorkersOnOnePortGetEachDatagramOnceAndEachSenderInOrderAtOneWorker) {
    constexpr int kSenders = 32;
    constexpr uint32_t kRounds = 100;
    std::atomic<uint64_t> handled{0};
    Worker first(0, handled);
    ASSERT_NE(first.Port(), 0u);
    Worker second(first.Port(), handled);
    ASSERT_EQ(second.Port(), first.Port()) << "the second worker could not share the port";
    const UINT port = first.Port();

    std::vector<std::unique_ptr<UdpSender>> senders;
    for (int i = 0; i < kSenders; ++i)
        senders.push_back(std::make_unique<UdpSender>());
    // Round by round, each round waiting until the workers have taken it, so that no receive buffer
    // overflows however slowly a (sanitized) worker runs.
    for (uint32_t round = 0; round < kRounds; ++round) {
        for (auto& sender : senders)
            sender->Send(port, V5Datagram(round));
        const uint64_t wanted = uint64_t(round + 1) * kSenders;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (handled < wanted && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        ASSERT_EQ(handled.load(), wanted) << "round " << round;
    }
    first.Join();
    second.Join();

    EXPECT_EQ(first.GetStatistics().datagrams + second.GetStatistics().datagrams,
              uint64_t(kSenders) * kRounds);
    EXPECT_EQ(first.GetStatistics().lost + second.GetStatistics().lost, 0u);
    std::vector<uint32_t> inOrder(kRounds);
    for (uint32_t i = 0; i < kRounds; ++i)
        inOrder[i] = i;
    std::set<UINT> seen;
    for (const Arrivals* arrivals : {&first.GetArrivals(), &second.GetArrivals()})
        for (const auto& [senderPort, sequences] : *arrivals) {
            EXPECT_TRUE(seen.insert(senderPort).second) << "sender " << senderPort << " reached both workers";
            EXPECT_EQ(sequences, inOrder) << "sender " << senderPort;
        }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kSenders));
    // The kernel spreads senders by a hash of their addresses and ports: with 32 senders both workers
    // get some (all on one would have a chance of 2^-31).
    EXPECT_GT(first.GetArrivals().size(), 0u);
    EXPECT_GT(second.GetArrivals().size(), 0u);
    std::printf("senders per worker: %zu and %zu\n", first.GetArrivals().size(), second.GetArrivals().size());
}

TEST(ReusePortThreadsTest, WithoutPortSharingASecondSessionCannotBindThePort) {
    asio::io_context loop;
    TestSession session;
    ASSERT_TRUE(session.Init(loop, nullptr, 0, L""));
    TestSession other;
    EXPECT_FALSE(other.Init(loop, nullptr, session.GetLocalPort(), L""));
    // Sharing must be asked for by both: the first session did not.
    TestSession sharing;
    sharing.SetReusePort(true);
    EXPECT_FALSE(sharing.Init(loop, nullptr, session.GetLocalPort(), L""));
    session.Stop();
}
