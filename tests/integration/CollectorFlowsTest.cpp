// nfcollect's flows: one JSON line per flow, the flows table, several collectors into one table, and the
// flows store through an outage.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
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
using tpnf::test::Query;

namespace {

// One v5 flow: 10.0.0.1:1234 -> 10.0.0.2:80 TCP, 3 packets, 180 bytes, switched from uptime 4000 to 4900
// ms of an exporter up 5000 ms at 1,000,000,000 s; sampling interval 0x4064: mode 1, interval 100.
std::vector<uint8_t> V5Datagram() {
    using namespace tpnf::test;
    ByteBuilder b;
    V5Header{.count = 1,
             .sysUptime = 5000,
             .unixSecs = 1000000000,
             .flowSequence = 7,
             .engineType = 1,
             .engineId = 2,
             .samplingInterval = 0x4064}
        .AppendTo(b);
    V5Record{.common = {.srcAddr = IPv4(10, 0, 0, 1),
                        .dstAddr = IPv4(10, 0, 0, 2),
                        .nextHop = IPv4(10, 0, 0, 254),
                        .input = 3,
                        .output = 4,
                        .dPkts = 3,
                        .dOctets = 180,
                        .first = 4000,
                        .last = 4900,
                        .srcPort = 1234,
                        .dstPort = 80},
             .tcpFlags = 0x1b,
             .prot = 6,
             .tos = 0x10,
             .srcAS = 64500,
             .dstAS = 64501,
             .srcMask = 24,
             .dstMask = 16}
        .AppendTo(b);
    return b.build();
}

class CollectorFlowsTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_flows_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    void Replay(const std::string& what, int port) {
        const std::string command = tpnf::test::kReplay.string() + " --quiet --port " + std::to_string(port) +
                                    " " + what + " > /dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }

