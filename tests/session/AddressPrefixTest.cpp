// Address prefixes for the allowlist: what the parser takes and refuses, and which senders a prefix holds.

#include <gtest/gtest.h>

#include <string>

#include "session/AddressPrefix.h"

namespace {

CAddressPrefix Prefix(const std::string& text) {
    CAddressPrefix prefix;
    std::string error;
    EXPECT_TRUE(CAddressPrefix::Parse(text, prefix, error)) << text << ": " << error;
    EXPECT_EQ(error, "");
    return prefix;
}

std::string ParseError(const std::string& text) {
    CAddressPrefix prefix;
    std::string error;
    EXPECT_FALSE(CAddressPrefix::Parse(text, prefix, error)) << text;
    EXPECT_FALSE(prefix.IsValid()) << "a refused text leaves the prefix alone";
    return error;
}

CExporterAddress V4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    CExporterAddress address;
    address.bytes = {a, b, c, d};
    address.length = 4;
    return address;
}

CExporterAddress V6(std::initializer_list<uint8_t> bytes) {
    CExporterAddress address;
    std::copy(bytes.begin(), bytes.end(), address.bytes.begin());
    address.length = 16;
    return address;
}

} // namespace

TEST(AddressPrefixTest, IPv4PrefixesParseAndPrintAsWritten) {
    const CAddressPrefix p = Prefix("10.0.0.0/8");
    EXPECT_TRUE(p.IsValid());
    EXPECT_TRUE(p.IsIPv4());
    EXPECT_EQ(p.GetLength(), 8);
    EXPECT_EQ(p.ToString(), "10.0.0.0/8");
    EXPECT_EQ(Prefix("0.0.0.0/0").ToString(), "0.0.0.0/0");
    EXPECT_EQ(Prefix("192.168.1.128/25").ToString(), "192.168.1.128/25");
}

TEST(AddressPrefixTest, IPv6PrefixesParseAndPrintInTheirShortForm) {
    const CAddressPrefix p = Prefix("2001:0DB8:0000::/32");
    EXPECT_FALSE(p.IsIPv4());
    EXPECT_EQ(p.GetLength(), 32);
    EXPECT_EQ(p.ToString(), "2001:db8::/32");
    EXPECT_EQ(Prefix("::/0").ToString(), "::/0");
    EXPECT_EQ(Prefix("fe80::/10").ToString(), "fe80::/10");
}

TEST(AddressPrefixTest, ABareAddressIsAHostPrefix) {
    EXPECT_EQ(Prefix("192.0.2.7").ToString(), "192.0.2.7/32");
    EXPECT_EQ(Prefix("192.0.2.7").GetLength(), 32);
    EXPECT_EQ(Prefix("::1").ToString(), "::1/128");
    EXPECT_EQ(Prefix("::1").GetLength(), 128);
}

TEST(AddressPrefixTest, AnIPv4MappedPrefixIsTheIPv4PrefixItStandsFor) {
    const CAddressPrefix p = Prefix("::ffff:10.0.0.0/104");
    EXPECT_TRUE(p.IsIPv4());
    EXPECT_EQ(p.GetLength(), 8);
    EXPECT_EQ(p.ToString(), "10.0.0.0/8");
    EXPECT_EQ(p, Prefix("10.0.0.0/8"));
    EXPECT_EQ(Prefix("::ffff:192.0.2.1").ToString(), "192.0.2.1/32");
    // Shorter than the mapped block: an IPv6 prefix.
    EXPECT_FALSE(Prefix("::fffe:0:0/95").IsIPv4());
}

TEST(AddressPrefixTest, BadTextsAreRefusedWithASentenceNamingTheFault) {
    EXPECT_EQ(ParseError(""), "'' is not an address prefix: the address is missing (write e.g. 10.0.0.0/8 or "
                              "2001:db8::/32)");
    EXPECT_EQ(ParseError("/8"),
              "'/8' is not an address prefix: the address is missing (write e.g. 10.0.0.0/8 "
              "or 2001:db8::/32)");
    EXPECT_EQ(ParseError("10.0.0/8"), "'10.0.0/8' is not an address prefix: '10.0.0' is not an IPv4 or IPv6 "
                                      "address");
    EXPECT_EQ(
        ParseError("exporter.example"),
        "'exporter.example' is not an address prefix: 'exporter.example' is not an IPv4 or IPv6 address");
    EXPECT_EQ(ParseError("fe80::1%lo/128"),
              "'fe80::1%lo/128' is not an address prefix: 'fe80::1%lo' is not an IPv4 or IPv6 address");
    EXPECT_EQ(ParseError("10.0.0.0/33"),
              "'10.0.0.0/33' is not an address prefix: the length after '/' must be "
              "a whole number from 0 to 32");
    EXPECT_EQ(ParseError("2001:db8::/129"), "'2001:db8::/129' is not an address prefix: the length after '/' "
                                            "must be a whole number from 0 to 128");
    for (const char* text :
         {"10.0.0.0/", "10.0.0.0/-1", "10.0.0.0/+8", "10.0.0.0/8x", "10.0.0.0/ 8", "10.0.0.0/8/8"})
        EXPECT_EQ(ParseError(text), "'" + std::string(text) +
                                        "' is not an address prefix: the length after '/' must be a whole "
                                        "number from 0 to 32");
}

