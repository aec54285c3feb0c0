// Flow records made per second from decoded packets, on nfreplay's sample datagrams (v5: 30 records,
// v9: 20 records of a 16-field template, sFlow: 8 flow samples with a 128-byte sampled header each) and
// on the v9 sample's records as an IPFIX message (the same 16 fields; its uptimes read with the init
// time an options record announced before).
// items_per_second is flows per second (sFlow: flow samples); allocs/datagram counts heap allocations
// per call after the first. Also: the same with decoding, JSON lines per second, and rows per second
// written to the flows table on SQLite (a private data source, as the tests make one) and on PostgreSQL
// (with TPNF_TEST_PG_DSN set, as scripts/odbc-env sets it).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "corelib/Database.h"
#include "corelib/TestDataSource.h"
#include "flows/FlowJson.h"
#include "flows/FlowMaker.h"
#include "flows/FlowTable.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow9/NetFlowPacketV9.h"
#include "nfreplay/Samples.h"
#include "sflow/SFlowPacket.h"
#include "support/IPFIXDatagram.h"

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

CDecodeContext DecodeContext() {
    CDecodeContext decode;
    decode.options.ipfix = true;
    decode.exporter.bytes = {192, 0, 2, 1};
    decode.exporter.length = 4;
    decode.exporter.port = 2055;
    return decode;
}

// A datagram and a maker ready for it: nfreplay's sample, or for IPFIX the v9 sample's template and
// records in an IPFIX message, after a message that announced the template and the exporter's init time
// (export time minus the v9 sample's uptime, so both give the same flow times) to the store and the maker.
template <class Packet>
CByteArray Sample(const char* sample, CFlowMaker& maker) {
    const CByteArray datagram = tpnf::tools::MakeSample(sample);
    if constexpr (!std::is_same_v<Packet, CIPFIXPacket>) {
        return datagram;
    } else {
        // v9 header (20 bytes), template flowset (id, length, template id, count, specifiers), data flowset.
        const auto word = [&datagram](size_t at) { return (datagram[at] << 8) | datagram[at + 1]; };
        const size_t templateLength = word(22), fieldCount = word(26);
        std::vector<tpnf::test::IPFIXFieldSpecifier> fields;
        size_t recordLength = 0;
        for (size_t i = 0; i < fieldCount; ++i) {
            fields.push_back(
                {static_cast<uint16_t>(word(28 + 4 * i)), static_cast<uint16_t>(word(30 + 4 * i))});
            recordLength += fields.back().length;
        }
        const size_t data = 20 + templateLength;
        const size_t records = (word(data + 2) - 4) / recordLength;
        const CByteArray recordBytes(datagram.begin() + data + 4,
                                     datagram.begin() + data + 4 + records * recordLength);
        const uint32_t exportTime = 1700000000, sysUptime = 123456; // the v9 sample's header
        const CByteArray announcement =
            tpnf::test::IPFIXDatagram({.exportTime = exportTime})
                .Template(256, fields)
                .OptionsTemplate(257, {{143, 4}}, {{160, 8}})
                .Data(257, tpnf::test::ByteBuilder().u32(1).u64(uint64_t(exportTime) * 1000 - sysUptime))
                .build();
        CIPFIXPacket packet;
        packet.SetDecodeContext(DecodeContext());
        packet.Decode(announcement);
        std::vector<CFlowRecord> none;
        maker.Append(packet, Context(announcement), none);
        return tpnf::test::IPFIXDatagram({.exportTime = exportTime, .sequence = 1})
            .Data(256, recordBytes)
            .build();
    }
}

template <class Packet>
int DecodeSample(Packet& packet, const CByteArray& datagram) {
    if constexpr (std::is_same_v<Packet, CIPFIXPacket>)
        packet.SetDecodeContext(DecodeContext());
    return packet.Decode(datagram);
}

// Flows of one decoded packet, made again and again into a vector that is cleared and reused.
template <class Packet>
void MakeFlows(benchmark::State& state, const char* sample) {
    CFlowMaker maker;
    const CByteArray datagram = Sample<Packet>(sample, maker);
    Packet packet;
    if (DecodeSample(packet, datagram) == 0) {
        state.SkipWithError("the sample does not decode");
        return;
    }
    const CFlowContext context = Context(datagram);
    std::vector<CFlowRecord> flows;
    size_t made = maker.Append(packet, context, flows);
    if (made == 0 || flows[0].IsNull(EFlowKey::FlowStart)) {
        state.SkipWithError("the sample gives no flows with times");
        return;
    }
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
    CFlowMaker maker;
    const CByteArray datagram = Sample<Packet>(sample, maker);
    const CFlowContext context = Context(datagram);
    std::vector<CFlowRecord> flows;
    size_t made = 0;
    int64_t datagrams = 0;
    for (auto _ : state) {
        Packet packet;
        DecodeSample(packet, datagram);
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
void MakeFlowsIPFIX(benchmark::State& state) {
    MakeFlows<CIPFIXPacket>(state, "v9");
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
void DecodeAndMakeFlowsIPFIX(benchmark::State& state) {
    DecodeAndMakeFlows<CIPFIXPacket>(state, "v9");
}

BENCHMARK(MakeFlowsV5);
BENCHMARK(MakeFlowsV9);
BENCHMARK(MakeFlowsSFlow);
BENCHMARK(MakeFlowsIPFIX);
BENCHMARK(DecodeAndMakeFlowsV5);
BENCHMARK(DecodeAndMakeFlowsV9);
BENCHMARK(DecodeAndMakeFlowsSFlow);
BENCHMARK(DecodeAndMakeFlowsIPFIX);
BENCHMARK(FlowsJson);
BENCHMARK(FlowTableSQLite)->Unit(benchmark::kMillisecond)->MinTime(2)->UseRealTime();
BENCHMARK(FlowTablePostgreSQL)->Unit(benchmark::kMillisecond)->MinTime(2)->UseRealTime();

BENCHMARK_MAIN();
