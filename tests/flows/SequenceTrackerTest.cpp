// Loss upstream of the collector from the headers' sequence numbers, per exporter stream.
#include <gtest/gtest.h>

#include <vector>

#include "flows/SequenceTracker.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/TemplateStoreReset.h"
#include "sflow/SFlowPacket.h"
#include "support/DecodeContext.h"
#include "support/IPFIXDatagram.h"
#include "support/NetFlowDatagram.h"
#include "support/NetFlowV9Datagram.h"
#include "support/SFlowDatagram.h"

using namespace tpnf::test;

namespace {

const CExporterAddress kExporter = ExporterV4(192, 0, 2, 1, 2055);

// A v5 packet of `count` records whose first flow has the given sequence number.
uint64_t CheckV5(CSequenceTracker& tracker, uint32_t sequence, uint16_t count, uint8_t engineId = 0,
                 const CExporterAddress& exporter = kExporter) {
    std::vector<V5Record> records(count, V5Record{.prot = 6});
    ByteBuilder b;
    V5Header{.count = count, .flowSequence = sequence, .engineId = engineId}.AppendTo(b);
    for (const V5Record& record : records)
        record.AppendTo(b);
    CNetFlowPacketV5 packet;
    EXPECT_EQ(packet.Decode(b.build()), 1);
    return tracker.Check(packet, exporter);
}

uint64_t CheckV9(CSequenceTracker& tracker, uint32_t sequence, uint32_t sourceId) {
    const CByteArray datagram =
        NetFlowV9Datagram(V9Header{.count = 1, .packageSequence = sequence, .sourceId = sourceId})
            .Template(300, {{8, 4}});
    CNetFlowPacketV9 packet;
    packet.Decode(datagram);
    return tracker.Check(packet, kExporter);
}

uint64_t CheckSFlow(CSequenceTracker& tracker, uint32_t sequence, uint32_t subId) {
    const CByteArray datagram = sflow::Datagram({.subId = subId, .sequence = sequence}, {});
    CSFlowPacket packet;
    packet.Decode(datagram);
    return tracker.Check(packet, kExporter);
}

class SequenceTracker : public EmptyTemplateStore {};

} // namespace

TEST_F(SequenceTracker, NetFlowV5CountsFlows) {
    CSequenceTracker tracker;
    EXPECT_EQ(CheckV5(tracker, 0, 2), 0u); // the first packet of a stream sets its start
    EXPECT_EQ(CheckV5(tracker, 2, 2), 0u);
    EXPECT_EQ(CheckV5(tracker, 7, 1), 3u); // flows 4, 5 and 6 never arrived
    EXPECT_EQ(CheckV5(tracker, 8, 1), 0u);
}

TEST_F(SequenceTracker, StreamsAreKeptApartByExporterPortAndEngine) {
    CSequenceTracker tracker;
    const CExporterAddress otherPort = ExporterV4(192, 0, 2, 1, 2056);
    EXPECT_EQ(CheckV5(tracker, 0, 1), 0u);
    EXPECT_EQ(CheckV5(tracker, 100, 1, 0, otherPort), 0u);
    EXPECT_EQ(CheckV5(tracker, 500, 1, 7), 0u);
    EXPECT_EQ(CheckV5(tracker, 1, 1), 0u);
    EXPECT_EQ(CheckV5(tracker, 101, 1, 0, otherPort), 0u);
    EXPECT_EQ(CheckV5(tracker, 503, 1, 7), 2u);
    EXPECT_EQ(tracker.GetStreamCount(), 3u);
}

TEST_F(SequenceTracker, ReorderedRestartedAndWrappedSequences) {
    CSequenceTracker tracker;
    EXPECT_EQ(CheckV5(tracker, 10, 1), 0u);
    EXPECT_EQ(CheckV5(tracker, 5, 1), 0u); // behind: late or restarted, counting starts again at 6
    EXPECT_EQ(CheckV5(tracker, 6, 1), 0u);
    EXPECT_EQ(CheckV5(tracker, 7 + CSequenceTracker::kMaxGap, 1), 0u); // too far ahead to be loss
    EXPECT_EQ(CheckV5(tracker, 0xFFFFFFFF, 1), 0u);
    EXPECT_EQ(CheckV5(tracker, 0, 1), 0u); // the counter wrapped
    EXPECT_EQ(CheckV5(tracker, 3, 1), 2u);
    EXPECT_EQ(CheckV5(tracker, 3 + 1 + CSequenceTracker::kMaxGap - 1, 1), CSequenceTracker::kMaxGap - 1);
}

TEST_F(SequenceTracker, NetFlowV9CountsDatagramsPerSourceId) {
    CSequenceTracker tracker;
    EXPECT_EQ(CheckV9(tracker, 1, 10), 0u);
    EXPECT_EQ(CheckV9(tracker, 2, 10), 0u);
    EXPECT_EQ(CheckV9(tracker, 40, 11), 0u);
    EXPECT_EQ(CheckV9(tracker, 5, 10), 2u);
    EXPECT_EQ(CheckV9(tracker, 41, 11), 0u);
}

TEST_F(SequenceTracker, IPFIXCountsDataRecordsPerObservationDomain) {
    CSequenceTracker tracker;
    auto check = [&tracker](uint32_t sequence, int records) {
        IPFIXDatagram message(IPFIXHeaderValues{.exportTime = 1700000000, .sequence = sequence, .domain = 7});
        message.Template(256, {{8, 4}});
        ByteBuilder data;
        for (int i = 0; i < records; ++i)
            data.ipv4(10, 0, 0, static_cast<uint8_t>(i));
        message.Data(256, data.build());
        CIPFIXPacket packet;
        packet.SetDecodeContext(ExporterScope(kExporter));
        EXPECT_EQ(packet.Decode(message), 1);
        return tracker.Check(packet, kExporter);
    };
    EXPECT_EQ(check(31, 3), 0u);
    EXPECT_EQ(check(34, 2), 0u);
    EXPECT_EQ(check(40, 1), 4u);
}

TEST_F(SequenceTracker, SFlowCountsDatagramsPerAgentAndSubAgent) {
    CSequenceTracker tracker;
    EXPECT_EQ(CheckSFlow(tracker, 1, 0), 0u);
    EXPECT_EQ(CheckSFlow(tracker, 9, 1), 0u);
    EXPECT_EQ(CheckSFlow(tracker, 2, 0), 0u);
    EXPECT_EQ(CheckSFlow(tracker, 4, 0), 1u);
    EXPECT_EQ(CheckSFlow(tracker, 10, 1), 0u);
}

TEST_F(SequenceTracker, NetFlowV1HasNoSequence) {
    CSequenceTracker tracker;
    ByteBuilder b;
    V1Header{.count = 0}.AppendTo(b);
    CNetFlowPacketV1 packet;
    packet.Decode(b.build());
    EXPECT_EQ(tracker.Check(packet, kExporter), 0u);
    EXPECT_EQ(tracker.Check(packet, kExporter), 0u);
    EXPECT_EQ(tracker.GetStreamCount(), 0u);
}
