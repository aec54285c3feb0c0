// The writer thread's mechanics: start with a data source name, OPEN answered on the session's hidden
// window, packets queued in the writer, and the EXITING hand-shake that Stop waits for.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "session/SessionTestSupport.h"

using namespace tpnf::test;
using namespace std::chrono_literals;

namespace {

class WriterThreadTest : public ::testing::Test {
protected:
    void SetUp() override { owner.CreateEx(loop, L"owner"); }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
};

} // namespace

TEST_F(WriterThreadTest, InitWithDataSourceStartsWriterAndPostsOpen) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    ASSERT_NE(session.m_pDatabaseThread, nullptr);
    EXPECT_TRUE(session.m_hDatabaseThread.valid());
    EXPECT_EQ(session.m_pDatabaseThread->m_pSession, &session);
    EXPECT_EQ(session.m_pDatabaseThread->m_strDSN, L"no_such_dsn");

    // The writer cannot connect: OPEN_FAILED comes back to the hidden window, and nothing to the owner.
    ASSERT_TRUE(RunUntil(loop, [&] { return session.HiddenCount(WM_NETFLOW_DB_OPEN_FAILED) == 1; }));
    EXPECT_EQ(session.HiddenCount(WM_NETFLOW_DB_OPENED), 0u);
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_NE(session.m_pDatabaseThread, nullptr); // a failed open does not end the writer
    session.Stop();
}

TEST_F(WriterThreadTest, FailedOpenKeepsTextAndClearsHealth) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    CNetFlowDatabase* writer = session.m_pDatabaseThread;
    ASSERT_TRUE(RunUntil(loop, [&] { return session.HiddenCount(WM_NETFLOW_DB_OPEN_FAILED) == 1; }));
    {
        std::lock_guard<std::recursive_mutex> lock(writer->m_Lock);
        EXPECT_FALSE(writer->m_strLastError.empty());
        EXPECT_EQ(writer->m_bStatusOK, FALSE);
    }
    session.Stop();
}

TEST_F(WriterThreadTest, StopCompletesExitingHandshakeWellWithinTheBoundedWait) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    std::shared_future<int> handle = session.m_hDatabaseThread;
    ASSERT_TRUE(RunUntil(loop, [&] { return session.HiddenCount(WM_NETFLOW_DB_OPEN_FAILED) == 1; }));

    const auto start = std::chrono::steady_clock::now();
    session.Stop();
    const auto elapsed = std::chrono::steady_clock::now() - start;

    EXPECT_LT(elapsed, 2s);
    EXPECT_EQ(session.HiddenCount(WM_NETFLOW_DB_EXITING), 1u);
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    // The handle is kept and shows the thread's end with exit code 1.
    ASSERT_TRUE(session.m_hDatabaseThread.valid());
    ASSERT_EQ(handle.wait_for(0s), std::future_status::ready);
    EXPECT_EQ(handle.get(), 1);
}

TEST_F(WriterThreadTest, StopRightAfterInitStillEndsTheWriter) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    const auto start = std::chrono::steady_clock::now();
    session.Stop(); // OPEN and QUIT are both still queued
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    EXPECT_EQ(session.m_hDatabaseThread.wait_for(0s), std::future_status::ready);
    // The writer answered OPEN before it saw QUIT; its send went to the hidden window first.
    ASSERT_EQ(session.hiddenMessages.size(), 2u);
    EXPECT_EQ(session.hiddenMessages[0].message, WM_NETFLOW_DB_OPEN_FAILED);
    EXPECT_EQ(session.hiddenMessages[1].message, WM_NETFLOW_DB_EXITING);
}

TEST_F(WriterThreadTest, StopAfterTheLoopHasReturnedStillEndsTheWriter) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    loop.stop(); // as when run() has returned
    const auto start = std::chrono::steady_clock::now();
    session.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    EXPECT_TRUE(loop.stopped()); // left as the host had it
}

