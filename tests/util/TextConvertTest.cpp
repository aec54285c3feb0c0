#include <gtest/gtest.h>

#include "util/TextConvert.h"

using tpnf::FromUtf8;
using tpnf::ToUtf8;

TEST(ToUtf8, EncodesOneToFourByteSequences) {
    EXPECT_EQ(ToUtf8(L"A"), "A");
    EXPECT_EQ(ToUtf8(L"\x00E9"), "\xC3\xA9");
    EXPECT_EQ(ToUtf8(L"\x20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(ToUtf8(L"\x1F600"), "\xF0\x9F\x98\x80");
}

TEST(ToUtf8, ByteValuedCharactersAboveAsciiBecomeTwoBytes) {
    // Wire bytes widened to characters 0x80-0xFF.
    EXPECT_EQ(ToUtf8(CString(L"\x00FF\x0000", 2)), std::string("\xC3\xBF\0", 3));
}

TEST(ToUtf8, OutOfRangeCharacterBecomesReplacement) {
    CString text(1, static_cast<wchar_t>(0x110000));
    EXPECT_EQ(ToUtf8(text), "\xEF\xBF\xBD");
}

TEST(FromUtf8, DecodesOneToFourByteSequences) {
    EXPECT_EQ(FromUtf8("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), CString(L"A\x00E9\x20AC\x1F600"));
}

TEST(FromUtf8, InvalidBytesBecomeOneReplacementEach) {
    EXPECT_EQ(FromUtf8("a\xFF"
                       "b"),
              CString(L"a\xFFFD"
                      L"b"));
    EXPECT_EQ(FromUtf8("\xC3"), CString(L"\xFFFD"));
    EXPECT_EQ(FromUtf8("\xE2\x82"
                       "A"),
              CString(L"\xFFFD\xFFFD"
                      L"A"));
}

TEST(TextConvert, RoundTrip) {
    CString text = L"Gr\x00FC\x00DF"
                   L"e \x4E16\x754C";
    EXPECT_EQ(FromUtf8(ToUtf8(text)), text);
}

TEST(ToUtf8, SurrogateCodeBecomesReplacement) {
    CString text(1, static_cast<wchar_t>(0xD800));
    EXPECT_EQ(ToUtf8(text), "\xEF\xBF\xBD");
}

TEST(FromUtf8, OverlongSurrogateAndTooLargeFormsAreInvalid) {
    EXPECT_EQ(FromUtf8("\xC0\x80"), CString(L"\xFFFD\xFFFD"));
    EXPECT_EQ(FromUtf8("\xED\xA0\x80"), CString(L"\xFFFD\xFFFD\xFFFD"));
    EXPECT_EQ(FromUtf8("\xF4\x90\x80\x80"), CString(L"\xFFFD\xFFFD\xFFFD\xFFFD"));
    EXPECT_EQ(FromUtf8("\xF4\x8F\xBF\xBF"), CString(1, static_cast<wchar_t>(0x10FFFF)));
}
