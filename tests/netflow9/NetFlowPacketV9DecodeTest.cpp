#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::V9FieldSpecifier;

namespace {

// Template 256: IPV4_SRC_ADDR, IPV4_DST_ADDR, L4_SRC_PORT, L4_DST_PORT, PROT: 13 bytes per record.
const std::vector<V9FieldSpecifier> kFlowFields = {{8, 4}, {12, 4}, {7, 2}, {11, 2}, {4, 1}};
constexpr int kFlowRecordSize = 13;

ByteBuilder FlowRecord(uint8_t host, uint16_t srcPort, uint16_t dstPort, uint8_t protocol) {
    ByteBuilder b;
    b.ipv4(10, 0, 0, host).ipv4(192, 168, 1, host).u16(srcPort).u16(dstPort).u8(protocol);
    return b;
}

ByteBuilder Concat(std::initializer_list<ByteBuilder> parts) {
    ByteBuilder all;
    for (const ByteBuilder& part : parts)
        all.bytes(part.build());
    return all;
}

// The field values of a record as "name=value" texts, so a test states a whole record at once.
std::vector<std::wstring> Texts(const CNetFlowSetRecord& record) {
    std::vector<std::wstring> texts;
    for (const CNetFlowField& field : record.GetFields())
        texts.push_back(field.ToString());
    return texts;
}

std::vector<std::wstring> FlowTexts(int host, int srcPort, int dstPort, int protocol) {
    return {L"IPV4_SRC_ADDR=10.0.0." + std::to_wstring(host),
            L"IPV4_DST_ADDR=192.168.1." + std::to_wstring(host), L"L4_SRC_PORT=" + std::to_wstring(srcPort),
            L"L4_DST_PORT=" + std::to_wstring(dstPort), L"PROT=" + std::to_wstring(protocol)};
}

} // namespace

class V9Decode : public EmptyTemplateStore {};

TEST_F(V9Decode, TwentyByteDatagramDecodesToEmptyPacketWithHeader) {
    NetFlowV9Datagram d({.count = 3,
                         .sysUptime = 8640000,
                         .unixSecs = 1000000000,
                         .packageSequence = 0xFFFFFFFE,
                         .sourceId = 0x80000000});
    ASSERT_EQ(d.size(), 20u);
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    EXPECT_TRUE(packet.IsEmpty());
    EXPECT_EQ(packet.GetSize(), 0);
    const CNetFlowHeaderV9& h = packet.GetHeader();
    EXPECT_EQ(h.m_version, 9);
    EXPECT_EQ(h.m_count, 3);
    EXPECT_EQ(h.m_sysUptime, 8640000u);
    EXPECT_EQ(h.m_unixSecs, 1000000000u);
    EXPECT_EQ(h.m_packageSequence, 0xFFFFFFFEu);
    EXPECT_EQ(h.m_sourceID, 0x80000000u);
    EXPECT_EQ(h.m_unixNsecs, 0u); // bytes 12-15 are the sequence in v9
}

TEST_F(V9Decode, NineteenByteDatagramIsRejected) {
    CByteArray data = NetFlowV9Datagram().build();
    data.pop_back();
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(data), FALSE);
    EXPECT_EQ(packet.Decode(CByteArray{}), FALSE);
}

TEST_F(V9Decode, FreshPacketIsEmptyWithoutSender) {
    CNetFlowPacketV9 packet;
    EXPECT_TRUE(packet.IsEmpty());
    EXPECT_EQ(packet.GetSize(), 0);
    EXPECT_EQ(packet.GetSenderIPAddress(), L"");
    EXPECT_EQ(packet.GetSenderPort(), 0);
    EXPECT_EQ(packet.GetHeader().m_version, 0);
    EXPECT_EQ(packet.GetHeader().m_sourceID, 0u);
}

TEST_F(V9Decode, ProtocolTimestampAndUptime) {
    setenv("TZ", "UTC", 1);
    tzset();
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram({.sysUptime = 8640000, .unixSecs = 1000000000}));
    EXPECT_EQ(packet.GetProtocol(), L"NetFlow v9");
    EXPECT_EQ(packet.GetTimestamp(), L"09/09/2001 01:46:40");
    EXPECT_EQ(packet.GetSysUpTime(), L"(8640000) 1 day 0:00:00.00");
}

