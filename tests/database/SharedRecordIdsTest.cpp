// Several writers storing into one database at once: with shared record ids every write takes and
// advances the id inside its own transaction, so no two writers hand out the same id; without them the
// id is read and stored in separate transactions and two writers that overlap collide.

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "corelib/DataSourceTest.h"
#include "database/V9FlowPackets.h"
#include "database/WriterTestSupport.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;
using tpnf::test::DecodeThreeFieldPacket;
using tpnf::test::DirectWriter;
using tpnf::test::DumpTables;
using tpnf::test::ThreeFieldPacket;
using namespace std::chrono_literals;

extern char** environ;

namespace {

constexpr char kWriterRole[] = "TPNF_SHARED_ID_WRITER";   // the writer's number, 0 to 3
constexpr char kWriterSource[] = "TPNF_SHARED_ID_SOURCE"; // the data source name as the writer takes it
#if defined(__SANITIZE_ADDRESS__)
constexpr int kWrites = 4; // the sanitizer makes each write about ten times slower: fewer still overlap
#else
constexpr int kWrites = 20;
#endif
constexpr int kPacketsPerWrite = 100;
constexpr int kRecordsPerPacket = 25;

// The writer role: kWrites writes of 100 packets of 25 records with shared ids; "ok" or what went wrong.
std::string WriteAsOneOfFour(int writer, const CString& source) {
    try {
        DirectWriter db(source);
        db.SetSharedRecordIds(TRUE);
        if (db.OpenDatabase() != 1)
            return "open: " + tpnf::ToUtf8(db.m_strLastError);
        std::vector<int> seeds;
        for (int s = 1; s <= kRecordsPerPacket; ++s)
            seeds.push_back(s);
        auto packet = ThreeFieldPacket(static_cast<uint32_t>(100 + writer), seeds); // record_time: the writer
        for (int n = 0; n < kWrites; ++n) {
            for (int p = 0; p < kPacketsPerWrite; ++p)
                db.AddPacket(packet.get());
            if (db.WritePackets() != 1 || !db.m_bStatusOK)
                return "write " + std::to_string(n) + ": " + tpnf::ToUtf8(db.m_strLastError);
        }
        return "ok";
    } catch (const std::exception& e) {
        return std::string("exception: ") + e.what();
    }
}

// Started with kWriterRole set, this program is a writer and nothing else: it ends before main.
const bool kWriterProcess = [] {
    const char* writer = std::getenv(kWriterRole);
    if (writer == nullptr)
        return false;
    const char* source = std::getenv(kWriterSource);
    const std::string report = WriteAsOneOfFour(std::atoi(writer), tpnf::FromUtf8(source ? source : ""));
    std::fputs(report.c_str(), stdout);
    std::fflush(stdout);
    std::_Exit(report == "ok" ? 0 : 1);
}();

// Two writers' first packets meet here: the first waits for the second up to a limit.
class Meeting {
public:
    explicit Meeting(std::chrono::milliseconds limit) : m_limit(limit) {}
    // True when the other writer was here at the same time.
    bool Arrive() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_waiting) {
            m_joined = true;
            m_changed.notify_all();
            return true;
        }
        m_waiting = true;
        const bool met = m_changed.wait_for(lock, m_limit, [this] { return m_joined; });
        m_waiting = false;
        return met;
    }

private:
    const std::chrono::milliseconds m_limit;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_waiting = false;
    bool m_joined = false;
};

// A two-record packet whose rows are written only after the meeting.
class MeetingPacket : public CNetFlowPacketV9 {
public:
    MeetingPacket(Meeting& meeting, uint32_t writer) : m_meeting(meeting) {
        DecodeThreeFieldPacket(*this, writer, {1, 2});
    }
    void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
        m_met = m_meeting.Arrive();
        CNetFlowPacketV9::PrepareSQL(recordId, records, attributes);
    }
    bool Met() const { return m_met; }

