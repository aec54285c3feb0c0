#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <type_traits>

#include "packet/TPAbstractPacket.h"

namespace {

// The smallest concrete packet: only what the base class needs to be instantiated and observed.
class ProbePacket : public CTPAbstractPacket {
public:
    explicit ProbePacket(bool* destroyed = nullptr) : m_destroyed(destroyed) {}
    ~ProbePacket() override {
        if (m_destroyed != nullptr)
            *m_destroyed = true;
    }

    int Decode(const CByteArray& datagram) override { return datagram.empty() ? 0 : 1; }
    CString ToString() const override { return L"probe"; }
    int64_t GetSize() const override { return 0; }
    BOOL IsEmpty() const override { return TRUE; }
    CString GetProtocol() const override { return L"probe"; }
    CString GetTimestamp() const override { return FormatTimestamp(0); }
    CString GetSysUpTime() const override { return L""; }
    void GetRecordFields(int, CUIntArray&, CStringArray&) override { AfxThrowInvalidArgException(); }

    // The protected base copy, reachable from a derived kind only.
    void CopyBase(const CTPAbstractPacket& other) { Copy(other); }

private:
    bool* m_destroyed;
};

// Runs each timestamp test in a fixed zone and puts the caller's zone back afterwards.
class TimestampTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* zone = std::getenv("TZ"))
            m_savedZone = zone;
        UseZone("UTC0");
    }
    void TearDown() override {
        if (m_savedZone)
            setenv("TZ", m_savedZone->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    static void UseZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

private:
    std::optional<std::string> m_savedZone;
};

} // namespace

TEST(TPAbstractPacket, FreshPacketHasEmptyAddressAndPortZero) {
    ProbePacket packet;
    EXPECT_EQ(packet.GetSenderIPAddress(), L"");
    EXPECT_EQ(packet.GetSenderPort(), 0);
}

TEST(TPAbstractPacket, SettersAndGetters) {
    ProbePacket packet;
    packet.SetSenderIPAddress(L"10.1.2.3");
    packet.SetSenderPort(2055);
    EXPECT_EQ(packet.GetSenderIPAddress(), L"10.1.2.3");
    EXPECT_EQ(packet.GetSenderPort(), 2055);
}

TEST(TPAbstractPacket, SetSenderInfoSetsBoth) {
    ProbePacket packet;
    packet.SetSenderInfo(L"192.0.2.7", 65535u);
    EXPECT_EQ(packet.GetSenderIPAddress(), L"192.0.2.7");
    EXPECT_EQ(packet.GetSenderPort(), 65535);
}

TEST(TPAbstractPacket, PortIsReturnedAsSigned32Bit) {
    ProbePacket packet;
    packet.SetSenderInfo(L"a", 0xFFFFFFFFu);
    EXPECT_EQ(packet.GetSenderPort(), -1);
}

TEST(TPAbstractPacket, CopyConstructorCopiesAddressAndPort) {
    ProbePacket original;
    original.SetSenderInfo(L"10.0.0.9", 9996);
    ProbePacket copy(original);
    EXPECT_EQ(copy.GetSenderIPAddress(), L"10.0.0.9");
    EXPECT_EQ(copy.GetSenderPort(), 9996);
}

TEST(TPAbstractPacket, AssignmentCopiesAddressAndPortAndReturnsSelf) {
    ProbePacket original;
    original.SetSenderInfo(L"10.0.0.9", 9996);
    ProbePacket target;
    target.SetSenderInfo(L"1.1.1.1", 1);
    CTPAbstractPacket& result = (target = original);
    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.GetSenderIPAddress(), L"10.0.0.9");
    EXPECT_EQ(target.GetSenderPort(), 9996);
}

TEST(TPAbstractPacket, ProtectedCopyCopiesAddressAndPort) {
    ProbePacket original;
    original.SetSenderInfo(L"172.16.0.1", 6343);
    ProbePacket target;
    target.CopyBase(original);
    EXPECT_EQ(target.GetSenderIPAddress(), L"172.16.0.1");
    EXPECT_EQ(target.GetSenderPort(), 6343);
}

TEST(TPAbstractPacket, CopiesAreIndependent) {
    ProbePacket original;
    original.SetSenderInfo(L"10.0.0.9", 9996);
    ProbePacket copy(original);
    original.SetSenderInfo(L"10.0.0.10", 1);
    EXPECT_EQ(copy.GetSenderIPAddress(), L"10.0.0.9");
    EXPECT_EQ(copy.GetSenderPort(), 9996);
}

TEST(TPAbstractPacket, DeletingThroughBaseRunsDerivedDestructor) {
    bool destroyed = false;
    CTPAbstractPacket* packet = new ProbePacket(&destroyed);
    delete packet;
    EXPECT_TRUE(destroyed);
}

TEST(TPAbstractPacket, IsAbstractWithVirtualDestructor) {
    EXPECT_TRUE(std::is_abstract_v<CTPAbstractPacket>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CTPAbstractPacket>);
}

TEST(TPAbstractPacket, TimestampFormatText) {
    EXPECT_EQ(CTPAbstractPacket::TIMESTAMP_FORMAT, L"%m/%d/%Y %H:%M:%S");
}

TEST_F(TimestampTest, EpochInUtc) {
    EXPECT_EQ(CTPAbstractPacket::FormatTimestamp(0), L"01/01/1970 00:00:00");
}

TEST_F(TimestampTest, MonthDayFourDigitYear24HourClock) {
    EXPECT_EQ(CTPAbstractPacket::FormatTimestamp(1234567890), L"02/13/2009 23:31:30");
    EXPECT_EQ(CTPAbstractPacket::FormatTimestamp(1700000000), L"11/14/2023 22:13:20");
}

TEST_F(TimestampTest, LargestSigned32BitSeconds) {
    EXPECT_EQ(CTPAbstractPacket::FormatTimestamp(INT32_MAX), L"01/19/2038 03:14:07");
}

TEST_F(TimestampTest, ConvertsToLocalTime) {
    UseZone("EST5");
    EXPECT_EQ(CTPAbstractPacket::FormatTimestamp(0), L"12/31/1969 19:00:00");
    UseZone("JST-9");
    EXPECT_EQ(CTPAbstractPacket::FormatTimestamp(1234567890), L"02/14/2009 08:31:30");
}

TEST_F(TimestampTest, SameSecondsGiveSameTextTwice) {
    CString first = CTPAbstractPacket::FormatTimestamp(1000000000);
    CString second = CTPAbstractPacket::FormatTimestamp(1000000000);
    EXPECT_EQ(first, L"09/09/2001 01:46:40");
    EXPECT_EQ(first, second);
}

TEST_F(TimestampTest, NegativeSecondsThrow) {
    EXPECT_THROW(CTPAbstractPacket::FormatTimestamp(-1), CInvalidArgException);
    // An export-seconds word of 0x80000000 read as signed.
    EXPECT_THROW(CTPAbstractPacket::FormatTimestamp(INT32_MIN), CInvalidArgException);
}

TEST_F(TimestampTest, UnconvertibleSecondsThrow) {
    EXPECT_THROW(CTPAbstractPacket::FormatTimestamp(INT64_MAX), CInvalidArgException);
}