TEST_F(V9Decode, ExportSecondsFrom2038OnRaiseInsteadOfRendering) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram({.unixSecs = 0x80000000}));
    EXPECT_THROW(packet.GetTimestamp(), CInvalidArgException);
}

TEST_F(V9Decode, TemplateThenDataInOneDatagramYieldsRecords) {
    CNetFlowPacketV9 packet;
    EXPECT_EQ(
        packet.Decode(NetFlowV9Datagram({.count = 2})
                          .Template(256, kFlowFields)
                          .Data(256, Concat({FlowRecord(1, 1024, 53, 17), FlowRecord(2, 40000, 443, 6)}), 2)),
        TRUE);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_FALSE(packet.IsEmpty());
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(1, 1024, 53, 17));
    EXPECT_EQ(Texts(packet.GetRecords()[1]), FlowTexts(2, 40000, 443, 6));
}

TEST_F(V9Decode, RecordFieldsCarryTypeLengthScopeAndValueBytes) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(256, kFlowFields).Data(256, FlowRecord(7, 1, 2, 6), 3));
    ASSERT_EQ(packet.GetSize(), 1);
    const CArray<CNetFlowField> fields = packet.GetRecords()[0].GetFields();
    ASSERT_EQ(fields.size(), 5u);
    EXPECT_EQ(fields[0].GetType(), 8);
    EXPECT_EQ(fields[0].GetLength(), 4);
    EXPECT_EQ(fields[0].IsScope(), FALSE);
    EXPECT_EQ(fields[0].m_value, (CByteArray{10, 0, 0, 7}));
    EXPECT_EQ(fields[2].m_value, (CByteArray{0, 1}));
    EXPECT_EQ(fields[4].GetType(), 4);
    EXPECT_EQ(fields[4].GetLength(), 1);
    EXPECT_EQ(fields[4].m_value, (CByteArray{6}));
}

TEST_F(V9Decode, DataBeforeItsTemplateInOneDatagramIsLostButALaterDatagramDecodes) {
    CNetFlowPacketV9 first;
    EXPECT_EQ(first.Decode(
                  NetFlowV9Datagram().Data(256, FlowRecord(1, 1024, 53, 17), 3).Template(256, kFlowFields)),
              TRUE);
    EXPECT_TRUE(first.IsEmpty());
    EXPECT_NE(CNetFlowTemplateManager::GetInstance()->Lookup(256), nullptr);

    CNetFlowPacketV9 later;
    EXPECT_EQ(later.Decode(NetFlowV9Datagram().Data(256, FlowRecord(3, 5000, 80, 6), 3)), TRUE);
    ASSERT_EQ(later.GetSize(), 1);
    EXPECT_EQ(Texts(later.GetRecords()[0]), FlowTexts(3, 5000, 80, 6));
}

TEST_F(V9Decode, UnknownTemplateSkipsOnlyItsFlowset) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram()
                      .Template(256, kFlowFields)
                      .Data(999, ByteBuilder().u32(0xDEADBEEF).u32(0xDEADBEEF).u32(0xDEADBEEF))
                      .Data(256, FlowRecord(4, 10, 20, 1), 3));
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(4, 10, 20, 1));
}

TEST_F(V9Decode, PaddingAfterTwoRecordsIsSkippedAndTheNextFlowsetDecodes) {
    NetFlowV9Datagram d;
    d.Template(256, kFlowFields);
    size_t dataStart = d.size();
    d.Data(256, Concat({FlowRecord(1, 1, 1, 6), FlowRecord(2, 2, 2, 17)}), 3);
    ASSERT_EQ(d.size() - dataStart, 4u + 2 * kFlowRecordSize + 3);
    d.Data(256, FlowRecord(3, 3, 3, 1), 3);
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    ASSERT_EQ(packet.GetSize(), 3);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(1, 1, 1, 6));
    EXPECT_EQ(Texts(packet.GetRecords()[1]), FlowTexts(2, 2, 2, 17));
    EXPECT_EQ(Texts(packet.GetRecords()[2]), FlowTexts(3, 3, 3, 1));
}

