#pragma once
// The flow layout the decoder benchmarks share: the usual IPv4 flow fields, 16 fields and 41 bytes per
// record, and records filled in that layout.

#include <cstdint>
#include <utility>

#include "support/ByteBuilder.h"

namespace tpnf::bench {

// Field type (the same number in NetFlow v9 and IPFIX) and length.
inline constexpr std::pair<uint16_t, uint16_t> kFlowFields[] = {
    {1, 4},  // IN_BYTES
    {2, 4},  // IN_PKTS
    {4, 1},  // PROT
    {5, 1},  // SRC_TOS
    {6, 1},  // TCP_FLAGS
    {7, 2},  // L4_SRC_PORT
    {8, 4},  // IPV4_SRC_ADDR
    {9, 1},  // SRC_MASK
    {10, 2}, // INPUT_SNMP
    {11, 2}, // L4_DST_PORT
    {12, 4}, // IPV4_DST_ADDR
    {13, 1}, // DST_MASK
    {14, 2}, // OUTPUT_SNMP
    {15, 4}, // IPV4_NEXT_HOP
    {21, 4}, // LAST_SWITCHED
    {22, 4}, // FIRST_SWITCHED
};

inline tpnf::test::ByteBuilder FlowRecords(int count) {
    tpnf::test::ByteBuilder records;
    for (uint32_t i = 0; i < static_cast<uint32_t>(count); ++i)
        records.u32(1500 * (i + 1))
            .u32(i + 1)
            .u8(i % 2 ? 6 : 17)
            .u8(0)
            .u8(0x18)
            .u16(1024 + i)
            .ipv4(10, 0, 0, static_cast<uint8_t>(i))
            .u8(24)
            .u16(1)
            .u16(443)
            .ipv4(192, 168, 1, static_cast<uint8_t>(i))
            .u8(24)
            .u16(2)
            .ipv4(10, 0, 0, 254)
            .u32(100000 + i)
            .u32(90000 + i);
    return records;
}

} // namespace tpnf::bench
