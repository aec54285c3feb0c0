#include <gtest/gtest.h>

#include "netflow9/NetFlowOptionsTemplate.h"
#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/NetFlowSetTemplate.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::NetFlowV9Datagram;

namespace {

void ExpectField(const CNetFlowField& field, int type, int length, BOOL scope) {
    EXPECT_EQ(field.GetType(), type);
    EXPECT_EQ(field.GetLength(), length);
    EXPECT_EQ(field.IsScope(), scope);
    EXPECT_TRUE(field.m_value.empty());
}

} // namespace

TEST(NetFlowSetTemplate, DecodeReadsIdCountAndSpecifiersAndEndsPastTheLast) {
    CByteArray data = ByteBuilder()
                          .u16(0xABCD) // bytes before the template
                          .u16(300)    // template id
                          .u16(3)      // field count
                          .u16(8)
                          .u16(4)
                          .u16(12)
                          .u16(4)
                          .u16(4)
                          .u16(1)
                          .u16(0xEEEE); // what follows
    CNetFlowSetTemplate t;
    int offset = 2;
    EXPECT_EQ(t.Decode(data, offset), TRUE);
    EXPECT_EQ(offset, 18);
    EXPECT_EQ(t.m_templateId, 300);
    EXPECT_EQ(t.m_fieldCount, 3);
    ASSERT_EQ(t.m_fields.size(), 3u);
    ExpectField(t.m_fields[0], 8, 4, FALSE);
    ExpectField(t.m_fields[1], 12, 4, FALSE);
    ExpectField(t.m_fields[2], 4, 1, FALSE);
}

TEST(NetFlowSetTemplate, IdAndCountAreUnsigned16Bit) {
    CByteArray data = ByteBuilder().u16(0xFFFF).u16(0);
    CNetFlowSetTemplate t;
    int offset = 0;
    t.Decode(data, offset);
    EXPECT_EQ(t.m_templateId, 65535);
    EXPECT_EQ(t.m_fieldCount, 0);
}

TEST(NetFlowSetTemplate, FieldCountZeroGivesEmptyListAndConsumesFourBytes) {
    CByteArray data = ByteBuilder().u16(400).u16(0);
    CNetFlowSetTemplate t;
    int offset = 0;
    EXPECT_EQ(t.Decode(data, offset), TRUE);
    EXPECT_EQ(offset, 4);
    EXPECT_EQ(t.m_fieldCount, 0);
    EXPECT_TRUE(t.m_fields.empty());
}

TEST(NetFlowSetTemplate, FieldsAlreadyInTheListCountTowardsTheFieldCount) {
    CNetFlowSetTemplate t;
    t.m_fields.resize(1);
    t.m_fields[0].SetType(99);
    CByteArray data = ByteBuilder().u16(300).u16(2).u16(8).u16(4).u16(12).u16(4);
    int offset = 0;
    t.Decode(data, offset);
    EXPECT_EQ(offset, 8);
    ASSERT_EQ(t.m_fields.size(), 2u);
    EXPECT_EQ(t.m_fields[0].GetType(), 99);
    ExpectField(t.m_fields[1], 8, 4, FALSE);
}

TEST(NetFlowSetTemplate, SpecifierCutOffByTheEndThrows) {
    CByteArray data = ByteBuilder().u16(300).u16(2).u16(8).u16(4).u16(12); // second length missing
    CNetFlowSetTemplate t;
    int offset = 0;
    EXPECT_THROW(t.Decode(data, offset), CInvalidArgException);
}

TEST(NetFlowSetTemplate, HugeFieldCountOnShortDataThrowsWithoutHugeReservation) {
    CByteArray data = ByteBuilder().u16(300).u16(65535).u16(8).u16(4);
    CNetFlowSetTemplate t;
    int offset = 0;
    EXPECT_THROW(t.Decode(data, offset), CInvalidArgException);
    EXPECT_LE(t.m_fields.capacity(), 2u);
}