TEST_F(V9Decode, FlowsetLengthZeroMakesTheNextHeaderBeReadFourBytesLater) {
    NetFlowV9Datagram d;
    d.Template(256, kFlowFields).RawFlowSet(256, 0).Data(256, FlowRecord(5, 6, 7, 17), 3);
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(5, 6, 7, 17));
}

TEST_F(V9Decode, FlowsetLengthsUpToFourHoldNothing) {
    NetFlowV9Datagram d;
    d.Template(256, kFlowFields)
        .RawFlowSet(256, 2)
        .RawFlowSet(0, 4)
        .RawFlowSet(256, 3)
        .Data(256, FlowRecord(6, 1, 2, 6), 3);
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(6, 1, 2, 6));
}

TEST_F(V9Decode, FlowsetId255IsDataForTemplate255) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(255, kFlowFields).Data(255, FlowRecord(8, 8, 8, 6), 3));
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(8, 8, 8, 6));
}

TEST_F(V9Decode, FlowsetIds2And254AreOptionsTemplates) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram()
                      .OptionsTemplate(400, {{1, 4}}, {{34, 4}}, 2)
                      .OptionsTemplate(401, {{2, 2}}, {{35, 1}}, 254)
                      .Data(400, ByteBuilder().u32(0x0A000001).u32(100))
                      .Data(401, ByteBuilder().u16(3).u8(2), 1));
    ASSERT_EQ(packet.GetSize(), 2);
    const CArray<CNetFlowField> first = packet.GetRecords()[0].GetFields();
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[0].IsScope(), TRUE);
    EXPECT_EQ(first[0].GetType(), 1);
    EXPECT_EQ(first[0].m_value, (CByteArray{10, 0, 0, 1}));
    EXPECT_EQ(first[1].IsScope(), FALSE);
    EXPECT_EQ(first[1].ToString(), L"SAMPLING_INTERVAL=100");
    const CArray<CNetFlowField> second = packet.GetRecords()[1].GetFields();
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[0].IsScope(), TRUE);
    EXPECT_EQ(second[0].m_value, (CByteArray{0, 3}));
    EXPECT_EQ(second[1].ToString(), L"SAMPLING_ALGORITHM=2");
}

TEST_F(V9Decode, OptionsTemplateFlowsetWithPaddingThenData) {
    NetFlowV9Datagram d;
    d.RawFlowSet(1, 4 + 10 + 2, ByteBuilder().u16(402).u16(0).u16(4).u16(36).u16(2).u16(0));
    d.Data(402, ByteBuilder().u16(1800), 2);
    CNetFlowPacketV9 packet;
    packet.Decode(d);
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), (std::vector<std::wstring>{L"FLOW_ACTIVE_TIMEOUT=1800"}));
}

TEST_F(V9Decode, CutOffRecordEndsDecodingWithTrueKeepingEarlierRecords) {
    NetFlowV9Datagram d;
    d.Template(256, kFlowFields).Data(256, FlowRecord(1, 1, 1, 6), 3);
    CByteArray third = FlowRecord(3, 3, 3, 6).build();
    third.resize(9); // cut inside the source port
    d.RawFlowSet(256, 4 + 2 * kFlowRecordSize, Concat({FlowRecord(2, 2, 2, 17)}).bytes(third));
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_EQ(Texts(packet.GetRecords()[1]), FlowTexts(2, 2, 2, 17));
}

TEST_F(V9Decode, FlowsetLongerThanTheDatagramEndsAtTheCutOffRecord) {
    NetFlowV9Datagram d;
    d.Template(256, kFlowFields).RawFlowSet(256, 1000, FlowRecord(1, 1, 1, 6));
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    EXPECT_EQ(packet.GetSize(), 1);
}

TEST_F(V9Decode, CutOffFlowsetHeaderThrowsAndKeepsRecordsDecodedBefore) {
    NetFlowV9Datagram d;
    d.Template(256, kFlowFields).Data(256, FlowRecord(1, 1, 1, 6), 3).Raw({0x01, 0x00});
    CNetFlowPacketV9 packet;
    EXPECT_THROW(packet.Decode(d), CInvalidArgException);
    EXPECT_EQ(packet.GetSize(), 1);
}

