#include "ipfix/IPFIXRecord.h"

#include "util/NetFlowUtility.h"

BOOL CIPFIXRecord::Decode(const CByteArray& data, const std::shared_ptr<const CIPFIXTemplate>& layout,
                          int& offset, int end) {
    const int64_t available = static_cast<int64_t>(end) - offset;
    if (offset < 0 || static_cast<size_t>(end) > data.size() || available < layout->m_minRecordLength)
        return FALSE;
    int64_t length = layout->m_minRecordLength;
    if (layout->m_variableLength) {
        // Walk the length prefixes: 1 byte, or 255 and 2 more bytes.
        int64_t position = offset;
        for (const CNetFlowField& field : layout->m_fields) {
            if (field.GetLength() != CIPFIXField::VARIABLE_LENGTH) {
                position += field.GetLength();
                continue;
            }
            if (position + 1 > end)
                return FALSE;
            int64_t valueLength = data[static_cast<size_t>(position++)];
            if (valueLength == 255) {
                if (position + 2 > end)
                    return FALSE;
                valueLength = CNetFlowUtility::GetUShort(data, static_cast<int>(position));
                position += 2;
            }
            position += valueLength;
        }
        if (position > end)
            return FALSE;
        length = position - offset;
    }
    m_layout = layout;
    m_bytes.assign(data.begin() + offset, data.begin() + offset + length);
    offset = static_cast<int>(offset + length);
    return TRUE;
}

CString CIPFIXRecord::ToString() const {
    CString text;
    AppendText(text);
    return text;
}

void CIPFIXRecord::AppendText(CString& out) const {
    ForEachField([&out](const CIPFIXField& field) {
        out += field.ToString();
        out += L"\r\n";
    });
}

void CIPFIXRecord::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    const size_t count = static_cast<size_t>(GetFieldCount());
    fieldIds.resize(count);
    values.resize(count);
    size_t i = 0;
    ForEachField([&](const CIPFIXField& field) {
        fieldIds[i] = field.GetFieldId();
        values[i] = field.GetListedValue();
        ++i;
    });
}

int CIPFIXRecord::GetFieldCount() const {
    return m_layout ? static_cast<int>(m_layout->m_fields.size()) : 0;
}

CIPFIXField CIPFIXRecord::GetField(int index) const {
    if (index < 0 || index >= GetFieldCount())
        AfxThrowInvalidArgException();
    CIPFIXField result;
    int i = 0;
    ForEachField([&](const CIPFIXField& field) {
        if (i++ == index)
            result = field;
    });
    return result;
}

CArray<CIPFIXField> CIPFIXRecord::GetFields() const {
    CArray<CIPFIXField> fields;
    fields.reserve(static_cast<size_t>(GetFieldCount()));
    ForEachField([&fields](const CIPFIXField& field) { fields.push_back(field); });
    return fields;
}
