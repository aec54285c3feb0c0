// Port sharing for workers: two sessions, each run by its own thread and loop, listen on one address and
// port with SO_REUSEPORT. Every datagram of many senders arrives exactly once, each sender stays with one
// session, and each sender's datagrams arrive there in the order they were sent.

#include <gtest/gtest.h>

#include <asio/io_context.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "corelib/Utility.h"
#include "session/ReceiveTestSupport.h"
#include "session/SessionTestSupport.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
namespace fs = std::filesystem;

namespace {

// What one worker saw of one sender: the flow sequences in arrival order.
using Arrivals = std::map<UINT, std::vector<uint32_t>>;

// A session on a thread of its own, recording the sender port and flow sequence of each datagram.
class Worker {
public:
    // Starts the thread; the session listens on 127.0.0.1:port with SO_REUSEPORT (port 0: the system's
    // choice, see Port()).
    Worker(UINT port, std::atomic<uint64_t>& handled, bool trace = false)
        : m_handled(handled), m_trace(trace) {
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
        session.SetTraceMode(m_trace ? TRUE : FALSE);
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
    const bool m_trace;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    UINT m_port = 0;
    Arrivals m_arrivals;
    CNetFlowSession::Statistics m_statistics;
};

// Sends `rounds` rounds of one datagram from each of `senders` sockets, the flow sequence being the
// round, each round waiting until the workers have taken it, so that no receive buffer overflows however
// slowly a (sanitized) worker runs.
void SendRounds(UINT port, int senderCount, uint32_t rounds, const std::atomic<uint64_t>& handled) {
    std::vector<std::unique_ptr<UdpSender>> senders;
    for (int i = 0; i < senderCount; ++i)
        senders.push_back(std::make_unique<UdpSender>());
    for (uint32_t round = 0; round < rounds; ++round) {
        for (auto& sender : senders)
            sender->Send(port, V5Datagram(round));
        const uint64_t wanted = uint64_t(round + 1) * static_cast<uint64_t>(senderCount);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (handled < wanted && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        ASSERT_EQ(handled.load(), wanted) << "round " << round;
    }
}

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

    SendRounds(port, kSenders, kRounds, handled);
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

TEST(ReusePortThreadsTest, WorkersInTraceModeNumberTheirFilesWithoutCollision) {
    char pattern[] = "/tmp/tpnf_workers_trace_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    CUtility::SetPduTraceDir(tpnf::FromUtf8(std::string(pattern) + "/"));
    CNetFlowSocket::SetTraceFileCounter(3000);
    constexpr int kSenders = 16;
    constexpr uint32_t kRounds = 50;
    std::atomic<uint64_t> handled{0};
    Worker first(0, handled, true);
    ASSERT_NE(first.Port(), 0u);
    Worker second(first.Port(), handled, true);
    ASSERT_EQ(second.Port(), first.Port());
    SendRounds(first.Port(), kSenders, kRounds, handled);
    first.Join();
    second.Join();

    const uint64_t total = uint64_t(kSenders) * kRounds;
    EXPECT_EQ(first.GetStatistics().traced + second.GetStatistics().traced, total);
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), 3000 + static_cast<int>(total));
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(pattern))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(names.size(), total);
    for (uint64_t n = 3001; n <= 3000 + total; ++n)
        EXPECT_EQ(names.count("nf_trace_" + std::to_string(n) + ".nfdmp"), 1u) << n;
    CUtility::SetPduTraceDir(L"");
    std::error_code ignored;
    fs::remove_all(pattern, ignored);
}