TEST_F(V9Decode, RecordsAreNotBoundedByTheFlowsetEndAndTheOffsetIsPulledBack) {
    // Template 300: two 4-byte fields. The data flowset declares 4 + 8 + 4 bytes: after the first record 4
    // bytes remain, which is not padding, so a second record is read across the declared end; the walk
    // then goes back to the declared end and reads the next flowset header there.
    NetFlowV9Datagram d;
    d.Template(300, {{8, 4}, {12, 4}});
    d.RawFlowSet(300, 16, ByteBuilder().ipv4(1, 1, 1, 1).ipv4(2, 2, 2, 2).ipv4(3, 3, 3, 3));
    // Declared end: these 4 bytes are the second record's destination and the next flowset header.
    d.Raw(ByteBuilder().u16(300).u16(12));
    d.Raw(ByteBuilder().ipv4(5, 5, 5, 5).ipv4(6, 6, 6, 6));
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    ASSERT_EQ(packet.GetSize(), 3);
    EXPECT_EQ(Texts(packet.GetRecords()[0]),
              (std::vector<std::wstring>{L"IPV4_SRC_ADDR=1.1.1.1", L"IPV4_DST_ADDR=2.2.2.2"}));
    EXPECT_EQ(Texts(packet.GetRecords()[1]),
              (std::vector<std::wstring>{L"IPV4_SRC_ADDR=3.3.3.3", L"IPV4_DST_ADDR=1.44.0.12"}));
    EXPECT_EQ(Texts(packet.GetRecords()[2]),
              (std::vector<std::wstring>{L"IPV4_SRC_ADDR=5.5.5.5", L"IPV4_DST_ADDR=6.6.6.6"}));
}

TEST_F(V9Decode, TemplateOverrunningItsFlowsetIsPulledBackToTheDeclaredEnd) {
    // The template flowset declares 8 bytes but its template has one specifier (12 bytes in all): the
    // specifier is read, then the walk continues at the declared end, inside that specifier.
    NetFlowV9Datagram d;
    d.RawFlowSet(0, 8, ByteBuilder().u16(300).u16(1).u16(7).u16(2));
    // The specifier's 4 bytes (00 07 00 02) double as a flowset header: id 7 (options), length 2.
    d.Template(301, {{11, 2}});
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    ASSERT_NE(store->Lookup(300), nullptr);
    EXPECT_EQ(store->Lookup(300)->m_fields.size(), 1u);
    ASSERT_NE(store->Lookup(301), nullptr);
}

TEST_F(V9Decode, HeaderCountDoesNotBoundTheWalk) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram({.count = 1})
                      .Template(256, kFlowFields)
                      .Data(256, FlowRecord(1, 1, 1, 6), 3)
                      .Data(256, FlowRecord(2, 2, 2, 6), 3));
    EXPECT_EQ(packet.GetSize(), 2);
    EXPECT_EQ(packet.GetHeader().m_count, 1);
}

TEST_F(V9Decode, ZeroFieldTemplateEndsItsDataFlowsetAfterOneEmptyRecord) {
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(NetFlowV9Datagram()
                                .Template(500, {})
                                .Data(500, ByteBuilder().u32(1).u32(2).u32(3))
                                .Template(256, kFlowFields)
                                .Data(256, FlowRecord(9, 9, 9, 17), 3)),
              TRUE);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_TRUE(packet.GetRecords()[0].GetFields().empty());
    EXPECT_EQ(Texts(packet.GetRecords()[1]), FlowTexts(9, 9, 9, 17));
}

TEST_F(V9Decode, TemplateOfZeroLengthFieldsEndsItsDataFlowsetAfterOneRecord) {
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(
                  NetFlowV9Datagram().Template(501, {{8, 0}, {95, 0}}).Data(501, ByteBuilder().zeros(40))),
              TRUE);
    ASSERT_EQ(packet.GetSize(), 1);
    const CArray<CNetFlowField> fields = packet.GetRecords()[0].GetFields();
    ASSERT_EQ(fields.size(), 2u);
    EXPECT_TRUE(fields[0].m_value.empty());
    EXPECT_EQ(fields[1].GetType(), 95);
}

