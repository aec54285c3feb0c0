// Templates per exporter (ETemplateScope::Exporter), the bound on templates per exporter, and the store's
// snapshot for metrics.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/DecodeContext.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::ExporterScope;
using tpnf::test::ExporterV4;
using tpnf::test::ExporterV6;
using tpnf::test::GlobalScope;
using tpnf::test::NetFlowV9Datagram;

namespace {

// Exporter A announces 256 as IPV4_SRC_ADDR, L4_SRC_PORT (6 bytes); exporter B announces 256 as
// L4_DST_PORT, PROT, IN_PKTS (7 bytes). Each then sends one record laid out by its own template.
const CExporterAddress kA = ExporterV4(192, 0, 2, 1);
const CExporterAddress kB = ExporterV4(192, 0, 2, 2);

CByteArray AnnounceA(uint32_t sourceId = 0) {
    return NetFlowV9Datagram({.sourceId = sourceId}).Template(256, {{8, 4}, {7, 2}});
}
CByteArray AnnounceB(uint32_t sourceId = 0) {
    return NetFlowV9Datagram({.sourceId = sourceId}).Template(256, {{11, 2}, {4, 1}, {2, 4}});
}
CByteArray DataA(uint32_t sourceId = 0) {
    return NetFlowV9Datagram({.sourceId = sourceId}).Data(256, ByteBuilder().ipv4(10, 1, 1, 1).u16(4000), 2);
}
CByteArray DataB(uint32_t sourceId = 0) {
    return NetFlowV9Datagram({.sourceId = sourceId}).Data(256, ByteBuilder().u16(53).u8(17).u32(9), 1);
}

// Decodes one datagram as coming from exporter with context; returns its records' texts.
std::vector<std::wstring> Decode(const CDecodeContext& context, const CByteArray& datagram) {
    CNetFlowPacketV9 packet;
    packet.SetDecodeContext(context);
    EXPECT_EQ(packet.Decode(datagram), TRUE);
    std::vector<std::wstring> texts;
    for (const CNetFlowSetRecord& record : packet.GetRecords())
        texts.push_back(record.ToString());
    return texts;
}

const CTemplateStoreSnapshot::Exporter* Find(const CTemplateStoreSnapshot& snapshot,
                                             const CExporterAddress& address) {
    for (const CTemplateStoreSnapshot::Exporter& e : snapshot.exporters)
        if (e.address.length == address.length &&
            std::equal(e.address.bytes.begin(), e.address.bytes.begin() + address.length,
                       address.bytes.begin()))
            return &e;
    return nullptr;
}

CTemplateScope V9Scope(const CExporterAddress& exporter, uint32_t sourceId) {
    return CTemplateScope{exporter, sourceId, ETemplateProtocol::NetFlowV9};
}

} // namespace

const std::wstring kRecordA = L"IPV4_SRC_ADDR=10.1.1.1\r\nL4_SRC_PORT=4000\r\n";
const std::wstring kRecordB = L"L4_DST_PORT=53\r\nPROT=17\r\nIN_PKTS=9\r\n";

class TemplateScope : public EmptyTemplateStore {};

TEST_F(TemplateScope, GlobalScopeLetsTheLastAnnouncementOfAnIdDecideTheLayoutForEveryExporter) {
    Decode(GlobalScope(kA), AnnounceA());
    Decode(GlobalScope(kB), AnnounceB());
    // A's bytes 0A 01 01 01 0F A0 read with B's layout: intended for the global scope.
    EXPECT_EQ(Decode(GlobalScope(kA), DataA()),
              std::vector<std::wstring>({L"L4_DST_PORT=2561\r\nPROT=1\r\nIN_PKTS=17801216\r\n"}));
    EXPECT_EQ(Decode(GlobalScope(kB), DataB()), std::vector<std::wstring>({kRecordB}));
}

TEST_F(TemplateScope, ExporterScopeDecodesTwoExportersSharingAnIdWithTheirOwnTemplates) {
    Decode(ExporterScope(kA), AnnounceA());
    Decode(ExporterScope(kB), AnnounceB());
    EXPECT_EQ(Decode(ExporterScope(kA), DataA()), std::vector<std::wstring>({kRecordA}));
    EXPECT_EQ(Decode(ExporterScope(kB), DataB()), std::vector<std::wstring>({kRecordB}));
    // In either order of arrival.
    Decode(ExporterScope(kA), AnnounceA());
    EXPECT_EQ(Decode(ExporterScope(kB), DataB()), std::vector<std::wstring>({kRecordB}));
}

