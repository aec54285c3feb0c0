#include "netflow9/NetFlowSetRecord.h"

#include <climits>

#include "util/NetFlowUtility.h"

namespace {

// The number at the start of a value text: optional sign, then decimal digits; no digits give 0 and
// values beyond the int range saturate.
int LeadingInteger(const CString& text) {
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == L'-' || text[i] == L'+'))
        negative = text[i++] == L'-';
    int64_t value = 0;
    for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
        value = value * 10 + (text[i] - L'0');
        if (value > static_cast<int64_t>(INT_MAX) + 1)
            break;
    }
    if (negative)
        value = -value;
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}

} // namespace

void CNetFlowSetRecord::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    const size_t count = static_cast<size_t>(GetFieldCount());
    fieldIds.resize(count);
    values.resize(count);
    size_t i = 0;
    ForEachField([&](const CNetFlowField& field) {
        fieldIds[i] = static_cast<uint32_t>(field.GetType());
        values[i] = GetListedValue(field);
        ++i;
    });
}

CString CNetFlowSetRecord::GetListedValue(const CNetFlowField& field) {
    if (field.GetType() == CNetFlowField::PROT)
        return CNetFlowUtility::GetProtocol(LeadingInteger(field.GetValue()));
    return field.GetValue();
}

BOOL CNetFlowSetRecord::Decode(const CByteArray& data,
                               const std::shared_ptr<const CNetFlowSetTemplate>& layout, int& offset) {
    const int64_t length = layout->GetRecordLength();
    // Field lengths are never negative, so the record overruns exactly when its last value would.
    if (length > 0 &&
        (offset < 0 || static_cast<int64_t>(offset) + length > static_cast<int64_t>(data.size())))
        return FALSE;
    m_layout = layout;
    if (length > 0)
        m_values.assign(data.begin() + offset, data.begin() + offset + length);
    else
        m_values.clear();
    offset = WrapAdd(offset, length);
    return TRUE;
}

CString CNetFlowSetRecord::ToString() const {
    CString text;
    AppendText(text);
    return text;
}

void CNetFlowSetRecord::AppendText(CString& out) const {
    ForEachField([&out](const CNetFlowField& field) {
        out += field.ToString();
        out += L"\r\n";
    });
}

int CNetFlowSetRecord::GetFieldCount() const {
    return m_layout ? static_cast<int>(m_layout->m_fields.size()) : 0;
}

CNetFlowField CNetFlowSetRecord::GetField(int index) const {
    static const CArray<CNetFlowField> kNoFields;
    const CArray<CNetFlowField>& specifiers = m_layout ? m_layout->m_fields : kNoFields;
    const CNetFlowField& specifier = ElementAt(specifiers, index);
    size_t position = 0;
    for (int i = 0; i < index; ++i)
        position += static_cast<size_t>(specifiers[static_cast<size_t>(i)].GetLength());
    CNetFlowField field;
    FillField(field, specifier, position);
    return field;
}

CArray<CNetFlowField> CNetFlowSetRecord::GetFields() const {
    CArray<CNetFlowField> fields;
    fields.reserve(static_cast<size_t>(GetFieldCount()));
    ForEachField([&fields](const CNetFlowField& field) { fields.push_back(field); });
    return fields;
}
