#include "FuzzNetFlow.h"
#include "netflow/NetFlowPacketV7.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tpnf::fuzz::FuzzPacket<CNetFlowPacketV7>(data, size, tpnf::fuzz::kFixedPacket);
}
