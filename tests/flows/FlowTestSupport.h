#pragma once
// Shared by the flow tests: flows of a decoded datagram, and a flow as its JSON line.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "flows/FlowJson.h"
#include "flows/FlowMaker.h"
#include "flows/FlowRecord.h"

namespace tpnf::test {

inline std::string Json(const CFlowRecord& flow) {
    std::string line;
    CFlowJson::Append(line, flow);
    return line;
}

// A context for the exporter 192.0.2.1:2055, datagram read at receivedMs.
inline CFlowContext Context(int64_t receivedMs, const CByteArray* datagram = nullptr) {
    CFlowContext context;
    context.timeReceived = receivedMs;
    context.exporter.bytes = {192, 0, 2, 1};
    context.exporter.length = 4;
    context.exporter.port = 2055;
    context.datagram = datagram;
    return context;
}

// Decodes the datagram into a fresh packet of the kind given and makes its flows.
template <class Packet>
std::vector<CFlowRecord> FlowsOf(const CByteArray& datagram, int64_t receivedMs = 1700000000500,
                                 bool withDatagram = true) {
    Packet packet;
    EXPECT_NE(packet.Decode(datagram), 0);
    std::vector<CFlowRecord> flows;
    CFlowMaker maker;
    maker.Append(packet, Context(receivedMs, withDatagram ? &datagram : nullptr), flows);
    return flows;
}

} // namespace tpnf::test
