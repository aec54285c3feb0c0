// nfcollect --db keeps its SQLite file in WAL mode: the sqlite3 shell reads the tables in a loop while
// the collector writes, every read sees whole transactions, and no write fails.

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
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

const fs::path kCollector = fs::path(TPNF_BINARY_DIR) / "tools" / "nfcollect";
const fs::path kReplay = fs::path(TPNF_BINARY_DIR) / "tools" / "nfreplay";

constexpr int kDatagrams = 600; // nfreplay's v9 sample: 20 records of 16 fields each
constexpr int kRate = 200;      // datagrams/s: a three-second write
constexpr int kRecordsPerDatagram = 20;
constexpr int kFieldsPerRecord = 16;

// A UDP port nobody uses at this moment, and whether someone has bound it since.
int FreePort() {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

bool PortTaken(int port) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool taken =
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno == EADDRINUSE;
    close(fd);
    return taken;
}

// Runs a shell command; its standard output, or nullopt when it failed.
std::optional<std::string> Shell(const std::string& command) {
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return std::nullopt;
    std::string out;
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr)
        out += buffer;
    return ::pclose(pipe) == 0 ? std::optional<std::string>(out) : std::nullopt;
}

// One read of the database in the sqlite3 shell, as a user would run it in another terminal.
std::optional<std::string> Sqlite(const fs::path& db, const std::string& sql) {
    return Shell("sqlite3 -batch -cmd '.timeout 5000' '" + db.string() + "' \"" + sql + "\" 2>&1");
}

TEST(CollectorWalTest, ShellReadsWhileTheCollectorWritesAndNoWriteFails) {
    if (Shell("command -v sqlite3 >/dev/null") == std::nullopt)
        GTEST_SKIP() << "the sqlite3 shell is not installed";
    const fs::path dir = fs::temp_directory_path() / ("tpnf_wal_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    const fs::path db = dir / "flows.sqlite";
    const fs::path err = dir / "stderr.txt";
    const int port = FreePort();

    std::vector<std::string> args = {
        kCollector.string(),        "--port", std::to_string(port), "--format", "none", "--count",
        std::to_string(kDatagrams), "--db",   db.string()};
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, kCollector.c_str(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    const auto deadline = Clock::now() + 60s;
    while (!PortTaken(port) && Clock::now() < deadline)
        std::this_thread::sleep_for(10ms);

    std::thread sender([port] {
        std::system((kReplay.string() + " --quiet --sample v9 --count " + std::to_string(kDatagrams) +
                     " --rate " + std::to_string(kRate) + " --port " + std::to_string(port) + " >/dev/null")
                        .c_str());
    });

    // Each read is one transaction: the records and their attributes are counted in the same snapshot,
    // and the attribute values are read through.
    const std::string read = "begin; select count(*) from netflow_records; select count(*) from "
                             "netflow_attributes; select count(length(attr_value)) from netflow_attributes; "
                             "commit;";
    int reads = 0;
    int readsWhileWriting = 0;
    long lastRecords = 0;
    std::vector<std::string> failures;
    int status = 0;
    bool ended = false;
    while (!ended) {
        ended = waitpid(pid, &status, WNOHANG) == pid;
        if (!ended && Clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            ADD_FAILURE() << "the collector did not end by itself";
            break;
        }
        std::optional<std::string> out = Sqlite(db, read);
        if (!out) {
            if (reads > 0) // before the collector has made its tables a read may fail
                failures.push_back("read failed");
            continue;
        }
        long records = -1, attributes = -1, values = -1;
        std::istringstream(*out) >> records >> attributes >> values;
        if (records < lastRecords || attributes != records * kFieldsPerRecord || values != attributes)
            failures.push_back(*out);
        if (records > 0 && records < kDatagrams * kRecordsPerDatagram)
            ++readsWhileWriting;
        lastRecords = records;
        ++reads;
    }
    sender.join();

    std::ifstream errText(err);
    const std::string collectorErr((std::istreambuf_iterator<char>(errText)), {});
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << collectorErr;
    EXPECT_EQ(collectorErr.find("database error"), std::string::npos) << collectorErr;
    EXPECT_EQ(collectorErr.find("not stored"), std::string::npos) << collectorErr;
    EXPECT_TRUE(failures.empty()) << failures.size() << " bad reads, the first: " << failures.front();
    EXPECT_GE(readsWhileWriting, 5) << reads << " reads in all";
    std::printf("%d reads, %d of them while the collector was writing\n", reads, readsWhileWriting);

    EXPECT_EQ(Sqlite(db, "pragma journal_mode"), "wal\n");
    const int records = kDatagrams * kRecordsPerDatagram;
    EXPECT_EQ(Sqlite(db, "select count(*), count(distinct record_id), min(record_id), max(record_id) from "
                         "netflow_records"),
              std::to_string(records) + "|" + std::to_string(records) + "|0|" + std::to_string(records - 1) +
                  "\n");
    EXPECT_EQ(Sqlite(db, "select count(*) from netflow_attributes"),
              std::to_string(records * kFieldsPerRecord) + "\n");
    EXPECT_EQ(Sqlite(db, "select record_id from netflow_record_id"), std::to_string(records) + "\n");
    fs::remove_all(dir);
}

} // namespace
