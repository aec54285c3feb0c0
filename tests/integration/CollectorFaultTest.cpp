// One collector storing into both stores (NetFlow v9 records in SQLite, flows in PostgreSQL) while an
// exporter sends at a steady rate, through a cycle of faults: the PostgreSQL server stopped and started,
// the SQLite file's directory made read-only and writable again, a flood of random datagrams at full rate,
// and a template whose layout changes under the same id. After each fault every record sent so far is in
// each store exactly once or in that store's spill directory, the collector answers its metrics endpoint
// and its memory is back near where it started. TPNF_FAULT_ROUNDS=N repeats the cycle N times
// (scripts/faults); TPNF_FAULT_SEED picks the flood's random bytes.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/ByteBuilder.h"
#include "support/CollectorProcess.h"
#include "support/NetFlowDatagram.h"
#include "support/NetFlowV9Datagram.h"
#include "support/PostgresServer.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using tpnf::test::ByteBuilder;
using tpnf::test::CollectorProcess;
using tpnf::test::CollectorResult;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::V9FieldSpecifier;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

constexpr uint32_t kRecords = 10;       // records per datagram
constexpr int kRate = 300;              // datagrams a second
constexpr uint32_t kEpoch = 1600000000; // export time of datagram 0; datagram n says kEpoch + n
constexpr uint16_t kTemplateId = 256;
constexpr uint64_t kMaxQueue = 5000; // records: a store that is down for two seconds spills
constexpr uint32_t kLayoutRun = 20;  // datagrams between two layout changes
// How far the collector's resident memory may stay above its level before the first fault, in kB: the
// allocator keeps freed pages, and a sanitized build holds freed memory in its quarantine.
constexpr long kRssSlackKb = kSanitized ? 512 * 1024 : 64 * 1024;
constexpr double kFailedDecodeKb = 4; // what one failed decode may leave behind

// Layout A: addresses, ports, protocol, packets, and the record's key as IN_BYTES.
const std::vector<V9FieldSpecifier> kLayoutA = {{8, 4}, {12, 4}, {7, 2}, {11, 2}, {4, 1}, {2, 4}, {1, 4}};
// Layout B under the same id: the key moves to the front, packets take 8 bytes, AS numbers come along.
const std::vector<V9FieldSpecifier> kLayoutB = {{1, 4}, {2, 8},  {4, 1},  {8, 4}, {12, 4},
                                                {7, 2}, {11, 2}, {16, 2}, {17, 2}};

// Datagram n of the exporter: sequence n, export time kEpoch + n, kRecords records whose IN_BYTES (the
// key) are n * kRecords + i, so that every row of either store names its datagram and its record.
std::vector<uint8_t> SteadyDatagram(uint32_t n, bool layoutB, bool announce) {
    NetFlowV9Datagram datagram(tpnf::test::V9Header{.count = static_cast<uint16_t>(announce ? 2 : 1),
                                                    .sysUptime = 3600000,
                                                    .unixSecs = kEpoch + n,
                                                    .packageSequence = n,
                                                    .sourceId = 7});
    if (announce)
        datagram.Template(kTemplateId, layoutB ? kLayoutB : kLayoutA);
    ByteBuilder records;
    for (uint32_t i = 0; i < kRecords; ++i) {
        const uint32_t key = n * kRecords + i;
        const auto host = static_cast<uint8_t>(i);
        if (layoutB)
            records.u32(key).u64(1 + i).u8(17).ipv4(10, 1, 0, host).ipv4(10, 2, 0, host);
        else
            records.ipv4(10, 1, 0, host).ipv4(10, 2, 0, host);
        records.u16(1024 + i).u16(53);
        if (layoutB)
            records.u16(64512).u16(64513);
        else
            records.u8(17).u32(1 + i).u32(key);
    }
    const size_t padding = (4 - (4 + records.size()) % 4) % 4;
    datagram.Data(kTemplateId, records.build(), padding);
    return datagram.build();
}

// Sends SteadyDatagram 0, 1, 2, ... at kRate a second from one socket of its own, and remembers for each
// how it was sent. Normally every datagram announces layout A; while layouts change, the layout flips
// every kLayoutRun datagrams and only the first datagram after a flip announces it.
class SteadyExporter {
public:
    struct Sent {
        bool layoutB = false;
        bool duringFlood = false; // the kernel may have dropped it with the flood
    };

