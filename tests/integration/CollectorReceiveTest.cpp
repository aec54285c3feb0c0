// nfcollect on a real network: datagrams the kernel dropped, IPv6 listening, the sender allowlist,
// several workers on one port, loss seen in the exporters' sequence numbers, and several collectors
// sharing one database.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/ByteBuilder.h"
#include "support/CollectorProcess.h"
#include "support/NetFlowDatagram.h"
#include "support/PostgresServer.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tpnf::test::CollectorProcess;
using tpnf::test::CollectorResult;
using tpnf::test::LastLine;
using tpnf::test::MetricsPort;
using tpnf::test::Scrape;
using tpnf::test::Sender;

namespace {

class CollectorReceiveTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_receive_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
        m_port = tpnf::test::FreePort();
    }
    void TearDown() override { fs::remove_all(m_dir); }

    void Replay(const std::string& what) {
        const std::string command = tpnf::test::kReplay.string() + " --quiet --port " +
                                    std::to_string(m_port) + " " + what + " > /dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }

    // A series' value, polled until it is the one expected (the collector updates figures once a second).
    static std::string Poll(int metricsPort, const std::string& series, const std::string& expected) {
        std::string value;
        for (int i = 0; i < 100 && value != expected; ++i) {
            value = Scrape(metricsPort)[series];
            if (value != expected)
                std::this_thread::sleep_for(50ms);
        }
        return value;
    }

    std::string Port() const { return std::to_string(m_port); }

    fs::path m_dir;
    int m_port = 0;
};

} // namespace

// The collector is stopped while 20,000 datagrams arrive: the receive buffer holds a few hundred, the
// kernel drops the rest, and the collector counts each one: received plus lost is what was sent.
TEST_F(CollectorReceiveTest, DatagramsTheKernelDroppedAreCountedExactly) {
    constexpr int kSent = 20000;
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start(
        {"--port", Port(), "--format", "none", "--metrics", "127.0.0.1:0", "--stats-interval", "1"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    const int metricsPort = MetricsPort(collector);
    ASSERT_GT(metricsPort, 0) << collector.Err();
    collector.Signal(SIGSTOP);
    Sender sender;
    const std::vector<uint8_t> datagram = tpnf::test::OneFlowV5(0);
    for (int i = 0; i < kSent; ++i)
        sender.SendNow(m_port, datagram);
    collector.Signal(SIGCONT);

    std::map<std::string, std::string> samples;
    uint64_t received = 0;
    uint64_t lost = 0;
    for (int i = 0; i < 100 && received + lost != kSent; ++i) {
        std::this_thread::sleep_for(50ms);
        samples = Scrape(metricsPort);
        received = std::strtoull(
            samples["nfcollect_datagrams_total{exporter=\"127.0.0.1\",protocol=\"NetFlow v5\"}"].c_str(),
            nullptr, 10);
        lost = std::strtoull(samples["nfcollect_receive_buffer_lost_total"].c_str(), nullptr, 10);
    }
    EXPECT_EQ(received + lost, static_cast<uint64_t>(kSent));
    EXPECT_GT(lost, 0u);
    collector.Signal(SIGTERM);
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::string expected = std::to_string(received) + " datagrams, " + std::to_string(lost) +
                                 " lost in the receive buffer, " + std::to_string(received) +
                                 " packets (NetFlow v5 " + std::to_string(received) + "), 0 decode errors";
    EXPECT_NE(LastLine(r.err).find("s: " + expected), std::string::npos) << r.err;
}

// A larger receive buffer holds a burst that arrives while the collector cannot read: nothing is lost.
TEST_F(CollectorReceiveTest, ReceiveBufferHoldsABurstWhileTheCollectorCannotRead) {
    constexpr int kSent = 2000;
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--format", "none", "--receive-buffer", "4000000",
                                 "--count", std::to_string(kSent)}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    std::this_thread::sleep_for(200ms); // the buffer is set right after the socket is bound
    collector.Signal(SIGSTOP);
    Sender sender;
    for (int i = 0; i < kSent; ++i)
        sender.SendNow(m_port, tpnf::test::OneFlowV5(static_cast<uint32_t>(i)));
    collector.Signal(SIGCONT);
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(LastLine(r.err).find(": 2000 datagrams, 2000 packets (NetFlow v5 2000), 0 decode errors"),
              std::string::npos)
        << r.err;
}

// With a coalescing pause after small reads, every datagram of a stream is still received and decoded,
// with one worker and with two.
TEST_F(CollectorReceiveTest, CoalescingPauseReceivesEveryDatagram) {
    constexpr int kSent = 300;
    for (const char* workers : {"1", "2"}) {
        CollectorProcess collector(m_dir);
        ASSERT_TRUE(
            collector.Start({"--port", Port(), "--format", "none", "--coalesce-usecs", "2000", "--workers",
                             workers, "--receive-buffer", "4000000", "--count", std::to_string(kSent)}));
        ASSERT_TRUE(collector.WaitListening(m_port));
        Sender sender;
        for (int i = 0; i < kSent; ++i) {
            sender.SendNow(m_port, tpnf::test::OneFlowV5(static_cast<uint32_t>(i)));
            if (i % 10 == 0)
                std::this_thread::sleep_for(1ms); // small reads, each followed by the pause
        }
        const CollectorResult r = collector.Wait();
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_NE(LastLine(r.err).find(": 300 datagrams, 300 packets (NetFlow v5 300), 0 decode errors"),
                  std::string::npos)
            << workers << " workers: " << r.err;
    }
}

// Beyond net.core.rmem_max the kernel grants less; the collector says how much.
TEST_F(CollectorReceiveTest, ReceiveBufferBeyondTheSystemLimitIsReported) {
    const std::string limit = tpnf::test::ReadWholeFile("/proc/sys/net/core/rmem_max");
    ASSERT_FALSE(limit.empty());
    const std::string granted = limit.substr(0, limit.find('\n'));
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--receive-buffer", "1073741824", "--duration", "0.2"}));
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("nfcollect: receive buffer is " + granted +
                         " bytes, not 1073741824: raise net.core.rmem_max (sysctl) to allow more"),
              std::string::npos)
        << r.err;
}

