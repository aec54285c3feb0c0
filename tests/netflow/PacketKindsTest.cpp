// Behaviour every fixed-format NetFlow packet kind shares: fresh state, copy rules, time and uptime texts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

// A valid two-record datagram of each kind with the given export seconds and uptime.
template <class Packet>
CByteArray Sample(uint32_t unixSecs, uint32_t sysUptime);

template <>
CByteArray Sample<CNetFlowPacketV1>(uint32_t unixSecs, uint32_t sysUptime) {
    return Datagram(V1Header{.count = 2, .sysUptime = sysUptime, .unixSecs = unixSecs},
                    V1Record{.common = {.srcAddr = IPv4(10, 0, 0, 1)}, .prot = 6}, V1Record{.prot = 17});
}

template <>
CByteArray Sample<CNetFlowPacketV5>(uint32_t unixSecs, uint32_t sysUptime) {
    return Datagram(V5Header{.count = 2, .sysUptime = sysUptime, .unixSecs = unixSecs, .flowSequence = 3},
                    V5Record{.common = {.srcAddr = IPv4(10, 0, 0, 1)}, .prot = 6}, V5Record{.srcAS = 9});
}

template <>
CByteArray Sample<CNetFlowPacketV7>(uint32_t unixSecs, uint32_t sysUptime) {
    return Datagram(V7Header{.count = 2, .sysUptime = sysUptime, .unixSecs = unixSecs},
                    V7Record{.common = {.srcAddr = IPv4(10, 0, 0, 1)}, .flags = 1},
                    V7Record{.routerSC = 1u << 24});
}

template <>
CByteArray Sample<CNetFlowPacketV8>(uint32_t unixSecs, uint32_t sysUptime) {
    return Datagram(V8Header{.count = 2, .sysUptime = sysUptime, .unixSecs = unixSecs, .aggregation = 4},
                    V8RouterOnePrefixRecord{.prefix = IPv4(10, 0, 0, 0), .mask = 8},
                    V8RouterOnePrefixRecord{.as = 7});
}

template <class Packet>
Packet DecodedSample(uint32_t unixSecs = 1000000000, uint32_t sysUptime = 0) {
    Packet packet;
    EXPECT_EQ(packet.Decode(Sample<Packet>(unixSecs, sysUptime)), 1);
    return packet;
}

// Replaces the first line (the sender line) of a packet text.
CString WithSenderLine(const CString& text, const CString& senderLine) {
    return senderLine + text.substr(text.find(L"\r\n"));
}

} // namespace

template <class Packet>
class NetFlowPacketKind : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* tz = std::getenv("TZ"))
            savedTz_ = tz;
        UseTimeZone("UTC0");
    }
    void TearDown() override {
        if (savedTz_)
            setenv("TZ", savedTz_->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    static void UseTimeZone(const char* tz) {
        setenv("TZ", tz, 1);
        tzset();
    }

private:
    std::optional<std::string> savedTz_;
};

using Kinds = ::testing::Types<CNetFlowPacketV1, CNetFlowPacketV5, CNetFlowPacketV7, CNetFlowPacketV8>;
TYPED_TEST_SUITE(NetFlowPacketKind, Kinds);

TYPED_TEST(NetFlowPacketKind, FreshPacketHasNoSenderAndIsEmpty) {
    TypeParam packet;
    EXPECT_EQ(packet.GetSenderIPAddress(), L"");
    EXPECT_EQ(packet.GetSenderPort(), 0);
    EXPECT_NE(packet.IsEmpty(), 0);
    EXPECT_EQ(packet.ToString().rfind(L"NetFlow packet received from: :0\r\n", 0), 0u);
}

TYPED_TEST(NetFlowPacketKind, CopyConstructorCopiesSenderAndContent) {
    TypeParam source = DecodedSample<TypeParam>();
    source.SetSenderInfo(L"192.0.2.1", 2055);
    TypeParam copy(source);
    EXPECT_EQ(copy.GetSenderIPAddress(), L"192.0.2.1");
    EXPECT_EQ(copy.GetSenderPort(), 2055);
    EXPECT_EQ(copy.GetSize(), 2);
    EXPECT_EQ(copy.ToString(), source.ToString());
}

TYPED_TEST(NetFlowPacketKind, AssignmentCopiesSenderAndContent) {
    TypeParam source = DecodedSample<TypeParam>();
    source.SetSenderInfo(L"192.0.2.1", 2055);
    TypeParam target;
    target.SetSenderInfo(L"198.51.100.1", 9);
    TypeParam& result = (target = source);
    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.GetSenderIPAddress(), L"192.0.2.1");
    EXPECT_EQ(target.GetSenderPort(), 2055);
    EXPECT_EQ(target.ToString(), source.ToString());
}

TYPED_TEST(NetFlowPacketKind, CopyTakesHeaderAndRecordsButKeepsTheTargetsSender) {
    TypeParam source = DecodedSample<TypeParam>();
    source.SetSenderInfo(L"192.0.2.1", 2055);
    TypeParam target;
    target.SetSenderInfo(L"198.51.100.1", 9);
    target.Copy(source);
    EXPECT_EQ(target.GetSenderIPAddress(), L"198.51.100.1");
    EXPECT_EQ(target.GetSenderPort(), 9);
    EXPECT_EQ(target.GetSize(), 2);
    EXPECT_EQ(target.ToString(),
              WithSenderLine(source.ToString(), L"NetFlow packet received from: 198.51.100.1:9"));
}

