// nfcollect as a service runs it: configuration files, statistics lines that suit where they go, SIGHUP.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/ByteBuilder.h"
#include "support/CollectorProcess.h"
#include "support/NetFlowDatagram.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tpnf::test::CollectorProcess;
using tpnf::test::CollectorResult;
using tpnf::test::MetricsPort;
using tpnf::test::Scrape;

namespace {

size_t Count(const std::string& text, const std::regex& pattern) {
    return static_cast<size_t>(
        std::distance(std::sregex_iterator(text.begin(), text.end(), pattern), std::sregex_iterator()));
}

class CollectorServiceTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_service_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    fs::path WriteConfig(const std::string& text) {
        const fs::path file = m_dir / "nfcollect.conf";
        std::ofstream(file) << text;
        return file;
    }

    std::string Port() const { return std::to_string(m_port); }

    fs::path m_dir;
    int m_port = tpnf::test::FreePort();
    tpnf::test::Sender m_sender;
};

TEST_F(CollectorServiceTest, ConfigurationFileSetsOptionsAndTheCommandLineOverridesThem) {
    const fs::path config = WriteConfig("# a comment\nport = " + Port() + "\nformat = \"json\"\ncount = 1\n");
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--config", config.string(), "--format", "fields"}));
    ASSERT_TRUE(collector.WaitListening(m_port)); // the port came from the file
    m_sender.Send(m_port, tpnf::test::OneFlowV5(7));
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    // fields, not json: the command line won
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')),
              "# NetFlow v5 127.0.0.1:" + std::to_string(m_sender.Port()) + " record 0");
}

TEST_F(CollectorServiceTest, DumpConfigPrintsTheEffectiveConfigurationThatReadsBackTheSame) {
    const fs::path config = WriteConfig("format = \"json\"\nmax-queue = 5000\n");
    CollectorProcess first(m_dir);
    ASSERT_TRUE(first.Start({"--config", config.string(), "--port", "1234", "--dump-config"}));
    const CollectorResult dumped = first.Wait();
    ASSERT_EQ(dumped.exitCode, 0) << dumped.err;
    EXPECT_NE(dumped.out.find("\nport=1234\n"), std::string::npos) << dumped.out;
    EXPECT_NE(dumped.out.find("\nformat=\"json\"\n"), std::string::npos) << dumped.out;
    EXPECT_NE(dumped.out.find("\nmax-queue=5000\n"), std::string::npos) << dumped.out;
    EXPECT_NE(dumped.out.find("\nstats-interval=60\n"), std::string::npos) << dumped.out;
    EXPECT_NE(dumped.out.find("\n# UDP port to listen on"), std::string::npos) << dumped.out;
    EXPECT_EQ(dumped.out.find("dump-config"), std::string::npos) << dumped.out;

    // Every option written out, read back, gives the same configuration.
    const fs::path again = m_dir / "again.conf";
    std::ofstream(again) << dumped.out;
    CollectorProcess second(m_dir);
    ASSERT_TRUE(second.Start({"--config", again.string(), "--dump-config"}));
    const CollectorResult reread = second.Wait();
    EXPECT_EQ(reread.exitCode, 0) << reread.err;
    EXPECT_EQ(reread.out, dumped.out);
}

TEST_F(CollectorServiceTest, BadConfigurationFilesAreUsageErrors) {
    for (const std::string& text : {std::string("no-such-option = 1\n"), std::string("port = 70000\n"),
                                    std::string("db = \"a.sqlite\"\ndsn = \"b\"\n")}) {
        const fs::path config = WriteConfig(text);
        CollectorProcess collector(m_dir);
        ASSERT_TRUE(collector.Start({"--config", config.string()}));
        const CollectorResult r = collector.Wait();
        EXPECT_EQ(r.exitCode, 2) << text;
        EXPECT_EQ(Count(r.err, std::regex("\n")), 1u) << r.err;
        EXPECT_NE(r.err.find("nfcollect: "), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("(see --help)"), std::string::npos) << r.err;
    }
    CollectorProcess missing(m_dir);
    ASSERT_TRUE(missing.Start({"--config", (m_dir / "missing.conf").string()}));
    EXPECT_EQ(missing.Wait().exitCode, 2);
}

