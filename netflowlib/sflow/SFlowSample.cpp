#include "sflow/SFlowSample.h"

#include "sflow/SFlowSampleReader.h"

bool CSFlowSample::Decode(const CByteArray& data, int& offset, bool exact) {
    return tpnf::sflow::SampleReader::Read(*this, m_records, data, offset, exact);
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
