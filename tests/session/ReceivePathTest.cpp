// The receive path beyond decoding: datagrams the kernel dropped are counted, each batch carries the time
// it was read, the host sees the datagram being handled and what became of it, and the packet kinds get
// the session's decode options and the datagram's exporter.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "corelib/Utility.h"
#include "netflow9/NetFlowPacketV9.h"
#include "session/ReceiveTestSupport.h"
#include "session/SessionTestSupport.h"
#include "sflow/SFlowPacket.h"
#include "support/NetFlowV9Datagram.h"
#include "support/SFlowDatagram.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
namespace fs = std::filesystem;

namespace {

int64_t WallClockMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

class ReceivePathTest : public ::testing::Test {
protected:
    void SetUp() override {
        owner.CreateEx(loop, L"owner");
        ASSERT_TRUE(session.Init(&owner, 0, L""));
        port = session.GetLocalPort();
    }
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
        CUtility::SetPduTraceDir(L"");
    }
    void Deliver(const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        sender.Send(port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }))
            << "datagram not received";
    }
    // Shrinks the receive buffer to the system's minimum, so that a burst overflows it.
    void ShrinkReceiveBuffer() {
        std::error_code error;
        ASSERT_TRUE(session.m_pSocket->SetReceiveBufferSize(1, error)) << error.message();
    }
    // Sends `count` datagrams of about a kilobyte while the loop does not run.
    void Burst(int count) {
        for (int i = 0; i < count; ++i)
            sender.Send(port, V5Datagram(static_cast<uint32_t>(i), 0, 20));
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
};

} // namespace

TEST_F(ReceivePathTest, DatagramsTheKernelDroppedAreCountedSoThatReceivedPlusLostIsSent) {
    ShrinkReceiveBuffer();
    constexpr int kSent = 400;
    Burst(kSent);
    RunUntilQuiet(loop, session);
    const CNetFlowSession::Statistics& statistics = session.RefreshStatistics();
    EXPECT_GT(statistics.datagrams, 0u);
    EXPECT_GT(statistics.lost, 0u) << "the burst did not overflow the receive buffer";
    EXPECT_EQ(statistics.datagrams + statistics.lost, static_cast<uint64_t>(kSent));
    EXPECT_EQ(statistics.packets, statistics.datagrams);
    // Asking again without new drops changes nothing.
    const uint64_t lost = statistics.lost;
    EXPECT_EQ(session.RefreshStatistics().lost, lost);
}

TEST_F(ReceivePathTest, TheNextDatagramReadCarriesTheDropCount) {
    ShrinkReceiveBuffer();
    constexpr int kSent = 300;
    Burst(kSent);
    RunUntilQuiet(loop, session);
    // No refresh: the datagram sent after the drops brings the kernel's count with it.
    Deliver(V5Datagram(9999));
    const CNetFlowSession::Statistics& statistics = session.GetStatistics();
    EXPECT_GT(statistics.lost, 0u);
    EXPECT_EQ(statistics.datagrams + statistics.lost, static_cast<uint64_t>(kSent) + 1);
    EXPECT_EQ(session.RefreshStatistics().lost, statistics.lost);
}

TEST_F(ReceivePathTest, DropsAfterTheLastDatagramAreCountedAtStop) {
    ShrinkReceiveBuffer();
    Burst(50);
    RunUntilQuiet(loop, session);
    const CNetFlowSession::Statistics& statistics = session.RefreshStatistics();
    EXPECT_EQ(statistics.datagrams + statistics.lost, 50u);
    // The second burst's drops come after every datagram of it that was queued, so no datagram read
    // carries them; Stop asks the kernel once more.
    Burst(300);
    RunUntilQuiet(loop, session);
    EXPECT_LT(statistics.datagrams + statistics.lost, 350u);
    session.Stop();
    EXPECT_EQ(statistics.datagrams + statistics.lost, 350u)
        << "received " << statistics.datagrams << ", lost " << statistics.lost;
}

