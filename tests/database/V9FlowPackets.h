#pragma once
// Decoded NetFlow v9 packets for the writer's tests and benchmark: every record carries IPV4_SRC_ADDR
// 10.0.0.<seed>, PROT 17 and IN_BYTES 1000 + seed, in that order.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "netflow9/NetFlowPacketV9.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

namespace tpnf::test {

// Template 300: IPV4_SRC_ADDR (4 bytes), PROT (1 byte), IN_BYTES (4 bytes).
inline std::vector<uint8_t> ThreeFieldDatagram(uint32_t unixSecs, const std::vector<int>& seeds) {
    ByteBuilder records;
    for (int seed : seeds)
        records.ipv4(10, 0, 0, static_cast<uint8_t>(seed)).u8(17).u32(static_cast<uint32_t>(1000 + seed));
    return NetFlowV9Datagram(V9Header{2, 0, unixSecs, 0, 0})
        .Template(300, {{8, 4}, {4, 1}, {1, 4}})
        .Data(300, records.build())
        .build();
}

// Decodes into packet and gives it the sender 192.0.2.7:2055.
inline void DecodeThreeFieldPacket(CNetFlowPacketV9& packet, uint32_t unixSecs,
                                   const std::vector<int>& seeds) {
    const std::vector<uint8_t> datagram = ThreeFieldDatagram(unixSecs, seeds);
    if (!packet.Decode(CByteArray(datagram.begin(), datagram.end())) ||
        packet.GetSize() != static_cast<int64_t>(seeds.size()))
        throw std::logic_error("three-field datagram did not decode");
    packet.SetSenderInfo(L"192.0.2.7", 2055);
}

inline std::unique_ptr<CNetFlowPacketV9> ThreeFieldPacket(uint32_t unixSecs, const std::vector<int>& seeds) {
    auto packet = std::make_unique<CNetFlowPacketV9>();
    DecodeThreeFieldPacket(*packet, unixSecs, seeds);
    return packet;
}

} // namespace tpnf::test
