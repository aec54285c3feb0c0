#pragma once

#include <memory>

#include "netflow9/NetFlowField.h"
#include "netflow9/NetFlowSetTemplate.h"
#include "util/Types.h"

// One NetFlow v9 data record: the fields of its template in template order, each with its value bytes.
//
// Held compactly: the template it was decoded with (immutable, shared) and the record's value bytes in
// one array, so decoding costs one allocation per record rather than one per field. Fields are handed
// out as CNetFlowField values (type, length and scope from the template, value bytes from the record).
class CNetFlowSetRecord {
public:
    CNetFlowSetRecord() = default;
    CNetFlowSetRecord(const CNetFlowSetRecord&) = default;
    CNetFlowSetRecord(CNetFlowSetRecord&&) noexcept = default;
    CNetFlowSetRecord& operator=(const CNetFlowSetRecord&) = default;
    CNetFlowSetRecord& operator=(CNetFlowSetRecord&&) noexcept = default;
    virtual ~CNetFlowSetRecord() = default;

    // Sizes both arrays to the field count and fills them from index 0 (they are overwritten, not
    // appended to). The protocol field shows its name instead of its number.
    virtual void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const;

    // A field's value as field lists show it: its text, but the protocol field's protocol name.
    static CString GetListedValue(const CNetFlowField& field);

    // Takes each template field's value from offset on; the offset advances by the sum of the field
    // lengths. FALSE when the datagram ends inside a value. The flowset's end is not a bound.
    BOOL Decode(const CByteArray& data, const std::shared_ptr<const CNetFlowSetTemplate>& layout,
                int& offset);

    // Every field as "name=value" followed by "\r\n"; empty for a record without fields.
    CString ToString() const;
    void AppendText(CString& out) const;

    int GetFieldCount() const;
    // The field at index with its value bytes; CInvalidArgException outside 0..GetFieldCount()-1.
    CNetFlowField GetField(int index) const;
    CArray<CNetFlowField> GetFields() const;

    // Calls visit(const CNetFlowField&) for every field in order. The field passed is one scratch object
    // refilled for each field, so a walk over a record allocates at most once.
    template <class Visit>
    void ForEachField(Visit&& visit) const;

private:
    // Gives field the template field's type, length and scope and its value bytes from position on.
    void FillField(CNetFlowField& field, const CNetFlowField& specifier, size_t position) const {
        field.SetType(specifier.GetType());
        field.SetLength(specifier.GetLength());
        field.SetScope(specifier.IsScope());
        auto first = m_values.begin() + static_cast<std::ptrdiff_t>(position);
        field.m_value.assign(first, first + specifier.GetLength());
    }

    std::shared_ptr<const CNetFlowSetTemplate> m_layout;
    CByteArray m_values; // every field's value bytes, back to back in template order
};

template <class Visit>
void CNetFlowSetRecord::ForEachField(Visit&& visit) const {
    if (!m_layout)
        return;
    CNetFlowField field;
    size_t position = 0;
    for (const CNetFlowField& specifier : m_layout->m_fields) {
        FillField(field, specifier, position);
        position += static_cast<size_t>(specifier.GetLength());
        visit(static_cast<const CNetFlowField&>(field));
    }
}
