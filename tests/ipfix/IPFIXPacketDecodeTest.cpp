// Decoding IPFIX messages: header, template and options template sets, data sets, variable-length and
// enterprise fields, withdrawals, padding, malformed lengths, template scopes and the bound.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/DecodeContext.h"
#include "support/IPFIXDatagram.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::ExporterScope;
using tpnf::test::ExporterV4;
using tpnf::test::GlobalScope;
using tpnf::test::IPFIXDatagram;
using tpnf::test::IPFIXFieldSpecifier;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::VariableLength;

namespace {

const CExporterAddress kA = ExporterV4(192, 0, 2, 1);
const CExporterAddress kB = ExporterV4(192, 0, 2, 2);

// Template 256: IPV4_SRC_ADDR, IPV4_DST_ADDR, L4_SRC_PORT, L4_DST_PORT, PROT: 13 bytes per record.
const std::vector<IPFIXFieldSpecifier> kFlow = {{8, 4}, {12, 4}, {7, 2}, {11, 2}, {4, 1}};

ByteBuilder FlowRecord(uint8_t host, uint16_t srcPort, uint16_t dstPort, uint8_t protocol) {
    ByteBuilder b;
    b.ipv4(10, 0, 0, host).ipv4(192, 168, 1, host).u16(srcPort).u16(dstPort).u8(protocol);
    return b;
}

std::wstring FlowText(int host, int srcPort, int dstPort, int protocol) {
    return L"IPV4_SRC_ADDR=10.0.0." + std::to_wstring(host) + L"\r\nIPV4_DST_ADDR=192.168.1." +
           std::to_wstring(host) + L"\r\nL4_SRC_PORT=" + std::to_wstring(srcPort) + L"\r\nL4_DST_PORT=" +
           std::to_wstring(dstPort) + L"\r\nPROT=" + std::to_wstring(protocol) + L"\r\n";
}

ByteBuilder Concat(std::initializer_list<std::vector<uint8_t>> parts) {
    ByteBuilder all;
    for (const std::vector<uint8_t>& part : parts)
        all.bytes(part);
    return all;
}

// Decodes a message from exporter (exporter scope, as IPFIX always is) and keeps the packet.
struct Decoded {
    CIPFIXPacket packet;
    int result = 0;
    std::vector<std::wstring> Texts() const {
        std::vector<std::wstring> texts;
        for (const CIPFIXRecord& record : packet.GetRecords())
            texts.push_back(record.ToString());
        return texts;
    }
};

Decoded Decode(const CByteArray& message, const CDecodeContext& context = ExporterScope(kA)) {
    Decoded d;
    d.packet.SetDecodeContext(context);
    d.result = d.packet.Decode(message);
    return d;
}

std::shared_ptr<const CIPFIXTemplate> Stored(const CExporterAddress& exporter, uint32_t domain, int id) {
    return std::dynamic_pointer_cast<const CIPFIXTemplate>(CNetFlowTemplateManager::GetInstance()->Lookup(
        CTemplateScope{exporter, domain, ETemplateProtocol::IPFIX}, id));
}

} // namespace

class IPFIXDecode : public EmptyTemplateStore {};

// The header and the message length.

TEST_F(IPFIXDecode, HeaderOnlyMessageDecodesToAnEmptyPacket) {
    Decoded d =
        Decode(IPFIXDatagram({.exportTime = 1700000000, .sequence = 0xFFFFFFFE, .domain = 0x80000007}));
    ASSERT_EQ(d.result, TRUE);
    EXPECT_TRUE(d.packet.IsEmpty());
    EXPECT_EQ(d.packet.GetSize(), 0);
    const CIPFIXHeader& h = d.packet.GetHeader();
    EXPECT_EQ(h.m_version, 10u);
    EXPECT_EQ(h.m_length, 16u);
    EXPECT_EQ(h.m_exportTime, 1700000000u);
    EXPECT_EQ(h.m_sequenceNumber, 0xFFFFFFFEu);
    EXPECT_EQ(h.m_observationDomainId, 0x80000007u);
}

TEST_F(IPFIXDecode, ShortMessagesWrongVersionsAndImpossibleLengthsFail) {
    CByteArray header = IPFIXDatagram().build();
    CByteArray fifteen(header.begin(), header.begin() + 15);
    EXPECT_EQ(Decode(fifteen).result, FALSE);
    CByteArray nine = header;
    nine[1] = 9;
    EXPECT_EQ(Decode(nine).result, FALSE);
    EXPECT_EQ(Decode(IPFIXDatagram().Length(15)).result, FALSE);
    EXPECT_EQ(Decode(IPFIXDatagram().Length(17)).result, FALSE); // longer than the datagram
}

