#include "flows/SequenceTracker.h"

#include <algorithm>
#include <functional>

#include "ipfix/IPFIXPacket.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "netflow9/NetFlowPacketV9.h"
#include "sflow/SFlowPacket.h"

namespace {

uint32_t EngineOf(int engineType, int engineId) {
    return static_cast<uint32_t>((engineType & 0xFF) << 8 | (engineId & 0xFF));
}

CExporterAddress AgentOf(const CNetFlowIPAddress& address) {
    CExporterAddress agent;
    const size_t length = std::min<size_t>(address.m_address.size(), agent.bytes.size());
    for (size_t i = 0; i < length; ++i)
        agent.bytes[i] = static_cast<uint8_t>(address.m_address[i]);
    agent.length = static_cast<uint8_t>(length);
    return agent;
}

} // namespace

size_t CSequenceTracker::KeyHash::operator()(const Key& key) const {
    size_t hash = std::hash<uint64_t>()(uint64_t(key.version) << 32 | key.source);
    auto mix = [&hash](const CExporterAddress& address) {
        for (uint8_t i = 0; i < address.length; ++i)
            hash = hash * 131 + address.bytes[i];
        hash = hash * 131 + address.port;
    };
    mix(key.exporter);
    mix(key.agent);
    return hash;
}

uint64_t CSequenceTracker::Advance(const Key& key, uint32_t sequence, uint32_t step) {
    const auto [it, fresh] = m_next.try_emplace(key, sequence + step);
    if (fresh)
        return 0;
    const uint32_t ahead = sequence - it->second; // modulo 2^32: the counters wrap
    it->second = sequence + step;
    return ahead < kMaxGap ? ahead : 0;
}

uint64_t CSequenceTracker::Check(const CTPAbstractPacket& packet, const CExporterAddress& exporter) {
    Key key;
    key.exporter = exporter;
    if (const auto* v5 = dynamic_cast<const CNetFlowPacketV5*>(&packet)) {
        const CNetFlowHeaderV5 header = v5->GetHeader();
        key.version = 5;
        key.source = EngineOf(header.m_engineType, header.m_engineId);
        return Advance(key, static_cast<uint32_t>(header.m_flowSequence),
                       static_cast<uint32_t>(header.m_count));
    }
    if (const auto* v9 = dynamic_cast<const CNetFlowPacketV9*>(&packet)) {
        const CNetFlowHeaderV9& header = v9->GetHeader();
        key.version = 9;
        key.source = header.m_sourceID;
        return Advance(key, header.m_packageSequence, 1);
    }
    if (const auto* ipfix = dynamic_cast<const CIPFIXPacket*>(&packet)) {
        const CIPFIXHeader& header = ipfix->GetHeader();
        key.version = 10;
        key.source = header.m_observationDomainId;
        return Advance(key, header.m_sequenceNumber, static_cast<uint32_t>(ipfix->GetSize()));
    }
    if (const auto* sflow = dynamic_cast<const CSFlowPacket*>(&packet)) {
        const CSFlowHeader& header = sflow->GetHeader();
        key.version = 1000 + header.m_version; // apart from the NetFlow versions
        key.source = header.m_version == 5 ? header.m_agentSubId : 0;
        key.agent = AgentOf(header.m_agentAddress);
        return Advance(key, header.m_sequenceNumber, 1);
    }
    if (const auto* v7 = dynamic_cast<const CNetFlowPacketV7*>(&packet)) {
        const CNetFlowHeaderV7 header = v7->GetHeader();
        key.version = 7;
        return Advance(key, static_cast<uint32_t>(header.m_flowSequence),
                       static_cast<uint32_t>(header.m_count));
    }
    if (const auto* v8 = dynamic_cast<const CNetFlowPacketV8*>(&packet)) {
        const CNetFlowHeaderV8 header = v8->GetHeader();
        key.version = 8;
        key.source = EngineOf(header.m_engineType, header.m_engineId) << 8 | (header.m_aggregation & 0xFF);
        return Advance(key, static_cast<uint32_t>(header.m_flowSequence),
                       static_cast<uint32_t>(header.m_count));
    }
    return 0; // NetFlow v1: no sequence
}
