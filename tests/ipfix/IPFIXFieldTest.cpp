// IPFIX field names, renderings and field ids.

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "ipfix/IPFIXField.h"
#include "support/ByteBuilder.h"

using tpnf::test::ByteBuilder;

namespace {

// A field of element id with value bytes; an enterprise number sets the enterprise bit.
CIPFIXField Field(int id, const std::vector<uint8_t>& value,
                  std::optional<uint32_t> enterprise = std::nullopt) {
    CIPFIXField field;
    field.m_field.SetType(enterprise ? (id | 0x8000) : id);
    field.m_field.SetLength(static_cast<int>(value.size()));
    field.m_field.SetValue(value);
    field.m_enterprise = enterprise.value_or(0);
    return field;
}

std::wstring Text(int id, const std::vector<uint8_t>& value,
                  std::optional<uint32_t> enterprise = std::nullopt) {
    return Field(id, value, enterprise).ToString();
}

} // namespace

// Elements the v9 catalogue knows: its names, kinds and renderings, quirks included.

TEST(IPFIXField, CatalogueElementsKeepTheirV9NamesAndRenderings) {
    EXPECT_EQ(Text(8, {10, 0, 0, 1}), L"IPV4_SRC_ADDR=10.0.0.1");
    EXPECT_EQ(Text(7, {0x14, 0xE9}), L"L4_SRC_PORT=5353");
    EXPECT_EQ(Text(1, {0, 0, 0x05, 0xFC}), L"IN_BYTES=1532");
    // An 8-byte counter is hexadecimal and a 4-byte one signed, as v9 shows them.
    EXPECT_EQ(Text(1, ByteBuilder().u64(1532)), L"IN_BYTES=00000000000005FC");
    EXPECT_EQ(Text(2, {0xFF, 0xFF, 0xFF, 0xFF}), L"IN_PKTS=-1");
    EXPECT_EQ(Text(56, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}), L"IN_SRC_MAC=00:1A:2B:3C:4D:5E");
    EXPECT_EQ(Text(27, ByteBuilder().u32(0x20010DB8).u32(0).u32(0).u32(1)),
              L"IPV6_SRC_ADDR=2001:0DB8:0000:0000:0000:0000:0000:0001");
    EXPECT_EQ(Text(4, {17}), L"PROT=17");
    EXPECT_EQ(Text(60, {4}), L"IP_PROTOCOL_VERSION=4");
}

TEST(IPFIXField, CatalogueTextEndsAtTheFirstZeroCharacterAsInV9) {
    EXPECT_EQ(Text(82, ByteBuilder().text("eth0").zeros(4)), L"IF_NAME=eth0");
}

TEST(IPFIXField, AnAddressTooShortForItsCatalogueKindShowsItsBytesInsteadOfRaising) {
    EXPECT_EQ(Text(8, {10, 1}), L"IPV4_SRC_ADDR=0A01");
    EXPECT_EQ(Text(27, {0x20, 0x01, 0x0D}), L"IPV6_SRC_ADDR=20010D");
}

TEST(IPFIXField, TheProtocolFieldListsItsNameAsInV9) {
    EXPECT_EQ(Field(4, {6}).GetListedValue(), L"TCP");
    EXPECT_EQ(Field(4, {6}).GetValue(), L"6");
    EXPECT_EQ(Field(7, {0, 80}).GetListedValue(), L"80");
}

// Other IANA elements: IANA names, rendered by abstract data type.

TEST(IPFIXField, UnsignedIntegersAreDecimalInAnyReducedSize) {
    EXPECT_EQ(Text(136, {1}), L"flowEndReason=1");
    EXPECT_EQ(Text(234, {0xFF, 0xFF, 0xFF, 0xFF}), L"ingressVRFID=4294967295");
    EXPECT_EQ(Text(234, {0x01, 0x00}), L"ingressVRFID=256");
    EXPECT_EQ(Text(231, ByteBuilder().u64(0xFFFFFFFFFFFFFFFFull)), L"initiatorOctets=18446744073709551615");
    EXPECT_EQ(Text(231, {0x01, 0x02, 0x03}), L"initiatorOctets=66051");
    EXPECT_EQ(Text(195, {46}), L"ipDiffServCodePoint=46");
    EXPECT_EQ(Text(227, {0x1F, 0x90}), L"postNAPTSourceTransportPort=8080");
    EXPECT_EQ(Text(239, {1}), L"biflowDirection=1");
    EXPECT_EQ(Text(243, {0, 42}), L"dot1qVlanId=42");
    EXPECT_EQ(Text(176, {8}), L"icmpTypeIPv4=8");
    EXPECT_EQ(Text(139, {0x80, 0x00}), L"icmpTypeCodeIPv6=32768");
}

