// Decoding and rendering speed of sFlow datagrams. items_per_second is samples per second;
// datagrams/s counts whole datagrams; allocs/datagram counts heap allocations per decode. The
// FullHolders runs read the same datagrams into records that carry a member of every kind, as the packet
// did before its records held only their own kind.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>

#include "sflow/SFlowPacket.h"
#include "support/SFlowDatagram.h"

using namespace tpnf::test::sflow;

namespace {

int64_t g_allocations = 0; // benchmarks run on one thread

} // namespace

// Counts every heap allocation of the process, the library's included. Kept out of line so the
// compiler does not see malloc/free through them.
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

// 8 flow samples, each a 128-byte sampled header and an extended switch record.
Bytes FlowDatagram() {
    std::vector<Bytes> samples;
    for (uint32_t i = 0; i < 8; ++i)
        samples.push_back(FlowSampleV5({.sequence = 1000 + i,
                                        .sourceId = 7,
                                        .samplingRate = 1024,
                                        .samplePool = 8192 * i,
                                        .input = 7,
                                        .output = 12},
                                       {Record(1, SampledHeader(1, 1518, 4, Frame128())),
                                        Record(1001, ExtendedSwitch(100, 0, 200, 0))}));
    return Datagram({.subId = 1, .sequence = 77, .uptime = 123456789}, samples);
}

// 8 counter samples, each generic interface counters and Ethernet counters.
Bytes CounterDatagram() {
    std::vector<Bytes> samples;
    for (uint32_t i = 0; i < 8; ++i)
        samples.push_back(
            CounterSampleV5(500 + i, i + 1, {Record(1, GenericCounters(i * 100)), Record(2, Words(i, 13))}));
    return Datagram({.subId = 1, .sequence = 78, .uptime = 123456789}, samples);
}

void CountDatagrams(benchmark::State& state, const Bytes& datagram, int64_t samples, int64_t allocations) {
    if (samples != 8)
        state.SkipWithError("datagram did not decode to 8 samples");
    state.SetItemsProcessed(state.iterations() * samples);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(datagram.size()));
    state.counters["datagrams/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["allocs/datagram"] =
        static_cast<double>(allocations) / static_cast<double>(std::max<int64_t>(1, state.iterations()));
}

void DecodeLoop(benchmark::State& state, const Bytes& datagram, const CDecodeContext& context = {}) {
    int64_t samples = 0;
    int64_t allocations = g_allocations;
    for (auto _ : state) {
        CSFlowPacket packet;
        packet.SetDecodeContext(context);
        int ok = packet.Decode(datagram);
        samples = packet.GetSize();
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(packet);
    }
    CountDatagrams(state, datagram, samples, g_allocations - allocations);
}

// The datagram read the way the packet read it before its records held only their own kind: header,
// then samples whose records each carry a member of every kind. The baseline of the decode benchmarks.
void FullHolderLoop(benchmark::State& state, const Bytes& datagram) {
    int64_t samples = 0;
    int64_t allocations = g_allocations;
    for (auto _ : state) {
        CSFlowHeader header;
        int offset = header.Decode(datagram);
        CArray<CSFlowSample, const CSFlowSample&> read;
        read.reserve(header.m_numSamples);
        for (uint32_t i = 0; i < header.m_numSamples; ++i)
            read.emplace_back().Decode(datagram, offset);
        samples = static_cast<int64_t>(read.size());
        benchmark::DoNotOptimize(read);
    }
    CountDatagrams(state, datagram, samples, g_allocations - allocations);
}

// Decoding and then reading the samples through GetSamples, which builds the holders of every kind.
void DecodeAndGetSamplesLoop(benchmark::State& state, const Bytes& datagram) {
    int64_t samples = 0;
    int64_t allocations = g_allocations;
    for (auto _ : state) {
        CSFlowPacket packet;
        packet.Decode(datagram);
        samples = static_cast<int64_t>(packet.GetSamples().size());
        benchmark::DoNotOptimize(packet);
    }
    CountDatagrams(state, datagram, samples, g_allocations - allocations);
}

void BM_DecodeV5FlowSamples(benchmark::State& state) {
    DecodeLoop(state, FlowDatagram());
}

void BM_DecodeV5CounterSamples(benchmark::State& state) {
    DecodeLoop(state, CounterDatagram());
}

void BM_DecodeV5FlowSamplesFullHolders(benchmark::State& state) {
    FullHolderLoop(state, FlowDatagram());
}

void BM_DecodeV5CounterSamplesFullHolders(benchmark::State& state) {
    FullHolderLoop(state, CounterDatagram());
}

void BM_DecodeV5FlowSamplesThenGetSamples(benchmark::State& state) {
    DecodeAndGetSamplesLoop(state, FlowDatagram());
}

void BM_DecodeV5FlowSamplesExact(benchmark::State& state) {
    CDecodeContext context;
    context.options.sflowExact = true;
    DecodeLoop(state, FlowDatagram(), context);
}

// A fresh record holder: one member of every kind, nine of them holding 4-element addresses.
void BM_FreshRecordHolder(benchmark::State& state) {
    int64_t allocations = g_allocations;
    for (auto _ : state) {
        CSFlowRecord record;
        benchmark::DoNotOptimize(record);
    }
    state.counters["allocs/holder"] = static_cast<double>(g_allocations - allocations) /
                                      static_cast<double>(std::max<int64_t>(1, state.iterations()));
}

void BM_ToStringV5FlowSamples(benchmark::State& state) {
    CSFlowPacket packet;
    packet.Decode(FlowDatagram());
    packet.SetSenderInfo(L"192.0.2.1", 6343);
    for (auto _ : state) {
        CString text = packet.ToString();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations() * packet.GetSize());
}

} // namespace

BENCHMARK(BM_DecodeV5FlowSamples);
BENCHMARK(BM_DecodeV5FlowSamplesFullHolders);
BENCHMARK(BM_DecodeV5CounterSamples);
BENCHMARK(BM_DecodeV5CounterSamplesFullHolders);
BENCHMARK(BM_DecodeV5FlowSamplesThenGetSamples);
BENCHMARK(BM_DecodeV5FlowSamplesExact);
BENCHMARK(BM_FreshRecordHolder);
BENCHMARK(BM_ToStringV5FlowSamples);

BENCHMARK_MAIN();
