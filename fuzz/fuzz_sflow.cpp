#include "FuzzPacket.h"
#include "sflow/SFlowPacket.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tpnf::fuzz::DecodeAndExercise<CSFlowPacket>(data, size);
}