TEST_F(IPFIXDecode, BytesAfterTheMessageLengthAreIgnored) {
    IPFIXDatagram message;
    message.Template(256, kFlow).Data(256, FlowRecord(1, 53, 53, 17));
    const uint16_t length = static_cast<uint16_t>(message.size());
    message.Length(length).RawSet(256, 400, FlowRecord(2, 1, 2, 6)); // beyond the message: never read
    Decoded d = Decode(message);
    ASSERT_EQ(d.result, TRUE);
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({FlowText(1, 53, 53, 17)}));
    EXPECT_FALSE(d.packet.GetNotes().overrun);
}

// Templates and data.

TEST_F(IPFIXDecode, TemplateThenDataYieldsRecordsAndPaddingShorterThanARecordEndsTheSet) {
    Decoded d =
        Decode(IPFIXDatagram()
                   .Template(256, kFlow)
                   .Data(256, Concat({FlowRecord(1, 5353, 53, 17), FlowRecord(2, 40000, 80, 6)}), 12));
    ASSERT_EQ(d.result, TRUE);
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({FlowText(1, 5353, 53, 17), FlowText(2, 40000, 80, 6)}));
    EXPECT_EQ(d.packet.GetNotes().templates, 1);
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 0);
}

TEST_F(IPFIXDecode, PaddingInATemplateSetIsSkipped) {
    ByteBuilder body;
    body.u16(256).u16(1).u16(7).u16(2).zeros(3); // one template, then 3 bytes of padding
    Decoded d = Decode(IPFIXDatagram().RawSet(2, 4 + 11, body).Data(256, ByteBuilder().u16(80)));
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({L"L4_SRC_PORT=80\r\n"}));
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 0);
}

TEST_F(IPFIXDecode, DataBeforeItsTemplateIsLostButLaterMessagesDecode) {
    Decoded first = Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6)).Template(256, kFlow));
    EXPECT_TRUE(first.packet.IsEmpty());
    EXPECT_EQ(first.packet.GetNotes().unknownTemplateSets, 1);
    Decoded second = Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6)));
    EXPECT_EQ(second.Texts(), std::vector<std::wstring>({FlowText(1, 1, 2, 6)}));
}

TEST_F(IPFIXDecode, VariableLengthFieldsInShortAndLongFormAndEmpty) {
    const std::string longText(300, 'a');
    Decoded d = Decode(
        IPFIXDatagram()
            .Template(300, {{82, 65535}, {236, 65535}, {7, 2}})
            .Data(300, Concat({VariableLength("eth0"), VariableLength(longText), ByteBuilder().u16(80),
                               VariableLength("x", true), VariableLength(""), ByteBuilder().u16(443)})));
    ASSERT_EQ(d.packet.GetSize(), 2);
    EXPECT_EQ(d.packet.GetRecords()[0].ToString(),
              L"IF_NAME=eth0\r\nVRFname=" + std::wstring(300, L'a') + L"\r\nL4_SRC_PORT=80\r\n");
    EXPECT_EQ(d.packet.GetRecords()[1].ToString(), L"IF_NAME=x\r\nVRFname=\r\nL4_SRC_PORT=443\r\n");
    CIPFIXField vrf = d.packet.GetRecords()[0].GetField(1);
    EXPECT_EQ(vrf.GetLength(), CIPFIXField::VARIABLE_LENGTH);
    EXPECT_EQ(vrf.GetValueBytes().size(), 300u);
    std::shared_ptr<const CIPFIXTemplate> t = Stored(kA, 0, 300);
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(t->m_variableLength);
    EXPECT_EQ(t->m_minRecordLength, 4);
}

TEST_F(IPFIXDecode, AVariableLengthRunningPastItsSetEndsThatSetOnly) {
    Decoded d = Decode(IPFIXDatagram()
                           .Template(300, {{7, 2}, {82, 65535}})
                           .Data(300, Concat({ByteBuilder().u16(1), VariableLength("ok"),
                                              ByteBuilder().u16(2).u8(50).text("short")}))
                           .Data(300, Concat({ByteBuilder().u16(3), VariableLength("next")})));
    ASSERT_EQ(d.result, TRUE);
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>(
                             {L"L4_SRC_PORT=1\r\nIF_NAME=ok\r\n", L"L4_SRC_PORT=3\r\nIF_NAME=next\r\n"}));
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 1);
    EXPECT_FALSE(d.packet.GetNotes().overrun);
}

