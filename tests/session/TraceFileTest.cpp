// Trace mode: every datagram goes raw to the next numbered file; the number is process-wide.

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "corelib/Utility.h"
#include "session/SessionTestSupport.h"
#include "support/ByteBuilder.h"
#include "util/TextConvert.h"

extern char** environ;

using namespace tpnf::test;
namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

ByteBuilder NetFlowV5Empty() {
    return ByteBuilder().u16(5).u16(0).u32(1000).u32(1700000000).u32(0).u32(1).u32(0);
}

class TraceTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tpnf_trace_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        CUtility::SetPduTraceDir(tpnf::FromUtf8(dir.string() + "/"));
        owner.CreateEx(loop, L"owner");
        session.SetTraceMode(TRUE);
        ASSERT_TRUE(session.Init(&owner, 0, L""));
        port = session.GetLocalPort();
    }
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
        CUtility::SetPduTraceDir(L"");
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }
    void Deliver(const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        sender.Send(port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }));
    }
    fs::path TraceFile(int number) const { return dir / ("nf_trace_" + std::to_string(number) + ".nfdmp"); }
    size_t FileCount(const fs::path& where) const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(where), fs::directory_iterator()));
    }

    fs::path dir;
    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
};

// Runs one test of this binary in a fresh process and returns its exit status.
int RunInFreshProcess(const std::string& testName) {
    std::string filter = "--gtest_filter=" + testName;
    char* argv[] = {const_cast<char*>("/proc/self/exe"), filter.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST_F(TraceTest, FirstThreeDatagramsOfTheProcessBecomeFilesOneToThree) {
    if (CNetFlowSocket::GetTraceFileCounter() != 0) {
        // An earlier test of this process has used numbers up: check it where the counter is fresh.
        EXPECT_EQ(RunInFreshProcess("TraceTest.FirstThreeDatagramsOfTheProcessBecomeFilesOneToThree"), 0);
        return;
    }
    const std::vector<uint8_t> datagrams[3] = {NetFlowV5Empty(), ByteBuilder().u8(0xAB),
                                               ByteBuilder().u32(5).text("raw bytes, not decoded")};
    for (const auto& d : datagrams)
        Deliver(d);
    ASSERT_EQ(FileCount(dir), 3u);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(fs::exists(TraceFile(i + 1))) << TraceFile(i + 1);
        EXPECT_EQ(ReadFile(TraceFile(i + 1)), datagrams[i]) << i + 1;
    }
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), 3);
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    EXPECT_TRUE(packets.empty());
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().traced, 3u);
}

TEST_F(TraceTest, CounterWrapsFromMaximumToZero) {
    CNetFlowSocket::SetTraceFileCounter(2147483646);
    Deliver(ByteBuilder().u8(1));
    Deliver(ByteBuilder().u8(2));
    Deliver(ByteBuilder().u8(3));
    EXPECT_EQ(ReadFile(TraceFile(2147483647)), std::vector<uint8_t>{1});
    EXPECT_EQ(ReadFile(TraceFile(0)), std::vector<uint8_t>{2});
    EXPECT_EQ(ReadFile(TraceFile(1)), std::vector<uint8_t>{3});
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), 1);
}

TEST_F(TraceTest, SwitchingTraceModeOffResumesDecodingAndKeepsTheCounter) {
    CNetFlowSocket::SetTraceFileCounter(40);
    Deliver(NetFlowV5Empty());
    session.SetTraceMode(FALSE);
    Deliver(NetFlowV5Empty());
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), 41);
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0]->GetProtocol(), L"NetFlow v5");
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 1u);
    DeletePackets(packets);
    session.SetTraceMode(TRUE);
    Deliver(NetFlowV5Empty());
    EXPECT_TRUE(fs::exists(TraceFile(42)));
    EXPECT_EQ(FileCount(dir), 2u);
}

TEST_F(TraceTest, ExistingFileIsReplaced) {
    CNetFlowSocket::SetTraceFileCounter(6);
    std::ofstream(TraceFile(7), std::ios::binary) << std::string(100, 'x');
    Deliver(ByteBuilder().u16(0x0102));
    EXPECT_EQ(ReadFile(TraceFile(7)), (std::vector<uint8_t>{1, 2}));
}

TEST_F(TraceTest, LargestDatagramIsWrittenWhole) {
    CNetFlowSocket::SetTraceFileCounter(100);
    std::vector<uint8_t> big(65507); // the largest UDP payload over IPv4
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<uint8_t>(i * 31 + 7);
    Deliver(big);
    EXPECT_EQ(ReadFile(TraceFile(101)), big);
}

TEST_F(TraceTest, UnwritableDirectorySkipsSilentlyAndUsesTheNumberUp) {
    // A regular file where the directory should be: no file can be created below it, not even by root.
    std::ofstream(dir / "not_a_directory") << "x";
    CUtility::SetPduTraceDir(tpnf::FromUtf8((dir / "not_a_directory").string() + "/"));
    CNetFlowSocket::SetTraceFileCounter(10);
    Deliver(ByteBuilder().u8(1));
    CUtility::SetPduTraceDir(tpnf::FromUtf8(dir.string() + "/"));
    Deliver(ByteBuilder().u8(2));
    EXPECT_FALSE(fs::exists(TraceFile(11)));
    EXPECT_EQ(ReadFile(TraceFile(12)), std::vector<uint8_t>{2});
    EXPECT_TRUE(owner.messages.empty());
    EXPECT_EQ(session.GetStatistics().traceFailures, 1u);
    EXPECT_EQ(session.GetStatistics().traced, 1u);
}

TEST_F(TraceTest, MissingDirectorySkipsSilentlyAndUsesTheNumberUp) {
    CNetFlowSocket::SetTraceFileCounter(20);
    CUtility::SetPduTraceDir(tpnf::FromUtf8((dir / "missing").string() + "/"));
    Deliver(ByteBuilder().u8(1));
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), 21);
    EXPECT_EQ(FileCount(dir), 0u);
    EXPECT_TRUE(owner.messages.empty());
}

TEST_F(TraceTest, DirectoryTextIsPartOfTheFileNameFormat) {
    // "%%" in the directory becomes "%": the directory is formatted along with the name.
    fs::create_directory(dir / "a%");
    CUtility::SetPduTraceDir(tpnf::FromUtf8((dir / "a%%").string() + "/"));
    CNetFlowSocket::SetTraceFileCounter(0);
    Deliver(ByteBuilder().u8(9));
    EXPECT_EQ(ReadFile(dir / "a%" / "nf_trace_1.nfdmp"), std::vector<uint8_t>{9});
    EXPECT_FALSE(fs::exists(dir / "a%%"));
}
