// Where a session listens: IPv6, dual stack, several addresses on one port, and what a failed address says.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "corelib/Utility.h"
#include "session/ReceiveTestSupport.h"
#include "session/SessionTestSupport.h"
#include "util/Format.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
namespace fs = std::filesystem;

namespace {

class ListenTest : public ::testing::Test {
protected:
    void SetUp() override { owner.CreateEx(loop, L"owner"); }
    void TearDown() override {
        session.Stop();
        DeletePackets(packets);
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
    }
    void Listen(const std::vector<std::string>& addresses) {
        std::vector<asio::ip::address> parsed;
        for (const std::string& a : addresses)
            parsed.push_back(asio::ip::make_address(a));
        session.SetListenAddresses(parsed);
        ASSERT_TRUE(session.Init(&owner, 0, L"")) << session.GetSocketError().message();
        port = session.GetLocalPort();
        ASSERT_NE(port, 0u);
    }
    // Sends one datagram from `from` to `to` and runs the loop until the session has handled it.
    void Deliver(AddressSender& from, const std::string& to, const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        from.Send(to, port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }))
            << "datagram to " << to << " not received";
    }
    void Take() {
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> taken;
        session.GetPackets(taken);
        packets.insert(packets.end(), taken.begin(), taken.end());
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UINT port = 0;
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
};

CExporterAddress Loopback6(UINT port) {
    CExporterAddress address;
    address.bytes[15] = 1;
    address.length = 16;
    address.port = static_cast<uint16_t>(port);
    return address;
}

} // namespace

TEST_F(ListenTest, ByDefaultEveryIPv4AddressIsListenedOn) {
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    port = session.GetLocalPort();
    EXPECT_EQ(session.m_pSocket->GetSocketCount(), 1u);
    AddressSender sender("127.0.0.1");
    Deliver(sender, "127.0.0.1", V5Datagram(1));
    Deliver(sender, "127.0.0.2", V5Datagram(2));
    EXPECT_EQ(session.GetStatistics().packets, 2u);
}

TEST_F(ListenTest, IPv6SendersAppearAsIPv6TextOnThePacket) {
    Listen({"::1"});
    AddressSender sender("::1");
    CExporterAddress seen;
    owner.onPacket = [&] { seen = session.GetDatagramInfo()->exporter; };
    Deliver(sender, "::1", V5Datagram(7, 0, 1));
    Take();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0]->GetSenderIPAddress(), L"::1");
    EXPECT_EQ(packets[0]->GetSenderPort(), static_cast<int>(sender.LocalPort()));
    const CString firstLine =
        tpnf::FormatText(L"NetFlow packet received from: ::1:%d\r\n", static_cast<int>(sender.LocalPort()));
    EXPECT_EQ(packets[0]->ToString().substr(0, firstLine.size()), firstLine);
    EXPECT_EQ(seen, Loopback6(sender.LocalPort()));
}

TEST_F(ListenTest, InTraceModeTheHostSeesTheIPv6SenderOfEachTracedDatagram) {
    char pattern[] = "/tmp/tpnf_listen6_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    CUtility::SetPduTraceDir(tpnf::FromUtf8(std::string(pattern) + "/"));
    session.SetTraceMode(TRUE);
    Listen({"::1"});
    AddressSender sender("::1");
    CString text;
    UINT senderPort = 0;
    EDatagramOutcome outcome = EDatagramOutcome::Packet;
    session.onDatagram = [&] {
        text = *session.GetDatagramInfo()->senderAddress;
        senderPort = session.GetDatagramInfo()->senderPort;
        outcome = session.GetDatagramInfo()->outcome;
    };
    CNetFlowSocket::SetTraceFileCounter(500);
    const std::vector<uint8_t> datagram = V5Datagram(3);
    Deliver(sender, "::1", datagram);
    EXPECT_EQ(text, L"::1");
    EXPECT_EQ(senderPort, sender.LocalPort());
    EXPECT_EQ(outcome, EDatagramOutcome::Traced);
    std::ifstream in(fs::path(pattern) / "nf_trace_501.nfdmp", std::ios::binary);
    EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
              datagram);
    CUtility::SetPduTraceDir(L"");
    std::error_code ignored;
    fs::remove_all(pattern, ignored);
}

