#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Built-in sample datagrams for demos and throughput runs, one per kind:
// - "v5": NetFlow v5 with 30 records;
// - "v9": NetFlow v9 with a 16-field template and 20 data records for it in the same datagram;
// - "sflow": sFlow v5 with 8 flow samples (a 128-byte sampled Ethernet/IPv4/TCP header and an extended
//   switch record each).
namespace tpnf::tools {

const std::vector<std::string>& SampleNames();
// Empty for an unknown name.
std::vector<uint8_t> MakeSample(const std::string& name);
// The file name --write-samples gives it: v5_30.bin, v9_t16x20.bin, sflow5_8.bin.
std::string SampleFileName(const std::string& name);

} // namespace tpnf::tools
