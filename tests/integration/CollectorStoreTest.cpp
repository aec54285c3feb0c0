// nfcollect's stores under load and failure: the queue bound, spilling, replaying what was spilled.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/CollectorProcess.h"
#include "support/PostgresServer.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tpnf::test::CollectorProcess;
using tpnf::test::CollectorResult;
using tpnf::test::Query;

namespace {

class CollectorStoreTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_store_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    // nfreplay sends its v9 sample (a 16-field template and 20 records in every datagram), or files.
    void Replay(const std::string& what, int port) {
        const std::string command = tpnf::test::kReplay.string() + " --quiet --port " + std::to_string(port) +
                                    " " + what + " > /dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }

    static uint64_t Number(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 10); }

    static size_t FilesIn(const fs::path& dir) {
        size_t n = 0;
        if (fs::exists(dir))
            for (const auto& entry : fs::directory_iterator(dir))
                n += entry.path().extension() == ".nfdmp" ? 1 : 0;
        return n;
    }

    // With extra arguments after the usual ones.
    void RestartUnderTraffic(const std::vector<std::string>& extra);

    fs::path m_dir;
};

// A queue of 20 records holds one datagram: what the database cannot take at once is spilled. Every
// datagram is stored or spilled, and the spilled ones are stored by a replay, each record once.
TEST_F(CollectorStoreTest, OverloadedQueueSpillsEveryDatagramItCannotHoldAndAReplayStoresThem) {
    constexpr int kSent = 600;
    const fs::path db = m_dir / "flows.sqlite";
    const fs::path spill = m_dir / "spill";
    const int port = tpnf::test::FreePort();
    CollectorProcess collector(m_dir);
    // The large receive buffer keeps a loaded machine's scheduling pauses from losing datagrams to the
    // kernel: this test is about the store's queue.
    ASSERT_TRUE(collector.Start({"--port", std::to_string(port), "--format", "none", "--db", db.string(),
                                 "--max-queue", "20", "--spill-dir", spill.string(), "--count",
                                 std::to_string(kSent), "--receive-buffer", "4000000"}));
    ASSERT_TRUE(collector.WaitListening(port));
    Replay("--sample v9 --count " + std::to_string(kSent) + " --rate 3000", port);
    const CollectorResult first = collector.Wait();
    EXPECT_EQ(first.exitCode, 1) << first.err; // some datagrams are stored only after the replay

    const uint64_t records = Number(Query(db, "select count(*) from netflow_records"));
    const size_t spilled = FilesIn(spill / "database");
    EXPECT_GT(spilled, 0u) << first.err;
    EXPECT_GT(records, 0u) << first.err;
    EXPECT_EQ(records + 20 * spilled, 20u * kSent) << first.err;
    EXPECT_NE(
        first.err.find("nfcollect: the database store cannot take more (20 records waiting, --max-queue): "
                       "datagrams go to " +
                       (spill / "database").string()),
        std::string::npos)
        << first.err;
    const std::regex summary(
        "stopped after [0-9.]+ s: " + std::to_string(kSent) + " datagrams, " + std::to_string(kSent) +
        " packets \\(NetFlow v9 [0-9]+\\), 0 decode errors, 0 dropped, [0-9]+ stored, 0 waiting "
        "for the database, " +
        std::to_string(spilled) + " spilled");
    EXPECT_TRUE(std::regex_search(tpnf::test::LastLine(first.err), summary)) << first.err;
    EXPECT_EQ(Number(Query(db, "select count(*) from netflow_attributes")), 16 * records);

    // The spilled datagrams, replayed into a collector on the same file, are stored after the others.
    const int port2 = tpnf::test::FreePort();
    CollectorProcess second(m_dir);
    ASSERT_TRUE(second.Start({"--port", std::to_string(port2), "--format", "none", "--db", db.string(),
                              "--count", std::to_string(spilled)}));
    ASSERT_TRUE(second.WaitListening(port2));
    Replay("--rate 2000 " + (spill / "database").string(), port2);
    const CollectorResult replayed = second.Wait();
    EXPECT_EQ(replayed.exitCode, 0) << replayed.err;
    EXPECT_EQ(Query(db, "select count(*), count(distinct record_id), min(record_id), max(record_id) "
                        "from netflow_records"),
              std::to_string(20 * kSent) + "|" + std::to_string(20 * kSent) + "|0|" +
                  std::to_string(20 * kSent - 1) + "\n");
    EXPECT_EQ(Number(Query(db, "select count(*) from netflow_attributes")), 16u * 20 * kSent);
    EXPECT_EQ(Query(db, "select * from netflow_record_id"), std::to_string(20 * kSent) + "\n");
}