TEST_F(IPFIXDecode, EnterpriseFieldsDecodeWithTheirNumbers) {
    Decoded d = Decode(IPFIXDatagram()
                           .Template(1024, {{8, 4},
                                            {3, 65535, 43874},
                                            {501, 4, 43874},
                                            {1, 4, CIPFIXField::REVERSE_ENTERPRISE},
                                            {2, 2, 4000000000u}})
                           .Data(1024, Concat({ByteBuilder().ipv4(10, 1, 1, 1),
                                               VariableLength(std::vector<uint8_t>{'g', 'o', 'l', 'd', 0}),
                                               ByteBuilder().u32(0x14E90035).u32(5).u16(7)})));
    ASSERT_EQ(d.packet.GetSize(), 1);
    EXPECT_EQ(d.Texts()[0], L"IPV4_SRC_ADDR=10.1.1.1\r\nE43874.3=676F6C6400\r\nE43874.501=14E90035\r\n"
                            L"E29305.1=00000005\r\nE4000000000.2=0007\r\n");
    std::shared_ptr<const CIPFIXTemplate> t = Stored(kA, 0, 1024);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->m_enterprises, std::vector<uint32_t>({0, 43874, 43874, 29305, 4000000000u}));
    EXPECT_EQ(t->m_fields[1].GetType(), 0x8003);

    CUIntArray ids;
    CStringArray values;
    d.packet.GetRecordFields(0, ids, values);
    ASSERT_EQ(ids.size(), 5u);
    EXPECT_EQ(ids[0], 8u);
    EXPECT_EQ(ids[1], (43874u << 15) | 3u);
    EXPECT_EQ(ids[3], (29305u << 15) | 1u);
    EXPECT_GE(ids[4], 0x80000000u);
    EXPECT_EQ(CIPFIXField::GetFieldName(ids[4]), L"E4000000000.2");
    EXPECT_EQ(values[1], L"676F6C6400");
}

// Options templates.

TEST_F(IPFIXDecode, OptionsTemplateKeepsItsScopeFieldsFirstAndDecodesItsRecords) {
    Decoded d = Decode(
        IPFIXDatagram({.domain = 9})
            .OptionsTemplate(257, {{143, 4}}, {{160, 8}, {305, 4}, {82, 16}})
            .Data(257, ByteBuilder().u32(9978).u64(1795465333104ull).u32(1).text("traffic.pcap").zeros(4)));
    ASSERT_EQ(d.packet.GetSize(), 1);
    EXPECT_EQ(d.Texts()[0], L"meteringProcessId=9978\r\nsystemInitTimeMilliseconds=1795465333104\r\n"
                            L"samplingPacketInterval=1\r\nIF_NAME=traffic.pcap\r\n");
    std::shared_ptr<const CIPFIXTemplate> t = Stored(kA, 9, 257);
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(t->m_options);
    EXPECT_EQ(t->m_scopeFieldCount, 1);
    EXPECT_EQ(t->m_fieldCount, 4);
    std::vector<CIPFIXField> fields = d.packet.GetRecords()[0].GetFields();
    EXPECT_EQ(fields[0].IsScope(), TRUE);
    EXPECT_EQ(fields[1].IsScope(), FALSE);
}

TEST_F(IPFIXDecode, OptionsTemplateWithoutScopeOrWithMoreScopeThanFieldsIsNotStored) {
    Decoded none = Decode(IPFIXDatagram().OptionsTemplate(257, {}, {{160, 8}}, 0));
    EXPECT_EQ(none.packet.GetNotes().malformedSets, 1);
    EXPECT_EQ(Stored(kA, 0, 257), nullptr);
    Decoded tooMany = Decode(IPFIXDatagram().OptionsTemplate(258, {{143, 4}}, {{160, 8}}, 3));
    EXPECT_EQ(tooMany.packet.GetNotes().malformedSets, 1);
    EXPECT_EQ(Stored(kA, 0, 258), nullptr);
}

// Withdrawals.

