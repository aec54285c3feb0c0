// sFlow decoding in exact mode, and in the default mode for comparison, with the invariants of the two
// record holders: the packet's records that hold only their own kind and the samples GetSamples builds
// agree with each other and with samples read directly into holders of every kind. Built twice like the
// other packet harnesses (FuzzPacket.h): the decode harness checks decoding alone; the render harness
// (TPNF_FUZZ_RENDER) also compares the texts of the samples, the packet and its copy for every input.
#include "FuzzPacket.h"
#include "sflow/SFlowPacket.h"

namespace {

using namespace tpnf::fuzz;

// The samples read one CSFlowSample::Decode after another, as far as the packet's decode got.
CArray<CSFlowSample, const CSFlowSample&> ReadWithFullHolders(const CByteArray& data, bool exact) {
    CArray<CSFlowSample, const CSFlowSample&> samples;
    try {
        CSFlowHeader header;
        int offset = header.Decode(data, exact);
        if (offset < 0)
            return samples;
        for (uint32_t i = 0; i < header.m_numSamples; ++i) {
            CSFlowSample sample;
            bool more = sample.Decode(data, offset, exact);
            samples.push_back(std::move(sample));
            if (!more)
                break;
        }
    } catch (const CInvalidArgException&) {
    }
    return samples;
}

void CheckMode(const CByteArray& data, bool exact) {
    CSFlowPacket packet;
    CDecodeContext context;
    context.options.sflowExact = exact;
    packet.SetDecodeContext(context);
    try {
        Check(packet.Decode(data) == 1, "Decode gave a result other than 1");
    } catch (const CInvalidArgException&) {
        // A truncated or malformed datagram: the samples read before the failure stay.
    }

    const auto& compact = packet.GetCompactSamples();
    const auto& full = packet.GetSamples();
    Check(packet.GetSize() == static_cast<int64_t>(compact.size()), "GetSize differs from the samples held");
    Check((packet.IsEmpty() != FALSE) == compact.empty(), "IsEmpty disagrees with the samples held");
    Check(full.size() == compact.size(), "GetSamples holds another number of samples");
    Check(&full == &packet.GetSamples(), "GetSamples built its samples twice");

    const auto direct = ReadWithFullHolders(data, exact);
    Check(direct.size() == compact.size(), "samples read directly differ in number");
    for (size_t i = 0; i < compact.size(); ++i) {
        const CSFlowSample& fields = compact[i].m_fields;
        Check(fields.m_records.empty(), "a compact sample's fields hold records");
        Check(full[i].m_sampleType == fields.m_sampleType && direct[i].m_sampleType == fields.m_sampleType,
              "sample types differ");
        Check(full[i].m_sequenceNumber == fields.m_sequenceNumber &&
                  full[i].m_samplingRate == fields.m_samplingRate &&
                  full[i].m_inputPort == fields.m_inputPort &&
                  full[i].m_outputPortFormat == fields.m_outputPortFormat,
              "sample fields differ");
        const auto& records = compact[i].m_records;
        Check(full[i].m_records.size() == records.size() && direct[i].m_records.size() == records.size(),
              "record counts differ");
        for (size_t j = 0; j < records.size(); ++j) {
            const CSFlowRecord& a = full[i].m_records[j];
            const CSFlowRecord& b = direct[i].m_records[j];
            Check(a.m_flowFormat == records[j].GetFlowFormat() && b.m_flowFormat == a.m_flowFormat,
                  "flow formats differ");
            Check(a.m_counterFormat == records[j].GetCounterFormat() &&
                      b.m_counterFormat == a.m_counterFormat,
                  "counter formats differ");
            Check(a.m_headerRecord.m_header == b.m_headerRecord.m_header, "header bytes differ");
            if (exact && records[j].GetFlowFormat() == 1)
                Check(records[j].Get<CSFlowHeaderRecord>() != nullptr &&
                          records[j].Get<CSFlowHeaderRecord>()->m_header.size() ==
                              records[j].Get<CSFlowHeaderRecord>()->m_headerLength,
                      "exact header bytes differ from the header length");
        }
        if constexpr (kRender) {
            const CString text = compact[i].ToString();
            Check(text == full[i].ToString() && text == direct[i].ToString(), "sample texts differ");
        }
    }

    CSFlowPacket copy(packet);
    Check(copy.GetSize() == packet.GetSize(), "a copy holds another number of samples");
    if constexpr (kRender) {
        packet.SetSenderInfo(L"192.0.2.1", 6343);
        copy.SetSenderInfo(L"192.0.2.1", 6343);
        const CString text = packet.ToString();
        Check(!text.empty(), "empty packet text");
        Check(copy.ToString() == text, "a copy renders differently");
        (void)packet.GetSysUpTime();
        (void)packet.GetProtocol();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CByteArray datagram(data, data + size);
    CheckMode(datagram, true);
    CheckMode(datagram, false);
    return 0;
}
