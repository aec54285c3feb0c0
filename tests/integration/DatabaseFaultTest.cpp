// The database server goes away while the writer runs: the collector keeps collecting, the writer keeps
// its failure to itself and refuses further writes, and Stop still ends the writer within its bound.
// Runs its own throwaway PostgreSQL server (scripts/pg-server on a port of its own) and ODBC
// configuration (scripts/odbc-env); skipped where PostgreSQL is not installed.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <unistd.h>

#include "session/SessionTestSupport.h"
#include "support/ByteBuilder.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
using Clock = std::chrono::steady_clock;

namespace {

const std::filesystem::path kScripts = std::filesystem::path(TPNF_TEST_DATA_DIR) / ".." / ".." / "scripts";
constexpr int kPort = 54341; // apart from the shared test server on 54329

std::string ServerEnv(const std::filesystem::path& dir) {
    return "TPNF_PG_PORT=" + std::to_string(kPort) + " TPNF_PG_DIR=" + (dir / "pg").string() + " ";
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

// v9 datagram: template `id` (source and destination address, protocol) and two data records for it.
std::vector<uint8_t> V9TemplateAndData(uint16_t id, uint32_t sequence) {
    ByteBuilder b;
    b.u16(9).u16(2).u32(3600000).u32(1700000000).u32(sequence).u32(0);
    b.u16(0).u16(4 + 4 + 3 * 4).u16(id).u16(3).u16(8).u16(4).u16(12).u16(4).u16(4).u16(1);
    b.u16(id).u16(4 + 2 * 9 + 2);
    b.ipv4(10, 0, 0, 1).ipv4(10, 0, 0, 2).u8(6).ipv4(10, 0, 0, 3).ipv4(10, 0, 0, 4).u8(17).zeros(2);
    return b.build();
}

class DatabaseFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists("/usr/lib/postgresql/15/bin/pg_ctl"))
            GTEST_SKIP() << "PostgreSQL 15 is not installed";
        char pattern[] = "/tmp/tpnf-dbfault-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir = pattern;
        // The server runs as the postgres user when the tests run as root: it must reach its directory.
        std::filesystem::permissions(dir,
                                     std::filesystem::perms::group_read | std::filesystem::perms::group_exec |
                                         std::filesystem::perms::others_read |
                                         std::filesystem::perms::others_exec,
                                     std::filesystem::perm_options::add);
        ASSERT_TRUE(Shell(ServerEnv(dir) + (kScripts / "pg-server").string() + " start")) << "server start";
        serverUp = true;
        ASSERT_TRUE(
            Shell(ServerEnv(dir) + (kScripts / "odbc-env").string() + " --dir " + (dir / "odbc").string()));
        ::setenv("ODBCSYSINI", (dir / "odbc").c_str(), 1);
        ::setenv("ODBCINI", (dir / "odbc" / "odbc.ini").c_str(), 1);
        ::setenv("LANG", "C.UTF-8", 1);
        owner.CreateEx(loop, L"owner");
    }
    void TearDown() override {
        if (serverUp)
            StopServer();
        if (!dir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(dir, ignored);
        }
    }
    bool StopServer() {
        serverUp = false;
        return Shell(ServerEnv(dir) + (kScripts / "pg-server").string() + " stop").has_value();
    }
    long CountRows(const char* table) {
        auto out = Shell("PGPASSWORD=odbcpw psql -h 127.0.0.1 -p " + std::to_string(kPort) +
                         " -U odbc -d flows -tAc 'select count(*) from " + table + "'");
        return out ? std::strtol(out->c_str(), nullptr, 10) : -1;
    }
    // Sends one datagram and runs the loop until the session has handled it.
    void Deliver(const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        sender.Send(port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }));
    }
    size_t Queued() { return session.m_pDatabaseThread->GetQueuedCount(); }
    bool Healthy() {
        std::lock_guard<std::recursive_mutex> lock(session.m_pDatabaseThread->m_Lock);
        return session.m_pDatabaseThread->m_bStatusOK != FALSE;
    }
    CString LastError() {
        std::lock_guard<std::recursive_mutex> lock(session.m_pDatabaseThread->m_Lock);
        return session.m_pDatabaseThread->m_strLastError;
    }

    std::filesystem::path dir;
    bool serverUp = false;
    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
};

} // namespace

TEST_F(DatabaseFaultTest, ServerStoppedWhileTheWriterRunsRefusesWritesAndStopStaysWithinItsBound) {
    ASSERT_TRUE(session.Init(&owner, 0, L"flows_pg"));
    port = session.GetLocalPort();
    ASSERT_TRUE(RunUntil(
        loop, [&] { return session.HiddenCount(WM_NETFLOW_DB_OPENED) == 1; }, std::chrono::seconds(20)))
        << "the writer did not connect";

    // Healthy: every packet is written (the host keeps them until Stop, as it must while a writer runs).
    for (uint32_t i = 0; i < 5; ++i)
        Deliver(V9TemplateAndData(62000, i));
    ASSERT_TRUE(RunUntil(
        loop, [&] { return Queued() == 0; }, std::chrono::seconds(20)));
    EXPECT_TRUE(Healthy());
    EXPECT_EQ(CountRows("netflow_records"), 10);
    EXPECT_EQ(CountRows("netflow_attributes"), 30);

    // The server goes away.
    ASSERT_TRUE(StopServer());
    const auto stopped = Clock::now();
    Deliver(V9TemplateAndData(62000, 5));
    ASSERT_TRUE(RunUntil(
        loop, [&] { return !Healthy(); }, std::chrono::seconds(30)))
        << "the write against a stopped server did not fail";
    const double failedAfter = std::chrono::duration<double>(Clock::now() - stopped).count();
    CString error = LastError();
    while (!error.empty() && (error.back() == L'\n' || error.back() == L'\r'))
        error.pop_back();
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(Queued(), 1u); // the failed write keeps its queue

    // From now on writes are refused and the queue only grows; the collector goes on.
    for (uint32_t i = 6; i < 16; ++i)
        Deliver(V9TemplateAndData(62000, i));
    RunUntil(
        loop, [] { return false; }, std::chrono::milliseconds(300)); // let the writer see its messages
    EXPECT_EQ(Queued(), 11u);
    EXPECT_FALSE(Healthy());
    EXPECT_TRUE(session.IsStarted());
    EXPECT_EQ(session.GetStatistics().packets, 16u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 16u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_ERROR), 0u); // write failures never reach the host

    std::shared_future<int> writerThread = session.m_hDatabaseThread;
    const auto t0 = Clock::now();
    session.Stop();
    const double stopSeconds = std::chrono::duration<double>(Clock::now() - t0).count();
    EXPECT_LT(stopSeconds, 10.5);
    EXPECT_EQ(writerThread.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    std::printf("database server stopped: the write failed %.2f s later (\"%s\"); 10 more packets queued "
                "and refused; Stop took %.3f s\n",
                failedAfter, tpnf::ToUtf8(error.substr(0, 120)).c_str(), stopSeconds);

    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    EXPECT_EQ(packets.size(), 16u);
    DeletePackets(packets);
}
