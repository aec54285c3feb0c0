#include "FuzzPacket.h"
#include "sflow/SFlowPacket.h"

namespace {

using namespace tpnf::fuzz;

// A supported version holds exactly the announced samples, each read from at least its 4-byte tag, and
// no more records than the datagram has bytes; any other version holds nothing. The field lists of
// sFlow records are empty.
void CheckSFlow(CSFlowPacket& packet, const CByteArray& datagram) {
    const CSFlowHeader& header = packet.GetHeader();
    const auto& samples = packet.GetSamples();
    Check(static_cast<int64_t>(samples.size()) == packet.GetSize(), "GetSize is not the sample count");
    const bool known = header.m_version == 2 || header.m_version == 4 || header.m_version == 5;
    Check(known != packet.GetProtocol().empty(), "protocol text disagrees with the version");
    if (!known) {
        Check(samples.empty(), "samples held for an unknown version");
        return;
    }
    Check(samples.size() == header.m_numSamples, "a decoded datagram lacks announced samples");
    Check(samples.size() * 4 <= datagram.size(), "more samples than 4-byte tags fit the datagram");
    size_t records = 0;
    for (const CSFlowSample& sample : samples)
        records += sample.m_records.size();
    Check(records <= datagram.size(), "more records than the datagram has bytes");

    CUIntArray ids;
    CStringArray values;
    for (size_t i = 0; i < samples.size(); ++i)
        packet.GetRecordFields(static_cast<int>(i), ids, values);
    Check(ids.empty() && values.empty(), "sFlow records gave field lists");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzPacket<CSFlowPacket>(data, size, CheckSFlow);
}
