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
    fieldIds.resize(m_fields.size());
    values.resize(m_fields.size());
    for (size_t i = 0; i < m_fields.size(); ++i) {
        const CNetFlowField& field = m_fields[i];
        fieldIds[i] = static_cast<uint32_t>(field.GetType());
        if (field.GetType() == CNetFlowField::PROT)
            values[i] = CNetFlowUtility::GetProtocol(LeadingInteger(field.GetValue()));
        else
            values[i] = field.GetValue();
    }
}

BOOL CNetFlowSetRecord::Decode(const CByteArray& data, const CArray<CNetFlowField>& templateFields,
                               int& offset) {
    m_fields.reserve(m_fields.size() + templateFields.size());
    for (const CNetFlowField& spec : templateFields) {
        int length = spec.GetLength();
        if (length > 0 &&
            (offset < 0 || static_cast<int64_t>(offset) + length > static_cast<int64_t>(data.size())))
            return FALSE;
        CNetFlowField& field = m_fields.emplace_back();
        field.SetType(spec.GetType());
        field.SetLength(length);
        field.SetScope(spec.IsScope());
        if (length > 0)
            field.m_value.assign(data.begin() + offset, data.begin() + offset + length);
        offset = WrapAdd(offset, length);
    }
    return TRUE;
}

CString CNetFlowSetRecord::ToString() const {
    CString text;
    AppendText(text);
    return text;
}

void CNetFlowSetRecord::AppendText(CString& out) const {
    for (const CNetFlowField& field : m_fields) {
        out += field.ToString();
        out += L"\r\n";
    }
}
