// The process-wide template store is carried from one input to the next, so sequences of template
// and data datagrams are explored, as a long-running collector sees them.
#include "FuzzPacket.h"
#include "netflow9/NetFlowPacketV9.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tpnf::fuzz::DecodeAndExercise<CNetFlowPacketV9>(data, size);
}
