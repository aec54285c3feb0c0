// Several threads decoding NetFlow v9 with templates in the one process-wide store, as sessions on
// different threads do: templates re-announced while other threads decode data by them, in the global
// and in the exporter scope. Every record must come out with exactly the values its exporter sent.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
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
using tpnf::test::GlobalScope;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::V9FieldSpecifier;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 300;

// Template 256 as every thread announces it in the global scope: one layout, so whichever announcement
// a data flowset meets, its records decode the same.
const std::vector<V9FieldSpecifier> kSharedLayout = {{8, 4}, {7, 2}, {2, 4}};

// In the exporter scope each thread is its own exporter and gives 256 a layout of its own: thread t's
// records carry t + 1 fields of 2 bytes (L4_SRC_PORT, L4_DST_PORT, SRC_VLAN, DST_VLAN in turn).
std::vector<V9FieldSpecifier> OwnLayout(int thread) {
    const uint16_t types[] = {7, 11, 58, 59};
    std::vector<V9FieldSpecifier> fields;
    for (int i = 0; i <= thread; ++i)
        fields.push_back({types[i], 2});
    return fields;
}

// One datagram: the template, then three records whose values encode thread and round.
CByteArray SharedDatagram(int thread, int round) {
    ByteBuilder records;
    for (int k = 0; k < 3; ++k)
        records.ipv4(10, 0, static_cast<uint8_t>(thread), static_cast<uint8_t>(k))
            .u16(static_cast<uint32_t>(1000 + round))
            .u32(static_cast<uint32_t>(thread * 100000 + round * 10 + k));
    return NetFlowV9Datagram().Template(256, kSharedLayout).Data(256, records);
}

std::wstring SharedRecord(int thread, int round, int k) {
    return L"IPV4_SRC_ADDR=10.0." + std::to_wstring(thread) + L"." + std::to_wstring(k) +
           L"\r\nL4_SRC_PORT=" + std::to_wstring(1000 + round) + L"\r\nIN_PKTS=" +
           std::to_wstring(thread * 100000 + round * 10 + k) + L"\r\n";
}

CByteArray OwnDatagram(int thread, int round, bool withTemplate) {
    ByteBuilder record;
    for (int i = 0; i <= thread; ++i)
        record.u16(static_cast<uint32_t>(round * 10 + i));
    NetFlowV9Datagram d;
    if (withTemplate)
        d.Template(256, OwnLayout(thread));
    return d.Data(256, record);
}

std::wstring OwnRecord(int thread, int round) {
    const wchar_t* names[] = {L"L4_SRC_PORT", L"L4_DST_PORT", L"SRC_VLAN", L"DST_VLAN"};
    std::wstring text;
    for (int i = 0; i <= thread; ++i)
        text += std::wstring(names[i]) + L"=" + std::to_wstring(round * 10 + i) + L"\r\n";
    return text;
}

// Runs body(thread) on kThreads threads released at once; returns the failures they counted.
template <class Body>
int RunTogether(Body body) {
    std::atomic<int> ready{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (ready.load() < kThreads)
                std::this_thread::yield();
            failures += body(t);
        });
    for (std::thread& thread : threads)
        thread.join();
    return failures.load();
}

} // namespace

class TemplateStoreThreads : public EmptyTemplateStore {};

TEST_F(TemplateStoreThreads, GlobalScopeReannouncementsRacingWithDataDecodeEveryRecordExactly) {
    const int failures = RunTogether([](int thread) {
        int failed = 0;
        for (int round = 0; round < kRounds; ++round) {
            CNetFlowPacketV9 packet;
            packet.SetDecodeContext(GlobalScope(ExporterV4(192, 0, 2, static_cast<uint8_t>(thread))));
            if (packet.Decode(SharedDatagram(thread, round)) != TRUE || packet.GetSize() != 3) {
                ++failed;
                continue;
            }
            for (int k = 0; k < 3; ++k)
                if (packet.GetRecords()[static_cast<size_t>(k)].ToString() != SharedRecord(thread, round, k))
                    ++failed;
        }
        return failed;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(CNetFlowTemplateManager::GetInstance()->GetCount(), 1u);
}

TEST_F(TemplateStoreThreads, ExporterScopeKeepsEachThreadsLayoutWhileAllReannounceOneId) {
    const int failures = RunTogether([](int thread) {
        int failed = 0;
        const CDecodeContext context = ExporterScope(ExporterV4(192, 0, 2, static_cast<uint8_t>(thread)));
        for (int round = 0; round < kRounds; ++round) {
            // Every fourth datagram re-announces the template; the others carry data only.
            CNetFlowPacketV9 packet;
            packet.SetDecodeContext(context);
            if (packet.Decode(OwnDatagram(thread, round, round % 4 == 0)) != TRUE || packet.GetSize() != 1 ||
                packet.GetRecords()[0].ToString() != OwnRecord(thread, round))
                ++failed;
        }
        return failed;
    });
    EXPECT_EQ(failures, 0);
    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, static_cast<size_t>(kThreads));
    EXPECT_EQ(snapshot.exporters.size(), static_cast<size_t>(kThreads));
}

TEST_F(TemplateStoreThreads, BoundedExporterScopeUnderFloodKeepsCountsExactAndSnapshotsConsistent) {
    // Each thread is an exporter announcing 200 distinct ids with a bound of 16, while a fifth thread
    // takes snapshots; the data for the newest id always decodes.
    std::atomic<bool> done{false};
    std::atomic<int> badSnapshots{0};
    std::thread watcher([&] {
        while (!done.load()) {
            CTemplateStoreSnapshot s = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
            size_t held = 0;
            for (const CTemplateStoreSnapshot::Exporter& e : s.exporters)
                held += e.templates;
            if (held != s.scopedTemplates || s.scopedTemplates > kThreads * 16u)
                ++badSnapshots;
        }
    });
    const int failures = RunTogether([](int thread) {
        int failed = 0;
        const CDecodeContext context =
            ExporterScope(ExporterV4(198, 51, 100, static_cast<uint8_t>(thread)), 16);
        for (int i = 0; i < 200; ++i) {
            const uint16_t id = static_cast<uint16_t>(300 + i);
            CNetFlowPacketV9 packet;
            packet.SetDecodeContext(context);
            packet.Decode(NetFlowV9Datagram()
                              .Template(id, {{7, 2}})
                              .Data(id, ByteBuilder().u16(static_cast<uint32_t>(thread * 1000 + i))));
            if (packet.GetSize() != 1 || packet.GetRecords()[0].ToString() !=
                                             L"L4_SRC_PORT=" + std::to_wstring(thread * 1000 + i) + L"\r\n")
                ++failed;
        }
        return failed;
    });
    done = true;
    watcher.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(badSnapshots.load(), 0);
    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, kThreads * 16u);
    EXPECT_EQ(snapshot.dropped, kThreads * (200u - 16u));
    for (const CTemplateStoreSnapshot::Exporter& e : snapshot.exporters) {
        EXPECT_EQ(e.templates, 16u);
        EXPECT_EQ(e.dropped, 200u - 16u);
    }
}