TEST_F(IPFIXDecode, WithdrawalOfOneTemplateLeavesTheOthers) {
    Decode(IPFIXDatagram().Templates({{256, kFlow}, {257, {{7, 2}}}}));
    Decoded w = Decode(IPFIXDatagram().Withdraw(256));
    EXPECT_EQ(w.packet.GetNotes().withdrawals, 1);
    Decoded d = Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6)).Data(257, ByteBuilder().u16(22)));
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({L"L4_SRC_PORT=22\r\n"}));
    EXPECT_EQ(d.packet.GetNotes().unknownTemplateSets, 1);
}

TEST_F(IPFIXDecode, WithdrawingAllTemplatesOfAKindKeepsTheOtherKind) {
    Decode(IPFIXDatagram()
               .Templates({{256, kFlow}, {257, {{7, 2}}}})
               .OptionsTemplate(258, {{143, 4}}, {{305, 4}}));
    Decode(IPFIXDatagram().Withdraw(2, 2)); // every template, not the options template
    EXPECT_EQ(Stored(kA, 0, 256), nullptr);
    EXPECT_EQ(Stored(kA, 0, 257), nullptr);
    EXPECT_NE(Stored(kA, 0, 258), nullptr);
    Decode(IPFIXDatagram().Withdraw(3, 3)); // every options template
    EXPECT_EQ(Stored(kA, 0, 258), nullptr);
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance()->GetSnapshot().scopedTemplates, 0u);
}

TEST_F(IPFIXDecode, RecordsKeepTheLayoutTheyWereDecodedWithAfterAWithdrawal) {
    Decoded d = Decode(IPFIXDatagram().Template(256, kFlow).Data(256, FlowRecord(4, 1, 2, 17)).Withdraw(256));
    EXPECT_EQ(Stored(kA, 0, 256), nullptr);
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({FlowText(4, 1, 2, 17)}));
}

// Malformed sets.

TEST_F(IPFIXDecode, ASetRunningPastTheMessageEndsTheWalkAndKeepsWhatWasDecoded) {
    Decoded d = Decode(IPFIXDatagram()
                           .Template(256, kFlow)
                           .Data(256, FlowRecord(1, 1, 2, 6))
                           .RawSet(256, 100, FlowRecord(2, 3, 4, 6))); // claims 100 bytes, holds 17
    ASSERT_EQ(d.result, TRUE);
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({FlowText(1, 1, 2, 6)}));
    EXPECT_TRUE(d.packet.GetNotes().overrun);
}

TEST_F(IPFIXDecode, ASetLengthBelowFourEndsTheWalk) {
    Decoded d = Decode(IPFIXDatagram().Template(256, kFlow).RawSet(256, 2).Data(256, FlowRecord(1, 1, 2, 6)));
    ASSERT_EQ(d.result, TRUE);
    EXPECT_TRUE(d.packet.IsEmpty());
    EXPECT_TRUE(d.packet.GetNotes().overrun);
    EXPECT_NE(Stored(kA, 0, 256), nullptr);
}

TEST_F(IPFIXDecode, ATemplateRunningPastItsSetIsNotStoredAndTheNextSetIsRead) {
    ByteBuilder body;
    body.u16(300).u16(3).u16(7).u16(2).u16(11).u16(2); // three fields announced, two present
    Decoded d = Decode(IPFIXDatagram().RawSet(2, 4 + 12, body).Template(301, {{7, 2}}));
    EXPECT_EQ(Stored(kA, 0, 300), nullptr);
    EXPECT_NE(Stored(kA, 0, 301), nullptr);
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 1);
    EXPECT_EQ(d.packet.GetNotes().templates, 1);
}

TEST_F(IPFIXDecode, AnEnterpriseNumberCutOffByTheSetEndIsMalformed) {
    ByteBuilder body;
    body.u16(300).u16(1).u16(0x8003).u16(4).u16(0xAB); // half an enterprise number
    Decoded d = Decode(IPFIXDatagram().RawSet(2, static_cast<uint16_t>(4 + body.size()), body));
    EXPECT_EQ(Stored(kA, 0, 300), nullptr);
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 1);
}

TEST_F(IPFIXDecode, ATemplateIdBelow256IsMalformedAndReservedSetIdsAreSkipped) {
    Decoded d = Decode(IPFIXDatagram()
                           .Template(255, {{7, 2}})
                           .RawSet(1, 8, ByteBuilder().u32(0xDEADBEEF))
                           .RawSet(4, 8, ByteBuilder().u32(0xDEADBEEF))
                           .RawSet(255, 6, ByteBuilder().u16(1))
                           .Template(256, {{7, 2}})
                           .Data(256, ByteBuilder().u16(9)));
    EXPECT_EQ(d.Texts(), std::vector<std::wstring>({L"L4_SRC_PORT=9\r\n"}));
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 1);
    EXPECT_EQ(d.packet.GetNotes().templates, 1);
}

