// NetFlow v9 decoding and rendering: a datagram of 20 records of a 16-field template whose template is
// already in the store, as in steady-state collection.

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <memory>
#include <vector>

#include "FlowRecords.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::NetFlowV9Datagram;

namespace {

constexpr uint16_t kTemplateId = 256;
constexpr int kRecords = 20;

NetFlowV9Datagram TemplateDatagram() {
    std::vector<tpnf::test::V9FieldSpecifier> fields;
    for (const auto& [type, length] : tpnf::bench::kFlowFields)
        fields.push_back({type, length});
    return NetFlowV9Datagram({.count = 1}).Template(kTemplateId, fields);
}

CByteArray DataDatagram() {
    return NetFlowV9Datagram({.count = 1, .sysUptime = 100000, .unixSecs = 1700000000, .packageSequence = 1})
        .Data(kTemplateId, tpnf::bench::FlowRecords(kRecords))
        .build();
}

const CByteArray& StoredTemplateAndData() {
    static const CByteArray data = [] {
        CNetFlowPacketV9 announcer;
        announcer.Decode(TemplateDatagram());
        return DataDatagram();
    }();
    return data;
}

void BM_DecodeV9(benchmark::State& state) {
    const CByteArray& data = StoredTemplateAndData();
    for (auto _ : state) {
        CNetFlowPacketV9 packet;
        benchmark::DoNotOptimize(packet.Decode(data));
        if (packet.GetSize() != kRecords)
            state.SkipWithError("wrong record count");
        benchmark::DoNotOptimize(packet);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
    state.counters["datagrams/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DecodeV9);

void BM_ToStringV9(benchmark::State& state) {
    CNetFlowPacketV9 packet;
    packet.Decode(StoredTemplateAndData());
    packet.SetSenderInfo(L"10.0.0.254", 2055);
    for (auto _ : state) {
        CString text = packet.ToString();
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_ToStringV9);

void BM_GetRecordFieldsV9(benchmark::State& state) {
    CNetFlowPacketV9 packet;
    packet.Decode(StoredTemplateAndData());
    CUIntArray ids;
    CStringArray values;
    for (auto _ : state) {
        for (int i = 0; i < kRecords; ++i)
            packet.GetRecordFields(i, ids, values);
        benchmark::DoNotOptimize(values);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_GetRecordFieldsV9);

// Heap a decoded packet holds per record while it is kept (as a store's queue keeps it), plus the raw
// datagram a store keeps beside it for spilling: what bench/loopback/store_memory's growth compares with.
void BM_HeldBytesPerRecordV9(benchmark::State& state) {
    const CByteArray& data = StoredTemplateAndData();
    constexpr int kKept = 1000;
    double held = 0;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks;
        std::vector<std::unique_ptr<CNetFlowPacketV9>> kept;
        kept.reserve(kKept);
        for (int i = 0; i < kKept; ++i) {
            kept.push_back(std::make_unique<CNetFlowPacketV9>());
            kept.back()->Decode(data);
        }
        held = static_cast<double>(mallinfo2().uordblks - before) / (kKept * kRecords);
        benchmark::DoNotOptimize(kept);
    }
    state.counters["packet_bytes/record"] = held;
    state.counters["datagram_bytes/record"] = static_cast<double>(data.size()) / kRecords;
}
BENCHMARK(BM_HeldBytesPerRecordV9)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
