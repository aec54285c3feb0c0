// IPFIX messages. A decode harness: every input is decoded and its structure checked against the bytes
// without rendering any text; only inputs of at most kRenderLimit bytes are also rendered (text, times,
// field lists and copies), so decoding is tried at about the speed of decoding.
//
// Templates stay in the process-wide store from one input to the next, so sequences of template and data
// messages are explored; the bound on templates per exporter is set, so its eviction is fuzzed too and
// the store stays small over a long run.
#include "FuzzPacket.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowTemplateManager.h"

namespace {

using namespace tpnf::fuzz;

constexpr size_t kRenderLimit = 512;
constexpr uint32_t kMaxTemplates = 64;

// What a decoded message promises about its bytes, without rendering text.
void CheckIPFIX(const CIPFIXPacket& packet, const CByteArray& datagram) {
    const CIPFIXHeader& header = packet.GetHeader();
    Check(header.m_version == 10, "decoded a version other than 10");
    Check(header.m_length >= 16 && header.m_length <= datagram.size(), "message length outside the datagram");
    Check(header.m_length == ((static_cast<unsigned>(datagram[2]) << 8) | datagram[3]),
          "message length is not bytes 2-3");
    Check(static_cast<int64_t>(packet.GetRecords().size()) == packet.GetSize(),
          "GetSize is not the record count");
    for (const CIPFIXRecord& record : packet.GetRecords()) {
        const auto& layout = record.GetTemplate();
        Check(layout != nullptr, "record without its template");
        Check(layout->m_fields.size() == layout->m_enterprises.size(),
              "template fields and enterprise numbers differ");
        Check(layout->m_fieldCount == static_cast<int>(layout->m_fields.size()),
              "template field count differs");
        size_t fields = 0;
        size_t bytes = 0;
        record.ForEachField([&](const CIPFIXField& field) {
            const size_t length = field.GetValueBytes().size();
            if (field.GetLength() == CIPFIXField::VARIABLE_LENGTH)
                bytes += length < 255 ? 1 : 3;
            else
                Check(length == static_cast<size_t>(field.GetLength()),
                      "value differs from its announced length");
            bytes += length;
            ++fields;
        });
        Check(fields == layout->m_fields.size(), "record walked a different number of fields");
        Check(bytes >= static_cast<size_t>(layout->m_minRecordLength),
              "record shorter than its template allows");
        Check(bytes + 20 <= header.m_length, "record longer than the message can hold");
    }
    Check(CNetFlowTemplateManager::GetInstance()->GetSnapshot().scopedTemplates <= kMaxTemplates,
          "more templates held than the bound");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CByteArray datagram(data, data + size);
    CIPFIXPacket packet;
    CDecodeContext context;
    context.options.ipfix = true;
    context.options.maxTemplates = kMaxTemplates;
    packet.SetDecodeContext(context);
    int result = 0;
    try {
        result = packet.Decode(datagram);
    } catch (const CInvalidArgException&) {
        Fail("IPFIX decoding raised: the message length should bound every read");
    }
    if (result == 0)
        return 0;
    CheckIPFIX(packet, datagram);
    CIPFIXPacket copy(packet);
    Check(copy.GetSize() == packet.GetSize(), "copy holds a different number of records");
    if (size > kRenderLimit)
        return 0;
    packet.SetSenderInfo(L"192.0.2.1", 4739);
    const CString text = Exercise(packet);
    Check(!text.empty(), "IPFIX text could not be rendered");
    ExerciseCopies(packet, text);
    return 0;
}
