// The nfcollect program end to end: datagrams sent over loopback UDP, output and files checked.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "netflow/NetFlowPacketV5.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/ByteBuilder.h"
#include "support/CollectorProcess.h"
#include "support/NetFlowDatagram.h"
#include "support/NetFlowV9Datagram.h"
#include "support/SFlowDatagram.h"
#include "util/TextConvert.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tpnf::test::ByteBuilder;
using tpnf::test::FreePort;
using tpnf::test::kReplay;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::Query;
using tpnf::test::Sender;
using tpnf::test::V9Header;
using Bytes = std::vector<uint8_t>;

namespace {

using Result = tpnf::test::CollectorResult;

class CollectorTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_collector_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    // Starts the collector with args; once it listens, sends the datagrams; waits for it to end.
    Result Run(std::vector<std::string> args, const std::vector<Bytes>& datagrams = {},
               bool waitForListen = true, const std::function<void()>& send = {}) {
        tpnf::test::CollectorProcess collector(m_dir);
        if (!collector.Start(std::move(args)))
            return Result();
        if (waitForListen) {
            collector.WaitListening(m_port);
            for (const Bytes& datagram : datagrams)
                m_sender.Send(m_port, datagram);
            if (send)
                send();
        }
        return collector.Wait();
    }

    std::string PortArg() const { return std::to_string(m_port); }

    // One file per datagram under the test directory.
    std::vector<std::string> WriteDatagramFiles(const std::vector<Bytes>& datagrams) {
        const fs::path dir = m_dir / "datagrams";
        fs::create_directories(dir);
        std::vector<std::string> files;
        for (size_t i = 0; i < datagrams.size(); ++i) {
            files.push_back((dir / ("d" + std::to_string(i) + ".bin")).string());
            std::ofstream(files.back(), std::ios::binary)
                .write(reinterpret_cast<const char*>(datagrams[i].data()),
                       static_cast<std::streamsize>(datagrams[i].size()));
        }
        return files;
    }

    // Sends the files or trace directories with nfreplay.
    std::function<void()> Replay(const std::vector<std::string>& inputs) {
        return [this, inputs] {
            std::string command = kReplay.string() + " --quiet --port " + PortArg();
            for (const std::string& input : inputs)
                command += " '" + input + "'";
            ASSERT_EQ(std::system((command + " > /dev/null").c_str()), 0) << command;
        };
    }

    static std::string LastLine(const std::string& text) { return tpnf::test::LastLine(text); }

    fs::path m_dir;
    int m_port = FreePort();
    Sender m_sender;
};

Bytes V5Datagram() {
    using namespace tpnf::test;
    ByteBuilder b;
    V5Header{.count = 1, .sysUptime = 5000, .unixSecs = 1000000000, .flowSequence = 7}.AppendTo(b);
    V5Record{.common = {.srcAddr = IPv4(10, 0, 0, 1),
                        .dstAddr = IPv4(10, 0, 0, 2),
                        .dPkts = 3,
                        .dOctets = 180,
                        .srcPort = 1234,
                        .dstPort = 80},
             .prot = 6}
        .AppendTo(b);
    return b.build();
}

Bytes V1Datagram() {
    using namespace tpnf::test;
    ByteBuilder b;
    V1Header{.count = 1, .unixSecs = 1000000000}.AppendTo(b);
    V1Record{.common = {.srcAddr = IPv4(10, 1, 0, 1)}, .prot = 17}.AppendTo(b);
    return b.build();
}

Bytes V7Datagram() {
    using namespace tpnf::test;
    ByteBuilder b;
    V7Header{.count = 1, .unixSecs = 1000000000}.AppendTo(b);
    V7Record{.common = {.srcAddr = IPv4(10, 7, 0, 1)}, .prot = 6}.AppendTo(b);
    return b.build();
}

Bytes V8Datagram() {
    using namespace tpnf::test;
    ByteBuilder b;
    V8Header{.count = 1, .unixSecs = 1000000000, .aggregation = 1}.AppendTo(b);
    V8RouterASRecord{.counters = {.flows = 1, .packets = 2, .octets = 100}, .srcAS = 64500, .dstAS = 64501}
        .AppendTo(b);
    return b.build();
}