TYPED_TEST(NetFlowPacketKind, CopyReplacesRecordsAlreadyHeld) {
    TypeParam target = DecodedSample<TypeParam>();
    EXPECT_EQ(target.Decode(Sample<TypeParam>(5, 5)), 1); // now four records
    TypeParam source = DecodedSample<TypeParam>();
    target.Copy(source);
    EXPECT_EQ(target.GetSize(), 2);
}

TYPED_TEST(NetFlowPacketKind, TimestampIsExportSecondsInLocalTime) {
    TypeParam packet = DecodedSample<TypeParam>(1000000000);
    EXPECT_EQ(packet.GetTimestamp(), L"09/09/2001 01:46:40");
    this->UseTimeZone("XYZ-2"); // two hours east of UTC
    EXPECT_EQ(packet.GetTimestamp(), L"09/09/2001 03:46:40");
}

TYPED_TEST(NetFlowPacketKind, TimestampAgreesWithTheRuntimesLocalTime) {
    this->UseTimeZone("ABC+5DEF,M3.2.0,M11.1.0");
    const uint32_t seconds = 1500000000;
    TypeParam packet = DecodedSample<TypeParam>(seconds);
    time_t t = seconds;
    struct tm local {};
    ASSERT_NE(localtime_r(&t, &local), nullptr);
    wchar_t expected[128];
    ASSERT_GT(wcsftime(expected, 128, L"%m/%d/%Y %H:%M:%S", &local), 0u);
    EXPECT_EQ(packet.GetTimestamp(), expected);
    EXPECT_EQ(packet.GetTimestamp(), L"07/13/2017 22:40:00");
}

TYPED_TEST(NetFlowPacketKind, TimestampIsTheSameTextTwice) {
    TypeParam packet = DecodedSample<TypeParam>(1234567890);
    CString first = packet.GetTimestamp();
    struct timespec pause {
        0, 20 * 1000 * 1000
    };
    nanosleep(&pause, nullptr);
    EXPECT_EQ(packet.GetTimestamp(), first);
    EXPECT_EQ(first, L"02/13/2009 23:31:30");
}

TYPED_TEST(NetFlowPacketKind, TimestampOfZeroSecondsIsTheEpoch) {
    EXPECT_EQ(TypeParam().GetTimestamp(), L"01/01/1970 00:00:00");
}

TYPED_TEST(NetFlowPacketKind, TimestampOfLargestSignedSecondsStillConverts) {
    EXPECT_EQ(DecodedSample<TypeParam>(0x7FFFFFFF).GetTimestamp(), L"01/19/2038 03:14:07");
}

TYPED_TEST(NetFlowPacketKind, TimestampOfSecondsWithBit31SetThrows) {
    TypeParam packet = DecodedSample<TypeParam>(0x80000000u);
    EXPECT_THROW(packet.GetTimestamp(), CInvalidArgException);
    TypeParam last = DecodedSample<TypeParam>(0xFFFFFFFFu);
    EXPECT_THROW(last.GetTimestamp(), CInvalidArgException);
}

TYPED_TEST(NetFlowPacketKind, SysUpTimeIsTheHeaderUptimeInHundredths) {
    EXPECT_EQ(TypeParam().GetSysUpTime(), L"(0) 0:00:00.00");
    EXPECT_EQ(DecodedSample<TypeParam>(0, 4294967295u).GetSysUpTime(), L"(4294967295) 497 days, 2:27:52.95");
    EXPECT_EQ(DecodedSample<TypeParam>(0, 8640000).GetSysUpTime(), L"(8640000) 1 day 0:00:00.00");
}

TYPED_TEST(NetFlowPacketKind, WorksThroughTheBaseInterfaceAndDeletesThroughIt) {
    std::unique_ptr<CTPAbstractPacket> packet = std::make_unique<TypeParam>();
    EXPECT_EQ(packet->Decode(Sample<TypeParam>(1000000000, 100)), 1);
    EXPECT_EQ(packet->GetSize(), 2);
    EXPECT_EQ(packet->IsEmpty(), 0);
    EXPECT_EQ(packet->GetSysUpTime(), L"(100) 0:00:01.00");
    CUIntArray ids;
    CStringArray values;
    packet->GetRecordFields(1, ids, values);
    EXPECT_FALSE(ids.empty());
    EXPECT_EQ(ids.size(), values.size());
    EXPECT_THROW(packet->GetRecordFields(2, ids, values), CInvalidArgException);
}

TYPED_TEST(NetFlowPacketKind, KeepsTheBasesDatabaseHook) {
    // Only NetFlow v9 writes rows; these kinds must not override the base's empty PrepareSQL.
    static_assert(std::is_same_v<decltype(&TypeParam::PrepareSQL),
                                 void (CTPAbstractPacket::*)(int&, CODBCRecordset&, CODBCRecordset&)>);
    SUCCEED();
}

TEST(NetFlowPacketKinds, ProtocolTexts) {
    EXPECT_EQ(CNetFlowPacketV1().GetProtocol(), L"NetFlow v1");
    EXPECT_EQ(CNetFlowPacketV5().GetProtocol(), L"NetFlow v5");
    EXPECT_EQ(CNetFlowPacketV7().GetProtocol(), L"NetFlow v7");
    EXPECT_EQ(CNetFlowPacketV8().GetProtocol(), L"NetFlow v8");
}
