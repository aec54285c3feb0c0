#include "ipfix/IPFIXTemplate.h"

#include <memory>

#include "ipfix/IPFIXField.h"
#include "util/NetFlowUtility.h"

BOOL CIPFIXTemplate::Decode(const CByteArray& data, int& offset, int end, bool options) {
    m_fields.clear();
    m_enterprises.clear();
    m_options = options;
    m_scopeFieldCount = 0;
    m_minRecordLength = 0;
    m_variableLength = false;
    if (static_cast<int64_t>(end) - offset < 4)
        return FALSE;
    m_templateId = CNetFlowUtility::GetUShortOffset(data, offset);
    m_fieldCount = CNetFlowUtility::GetUShortOffset(data, offset);
    if (m_fieldCount == 0)
        return TRUE;
    if (options) {
        if (end - offset < 2)
            return FALSE;
        m_scopeFieldCount = CNetFlowUtility::GetUShortOffset(data, offset);
        if (m_scopeFieldCount == 0 || m_scopeFieldCount > m_fieldCount)
            return FALSE;
    }
    // At least 4 bytes per specifier: a count the record cannot hold fails before anything is reserved.
    if (static_cast<int64_t>(end) - offset < 4 * static_cast<int64_t>(m_fieldCount))
        return FALSE;
    m_fields.reserve(static_cast<size_t>(m_fieldCount));
    m_enterprises.reserve(static_cast<size_t>(m_fieldCount));
    for (int i = 0; i < m_fieldCount; ++i) {
        if (end - offset < 4)
            return FALSE;
        CNetFlowField& field = m_fields.emplace_back();
        field.SetType(CNetFlowUtility::GetUShortOffset(data, offset));
        field.SetLength(CNetFlowUtility::GetUShortOffset(data, offset));
        field.SetScope(i < m_scopeFieldCount);
        uint32_t enterprise = 0;
        if ((field.GetType() & 0x8000) != 0) {
            if (end - offset < 4)
                return FALSE;
            enterprise = static_cast<uint32_t>(CNetFlowUtility::GetULongOffset(data, offset));
        }
        m_enterprises.push_back(enterprise);
        if (field.GetLength() == CIPFIXField::VARIABLE_LENGTH) {
            m_variableLength = true;
            m_minRecordLength += 1;
        } else {
            m_minRecordLength += field.GetLength();
        }
    }
    return TRUE;
}

size_t CIPFIXTemplate::GetMemoryBytes() const {
    return sizeof(CIPFIXTemplate) + 2 * sizeof(void*) + m_fields.capacity() * sizeof(CNetFlowField) +
           m_enterprises.capacity() * sizeof(uint32_t);
}