// Template 400 (IPV4_SRC_ADDR, PROT, IN_BYTES) and two records for it.
Bytes V9Datagram() {
    return NetFlowV9Datagram(V9Header{2, 1000, 1000000000, 1, 0})
        .Template(400, {{8, 4}, {4, 1}, {1, 4}})
        .Data(400, ByteBuilder().ipv4(10, 9, 0, 1).u8(17).u32(1500).ipv4(10, 9, 0, 2).u8(6).u32(40).build())
        .build();
}

Bytes SFlowDatagram() {
    using namespace tpnf::test::sflow;
    return Datagram(HeaderFields{}, {CounterSampleV5(1, 5, {Record(1, GenericCounters(100))})});
}

TEST_F(CollectorTest, EveryKindArrivesAsAListedPacketAndUnknownOnesAreCounted) {
    const std::vector<Bytes> datagrams = {V1Datagram(), V5Datagram(),           V7Datagram(),
                                          V8Datagram(), V9Datagram(),           SFlowDatagram(),
                                          Bytes{0x05},  Bytes{0x00, 0x06, 0, 0}};
    Result r = Run({"--port", PortArg(), "--format", "json", "--count", "8"}, datagrams);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    std::istringstream lines(r.out);
    std::vector<std::string> protocols;
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find("\"protocol\":\"");
        ASSERT_NE(at, std::string::npos) << line;
        protocols.push_back(line.substr(at + 12, line.find('"', at + 12) - at - 12));
        EXPECT_NE(line.find("\"sender\":\"127.0.0.1:" + std::to_string(m_sender.Port()) + "\""),
                  std::string::npos)
            << line;
    }
    EXPECT_EQ(protocols, (std::vector<std::string>{"NetFlow v1", "NetFlow v5", "NetFlow v7", "NetFlow v8",
                                                   "NetFlow v9", "sFlow v5"}));
    const std::string last = LastLine(r.err);
    EXPECT_NE(last.find(": 8 datagrams, 6 packets (NetFlow v1 1, NetFlow v5 1, NetFlow v7 1, NetFlow v8 1, "
                        "NetFlow v9 1, sFlow v5 1), 0 decode errors, 2 dropped"),
              std::string::npos)
        << last;
}

TEST_F(CollectorTest, TextOutputIsThePacketsOwnRenderingWithNewlineLineEnds) {
    const Bytes datagram = V5Datagram();
    Result r = Run({"--port", PortArg(), "--count", "1", "--quiet"}, {datagram});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    CNetFlowPacketV5 packet;
    ASSERT_EQ(packet.Decode(CByteArray(datagram.begin(), datagram.end())), 1);
    packet.SetSenderInfo(L"127.0.0.1", static_cast<UINT>(m_sender.Port()));
    std::string expected = tpnf::ToUtf8(packet.ToString());
    for (size_t at; (at = expected.find("\r\n")) != std::string::npos;)
        expected.erase(at, 1);
    EXPECT_EQ(r.out, expected + "\n\n");
    // Quiet: only the closing summary.
    EXPECT_EQ(r.err.find("listening"), std::string::npos);
}

TEST_F(CollectorTest, FieldsOutputListsEveryRecordByName) {
    Result r = Run({"--port", PortArg(), "--count", "1", "--format", "fields"}, {V9Datagram()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::string sender = "127.0.0.1:" + std::to_string(m_sender.Port());
    EXPECT_EQ(r.out, "# NetFlow v9 " + sender +
                         " record 0\nIPV4_SRC_ADDR=10.9.0.1\nPROT=UDP\nIN_BYTES=1500\n\n"
                         "# NetFlow v9 " +
                         sender + " record 1\nIPV4_SRC_ADDR=10.9.0.2\nPROT=TCP\nIN_BYTES=40\n\n");
}

TEST_F(CollectorTest, TraceDirectoryReceivesEachDatagramAsANumberedFile) {
    const fs::path traces = m_dir / "traces";
    const std::vector<Bytes> datagrams = {V5Datagram(), V9Datagram(), Bytes{0x00, 0x06}};
    Result r = Run({"--port", PortArg(), "--count", "3", "--trace-dir", traces.string()}, datagrams);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    for (int n = 1; n <= 3; ++n) {
        const fs::path file = traces / ("nf_trace_" + std::to_string(n) + ".nfdmp");
        ASSERT_TRUE(fs::exists(file)) << file;
        const std::string bytes = tpnf::test::ReadWholeFile(file);
        EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), datagrams[static_cast<size_t>(n - 1)]) << file;
    }
    EXPECT_NE(LastLine(r.err).find("3 traced, 0 trace failures"), std::string::npos) << r.err;
}

