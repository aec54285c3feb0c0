// Flow records made per second from decoded packets, on nfreplay's sample datagrams (v5: 30 records,
// v9: 20 records of a 16-field template, sFlow: 8 flow samples with a 128-byte sampled header each).
// items_per_second is flows per second (sFlow: flow samples); allocs/datagram counts heap allocations
// per call after the first. Also: the same with decoding, JSON lines per second, and rows per second
// written to the flows table on SQLite (a private data source, as the tests make one) and on PostgreSQL
// (with TPNF_TEST_PG_DSN set, as scripts/odbc-env sets it).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "corelib/Database.h"
#include "corelib/TestDataSource.h"
#include "flows/FlowJson.h"
#include "flows/FlowMaker.h"
#include "flows/FlowTable.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow9/NetFlowPacketV9.h"
#include "nfreplay/Samples.h"
#include "sflow/SFlowPacket.h"

namespace {

int64_t g_allocations = 0; // benchmarks run on one thread

} // namespace

// Counts every heap allocation of the process, the library's included.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++g_allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* p) noexcept {
    std::free(p);
}

[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

CFlowContext Context(const CByteArray& datagram) {
    CFlowContext context;
    context.timeReceived = 1700000000500;
    context.exporter.bytes = {192, 0, 2, 1};
    context.exporter.length = 4;
    context.exporter.port = 2055;
    context.datagram = &datagram;
    return context;
}

// Flows of one decoded packet, made again and again into a vector that is cleared and reused.
template <class Packet>
void MakeFlows(benchmark::State& state, const char* sample) {
    const CByteArray datagram = tpnf::tools::MakeSample(sample);
    Packet packet;
    if (packet.Decode(datagram) == 0) {
        state.SkipWithError("the sample does not decode");
        return;
    }
    const CFlowContext context = Context(datagram);
    CFlowMaker maker;
    std::vector<CFlowRecord> flows;
    size_t made = maker.Append(packet, context, flows);
    const int64_t allocationsBefore = g_allocations;
    int64_t datagrams = 0;
    for (auto _ : state) {
        flows.clear();
        made = maker.Append(packet, context, flows);
        benchmark::DoNotOptimize(flows.data());
        ++datagrams;
    }
    state.SetItemsProcessed(datagrams * static_cast<int64_t>(made));
    state.counters["flows/datagram"] = static_cast<double>(made);
    state.counters["allocs/datagram"] =
        static_cast<double>(g_allocations - allocationsBefore) / static_cast<double>(datagrams);
}

// Decoding and making flows, as a collector does for each datagram.
template <class Packet>
void DecodeAndMakeFlows(benchmark::State& state, const char* sample) {
    const CByteArray datagram = tpnf::tools::MakeSample(sample);
    const CFlowContext context = Context(datagram);
    CFlowMaker maker;
    std::vector<CFlowRecord> flows;
    size_t made = 0;
    int64_t datagrams = 0;
    for (auto _ : state) {
        Packet packet;
        packet.Decode(datagram);
        flows.clear();
        made = maker.Append(packet, context, flows);
        benchmark::DoNotOptimize(flows.data());
        ++datagrams;
    }
    state.SetItemsProcessed(datagrams * static_cast<int64_t>(made));
}

void FlowsJson(benchmark::State& state) {
    const CByteArray datagram = tpnf::tools::MakeSample("v9");
    CNetFlowPacketV9 packet;
    packet.Decode(datagram);
    std::vector<CFlowRecord> flows;
    CFlowMaker().Append(packet, Context(datagram), flows);
    std::string out;
    int64_t lines = 0;
    for (auto _ : state) {
        out.clear();
        for (const CFlowRecord& flow : flows) {
            CFlowJson::Append(out, flow);
            out += '\n';
        }
        benchmark::DoNotOptimize(out.data());
        lines += static_cast<int64_t>(flows.size());
    }
    state.SetItemsProcessed(lines);
    state.SetBytesProcessed(static_cast<int64_t>(out.size()) * (lines / static_cast<int64_t>(flows.size())));
}

} // namespace

// Batches of 20,000 flows of the v9 sample, each written in one transaction, into a fresh table; rows
// per second of wall-clock time.
void WriteFlowTable(benchmark::State& state, tpnf::test::Backend backend) {
    tpnf::test::TestDataSource source(backend);
    if (!source.SkipReason().empty()) {
        state.SkipWithError(source.SkipReason().c_str());
        return;
    }
    const CByteArray datagram = tpnf::tools::MakeSample("v9");
    CNetFlowPacketV9 packet;
    packet.Decode(datagram);
    std::vector<CFlowRecord> flows;
    CFlowMaker maker;
    while (flows.size() < 20000)
        maker.Append(packet, Context(datagram), flows);
    CDatabase db;
    // SQLite as the collector's data sources set it up: WAL, synchronous NORMAL.
    db.OpenEx(source.ConnectString() +
              (backend == tpnf::test::Backend::SQLite ? L";JournalMode=WAL;SyncPragma=NORMAL" : L""));
    CFlowTable table(db);
    table.Create();
    int64_t rows = 0;
    for (auto _ : state) {
        table.Write(flows);
        rows += static_cast<int64_t>(flows.size());
    }
    state.SetItemsProcessed(rows);
}

void FlowTableSQLite(benchmark::State& state) {
    WriteFlowTable(state, tpnf::test::Backend::SQLite);
}
void FlowTablePostgreSQL(benchmark::State& state) {
    WriteFlowTable(state, tpnf::test::Backend::PostgreSQL);
}

void MakeFlowsV5(benchmark::State& state) {
    MakeFlows<CNetFlowPacketV5>(state, "v5");
}
void MakeFlowsV9(benchmark::State& state) {
    MakeFlows<CNetFlowPacketV9>(state, "v9");
}
void MakeFlowsSFlow(benchmark::State& state) {
    MakeFlows<CSFlowPacket>(state, "sflow");
}
void DecodeAndMakeFlowsV5(benchmark::State& state) {
    DecodeAndMakeFlows<CNetFlowPacketV5>(state, "v5");
}
void DecodeAndMakeFlowsV9(benchmark::State& state) {
    DecodeAndMakeFlows<CNetFlowPacketV9>(state, "v9");
}
void DecodeAndMakeFlowsSFlow(benchmark::State& state) {
    DecodeAndMakeFlows<CSFlowPacket>(state, "sflow");
}

BENCHMARK(MakeFlowsV5);
BENCHMARK(MakeFlowsV9);
BENCHMARK(MakeFlowsSFlow);
BENCHMARK(DecodeAndMakeFlowsV5);
BENCHMARK(DecodeAndMakeFlowsV9);
BENCHMARK(DecodeAndMakeFlowsSFlow);
BENCHMARK(FlowsJson);
BENCHMARK(FlowTableSQLite)->Unit(benchmark::kMillisecond)->MinTime(2)->UseRealTime();
BENCHMARK(FlowTablePostgreSQL)->Unit(benchmark::kMillisecond)->MinTime(2)->UseRealTime();

BENCHMARK_MAIN();