    explicit SteadyExporter(int port) : m_port(port) {}
    ~SteadyExporter() { Stop(); }

    void Start() {
        m_thread = std::thread([this] { Run(); });
    }
    void Stop() {
        m_bStop = true;
        if (m_thread.joinable())
            m_thread.join();
    }
    void SetFlooding(bool on) { m_bFlooding = on; }
    void SetChangingLayouts(bool on) { m_bChanging = on; }
    int Port() const { return m_socket.Port(); }
    const tpnf::test::Sender& Socket() const { return m_socket; }
    uint32_t Count() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return static_cast<uint32_t>(m_log.size());
    }
    std::vector<Sent> Log() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_log;
    }

private:
    void Run() {
        const auto period = std::chrono::nanoseconds(1000000000 / kRate);
        auto next = Clock::now();
        bool layoutB = false;
        uint32_t run = 0;
        for (uint32_t n = 0; !m_bStop; ++n) {
            bool announce = true;
            if (m_bChanging) {
                if (run % kLayoutRun == 0)
                    layoutB = !layoutB;
                announce = run % kLayoutRun == 0;
                ++run;
            } else {
                layoutB = false;
                run = 0;
            }
            const Sent sent{layoutB, m_bFlooding.load()};
            m_socket.SendNow(m_port, SteadyDatagram(n, layoutB, announce));
            {
                std::lock_guard<std::mutex> lock(m_lock);
                m_log.push_back(sent);
            }
            next += period;
            std::this_thread::sleep_until(next);
        }
    }

    const int m_port;
    tpnf::test::Sender m_socket;
    std::thread m_thread;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bFlooding{false};
    std::atomic<bool> m_bChanging{false};
    mutable std::mutex m_lock;
    std::vector<Sent> m_log;
};

// Random datagrams from a socket of its own for `seconds`, as fast as one thread sends: a quarter pure
// noise, the others starting with the version word of NetFlow v5, v9 or IPFIX, half of these with a
// count or length that agrees with the datagram so that decoding goes deeper. Lengths up to 1500 bytes,
// one in 64 up to the largest UDP payload. Returns how many were sent.
uint64_t Flood(int port, double seconds, uint32_t seed) {
    static const uint16_t kVersions[] = {5, 9, 10};
    const tpnf::test::Sender socket;
    std::mt19937 random(seed);
    uint64_t sent = 0;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
        const size_t length = random() % 64 == 0 ? random() % 65508 : random() % 1501;
        const uint32_t kind = random() % 4;
        ByteBuilder datagram;
        if (kind > 0 && length >= 4) {
            const uint16_t version = kVersions[kind - 1];
            uint32_t second = random() & 0xffff;
            if (random() % 2 == 0)
                second = version == 5   ? static_cast<uint32_t>(length >= 24 ? (length - 24) / 48 : 0)
                         : version == 9 ? random() % 4
                                        : static_cast<uint32_t>(length);
            datagram.u16(version).u16(second);
        }
        while (datagram.size() < length)
            datagram.u8(random());
        socket.SendNow(port, datagram.build());
        ++sent;
    }
    return sent;
}

// Sets or clears the immutable attribute (chattr +i): the kernel then refuses writes even to files that
// are open already, and even to root. False when the file system or the privileges do not allow it.
bool SetImmutable(const fs::path& path, bool on) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    int flags = 0;
    bool done = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (done) {
        flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
        done = ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    close(fd);
    return done;
}

// VmRSS of a process in kB; 0 when unreadable.
long ResidentKb(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::strtol(line.c_str() + 6, nullptr, 10);
    return 0;
}

// "a|b" lines as a map a -> b.
std::map<uint32_t, uint32_t> Pairs(const std::string& text) {
    std::map<uint32_t, uint32_t> pairs;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const size_t bar = line.find('|');
        if (bar != std::string::npos)
            pairs[static_cast<uint32_t>(std::stoul(line.substr(0, bar)))] =
                static_cast<uint32_t>(std::stoul(line.substr(bar + 1)));
    }
    return pairs;
}

