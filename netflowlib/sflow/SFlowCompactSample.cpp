#include "sflow/SFlowCompactSample.h"

#include "sflow/SFlowSampleReader.h"

bool CSFlowCompactSample::Decode(const CByteArray& data, int& offset, bool exact) {
    return tpnf::sflow::SampleReader::Read(m_fields, m_records, data, offset, exact);
}

CString CSFlowCompactSample::ToString() const {
    CString text = m_fields.ToString();
    for (const CSFlowCompactRecord& record : m_records)
        text += record.ToString();
    return text;
}

CSFlowSample CSFlowCompactSample::ToSample() const {
    CSFlowSample sample = m_fields;
    sample.m_records.reserve(m_records.size());
    for (const CSFlowCompactRecord& record : m_records)
        sample.m_records.push_back(record.ToRecord());
    return sample;
}
