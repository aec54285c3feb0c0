// Version 10 datagrams become IPFIX packets when the session's decode options ask for IPFIX, and are
// ignored otherwise, as every unknown version is.

#include <gtest/gtest.h>

#include "ipfix/IPFIXPacket.h"
#include "session/SessionTestSupport.h"
#include "support/IPFIXDatagram.h"

using namespace tpnf::test;

namespace {

class IPFIXDispatch : public ::testing::Test {
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
    }
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> Deliver(const std::vector<uint8_t>& datagram) {
        const uint64_t before = session.GetStatistics().datagrams;
        sender.Send(port, datagram);
        EXPECT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }));
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
        session.GetPackets(packets);
        return packets;
    }

    asio::io_context loop;
    RecordingWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
};

// Template 40000 (an id no other test uses) with one record, from observation domain 4711.
std::vector<uint8_t> Message() {
    return IPFIXDatagram({.exportTime = 1700000000, .domain = 4711})
        .Template(40000, {{8, 4}, {7, 2}})
        .Data(40000, ByteBuilder().ipv4(10, 0, 0, 1).u16(5353))
        .build();
}

} // namespace

TEST_F(IPFIXDispatch, WithoutTheOptionVersionTenIsIgnored) {
    EXPECT_TRUE(Deliver(Message()).empty());
    EXPECT_EQ(session.GetStatistics().ignored, 1u);
    EXPECT_EQ(session.GetDecodeOptions().ipfix, false);
}

TEST_F(IPFIXDispatch, WithTheOptionVersionTenBecomesAnIPFIXPacket) {
    CDecodeOptions options;
    options.ipfix = true;
    session.SetDecodeOptions(options);
    auto packets = Deliver(Message());
    ASSERT_EQ(packets.size(), 1u);
    auto* packet = dynamic_cast<CIPFIXPacket*>(packets[0]);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->GetProtocol(), L"IPFIX");
    EXPECT_EQ(packet->GetSenderIPAddress(), L"127.0.0.1");
    EXPECT_EQ(packet->GetSenderPort(), static_cast<int>(sender.LocalPort()));
    ASSERT_EQ(packet->GetSize(), 1);
    EXPECT_EQ(packet->GetRecords()[0].ToString(), L"IPV4_SRC_ADDR=10.0.0.1\r\nL4_SRC_PORT=5353\r\n");
    EXPECT_TRUE(packet->GetDecodeContext().options.ipfix);
    DeletePackets(packets);
}

TEST_F(IPFIXDispatch, AMalformedIPFIXMessageIsADecodeFailure) {
    CDecodeOptions options;
    options.ipfix = true;
    session.SetDecodeOptions(options);
    EXPECT_TRUE(Deliver(IPFIXDatagram().Length(200)).empty()); // claims more than was sent
    EXPECT_EQ(session.GetStatistics().decodeFailures, 1u);
    EXPECT_EQ(owner.Count(WM_NETFLOW_ERROR), 1u);
}