private:
    Meeting& m_meeting;
    bool m_met = false;
};

class SharedRecordIdsTest : public DataSourceTest {
protected:
    // SQLite writers wait for each other's write lock far longer than the test data source's 2 s, and
    // keep the collector's journal.
    CString WriterSource() {
        return IsSQLite() ? Source().Name() + L";Timeout=60000;JournalMode=WAL" : Source().Name();
    }

    // Two writers on their own connections and threads write one packet each at the same moment.
    // Returns each writer's health after its write. Without shared ids the SQLite writers keep the test
    // data source's short lock wait: they block each other until it runs out.
    std::vector<bool> TwoWritersAtOnce(bool shared, Meeting& meeting, std::vector<bool>& met,
                                       std::vector<CString>& errors) {
        const CString source = shared ? WriterSource() : Source().Name();
        {
            DirectWriter setup(source); // the tables and the id row exist before the race
            EXPECT_EQ(setup.OpenDatabase(), 1);
            EXPECT_EQ(setup.AccessRecordId(-1), 0);
        }
        std::vector<std::unique_ptr<DirectWriter>> writers;
        std::vector<std::unique_ptr<MeetingPacket>> packets;
        for (uint32_t w = 0; w < 2; ++w) {
            writers.push_back(std::make_unique<DirectWriter>(source));
            writers.back()->SetSharedRecordIds(shared);
            EXPECT_EQ(writers.back()->OpenDatabase(), 1);
            packets.push_back(std::make_unique<MeetingPacket>(meeting, w));
            writers.back()->AddPacket(packets.back().get());
        }
        std::vector<std::thread> threads;
        for (auto& writer : writers)
            threads.emplace_back([&writer] { writer->WritePackets(); });
        for (auto& thread : threads)
            thread.join();
        std::vector<bool> healthy;
        met.clear();
        errors.clear();
        for (size_t w = 0; w < 2; ++w) {
            healthy.push_back(writers[w]->m_bStatusOK != FALSE);
            errors.push_back(writers[w]->m_strLastError);
            met.push_back(packets[w]->Met());
        }
        return healthy;
    }
};

TEST_P(SharedRecordIdsTest, OffByDefault) {
    DirectWriter writer(Source().Name());
    EXPECT_FALSE(writer.GetSharedRecordIds());
}

TEST_P(SharedRecordIdsTest, FirstWriteOnAFreshSourceStartsAtZeroAndStoresTheNextId) {
    DirectWriter writer(Source().Name());
    writer.SetSharedRecordIds(TRUE);
    ASSERT_EQ(writer.OpenDatabase(), 1);
    auto packet = ThreeFieldPacket(5u, {1, 2});
    writer.AddPacket(packet.get());
    ASSERT_EQ(writer.WritePackets(), 1) << tpnf::ToUtf8(writer.m_strLastError);
    writer.AddPacket(packet.get());
    ASSERT_EQ(writer.WritePackets(), 1) << tpnf::ToUtf8(writer.m_strLastError);
    const std::vector<std::string> rows = DumpTables(Source().ConnectString());
    ASSERT_EQ(rows.size(), 4u + 12u + 1u);
    EXPECT_EQ(rows[0], "netflow_records: 0|192.0.2.7|2055|5|9");
    EXPECT_EQ(rows[3], "netflow_records: 3|192.0.2.7|2055|5|9");
    EXPECT_EQ(rows[4], "netflow_attributes: 0|1|1001");
    EXPECT_EQ(rows.back(), "netflow_record_id: 4");
    EXPECT_TRUE(writer.m_bStatusOK);
}

