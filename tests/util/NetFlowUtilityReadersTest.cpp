#include <gtest/gtest.h>

#include <climits>

#include "support/ByteBuilder.h"
#include "util/NetFlowUtility.h"

using tpnf::test::ByteBuilder;

// --- GetUByte ---------------------------------------------------------------------------------------

TEST(GetUByte, ReadsByteAsUnsignedValue) {
    CByteArray data = ByteBuilder().u8(0x00).u8(0xFF).u8(0x80);
    EXPECT_EQ(CNetFlowUtility::GetUByte(data, 0), 0);
    EXPECT_EQ(CNetFlowUtility::GetUByte(data, 1), 255);
    EXPECT_EQ(CNetFlowUtility::GetUByte(data, 2), 128);
}

TEST(GetUByte, OffsetAtOrPastEndOrNegativeThrows) {
    CByteArray data = ByteBuilder().u8(1).u8(2);
    EXPECT_THROW(CNetFlowUtility::GetUByte(data, 2), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetUByte(data, -1), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetUByte(data, INT_MAX), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetUByte(CByteArray(), 0), CInvalidArgException);
}

// --- GetUShort / GetUShortOffset ----------------------------------------------------------------------

TEST(GetUShort, ComposesBigEndian) {
    CByteArray data = ByteBuilder().u8(0x12).u8(0x34);
    EXPECT_EQ(CNetFlowUtility::GetUShort(data, 0), 0x1234);
}

TEST(GetUShort, AllOnesIsUnsigned65535) {
    CByteArray data = ByteBuilder().u16(0xFFFF);
    EXPECT_EQ(CNetFlowUtility::GetUShort(data, 0), 65535);
}

TEST(GetUShort, OneByteArrayThrows) {
    CByteArray data = ByteBuilder().u8(0x12);
    EXPECT_THROW(CNetFlowUtility::GetUShort(data, 0), CInvalidArgException);
}

TEST(GetUShort, SecondByteOutOfRangeThrows) {
    CByteArray data = ByteBuilder().u8(0x12).u8(0x34).u8(0x56);
    EXPECT_EQ(CNetFlowUtility::GetUShort(data, 1), 0x3456);
    EXPECT_THROW(CNetFlowUtility::GetUShort(data, 2), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetUShort(data, -1), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetUShort(data, INT_MAX), CInvalidArgException);
}

TEST(GetUShortOffset, AdvancesCursorByTwo) {
    CByteArray data = ByteBuilder().u16(0xABCD).u16(0x0102);
    int offset = 0;
    EXPECT_EQ(CNetFlowUtility::GetUShortOffset(data, offset), 0xABCD);
    EXPECT_EQ(offset, 2);
    EXPECT_EQ(CNetFlowUtility::GetUShortOffset(data, offset), 0x0102);
    EXPECT_EQ(offset, 4);
}

TEST(GetUShortOffset, FailureLeavesCursorUnchanged) {
    CByteArray data = ByteBuilder().u16(0xABCD).u8(0x01);
    int offset = 2;
    EXPECT_THROW(CNetFlowUtility::GetUShortOffset(data, offset), CInvalidArgException);
    EXPECT_EQ(offset, 2);
}

// --- GetULong / GetULongOffset ------------------------------------------------------------------------

TEST(GetULong, ComposesBigEndian) {
    CByteArray data = ByteBuilder().u32(0x01020304);
    EXPECT_EQ(CNetFlowUtility::GetULong(data, 0), 0x01020304);
}

TEST(GetULong, TopBitSetKeepsBitsInSignedValue) {
    CByteArray data = ByteBuilder().bytes({0xFF, 0xFF, 0xFF, 0xFE});
    int32_t value = CNetFlowUtility::GetULong(data, 0);
    EXPECT_EQ(value, -2);
    EXPECT_EQ(static_cast<uint32_t>(value), 0xFFFFFFFEu);
}

TEST(GetULong, AnyByteOutOfRangeThrows) {
    CByteArray data = ByteBuilder().u32(0x01020304).u8(5);
    EXPECT_EQ(CNetFlowUtility::GetULong(data, 1), 0x02030405);
    EXPECT_THROW(CNetFlowUtility::GetULong(data, 2), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetULong(data, 4), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetULong(data, -1), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::GetULong(data, INT_MAX - 1), CInvalidArgException);
}

