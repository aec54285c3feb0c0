// nftop run as a program over flows tables it is given: exact reports, and its errors.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "corelib/Database.h"
#include "corelib/TestDataSource.h"
#include "flows/FlowRecord.h"
#include "flows/FlowTable.h"
#include "util/TextConvert.h"

using tpnf::test::Backend;
using tpnf::test::TestDataSource;
using K = EFlowKey;
namespace fs = std::filesystem;

namespace {

const fs::path kNftop = fs::path(TPNF_BINARY_DIR) / "tools" / "nftop";

struct Result {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string ReadText(const fs::path& file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Result RunNftop(const fs::path& dir, std::vector<std::string> args) {
    const fs::path out = dir / "stdout.txt";
    const fs::path err = dir / "stderr.txt";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    args.insert(args.begin(), "nftop");
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    Result result;
    const int spawned = posix_spawn(&pid, kNftop.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << kNftop;
        return result;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = ReadText(out);
    result.err = ReadText(err);
    return result;
}

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

CFlowRecord Flow(const char* src, int64_t dstPort, int64_t proto, int64_t packets, int64_t bytes,
                 int64_t rate, int64_t endedAgoMs) {
    CFlowRecord flow;
    uint8_t address[16] = {};
    const std::string text = src;
    if (text.find(':') == std::string::npos) {
        unsigned a, b, c, d;
        std::sscanf(src, "%u.%u.%u.%u", &a, &b, &c, &d);
        flow.SetAddress(K::SrcAddr, CFlowAddress::IPv4((a << 24) | (b << 16) | (c << 8) | d));
    } else { // only 2001:db8::N here
        address[0] = 0x20;
        address[1] = 0x01;
        address[2] = 0x0d;
        address[3] = 0xb8;
        address[15] = static_cast<uint8_t>(std::stoi(text.substr(text.rfind(':') + 1)));
        flow.SetAddress(K::SrcAddr, CFlowAddress::FromBytes(address, 16));
    }
    if (dstPort >= 0)
        flow.Set(K::DstPort, dstPort);
    flow.Set(K::Proto, proto);
    flow.Set(K::Packets, packets);
    flow.Set(K::Bytes, bytes);
    flow.Set(K::SamplingRate, rate);
    flow.Set(K::FlowEnd, NowMs() - endedAgoMs);
    return flow;
}

// Five flows of the last minute and one of two hours ago.
std::vector<CFlowRecord> Flows() {
    return {Flow("10.0.0.1", 443, 6, 10, 15000, 1, 60000),
            Flow("10.0.0.1", 80, 6, 5, 5000, 100, 60000),
            Flow("10.0.0.2", 443, 6, 100, 1500000, 1, 60000),
            Flow("2001:db8::1", 53, 17, 1, 80, 10, 60000),
            Flow("10.0.0.3", -1, 47, 3, 3000, 1, 60000),
            Flow("10.0.0.9", 443, 6, 6000000, 9000000000, 1, 7200000)};
}

class NftopTest : public testing::Test {
protected:
    void SetUp() override {
        m_source = std::make_unique<TestDataSource>(Backend::SQLite);
        CDatabase db;
        db.OpenEx(m_source->ConnectString());
        CFlowTable table(db);
        table.Create();
        table.Write(Flows());
    }
    fs::path Dir() const { return m_source->SQLiteFile().parent_path(); }
    std::string File() const { return m_source->SQLiteFile().string(); }
    Result Run(std::vector<std::string> args) { return RunNftop(Dir(), std::move(args)); }

    std::unique_ptr<TestDataSource> m_source;
};

const char* const kLast15mBySource = "Top 4 src_addr by bytes, flows of the last 15m\n"
                                     "src_addr     flows  flows%  packets  packets%  bytes  bytes%\n"
                                     "10.0.0.2         1   20.0%      100     84.0%   1.5M   98.5%\n"
                                     "10.0.0.1         2   40.0%       15     12.6%  20.0K    1.3%\n"
                                     "10.0.0.3         1   20.0%        3      2.5%   3.0K    0.2%\n"
                                     "2001:db8::1      1   20.0%        1      0.8%     80    0.0%\n"
                                     "Total: 5 flows, 119 packets, 1.5M bytes\n";

} // namespace

TEST_F(NftopTest, TopSourcesByBytesOfTheLastMinutes) {
    const Result r =
        Run({"--db", File(), "--by", "src_addr", "--order", "bytes", "--last", "15m", "-n", "10"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, kLast15mBySource);
    EXPECT_EQ(r.err, "");
}

TEST_F(NftopTest, AllFlowsByDefaultAndTenGroups) {
    const Result r = Run({"--db", File()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Top 5 src_addr by bytes, all flows\n"
                     "src_addr     flows  flows%  packets  packets%  bytes  bytes%\n"
                     "10.0.0.9         1   16.7%     6.0M    100.0%   9.0G  100.0%\n"
                     "10.0.0.2         1   16.7%      100      0.0%   1.5M    0.0%\n"
                     "10.0.0.1         2   33.3%       15      0.0%  20.0K    0.0%\n"
                     "10.0.0.3         1   16.7%        3      0.0%   3.0K    0.0%\n"
                     "2001:db8::1      1   16.7%        1      0.0%     80    0.0%\n"
                     "Total: 6 flows, 6.0M packets, 9.0G bytes\n");
}

TEST_F(NftopTest, ScaledBySamplingRate) {
    const Result r = Run({"--db", File(), "--last", "1h", "--scale", "-n", "2"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out,
              "Top 2 src_addr by bytes, flows of the last 1h, packets and bytes scaled by the sampling rate\n"
              "src_addr  flows  flows%  packets  packets%   bytes  bytes%\n"
              "10.0.0.2      1   20.0%      100     16.1%    1.5M   74.3%\n"
              "10.0.0.1      2   40.0%      510     81.9%  515.0K   25.5%\n"
              "Total: 5 flows, 623 packets, 2.0M bytes\n");
}

TEST_F(NftopTest, DestinationPortsByPacketsWithFlowsThatHaveNone) {
    const Result r = Run({"--db", File(), "--by", "dst_port", "--order", "packets", "--last", "900s"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Top 4 dst_port by packets, flows of the last 900s\n"
                     "dst_port  flows  flows%  packets  packets%  bytes  bytes%\n"
                     "443           2   40.0%      110     92.4%   1.5M   99.5%\n"
                     "80            1   20.0%        5      4.2%   5.0K    0.3%\n"
                     "-             1   20.0%        3      2.5%   3.0K    0.2%\n"
                     "53            1   20.0%        1      0.8%     80    0.0%\n"
                     "Total: 5 flows, 119 packets, 1.5M bytes\n");
}

TEST_F(NftopTest, ProtocolsByFlowsWithTiesInOrderOfValue) {
    const Result r = Run({"--db", File(), "--by", "proto", "--order", "flows", "--last", "1d"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Top 3 proto by flows, flows of the last 1d\n"
                     "proto  flows  flows%  packets  packets%  bytes  bytes%\n"
                     "6          4   66.7%     6.0M    100.0%   9.0G  100.0%\n"
                     "17         1   16.7%        1      0.0%     80    0.0%\n"
                     "47         1   16.7%        3      0.0%   3.0K    0.0%\n"
                     "Total: 6 flows, 6.0M packets, 9.0G bytes\n");
}

TEST_F(NftopTest, NoFlowsInTheWindow) {
    const Result r = Run({"--db", File(), "--last", "1s", "--by", "exporter"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Top 0 exporter by bytes, flows of the last 1s\n"
                     "exporter  flows  flows%  packets  packets%  bytes  bytes%\n"
                     "Total: 0 flows, 0 packets, 0 bytes\n");
}

TEST_F(NftopTest, BadOptionsEndWithOneLineAndExitCode2) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "nftop: --db FILE or --dsn NAME is required (see --help)\n"},
        {{"--db", File(), "--by", "bytes"},
         "nftop: --by: bytes not in {src_addr,dst_addr,src_port,dst_port,proto,exporter,src_as,dst_as} (see "
         "--help)\n"},
        {{"--db", File(), "--order", "octets"},
         "nftop: --order: octets not in {bytes,packets,flows} (see --help)\n"},
        {{"--db", File(), "--last", "15"},
         "nftop: --last: must be a whole number followed by s, m, h or d (see --help)\n"},
        {{"--db", File(), "--last", "-5m"},
         "nftop: --last: must be a whole number followed by s, m, h or d (see --help)\n"},
        {{"--db", File(), "-n", "-1"}, "nftop: --count: must be 0 or a positive whole number (see --help)\n"},
        {{"--db", File(), "--dsn", "x"}, "nftop: --db excludes --dsn (see --help)\n"},
        {{"--db", File(), "--color"},
         "nftop: The following argument was not expected: --color (see --help)\n"},
    };
    for (const auto& [args, message] : cases) {
        const Result r = Run(args);
        EXPECT_EQ(r.exitCode, 2) << message;
        EXPECT_EQ(r.err, message);
        EXPECT_EQ(r.out, "");
    }
}

TEST_F(NftopTest, AMissingDatabaseFileEndsWithExitCode1) {
    const std::string missing = (Dir() / "missing.sqlite").string();
    const Result r = Run({"--db", missing});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "nftop: " + missing + ": no such database file\n");
    EXPECT_FALSE(fs::exists(missing));
}

TEST_F(NftopTest, ADatabaseWithoutTheTableEndsWithExitCode1) {
    const std::string empty = (Dir() / "empty.sqlite").string();
    std::ofstream{empty};
    const Result r = Run({"--db", empty});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err,
              "nftop: " + empty + " has no flows table that can be read: [SQLite]no such table: flows (1)\n");
    EXPECT_EQ(r.out, "");
}

TEST_F(NftopTest, AMissingDataSourceEndsWithExitCode1) {
    const Result r = Run({"--dsn", "tpnf_no_such_source"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err.rfind("nftop: cannot connect to data source tpnf_no_such_source: ", 0), 0u) << r.err;
}

// The same report from PostgreSQL, reached by data source name.
TEST(NftopPostgreSQL, SameReportAsSQLite) {
    TestDataSource source(Backend::PostgreSQL);
    if (!source.SkipReason().empty())
        GTEST_SKIP() << source.SkipReason();
    CDatabase db;
    db.OpenEx(source.ConnectString());
    CFlowTable table(db);
    table.Create();
    table.Write(Flows());
    const fs::path dir = fs::temp_directory_path() / ("tpnf_nftop_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const Result r = RunNftop(
        dir, {"--dsn", tpnf::ToUtf8(source.Name()), "--by", "src_addr", "--last", "15m", "-n", "10"});
    fs::remove_all(dir);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, kLast15mBySource);
}
