#include "sflow/SFlowSample.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

namespace {

// A compact interface word: format in the top 2 bits (shifted as a signed value), port below.
void SplitInterface(uint32_t word, int32_t& format, uint32_t& port) {
    format = static_cast<int32_t>(word) >> 30;
    port = word & 0x3FFFFFFF;
}

} // namespace

// The tag is compared whole, not split into enterprise and format.
void CSFlowSample::Decode(const CByteArray& data, int& offset) {
    m_sampleType = ReadU32(data, offset);
    if (DatagramVersion(data) < 5) {
        if (m_sampleType == 1)
            DecodeFlowSampleV2(data, offset);
        else if (m_sampleType == 2)
            DecodeCounterSampleV2(data, offset);
        return;
    }
    // An unknown tag is not skipped by the sample length: intended, the next tag is read from the
    // length word.
    switch (m_sampleType) {
    case 1:
        DecodeFlowSample(data, offset, false);
        break;
    case 2:
        DecodeCounterSample(data, offset, false);
        break;
    case 3:
        DecodeFlowSample(data, offset, true);
        break;
    case 4:
        DecodeCounterSample(data, offset, true);
        break;
    default:
        break;
    }
}

// Source id type in the top 8 bits, shifted as a signed value; index below.
void CSFlowSample::SetSourceId(uint32_t word) {
    m_sourceIdType = static_cast<int32_t>(word) >> 24;
    m_sourceIdIndex = word & 0xFFFFFF;
}

// The sample length is read and ignored: the cursor moves only by what fields and records consumed.
void CSFlowSample::DecodeFlowSample(const CByteArray& data, int& offset, bool expanded) {
    ReadU32(data, offset);
    m_sequenceNumber = ReadU32(data, offset);
    if (expanded) {
        m_sourceIdType = static_cast<int32_t>(ReadU32(data, offset));
        m_sourceIdIndex = ReadU32(data, offset);
    } else {
        SetSourceId(ReadU32(data, offset));
    }
    m_samplingRate = ReadU32(data, offset);
    m_samplePool = ReadU32(data, offset);
    m_drops = ReadU32(data, offset);
    if (expanded) {
        m_inputPortFormat = static_cast<int32_t>(ReadU32(data, offset));
        m_inputPort = ReadU32(data, offset);
        m_outputPortFormat = static_cast<int32_t>(ReadU32(data, offset));
        m_outputPort = ReadU32(data, offset);
    } else {
        SplitInterface(ReadU32(data, offset), m_inputPortFormat, m_inputPort);
        SplitInterface(ReadU32(data, offset), m_outputPortFormat, m_outputPort);
    }
    uint32_t count = ReadU32(data, offset);
    ReserveFor(m_records, data, offset, count, 8);
    for (uint32_t i = 0; i < count; ++i)
        m_records.emplace_back().Decode(data, offset);
}

void CSFlowSample::DecodeCounterSample(const CByteArray& data, int& offset, bool expanded) {
    ReadU32(data, offset);
    m_sequenceNumber = ReadU32(data, offset);
    if (expanded) {
        m_sourceIdType = static_cast<int32_t>(ReadU32(data, offset));
        m_sourceIdIndex = ReadU32(data, offset);
    } else {
        SetSourceId(ReadU32(data, offset));
    }
    uint32_t count = ReadU32(data, offset);
    ReserveFor(m_records, data, offset, count, 8);
    for (uint32_t i = 0; i < count; ++i)
        m_records.emplace_back().DecodeCounters(data, offset);
}

// Ports are whole words (no format split); the extended-data elements are read but the packet-data
// record is what gets appended for each of them: intended.
void CSFlowSample::DecodeFlowSampleV2(const CByteArray& data, int& offset) {
    m_sequenceNumber = ReadU32(data, offset);
    SetSourceId(ReadU32(data, offset));
    m_samplingRate = ReadU32(data, offset);
    m_samplePool = ReadU32(data, offset);
    m_drops = ReadU32(data, offset);
    m_inputPort = ReadU32(data, offset);
    m_outputPort = ReadU32(data, offset);
    m_records.emplace_back().DecodePacketData(data, offset);
    uint32_t count = ReadU32(data, offset);
    ReserveFor(m_records, data, offset, count, 4);
    for (uint32_t i = 0; i < count; ++i) {
        CSFlowRecord element;
        element.DecodeExtendedData(data, offset);
        m_records.push_back(m_records.front());
    }
}

// Counters types 1-6 start with the generic block, 7 is a VLAN block; 2, 3 and 5 add a second block.
void CSFlowSample::DecodeCounterSampleV2(const CByteArray& data, int& offset) {
    m_sequenceNumber = ReadU32(data, offset);
    SetSourceId(ReadU32(data, offset));
    m_samplingRate = ReadU32(data, offset);
    uint32_t type = ReadU32(data, offset);

    CSFlowRecord& first = m_records.emplace_back();
    if (type >= 1 && type <= 6) {
        first.m_counterFormat = 1;
        first.m_genericCounters.Decode(data, offset);
    } else if (type == 7) {
        first.m_counterFormat = 5;
        first.m_vlanCounters.Decode(data, offset);
    }

    if (type == 2) {
        CSFlowRecord& second = m_records.emplace_back();
        second.m_counterFormat = 2;
        second.m_ethernetCounters.Decode(data, offset);
    } else if (type == 3) {
        CSFlowRecord& second = m_records.emplace_back();
        second.m_counterFormat = 3;
        second.m_tokenringCounters.Decode(data, offset);
    } else if (type == 5) {
        CSFlowRecord& second = m_records.emplace_back();
        second.m_counterFormat = 4;
        second.m_vgCounters.Decode(data, offset);
    }
}

// Each port is printed before its format, while the wire carries the format first.
CString CSFlowSample::ToString() const {
    CString text =
        tpnf::FormatText(L"Seq Number: %lu, Source ID Type: %lu, Source ID Index: %lu, Sampling Rate: "
                         L"%lu, Sample Pool: %lu, Input Port: %lu, Input Port Format: %lu, Output "
                         L"Port: %lu, Output Port Format: %lu, Drops: %lu\r\n",
                         m_sequenceNumber, m_sourceIdType, m_sourceIdIndex, m_samplingRate, m_samplePool,
                         m_inputPort, m_inputPortFormat, m_outputPort, m_outputPortFormat, m_drops);
    for (const CSFlowRecord& record : m_records)
        text += record.ToString();
    return text;
}
