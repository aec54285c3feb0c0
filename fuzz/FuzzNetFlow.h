#pragma once
// Structure checks of the fixed-format NetFlow kinds (v1, v5, v7), from the datagram's bytes alone.

#include "FuzzPacket.h"
#include "netflow/NetFlowFixedPacket.h"

namespace tpnf::fuzz {

// Big-endian 32-bit word at offset of a datagram known to be long enough.
inline uint32_t Word32(const CByteArray& datagram, size_t offset) {
    return (static_cast<uint32_t>(Word16(datagram, offset)) << 16) | Word16(datagram, offset + 2);
}

// A successful decode holds exactly the header's count of records, all inside the datagram, each read
// at its own offset (addresses at 0 and 4, ports at 32 and 34 of every record).
template <class THeader, class TRecord>
void CheckFixedPacket(CNetFlowFixedPacket<THeader, TRecord>& packet, const CByteArray& datagram) {
    const THeader header = packet.GetHeader();
    Check(header.m_version == static_cast<int>(Word16(datagram, 0)), "header version is not bytes 0-1");
    Check(header.m_count == static_cast<int>(Word16(datagram, 2)), "header count is not bytes 2-3");
    const auto& records = packet.GetRecords();
    Check(static_cast<int64_t>(records.size()) == packet.GetSize(), "GetSize is not the record count");
    Check(records.size() == static_cast<size_t>(header.m_count), "a decoded datagram lacks counted records");
    // A v1 datagram whose version word is 9 reads no nanoseconds, so 12 bytes decode without records.
    Check(records.empty() || THeader::WIRE_SIZE + records.size() * TRecord::WIRE_SIZE <= datagram.size(),
          "records beyond the datagram's end");
    for (size_t i = 0; i < records.size(); ++i) {
        const size_t at = THeader::WIRE_SIZE + i * TRecord::WIRE_SIZE;
        const TRecord& record = records[i];
        Check(record.m_srcAddr == Word32(datagram, at) && record.m_dstAddr == Word32(datagram, at + 4),
              "record addresses not read at the record's offset");
        Check(record.m_srcPort == static_cast<int>(Word16(datagram, at + 32)) &&
                  record.m_dstPort == static_cast<int>(Word16(datagram, at + 34)),
              "record ports not read at the record's offset");
    }
}

// The check above as a harness hands it to FuzzPacket.
inline constexpr auto kFixedPacket = [](auto& packet, const CByteArray& datagram) {
    CheckFixedPacket(packet, datagram);
};

} // namespace tpnf::fuzz