TEST(GetULongOffset, AdvancesCursorByFour) {
    CByteArray data = ByteBuilder().u32(7).u32(0x80000000);
    int offset = 0;
    EXPECT_EQ(CNetFlowUtility::GetULongOffset(data, offset), 7);
    EXPECT_EQ(offset, 4);
    EXPECT_EQ(CNetFlowUtility::GetULongOffset(data, offset), INT32_MIN);
    EXPECT_EQ(offset, 8);
}

TEST(GetULongOffset, FailureLeavesCursorUnchanged) {
    CByteArray data = ByteBuilder().u32(7).u16(1);
    int offset = 4;
    EXPECT_THROW(CNetFlowUtility::GetULongOffset(data, offset), CInvalidArgException);
    EXPECT_EQ(offset, 4);
}

// --- GetULongLong / GetULongLongOffset ----------------------------------------------------------------

TEST(GetULongLong, LowWordWithTopBitSetIsSignExtended) {
    CByteArray data = ByteBuilder().bytes({0x00, 0x00, 0x00, 0x01, 0x80, 0x00, 0x00, 0x00});
    EXPECT_EQ(CNetFlowUtility::GetULongLong(data, 0), int64_t{1} << 31);
}

TEST(GetULongLong, LowWordBelowTopBitIsExact) {
    CByteArray data = ByteBuilder().bytes({0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x05});
    EXPECT_EQ(CNetFlowUtility::GetULongLong(data, 0), int64_t{4294967301});
}

TEST(GetULongLong, HighWordWithTopBitSetGivesNegativeValue) {
    CByteArray data = ByteBuilder().u32(0xFFFFFFFF).u32(0x00000002);
    EXPECT_EQ(CNetFlowUtility::GetULongLong(data, 0), int64_t{-4294967294});
}

