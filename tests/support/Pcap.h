#pragma once
// Reads the captures kept in tests/data: whole files, the frames of a classic little-endian pcap file (as
// scapy writes them) and the UDP payloads of Ethernet/IPv4/UDP frames.

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tpnf::test {

inline std::vector<uint8_t> ReadDataFile(const std::string& name) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The frames of a pcap file; empty when the file is missing or not a little-endian pcap file.
inline std::vector<std::vector<uint8_t>> PcapFrames(const std::string& name) {
    std::vector<uint8_t> file = ReadDataFile(name);
    auto le32 = [&file](size_t at) {
        uint32_t value = 0;
        std::memcpy(&value, file.data() + at, 4);
        return value;
    };
    std::vector<std::vector<uint8_t>> frames;
    if (file.size() < 24 || le32(0) != 0xA1B2C3D4)
        return frames;
    for (size_t at = 24; at + 16 <= file.size();) {
        uint32_t length = le32(at + 8);
        at += 16;
        if (at + length > file.size())
            break;
        frames.emplace_back(file.begin() + static_cast<long>(at),
                            file.begin() + static_cast<long>(at + length));
        at += length;
    }
    return frames;
}

// The UDP payload of each Ethernet/IPv4/UDP frame of a pcap file (other frames are left out).
inline std::vector<std::vector<uint8_t>> UdpPayloads(const std::string& name) {
    std::vector<std::vector<uint8_t>> payloads;
    for (const std::vector<uint8_t>& frame : PcapFrames(name)) {
        if (frame.size() < 14 + 20 + 8 || frame[12] != 0x08 || frame[13] != 0x00 || frame[23] != 17)
            continue;
        size_t udp = 14 + static_cast<size_t>(frame[14] & 0x0F) * 4;
        if (udp + 8 <= frame.size())
            payloads.emplace_back(frame.begin() + static_cast<long>(udp + 8), frame.end());
    }
    return payloads;
}

} // namespace tpnf::test