TEST(AddressPrefixTest, HostBitsBeyondTheLengthAreRefusedNamingTheMeantPrefix) {
    EXPECT_EQ(ParseError("10.1.2.3/8"), "'10.1.2.3/8' is not an address prefix: the address has bits set "
                                        "beyond the first 8 bits (did you mean 10.0.0.0/8?)");
    EXPECT_EQ(ParseError("2001:db8::1/32"), "'2001:db8::1/32' is not an address prefix: the address has bits "
                                            "set beyond the first 32 bits (did you mean 2001:db8::/32?)");
    EXPECT_EQ(ParseError("192.168.1.129/25"), "'192.168.1.129/25' is not an address prefix: the address has "
                                              "bits set beyond the first 25 bits (did you mean "
                                              "192.168.1.128/25?)");
}

TEST(AddressPrefixTest, IPv4PrefixHoldsTheAddressesItCovers) {
    const CAddressPrefix p = Prefix("192.168.1.128/25");
    EXPECT_TRUE(p.Contains(V4(192, 168, 1, 128)));
    EXPECT_TRUE(p.Contains(V4(192, 168, 1, 255)));
    EXPECT_FALSE(p.Contains(V4(192, 168, 1, 127)));
    EXPECT_FALSE(p.Contains(V4(192, 168, 2, 128)));
    EXPECT_TRUE(Prefix("0.0.0.0/0").Contains(V4(203, 0, 113, 9)));
    EXPECT_TRUE(Prefix("203.0.113.9").Contains(V4(203, 0, 113, 9)));
    EXPECT_FALSE(Prefix("203.0.113.9").Contains(V4(203, 0, 113, 8)));
}

TEST(AddressPrefixTest, IPv4PrefixNeverHoldsAnIPv6Address) {
    EXPECT_FALSE(Prefix("0.0.0.0/0").Contains(V6({0x20, 0x01, 0x0d, 0xb8})));
    EXPECT_FALSE(Prefix("0.0.0.0/0").Contains(V6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})));
}

TEST(AddressPrefixTest, IPv6PrefixHoldsTheAddressesItCovers) {
    const CAddressPrefix p = Prefix("2001:db8::/32");
    EXPECT_TRUE(p.Contains(V6({0x20, 0x01, 0x0d, 0xb8, 0xff, 0xff})));
    EXPECT_FALSE(p.Contains(V6({0x20, 0x01, 0x0d, 0xb9})));
    EXPECT_FALSE(p.Contains(V4(32, 1, 13, 184)));
    const CAddressPrefix odd = Prefix("fe80::/10");
    EXPECT_TRUE(odd.Contains(V6({0xfe, 0xbf})));
    EXPECT_FALSE(odd.Contains(V6({0xfe, 0xc0})));
}

TEST(AddressPrefixTest, IPv6PrefixesCoveringTheMappedBlockHoldIPv4Addresses) {
    EXPECT_TRUE(Prefix("::/0").Contains(V4(198, 51, 100, 1)));
    EXPECT_TRUE(Prefix("::ffff:0:0/96").Contains(V4(198, 51, 100, 1)));
    EXPECT_FALSE(Prefix("2001:db8::/32").Contains(V4(198, 51, 100, 1)));
    EXPECT_FALSE(Prefix("::1").Contains(V4(127, 0, 0, 1)));
    // An IPv4 prefix also holds its address in the mapped form an IPv6 socket might report.
    EXPECT_TRUE(
        Prefix("198.51.100.0/24").Contains(V6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 198, 51, 100, 1})));
}

TEST(AddressPrefixTest, EmptyPrefixAndUnknownAddressesMatchNothing) {
    EXPECT_FALSE(CAddressPrefix().Contains(V4(10, 0, 0, 1)));
    EXPECT_EQ(CAddressPrefix().ToString(), "");
    EXPECT_FALSE(Prefix("::/0").Contains(CExporterAddress()));
    EXPECT_FALSE(Prefix("0.0.0.0/0").Contains(CExporterAddress()));
}
