// IPFIX decoding on several threads sharing the template store, as sessions on different threads do:
// withdrawals and re-announcements racing with data of other exporters, and one exporter whose template
// every thread re-announces while all decode its data. Every record must carry exactly what was sent.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/DecodeContext.h"
#include "support/IPFIXDatagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::ExporterScope;
using tpnf::test::ExporterV4;
using tpnf::test::IPFIXDatagram;
using tpnf::test::VariableLength;

class IPFIXTemplateThreads : public EmptyTemplateStore {};

TEST_F(IPFIXTemplateThreads, WithdrawalsAndAnnouncementsRaceWithDataAndEveryRecordDecodesExactly) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 300;
    std::atomic<int> ready{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (ready.load() < kThreads)
                std::this_thread::yield();
            const CDecodeContext own = ExporterScope(ExporterV4(198, 51, 100, static_cast<uint8_t>(t)), 8);
            const CDecodeContext shared = ExporterScope(ExporterV4(203, 0, 113, 1), 8);
            for (int round = 0; round < kRounds; ++round) {
                // Own exporter: announce, decode, withdraw every template, in one message.
                CIPFIXPacket mine;
                mine.SetDecodeContext(own);
                mine.Decode(IPFIXDatagram({.domain = static_cast<uint32_t>(t)})
                                .Template(256, {{7, 2}, {236, 65535}})
                                .Data(256, ByteBuilder()
                                               .u16(static_cast<uint32_t>(round))
                                               .bytes(VariableLength("t" + std::to_string(t))))
                                .Withdraw(2, 2));
                if (mine.GetSize() != 1 ||
                    mine.GetRecords()[0].ToString() != L"L4_SRC_PORT=" + std::to_wstring(round) +
                                                           L"\r\nVRFname=t" + std::to_wstring(t) + L"\r\n")
                    ++failures;
                // Shared exporter: every thread announces the same layout, then decodes its own values.
                CIPFIXPacket common;
                common.SetDecodeContext(shared);
                common.Decode(IPFIXDatagram()
                                  .Template(300, {{8, 4}, {2, 4}})
                                  .Data(300, ByteBuilder()
                                                 .ipv4(10, 0, static_cast<uint8_t>(t), 1)
                                                 .u32(static_cast<uint32_t>(t * 1000 + round))));
                if (common.GetSize() != 1 ||
                    common.GetRecords()[0].ToString() != L"IPV4_SRC_ADDR=10.0." + std::to_wstring(t) +
                                                             L".1\r\nIN_PKTS=" +
                                                             std::to_wstring(t * 1000 + round) + L"\r\n")
                    ++failures;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    CTemplateStoreSnapshot snapshot = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    EXPECT_EQ(snapshot.scopedTemplates, 1u); // the shared template; every own one was withdrawn
    EXPECT_EQ(snapshot.dropped, 0u);
}