// The database goes away for two seconds while 1,000 datagrams a second arrive: the collector keeps
// receiving, re-opens the store after the backoff and stores every record exactly once. With extra
// arguments as well, and with --flows-dsn among them every flow once too.
void CollectorStoreTest::RestartUnderTraffic(const std::vector<std::string>& extra) {
    if (!tpnf::test::PostgresServer::Available())
        GTEST_SKIP() << "PostgreSQL 15 is not installed";
    tpnf::test::PostgresServer server;
    ASSERT_TRUE(server.Start(tpnf::test::FreePort(SOCK_STREAM)));
    constexpr int kSent = 4000;
    const int port = tpnf::test::FreePort();
    CollectorProcess collector(m_dir);
    std::vector<std::string> args = {"--port",   std::to_string(port),
                                     "--format", "none",
                                     "--dsn",    tpnf::test::PostgresServer::DataSource(),
                                     "--count",  std::to_string(kSent)};
    args.insert(args.end(), extra.begin(), extra.end());
    ASSERT_TRUE(collector.Start(args));
    ASSERT_TRUE(collector.WaitListening(port));
    std::thread sender(
        [&] { Replay("--sample v9 --count " + std::to_string(kSent) + " --rate 1000", port); });
    std::this_thread::sleep_for(1000ms);
    ASSERT_TRUE(server.Down());
    std::this_thread::sleep_for(2000ms);
    ASSERT_TRUE(server.Up());
    sender.join();
    const CollectorResult r = collector.Wait(60s);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("nfcollect: database error: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("nfcollect: database available again; storing the "), std::string::npos) << r.err;
    EXPECT_EQ(server.Query("select count(*), count(distinct record_id), min(record_id), max(record_id) "
                           "from netflow_records"),
              std::to_string(20 * kSent) + "|" + std::to_string(20 * kSent) + "|0|" +
                  std::to_string(20 * kSent - 1) + "\n")
        << r.err;
    EXPECT_EQ(server.Query("select count(*) from netflow_attributes"),
              std::to_string(16 * 20 * kSent) + "\n");
    EXPECT_EQ(server.Query("select record_id from netflow_record_id"), std::to_string(20 * kSent) + "\n");
    // The summary ends with each store's counts.
    std::string stores = std::to_string(kSent) + " stored, 0 waiting for the database";
    if (std::find(extra.begin(), extra.end(), "--flows-dsn") != extra.end()) {
        EXPECT_EQ(server.Query("select count(*) from flows"), std::to_string(20 * kSent) + "\n") << r.err;
        stores += ", " + std::to_string(20 * kSent) + " flows stored, 0 flows waiting for the flows table";
    }
    EXPECT_TRUE(std::regex_search(tpnf::test::LastLine(r.err), std::regex(stores + "$"))) << r.err;
}

TEST_F(CollectorStoreTest, PostgreSQLRestartUnderTrafficLosesNothingAndStoresEveryRecordOnce) {
    RestartUnderTraffic({});
}

TEST_F(CollectorStoreTest, WithCopyAPostgreSQLRestartUnderTrafficLosesNothingAndStoresEveryRecordOnce) {
    RestartUnderTraffic({"--pg-copy", "--flows-dsn", tpnf::test::PostgresServer::DataSource()});
}

} // namespace