// The id is stored in the transaction of the rows: a failed write leaves it where it was.
TEST_P(SharedRecordIdsTest, FailedWriteLeavesTheStoredIdAlone) {
    DirectWriter writer(Source().Name());
    writer.SetSharedRecordIds(TRUE);
    ASSERT_EQ(writer.OpenDatabase(), 1);
    auto good = ThreeFieldPacket(5u, {1, 2});
    writer.AddPacket(good.get());
    ASSERT_EQ(writer.WritePackets(), 1);
    class ThrowingPacket : public CNetFlowPacketV9 {
    public:
        ThrowingPacket() { DecodeThreeFieldPacket(*this, 6u, {3}); }
        void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
            CNetFlowPacketV9::PrepareSQL(recordId, records, attributes);
            AfxThrowInvalidArgException();
        }
    } bad;
    writer.AddPacket(good.get());
    writer.AddPacket(&bad);
    EXPECT_EQ(writer.WritePackets(), 0);
    EXPECT_FALSE(writer.m_bStatusOK);
    EXPECT_EQ(writer.m_strLastError, L"Failed to execute query");
    EXPECT_EQ(writer.m_Packets.size(), 2u);
    const std::vector<std::string> rows = DumpTables(Source().ConnectString());
    ASSERT_EQ(rows.size(), 2u + 6u + 1u);
    EXPECT_EQ(rows.back(), "netflow_record_id: 2");
}

TEST_P(SharedRecordIdsTest, MissingIdTableFailsTheWrite) {
    DirectWriter writer(Source().Name());
    writer.SetSharedRecordIds(TRUE);
    ASSERT_EQ(writer.OpenDatabase(), 1);
    CDatabase admin;
    admin.OpenEx(Source().ConnectString());
    admin.ExecuteSQL(L"drop table netflow_record_id");
    auto packet = ThreeFieldPacket(5u, {1});
    writer.AddPacket(packet.get());
    EXPECT_EQ(writer.WritePackets(), 0);
    EXPECT_FALSE(writer.m_bStatusOK);
    EXPECT_NE(writer.m_strLastError.find(L"netflow_record_id"), CString::npos)
        << tpnf::ToUtf8(writer.m_strLastError);
    EXPECT_EQ(writer.m_Packets.size(), 1u);
}

// Both writers read the id before either stores it (they meet inside their write transactions): at
// least one of them must fail, as the default scheme allows.
TEST_P(SharedRecordIdsTest, WithoutSharedIdsOverlappingWritersCollide) {
    Meeting meeting(30s);
    std::vector<bool> met;
    std::vector<CString> errors;
    const std::vector<bool> healthy = TwoWritersAtOnce(false, meeting, met, errors);
    ASSERT_TRUE(met[0] && met[1]) << "the writes did not overlap";
    EXPECT_FALSE(healthy[0] && healthy[1]);
    for (size_t w = 0; w < 2; ++w)
        if (!healthy[w])
            std::printf("writer %zu failed: %s\n", w, tpnf::ToUtf8(errors[w]).c_str());
    CDatabase peek;
    peek.OpenEx(Source().ConnectString());
    CODBCRecordset rs(&peek);
    rs.Open(L"select count(*) as n from netflow_records");
    EXPECT_LE(rs.GetLong(L"n"), 2); // both took ids 0 and 1
}

// With shared ids the second writer cannot begin its rows while the first holds the id: they never meet,
// both succeed, and the ids follow each other.
TEST_P(SharedRecordIdsTest, WithSharedIdsOverlappingWritersTakeTurns) {
    Meeting meeting(1s);
    std::vector<bool> met;
    std::vector<CString> errors;
    const std::vector<bool> healthy = TwoWritersAtOnce(true, meeting, met, errors);
    EXPECT_FALSE(met[0] || met[1]);
    EXPECT_TRUE(healthy[0] && healthy[1]) << tpnf::ToUtf8(errors[0] + errors[1]);
    const std::vector<std::string> rows = DumpTables(Source().ConnectString());
    ASSERT_EQ(rows.size(), 4u + 12u + 1u);
    EXPECT_EQ(rows.back(), "netflow_record_id: 4");
    // Each writer's two records have consecutive ids.
    EXPECT_EQ(rows[0].substr(rows[0].size() - 4), rows[1].substr(rows[1].size() - 4));
    EXPECT_EQ(rows[2].substr(rows[2].size() - 4), rows[3].substr(rows[3].size() - 4));
    EXPECT_NE(rows[0].substr(rows[0].size() - 4), rows[2].substr(rows[2].size() - 4));
}