size_t Occurrences(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// What a store's spill directory holds of one exporter: the files in spill order and the sequence numbers
// of the NetFlow v9 datagrams in them. The spill index names each file's exporter.
struct Spilled {
    std::vector<fs::path> files;
    std::set<uint32_t> sequences;
    size_t allFiles = 0; // of every exporter
};

Spilled ReadSpilled(const fs::path& dir, int exporterPort) {
    Spilled spilled;
    std::ifstream index(dir / "spill.index");
    std::string line;
    while (std::getline(index, line)) {
        ++spilled.allFiles;
        std::istringstream fields(line);
        std::string number, exporter;
        int port = 0;
        fields >> number >> exporter >> port;
        if (port != exporterPort)
            continue;
        const fs::path file = dir / ("nf_trace_" + number + ".nfdmp");
        const std::string bytes = tpnf::test::ReadWholeFile(file);
        if (bytes.size() < 20)
            continue;
        auto byte = [&](size_t at) { return static_cast<uint32_t>(static_cast<uint8_t>(bytes[at])); };
        spilled.files.push_back(file);
        spilled.sequences.insert(byte(12) << 24 | byte(13) << 16 | byte(14) << 8 | byte(15));
    }
    return spilled;
}

class CollectorFaultTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_faults_" + std::to_string(getpid()));
        fs::remove_all(m_dir);
        fs::create_directories(m_dir / "db");
        const fs::path probe = m_dir / "immutable.probe";
        std::ofstream(probe) << "x";
        m_bImmutable = SetImmutable(probe, true) && SetImmutable(probe, false);
        if (const char* rounds = std::getenv("TPNF_FAULT_ROUNDS"); rounds != nullptr && std::atoi(rounds) > 0)
            m_nRounds = std::atoi(rounds);
        if (const char* seed = std::getenv("TPNF_FAULT_SEED"); seed != nullptr)
            m_nSeed = static_cast<uint32_t>(std::strtoul(seed, nullptr, 10));
    }
    void TearDown() override {
        for (auto it = m_immutable.rbegin(); it != m_immutable.rend(); ++it)
            SetImmutable(*it, false);
        std::error_code ignored;
        fs::remove_all(m_dir, ignored);
    }

    fs::path Db() const { return m_dir / "db" / "faults.sqlite"; }
    fs::path Spill() const { return m_dir / "spill"; }

    // Datagrams 0 .. cut-1 against both stores: each is stored in each store with all its records or
    // is in that store's spill directory, never both; a datagram sent during a flood may instead be in
    // neither store (dropped by the kernel with the flood), which kernelDropped counts.
    struct Accounting {
        uint32_t kernelDropped = 0;
        std::vector<std::string> problems;
    };
    Accounting Account(uint32_t cut, const std::vector<SteadyExporter::Sent>& log, int exporterPort,
                       const tpnf::test::PostgresServer& server) const {
        Accounting result;
        const std::map<uint32_t, uint32_t> database =
            Pairs(tpnf::test::Query(Db(), "select record_time - " + std::to_string(kEpoch) +
                                              ", count(*) from netflow_records where record_ip_port = " +
                                              std::to_string(exporterPort) + " and record_time < " +
                                              std::to_string(kEpoch + cut) + " group by record_time"));
        const std::optional<std::string> flowsText = server.Query(
            "select sequence, count(*) from flows where exporter_port = " + std::to_string(exporterPort) +
            " and sequence < " + std::to_string(cut) + " group by sequence");
        if (!flowsText) {
            result.problems.push_back("PostgreSQL does not answer");
            return result;
        }
        const std::map<uint32_t, uint32_t> flows = Pairs(*flowsText);
        const Spilled spilledDatabase = ReadSpilled(Spill() / "database", exporterPort);
        const Spilled spilledFlows = ReadSpilled(Spill() / "flows", exporterPort);
        // 1 stored, 2 spilled, 0 neither, -1 wrong (some records only, twice, or stored and spilled).
        auto state = [](const std::map<uint32_t, uint32_t>& rows, const std::set<uint32_t>& spilled,
                        uint32_t n) {
            const auto found = rows.find(n);
            const uint32_t count = found == rows.end() ? 0 : found->second;
            const bool wasSpilled = spilled.count(n) > 0;
            if (count == kRecords && !wasSpilled)
                return 1;
            if (count == 0)
                return wasSpilled ? 2 : 0;
            return -1;
        };
        for (uint32_t n = 0; n < cut; ++n) {
            const int inDatabase = state(database, spilledDatabase.sequences, n);
            const int inFlows = state(flows, spilledFlows.sequences, n);
            if (inDatabase == 0 && inFlows == 0 && log.at(n).duringFlood) {
                ++result.kernelDropped;
                continue;
            }
            if (inDatabase > 0 && inFlows > 0)
                continue;
            auto count = [n](const std::map<uint32_t, uint32_t>& rows) {
                const auto found = rows.find(n);
                return std::to_string(found == rows.end() ? 0 : found->second);
            };
            result.problems.push_back(
                "datagram " + std::to_string(n) + ": " + count(database) + " records in SQLite" +
                (spilledDatabase.sequences.count(n) ? " and spilled" : "") + ", " + count(flows) +
                " flows in PostgreSQL" + (spilledFlows.sequences.count(n) ? " and spilled" : "") +
                (log.at(n).duringFlood ? " (sent during the flood)" : ""));
        }
        return result;
    }

    fs::path m_dir;
    bool m_bImmutable = false;
    std::vector<fs::path> m_immutable; // set during the read-only fault, cleared by TearDown if need be
    int m_nRounds = 1;
    uint32_t m_nSeed = 20260101;
};

