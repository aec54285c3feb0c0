#pragma once

#include <cstdint>
#include <unordered_map>

#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"

// Loss upstream of the collector, read from the headers' sequence numbers. Each exporter stream (the
// exporter's address and port, the protocol and its source: engine type and id for NetFlow v5 and v8,
// source id for v9, observation domain for IPFIX, agent address and sub-agent for sFlow) is expected to
// go on where its last packet left off:
// - NetFlow v5, v7, v8 and IPFIX count flow records: the next sequence is this one plus the packet's
//   records (the header's count; IPFIX: the data records decoded);
// - NetFlow v9 and sFlow count datagrams: the next sequence is this one plus one.
// A packet ahead of its expected number by less than kMaxGap gives the missing numbers as a gap; one
// behind it, or further ahead, is taken as reordering or a restarted exporter and starts the count again.
// NetFlow v1 carries no sequence. Not thread-safe: one tracker per receive loop.
class CSequenceTracker {
public:
    static constexpr uint32_t kMaxGap = 1u << 20;

    // Sequence numbers missing before this packet in its stream (in the stream's units, see above).
    uint64_t Check(const CTPAbstractPacket& packet, const CExporterAddress& exporter);

    size_t GetStreamCount() const { return m_next.size(); }

private:
    struct Key {
        CExporterAddress exporter;
        uint32_t version = 0;
        uint32_t source = 0;
        CExporterAddress agent; // sFlow's agent address; empty otherwise
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        size_t operator()(const Key& key) const;
    };

    uint64_t Advance(const Key& key, uint32_t sequence, uint32_t step);

    std::unordered_map<Key, uint32_t, KeyHash> m_next;
};