// Only senders in the allowlist are decoded; the others are counted as refused, in the summary and the
// metrics.
TEST_F(CollectorReceiveTest, AllowlistRefusesOtherSenders) {
    CollectorProcess refusing(m_dir);
    ASSERT_TRUE(refusing.Start({"--port", Port(), "--format", "text", "--allow", "192.0.2.0/24", "--allow",
                                "2001:db8::/32", "--duration", "30", "--metrics", "127.0.0.1:0"}));
    ASSERT_TRUE(refusing.WaitListening(m_port));
    const int metricsPort = MetricsPort(refusing);
    Sender sender;
    for (uint32_t i = 0; i < 3; ++i)
        sender.Send(m_port, tpnf::test::OneFlowV5(i));
    EXPECT_EQ(Poll(metricsPort, "nfcollect_refused_total", "3"), "3");
    refusing.Signal(SIGTERM);
    const CollectorResult r = refusing.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(LastLine(r.err).find(": 3 datagrams, 0 packets, 0 decode errors, 0 dropped, 3 refused"),
              std::string::npos)
        << r.err;

    CollectorProcess accepting(m_dir);
    ASSERT_TRUE(accepting.Start({"--port", Port(), "--format", "none", "--allow", "192.0.2.0/24", "--allow",
                                 "127.0.0.1", "--count", "2"}));
    ASSERT_TRUE(accepting.WaitListening(m_port));
    sender.Send(m_port, tpnf::test::OneFlowV5(0));
    sender.Send(m_port, tpnf::test::OneFlowV5(1));
    const CollectorResult a = accepting.Wait();
    EXPECT_NE(LastLine(a.err).find(
                  ": 2 datagrams, 2 packets (NetFlow v5 2), 0 decode errors, 0 dropped, 0 refused"),
              std::string::npos)
        << a.err;
}

