#include "netflow9/NetFlowSetTemplate.h"

#include <algorithm>

#include "util/NetFlowUtility.h"

BOOL CNetFlowSetTemplate::Decode(const CByteArray& data, int& offset) {
    m_templateId = CNetFlowUtility::GetUShortOffset(data, offset);
    m_fieldCount = CNetFlowUtility::GetUShortOffset(data, offset);
    if (static_cast<int>(m_fields.size()) >= m_fieldCount)
        return TRUE;
    ReserveFields(data, offset, m_fieldCount - static_cast<int64_t>(m_fields.size()));
    while (static_cast<int>(m_fields.size()) < m_fieldCount) {
        CNetFlowField field;
        field.Decode(data, offset);
        m_fields.push_back(std::move(field));
    }
    return TRUE;
}

void CNetFlowSetTemplate::ReserveFields(const CByteArray& data, int offset, int64_t wanted) {
    int64_t available = offset < 0 ? 0 : (static_cast<int64_t>(data.size()) - offset) / 4;
    m_fields.reserve(m_fields.size() + static_cast<size_t>(std::clamp<int64_t>(available, 0, wanted)));
}

int64_t CNetFlowSetTemplate::GetRecordLength() const {
    int64_t length = 0;
    for (const CNetFlowField& field : m_fields)
        length += field.GetLength();
    return length;
}