// Four processes, each with its own connection, store 50,000 records each at once, 2,500 per write
// (10,000 each under the address sanitizer).
// Each is this test program started again in the writer role (see WriterProcess below), so that
// every writer is a fresh process, as separate collectors are.
TEST_P(SharedRecordIdsTest, FourProcessesStoreTwoHundredThousandDistinctIds) {
    constexpr int kWriters = 4;
    {
        DirectWriter setup(WriterSource()); // tables made once, not raced by four creators
        ASSERT_EQ(setup.OpenDatabase(), 1);
    }
    struct Child {
        pid_t pid;
        int out;
    };
    std::vector<Child> children;
    const std::string source = tpnf::ToUtf8(WriterSource());
    for (int w = 0; w < kWriters; ++w) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        std::vector<std::string> env = {std::string(kWriterRole) + "=" + std::to_string(w),
                                        std::string(kWriterSource) + "=" + source};
        for (char** e = environ; *e != nullptr; ++e)
            env.emplace_back(*e);
        std::vector<char*> envp;
        for (std::string& e : env)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        char self[] = "/proc/self/exe";
        char* argv[] = {self, nullptr};
        pid_t pid = 0;
        const int spawned = posix_spawn(&pid, self, &actions, nullptr, argv, envp.data());
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        ASSERT_EQ(spawned, 0);
        children.push_back({pid, fds[0]});
    }
    const auto deadline = std::chrono::steady_clock::now() + 100s;
    for (int w = 0; w < kWriters; ++w) {
        const Child& child = children[static_cast<size_t>(w)];
        std::string report;
        char buffer[512];
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd wait{child.out, POLLIN, 0};
            if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
                report = "no answer within 100 s";
                kill(child.pid, SIGKILL);
                break;
            }
            ssize_t n = read(child.out, buffer, sizeof buffer);
            if (n <= 0)
                break;
            report.append(buffer, static_cast<size_t>(n));
        }
        close(child.out);
        int status = 0;
        waitpid(child.pid, &status, 0);
        EXPECT_EQ(report, "ok") << "writer " << w;
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "writer " << w;
    }

    constexpr int kTotal = kWriters * kWrites * kPacketsPerWrite * kRecordsPerPacket;
    CDatabase peek;
    peek.OpenEx(Source().ConnectString());
    auto scalar = [&peek](const CString& select) {
        CODBCRecordset rs(&peek);
        rs.Open(select);
        return rs.GetLong(L"v");
    };
    EXPECT_EQ(scalar(L"select count(*) as v from netflow_records"), kTotal);
    EXPECT_EQ(scalar(L"select count(distinct record_id) as v from netflow_records"), kTotal);
    EXPECT_EQ(scalar(L"select min(record_id) as v from netflow_records"), 0);
    EXPECT_EQ(scalar(L"select max(record_id) as v from netflow_records"), kTotal - 1);
    EXPECT_EQ(scalar(L"select record_id as v from netflow_record_id"), kTotal);
    EXPECT_EQ(scalar(L"select count(*) as v from netflow_attributes"), 3 * kTotal);
    // Every record has its own three attributes, and each writer stored all of its records.
    EXPECT_EQ(
        scalar(L"select count(*) as v from (select record_id from netflow_attributes group by record_id "
               L"having count(*) = 3) a"),
        kTotal);
    for (int w = 0; w < kWriters; ++w)
        EXPECT_EQ(scalar(L"select count(*) as v from netflow_records where record_time = " +
                         std::to_wstring(100 + w)),
                  kTotal / kWriters);
}

INSTANTIATE_TEST_SUITE_P(Backends, SharedRecordIdsTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

} // namespace