// The rows are read back with the sqlite3 shell.

TEST_F(CollectorTest, DatabaseFileReceivesTheV9Records) {
    const fs::path db = m_dir / "flows.sqlite";
    Result r = Run({"--port", PortArg(), "--count", "3", "--format", "none", "--db", db.string()},
                   {V9Datagram(), V5Datagram(), V9Datagram()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::string port = std::to_string(m_sender.Port());
    EXPECT_EQ(Query(db, "select * from netflow_records order by record_id"),
              "0|127.0.0.1|" + port + "|1000000000|9\n1|127.0.0.1|" + port + "|1000000000|9\n2|127.0.0.1|" +
                  port + "|1000000000|9\n3|127.0.0.1|" + port + "|1000000000|9\n");
    EXPECT_EQ(Query(db, "select * from netflow_attributes where record_id = 1 order by attr_id"),
              "1|1|40\n1|4|6\n1|8|10.9.0.2\n");
    EXPECT_EQ(Query(db, "select count(*) from netflow_attributes"), "12\n");
    EXPECT_EQ(Query(db, "select * from netflow_record_id"), "4\n");
    EXPECT_NE(LastLine(r.err).find("3 stored, 0 waiting for the database"), std::string::npos) << r.err;
}

// Rows hold what GetRecordFields lists for the same datagram, except that protocol numbers stay numbers.
TEST_F(CollectorTest, DatabaseRowsOfReplayedV9RecordsHoldTheListedValues) {
    const fs::path db = m_dir / "flows.sqlite";
    const Bytes datagram = V9Datagram();
    Result r = Run({"--port", PortArg(), "--count", "1", "--format", "none", "--db", db.string()}, {}, true,
                   Replay(WriteDatagramFiles({datagram})));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    CNetFlowPacketV9 packet;
    ASSERT_EQ(packet.Decode(CByteArray(datagram.begin(), datagram.end())), 1);
    std::string expected;
    for (int record = 0; record < packet.GetSize(); ++record) {
        CUIntArray ids;
        CStringArray values;
        packet.GetRecordFields(record, ids, values);
        for (size_t f = 0; f < ids.size(); ++f) {
            std::string value = tpnf::ToUtf8(values[f]);
            if (ids[f] == 4) // PROT: the name in the list, the number in the row
                value = value == "UDP" ? "17" : value == "TCP" ? "6" : "?";
            expected += std::to_string(record) + "|" + std::to_string(ids[f]) + "|" + value + "\n";
        }
    }
    EXPECT_EQ(expected, "0|8|10.9.0.1\n0|4|17\n0|1|1500\n1|8|10.9.0.2\n1|4|6\n1|1|40\n");
    EXPECT_EQ(Query(db, "select * from netflow_attributes order by rowid"), expected);
    EXPECT_EQ(Query(db, "select record_id, record_ip_addr, record_time, record_version from netflow_records"),
              "0|127.0.0.1|1000000000|9\n1|127.0.0.1|1000000000|9\n");
}

TEST_F(CollectorTest, UnusableDatabaseFileEndsWithOneAndSaysWhy) {
    Result r = Run({"--port", PortArg(), "--db", (m_dir / "missing" / "flows.sqlite").string()}, {}, false);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "nfcollect: cannot use " + (m_dir / "missing" / "flows.sqlite").string() +
                         " as database: directory " + (m_dir / "missing").string() + " does not exist\n");
}

TEST_F(CollectorTest, UnknownDataSourceEndsWithOneAndTheDriverManagersText) {
    Result r = Run({"--port", PortArg(), "--dsn", "tpnf_no_such_source"}, {}, false);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("nfcollect: database error: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Data source name not found"), std::string::npos) << r.err;
}