TEST_F(V9Decode, ReannouncedTemplateAppliesToLaterRecordsOnly) {
    CNetFlowPacketV9 before;
    before.Decode(NetFlowV9Datagram().Template(256, kFlowFields).Data(256, FlowRecord(1, 1, 1, 6), 3));
    CNetFlowPacketV9 after;
    after.Decode(
        NetFlowV9Datagram().Template(256, {{7, 2}, {11, 2}}).Data(256, ByteBuilder().u16(8080).u16(22)));
    ASSERT_EQ(before.GetSize(), 1);
    EXPECT_EQ(Texts(before.GetRecords()[0]), FlowTexts(1, 1, 1, 6));
    ASSERT_EQ(after.GetSize(), 1);
    EXPECT_EQ(Texts(after.GetRecords()[0]),
              (std::vector<std::wstring>{L"L4_SRC_PORT=8080", L"L4_DST_PORT=22"}));
}

TEST_F(V9Decode, RecordsShorterThanFourBytesAtTheFlowsetEndAreTakenForPadding) {
    // Three 2-byte records: after the second only 2 bytes remain, which the padding rule skips.
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(256, {{7, 2}}).Data(256, ByteBuilder().u16(1).u16(2).u16(3)));
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_EQ(Texts(packet.GetRecords()[1]), (std::vector<std::wstring>{L"L4_SRC_PORT=2"}));
}

TEST_F(V9Decode, DatagramSizedTemplateAndRecordsDecodeTwentyRecords) {
    ByteBuilder records;
    for (int i = 0; i < 20; ++i)
        records.bytes(FlowRecord(static_cast<uint8_t>(i), static_cast<uint16_t>(1000 + i), 80, 6).build());
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(256, kFlowFields).Data(256, records, 0));
    ASSERT_EQ(packet.GetSize(), 20);
    EXPECT_EQ(Texts(packet.GetRecords()[19]), FlowTexts(19, 1019, 80, 6));
}

// Copies.

namespace {

CNetFlowPacketV9 DecodedPacket(uint32_t sourceId, std::initializer_list<uint8_t> hosts) {
    ByteBuilder records;
    for (uint8_t host : hosts)
        records.bytes(FlowRecord(host, host, host, 6).build());
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram(
                      {.count = 2, .sysUptime = 5, .unixSecs = 6, .packageSequence = 7, .sourceId = sourceId})
                      .Template(256, kFlowFields)
                      .Data(256, records));
    return packet;
}

} // namespace

TEST_F(V9Decode, CopyTakesHeaderAndRecordsButNotTheSender) {
    CNetFlowPacketV9 source = DecodedPacket(42, {1, 2});
    source.SetSenderInfo(L"10.1.1.1", 2055);
    CNetFlowPacketV9 target;
    target.SetSenderInfo(L"10.2.2.2", 9996);
    target.Copy(source);
    EXPECT_EQ(target.GetSenderIPAddress(), L"10.2.2.2");
    EXPECT_EQ(target.GetSenderPort(), 9996);
    EXPECT_EQ(target.GetHeader().m_sourceID, 42u);
    EXPECT_EQ(target.GetHeader().m_packageSequence, 7u);
    EXPECT_EQ(target.GetHeader().m_count, 2);
    ASSERT_EQ(target.GetSize(), 2);
    EXPECT_EQ(Texts(target.GetRecords()[1]), FlowTexts(2, 2, 2, 6));
}

TEST_F(V9Decode, CopyReplacesRecordsTheTargetHad) {
    CNetFlowPacketV9 source = DecodedPacket(1, {5});
    CNetFlowPacketV9 target = DecodedPacket(2, {1, 2, 3});
    target.Copy(source);
    ASSERT_EQ(target.GetSize(), 1);
    EXPECT_EQ(Texts(target.GetRecords()[0]), FlowTexts(5, 5, 5, 6));
}

TEST_F(V9Decode, CopyIsDeep) {
    CNetFlowPacketV9 target;
    {
        CNetFlowPacketV9 source = DecodedPacket(1, {5});
        target.Copy(source);
    }
    ASSERT_EQ(target.GetSize(), 1);
    EXPECT_EQ(Texts(target.GetRecords()[0]), FlowTexts(5, 5, 5, 6));
}