TEST_F(IPFIXDecode, ATemplateOfZeroLengthFieldsNeverLoopsOverItsData) {
    Decoded d = Decode(IPFIXDatagram().Template(256, {{7, 0}}).Data(256, ByteBuilder().zeros(8)));
    EXPECT_TRUE(d.packet.IsEmpty());
    EXPECT_EQ(d.packet.GetNotes().malformedSets, 1);
}

// Template scopes and the bound.

TEST_F(IPFIXDecode, TwoExportersWithOneTemplateIdDecodeWithTheirOwnTemplates) {
    Decode(IPFIXDatagram().Template(256, kFlow), ExporterScope(kA));
    Decode(IPFIXDatagram().Template(256, {{7, 2}, {11, 2}}), ExporterScope(kB));
    EXPECT_EQ(Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6)), ExporterScope(kA)).Texts(),
              std::vector<std::wstring>({FlowText(1, 1, 2, 6)}));
    EXPECT_EQ(Decode(IPFIXDatagram().Data(256, ByteBuilder().u16(53).u16(54)), ExporterScope(kB)).Texts(),
              std::vector<std::wstring>({L"L4_SRC_PORT=53\r\nL4_DST_PORT=54\r\n"}));
}

TEST_F(IPFIXDecode, TemplatesAreScopedToTheExporterEvenWithTheGlobalV9Scope) {
    Decode(IPFIXDatagram().Template(256, kFlow), GlobalScope(kA));
    EXPECT_TRUE(Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6)), GlobalScope(kB)).packet.IsEmpty());
    EXPECT_EQ(Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6)), GlobalScope(kA)).packet.GetSize(), 1);
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance()->GetCount(), 0u); // nothing in the v9 global scope
}

TEST_F(IPFIXDecode, ObservationDomainsOfOneExporterAreSeparate) {
    Decode(IPFIXDatagram({.domain = 1}).Template(256, kFlow));
    EXPECT_TRUE(Decode(IPFIXDatagram({.domain = 2}).Data(256, FlowRecord(1, 1, 2, 6))).packet.IsEmpty());
    EXPECT_EQ(Decode(IPFIXDatagram({.domain = 1}).Data(256, FlowRecord(1, 1, 2, 6))).packet.GetSize(), 1);
}

TEST_F(IPFIXDecode, IPFIXAndV9TemplatesOfOneExporterWithOneIdDoNotMeet) {
    CNetFlowPacketV9 v9;
    v9.SetDecodeContext(ExporterScope(kA));
    v9.Decode(NetFlowV9Datagram().Template(256, {{7, 2}}));
    Decode(IPFIXDatagram().Template(256, kFlow));
    v9.Decode(NetFlowV9Datagram().Data(256, ByteBuilder().u16(99)));
    ASSERT_EQ(v9.GetSize(), 1);
    EXPECT_EQ(v9.GetRecords()[0].ToString(), L"L4_SRC_PORT=99\r\n");
    EXPECT_EQ(Decode(IPFIXDatagram().Data(256, FlowRecord(1, 1, 2, 6))).Texts(),
              std::vector<std::wstring>({FlowText(1, 1, 2, 6)}));
}

TEST_F(IPFIXDecode, MaxTemplatesBoundsEachExportersIPFIXTemplates) {
    Decoded d = Decode(IPFIXDatagram().Templates({{256, {{7, 2}}}, {257, {{7, 2}}}, {258, {{7, 2}}}}),
                       ExporterScope(kA, 2));
    EXPECT_EQ(d.packet.GetNotes().templates, 3);
    EXPECT_EQ(Stored(kA, 0, 256), nullptr);
    EXPECT_NE(Stored(kA, 0, 257), nullptr);
    EXPECT_NE(Stored(kA, 0, 258), nullptr);
    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, 2u);
    EXPECT_EQ(snapshot.dropped, 1u);
}

// The packet interface.

