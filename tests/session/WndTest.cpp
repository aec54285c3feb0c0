// The window stand-in: same-thread sends run at once, cross-thread sends wait for the loop, and a
// window that is gone receives nothing.

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "session/SessionTestSupport.h"

using namespace tpnf::test;
using namespace std::chrono_literals;

namespace {

class AnsweringWnd : public RecordingWnd {
public:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        RecordingWnd::WindowProc(message, wParam, lParam);
        return static_cast<LRESULT>(message + wParam) + lParam;
    }
};

} // namespace

TEST(WndTest, SendFromTheWindowsThreadRunsAtOnce) {
    asio::io_context loop;
    AnsweringWnd wnd;
    wnd.CreateEx(loop, L"w");
    EXPECT_EQ(wnd.SendMessage(100, 2, 3), 105);
    ASSERT_EQ(wnd.messages.size(), 1u);
    EXPECT_EQ(wnd.messages[0].message, 100u);
}

TEST(WndTest, SendFromAnotherThreadWaitsForTheLoop) {
    asio::io_context loop;
    AnsweringWnd wnd;
    wnd.CreateEx(loop, L"w");
    std::future<LRESULT> answer = std::async(std::launch::async, [&] { return wnd.SendMessage(7, 1, 1); });
    EXPECT_EQ(answer.wait_for(50ms), std::future_status::timeout); // the loop has not run yet
    EXPECT_TRUE(wnd.messages.empty());
    ASSERT_TRUE(RunUntil(loop, [&] { return answer.wait_for(0s) == std::future_status::ready; }));
    EXPECT_EQ(answer.get(), 9);
}

TEST(WndTest, PostRunsWhenTheLoopRuns) {
    asio::io_context loop;
    AnsweringWnd wnd;
    wnd.CreateEx(loop, L"w");
    EXPECT_TRUE(wnd.PostMessage(42));
    EXPECT_TRUE(wnd.messages.empty());
    loop.poll();
    ASSERT_EQ(wnd.messages.size(), 1u);
    EXPECT_EQ(wnd.messages[0].message, 42u);
}

TEST(WndTest, WindowWithoutLoopTakesNoMessages) {
    AnsweringWnd wnd;
    EXPECT_FALSE(wnd.IsWindow());
    EXPECT_EQ(wnd.SendMessage(1), 0);
    EXPECT_FALSE(wnd.PostMessage(1));
    EXPECT_TRUE(wnd.messages.empty());
}

TEST(WndTest, QueuedSendToADestroyedWindowReturnsZero) {
    asio::io_context loop;
    AnsweringWnd wnd;
    wnd.CreateEx(loop, L"w");
    std::future<LRESULT> answer = std::async(std::launch::async, [&] { return wnd.SendMessage(7, 1, 1); });
    std::this_thread::sleep_for(50ms); // the send is queued and waits for the loop
    EXPECT_TRUE(wnd.DestroyWindow());
    EXPECT_FALSE(wnd.IsWindow());
    loop.poll();
    ASSERT_EQ(answer.wait_for(1s), std::future_status::ready);
    EXPECT_EQ(answer.get(), 0);
    EXPECT_TRUE(wnd.messages.empty());
}
