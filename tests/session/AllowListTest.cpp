// The allowlist: datagrams from other senders are counted as refused and never decoded, traced or
// announced; the list may change while the session runs; IPv4 senders on a dual-stack socket are matched
// as IPv4 addresses.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "corelib/Utility.h"
#include "session/ReceiveTestSupport.h"
#include "session/SessionTestSupport.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
namespace fs = std::filesystem;

namespace {

std::vector<CAddressPrefix> Prefixes(const std::vector<std::string>& texts) {
    std::vector<CAddressPrefix> prefixes;
    for (const std::string& text : texts) {
        CAddressPrefix prefix;
        std::string error;
        EXPECT_TRUE(CAddressPrefix::Parse(text, prefix, error)) << error;
        prefixes.push_back(prefix);
    }
    return prefixes;
}

class AllowListTest : public ::testing::Test {
protected:
    void SetUp() override { owner.CreateEx(loop, L"owner"); }
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
        CUtility::SetPduTraceDir(L"");
    }
    void Start(const std::vector<std::string>& listen = {}) {
        std::vector<asio::ip::address> addresses;
        for (const std::string& a : listen)
            addresses.push_back(asio::ip::make_address(a));
        session.SetListenAddresses(addresses);
        ASSERT_TRUE(session.Init(&owner, 0, L"")) << session.GetSocketError().message();
        port = session.GetLocalPort();
    }
    void Deliver(AddressSender& from, const std::string& to, const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        from.Send(to, port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }))
            << "datagram not received";
    }
    // The senders of the packets listed so far, which are deleted.
    std::vector<CString> TakeSenders() {
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
        session.GetPackets(packets);
        std::vector<CString> senders;
        for (CTPAbstractPacket* p : packets)
            senders.push_back(p->GetSenderIPAddress());
        DeletePackets(packets);
        return senders;
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UINT port = 0;
};

} // namespace

TEST_F(AllowListTest, SendersOutsideTheListAreRefusedCountedAndNeverAnnounced) {
    Start();
    session.SetAllowList(Prefixes({"127.0.0.2"}));
    AddressSender stranger("127.0.0.1");
    AddressSender exporter("127.0.0.2");
    int handled = 0;
    session.onDatagram = [&] { ++handled; };
    Deliver(stranger, "127.0.0.1", V5Datagram(1));
    Deliver(exporter, "127.0.0.1", V5Datagram(2));
    Deliver(stranger, "127.0.0.1", ByteBuilder().u16(5).build());   // would fail to decode
    Deliver(stranger, "127.0.0.1", ByteBuilder().zeros(3).build()); // would throw
    Deliver(exporter, "127.0.0.1", V5Datagram(3));
    const CNetFlowSession::Statistics& s = session.GetStatistics();
    EXPECT_EQ(s.datagrams, 5u);
    EXPECT_EQ(s.refused, 3u);
    EXPECT_EQ(s.packets, 2u);
    EXPECT_EQ(s.decodeFailures, 0u);
    EXPECT_EQ(s.malformed, 0u);
    EXPECT_EQ(handled, 5);
    EXPECT_EQ(owner.Count(WM_NETFLOW_PACKET), 2u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_ERROR), 0u);
    EXPECT_EQ(TakeSenders(), (std::vector<CString>{L"127.0.0.2", L"127.0.0.2"}));
}

TEST_F(AllowListTest, RefusedDatagramsAreNotTraced) {
    char pattern[] = "/tmp/tpnf_allow_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    CUtility::SetPduTraceDir(tpnf::FromUtf8(std::string(pattern) + "/"));
    session.SetTraceMode(TRUE);
    Start();
    session.SetAllowList(Prefixes({"127.0.0.2/32"}));
    AddressSender stranger("127.0.0.1");
    AddressSender exporter("127.0.0.2");
    CNetFlowSocket::SetTraceFileCounter(700);
    Deliver(stranger, "127.0.0.1", V5Datagram(1));
    Deliver(exporter, "127.0.0.1", V5Datagram(2));
    Deliver(stranger, "127.0.0.1", V5Datagram(3));
    EXPECT_EQ(session.GetStatistics().traced, 1u);
    EXPECT_EQ(session.GetStatistics().refused, 2u);
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), 701);
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(pattern)) {
        EXPECT_EQ(entry.path().filename(), "nf_trace_701.nfdmp");
        ++files;
    }
    EXPECT_EQ(files, 1u);
    std::error_code ignored;
    fs::remove_all(pattern, ignored);
}

