#include "netflow9/NetFlowOptionsTemplate.h"

#include "util/NetFlowUtility.h"

namespace {

// Reads specifiers while the offset is below end. A byte length that is not a multiple of 4 reads one
// specifier past it: intended.
void DecodeSpecifiers(const CByteArray& data, int& offset, int end, BOOL scope,
                      CArray<CNetFlowField>& fields) {
    while (offset < end) {
        CNetFlowField field;
        field.Decode(data, offset);
        field.SetScope(scope);
        fields.push_back(std::move(field));
    }
}

} // namespace

BOOL CNetFlowOptionsTemplate::Decode(const CByteArray& data, int& offset) {
    m_templateId = CNetFlowUtility::GetUShortOffset(data, offset);
    m_optionScopeLength = CNetFlowUtility::GetUShortOffset(data, offset);
    m_optionLength = CNetFlowUtility::GetUShortOffset(data, offset);
    ReserveFields(data, offset, (m_optionScopeLength + 3) / 4 + (m_optionLength + 3) / 4);
    DecodeSpecifiers(data, offset, WrapAdd(offset, m_optionScopeLength), TRUE, m_fields);
    DecodeSpecifiers(data, offset, WrapAdd(offset, m_optionLength), FALSE, m_fields);
    return TRUE;
}
