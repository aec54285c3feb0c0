// IPFIX messages, built twice like the other packet harnesses (FuzzPacket.h): the decode harness decodes
// every input and checks its structure against the bytes without rendering any text; the render harness
// (TPNF_FUZZ_RENDER) does the same, then renders every input (text, times, field lists and copies).
//
// Templates stay in the process-wide store from one input to the next, so sequences of template and data
// messages are explored; the bound on templates per exporter is set, so its eviction is fuzzed too and
// the store stays small over a long run.
#include "FuzzPacket.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowTemplateManager.h"

namespace {

using namespace tpnf::fuzz;

constexpr uint32_t kMaxTemplates = 64;

// What a decoded message promises about its bytes, without rendering text.
void CheckIPFIX(const CIPFIXPacket& packet, const CByteArray& datagram) {
    const CIPFIXHeader& header = packet.GetHeader();
    Check(header.m_version == 10, "decoded a version other than 10");
    Check(header.m_length >= 16 && header.m_length <= datagram.size(), "message length outside the datagram");
    Check(header.m_length == Word16(datagram, 2), "message length is not bytes 2-3");
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

// Not FuzzPacket: IPFIX decodes with a context, and its decoding never raises (the message length bounds
// every read), so an exception is a finding here rather than a dropped datagram.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const CByteArray datagram(data, data + size);
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
    packet.SetSenderInfo(L"192.0.2.1", 4739);
    CheckDecoded(packet);
    CheckIPFIX(packet, datagram);
    CIPFIXPacket copy(packet);
    Check(copy.GetSize() == packet.GetSize(), "copy holds a different number of records");
    Check(copy.GetSenderIPAddress() == L"192.0.2.1" && copy.GetSenderPort() == 4739, "copy lost the sender");

    if constexpr (kRender) {
        const CString text = Exercise(packet);
        Check(!text.empty(), "IPFIX text could not be rendered");
        ExerciseCopies(packet, text);
    }
    return 0;
}