TEST_F(ListenTest, TheDualStackWildcardShowsIPv4SendersAsDottedText) {
    Listen({"::"});
    EXPECT_EQ(session.m_pSocket->GetSocketCount(), 1u);
    AddressSender v4("127.0.0.1");
    AddressSender v6("::1");
    std::vector<CExporterAddress> exporters;
    owner.onPacket = [&] { exporters.push_back(session.GetDatagramInfo()->exporter); };
    Deliver(v4, "127.0.0.1", V5Datagram(1));
    Deliver(v6, "::1", V5Datagram(2));
    Take();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0]->GetSenderIPAddress(), L"127.0.0.1");
    EXPECT_EQ(packets[1]->GetSenderIPAddress(), L"::1");
    ASSERT_EQ(exporters.size(), 2u);
    CExporterAddress v4Exporter;
    v4Exporter.bytes = {127, 0, 0, 1};
    v4Exporter.length = 4;
    v4Exporter.port = static_cast<uint16_t>(v4.LocalPort());
    EXPECT_EQ(exporters[0], v4Exporter) << "an IPv4-mapped sender is its IPv4 address";
    EXPECT_EQ(exporters[1], Loopback6(v6.LocalPort()));
}

TEST_F(ListenTest, SeveralAddressesListenOnOnePort) {
    Listen({"127.0.0.1", "::1"});
    EXPECT_EQ(session.m_pSocket->GetSocketCount(), 2u);
    AddressSender v4("127.0.0.1");
    AddressSender v6("::1");
    Deliver(v4, "127.0.0.1", V5Datagram(1));
    Deliver(v6, "::1", V5Datagram(2));
    Deliver(v4, "127.0.0.1", V5Datagram(3));
    Take();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0]->GetSenderIPAddress(), L"127.0.0.1");
    EXPECT_EQ(packets[1]->GetSenderIPAddress(), L"::1");
    EXPECT_EQ(packets[2]->GetSenderIPAddress(), L"127.0.0.1");
    // Only the listed addresses: 127.0.0.2 is not one of them.
    AddressSender other("127.0.0.1");
    other.Send("127.0.0.2", port, V5Datagram(4));
    RunUntil(
        loop, [] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(session.GetStatistics().datagrams, 3u);
}

TEST_F(ListenTest, BothWildcardsListenSideBySide) {
    Listen({"0.0.0.0", "::"});
    EXPECT_EQ(session.m_pSocket->GetSocketCount(), 2u);
    AddressSender v4("127.0.0.1");
    AddressSender v6("::1");
    Deliver(v4, "127.0.0.1", V5Datagram(1));
    Deliver(v6, "::1", V5Datagram(2));
    Take();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0]->GetSenderIPAddress(), L"127.0.0.1");
    EXPECT_EQ(packets[1]->GetSenderIPAddress(), L"::1");
}

TEST_F(ListenTest, AnAddressThatIsNotLocalFailsInitAndIsNamed) {
    session.SetListenAddresses({asio::ip::make_address("127.0.0.1"), asio::ip::make_address("192.0.2.1")});
    EXPECT_FALSE(session.Init(&owner, 0, L""));
    EXPECT_FALSE(session.IsStarted());
    EXPECT_EQ(session.m_pSocket, nullptr);
    EXPECT_EQ(session.GetSocketErrorAddress(), "192.0.2.1");
    EXPECT_EQ(session.GetSocketError().value(), EADDRNOTAVAIL);
    // A later Init that succeeds clears both.
    session.SetListenAddresses({});
    ASSERT_TRUE(session.Init(&owner, 0, L""));
    EXPECT_EQ(session.GetSocketErrorAddress(), "");
    EXPECT_FALSE(session.GetSocketError());
}

TEST_F(ListenTest, APortInUseOnOneAddressFailsInitAndLeavesNothingBound) {
    // A session holding ::1 on a port; a second one asked for 127.0.0.1 and ::1 on that port fails on ::1
    // and releases 127.0.0.1 again.
    TestSession first;
    first.SetListenAddresses({asio::ip::make_address("::1")});
    ASSERT_TRUE(first.Init(loop, nullptr, 0, L""));
    const UINT taken = first.GetLocalPort();
    session.SetListenAddresses({asio::ip::make_address("127.0.0.1"), asio::ip::make_address("::1")});
    EXPECT_FALSE(session.Init(&owner, taken, L""));
    EXPECT_EQ(session.GetSocketErrorAddress(), "::1");
    EXPECT_EQ(session.GetSocketError().value(), EADDRINUSE);
    TestSession third;
    third.SetListenAddresses({asio::ip::make_address("127.0.0.1")});
    EXPECT_TRUE(third.Init(loop, nullptr, taken, L"")) << third.GetSocketError().message();
    third.Stop();
    first.Stop();
}