TEST_F(ReceivePathTest, EveryDatagramOfABatchCarriesTheTimeItWasRead) {
    std::vector<int64_t> times;
    session.onDatagram = [&] { times.push_back(session.GetDatagramInfo()->receivedMs); };
    const int64_t before = WallClockMs();
    for (uint32_t i = 0; i < 20; ++i)
        sender.Send(port, V5Datagram(i));
    ASSERT_TRUE(RunUntil(loop, [&] { return times.size() == 20; }));
    const int64_t after = WallClockMs();
    EXPECT_GE(times.front(), before);
    EXPECT_LE(times.front(), after);
    for (int64_t t : times)
        EXPECT_EQ(t, times.front()) << "all 20 were queued, so one read took them";
}

TEST_F(ReceivePathTest, TheHostSeesTheDatagramWhileItsPacketIsAnnounced) {
    const std::vector<uint8_t> datagram = V5Datagram(5, 0, 2);
    std::vector<uint8_t> seenBytes;
    CString seenText;
    UINT seenPort = 0;
    CExporterAddress seenExporter;
    const CDatagramInfo* pointerInHandler = nullptr;
    owner.onPacket = [&] {
        const CDatagramInfo* current = session.GetDatagramInfo();
        ASSERT_NE(current, nullptr);
        pointerInHandler = current;
        seenBytes = *current->datagram;
        seenText = *current->senderAddress;
        seenPort = current->senderPort;
        seenExporter = current->exporter;
    };
    EXPECT_EQ(session.GetDatagramInfo(), nullptr);
    Deliver(datagram);
    EXPECT_NE(pointerInHandler, nullptr);
    EXPECT_EQ(seenBytes, datagram);
    EXPECT_EQ(seenText, L"127.0.0.1");
    EXPECT_EQ(seenPort, sender.LocalPort());
    CExporterAddress expected;
    expected.bytes = {127, 0, 0, 1};
    expected.length = 4;
    expected.port = static_cast<uint16_t>(sender.LocalPort());
    EXPECT_EQ(seenExporter, expected);
    EXPECT_EQ(session.GetDatagramInfo(), nullptr) << "only while the datagram is handled";
}

TEST_F(ReceivePathTest, OnDatagramHandledSeesWhatBecameOfEachDatagram) {
    std::vector<EDatagramOutcome> outcomes;
    std::vector<size_t> sizes;
    session.onDatagram = [&] {
        outcomes.push_back(session.GetDatagramInfo()->outcome);
        sizes.push_back(session.GetDatagramInfo()->datagram->size());
    };
    Deliver(V5Datagram(1));                  // listed
    Deliver(ByteBuilder().u8(5).build());    // too short to have a version
    Deliver(ByteBuilder().u16(5).build());   // v5 without its header: Decode returns 0
    Deliver(ByteBuilder().zeros(3).build()); // the 32-bit version read throws

    char pattern[] = "/tmp/tpnf_outcome_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    CUtility::SetPduTraceDir(tpnf::FromUtf8(std::string(pattern) + "/"));
    session.SetTraceMode(TRUE);
    Deliver(V5Datagram(2)); // written to a file
    CUtility::SetPduTraceDir(tpnf::FromUtf8(std::string(pattern) + "/missing/"));
    Deliver(V5Datagram(3)); // no such directory
    session.SetTraceMode(FALSE);
    CAddressPrefix elsewhere;
    std::string error;
    ASSERT_TRUE(CAddressPrefix::Parse("192.0.2.0/24", elsewhere, error)) << error;
    session.SetAllowList({elsewhere});
    Deliver(V5Datagram(4)); // not from an allowed sender

    const std::vector<EDatagramOutcome> expected = {
        EDatagramOutcome::Packet,    EDatagramOutcome::Ignored, EDatagramOutcome::DecodeFailure,
        EDatagramOutcome::Malformed, EDatagramOutcome::Traced,  EDatagramOutcome::TraceFailure,
        EDatagramOutcome::Refused};
    EXPECT_EQ(outcomes, expected);
    EXPECT_EQ(sizes, (std::vector<size_t>{24, 1, 2, 3, 24, 24, 24}));
    const CNetFlowSession::Statistics& s = session.GetStatistics();
    EXPECT_EQ(s.datagrams, 7u);
    EXPECT_EQ(s.packets, 1u);
    EXPECT_EQ(s.ignored, 1u);
    EXPECT_EQ(s.decodeFailures, 1u);
    EXPECT_EQ(s.malformed, 1u);
    EXPECT_EQ(s.traced, 1u);
    EXPECT_EQ(s.traceFailures, 1u);
    EXPECT_EQ(s.refused, 1u);
    std::error_code ignored;
    fs::remove_all(pattern, ignored);
}

