#include <gtest/gtest.h>

#include "util/Format.h"

#include <climits>
#include <cstdint>

using tpnf::FormatText;

TEST(FormatText, UnsignedLongOfNegative32BitValuePrints32BitPattern) {
    EXPECT_EQ(FormatText(L"%lu", int32_t{-2}), L"4294967294");
}

TEST(FormatText, StringArgumentStopsAtFirstZeroCharacter) {
    CString text(L"\0\0\0abc", 6);
    EXPECT_EQ(FormatText(L"<%s>", text), L"<>");
    EXPECT_EQ(FormatText(L"<%s>", CString(L"abc")), L"<abc>");
}

TEST(FormatText, WindowsI64SpellingIsUnsignedLongLong) {
    EXPECT_EQ(FormatText(L"Speed: %I64u!", uint64_t{18446744071562067968ull}),
              L"Speed: 18446744071562067968!");
    EXPECT_EQ(FormatText(L"%5I64u|%d", uint64_t{7}, 3), L"    7|3");
}

TEST(FormatText, SignedDecimalOfUnsigned32BitValueWithTopBitSetIsNegative) {
    EXPECT_EQ(FormatText(L"DPkts: %d", uint32_t{0x80000000}), L"DPkts: -2147483648");
}

TEST(FormatText, DoublePercentBeforeI64IsLiteralText) {
    EXPECT_EQ(FormatText(L"100%%I64u"), L"100%I64u");
    EXPECT_EQ(FormatText(L"%%%I64u", uint64_t{5}), L"%5");
}

TEST(FormatText, SignedLongOfNegative32BitValue) {
    EXPECT_EQ(FormatText(L"%ld", int32_t{-2}), L"-2");
}

TEST(FormatText, UnsignedOfNegativeIntIs32BitPattern) {
    EXPECT_EQ(FormatText(L"%u", -1), L"4294967295");
}

TEST(FormatText, ZeroPaddedUpperCaseHexOfByte) {
    EXPECT_EQ(FormatText(L"%02X:%02X", uint8_t{0x0A}, uint8_t{0xFF}), L"0A:FF");
}

TEST(FormatText, WideCharacterPointerArgument) {
    EXPECT_EQ(FormatText(L"%s=%s", L"IN_BYTES", CString(L"1532")), L"IN_BYTES=1532");
}

TEST(AppendFormat, AppendsToExistingText) {
    CString out = L"a";
    tpnf::AppendFormat(out, L"-%d-", 7);
    tpnf::AppendFormat(out, L"%s", CString(L"b"));
    EXPECT_EQ(out, L"a-7-b");
}

TEST(AppendDecimal, SameTextAsSignedDecimalFormat) {
    for (int64_t value : {int64_t{0}, int64_t{7}, int64_t{-1}, int64_t{255}, int64_t{INT32_MIN},
                          int64_t{INT32_MAX}, INT64_MIN, INT64_MAX}) {
        CString out = L"x";
        tpnf::AppendDecimal(out, value);
        EXPECT_EQ(out, L"x" + FormatText(L"%lld", static_cast<long long>(value))) << value;
    }
    CString out;
    tpnf::AppendDecimal(out, INT64_MIN);
    EXPECT_EQ(out, L"-9223372036854775808");
}

TEST(AppendHex, SameTextAsZeroPaddedUpperCaseHexFormat) {
    for (uint32_t value : {0u, 0x5u, 0xABu, 0x100u, 0x1234u, 0x12345u, 0xFFFFFFFFu}) {
        CString out;
        tpnf::AppendHex(out, value);
        EXPECT_EQ(out, FormatText(L"%02X", value)) << value;
    }
    CString out;
    tpnf::AppendHex(out, 0x0A);
    tpnf::AppendHex(out, 0xFFFFFFFFu);
    EXPECT_EQ(out, L"0AFFFFFFFF");
}
