#include "FuzzPacket.h"
#include "netflow/NetFlowPacketV7.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tpnf::fuzz::DecodeAndExercise<CNetFlowPacketV7>(data, size);
}
