// nfreplay into a session: IPv6 destinations, and several source sockets taking turns, so that one sender
// program stands for many exporters.

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "session/SessionTestSupport.h"

namespace fs = std::filesystem;
using namespace tpnf::test;

namespace {

const fs::path kReplay = fs::path(TPNF_BINARY_DIR) / "tools" / "nfreplay";

// A session that records the sender of every datagram it handles.
class RecordingSession : public CNetFlowSession {
public:
    std::vector<std::pair<CString, UINT>> senders;
    std::vector<EDatagramOutcome> outcomes;

protected:
    void OnDatagramHandled() override {
        senders.emplace_back(*GetDatagramInfo()->senderAddress, GetDatagramInfo()->senderPort);
        outcomes.push_back(GetDatagramInfo()->outcome);
    }
};

class ReplayToSessionTest : public ::testing::Test {
protected:
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
    }
    void Listen(const char* address) {
        session.SetListenAddresses({asio::ip::make_address(address)});
        ASSERT_TRUE(session.Init(loop, nullptr, 0, L"")) << session.GetSocketError().message();
    }
    // Runs nfreplay with the arguments (after the port) while the loop handles `expected` datagrams;
    // returns nfreplay's exit status.
    int Replay(const std::string& arguments, size_t expected) {
        const std::string command = kReplay.string() + " --quiet --rate 0 --port " +
                                    std::to_string(session.GetLocalPort()) + " " + arguments + " > /dev/null";
        int status = -1;
        std::thread sender([&] { status = std::system(command.c_str()); });
        RunUntil(
            loop, [&] { return session.senders.size() >= expected; }, std::chrono::seconds(20));
        sender.join();
        EXPECT_EQ(session.senders.size(), expected) << command;
        return status;
    }

    asio::io_context loop;
    RecordingSession session;
};

} // namespace

TEST_F(ReplayToSessionTest, AnIPv6DestinationIsReachedFromAnIPv6Sender) {
    Listen("::1");
    ASSERT_EQ(Replay("--host ::1 --sample v5 --count 5", 5), 0);
    for (const auto& [address, port] : session.senders)
        EXPECT_EQ(address, L"::1");
    EXPECT_EQ(session.GetStatistics().packets, 5u);
}

TEST_F(ReplayToSessionTest, ABracketedIPv6DestinationIsTakenAsWell) {
    Listen("::1");
    ASSERT_EQ(Replay("--host [::1] --sample v9 --count 3", 3), 0);
    EXPECT_EQ(session.senders.front().first, L"::1");
    EXPECT_EQ(session.GetStatistics().packets, 3u);
}

TEST_F(ReplayToSessionTest, SeveralSourcesTakeTurnsBatchByBatch) {
    Listen("127.0.0.1");
    ASSERT_EQ(Replay("--host 127.0.0.1 --sample v5 --count 40 --batch 1 --sources 4", 40), 0);
    ASSERT_EQ(session.senders.size(), 40u);
    std::set<UINT> ports;
    for (size_t i = 0; i < 40; ++i) {
        EXPECT_EQ(session.senders[i].first, L"127.0.0.1");
        ports.insert(session.senders[i].second);
        // Datagram i came from source i % 4.
        if (i >= 4) {
            EXPECT_EQ(session.senders[i].second, session.senders[i - 4].second) << i;
        }
    }
    EXPECT_EQ(ports.size(), 4u);
}

TEST_F(ReplayToSessionTest, OneSourceIsTheDefault) {
    Listen("127.0.0.1");
    ASSERT_EQ(Replay("--sample v5 --count 10 --batch 2", 10), 0);
    std::set<UINT> ports;
    for (const auto& sender : session.senders)
        ports.insert(sender.second);
    EXPECT_EQ(ports.size(), 1u);
}

TEST(ReplayOptionsTest, ZeroSourcesIsAUsageError) {
    const std::string command = kReplay.string() + " --sources 0 --sample v5 > /dev/null 2>&1";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
}
