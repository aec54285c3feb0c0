// The process-wide template store is carried from one input to the next, so sequences of template
// and data datagrams are explored, as a long-running collector sees them.
#include "FuzzPacket.h"
#include "netflow9/NetFlowPacketV9.h"

namespace {

using namespace tpnf::fuzz;

// Every record holds its template's fields with values of exactly the announced lengths, read from the
// datagram after its 20-byte header and a 4-byte flowset header.
void CheckV9(CNetFlowPacketV9& packet, const CByteArray& datagram) {
    Check(packet.GetHeader().m_version == static_cast<int>(Word16(datagram, 0)),
          "header version is not bytes 0-1");
    Check(packet.GetHeader().m_count == static_cast<int>(Word16(datagram, 2)),
          "header count is not bytes 2-3");
    const auto& records = packet.GetRecords();
    Check(static_cast<int64_t>(records.size()) == packet.GetSize(), "GetSize is not the record count");
    for (const CNetFlowSetRecord& record : records) {
        int fields = 0;
        size_t bytes = 0;
        record.ForEachField([&](const CNetFlowField& field) {
            Check(field.GetLength() >= 0 && field.m_value.size() == static_cast<size_t>(field.GetLength()),
                  "field value differs from its announced length");
            bytes += field.m_value.size();
            ++fields;
        });
        Check(fields == record.GetFieldCount(), "GetFieldCount differs from the fields walked");
        Check(bytes + 24 <= datagram.size(), "record longer than the datagram can hold");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzPacket<CNetFlowPacketV9>(data, size, CheckV9);
}
