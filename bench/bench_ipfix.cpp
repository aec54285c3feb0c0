// IPFIX decoding and rendering against NetFlow v9 in the same run: a message of 20 records of the 16-field
// layout bench_netflow9 uses, its template already in the store, as in steady-state collection. Also the
// v9 exporter scope, and IPFIX with one variable-length field more.

#include <benchmark/benchmark.h>

#include <vector>

#include "FlowRecords.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/ByteBuilder.h"
#include "support/IPFIXDatagram.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::IPFIXDatagram;
using tpnf::test::IPFIXFieldSpecifier;
using tpnf::test::NetFlowV9Datagram;

namespace {

constexpr uint16_t kTemplateId = 256;
constexpr uint16_t kVariableTemplateId = 257;
constexpr int kRecords = 20;

CDecodeContext Context(ETemplateScope scope) {
    CDecodeContext context;
    context.options.ipfix = true;
    context.options.templateScope = scope;
    context.exporter.bytes = {192, 0, 2, 1};
    context.exporter.length = 4;
    return context;
}

std::vector<IPFIXFieldSpecifier> IPFIXFields() {
    std::vector<IPFIXFieldSpecifier> fields;
    for (const auto& [type, length] : tpnf::bench::kFlowFields)
        fields.push_back({type, length});
    return fields;
}

// The IPFIX data message, its template stored first.
const CByteArray& IPFIXData() {
    static const CByteArray data = [] {
        std::vector<IPFIXFieldSpecifier> variable = IPFIXFields();
        variable.push_back({236, 65535}); // VRFname
        CIPFIXPacket announcer;
        announcer.SetDecodeContext(Context(ETemplateScope::Global));
        announcer.Decode(
            IPFIXDatagram().Template(kTemplateId, IPFIXFields()).Template(kVariableTemplateId, variable));
        return IPFIXDatagram({.exportTime = 1700000000, .sequence = 1})
            .Data(kTemplateId, tpnf::bench::FlowRecords(kRecords))
            .build();
    }();
    return data;
}

// The same records with a VRF name of 8 characters after each.
const CByteArray& IPFIXVariableData() {
    static const CByteArray data = [] {
        IPFIXData();
        tpnf::test::ByteBuilder records;
        const CByteArray fixed = tpnf::bench::FlowRecords(kRecords).build();
        for (int i = 0; i < kRecords; ++i)
            records.bytes(CByteArray(fixed.begin() + 41 * i, fixed.begin() + 41 * (i + 1)))
                .bytes(tpnf::test::VariableLength("vrf-blue"));
        return IPFIXDatagram({.exportTime = 1700000000, .sequence = 1})
            .Data(kVariableTemplateId, records)
            .build();
    }();
    return data;
}

// The v9 data datagram; its template is announced in both v9 scopes.
const CByteArray& V9Data() {
    static const CByteArray data = [] {
        std::vector<tpnf::test::V9FieldSpecifier> fields;
        for (const auto& [type, length] : tpnf::bench::kFlowFields)
            fields.push_back({type, length});
        const CByteArray announcement = NetFlowV9Datagram({.count = 1}).Template(kTemplateId, fields).build();
        for (ETemplateScope scope : {ETemplateScope::Global, ETemplateScope::Exporter}) {
            CNetFlowPacketV9 announcer;
            announcer.SetDecodeContext(Context(scope));
            announcer.Decode(announcement);
        }
        return NetFlowV9Datagram(
                   {.count = 1, .sysUptime = 100000, .unixSecs = 1700000000, .packageSequence = 1})
            .Data(kTemplateId, tpnf::bench::FlowRecords(kRecords))
            .build();
    }();
    return data;
}

template <class Packet>
void Decode(benchmark::State& state, const CByteArray& data, const CDecodeContext& context) {
    for (auto _ : state) {
        Packet packet;
        packet.SetDecodeContext(context);
        benchmark::DoNotOptimize(packet.Decode(data));
        if (packet.GetSize() != kRecords)
            state.SkipWithError("wrong record count");
        benchmark::DoNotOptimize(packet);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_DecodeIPFIX(benchmark::State& state) {
    Decode<CIPFIXPacket>(state, IPFIXData(), Context(ETemplateScope::Global));
}
BENCHMARK(BM_DecodeIPFIX);

void BM_DecodeV9(benchmark::State& state) {
    Decode<CNetFlowPacketV9>(state, V9Data(), Context(ETemplateScope::Global));
}
BENCHMARK(BM_DecodeV9);

void BM_DecodeV9ExporterScope(benchmark::State& state) {
    Decode<CNetFlowPacketV9>(state, V9Data(), Context(ETemplateScope::Exporter));
}
BENCHMARK(BM_DecodeV9ExporterScope);

void BM_DecodeIPFIXVariableLength(benchmark::State& state) {
    Decode<CIPFIXPacket>(state, IPFIXVariableData(), Context(ETemplateScope::Global));
}
BENCHMARK(BM_DecodeIPFIXVariableLength);

void BM_ToStringIPFIX(benchmark::State& state) {
    CIPFIXPacket packet;
    packet.SetDecodeContext(Context(ETemplateScope::Global));
    packet.Decode(IPFIXData());
    packet.SetSenderInfo(L"192.0.2.1", 4739);
    for (auto _ : state) {
        CString text = packet.ToString();
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_ToStringIPFIX);

void BM_GetRecordFieldsIPFIX(benchmark::State& state) {
    CIPFIXPacket packet;
    packet.SetDecodeContext(Context(ETemplateScope::Global));
    packet.Decode(IPFIXData());
    CUIntArray ids;
    CStringArray values;
    for (auto _ : state) {
        for (int i = 0; i < kRecords; ++i)
            packet.GetRecordFields(i, ids, values);
        benchmark::DoNotOptimize(values);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_GetRecordFieldsIPFIX);

} // namespace

BENCHMARK_MAIN();