TEST(NetFlowOptionsTemplate, ScopeLength4OptionLength8GivesOneScopeAndTwoOptionFields) {
    CByteArray data = ByteBuilder()
                          .u16(260) // template id
                          .u16(4)   // option scope length
                          .u16(8)   // option length
                          .u16(1)
                          .u16(4) // scope: system
                          .u16(34)
                          .u16(4) // SAMPLING_INTERVAL
                          .u16(35)
                          .u16(1); // SAMPLING_ALGORITHM
    CNetFlowOptionsTemplate t;
    int offset = 0;
    EXPECT_EQ(t.Decode(data, offset), TRUE);
    EXPECT_EQ(offset, 18);
    EXPECT_EQ(t.m_templateId, 260);
    EXPECT_EQ(t.m_fieldCount, 0);
    EXPECT_EQ(t.m_optionScopeLength, 4);
    EXPECT_EQ(t.m_optionLength, 8);
    ASSERT_EQ(t.m_fields.size(), 3u);
    ExpectField(t.m_fields[0], 1, 4, TRUE);
    ExpectField(t.m_fields[1], 34, 4, FALSE);
    ExpectField(t.m_fields[2], 35, 1, FALSE);
}

TEST(NetFlowOptionsTemplate, ScopeLength6ReadsTwoScopeSpecifiersAndStartsOptionsTwoBytesLate) {
    // An exporter meaning 6 bytes of scope would put its option specifier at byte 12 (00 04 00 03 ...).
    CByteArray data = ByteBuilder()
                          .u16(261)
                          .u16(6) // not a multiple of 4
                          .u16(4)
                          .u16(1)
                          .u16(4) // byte 6: scope specifier
                          .u16(2)
                          .u16(4) // byte 10: read as a second scope specifier
                          .u16(3)
                          .u16(4); // byte 14: the only option specifier read
    CNetFlowOptionsTemplate t;
    int offset = 0;
    t.Decode(data, offset);
    EXPECT_EQ(offset, 18);
    ASSERT_EQ(t.m_fields.size(), 3u);
    ExpectField(t.m_fields[0], 1, 4, TRUE);
    ExpectField(t.m_fields[1], 2, 4, TRUE);
    ExpectField(t.m_fields[2], 3, 4, FALSE);
}

TEST(NetFlowOptionsTemplate, OptionLengthNotMultipleOf4ReadsOneSpecifierBeyondIt) {
    CByteArray data = ByteBuilder().u16(262).u16(0).u16(5).u16(10).u16(2).u16(14).u16(2);
    CNetFlowOptionsTemplate t;
    int offset = 0;
    t.Decode(data, offset);
    EXPECT_EQ(offset, 14);
    ASSERT_EQ(t.m_fields.size(), 2u);
    ExpectField(t.m_fields[0], 10, 2, FALSE);
    ExpectField(t.m_fields[1], 14, 2, FALSE);
}

TEST(NetFlowOptionsTemplate, BothLengthsZeroGiveNoFields) {
    CByteArray data = ByteBuilder().u16(263).u16(0).u16(0);
    CNetFlowOptionsTemplate t;
    int offset = 0;
    t.Decode(data, offset);
    EXPECT_EQ(offset, 6);
    EXPECT_TRUE(t.m_fields.empty());
}

TEST(NetFlowOptionsTemplate, SpecifiersRunningPastTheEndThrow) {
    CByteArray data = ByteBuilder().u16(264).u16(8).u16(0).u16(1).u16(4);
    CNetFlowOptionsTemplate t;
    int offset = 0;
    EXPECT_THROW(t.Decode(data, offset), CInvalidArgException);
}

// The store.

TEST_F(EmptyTemplateStore, StoreDoesNotExistBeforeFirstUseAndLookupOfUnknownIdIsNull) {
    EXPECT_FALSE(CNetFlowTemplateManagerTestAccess::Exists());
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    ASSERT_NE(store, nullptr);
    EXPECT_TRUE(CNetFlowTemplateManagerTestAccess::Exists());
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance(), store);
    EXPECT_EQ(store->Lookup(300), nullptr);
    EXPECT_EQ(store->GetCount(), 0u);
}

TEST_F(EmptyTemplateStore, DatagramWithoutFlowsetsDoesNotCreateTheStore) {
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(NetFlowV9Datagram()), TRUE);
    EXPECT_FALSE(CNetFlowTemplateManagerTestAccess::Exists());
}

TEST_F(EmptyTemplateStore, DataFlowsetForUnknownTemplateCreatesTheEmptyStore) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Data(300, ByteBuilder().u32(1)));
    EXPECT_TRUE(CNetFlowTemplateManagerTestAccess::Exists());
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance()->GetCount(), 0u);
}

TEST_F(EmptyTemplateStore, TemplateFlowsetStoresIdCountAndFields) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(300, {{8, 4}, {4, 1}}));
    EXPECT_TRUE(packet.IsEmpty());
    auto t = CNetFlowTemplateManager::GetInstance()->Lookup(300);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->m_templateId, 300);
    EXPECT_EQ(t->m_fieldCount, 2);
    ASSERT_EQ(t->m_fields.size(), 2u);
    ExpectField(t->m_fields[0], 8, 4, FALSE);
    ExpectField(t->m_fields[1], 4, 1, FALSE);
}