TEST_F(V9Decode, CopyOntoItselfKeepsHeaderAndRecords) {
    CNetFlowPacketV9 packet = DecodedPacket(42, {1, 2});
    packet.Copy(packet);
    EXPECT_EQ(packet.GetHeader().m_sourceID, 42u);
    ASSERT_EQ(packet.GetSize(), 2);
    EXPECT_EQ(Texts(packet.GetRecords()[0]), FlowTexts(1, 1, 1, 6));
}

TEST_F(V9Decode, CopyConstructorAndAssignmentAlsoCopyTheSender) {
    CNetFlowPacketV9 source = DecodedPacket(42, {1, 2});
    source.SetSenderInfo(L"10.1.1.1", 2055);

    CNetFlowPacketV9 constructed(source);
    EXPECT_EQ(constructed.GetSenderIPAddress(), L"10.1.1.1");
    EXPECT_EQ(constructed.GetSenderPort(), 2055);
    EXPECT_EQ(constructed.GetHeader().m_sourceID, 42u);
    EXPECT_EQ(constructed.GetSize(), 2);

    CNetFlowPacketV9 assigned = DecodedPacket(9, {7});
    assigned.SetSenderInfo(L"10.2.2.2", 1);
    assigned = source;
    EXPECT_EQ(assigned.GetSenderIPAddress(), L"10.1.1.1");
    EXPECT_EQ(assigned.GetSenderPort(), 2055);
    EXPECT_EQ(assigned.GetHeader().m_sourceID, 42u);
    ASSERT_EQ(assigned.GetSize(), 2);
    EXPECT_EQ(assigned.ToString(), constructed.ToString());
}

TEST_F(V9Decode, PacketsAreDeletedThroughTheBasePointer) {
    CTPAbstractPacket* packet = new CNetFlowPacketV9(DecodedPacket(1, {1, 2, 3}));
    EXPECT_EQ(packet->GetSize(), 3);
    delete packet; // ASan reports a leak if the derived destructor did not run
}

// Record access.

TEST_F(V9Decode, RecordHandsOutEachFieldWithItsValueAndRangeTestsTheIndex) {
    CNetFlowPacketV9 packet;
    packet.Decode(NetFlowV9Datagram().Template(256, kFlowFields).Data(256, FlowRecord(7, 1, 2, 6), 3));
    const CNetFlowSetRecord& record = packet.GetRecords()[0];
    EXPECT_EQ(record.GetFieldCount(), 5);
    CNetFlowField port = record.GetField(3);
    EXPECT_EQ(port.GetType(), 11);
    EXPECT_EQ(port.GetLength(), 2);
    EXPECT_EQ(port.m_value, (CByteArray{0, 2}));
    EXPECT_EQ(record.GetField(4).m_value, (CByteArray{6}));
    EXPECT_THROW(record.GetField(5), CInvalidArgException);
    EXPECT_THROW(record.GetField(-1), CInvalidArgException);
    EXPECT_EQ(CNetFlowSetRecord().GetFieldCount(), 0);
    EXPECT_THROW(CNetFlowSetRecord().GetField(0), CInvalidArgException);
}

TEST_F(V9Decode, CopiedRecordIsIndependentOfTheStoreAndThePacket) {
    CNetFlowSetRecord copy;
    {
        CNetFlowPacketV9 packet;
        packet.Decode(NetFlowV9Datagram().Template(256, kFlowFields).Data(256, FlowRecord(4, 5, 6, 17), 3));
        copy = packet.GetRecords()[0];
    }
    CNetFlowTemplateManagerTestAccess::Reset();
    EXPECT_EQ(Texts(copy), FlowTexts(4, 5, 6, 17));
}

TEST_F(V9Decode, ThousandsOfUnpaddedOneRecordFlowsetsAllDecode) {
    NetFlowV9Datagram d;
    d.Template(256, {{4, 1}});
    for (int i = 0; i < 12000; ++i)
        d.Data(256, ByteBuilder().u8(static_cast<uint8_t>(i))); // 5-byte flowsets, no padding
    CNetFlowPacketV9 packet;
    EXPECT_EQ(packet.Decode(d), TRUE);
    ASSERT_EQ(packet.GetSize(), 12000);
    EXPECT_EQ(packet.GetRecords()[11999].GetField(0).GetValue(), std::to_wstring(11999 % 256));
}
