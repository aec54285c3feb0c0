#include <gtest/gtest.h>

#include "util/Format.h"

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