TEST_F(IPFIXDecode, TextShowsSenderHeaderAndRecordsAsV9Does) {
    Decoded d = Decode(IPFIXDatagram({.exportTime = 1700000000, .sequence = 4000000000u, .domain = 7})
                           .Template(256, kFlow)
                           .Data(256, Concat({FlowRecord(1, 5353, 53, 17), FlowRecord(2, 40000, 80, 6)})));
    d.packet.SetSenderInfo(L"192.0.2.1", 4739);
    EXPECT_EQ(
        d.packet.ToString(),
        L"IPFIX packet received from: 192.0.2.1:4739\r\n"
        L"IPFIXHeader [ version = 10, length = 74, exportTime = 1700000000, sequenceNumber = 4000000000, "
        L"observationDomainId = 7 ]\r\n=====Records:=====\r\n*****Record 0*****\r\n" +
            FlowText(1, 5353, 53, 17) + L"\r\n*****Record 1*****\r\n" + FlowText(2, 40000, 80, 6));
}

TEST_F(IPFIXDecode, TextOfAPacketWithoutRecordsEndsAfterTheBanner) {
    Decoded d = Decode(IPFIXDatagram({.exportTime = 5, .sequence = 6, .domain = 0}));
    EXPECT_EQ(d.packet.ToString(),
              L"IPFIX packet received from: :0\r\nIPFIXHeader [ version = 10, length = 16, "
              L"exportTime = 5, sequenceNumber = 6, observationDomainId = 0 ]\r\n"
              L"=====Records:=====");
}

TEST_F(IPFIXDecode, RecordFieldsGiveIdsAndValuesWithTheProtocolName) {
    Decoded d = Decode(IPFIXDatagram()
                           .Template(256, {{8, 4}, {4, 1}, {136, 1}})
                           .Data(256, ByteBuilder().ipv4(10, 0, 0, 1).u8(17).u8(2)));
    CUIntArray ids{99};
    CStringArray values{L"old"};
    d.packet.GetRecordFields(0, ids, values);
    EXPECT_EQ(ids, CUIntArray({8, 4, 136}));
    EXPECT_EQ(values, CStringArray({L"10.0.0.1", L"UDP", L"2"}));
    EXPECT_THROW(d.packet.GetRecordFields(1, ids, values), CInvalidArgException);
    EXPECT_THROW(d.packet.GetRecordFields(-1, ids, values), CInvalidArgException);
}

TEST_F(IPFIXDecode, ProtocolTimestampAndUptime) {
    Decoded d = Decode(IPFIXDatagram({.exportTime = 1700000000}));
    EXPECT_EQ(d.packet.GetProtocol(), L"IPFIX");
    EXPECT_EQ(d.packet.GetTimestamp(), CTPAbstractPacket::FormatTimestamp(1700000000));
    EXPECT_EQ(d.packet.GetSysUpTime(), L"");
    // Export times are unsigned: past 2038 they still have a local time.
    Decoded late = Decode(IPFIXDatagram({.exportTime = 0x90000000u}));
    EXPECT_EQ(late.packet.GetTimestamp(), CTPAbstractPacket::FormatTimestamp(0x90000000ll));
}

TEST_F(IPFIXDecode, CopiesCarryRecordsAndTheCopyConstructorTheSenderToo) {
    Decoded d = Decode(IPFIXDatagram({.sequence = 3}).Template(256, kFlow).Data(256, FlowRecord(1, 1, 2, 6)));
    d.packet.SetSenderInfo(L"192.0.2.1", 4739);
    CIPFIXPacket copy(d.packet);
    EXPECT_EQ(copy.ToString(), d.packet.ToString());
    CIPFIXPacket assigned;
    assigned = d.packet;
    EXPECT_EQ(assigned.GetSenderPort(), 4739);
    CIPFIXPacket copied;
    copied.SetSenderInfo(L"198.51.100.1", 1);
    copied.Copy(d.packet);
    EXPECT_EQ(copied.GetSenderIPAddress(), L"198.51.100.1");
    EXPECT_EQ(copied.GetHeader().m_sequenceNumber, 3u);
    ASSERT_EQ(copied.GetSize(), 1);
    EXPECT_EQ(copied.GetRecords()[0].ToString(), FlowText(1, 1, 2, 6));
}

TEST_F(IPFIXDecode, AFieldOutsideTheRecordRaises) {
    Decoded d = Decode(IPFIXDatagram().Template(256, {{7, 2}}).Data(256, ByteBuilder().u16(1)));
    ASSERT_EQ(d.packet.GetSize(), 1);
    EXPECT_THROW(d.packet.GetRecords()[0].GetField(1), CInvalidArgException);
    EXPECT_EQ(d.packet.GetRecords()[0].GetField(0).ToString(), L"L4_SRC_PORT=1");
}
