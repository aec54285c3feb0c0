// Bounded template memory: many exporters flooding distinct template ids hold at most maxTemplates each,
// measured by the store's own estimate and by the heap itself.

#include <gtest/gtest.h>

#include <malloc.h>

#include <vector>

#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/DecodeContext.h"
#include "support/NetFlowV9Datagram.h"

#if defined(__SANITIZE_ADDRESS__)
// From the AddressSanitizer runtime: its allocator does not report through mallinfo2.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

using tpnf::test::ExporterScope;
using tpnf::test::ExporterV4;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::V9FieldSpecifier;

namespace {

constexpr int kExporters = 100;
constexpr int kIdsPerRound = 400;
constexpr uint32_t kBound = 8;

// Bytes the heap has handed out and not taken back.
size_t HeapInUse() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

// A template of 24 fields, as large as common flow templates.
std::vector<V9FieldSpecifier> Fields() {
    std::vector<V9FieldSpecifier> fields;
    for (uint16_t type = 1; type <= 24; ++type)
        fields.push_back({type, 4});
    return fields;
}

// Every exporter announces kIdsPerRound ids from firstId on, eight templates per datagram.
void Flood(int firstId, uint32_t bound, int exporters = kExporters) {
    const std::vector<V9FieldSpecifier> fields = Fields();
    for (int e = 0; e < exporters; ++e) {
        const CDecodeContext context = ExporterScope(
            ExporterV4(10, 20, static_cast<uint8_t>(e / 256), static_cast<uint8_t>(e % 256)), bound);
        for (int id = firstId; id < firstId + kIdsPerRound; id += 8) {
            NetFlowV9Datagram d;
            for (int k = 0; k < 8; ++k)
                d.Template(static_cast<uint16_t>(id + k), fields);
            CNetFlowPacketV9 packet;
            packet.SetDecodeContext(context);
            packet.Decode(d);
        }
    }
}

} // namespace

class TemplateMemory : public EmptyTemplateStore {};

TEST_F(TemplateMemory, FloodOfDistinctIdsFromManyExportersHoldsTheBoundAndNoMoreMemory) {
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    const size_t heapBefore = HeapInUse();

    Flood(256, kBound);
    const CTemplateStoreSnapshot first = store->GetSnapshot();
    const size_t heapAfterFirst = HeapInUse();
    EXPECT_EQ(first.scopedTemplates, kExporters * kBound);
    EXPECT_EQ(first.dropped, kExporters * (kIdsPerRound - kBound));
    ASSERT_EQ(first.exporters.size(), static_cast<size_t>(kExporters));
    for (const CTemplateStoreSnapshot::Exporter& e : first.exporters) {
        EXPECT_EQ(e.templates, kBound);
        EXPECT_EQ(e.dropped, kIdsPerRound - kBound);
    }

    // Another round of new ids replaces what is held without holding more.
    Flood(256 + kIdsPerRound, kBound);
    const CTemplateStoreSnapshot second = store->GetSnapshot();
    const size_t heapAfterSecond = HeapInUse();
    EXPECT_EQ(second.scopedTemplates, kExporters * kBound);
    EXPECT_EQ(second.dropped, kExporters * (2 * kIdsPerRound - kBound)); // the first round's too
    EXPECT_EQ(second.bytes, first.bytes);

    // What one template costs, from the estimate: 800 held templates of 24 fields.
    const size_t perTemplate = first.bytes / first.scopedTemplates;
    EXPECT_GT(perTemplate, 24 * sizeof(CNetFlowField));
    // The heap grew by about what the store says it holds (the table's buckets come on top), and the
    // second round of 40,000 templates added less than what 40 of them would hold.
    EXPECT_LT(heapAfterFirst - heapBefore, 2 * first.bytes + 64 * 1024);
    const size_t secondRoundGrowth = heapAfterSecond > heapAfterFirst ? heapAfterSecond - heapAfterFirst : 0;
    EXPECT_LT(secondRoundGrowth, 40 * perTemplate);
    RecordProperty("bytes_held", static_cast<int>(second.bytes));
    RecordProperty("heap_growth_first_round", static_cast<int>(heapAfterFirst - heapBefore));
    RecordProperty("heap_growth_second_round", static_cast<int>(secondRoundGrowth));
}

TEST_F(TemplateMemory, WithoutABoundTheSameFloodHoldsEveryTemplate) {
    // Ten exporters only: the contrast is plain without holding tens of megabytes.
    Flood(256, 0, 10);
    const CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, 10u * kIdsPerRound);
    EXPECT_EQ(snapshot.dropped, 0u);
    EXPECT_GT(snapshot.bytes, 10u * kIdsPerRound * 24 * sizeof(CNetFlowField));
}