TEST_F(TemplateScope, ExporterScopeNeitherReadsNorWritesTheGlobalScope) {
    Decode(GlobalScope(kA), AnnounceA());
    EXPECT_TRUE(Decode(ExporterScope(kA), DataA()).empty()); // announced globally only
    Decode(ExporterScope(kB), AnnounceB());
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    EXPECT_EQ(store->GetCount(), 1u);
    ASSERT_NE(store->Lookup(256), nullptr);
    EXPECT_EQ(store->Lookup(256)->m_fields.size(), 2u); // still A's global announcement
    EXPECT_EQ(Decode(GlobalScope(kB), DataA()), std::vector<std::wstring>({kRecordA}));
}

TEST_F(TemplateScope, SourceIdsOfOneExporterAreSeparateScopes) {
    Decode(ExporterScope(kA), AnnounceA(1));
    Decode(ExporterScope(kA), AnnounceB(2));
    EXPECT_EQ(Decode(ExporterScope(kA), DataA(1)), std::vector<std::wstring>({kRecordA}));
    EXPECT_EQ(Decode(ExporterScope(kA), DataB(2)), std::vector<std::wstring>({kRecordB}));
    EXPECT_TRUE(Decode(ExporterScope(kA), DataA(3)).empty());
}

TEST_F(TemplateScope, ThePortIsNotPartOfTheExporterButTheWholeIPv6AddressIs) {
    Decode(ExporterScope(ExporterV4(192, 0, 2, 1, 40000)), AnnounceA());
    EXPECT_EQ(Decode(ExporterScope(ExporterV4(192, 0, 2, 1, 40001)), DataA()),
              std::vector<std::wstring>({kRecordA}));

    const CExporterAddress v6 = ExporterV6({0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
    const CExporterAddress v6Other = ExporterV6({0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2});
    Decode(ExporterScope(v6), AnnounceB());
    EXPECT_EQ(Decode(ExporterScope(v6), DataB()), std::vector<std::wstring>({kRecordB}));
    EXPECT_TRUE(Decode(ExporterScope(v6Other), DataB()).empty());
}

TEST_F(TemplateScope, ReannouncementInTheExporterScopeReplacesOnlyThatExportersTemplate) {
    Decode(ExporterScope(kA), AnnounceA());
    Decode(ExporterScope(kB), AnnounceA());
    Decode(ExporterScope(kA), AnnounceB());
    EXPECT_EQ(Decode(ExporterScope(kA), DataB()), std::vector<std::wstring>({kRecordB}));
    EXPECT_EQ(Decode(ExporterScope(kB), DataA()), std::vector<std::wstring>({kRecordA}));
    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, 2u);
    EXPECT_EQ(snapshot.globalTemplates, 0u);
}

// The bound.

NetFlowV9Datagram Announce(std::initializer_list<uint16_t> ids) {
    NetFlowV9Datagram d;
    for (uint16_t id : ids)
        d.Template(id, {{7, 2}});
    return d;
}

bool Held(const CExporterAddress& exporter, int id) {
    return CNetFlowTemplateManager::GetInstance()->Lookup(V9Scope(exporter, 0), id) != nullptr;
}

TEST_F(TemplateScope, BeyondMaxTemplatesTheExportersLeastRecentlyAnnouncedTemplateIsDroppedAndCounted) {
    Decode(ExporterScope(kA, 3), Announce({300, 301, 302}));
    Decode(ExporterScope(kA, 3), Announce({300})); // announced again: now the newest
    Decode(ExporterScope(kA, 3), Announce({303, 304}));
    EXPECT_TRUE(Held(kA, 300));
    EXPECT_FALSE(Held(kA, 301));
    EXPECT_FALSE(Held(kA, 302));
    EXPECT_TRUE(Held(kA, 303));
    EXPECT_TRUE(Held(kA, 304));

    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, 3u);
    EXPECT_EQ(snapshot.dropped, 2u);
    ASSERT_EQ(snapshot.exporters.size(), 1u);
    const CTemplateStoreSnapshot::Exporter* a = Find(snapshot, kA);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->templates, 3u);
    EXPECT_EQ(a->dropped, 2u);
    EXPECT_EQ(a->address.port, 0);
}

TEST_F(TemplateScope, TheBoundCountsEachExporterAloneAcrossItsSourceIds) {
    Decode(ExporterScope(kA, 2), NetFlowV9Datagram({.sourceId = 1}).Template(300, {{7, 2}}));
    Decode(ExporterScope(kA, 2), NetFlowV9Datagram({.sourceId = 2}).Template(300, {{7, 2}}));
    Decode(ExporterScope(kB, 2), Announce({300, 301}));
    Decode(ExporterScope(kA, 2), NetFlowV9Datagram({.sourceId = 3}).Template(300, {{7, 2}}));
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    EXPECT_EQ(store->Lookup(V9Scope(kA, 1), 300), nullptr);
    EXPECT_NE(store->Lookup(V9Scope(kA, 2), 300), nullptr);
    EXPECT_NE(store->Lookup(V9Scope(kA, 3), 300), nullptr);
    EXPECT_TRUE(Held(kB, 300));
    EXPECT_TRUE(Held(kB, 301));
    CTemplateStoreSnapshot snapshot = store->GetSnapshot();
    EXPECT_EQ(Find(snapshot, kA)->dropped, 1u);
    EXPECT_EQ(Find(snapshot, kB)->dropped, 0u);
    EXPECT_EQ(snapshot.dropped, 1u);
}