TEST_F(CollectorFaultTest, EveryRecordIsStoredOnceOrSpilledThroughOutagesFloodsAndLayoutChanges) {
    if (!tpnf::test::PostgresServer::Available())
        GTEST_SKIP() << "PostgreSQL 15 is not installed";
    tpnf::test::PostgresServer server;
    ASSERT_TRUE(server.Start(tpnf::test::FreePort(SOCK_STREAM)));
    const int port = tpnf::test::FreePort();
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", std::to_string(port), "--format", "none", "--ipfix", "--db",
                                 Db().string(), "--flows-dsn", tpnf::test::PostgresServer::DataSource(),
                                 "--max-queue", std::to_string(kMaxQueue), "--spill-dir", Spill().string(),
                                 "--metrics", "127.0.0.1:0", "--stats-interval", "5"}));
    ASSERT_TRUE(collector.WaitListening(port));
    const int metricsPort = tpnf::test::MetricsPort(collector);
    ASSERT_GT(metricsPort, 0) << collector.Err();
    SteadyExporter exporter(port);
    exporter.Start();
    const auto started = Clock::now();

    auto metric = [&](const std::map<std::string, std::string>& samples, const std::string& series) {
        const auto found = samples.find(series);
        return found == samples.end() ? -1.0 : std::stod(found->second);
    };
    const std::string databaseHealthy = "nfcollect_store_healthy{store=\"database\"}";
    const std::string flowsHealthy = "nfcollect_store_healthy{store=\"flows\"}";
    const std::string ignored = "nfcollect_ignored_total{exporter=\"127.0.0.1\"}";
    const std::string lost = "nfcollect_receive_buffer_lost_total";
    const std::string decodeErrors = "nfcollect_decode_errors_total{exporter=\"127.0.0.1\"}";
    const std::string malformed = "nfcollect_malformed_total{exporter=\"127.0.0.1\"}";

    // Waits until every datagram sent so far is accounted for in both stores, then checks that, the
    // endpoint, both stores healthy and the memory.
    long baselineKb = 0;
    auto settle = [&](const std::string& after) {
        SCOPED_TRACE("after " + after);
        const uint32_t cut = exporter.Count();
        const auto deadline = Clock::now() + 90s;
        Accounting accounting;
        for (;;) {
            accounting = Account(cut, exporter.Log(), exporter.Port(), server);
            if (accounting.problems.empty() || Clock::now() > deadline)
                break;
            std::this_thread::sleep_for(250ms);
        }
        std::string problems;
        for (size_t i = 0; i < accounting.problems.size() && i < 10; ++i)
            problems += accounting.problems[i] + "\n";
        EXPECT_TRUE(accounting.problems.empty())
            << accounting.problems.size() << " of " << cut << " datagrams unaccounted for, e.g.\n"
            << problems << collector.Err();
        // Both stores report healthy, and the kernel's drops are counted, once the figures have followed
        // (once a second).
        std::map<std::string, std::string> samples;
        for (int i = 0; i < 50; ++i) {
            samples = tpnf::test::Scrape(metricsPort);
            if (metric(samples, databaseHealthy) == 1 && metric(samples, flowsHealthy) == 1 &&
                metric(samples, lost) >= accounting.kernelDropped)
                break;
            std::this_thread::sleep_for(100ms);
        }
        EXPECT_FALSE(samples.empty()) << "the metrics endpoint does not answer";
        EXPECT_EQ(metric(samples, databaseHealthy), 1);
        EXPECT_EQ(metric(samples, flowsHealthy), 1);
        EXPECT_LE(accounting.kernelDropped, metric(samples, lost));
        const long rssKb = ResidentKb(collector.Pid());
        if (baselineKb == 0)
            baselineKb = rssKb;
        // A datagram whose decoding failed leaves its packet behind (intended): the floods' failures come
        // on top of the slack.
        const double failed =
            std::max(0.0, metric(samples, decodeErrors)) + std::max(0.0, metric(samples, malformed));
        const long boundKb = baselineKb + kRssSlackKb + static_cast<long>(failed * kFailedDecodeKb);
        EXPECT_LE(rssKb, boundKb) << "baseline " << baselineKb << " kB, " << failed << " failed decodes";
        std::printf("%6.1f s  after %-28s %6u datagrams accounted for, %u dropped by the kernel with the "
                    "flood (it reports %.0f lost in all); %.0f failed decodes; RSS %ld kB (baseline %ld kB, "
                    "bound %ld kB)\n",
                    std::chrono::duration<double>(Clock::now() - started).count(), after.c_str(), cut,
                    accounting.kernelDropped, metric(samples, lost), failed, rssKb, baselineKb, boundKb);
        std::fflush(stdout);
    };
    // Holds a fault for at least two seconds and until the endpoint shows the store unhealthy.
    auto holdUntilUnhealthy = [&](const std::string& series) {
        const auto begin = Clock::now();
        bool seen = false;
        while (Clock::now() - begin < 2s || (!seen && Clock::now() - begin < 15s)) {
            seen = seen || metric(tpnf::test::Scrape(metricsPort), series) == 0;
            std::this_thread::sleep_for(100ms);
        }
        EXPECT_TRUE(seen) << series << " never turned 0 during the fault";
    };

    std::this_thread::sleep_for(2s);
    settle("warm-up");
    bool readOnlySkipped = false;
    for (int round = 1; round <= m_nRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const std::string suffix = m_nRounds > 1 ? " #" + std::to_string(round) : "";

        // a. The PostgreSQL server stops at once, as in a crash, and comes back.
        size_t errors = Occurrences(collector.Err(), "flows table error: ");
        size_t again = Occurrences(collector.Err(), "flows table available again");
        ASSERT_TRUE(server.Down());
        holdUntilUnhealthy(flowsHealthy);
        ASSERT_TRUE(server.Up());
        settle("PostgreSQL restart" + suffix);
        EXPECT_GT(Occurrences(collector.Err(), "flows table error: "), errors);
        EXPECT_GT(Occurrences(collector.Err(), "flows table available again"), again);

        // b. The SQLite file's directory, the file and its write-ahead log refuse every write.
        if (m_bImmutable) {
            errors = Occurrences(collector.Err(), "nfcollect: database error: ");
            again = Occurrences(collector.Err(), "database available again");
            m_immutable.clear();
            for (const fs::path& path :
                 {fs::path(Db().string() + "-wal"), Db(), Db().parent_path()}) // files before the directory
                if (fs::exists(path)) {
                    ASSERT_TRUE(SetImmutable(path, true)) << path;
                    m_immutable.push_back(path);
                }
            holdUntilUnhealthy(databaseHealthy);
            for (auto it = m_immutable.rbegin(); it != m_immutable.rend(); ++it)
                ASSERT_TRUE(SetImmutable(*it, false)) << *it;
            m_immutable.clear();
            settle("read-only SQLite directory" + suffix);
            EXPECT_GT(Occurrences(collector.Err(), "nfcollect: database error: "), errors);
            EXPECT_GT(Occurrences(collector.Err(), "database available again"), again);
        } else {
            readOnlySkipped = true;
        }

        // c. Random datagrams at full rate for a second, from a socket of their own.
        const double ignoredBefore = metric(tpnf::test::Scrape(metricsPort), ignored);
        exporter.SetFlooding(true);
        const uint64_t flood = Flood(port, 1.0, m_nSeed + static_cast<uint32_t>(round));
        std::this_thread::sleep_for(500ms); // what the flood left in the receive buffer is read by now
        exporter.SetFlooding(false);
        std::printf("flood of %llu random datagrams (seed %u)\n", static_cast<unsigned long long>(flood),
                    m_nSeed + static_cast<uint32_t>(round));
        settle("random flood" + suffix);
        EXPECT_GT(metric(tpnf::test::Scrape(metricsPort), ignored), ignoredBefore);

        // d. Template 256 changes its layout every kLayoutRun datagrams, announced once per change.
        exporter.SetChangingLayouts(true);
        std::this_thread::sleep_for(2s);
        exporter.SetChangingLayouts(false);
        settle("layout changes" + suffix);
    }

    exporter.Stop();
    settle("the last datagram");
    const std::map<std::string, std::string> last = tpnf::test::Scrape(metricsPort);
    collector.Signal(SIGTERM);
    const CollectorResult result = collector.Wait(60s);
    const std::vector<SteadyExporter::Sent> log = exporter.Log();
    const uint32_t sent = static_cast<uint32_t>(log.size());

    // The summary counts what each store spilled (every file in its spill directory), and what gave no
    // packet or was lost in the receive buffer as the metrics count it.
    const Spilled spilledDatabase = ReadSpilled(Spill() / "database", exporter.Port());
    const Spilled spilledFlows = ReadSpilled(Spill() / "flows", exporter.Port());
    const std::string summaryLine = tpnf::test::SummaryLine(result.err);
    std::smatch summary;
    ASSERT_TRUE(std::regex_search(
        summaryLine, summary,
        std::regex("stopped after [0-9.]+ s: [0-9]+ datagrams, (([0-9]+) lost in the receive buffer, )?.*, "
                   "([0-9]+) decode errors, ([0-9]+) dropped, [0-9]+ stored, 0 waiting for the database(, "
                   "([0-9]+) spilled)?, [0-9]+ flows stored, 0 flows waiting for the flows table(, ([0-9]+) "
                   "spilled)?$")))
        << result.err;
    auto number = [&](size_t group) {
        return summary[group].matched ? std::stod(summary[group].str()) : 0.0;
    };
    EXPECT_EQ(number(2), metric(last, lost));
    EXPECT_EQ(number(3), metric(last, decodeErrors));
    EXPECT_EQ(number(4), metric(last, ignored) + metric(last, malformed));
    EXPECT_EQ(number(6), spilledDatabase.allFiles);
    EXPECT_EQ(number(8), spilledFlows.allFiles);
    EXPECT_EQ(result.exitCode, spilledDatabase.allFiles + spilledFlows.allFiles > 0 ? 1 : 0) << result.err;

    // The spilled datagrams, sent again from the exporter's own socket to a collector with one store each,
    // are stored after the others.
    const struct {
        const Spilled& spilled;
        std::vector<std::string> store;
    } replays[] = {{spilledDatabase, {"--db", Db().string()}},
                   {spilledFlows, {"--flows-dsn", tpnf::test::PostgresServer::DataSource()}}};
    for (const auto& replay : replays) {
        if (replay.spilled.files.empty())
            continue;
        const int replayPort = tpnf::test::FreePort();
        fs::create_directories(m_dir / "replay");
        CollectorProcess second(m_dir / "replay");
        std::vector<std::string> args = {"--port",   std::to_string(replayPort),
                                         "--format", "none",
                                         "--count",  std::to_string(replay.spilled.files.size())};
        args.insert(args.end(), replay.store.begin(), replay.store.end());
        ASSERT_TRUE(second.Start(args));
        ASSERT_TRUE(second.WaitListening(replayPort));
        for (const fs::path& file : replay.spilled.files) {
            const std::string bytes = tpnf::test::ReadWholeFile(file);
            exporter.Socket().Send(replayPort, std::vector<uint8_t>(bytes.begin(), bytes.end()));
        }
        const CollectorResult replayed = second.Wait(60s);
        EXPECT_EQ(replayed.exitCode, 0) << replayed.err;
    }

    // Every datagram is now stored once in each store, but for what the kernel dropped with the floods.
    const std::string exporterPort = std::to_string(exporter.Port());
    std::set<uint32_t> missing;
    for (const auto& [n, count] :
         Pairs(server
                   .Query("select sequence, count(*) from flows where exporter_port = " + exporterPort +
                          " group by sequence")
                   .value_or("")))
        EXPECT_EQ(count, kRecords) << "datagram " << n;
    const std::map<uint32_t, uint32_t> stored = Pairs(
        tpnf::test::Query(Db(), "select record_time - " + std::to_string(kEpoch) +
                                    ", count(*) from netflow_records where record_ip_port = " + exporterPort +
                                    " group by record_time"));
    uint32_t layoutA = 0, layoutB = 0;
    for (uint32_t n = 0; n < sent; ++n) {
        const auto found = stored.find(n);
        if (found == stored.end()) {
            missing.insert(n);
            EXPECT_TRUE(log[n].duringFlood) << "datagram " << n << " is not stored";
            continue;
        }
        EXPECT_EQ(found->second, kRecords) << "datagram " << n;
        (log[n].layoutB ? layoutB : layoutA) += kRecords;
    }
    const uint32_t records = (sent - static_cast<uint32_t>(missing.size())) * kRecords;
    // Each record once, with its own key, decoded by the layout it was sent in.
    EXPECT_EQ(
        tpnf::test::Query(
            Db(), "select count(*), count(distinct a.attr_value), sum(cast(a.attr_value as integer) / " +
                      std::to_string(kRecords) + " != r.record_time - " + std::to_string(kEpoch) +
                      ") from netflow_records r join netflow_attributes a on a.record_id = r.record_id "
                      "and a.attr_id = 1 where r.record_ip_port = " +
                      exporterPort),
        std::to_string(records) + "|" + std::to_string(records) + "|0\n");
    EXPECT_EQ(tpnf::test::Query(Db(), "select fields, count(*) from (select count(*) as fields from "
                                      "netflow_attributes a join netflow_records r on a.record_id = "
                                      "r.record_id where r.record_ip_port = " +
                                          exporterPort +
                                          " group by r.record_id) group by fields order by fields"),
              std::to_string(kLayoutA.size()) + "|" + std::to_string(layoutA) + "\n" +
                  std::to_string(kLayoutB.size()) + "|" + std::to_string(layoutB) + "\n");
    // Record ids are never given twice, whatever failed in between, and the next one follows the last.
    const std::string all = tpnf::test::Query(Db(), "select count(*) from netflow_records");
    EXPECT_EQ(tpnf::test::Query(Db(), "select count(distinct record_id), max(record_id) + 1 from "
                                      "netflow_records"),
              all.substr(0, all.size() - 1) + "|" + all);
    EXPECT_EQ(tpnf::test::Query(Db(), "select record_id from netflow_record_id"), all);
    EXPECT_EQ(server.Query("select count(*), count(distinct bytes), sum(case when bytes / " +
                           std::to_string(kRecords) +
                           " <> sequence then 1 else 0 end) from flows where "
                           "exporter_port = " +
                           exporterPort),
              std::to_string(records) + "|" + std::to_string(records) + "|0\n");
    std::printf("%u datagrams (%u records) sent in %.1f s, %zu dropped by the kernel during floods; "
                "spilled and replayed: %zu (SQLite), %zu (PostgreSQL)\n",
                sent, sent * kRecords, std::chrono::duration<double>(Clock::now() - started).count(),
                missing.size(), spilledDatabase.files.size(), spilledFlows.files.size());
    if (readOnlySkipped)
        GTEST_SKIP() << "every fault but the read-only SQLite directory ran: this file system or these "
                        "privileges do not allow the immutable attribute (chattr +i, CAP_LINUX_IMMUTABLE), "
                        "and permission bits do not stop writes to files the collector has open";
}