TEST_F(WriterThreadTest, StopFromInsideALoopHandlerEndsTheWriter) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    bool stopped = false;
    asio::post(loop, [&] {
        session.Stop(); // nested loop run inside this handler
        stopped = true;
    });
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(RunUntil(loop, [&] { return stopped; }));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    EXPECT_EQ(session.HiddenCount(WM_NETFLOW_DB_EXITING), 1u);
}

TEST_F(WriterThreadTest, AddPacketQueuesTheSamePointerInTheWriter) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    CNetFlowDatabase* writer = session.m_pDatabaseThread;
    CountingPacket* first = new CountingPacket(1);
    CountingPacket* second = new CountingPacket(2);
    session.AddPacket(first);
    session.AddPacket(second);
    {
        std::lock_guard<std::recursive_mutex> lock(writer->m_Lock);
        ASSERT_EQ(writer->m_Packets.size(), 2u);
        EXPECT_EQ(writer->m_Packets[0], first);
        EXPECT_EQ(writer->m_Packets[1], second);
    }
    // The writes fail while the writer is not connected, so the queue keeps its borrowed pointers.
    ASSERT_TRUE(RunUntil(loop, [&] { return session.HiddenCount(WM_NETFLOW_DB_OPEN_FAILED) == 1; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(writer->GetQueuedCount(), 2u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 2u);

    session.Stop();
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> taken;
    session.GetPackets(taken);
    ASSERT_EQ(taken.size(), 2u);
    DeletePackets(taken); // after Stop the writer holds no pointers any more
}

TEST_F(WriterThreadTest, EmptyDataSourceNameStartsNoWriter) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    EXPECT_FALSE(session.m_hDatabaseThread.valid());
    session.AddPacket(new CountingPacket);
    EXPECT_EQ(session.m_Packets.size(), 1u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 1u);
    session.Stop();
    EXPECT_TRUE(session.hiddenMessages.empty());
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> taken;
    session.GetPackets(taken);
    DeletePackets(taken);
}

TEST_F(WriterThreadTest, SocketFailureStartsNoWriter) {
    asio::ip::udp::socket blocker(loop, asio::ip::udp::endpoint(asio::ip::address_v4::any(), 0));
    const UINT port = blocker.local_endpoint().port();
    EXPECT_FALSE(session.Init(&owner, port, L"no_such_dsn"));
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    EXPECT_FALSE(session.m_hDatabaseThread.valid());
}

TEST_F(WriterThreadTest, ReInitAfterStopStartsANewWriter) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    session.Stop();
    std::shared_future<int> firstHandle = session.m_hDatabaseThread;
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    ASSERT_NE(session.m_pDatabaseThread, nullptr);
    EXPECT_EQ(firstHandle.wait_for(0s), std::future_status::ready);
    EXPECT_EQ(session.m_hDatabaseThread.wait_for(0s), std::future_status::timeout);
    session.Stop();
    EXPECT_EQ(session.HiddenCount(WM_NETFLOW_DB_EXITING), 2u);
}

TEST_F(WriterThreadTest, QuitSentDirectlyAnnouncesExitingThenEndsTheThread) {
    CNetFlowDatabase* writer = CNetFlowDatabase::BeginThread();
    std::shared_future<int> handle = writer->m_hThread;
    TestSession target;
    target.CreateEx(loop, L"NetFlowSessionWnd");
    writer->m_pSession = &target;
    EXPECT_EQ(writer->ResumeThread(), 0u);
    writer->PostThreadMessage(WM_NETFLOW_DB_QUIT, 0, 0);
    // The writer blocks in its send until this loop runs it.
    EXPECT_EQ(handle.wait_for(100ms), std::future_status::timeout);
    ASSERT_TRUE(RunUntil(loop, [&] { return target.HiddenCount(WM_NETFLOW_DB_EXITING) == 1; }));
    ASSERT_EQ(handle.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(handle.get(), 1);
}