TEST_F(TemplateScope, ZeroMeansNoBoundAndTheGlobalScopeIgnoresTheBound) {
    Decode(ExporterScope(kA, 0), Announce({300, 301, 302, 303}));
    Decode(GlobalScope(kA, 1), Announce({400, 401, 402}));
    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, 4u);
    EXPECT_EQ(snapshot.globalTemplates, 3u);
    EXPECT_EQ(snapshot.dropped, 0u);
}

TEST_F(TemplateScope, RecordsDecodedBeforeTheirTemplateWasDroppedKeepTheirLayout) {
    CNetFlowPacketV9 packet;
    packet.SetDecodeContext(ExporterScope(kA, 1));
    packet.Decode(NetFlowV9Datagram()
                      .Template(256, {{8, 4}, {7, 2}})
                      .Data(256, ByteBuilder().ipv4(10, 1, 1, 1).u16(4000)));
    Decode(ExporterScope(kA, 1), Announce({300})); // drops 256
    EXPECT_FALSE(Held(kA, 256));
    ASSERT_EQ(packet.GetSize(), 1);
    EXPECT_EQ(packet.GetRecords()[0].ToString(), kRecordA);
}

TEST_F(TemplateScope, SnapshotByteEstimateFollowsWhatIsHeld) {
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    EXPECT_EQ(store->GetSnapshot().bytes, 0u);
    Decode(ExporterScope(kA, 2), Announce({300}));
    const size_t one = store->GetSnapshot().bytes;
    EXPECT_GT(one, CNetFlowTemplateManager::EstimateBytes(CNetFlowSetTemplate()));
    Decode(ExporterScope(kA, 2), Announce({301}));
    EXPECT_EQ(store->GetSnapshot().bytes, 2 * one);
    Decode(ExporterScope(kA, 2), Announce({302, 303, 304}));
    EXPECT_EQ(store->GetSnapshot().bytes, 2 * one); // the bound holds the memory too
    Decode(GlobalScope(kA), Announce({300}));
    EXPECT_GT(store->GetSnapshot().bytes, 2 * one);
}

// The store's scoped interface as the IPFIX decoder uses it.

TEST_F(TemplateScope, WithdrawRemovesOneTemplateAndWithdrawAllOneKindOfOneScope) {
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    const CTemplateScope scope{kA, 7, ETemplateProtocol::IPFIX};
    const CTemplateScope otherDomain{kA, 8, ETemplateProtocol::IPFIX};
    const CTemplateScope v9{kA, 7, ETemplateProtocol::NetFlowV9};
    auto layout = std::make_shared<const CNetFlowSetTemplate>();
    for (int id : {256, 257, 258})
        store->SetTemplate(scope, id, layout, 10, id == 258, 0);
    store->SetTemplate(otherDomain, 256, layout, 10, false, 0);
    store->SetTemplate(v9, 256, layout, 10, false, 0);

    EXPECT_TRUE(store->Withdraw(scope, 257));
    EXPECT_FALSE(store->Withdraw(scope, 257));
    EXPECT_EQ(store->Lookup(scope, 257), nullptr);
    store->SetTemplate(scope, 259, layout, 10, false, 0);

    EXPECT_EQ(store->WithdrawAll(scope, false), 2u); // 256 and 259; the options template 258 stays
    EXPECT_EQ(store->Lookup(scope, 256), nullptr);
    EXPECT_NE(store->Lookup(scope, 258), nullptr);
    EXPECT_NE(store->Lookup(otherDomain, 256), nullptr);
    EXPECT_NE(store->Lookup(v9, 256), nullptr);
    EXPECT_EQ(store->WithdrawAll(scope, true), 1u);
    EXPECT_EQ(store->GetSnapshot().scopedTemplates, 2u);
    EXPECT_EQ(store->GetSnapshot().dropped, 0u); // withdrawals are not drops
}

TEST_F(TemplateScope, AnExporterWhoseTemplatesAreAllGoneLeavesTheSnapshot) {
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    const CTemplateScope scope{kB, 0, ETemplateProtocol::IPFIX};
    store->SetTemplate(scope, 256, std::make_shared<const CNetFlowSetTemplate>(), 10, false, 0);
    EXPECT_EQ(store->GetSnapshot().exporters.size(), 1u);
    store->Withdraw(scope, 256);
    CTemplateStoreSnapshot snapshot = store->GetSnapshot();
    EXPECT_TRUE(snapshot.exporters.empty());
    EXPECT_EQ(snapshot.bytes, 0u);
}