TEST(GetULongLong, AllOnesIsMinusOneMinusTwoToThe32) {
    // hi = -1, lo = -1: (-1 << 32) + (-1).
    CByteArray data = ByteBuilder().u64(0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(CNetFlowUtility::GetULongLong(data, 0), int64_t{-4294967297});
}

TEST(GetULongLong, TruncatedLowWordThrows) {
    CByteArray data = ByteBuilder().u32(1).u16(0).u8(0);
    EXPECT_THROW(CNetFlowUtility::GetULongLong(data, 0), CInvalidArgException);
}

TEST(GetULongLongOffset, AdvancesCursorByEightAndKeepsSignExtension) {
    CByteArray data = ByteBuilder().u32(0xAA).u32(2).u32(0x80000001);
    int offset = 4;
    EXPECT_EQ(CNetFlowUtility::GetULongLongOffset(data, offset), (int64_t{2} << 32) - 0x7FFFFFFF);
    EXPECT_EQ(offset, 12);
}

TEST(GetULongLongOffset, FailureLeavesCursorUnchanged) {
    CByteArray data = ByteBuilder().u32(0).u32(1).u32(2);
    int offset = 8;
    EXPECT_THROW(CNetFlowUtility::GetULongLongOffset(data, offset), CInvalidArgException);
    EXPECT_EQ(offset, 8);
}

// --- GetString ----------------------------------------------------------------------------------------

TEST(GetString, CharactersStartAtTheLengthWord) {
    CByteArray data = ByteBuilder().u32(3).text("AB");
    int length = -7;
    CString text = CNetFlowUtility::GetString(data, 0, length);
    EXPECT_EQ(length, 3);
    EXPECT_EQ(text, CString(L"\0\0\0", 3));
}

TEST(GetString, LengthBeyondTheWordTakesFollowingBytesAsCharacters) {
    CByteArray data = ByteBuilder().u32(6).text("eth0");
    int length = 0;
    CString text = CNetFlowUtility::GetString(data, 0, length);
    EXPECT_EQ(length, 6);
    EXPECT_EQ(text, CString(L"\0\0\0\x06"
                            L"et",
                            6));
}

TEST(GetString, ZeroLengthGivesEmptyText) {
    CByteArray data = ByteBuilder().u32(0);
    int length = 99;
    EXPECT_EQ(CNetFlowUtility::GetString(data, 0, length), L"");
    EXPECT_EQ(length, 0);
}

TEST(GetString, NegativeLengthGivesEmptyTextAndReportsIt) {
    CByteArray data = ByteBuilder().u32(0xFFFFFFFF);
    int length = 0;
    EXPECT_EQ(CNetFlowUtility::GetString(data, 0, length), L"");
    EXPECT_EQ(length, -1);
}

TEST(GetString, ReadsAtGivenOffsetWithoutPaddingAndBytesAboveAsciiKeepTheirCode) {
    CByteArray data = ByteBuilder().u16(0xEEEE).u32(5).u8(0xE9).zeros(3);
    int length = 0;
    CString text = CNetFlowUtility::GetString(data, 2, length);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(text, CString(L"\0\0\0\x05\xE9", 5));
}

TEST(GetString, LengthPastTheEndThrowsAfterReportingLength) {
    CByteArray data = ByteBuilder().u32(8).text("abc");
    int length = 0;
    EXPECT_THROW(CNetFlowUtility::GetString(data, 0, length), CInvalidArgException);
    EXPECT_EQ(length, 8);
}

TEST(GetString, TruncatedLengthWordThrows) {
    CByteArray data = ByteBuilder().u16(0).u8(1);
    int length = 42;
    EXPECT_THROW(CNetFlowUtility::GetString(data, 0, length), CInvalidArgException);
    EXPECT_EQ(length, 42);
}

// --- GetAddress ---------------------------------------------------------------------------------------

TEST(GetAddress, Type1ReadsIPv4AndReturns8) {
    CByteArray data = ByteBuilder().u32(1).ipv4(192, 168, 1, 2);
    CNetFlowIPAddress address;
    EXPECT_EQ(CNetFlowUtility::GetAddress(data, 0, address), 8);
    EXPECT_EQ(address.m_address, (CUIntArray{192, 168, 1, 2}));
    EXPECT_EQ(address.ToString(), L"192.168.1.2");
}

TEST(GetAddress, Type2ReadsSixteenBytesAndReturns20) {
    CByteArray data = ByteBuilder()
                          .u32(0xDEADBEEF) // unrelated bytes before the address
                          .u32(2)
                          .bytes({0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01});
    CNetFlowIPAddress address;
    EXPECT_EQ(CNetFlowUtility::GetAddress(data, 4, address), 20);
    ASSERT_EQ(address.m_address.size(), 16u);
    EXPECT_EQ(address.ToString(), L"2001:0DB8:0000:0000:0000:0000:0000:0001");
}

TEST(GetAddress, UnknownTypeReturnsMinusOneAndLeavesAddressUnchanged) {
    CNetFlowIPAddress address(0x0A000001);
    for (uint32_t type : {0u, 3u, 0xFFFFFFFFu}) {
        CByteArray data = ByteBuilder().u32(type).ipv4(1, 2, 3, 4);
        EXPECT_EQ(CNetFlowUtility::GetAddress(data, 0, address), -1) << type;
        EXPECT_EQ(address.ToString(), L"10.0.0.1") << type;
    }
}

TEST(GetAddress, TruncatedIPv4ThrowsAndLeavesAddressUnchanged) {
    CByteArray data = ByteBuilder().u32(1).u8(192).u8(168).u8(1);
    CNetFlowIPAddress address(0x0A000001);
    EXPECT_THROW(CNetFlowUtility::GetAddress(data, 0, address), CInvalidArgException);
    EXPECT_EQ(address.ToString(), L"10.0.0.1");
}

TEST(GetAddress, TruncatedIPv6ThrowsAndLeavesAddressUnchanged) {
    CByteArray data = ByteBuilder().u32(2).zeros(15);
    CNetFlowIPAddress address(0x0A000001);
    EXPECT_THROW(CNetFlowUtility::GetAddress(data, 0, address), CInvalidArgException);
    EXPECT_EQ(address.ToString(), L"10.0.0.1");
}

TEST(GetAddress, TruncatedTypeWordThrows) {
    CByteArray data = ByteBuilder().u16(0).u8(1);
    CNetFlowIPAddress address;
    EXPECT_THROW(CNetFlowUtility::GetAddress(data, 0, address), CInvalidArgException);
}

// --- GetOpaque ----------------------------------------------------------------------------------------

TEST(GetOpaque, CopiesLengthBytesFromOffset) {
    CByteArray data = ByteBuilder().u8(9).bytes({0xAA, 0xBB, 0xCC}).u8(9);
    CByteArray out = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(CNetFlowUtility::GetOpaque(data, 1, 3, out), 3);
    EXPECT_EQ(out, (CByteArray{0xAA, 0xBB, 0xCC}));
}

TEST(GetOpaque, ZeroLengthEmptiesOutputAndReturnsZero) {
    CByteArray data = ByteBuilder().u8(1);
    CByteArray out = {7, 7};
    EXPECT_EQ(CNetFlowUtility::GetOpaque(data, 0, 0, out), 0);
    EXPECT_TRUE(out.empty());
}

TEST(GetOpaque, PastTheEndCopiesWhatFitsThenThrows) {
    CByteArray data = ByteBuilder().bytes({0x11, 0x22, 0x33});
    CByteArray out;
    EXPECT_THROW(CNetFlowUtility::GetOpaque(data, 1, 4, out), CInvalidArgException);
    // The output was sized first; the bytes in range were copied before the failure.
    EXPECT_EQ(out, (CByteArray{0x22, 0x33, 0x00, 0x00}));
}

TEST(GetOpaque, OffsetPastTheEndThrowsWithOutputSized) {
    CByteArray data = ByteBuilder().bytes({0x11, 0x22});
    CByteArray out = {9};
    EXPECT_THROW(CNetFlowUtility::GetOpaque(data, 5, 2, out), CInvalidArgException);
    // Resizing keeps the elements that were there; nothing was copied.
    EXPECT_EQ(out, (CByteArray{0x09, 0x00}));
}

TEST(GetOpaque, NegativeLengthThrows) {
    CByteArray data = ByteBuilder().bytes({0x11, 0x22});
    CByteArray out = {9};
    EXPECT_THROW(CNetFlowUtility::GetOpaque(data, 0, -1, out), CInvalidArgException);
    EXPECT_EQ(out, (CByteArray{9})); // the resize itself failed
}

// --- GetIntArray --------------------------------------------------------------------------------------

TEST(GetIntArray, AppendsCountWordsAndAdvancesPastThem) {
    CByteArray data = ByteBuilder().u32(2).u32(10).u32(0xFFFFFFFF).u32(99);
    int offset = 0;
    CUIntArray out = {5};
    CNetFlowUtility::GetIntArray(data, offset, out);
    EXPECT_EQ(out, (CUIntArray{5, 10, 0xFFFFFFFFu}));
    EXPECT_EQ(offset, 12);
}

TEST(GetIntArray, CountZeroConsumesFourBytesAndAppendsNothing) {
    CByteArray data = ByteBuilder().u32(0).u32(10);
    int offset = 0;
    CUIntArray out = {1, 2};
    CNetFlowUtility::GetIntArray(data, offset, out);
    EXPECT_EQ(out, (CUIntArray{1, 2}));
    EXPECT_EQ(offset, 4);
}

TEST(GetIntArray, NegativeCountConsumesFourBytesAndAppendsNothing) {
    CByteArray data = ByteBuilder().u32(0x80000000).u32(10);
    int offset = 0;
    CUIntArray out;
    CNetFlowUtility::GetIntArray(data, offset, out);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(offset, 4);
}

TEST(GetIntArray, TruncatedArrayKeepsElementsReadAndCursorPastThem) {
    CByteArray data = ByteBuilder().u32(3).u32(10).u32(20).u16(0x0003);
    int offset = 0;
    CUIntArray out = {1};
    EXPECT_THROW(CNetFlowUtility::GetIntArray(data, offset, out), CInvalidArgException);
    EXPECT_EQ(out, (CUIntArray{1, 10, 20}));
    EXPECT_EQ(offset, 12);
}

TEST(GetIntArray, HugeCountFailsAtEndOfDataWithoutAllocatingForIt) {
    CByteArray data = ByteBuilder().u32(0x7FFFFFFF).u32(4);
    int offset = 0;
    CUIntArray out;
    EXPECT_THROW(CNetFlowUtility::GetIntArray(data, offset, out), CInvalidArgException);
    EXPECT_EQ(out, (CUIntArray{4}));
    EXPECT_EQ(offset, 8);
}

TEST(GetIntArray, TruncatedCountWordThrowsWithoutAdvancing) {
    CByteArray data = ByteBuilder().u16(1);
    int offset = 0;
    CUIntArray out;
    EXPECT_THROW(CNetFlowUtility::GetIntArray(data, offset, out), CInvalidArgException);
    EXPECT_EQ(offset, 0);
    EXPECT_TRUE(out.empty());
}

// --- Writers ------------------------------------------------------------------------------------------

TEST(SetUByte, StoresLowEightBits) {
    CByteArray data(2, 0);
    CNetFlowUtility::SetUByte(data, 1, 0x1AB);
    EXPECT_EQ(data, (CByteArray{0x00, 0xAB}));
}

TEST(SetUByte, OutOfRangeThrowsAndNeverGrows) {
    CByteArray data(2, 0);
    EXPECT_THROW(CNetFlowUtility::SetUByte(data, 2, 1), CInvalidArgException);
    EXPECT_THROW(CNetFlowUtility::SetUByte(data, -1, 1), CInvalidArgException);
    EXPECT_EQ(data, (CByteArray{0, 0}));
}

TEST(SetUShort, StoresLowSixteenBitsBigEndian) {
    CByteArray data(4, 0);
    CNetFlowUtility::SetUShort(data, 1, 0x7A1B2);
    EXPECT_EQ(data, (CByteArray{0x00, 0xA1, 0xB2, 0x00}));
}

TEST(SetUShort, FailingHighByteKeepsLowByteAlreadyWritten) {
    CByteArray data(2, 0);
    // Low byte goes to index 0 first, then the high byte to index -1 fails.
    EXPECT_THROW(CNetFlowUtility::SetUShort(data, -1, 0x1234), CInvalidArgException);
    EXPECT_EQ(data, (CByteArray{0x34, 0x00}));
}

TEST(SetUShort, FailingLowByteWritesNothing) {
    CByteArray data(2, 0);
    EXPECT_THROW(CNetFlowUtility::SetUShort(data, 1, 0x1234), CInvalidArgException);
    EXPECT_EQ(data, (CByteArray{0x00, 0x00}));
}

TEST(SetULong, StoresThirtyTwoBitsBigEndian) {
    CByteArray data(6, 0);
    CNetFlowUtility::SetULong(data, 1, static_cast<int32_t>(0xDEADBEEF));
    EXPECT_EQ(data, (CByteArray{0x00, 0xDE, 0xAD, 0xBE, 0xEF, 0x00}));
}

TEST(SetULong, FailingPartWayKeepsLowOrderBytesWritten) {
    CByteArray data(3, 0);
    // Bytes 7-0 to index 2 and 15-8 to index 1 are stored; bits 23-16 would go to index 0,
    // bits 31-24 to index -1, which fails.
    EXPECT_THROW(CNetFlowUtility::SetULong(data, -1, 0x11223344), CInvalidArgException);
    EXPECT_EQ(data, (CByteArray{0x22, 0x33, 0x44}));
}

TEST(SetULong, FailingFirstStoreWritesNothing) {
    CByteArray data(4, 0);
    EXPECT_THROW(CNetFlowUtility::SetULong(data, 1, 0x11223344), CInvalidArgException);
    EXPECT_EQ(data, (CByteArray{0, 0, 0, 0}));
}

TEST(Writers, RoundTripThroughReaders) {
    CByteArray data(7, 0);
    CNetFlowUtility::SetUByte(data, 0, 0xFE);
    CNetFlowUtility::SetUShort(data, 1, 0xBEEF);
    CNetFlowUtility::SetULong(data, 3, -2);
    EXPECT_EQ(CNetFlowUtility::GetUByte(data, 0), 0xFE);
    EXPECT_EQ(CNetFlowUtility::GetUShort(data, 1), 0xBEEF);
    EXPECT_EQ(CNetFlowUtility::GetULong(data, 3), -2);
}