// A datagram now and then: its flows are in the table within moments, not only when the collector stops.
TEST_F(CollectorFaultTest, FlowsOfOccasionalDatagramsAreWrittenWhileTheCollectorRuns) {
    const fs::path db = m_dir / "flows.sqlite";
    const int port = tpnf::test::FreePort();
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start(
        {"--port", std::to_string(port), "--format", "none", "--flows-db", db.string(), "--duration", "60"}));
    ASSERT_TRUE(collector.WaitListening(port));
    const tpnf::test::Sender sender;
    for (uint32_t n = 0; n < 3; ++n) {
        sender.Send(port, SteadyDatagram(n, false, true));
        const std::string expected = std::to_string((n + 1) * kRecords) + "\n";
        std::string stored;
        for (int i = 0; i < 100 && stored != expected; ++i) {
            std::this_thread::sleep_for(50ms);
            stored = tpnf::test::Query(db, "select count(*) from flows");
        }
        EXPECT_EQ(stored, expected) << "after datagram " << n;
        std::this_thread::sleep_for(300ms); // the writer waits on an empty queue again
    }
    collector.Signal(SIGTERM);
    EXPECT_EQ(collector.Wait().exitCode, 0);
}

// What gives no packet is counted per exporter by kind, as the summary counts it in all.
TEST_F(CollectorFaultTest, DatagramsThatGiveNoPacketAreCountedPerExporterInTheMetrics) {
    using tpnf::test::V5Header;
    using tpnf::test::V5Record;
    const int port = tpnf::test::FreePort();
    CollectorProcess collector(m_dir);
    ASSERT_TRUE(collector.Start({"--port", std::to_string(port), "--format", "none", "--metrics",
                                 "127.0.0.1:0", "--duration", "60"}));
    ASSERT_TRUE(collector.WaitListening(port));
    const int metricsPort = tpnf::test::MetricsPort(collector);
    ASSERT_GT(metricsPort, 0) << collector.Err();
    const tpnf::test::Sender sender;
    sender.Send(port, ByteBuilder().u8(5).build());                // too short for a version: ignored
    sender.Send(port, ByteBuilder().u16(3).u16(1).u32(0).build()); // no such version: ignored
    sender.Send(port, ByteBuilder().u16(5).u16(1).u32(0).build()); // shorter than a v5 header: failed
    // A v5 header announcing two records, and one record: failed.
    ByteBuilder truncated;
    V5Header{.count = 2}.AppendTo(truncated);
    V5Record{}.AppendTo(truncated);
    sender.Send(port, truncated.build());
    // A v9 template announcing 65535 fields, and ten of them: malformed.
    ByteBuilder tenFields;
    for (int i = 0; i < 10; ++i)
        tenFields.u16(1).u16(4);
    sender.Send(port,
                NetFlowV9Datagram(tpnf::test::V9Header{.count = 1})
                    .RawFlowSet(0, 4 + 4 + 40, ByteBuilder().u16(61001).u16(65535).bytes(tenFields).build())
                    .build());
    sender.Send(port, SteadyDatagram(0, false, true));
    const std::string exporter = "{exporter=\"127.0.0.1\"}";
    std::map<std::string, std::string> samples;
    for (int i = 0; i < 100 && samples["nfcollect_malformed_total" + exporter] != "1"; ++i) {
        std::this_thread::sleep_for(50ms);
        samples = tpnf::test::Scrape(metricsPort);
    }
    EXPECT_EQ(samples["nfcollect_ignored_total" + exporter], "2");
    EXPECT_EQ(samples["nfcollect_decode_errors_total" + exporter], "2");
    EXPECT_EQ(samples["nfcollect_malformed_total" + exporter], "1");
    EXPECT_EQ(samples["nfcollect_datagrams_total{exporter=\"127.0.0.1\",protocol=\"NetFlow v9\"}"], "1");
    collector.Signal(SIGTERM);
    const CollectorResult result = collector.Wait();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(
        std::regex_search(tpnf::test::SummaryLine(result.err),
                          std::regex("stopped after [0-9.]+ s: 6 datagrams, 1 packets \\(NetFlow v9 1\\), "
                                     "2 decode errors, 3 dropped$")))
        << result.err;
}

} // namespace