TEST_F(CollectorReceiveTest, BadListenAddressesAndPrefixesAreRefusedByName) {
    CollectorProcess badPrefix(m_dir);
    ASSERT_TRUE(badPrefix.Start({"--allow", "10.0.0.1/8"}));
    CollectorResult r = badPrefix.Wait();
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--allow: '10.0.0.1/8' is not an address prefix"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("did you mean 10.0.0.0/8?"), std::string::npos) << r.err;

    CollectorProcess badAddress(m_dir);
    ASSERT_TRUE(badAddress.Start({"--listen", "nowhere"}));
    r = badAddress.Wait();
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("nfcollect: --listen: 'nowhere' is not an IPv4 or IPv6 address"), std::string::npos)
        << r.err;

    CollectorProcess unbindable(m_dir);
    ASSERT_TRUE(unbindable.Start({"--port", Port(), "--listen", "192.0.2.77"}));
    r = unbindable.Wait();
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("nfcollect: cannot listen on UDP port " + Port() + " on 192.0.2.77: "),
              std::string::npos)
        << r.err;

    CollectorProcess sharedWithoutDatabase(m_dir);
    ASSERT_TRUE(sharedWithoutDatabase.Start({"--shared-db"}));
    r = sharedWithoutDatabase.Wait();
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--shared-db: needs --db or --dsn"), std::string::npos) << r.err;
}

// Listening on the IPv6 loopback: an IPv6 exporter's flows carry its address.
TEST_F(CollectorReceiveTest, ListensOnIPv6) {
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--listen", "::1", "--format", "flows", "--count", "2"}));
    std::this_thread::sleep_for(300ms); // WaitListening looks at IPv4 only
    Replay("--host ::1 --sample v5 --count 2");
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("listening on UDP port " + Port() + " of ::1, flows output"), std::string::npos)
        << r.err;
    EXPECT_NE(LastLine(r.err).find(": 2 datagrams, 2 packets (NetFlow v5 2)"), std::string::npos) << r.err;
    const std::regex ipv6Exporter(R"(\{"time_received":[0-9]+,"exporter":"::1","exporter_port":[0-9]+,)");
    std::istringstream lines(r.out);
    size_t flows = 0;
    for (std::string line; std::getline(lines, line); ++flows)
        EXPECT_TRUE(std::regex_search(line, ipv6Exporter)) << line;
    EXPECT_EQ(flows, 60u); // nfreplay's v5 sample holds 30 flows
}

// Two workers share the port; eight exporters send 50 datagrams each, in turn. Every datagram arrives
// once, and each exporter's flows come out in the order it sent them.
TEST_F(CollectorReceiveTest, TwoWorkersKeepEachExportersOrder) {
    constexpr int kExporters = 8;
    constexpr uint32_t kEach = 50;
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--workers", "2", "--format", "flows", "--duration", "60",
                                 "--metrics", "127.0.0.1:0"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    const int metricsPort = MetricsPort(collector);
    std::vector<std::unique_ptr<Sender>> senders;
    for (int i = 0; i < kExporters; ++i)
        senders.push_back(std::make_unique<Sender>());
    for (uint32_t sequence = 0; sequence < kEach; ++sequence)
        for (const auto& sender : senders)
            sender->SendNow(m_port, tpnf::test::OneFlowV5(sequence));
    EXPECT_EQ(
        Poll(metricsPort, "nfcollect_datagrams_total{exporter=\"127.0.0.1\",protocol=\"NetFlow v5\"}", "400"),
        "400");
    EXPECT_EQ(Scrape(metricsPort)["nfcollect_sequence_gaps_total{exporter=\"127.0.0.1\"}"], "0");
    collector.Signal(SIGTERM);
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("with 2 workers, flows output"), std::string::npos) << r.err;
    EXPECT_NE(LastLine(r.err).find(": 400 datagrams, 400 packets (NetFlow v5 400)"), std::string::npos)
        << r.err;

    const std::regex keys(R"("exporter_port":([0-9]+),.*"sequence":([0-9]+),)");
    std::map<int, std::vector<uint32_t>> sequences;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        ASSERT_TRUE(std::regex_search(line, match, keys)) << line;
        sequences[std::stoi(match[1].str())].push_back(static_cast<uint32_t>(std::stoul(match[2].str())));
    }
    ASSERT_EQ(sequences.size(), static_cast<size_t>(kExporters));
    for (const auto& sender : senders) {
        const std::vector<uint32_t>& got = sequences[sender->Port()];
        ASSERT_EQ(got.size(), kEach) << sender->Port();
        for (uint32_t i = 0; i < kEach; ++i)
            EXPECT_EQ(got[i], i) << "exporter port " << sender->Port();
    }
}