TEST_F(ReceivePathTest, PacketKindsGetTheSessionsOptionsAndTheExporter) {
    CDecodeOptions options;
    options.templateScope = ETemplateScope::Exporter;
    options.sflowExact = true;
    options.maxTemplates = 7;
    session.SetDecodeOptions(options);
    EXPECT_EQ(session.GetDecodeOptions().maxTemplates, 7u);
    Deliver(NetFlowV9Datagram().build());
    Deliver(sflow::Datagram({}, {}));
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 2u);
    auto* v9 = dynamic_cast<CNetFlowPacketV9*>(packets[0]);
    auto* sflow = dynamic_cast<CSFlowPacket*>(packets[1]);
    ASSERT_NE(v9, nullptr);
    ASSERT_NE(sflow, nullptr);
    CExporterAddress exporter;
    exporter.bytes = {127, 0, 0, 1};
    exporter.length = 4;
    exporter.port = static_cast<uint16_t>(sender.LocalPort());
    for (const CDecodeContext* context : {&v9->GetDecodeContext(), &sflow->GetDecodeContext()}) {
        EXPECT_EQ(context->options.templateScope, ETemplateScope::Exporter);
        EXPECT_TRUE(context->options.sflowExact);
        EXPECT_FALSE(context->options.ipfix);
        EXPECT_EQ(context->options.maxTemplates, 7u);
        EXPECT_EQ(context->exporter, exporter);
    }
    DeletePackets(packets);
}

TEST_F(ReceivePathTest, WithoutOptionsThePacketKindsGetTheDefaultsAndTheExporter) {
    Deliver(NetFlowV9Datagram().build());
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 1u);
    auto* v9 = dynamic_cast<CNetFlowPacketV9*>(packets[0]);
    ASSERT_NE(v9, nullptr);
    EXPECT_TRUE(v9->GetDecodeContext().options.IsDefault());
    EXPECT_EQ(v9->GetDecodeContext().exporter.length, 4);
    EXPECT_EQ(v9->GetDecodeContext().exporter.port, sender.LocalPort());
    DeletePackets(packets);
}

TEST(ReceivePathDirectTest, DatagramsHandedOverDirectlyHaveAnUnknownExporter) {
    asio::io_context loop;
    TestSession session;
    ASSERT_TRUE(session.Init(loop, nullptr, 0, L""));
    CNetFlowSocket socket(&session);
    EXPECT_EQ(socket.OnReceive(NetFlowV9Datagram().build(), L"192.0.2.1", 2055), EDatagramOutcome::Packet);
    EXPECT_EQ(socket.OnReceive(ByteBuilder().u8(1).build(), L"192.0.2.1", 2055), EDatagramOutcome::Ignored);
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 1u);
    auto* v9 = dynamic_cast<CNetFlowPacketV9*>(packets[0]);
    ASSERT_NE(v9, nullptr);
    EXPECT_EQ(v9->GetDecodeContext().exporter, CExporterAddress());
    EXPECT_EQ(v9->GetSenderIPAddress(), L"192.0.2.1");
    EXPECT_EQ(session.GetDatagramInfo(), nullptr);
    session.Stop();
    DeletePackets(packets);
}
