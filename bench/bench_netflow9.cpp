// NetFlow v9 decoding and rendering: a datagram of 20 records of a 16-field template whose template is
// already in the store, as in steady-state collection.

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <memory>
#include <vector>

#include "netflow9/NetFlowPacketV9.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::NetFlowV9Datagram;

namespace {

constexpr uint16_t kTemplateId = 256;
constexpr int kRecords = 20;

// The usual IPv4 flow fields: 16 fields, 41 bytes per record.
NetFlowV9Datagram TemplateDatagram() {
    return NetFlowV9Datagram({.count = 1})
        .Template(kTemplateId, {{1, 4},    // IN_BYTES
                                {2, 4},    // IN_PKTS
                                {4, 1},    // PROT
                                {5, 1},    // SRC_TOS
                                {6, 1},    // TCP_FLAGS
                                {7, 2},    // L4_SRC_PORT
                                {8, 4},    // IPV4_SRC_ADDR
                                {9, 1},    // SRC_MASK
                                {10, 2},   // INPUT_SNMP
                                {11, 2},   // L4_DST_PORT
                                {12, 4},   // IPV4_DST_ADDR
                                {13, 1},   // DST_MASK
                                {14, 2},   // OUTPUT_SNMP
                                {15, 4},   // IPV4_NEXT_HOP
                                {21, 4},   // LAST_SWITCHED
                                {22, 4}}); // FIRST_SWITCHED
}

CByteArray DataDatagram() {
    ByteBuilder records;
    for (uint32_t i = 0; i < kRecords; ++i)
        records.u32(1500 * (i + 1))
            .u32(i + 1)
            .u8(i % 2 ? 6 : 17)
            .u8(0)
            .u8(0x18)
            .u16(1024 + i)
            .ipv4(10, 0, 0, static_cast<uint8_t>(i))
            .u8(24)
            .u16(1)
            .u16(443)
            .ipv4(192, 168, 1, static_cast<uint8_t>(i))
            .u8(24)
            .u16(2)
            .ipv4(10, 0, 0, 254)
            .u32(100000 + i)
            .u32(90000 + i);
    return NetFlowV9Datagram({.count = 1, .sysUptime = 100000, .unixSecs = 1700000000, .packageSequence = 1})
        .Data(kTemplateId, records)
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