TEST_F(EmptyTemplateStore, TemplateWithFieldCountZeroIsStoredWithEmptyFieldList) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(301, {}));
    auto t = CNetFlowTemplateManager::GetInstance()->Lookup(301);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->m_fieldCount, 0);
    EXPECT_TRUE(t->m_fields.empty());
}

TEST_F(EmptyTemplateStore, ReannouncementReplacesTheFieldListCompletely) {
    CNetFlowPacketV9 first;
    first.Decode(NetFlowV9Datagram().Template(300, {{8, 4}, {12, 4}, {4, 1}}));
    CNetFlowPacketV9 second;
    second.Decode(NetFlowV9Datagram().Template(300, {{7, 2}}));
    auto t = CNetFlowTemplateManager::GetInstance()->Lookup(300);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->m_fieldCount, 1);
    ASSERT_EQ(t->m_fields.size(), 1u);
    ExpectField(t->m_fields[0], 7, 2, FALSE);
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance()->GetCount(), 1u);
}

TEST_F(EmptyTemplateStore, SeveralTemplatesInOneFlowsetAreAllStored) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Templates({{300, {{8, 4}}}, {301, {{12, 4}, {11, 2}}}}));
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    ASSERT_NE(store->Lookup(300), nullptr);
    ASSERT_NE(store->Lookup(301), nullptr);
    EXPECT_EQ(store->Lookup(300)->m_fields.size(), 1u);
    EXPECT_EQ(store->Lookup(301)->m_fields.size(), 2u);
}

TEST_F(EmptyTemplateStore, OptionsTemplateIsStoredAsPlainTemplateWithScopeFlagsAndCountZero) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().OptionsTemplate(310, {{1, 4}}, {{34, 4}, {35, 1}}));
    auto t = CNetFlowTemplateManager::GetInstance()->Lookup(310);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(dynamic_cast<const CNetFlowOptionsTemplate*>(t.get()), nullptr);
    EXPECT_EQ(t->m_templateId, 310);
    EXPECT_EQ(t->m_fieldCount, 0);
    ASSERT_EQ(t->m_fields.size(), 3u);
    ExpectField(t->m_fields[0], 1, 4, TRUE);
    ExpectField(t->m_fields[1], 34, 4, FALSE);
    ExpectField(t->m_fields[2], 35, 1, FALSE);
}

TEST_F(EmptyTemplateStore, TemplateAndOptionsTemplateWithTheSameIdOverwriteEachOther) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(320, {{8, 4}}).OptionsTemplate(320, {{1, 4}}, {}));
    auto t = CNetFlowTemplateManager::GetInstance()->Lookup(320);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->m_fields.size(), 1u);
    ExpectField(t->m_fields[0], 1, 4, TRUE);

    CNetFlowPacketV9 again;
    again.Decode(NetFlowV9Datagram().Template(320, {{8, 4}}));
    t = CNetFlowTemplateManager::GetInstance()->Lookup(320);
    ASSERT_EQ(t->m_fields.size(), 1u);
    ExpectField(t->m_fields[0], 8, 4, FALSE);
    EXPECT_EQ(t->m_fieldCount, 1);
}

TEST_F(EmptyTemplateStore, TemplateCutOffByTheDatagramEndIsNotStored) {
    NetFlowV9Datagram d;
    d.RawFlowSet(0, 16, ByteBuilder().u16(330).u16(2).u16(8).u16(4)); // second specifier missing
    CNetFlowPacketV9 packet;
    EXPECT_THROW(packet.Decode(d), CInvalidArgException);
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance()->Lookup(330), nullptr);
}

TEST_F(EmptyTemplateStore, TemplatesOfOneExporterServeEveryExporterAndSourceId) {
    CNetFlowPacketV9 announcer;
    announcer.SetSenderInfo(L"10.0.0.1", 2055);
    announcer.Decode(NetFlowV9Datagram({.sourceId = 1}).Template(300, {{7, 2}}));

    CNetFlowPacketV9 other;
    other.SetSenderInfo(L"10.9.9.9", 9995);
    other.Decode(NetFlowV9Datagram({.sourceId = 77}).Data(300, ByteBuilder().u16(53)));
    ASSERT_EQ(other.GetSize(), 1);
    EXPECT_EQ(other.GetRecords()[0].GetField(0).GetValue(), L"53");
}