TEST_F(AllowListTest, TheListMayChangeWhileTheSessionRuns) {
    Start();
    AddressSender sender("127.0.0.1");
    session.SetAllowList(Prefixes({"127.0.0.2"}));
    Deliver(sender, "127.0.0.1", V5Datagram(1)); // refused, and the verdict is now known for this sender
    session.SetAllowList(Prefixes({"10.0.0.0/8", "127.0.0.0/8"}));
    Deliver(sender, "127.0.0.1", V5Datagram(2));
    session.SetAllowList({});
    Deliver(sender, "127.0.0.1", V5Datagram(3));
    session.SetAllowList(Prefixes({"::/0"}));
    Deliver(sender, "127.0.0.1", V5Datagram(4)); // ::/0 covers the IPv4-mapped block
    session.SetAllowList(Prefixes({"2001:db8::/32"}));
    Deliver(sender, "127.0.0.1", V5Datagram(5));
    EXPECT_EQ(session.GetStatistics().refused, 2u);
    EXPECT_EQ(session.GetStatistics().packets, 3u);
    EXPECT_EQ(session.GetAllowList(), Prefixes({"2001:db8::/32"}));
}

TEST_F(AllowListTest, TheListMayChangeFromInsideAHandler) {
    Start();
    AddressSender sender("127.0.0.1");
    session.SetAllowList(Prefixes({"127.0.0.1"}));
    // The first packet closes the door for the datagrams behind it.
    owner.onPacket = [&] { session.SetAllowList(Prefixes({"192.0.2.0/24"})); };
    for (uint32_t i = 0; i < 5; ++i)
        sender.Send("127.0.0.1", port, V5Datagram(i));
    ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == 5; }));
    EXPECT_EQ(session.GetStatistics().packets, 1u);
    EXPECT_EQ(session.GetStatistics().refused, 4u);
}

TEST_F(AllowListTest, OnADualStackSocketIPv4SendersMatchIPv4Prefixes) {
    Start({"::"});
    AddressSender v4("127.0.0.1");
    AddressSender v6("::1");
    session.SetAllowList(Prefixes({"127.0.0.0/8"}));
    Deliver(v4, "127.0.0.1", V5Datagram(1));
    Deliver(v6, "::1", V5Datagram(2));
    EXPECT_EQ(TakeSenders(), std::vector<CString>{L"127.0.0.1"});
    EXPECT_EQ(session.GetStatistics().refused, 1u);

    session.SetAllowList(Prefixes({"::1"}));
    Deliver(v4, "127.0.0.1", V5Datagram(3));
    Deliver(v6, "::1", V5Datagram(4));
    EXPECT_EQ(TakeSenders(), std::vector<CString>{L"::1"});
    EXPECT_EQ(session.GetStatistics().refused, 2u);

    session.SetAllowList(
        Prefixes({"::ffff:127.0.0.1"})); // the mapped form of an IPv4 address is that address
    Deliver(v4, "127.0.0.1", V5Datagram(5));
    Deliver(v6, "::1", V5Datagram(6));
    EXPECT_EQ(TakeSenders(), std::vector<CString>{L"127.0.0.1"});
    EXPECT_EQ(session.GetStatistics().refused, 3u);
}

TEST_F(AllowListTest, AnIPv6PrefixAdmitsItsSendersOnAnIPv6Socket) {
    Start({"::1"});
    AddressSender v6("::1");
    session.SetAllowList(Prefixes({"::/127"}));
    Deliver(v6, "::1", V5Datagram(1));
    session.SetAllowList(Prefixes({"::2/127"}));
    Deliver(v6, "::1", V5Datagram(2));
    EXPECT_EQ(session.GetStatistics().packets, 1u);
    EXPECT_EQ(session.GetStatistics().refused, 1u);
}