// In a pipe or a file: a line per interval, but only when something changed since the last one.
TEST_F(CollectorServiceTest, StatisticsElsewhereComeOncePerIntervalAndNotWhileNothingChanges) {
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start(
        {"--port", Port(), "--format", "none", "--stats-interval", "0.5", "--duration", "3.5"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    std::this_thread::sleep_for(300ms);
    m_sender.Send(m_port, tpnf::test::OneFlowV5(1));
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(Count(r.err, std::regex("nfcollect: 0 datagrams")), 0u) << r.err;
    EXPECT_EQ(Count(r.err, std::regex("\nnfcollect: 1 datagrams, 1 packets")), 1u) << r.err;
    EXPECT_EQ(Count(r.err, std::regex("\r")), 0u) << r.err;
    EXPECT_NE(tpnf::test::LastLine(r.err).find("nfcollect: stopped after 3.5 s: 1 datagrams, 1 packets"),
              std::string::npos)
        << r.err;
}

TEST_F(CollectorServiceTest, StatisticsOnATerminalAreOneLineRewrittenInPlace) {
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--format", "none", "--duration", "2.6"}, true));
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    // Every second: back to the start of the line, erase it, the new figures, no line end.
    const std::regex rewritten(
        "\r\x1b\\[Knfcollect: 0 datagrams, 0 packets, 0 decode errors, 0 dropped(?=\r)");
    EXPECT_EQ(Count(r.err, rewritten), 2u) << r.err;
    // The summary starts on a line of its own (the terminal shows line ends as \r\n).
    EXPECT_NE(r.err.find(" dropped\r\nnfcollect: stopped after 2.6 s: 0 datagrams"), std::string::npos)
        << r.err;
}

TEST_F(CollectorServiceTest, HangUpMakesAMovedTraceDirectoryAgain) {
    const fs::path traces = m_dir / "traces";
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--trace-dir", traces.string(), "--duration", "5"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    m_sender.Send(m_port, tpnf::test::OneFlowV5(1));
    std::this_thread::sleep_for(100ms);
    fs::rename(traces, m_dir / "traces.1"); // as a log rotation would
    collector.Signal(SIGHUP);
    for (int i = 0; i < 100 && collector.Err().find("SIGHUP") == std::string::npos; ++i)
        std::this_thread::sleep_for(20ms);
    m_sender.Send(m_port, tpnf::test::OneFlowV5(2));
    std::this_thread::sleep_for(100ms);
    collector.Signal(SIGTERM);
    const CollectorResult r = collector.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(fs::exists(m_dir / "traces.1" / "nf_trace_1.nfdmp"));
    EXPECT_TRUE(fs::exists(traces / "nf_trace_2.nfdmp"));
    EXPECT_NE(r.err.find("nfcollect: SIGHUP: output directories reopened\n"), std::string::npos) << r.err;
    EXPECT_NE(tpnf::test::LastLine(r.err).find("2 traced, 0 trace failures"), std::string::npos) << r.err;
}

TEST_F(CollectorServiceTest, MetricsCountKnownTrafficPerExporterProtocolAndStore) {
    const fs::path db = m_dir / "flows.sqlite";
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", Port(), "--format", "none", "--metrics", "127.0.0.1:0", "--db",
                                 db.string(), "--duration", "30"}));
    ASSERT_TRUE(collector.WaitListening(m_port));
    const int metricsPort = MetricsPort(collector);
    ASSERT_GT(metricsPort, 0) << collector.Err();
    const std::string command = tpnf::test::kReplay.string() + " --quiet --port " + Port() +
                                " --sample v5 --sample v9 --count 10 --rate 1000 > /dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::string exporter = "exporter=\"127.0.0.1\"";
    std::map<std::string, std::string> samples;
    for (int i = 0; i < 100; ++i) { // the store's figures follow once a second
        samples = Scrape(metricsPort);
        if (samples["nfcollect_stored_records_total{store=\"database\"}"] == "100")
            break;
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_EQ(samples["nfcollect_datagrams_total{" + exporter + ",protocol=\"NetFlow v5\"}"], "5");
    EXPECT_EQ(samples["nfcollect_datagrams_total{" + exporter + ",protocol=\"NetFlow v9\"}"], "5");
    EXPECT_EQ(samples["nfcollect_records_total{" + exporter + ",protocol=\"NetFlow v5\"}"], "150");
    EXPECT_EQ(samples["nfcollect_records_total{" + exporter + ",protocol=\"NetFlow v9\"}"], "100");
    EXPECT_EQ(samples["nfcollect_decode_errors_total{" + exporter + "}"], "0");
    EXPECT_EQ(samples["nfcollect_stored_records_total{store=\"database\"}"], "100");
    EXPECT_EQ(samples["nfcollect_store_queue_records{store=\"database\"}"], "0");
    EXPECT_EQ(samples["nfcollect_store_healthy{store=\"database\"}"], "1");
    EXPECT_EQ(samples["nfcollect_spilled_datagrams_total{store=\"database\"}"], "0");
    EXPECT_EQ(samples["nfcollect_receive_buffer_lost_total"], "0");
    collector.Signal(SIGTERM);
    EXPECT_EQ(collector.Wait().exitCode, 0);
}

} // namespace
