// Micro-benchmarks of the wire readers and of field value rendering: the per-field costs every
// decoder and every text rendering pays. Items are values read or rendered.

#include <benchmark/benchmark.h>

#include "netflow9/NetFlowField.h"
#include "support/ByteBuilder.h"
#include "util/NetFlowUtility.h"

using tpnf::test::ByteBuilder;

namespace {

// A datagram-sized buffer of varied bytes.
CByteArray MakeBuffer(size_t size) {
    CByteArray data(size);
    uint32_t x = 0x12345678;
    for (uint8_t& b : data) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<uint8_t>(x >> 24);
    }
    return data;
}

constexpr int kBufferSize = 1472;

void BM_GetUShort(benchmark::State& state) {
    const CByteArray data = MakeBuffer(kBufferSize);
    for (auto _ : state) {
        for (int offset = 0; offset + 2 <= kBufferSize; offset += 2)
            benchmark::DoNotOptimize(CNetFlowUtility::GetUShort(data, offset));
    }
    state.SetItemsProcessed(state.iterations() * (kBufferSize / 2));
}
BENCHMARK(BM_GetUShort);

void BM_GetULong(benchmark::State& state) {
    const CByteArray data = MakeBuffer(kBufferSize);
    for (auto _ : state) {
        for (int offset = 0; offset + 4 <= kBufferSize; offset += 4)
            benchmark::DoNotOptimize(CNetFlowUtility::GetULong(data, offset));
    }
    state.SetItemsProcessed(state.iterations() * (kBufferSize / 4));
}
BENCHMARK(BM_GetULong);

void BM_GetULongOffset(benchmark::State& state) {
    const CByteArray data = MakeBuffer(kBufferSize);
    for (auto _ : state) {
        int offset = 0;
        while (offset + 4 <= kBufferSize)
            benchmark::DoNotOptimize(CNetFlowUtility::GetULongOffset(data, offset));
    }
    state.SetItemsProcessed(state.iterations() * (kBufferSize / 4));
}
BENCHMARK(BM_GetULongOffset);

void BM_GetULongLong(benchmark::State& state) {
    const CByteArray data = MakeBuffer(kBufferSize);
    for (auto _ : state) {
        for (int offset = 0; offset + 8 <= kBufferSize; offset += 8)
            benchmark::DoNotOptimize(CNetFlowUtility::GetULongLong(data, offset));
    }
    state.SetItemsProcessed(state.iterations() * (kBufferSize / 8));
}
BENCHMARK(BM_GetULongLong);

// A 16-character string: the length word counts itself plus twelve text bytes.
void BM_GetString(benchmark::State& state) {
    const CByteArray data = ByteBuilder().u32(16).text("GigabitEther");
    for (auto _ : state) {
        int length = 0;
        CString text = CNetFlowUtility::GetString(data, 0, length);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetString);

void BM_GetAddressIPv4(benchmark::State& state) {
    const CByteArray data = ByteBuilder().u32(1).ipv4(192, 168, 1, 2);
    CNetFlowIPAddress address;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CNetFlowUtility::GetAddress(data, 0, address));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetAddressIPv4);

void BM_GetAddressIPv6(benchmark::State& state) {
    const CByteArray data = ByteBuilder().u32(2).bytes(MakeBuffer(16));
    CNetFlowIPAddress address;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CNetFlowUtility::GetAddress(data, 0, address));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetAddressIPv6);

// Items are array elements read.
void BM_GetIntArray(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    ByteBuilder builder;
    builder.u32(static_cast<uint32_t>(count));
    for (int i = 0; i < count; ++i)
        builder.u32(static_cast<uint32_t>(i * 7919));
    const CByteArray data = builder.build();
    CUIntArray out;
    for (auto _ : state) {
        out.clear();
        int offset = 0;
        CNetFlowUtility::GetIntArray(data, offset, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_GetIntArray)->Arg(4)->Arg(64);

void BM_GetOpaque(benchmark::State& state) {
    const CByteArray data = MakeBuffer(kBufferSize);
    CByteArray out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CNetFlowUtility::GetOpaque(data, 14, 128, out));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetOpaque);

// --- Field value rendering, one benchmark per kind and length class ----------------------------------

void RenderValue(benchmark::State& state, int type, CByteArray value) {
    CNetFlowField field;
    field.SetType(type);
    field.SetLength(static_cast<int>(value.size()));
    field.SetValue(value);
    for (auto _ : state) {
        CString text = field.GetValue();
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(RenderValue, Integer1, CNetFlowField::PROT, CByteArray{6});
BENCHMARK_CAPTURE(RenderValue, Integer2, CNetFlowField::L4_SRC_PORT, CByteArray{0x01, 0xBB});
BENCHMARK_CAPTURE(RenderValue, Integer4, CNetFlowField::IN_BYTES, CByteArray{0x80, 0x12, 0x34, 0x56});
BENCHMARK_CAPTURE(RenderValue, Integer8Hex, CNetFlowField::IN_BYTES, CByteArray{0, 0, 0, 1, 2, 3, 4, 5});
BENCHMARK_CAPTURE(RenderValue, IPv4, CNetFlowField::IPV4_SRC_ADDR, CByteArray{192, 168, 100, 254});
BENCHMARK_CAPTURE(RenderValue, IPv6, CNetFlowField::IPV6_SRC_ADDR,
                  CByteArray{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD, 0x00, 0x01});
BENCHMARK_CAPTURE(RenderValue, String, CNetFlowField::IF_NAME, ByteBuilder().text("Gi0/0/1.100").build());
BENCHMARK_CAPTURE(RenderValue, Mac, CNetFlowField::IN_SRC_MAC,
                  CByteArray{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E});
BENCHMARK_CAPTURE(RenderValue, Unknown, 95, CByteArray{1, 2, 3, 250});

void BM_FieldToString(benchmark::State& state) {
    CNetFlowField field;
    field.SetType(CNetFlowField::IPV4_DST_ADDR);
    field.SetValue(CByteArray{10, 1, 2, 3});
    for (auto _ : state) {
        CString text = field.ToString();
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FieldToString);

// --- Text helpers used by every fixed-format rendering ------------------------------------------------

void BM_GetProtocol(benchmark::State& state) {
    int number = 0;
    for (auto _ : state) {
        CString name = CNetFlowUtility::GetProtocol(number);
        benchmark::DoNotOptimize(name);
        number = (number + 1) & 0xFF;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetProtocol);

void BM_FormatSysUptime(benchmark::State& state) {
    for (auto _ : state) {
        CString text = CNetFlowUtility::FormatSysUptime(123456789);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatSysUptime);

void BM_FormatIPv4(benchmark::State& state) {
    uint32_t address = 0xC0A80001;
    for (auto _ : state) {
        CString text = CNetFlowIPAddress::FormatIPv4(address++);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatIPv4);

} // namespace

BENCHMARK_MAIN();