TEST_F(CollectorTest, UsageErrorsEndWithTwo) {
    for (const std::vector<std::string>& args : {std::vector<std::string>{"--port", "70000"},
                                                 {"--format", "xml"},
                                                 {"--db", "a", "--dsn", "b"},
                                                 {"--count", "-1"},
                                                 {"--coalesce-usecs", "10001"},
                                                 {"--pg-copy"},
                                                 {"--no-such-option"}}) {
        Result r = Run(args, {}, false);
        EXPECT_EQ(r.exitCode, 2) << args[0];
        EXPECT_NE(r.err.find("(see --help)"), std::string::npos) << r.err;
    }
}

TEST_F(CollectorTest, PortInUseEndsWithOne) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(m_port));
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    Result r = Run({"--port", PortArg()}, {}, false);
    close(fd);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "nfcollect: cannot listen on UDP port " + PortArg() + ": Address already in use\n");
}

TEST_F(CollectorTest, SigtermStopsWithASummary) {
    // --duration as a safety net; the signal comes first.
    std::thread killer([this] {
        std::this_thread::sleep_for(500ms);
        std::system(("pkill -TERM -f 'nfcollect --port " + PortArg() + " '").c_str());
    });
    Result r = Run({"--port", PortArg(), "--duration", "15"}, {V5Datagram()});
    killer.join();
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(LastLine(r.err).find("nfcollect: stopped after"), std::string::npos) << r.err;
    EXPECT_NE(LastLine(r.err).find("1 datagrams, 1 packets"), std::string::npos) << r.err;
}

// What nfcollect --trace captured from nfreplay, replayed by nfreplay into another nfcollect, prints the
// same packets as the original datagrams do.
TEST_F(CollectorTest, TraceFilesReplayedPrintTheSamePackets) {
    const std::vector<std::string> files = WriteDatagramFiles({V5Datagram(), V9Datagram(), SFlowDatagram()});
    // The sender's port differs from run to run.
    auto withoutPort = [](const std::string& text) {
        return std::regex_replace(text, std::regex("127\\.0\\.0\\.1:[0-9]+"), "127.0.0.1:PORT");
    };
    const std::vector<std::string> listFields = {"--port", PortArg(), "--count", "3", "--format", "fields"};

    Result direct = Run(listFields, {}, true, Replay(files));
    ASSERT_EQ(direct.exitCode, 0) << direct.err;
    const fs::path traces = m_dir / "traces";
    Result captured =
        Run({"--port", PortArg(), "--count", "3", "--trace-dir", traces.string()}, {}, true, Replay(files));
    ASSERT_EQ(captured.exitCode, 0) << captured.err;
    Result replayed = Run(listFields, {}, true, Replay({traces.string()}));
    ASSERT_EQ(replayed.exitCode, 0) << replayed.err;

    EXPECT_EQ(std::count(direct.out.begin(), direct.out.end(), '#'),
              4); // v5 1, v9 2, sFlow 1 record headings
    EXPECT_EQ(withoutPort(replayed.out), withoutPort(direct.out));
}

TEST_F(CollectorTest, NfreplaySamplesArriveWhole) {
    auto sendSamples = [this] {
        const std::string command = kReplay.string() + " --quiet --port " + PortArg() +
                                    " --sample v5 --sample v9 --sample sflow > /dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    };
    Result r = Run({"--port", PortArg(), "--count", "3", "--format", "json"}, {}, true, sendSamples);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::istringstream lines(r.out);
    std::vector<std::string> kinds;
    for (std::string line; std::getline(lines, line);) {
        const size_t protocol = line.find("\"protocol\":\"");
        const size_t size = line.find("\"size\":");
        ASSERT_NE(protocol, std::string::npos) << line;
        ASSERT_NE(size, std::string::npos) << line;
        kinds.push_back(line.substr(protocol + 12, line.find('"', protocol + 12) - protocol - 12) + " " +
                        line.substr(size + 7, line.find(',', size) - size - 7));
    }
    EXPECT_EQ(kinds, (std::vector<std::string>{"NetFlow v5 30", "NetFlow v9 20", "sFlow v5 8"}));
}

} // namespace