TEST(IPFIXField, SignedIntegersAreSignExtendedFromTheirSize) {
    EXPECT_EQ(Text(434, {0xFF, 0xFF, 0xFF, 0xFE}), L"mibObjectValueInteger=-2");
    EXPECT_EQ(Text(434, {0xFF, 0xFE}), L"mibObjectValueInteger=-2");
    EXPECT_EQ(Text(434, {0x7F, 0xFF, 0xFF, 0xFF}), L"mibObjectValueInteger=2147483647");
}

TEST(IPFIXField, FloatsBooleansAndDates) {
    EXPECT_EQ(Text(311, ByteBuilder().u64(0x3FE0000000000000ull)), L"samplingProbability=0.5");
    EXPECT_EQ(Text(311, ByteBuilder().u32(0x3E800000)),
              L"samplingProbability=0.25"); // float32 sent for float64
    EXPECT_EQ(Text(276, {1}), L"dataRecordsReliability=true");
    EXPECT_EQ(Text(276, {2}), L"dataRecordsReliability=false");
    EXPECT_EQ(Text(276, {3}), L"dataRecordsReliability=03");
    EXPECT_EQ(Text(150, ByteBuilder().u32(1700000000)), L"flowStartSeconds=1700000000");
    EXPECT_EQ(Text(152, ByteBuilder().u64(1700000000123ull)), L"flowStartMilliseconds=1700000000123");
    EXPECT_EQ(Text(154, ByteBuilder().u32(0xE8D4A510).u32(0x80000000)),
              L"flowStartMicroseconds=16777216002147483648");
}

TEST(IPFIXField, AddressesInTheirUsualText) {
    EXPECT_EQ(Text(225, {192, 0, 2, 1}), L"postNATSourceIPv4Address=192.0.2.1");
    EXPECT_EQ(Text(281, ByteBuilder().u32(0x20010DB8).u32(0).u32(0).u32(1)),
              L"postNATSourceIPv6Address=2001:db8::1");
    EXPECT_EQ(Text(365, {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}), L"staMacAddress=00-1A-2B-3C-4D-5E");
}

TEST(IPFIXField, StringsAreUtf8AndOctetArraysHexadecimal) {
    EXPECT_EQ(Text(236, ByteBuilder().text("vrf-\xC3\xA9")), L"VRFname=vrf-\u00E9");
    EXPECT_EQ(Text(95, {0x0D, 0x00, 0x50}), L"applicationId=0D0050");
    EXPECT_EQ(Text(291, {0xFF, 0x00, 0x07}), L"basicList=FF0007");
}

TEST(IPFIXField, ALengthItsTypeDoesNotAllowShowsTheBytes) {
    EXPECT_EQ(Text(225, {192, 0, 2}), L"postNATSourceIPv4Address=C00002");
    EXPECT_EQ(Text(365, {1, 2, 3, 4, 5}), L"staMacAddress=0102030405");
    EXPECT_EQ(Text(234, ByteBuilder().u64(1).u8(1)), L"ingressVRFID=000000000000000101");
    EXPECT_EQ(Text(234, {}), L"ingressVRFID=");
}

// Elements no catalogue names.

TEST(IPFIXField, EnterpriseElementsAreNamedByNumberAndShownInHexadecimal) {
    EXPECT_EQ(Text(3, {'g', 'o', 'l', 'd', 0}, 43874), L"E43874.3=676F6C6400");
    EXPECT_EQ(Text(1, {0, 0, 0, 5}, CIPFIXField::REVERSE_ENTERPRISE), L"E29305.1=00000005");
    EXPECT_EQ(Text(7, {1}, 0), L"E0.7=01");
}

