// The session's packet list, owner notifications, lifecycle and error reporting, on a real loopback
// socket where a socket is involved.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>

#include "session/SessionTestSupport.h"

using namespace tpnf::test;

namespace {

class SessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        owner.CreateEx(loop, L"owner");
        CountingPacket::s_deleted = 0;
    }
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
};

} // namespace

TEST_F(SessionTest, FreshSessionIsIdle) {
    EXPECT_FALSE(session.IsStarted());
    EXPECT_FALSE(session.IsTraceMode());
    EXPECT_FALSE(session.IsWindow());
    EXPECT_EQ(session.m_pOwner, nullptr);
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    EXPECT_EQ(session.GetLocalPort(), 0u);
}

TEST_F(SessionTest, GetPacketsOnEmptySessionYieldsEmptyArray) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    EXPECT_TRUE(packets.empty());
    EXPECT_TRUE(session.m_Packets.empty());
}

TEST_F(SessionTest, GetPacketsReplacesWhatTheArrayHeldWithoutFreeingIt) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    CountingPacket* listed[2] = {new CountingPacket(1), new CountingPacket(2)};
    session.AddPacket(listed[0]);
    session.AddPacket(listed[1]);

    CountingPacket old1(10), old2(11), old3(12);
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets = {&old1, &old2, &old3};
    session.GetPackets(packets);

    ASSERT_EQ(packets.size(), 2u); // the session's count, not the array's old size
    EXPECT_EQ(packets[0], listed[0]);
    EXPECT_EQ(packets[1], listed[1]);
    EXPECT_TRUE(session.m_Packets.empty());
    EXPECT_EQ(CountingPacket::s_deleted, 0); // old pointers are overwritten, not freed
    DeletePackets(packets);
}

TEST_F(SessionTest, GetPacketsWithTheSessionsOwnListEmptiesIt) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    CountingPacket* p = new CountingPacket;
    session.AddPacket(p);
    session.GetPackets(session.m_Packets);
    EXPECT_TRUE(session.m_Packets.empty());
    EXPECT_EQ(CountingPacket::s_deleted, 0);
    delete p;
}

TEST_F(SessionTest, GetPacketsHandsPacketsOverInArrivalOrder) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    for (int i = 0; i < 5; ++i)
        session.AddPacket(new CountingPacket(i));
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 5u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(static_cast<CountingPacket*>(packets[i])->m_id, i);
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> taken = packets;
    session.GetPackets(packets);
    EXPECT_TRUE(packets.empty()); // the second call finds nothing
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 5u);
    for (CTPAbstractPacket* p : taken)
        delete p; // the caller owns what it took
}

TEST_F(SessionTest, OwnerIsNotifiedAfterTheListAppendAndOutsideTheLock) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    CountingPacket* p = new CountingPacket;
    bool listedBeforeNotice = false;
    bool lockFreeFromOtherThread = false;
    owner.onPacket = [&] {
        listedBeforeNotice = session.m_Packets.size() == 1 && session.m_Packets[0] == p;
        std::thread other([&] {
            if (session.m_Lock.try_lock()) {
                lockFreeFromOtherThread = true;
                session.m_Lock.unlock();
            }
        });
        other.join();
    };
    session.AddPacket(p);
    EXPECT_TRUE(listedBeforeNotice);
    EXPECT_TRUE(lockFreeFromOtherThread);
    ASSERT_EQ(owner.messages.size(), 1u);
    EXPECT_EQ(owner.messages[0].message, WM_NETFLOW_PACKET);
    EXPECT_EQ(owner.messages[0].wParam, 0u);
    EXPECT_EQ(owner.messages[0].lParam, 0);
}

TEST_F(SessionTest, WriterHoldsThePacketBeforeTheOwnerIsNotified) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    CNetFlowDatabase* writer = session.m_pDatabaseThread;
    ASSERT_NE(writer, nullptr);
    // The writer's open (bound to fail: no such source) holds its lock; wait until it is over.
    auto openFinished = [writer] {
        std::lock_guard<std::recursive_mutex> lock(writer->m_Lock);
        return !writer->m_bStatusOK;
    };
    for (int i = 0; i < 1000 && !openFinished(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(openFinished());
    CountingPacket* p = new CountingPacket;
    size_t queuedAtNotice = 0;
    bool writerLockFree = false;
    owner.onPacket = [&] {
        std::thread other([&] {
            std::unique_lock<std::recursive_mutex> lock(writer->m_Lock, std::try_to_lock);
            writerLockFree = lock.owns_lock();
            if (lock.owns_lock())
                queuedAtNotice = writer->m_Packets.size();
        });
        other.join();
    };
    session.AddPacket(p);
    EXPECT_TRUE(writerLockFree);
    EXPECT_EQ(queuedAtNotice, 1u);
}

TEST_F(SessionTest, OwnerMayTakePacketsFromItsHandler) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> taken;
    owner.onPacket = [&] {
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> batch;
        session.GetPackets(batch);
        taken.insert(taken.end(), batch.begin(), batch.end());
    };
    session.AddPacket(new CountingPacket(1));
    session.AddPacket(new CountingPacket(2));
    EXPECT_EQ(taken.size(), 2u);
    EXPECT_TRUE(session.m_Packets.empty());
    DeletePackets(taken);
}

TEST_F(SessionTest, InitWithEmptyDataSourceListsAndNotifiesOnly) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    EXPECT_EQ(session.m_pDatabaseThread, nullptr);
    session.AddPacket(new CountingPacket);
    EXPECT_EQ(session.m_Packets.size(), 1u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 1u);
    EXPECT_TRUE(session.hiddenMessages.empty());
}