// Datagrams lost between exporter and collector show in the exporter's sequence numbers.
TEST_F(CollectorReceiveTest, SequenceGapsCountWhatTheExporterSentButNeverArrived) {
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start(
        {"--port", Port(), "--format", "none", "--metrics", "127.0.0.1:0", "--duration", "30"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    const int metricsPort = MetricsPort(collector);
    Sender sender;
    for (uint32_t sequence : {0u, 1u, 2u, 6u, 7u, 9u}) // 3, 4, 5 and 8 lost on the way
        sender.Send(m_port, tpnf::test::OneFlowV5(sequence));
    EXPECT_EQ(Poll(metricsPort, "nfcollect_sequence_gaps_total{exporter=\"127.0.0.1\"}", "4"), "4");
    EXPECT_EQ(
        Scrape(metricsPort)["nfcollect_datagrams_total{exporter=\"127.0.0.1\",protocol=\"NetFlow v5\"}"],
        "6");
    collector.Signal(SIGTERM);
    EXPECT_EQ(collector.Wait().exitCode, 0);
}

// Four collectors store 50,000 v9 records each into one PostgreSQL database at once with --shared-db:
// 200,000 rows with 200,000 distinct ids, and the id row after the last of them.
TEST_F(CollectorReceiveTest, FourCollectorsShareOneDatabase) {
    if (!tpnf::test::PostgresServer::Available())
        GTEST_SKIP() << "PostgreSQL 15 is not installed";
    tpnf::test::PostgresServer server;
    ASSERT_TRUE(server.Start(tpnf::test::FreePort(SOCK_STREAM)));
    constexpr int kCollectors = 4;
    constexpr int kDatagrams = 2500; // 20 records each
    std::vector<std::unique_ptr<CollectorProcess>> collectors;
    std::vector<int> ports;
    for (int i = 0; i < kCollectors; ++i) {
        const fs::path dir = m_dir / ("collector" + std::to_string(i));
        fs::create_directories(dir);
        ports.push_back(tpnf::test::FreePort());
        collectors.push_back(std::make_unique<CollectorProcess>(dir));
        ASSERT_TRUE(collectors.back()->Start({"--port", std::to_string(ports.back()), "--format", "none",
                                              "--dsn", tpnf::test::PostgresServer::DataSource(),
                                              "--shared-db", "--count", std::to_string(kDatagrams)}));
        ASSERT_TRUE(collectors.back()->WaitListening(ports.back()));
    }
    std::vector<std::thread> senders;
    for (int port : ports)
        senders.emplace_back([port] {
            const std::string command = tpnf::test::kReplay.string() + " --quiet --port " +
                                        std::to_string(port) + " --sample v9 --count " +
                                        std::to_string(kDatagrams) + " --rate 2000 > /dev/null";
            EXPECT_EQ(std::system(command.c_str()), 0);
        });
    for (std::thread& sender : senders)
        sender.join();
    for (const auto& collector : collectors) {
        const CollectorResult r = collector->Wait(120s);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(r.err.find("database error"), std::string::npos) << r.err;
    }
    constexpr int kRecords = kCollectors * kDatagrams * 20;
    EXPECT_EQ(server.Query("select count(*), count(distinct record_id), min(record_id), max(record_id) "
                           "from netflow_records"),
              std::to_string(kRecords) + "|" + std::to_string(kRecords) + "|0|" +
                  std::to_string(kRecords - 1) + "\n");
    EXPECT_EQ(server.Query("select count(*) from netflow_attributes"), std::to_string(16 * kRecords) + "\n");
    EXPECT_EQ(server.Query("select record_id from netflow_record_id"), std::to_string(kRecords) + "\n");
}
