#include <gtest/gtest.h>

#include <type_traits>

#include "util/NetFlowIPAddress.h"

TEST(NetFlowIPAddress, DefaultIsEmptyAndRendersEmpty) {
    CNetFlowIPAddress address;
    EXPECT_TRUE(address.m_address.empty());
    EXPECT_EQ(address.ToString(), L"");
}

TEST(NetFlowIPAddress, FromHostOrderValueStoresMostSignificantByteFirst) {
    CNetFlowIPAddress address(0xC0A8010Au);
    EXPECT_EQ(address.m_address, (CUIntArray{192, 168, 1, 10}));
    EXPECT_EQ(address.ToString(), L"192.168.1.10");
}

TEST(NetFlowIPAddress, IPv4ExtremesRenderDotted) {
    EXPECT_EQ(CNetFlowIPAddress(0u).ToString(), L"0.0.0.0");
    EXPECT_EQ(CNetFlowIPAddress(0xFFFFFFFFu).ToString(), L"255.255.255.255");
}

TEST(NetFlowIPAddress, FormatIPv4MatchesConstructorForm) {
    EXPECT_EQ(CNetFlowIPAddress::FormatIPv4(0x0A000001u), L"10.0.0.1");
    EXPECT_EQ(CNetFlowIPAddress::FormatIPv4(0x7F000001u), L"127.0.0.1");
}

TEST(NetFlowIPAddress, SixteenZeroBytesRenderEightZeroGroups) {
    CNetFlowIPAddress address;
    address.m_address.assign(16, 0);
    EXPECT_EQ(address.ToString(), L"0000:0000:0000:0000:0000:0000:0000:0000");
}

TEST(NetFlowIPAddress, IPv6KeepsLeadingZerosAndUsesUpperCaseWithoutShortening) {
    CNetFlowIPAddress address;
    address.m_address = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x02, 0xB3, 0xFF, 0xFE, 0x1E, 0x83, 0x29};
    EXPECT_EQ(address.ToString(), L"FE80:0000:0000:0000:0202:B3FF:FE1E:8329");
}

TEST(NetFlowIPAddress, OddElementCountDropsUnfinishedGroup) {
    CNetFlowIPAddress address;
    address.m_address = {0x12, 0x34, 0xAB};
    EXPECT_EQ(address.ToString(), L"1234");
}

TEST(NetFlowIPAddress, SingleElementGivesEmptyText) {
    CNetFlowIPAddress address;
    address.m_address = {0x12};
    EXPECT_EQ(address.ToString(), L"");
}

TEST(NetFlowIPAddress, NonFourCountsUseHexGroups) {
    CNetFlowIPAddress address;
    address.m_address = {0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};
    EXPECT_EQ(address.ToString(), L"0A0B:0C0D:0E0F");
}

TEST(NetFlowIPAddress, CopyAndAssignmentCopyTheElements) {
    CNetFlowIPAddress original(0x01020304u);
    CNetFlowIPAddress copy(original);
    CNetFlowIPAddress assigned;
    assigned = original;
    original.m_address[0] = 99;
    EXPECT_EQ(copy.ToString(), L"1.2.3.4");
    EXPECT_EQ(assigned.ToString(), L"1.2.3.4");
}

TEST(NetFlowIPAddress, DestructorIsVirtual) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CNetFlowIPAddress>);
}

TEST(NetFlowIPAddress, FourElementsAbove255PrintAsSignedDecimal) {
    CNetFlowIPAddress address;
    address.m_address = {256, 0xFFFFFFFFu, 0x80000000u, 1};
    EXPECT_EQ(address.ToString(), L"256.-1.-2147483648.1");
}

TEST(NetFlowIPAddress, WideElementFillsGroupAlone) {
    CNetFlowIPAddress address;
    // 0x1234 gives four digits at once and closes its group.
    address.m_address = {0x1234, 0xAB, 0xCD};
    EXPECT_EQ(address.ToString(), L"1234:ABCD");
}

TEST(NetFlowIPAddress, OverlongGroupStopsFurtherOutput) {
    CNetFlowIPAddress address;
    // "12345" overshoots four characters, so the group never closes and nothing is emitted.
    address.m_address = {0x12345, 0x01, 0x02, 0x03, 0x04};
    EXPECT_EQ(address.ToString(), L"");
}