TEST_F(SessionTest, InitOnAPortInUseReturnsZero) {
    asio::ip::udp::socket blocker(loop, asio::ip::udp::endpoint(asio::ip::address_v4::any(), 0));
    const UINT port = blocker.local_endpoint().port();
    EXPECT_EQ(session.Init(&owner, port, L""), FALSE);
    EXPECT_FALSE(session.IsStarted());
    EXPECT_EQ(session.m_pSocket, nullptr);
    EXPECT_EQ(session.GetSocketError().value(), EADDRINUSE);
    // The hidden window exists anyway; nothing went to the owner.
    EXPECT_TRUE(session.IsWindow());
    EXPECT_EQ(session.GetWindowName(), L"NetFlowSessionWnd");
    EXPECT_TRUE(owner.messages.empty());
}

TEST_F(SessionTest, InitStoresItsArgumentsAndBindsThePort) {
    UdpSender probe;
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    EXPECT_TRUE(session.IsStarted());
    EXPECT_EQ(session.m_pOwner, &owner);
    EXPECT_NE(session.GetLocalPort(), 0u);
    EXPECT_FALSE(session.GetSocketError());
    EXPECT_EQ(session.GetWindowName(), L"NetFlowSessionWnd");
}

TEST_F(SessionTest, InitWithoutALoopFails) {
    CWnd unbound; // never created, so bound to no loop
    EXPECT_EQ(session.Init(&unbound, 0, L""), FALSE);
    EXPECT_FALSE(session.IsStarted());
    EXPECT_EQ(session.m_pOwner, &unbound);
    EXPECT_EQ(session.Init(nullptr, 0, L""), FALSE);
}

TEST_F(SessionTest, StopTwiceDoesNothingTheSecondTime) {
    ASSERT_TRUE(session.Init(&owner, 0, L"no_such_dsn"));
    session.Stop();
    EXPECT_FALSE(session.IsStarted());
    EXPECT_EQ(session.HiddenCount(WM_NETFLOW_DB_EXITING), 1u);
    const size_t hiddenBefore = session.hiddenMessages.size();
    session.Stop();
    EXPECT_FALSE(session.IsStarted());
    EXPECT_EQ(session.hiddenMessages.size(), hiddenBefore);
    EXPECT_TRUE(owner.messages.empty());
}

TEST_F(SessionTest, StopKeepsListedPacketsAndTheHiddenWindow) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    session.AddPacket(new CountingPacket);
    session.Stop();
    EXPECT_EQ(session.m_Packets.size(), 1u);
    EXPECT_TRUE(session.IsWindow());
    EXPECT_EQ(CountingPacket::s_deleted, 0);
}

TEST_F(SessionTest, StopFreesThePortAndReInitCanBindItAgain) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    const UINT port = session.GetLocalPort();
    session.Stop();
    EXPECT_EQ(session.GetLocalPort(), 0u);
    ASSERT_TRUE(session.Init(&owner, port, L""));
    EXPECT_EQ(session.GetLocalPort(), port);
}

TEST_F(SessionTest, ReportErrorSendsExactlyOneErrorWithZeroParameters) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    session.ReportError(L"whatever went wrong", 1234);
    ASSERT_EQ(owner.messages.size(), 1u);
    EXPECT_EQ(owner.messages[0].message, WM_NETFLOW_ERROR);
    EXPECT_EQ(owner.messages[0].wParam, 0u);
    EXPECT_EQ(owner.messages[0].lParam, 0);
}

TEST_F(SessionTest, ReportErrorWithoutOwnerSendsNothing) {
    ASSERT_TRUE(session.Init(loop, nullptr, 0, L""));
    session.ReportError(L"nobody listens", 1);
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_TRUE(session.hiddenMessages.empty());
}

TEST_F(SessionTest, AddPacketWithoutOwnerOnlyLists) {
    ASSERT_TRUE(session.Init(loop, nullptr, 0, L""));
    session.AddPacket(new CountingPacket);
    EXPECT_EQ(session.m_Packets.size(), 1u);
    EXPECT_TRUE(owner.messages.empty());
}

TEST_F(SessionTest, DestructionDeletesNoListedPacket) {
    CountingPacket* p = new CountingPacket;
    {
        TestSession local;
        ASSERT_TRUE(local.Init(&owner, 0, L""));
        local.AddPacket(p);
    }
    EXPECT_EQ(CountingPacket::s_deleted, 0);
    delete p;
    EXPECT_EQ(CountingPacket::s_deleted, 1);
}

TEST_F(SessionTest, TraceModeCanBeSwitchedAtAnyTime) {
    session.SetTraceMode(TRUE);
    EXPECT_TRUE(session.IsTraceMode());
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    session.SetTraceMode(FALSE);
    EXPECT_FALSE(session.IsTraceMode());
}

TEST_F(SessionTest, ReceiveBufferIsRaisedAsFarAsTheSystemAllows) {
    // 0x7FFFFFFF is far above any system limit; the socket comes up with what the system grants.
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    asio::ip::udp::socket probe(loop, asio::ip::udp::endpoint(asio::ip::address_v4::loopback(), 0));
    asio::socket_base::receive_buffer_size defaultSize;
    probe.get_option(defaultSize);
    EXPECT_GT(session.m_pSocket->GetReceiveBufferSize(), defaultSize.value());
}
