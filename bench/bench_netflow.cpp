// Decoding and rendering speed of the fixed-format NetFlow packets. items_per_second is flow records per
// second; datagrams/s counts whole datagrams.
#include <benchmark/benchmark.h>

#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "support/NetFlowDatagram.h"

using namespace tpnf::test;

namespace {

CommonRecordBlock Flow(uint32_t i) {
    return CommonRecordBlock{.srcAddr = IPv4(10, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)),
                             .dstAddr = IPv4(192, 168, 1, static_cast<uint8_t>(i * 7)),
                             .nextHop = IPv4(10, 255, 255, 1),
                             .input = static_cast<uint16_t>(i % 48),
                             .output = static_cast<uint16_t>(i % 24),
                             .dPkts = 10 + i,
                             .dOctets = 1500 * (10 + i),
                             .first = 100000 + i,
                             .last = 200000 + i,
                             .srcPort = static_cast<uint16_t>(1024 + i),
                             .dstPort = 443};
}

CByteArray V1Datagram(uint16_t count) {
    ByteBuilder b;
    V1Header{.count = count, .sysUptime = 123456789, .unixSecs = 1700000000}.AppendTo(b);
    for (uint32_t i = 0; i < count; ++i)
        V1Record{.common = Flow(i), .prot = 6, .tos = 0, .tcpFlags = 0x1B}.AppendTo(b);
    return b.build();
}

CByteArray V5Datagram(uint16_t count) {
    ByteBuilder b;
    V5Header{.count = count, .sysUptime = 123456789, .unixSecs = 1700000000, .flowSequence = 1000}.AppendTo(
        b);
    for (uint32_t i = 0; i < count; ++i)
        V5Record{.common = Flow(i),
                 .tcpFlags = 0x1B,
                 .prot = 6,
                 .srcAS = 64512,
                 .dstAS = 15169,
                 .srcMask = 24,
                 .dstMask = 16}
            .AppendTo(b);
    return b.build();
}

CByteArray V7Datagram(uint16_t count) {
    ByteBuilder b;
    V7Header{.count = count, .sysUptime = 123456789, .unixSecs = 1700000000, .flowSequence = 1000}.AppendTo(
        b);
    for (uint32_t i = 0; i < count; ++i)
        V7Record{.common = Flow(i), .tcpFlags = 0x1B, .prot = 6, .flags = 1, .routerSC = IPv4(10, 1, 1, 1)}
            .AppendTo(b);
    return b.build();
}

CByteArray V8Datagram(uint8_t aggregation, uint16_t count) {
    ByteBuilder b;
    V8Header{.count = count, .sysUptime = 123456789, .unixSecs = 1700000000, .aggregation = aggregation}
        .AppendTo(b);
    for (uint32_t i = 0; i < count; ++i) {
        V8Counters counters{.flows = i, .packets = 10 + i, .octets = 15000 + i, .first = 1000, .last = 2000};
        if (aggregation == 1)
            V8RouterASRecord{.counters = counters, .srcAS = 64512, .dstAS = 15169, .input = 1, .output = 2}
                .AppendTo(b);
        else
            V8RouterPrefixRecord{.counters = counters,
                                 .srcPrefix = IPv4(10, static_cast<uint8_t>(i), 0, 0),
                                 .dstPrefix = IPv4(172, 16, 0, 0),
                                 .dstMask = 12,
                                 .srcMask = 16,
                                 .srcAS = 1,
                                 .dstAS = 2}
                .AppendTo(b);
    }
    return b.build();
}

template <class Packet>
void DecodeLoop(benchmark::State& state, const CByteArray& datagram, int64_t records) {
    for (auto _ : state) {
        Packet packet;
        int ok = packet.Decode(datagram);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(packet);
    }
    state.SetItemsProcessed(state.iterations() * records);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(datagram.size()));
    state.counters["datagrams/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_DecodeV1(benchmark::State& state) {
    DecodeLoop<CNetFlowPacketV1>(state, V1Datagram(24), 24);
}

void BM_DecodeV5(benchmark::State& state) {
    DecodeLoop<CNetFlowPacketV5>(state, V5Datagram(30), 30);
}

void BM_DecodeV7(benchmark::State& state) {
    DecodeLoop<CNetFlowPacketV7>(state, V7Datagram(27), 27);
}

void BM_DecodeV8RouterAS(benchmark::State& state) {
    DecodeLoop<CNetFlowPacketV8>(state, V8Datagram(1, 51), 51);
}

void BM_DecodeV8RouterPrefix(benchmark::State& state) {
    DecodeLoop<CNetFlowPacketV8>(state, V8Datagram(5, 35), 35);
}

void BM_ToStringV5(benchmark::State& state) {
    CNetFlowPacketV5 packet;
    packet.Decode(V5Datagram(30));
    packet.SetSenderInfo(L"192.0.2.1", 2055);
    for (auto _ : state) {
        CString text = packet.ToString();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations() * packet.GetSize());
}

void BM_GetRecordFieldsV5(benchmark::State& state) {
    CNetFlowPacketV5 packet;
    packet.Decode(V5Datagram(30));
    CUIntArray ids;
    CStringArray values;
    for (auto _ : state) {
        for (int i = 0; i < packet.GetSize(); ++i) {
            ids.clear();
            values.clear();
            packet.GetRecordFields(i, ids, values);
            benchmark::DoNotOptimize(values.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * packet.GetSize());
}

} // namespace

BENCHMARK(BM_DecodeV1);
BENCHMARK(BM_DecodeV5);
BENCHMARK(BM_DecodeV7);
BENCHMARK(BM_DecodeV8RouterAS);
BENCHMARK(BM_DecodeV8RouterPrefix);
BENCHMARK(BM_ToStringV5);
BENCHMARK(BM_GetRecordFieldsV5);

BENCHMARK_MAIN();