    fs::path m_dir;
    int m_port = tpnf::test::FreePort();
    tpnf::test::Sender m_sender;
};

TEST_F(CollectorFlowsTest, FlowsFormatPrintsOneObjectPerFlowWithEveryKeyInOrder) {
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", std::to_string(m_port), "--format", "flows", "--count", "1"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    m_sender.Send(m_port, V5Datagram());
    const CollectorResult r = collector.Wait();
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::regex line(
        "\\{\"time_received\":[0-9]{13},\"exporter\":\"127\\.0\\.0\\.1\",\"exporter_port\":" +
        std::to_string(m_sender.Port()) +
        ",\"protocol\":\"NetFlow v5\",\"sequence\":7,\"observation_domain\":258,"
        "\"flow_start\":999999999000,\"flow_end\":999999999900,\"ip_version\":4,\"src_addr\":\"10\\.0\\.0\\."
        "1\","
        "\"dst_addr\":\"10\\.0\\.0\\.2\",\"next_hop\":\"10\\.0\\.0\\.254\",\"src_port\":1234,\"dst_port\":80,"
        "\"proto\":6,\"tos\":16,\"tcp_flags\":27,\"packets\":3,\"bytes\":180,\"sampling_rate\":100,\"in_if\":"
        "3,"
        "\"out_if\":4,\"src_as\":64500,\"dst_as\":64501,\"src_mask\":24,\"dst_mask\":16,\"vlan\":null,"
        "\"src_mac\":null,\"dst_mac\":null\\}\n");
    EXPECT_TRUE(std::regex_match(r.out, line)) << r.out;
}

TEST_F(CollectorFlowsTest, FlowsTableHoldsEveryProtocolsFlowsAsTypedRows) {
    const fs::path db = m_dir / "flows.sqlite";
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start(
        {"--port", std::to_string(m_port), "--format", "none", "--flows-db", db.string(), "--count", "4"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    m_sender.Send(m_port, V5Datagram());
    Replay("--sample v5 --sample v9 --sample sflow", m_port);
    const CollectorResult r = collector.Wait();
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(
        Query(db,
              "select protocol, count(*), sum(packets) > 0 from flows group by protocol order by protocol"),
        "NetFlow v5|31|1\nNetFlow v9|20|1\nsFlow v5|8|1\n");
    EXPECT_EQ(Query(db, "select src_addr, dst_addr, src_port, dst_port, proto, bytes, sampling_rate, "
                        "typeof(bytes), typeof(src_addr), typeof(vlan) from flows where exporter_port = " +
                            std::to_string(m_sender.Port())),
              "10.0.0.1|10.0.0.2|1234|80|6|180|100|integer|text|null\n");
    EXPECT_EQ(
        Query(db, "select name from sqlite_master where type = 'index' and tbl_name = 'flows' order by name"),
        "flows_exporter\nflows_flow_end\n");
    EXPECT_NE(tpnf::test::LastLine(r.err).find(", 59 flows stored, 0 flows waiting for the flows table"),
              std::string::npos)
        << r.err;
}

// A quiet exporter's flows do not wait for a full batch: they are in the table while the collector runs.
TEST_F(CollectorFlowsTest, FewFlowsAreStoredWithoutWaitingForAFullBatch) {
    const fs::path db = m_dir / "flows.sqlite";
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", std::to_string(m_port), "--format", "none", "--flows-db",
                                 db.string(), "--duration", "30"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    // The table made means the writer is open and idle before the datagram arrives.
    std::string count;
    for (int i = 0; i < 200 && count != "0\n"; ++i) {
        std::this_thread::sleep_for(50ms);
        count = Query(db, "select count(*) from flows");
    }
    ASSERT_EQ(count, "0\n") << collector.Err();
    m_sender.Send(m_port, V5Datagram());
    for (int i = 0; i < 100 && count != "1\n"; ++i) {
        std::this_thread::sleep_for(50ms);
        count = Query(db, "select count(*) from flows");
    }
    EXPECT_EQ(count, "1\n") << collector.Err();
    collector.Signal(SIGINT);
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
}

// No key to collide on: two collectors write one table at once, each all of its flows.
TEST_F(CollectorFlowsTest, TwoCollectorsWriteOneFlowsTableAtOnce) {
    const fs::path db = m_dir / "flows.sqlite";
    const int port2 = tpnf::test::FreePort();
    CollectorProcess first(m_dir / "a"), second(m_dir / "b");
    fs::create_directories(m_dir / "a");
    fs::create_directories(m_dir / "b");
    ASSERT_TRUE(first.Start(
        {"--port", std::to_string(m_port), "--format", "none", "--flows-db", db.string(), "--count", "400"}));
    ASSERT_TRUE(second.Start(
        {"--port", std::to_string(port2), "--format", "none", "--flows-db", db.string(), "--count", "400"}));
    ASSERT_TRUE(first.WaitListening(m_port));
    ASSERT_TRUE(second.WaitListening(port2));
    std::thread a([&] { Replay("--sample v9 --count 400 --rate 1000", m_port); });
    std::thread b([&] { Replay("--sample v5 --count 400 --rate 1000", port2); });
    a.join();
    b.join();
    EXPECT_EQ(first.Wait(60s).exitCode, 0) << first.Err();
    EXPECT_EQ(second.Wait(60s).exitCode, 0) << second.Err();
    EXPECT_EQ(Query(db, "select protocol, count(*) from flows group by protocol order by protocol"),
              "NetFlow v5|12000\nNetFlow v9|8000\n");
}

TEST_F(CollectorFlowsTest, FlowsTableSurvivesAPostgreSQLRestartStoringEveryFlowOnce) {
    if (!tpnf::test::PostgresServer::Available())
        GTEST_SKIP() << "PostgreSQL 15 is not installed";
    tpnf::test::PostgresServer server;
    ASSERT_TRUE(server.Start(tpnf::test::FreePort(SOCK_STREAM)));
    constexpr int kSent = 4000;
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(
        collector.Start({"--port", std::to_string(m_port), "--format", "none", "--flows-dsn",
                         tpnf::test::PostgresServer::DataSource(), "--count", std::to_string(kSent)}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    std::thread sender(
        [&] { Replay("--sample v9 --count " + std::to_string(kSent) + " --rate 1000", m_port); });
    std::this_thread::sleep_for(1000ms);
    ASSERT_TRUE(server.Down());
    std::this_thread::sleep_for(2000ms);
    ASSERT_TRUE(server.Up());
    sender.join();
    const CollectorResult r = collector.Wait(60s);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("nfcollect: flows table error: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("nfcollect: flows table available again; storing the "), std::string::npos) << r.err;
    // Every flow once: a batch written twice would show as more rows, one lost as fewer.
    EXPECT_EQ(server.Query("select count(*) from flows"), std::to_string(20 * kSent) + "\n") << r.err;
}

TEST_F(CollectorFlowsTest, FlowsThatDoNotFitTheQueueAreSpilledAsTheirDatagramsAndStoredByAReplay) {
    constexpr int kSent = 600;
    const fs::path db = m_dir / "flows.sqlite";
    const fs::path spill = m_dir / "spill";
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", std::to_string(m_port), "--format", "none", "--flows-db",
                                 db.string(), "--max-queue", "20", "--spill-dir", spill.string(), "--count",
                                 std::to_string(kSent)}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    Replay("--sample v9 --count " + std::to_string(kSent) + " --rate 3000", m_port);
    const CollectorResult first = collector.Wait();
    EXPECT_EQ(first.exitCode, 1) << first.err;
    size_t spilled = 0;
    for (const auto& entry : fs::directory_iterator(spill / "flows"))
        spilled += entry.path().extension() == ".nfdmp" ? 1 : 0;
    const uint64_t stored = std::strtoull(Query(db, "select count(*) from flows").c_str(), nullptr, 10);
    EXPECT_GT(spilled, 0u);
    EXPECT_EQ(stored + 20 * spilled, 20u * kSent) << first.err;

    const int port2 = tpnf::test::FreePort();
    CollectorProcess second(m_dir);
    ASSERT_TRUE(second.Start({"--port", std::to_string(port2), "--format", "none", "--flows-db", db.string(),
                              "--count", std::to_string(spilled)}));
    ASSERT_TRUE(second.WaitListening(port2));
    Replay("--rate 2000 " + (spill / "flows").string(), port2);
    EXPECT_EQ(second.Wait().exitCode, 0);
    EXPECT_EQ(Query(db, "select count(*) from flows"), std::to_string(20 * kSent) + "\n");
}

} // namespace
