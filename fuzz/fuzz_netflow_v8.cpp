#include "FuzzNetFlow.h"
#include "netflow/NetFlowPacketV8.h"

namespace {

using namespace tpnf::fuzz;

// Records of the header's scheme only: exactly the header's count after a successful decode, all inside
// the datagram; an unknown scheme has none and a size of -1.
void CheckV8(CNetFlowPacketV8& packet, const CByteArray& datagram) {
    const CNetFlowHeaderV8 header = packet.GetHeader();
    Check(header.m_version == static_cast<int>(Word16(datagram, 0)), "header version is not bytes 0-1");
    Check(header.m_count == static_cast<int>(Word16(datagram, 2)), "header count is not bytes 2-3");
    Check(header.m_aggregation == datagram[22], "aggregation scheme is not byte 22");

    CNetFlowPacketV8::CRouterASArray as;
    CNetFlowPacketV8::CRouterProtoPortArray protoPort;
    CNetFlowPacketV8::CRouterSrcPrefixArray srcPrefix;
    CNetFlowPacketV8::CRouterDstPrefixArray dstPrefix;
    CNetFlowPacketV8::CRouterPrefixArray prefix;
    packet.GetRecords(as);
    packet.GetRecords(protoPort);
    packet.GetRecords(srcPrefix);
    packet.GetRecords(dstPrefix);
    packet.GetRecords(prefix);
    const size_t held = as.size() + protoPort.size() + srcPrefix.size() + dstPrefix.size() + prefix.size();

    size_t wireSize = 0;
    size_t inScheme = 0;
    switch (header.m_aggregation) {
    case 1:
        wireSize = CNetFlowRecordRouterASV8::WIRE_SIZE, inScheme = as.size();
        break;
    case 2:
        wireSize = CNetFlowRecordRouterProtoPortV8::WIRE_SIZE, inScheme = protoPort.size();
        break;
    case 3:
        wireSize = CNetFlowRecordRouterSrcPrefixV8::WIRE_SIZE, inScheme = srcPrefix.size();
        break;
    case 4:
        wireSize = CNetFlowRecordRouterDstPrefixV8::WIRE_SIZE, inScheme = dstPrefix.size();
        break;
    case 5:
        wireSize = CNetFlowRecordRouterPrefixV8::WIRE_SIZE, inScheme = prefix.size();
        break;
    default:
        Check(held == 0 && packet.GetSize() == -1, "records held for an unknown scheme");
        return;
    }
    Check(held == inScheme, "records held outside the header's scheme");
    Check(packet.GetSize() == static_cast<int64_t>(inScheme), "GetSize is not the scheme's record count");
    Check(inScheme == static_cast<size_t>(header.m_count), "a decoded datagram lacks counted records");
    Check(CNetFlowHeaderV8::WIRE_SIZE + inScheme * wireSize <= datagram.size(),
          "records beyond the datagram's end");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzPacket<CNetFlowPacketV8>(data, size, CheckV8);
}
