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

// The holders are made in place: each is large, so none is moved.
CSFlowSample CSFlowCompactSample::ToSample() const {
    CSFlowSample sample = m_fields;
    sample.m_records.resize(m_records.size());
    for (size_t i = 0; i < m_records.size(); ++i)
        m_records[i].CopyTo(sample.m_records[i]);
    return sample;
}