TEST(IPFIXField, UnassignedElementsAreUnknownAndShownInHexadecimal) {
    EXPECT_EQ(Text(43, {1, 2}), L"UNKNOWN(43)=0102");
    EXPECT_EQ(Text(30000, {0xAB}), L"UNKNOWN(30000)=AB");
    EXPECT_EQ(CIPFIXField::FindElement(43), nullptr);
    ASSERT_NE(CIPFIXField::FindElement(491), nullptr);
    EXPECT_STREQ(CIPFIXField::FindElement(491)->name, L"bgpDestinationLargeCommunityList");
}

// Field ids and their names.

TEST(IPFIXField, FieldIdsOfIanaElementsAreTheElementIds) {
    EXPECT_EQ(Field(8, {10, 0, 0, 1}).GetFieldId(), 8u);
    EXPECT_EQ(Field(136, {1}).GetFieldId(), 136u);
    EXPECT_EQ(CIPFIXField::GetFieldName(8), L"IPV4_SRC_ADDR");
    EXPECT_EQ(CIPFIXField::GetFieldName(136), L"flowEndReason");
    EXPECT_EQ(CIPFIXField::GetFieldName(89), L"FORWARDING_STATUS");
    EXPECT_EQ(CIPFIXField::GetFieldName(1000), L"FLAGS"); // catalogue numbers beyond IANA's range too
    EXPECT_EQ(CIPFIXField::GetFieldName(43), L"UNKNOWN(43)");
}

TEST(IPFIXField, EnterpriseNumbersOfSixteenBitsGiveFieldIdsByArithmetic) {
    const uint32_t id = Field(3, {}, 43874).GetFieldId();
    EXPECT_EQ(id, (43874u << 15) | 3u);
    EXPECT_EQ(CIPFIXField::GetFieldName(id), L"E43874.3");
    EXPECT_EQ(CIPFIXField::GetFieldName((29305u << 15) | 1u), L"E29305.1");
    EXPECT_EQ(CIPFIXField::GetFieldName((65535u << 15) | 32767u), L"E65535.32767");
    EXPECT_NE(Field(3, {}, 43874).GetFieldId(), Field(4, {}, 43874).GetFieldId());
    EXPECT_NE(Field(3, {}, 43874).GetFieldId(), Field(3, {}, 43875).GetFieldId());
}

TEST(IPFIXField, LargerEnterpriseNumbersGetSlotsThatDoNotCollide) {
    const uint32_t a = Field(5, {}, 70000).GetFieldId();
    const uint32_t b = Field(5, {}, 4000000000u).GetFieldId();
    const uint32_t zero = Field(5, {}, 0).GetFieldId();
    EXPECT_GE(a, 0x80000000u);
    EXPECT_GE(b, 0x80000000u);
    EXPECT_NE(a, b);
    EXPECT_NE(a, zero);
    EXPECT_EQ(Field(5, {}, 70000).GetFieldId(), a); // the same number keeps its slot
    EXPECT_EQ(Field(6, {}, 70000).GetFieldId(), a + 1);
    EXPECT_EQ(CIPFIXField::GetFieldName(a), L"E70000.5");
    EXPECT_EQ(CIPFIXField::GetFieldName(b), L"E4000000000.5");
    EXPECT_EQ(CIPFIXField::GetFieldName(zero), L"E0.5");
    EXPECT_EQ(CIPFIXField::GetFieldName(0x80000000u | (0xFFFFu << 15) | 9u), L"E?.9");
}

TEST(IPFIXField, FieldNamesAgreeWithTheNamesFieldsRenderWith) {
    for (const CIPFIXField& f :
         {Field(8, {1, 2, 3, 4}), Field(153, ByteBuilder().u64(1)), Field(3, {1}, 43874),
          Field(2, {1}, 29305), Field(9, {1}, 123456), Field(30000, {1})})
        EXPECT_EQ(CIPFIXField::GetFieldName(f.GetFieldId()), f.GetName());
}
