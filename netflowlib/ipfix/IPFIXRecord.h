#pragma once

#include <memory>

#include "ipfix/IPFIXField.h"
#include "ipfix/IPFIXTemplate.h"
#include "util/Types.h"

// One IPFIX data record: the fields of its template in template order, each with its value bytes.
//
// Held as the template it was decoded with (immutable, shared) and the record's bytes as on the wire,
// length prefixes of variable-length fields included, so decoding costs one allocation per record.
class CIPFIXRecord {
public:
    // Reads one record laid out by layout from offset; it must end by end. FALSE when it does not fit
    // (offset untouched); otherwise offset ends past the record.
    BOOL Decode(const CByteArray& data, const std::shared_ptr<const CIPFIXTemplate>& layout, int& offset,
                int end);

    // Every field as "name=value" followed by "\r\n", as a v9 record renders.
    CString ToString() const;
    void AppendText(CString& out) const;

    // Sizes both arrays to the field count and fills them: field ids (see CIPFIXField) and value texts,
    // the protocol field showing its name.
    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const;

    int GetFieldCount() const;
    // The field at index; CInvalidArgException outside 0..GetFieldCount()-1.
    CIPFIXField GetField(int index) const;
    CArray<CIPFIXField> GetFields() const;
    const std::shared_ptr<const CIPFIXTemplate>& GetTemplate() const { return m_layout; }

    // Calls visit(const CIPFIXField&) for every field in order, with one scratch field refilled each time.
    template <class Visit>
    void ForEachField(Visit&& visit) const;

private:
    std::shared_ptr<const CIPFIXTemplate> m_layout;
    CByteArray m_bytes;
};

template <class Visit>
void CIPFIXRecord::ForEachField(Visit&& visit) const {
    if (!m_layout)
        return;
    CIPFIXField field;
    size_t position = 0;
    const CArray<CNetFlowField>& specifiers = m_layout->m_fields;
    for (size_t i = 0; i < specifiers.size(); ++i) {
        const CNetFlowField& specifier = specifiers[i];
        size_t length = static_cast<size_t>(specifier.GetLength());
        if (specifier.GetLength() == CIPFIXField::VARIABLE_LENGTH) {
            // Checked when the record was decoded: the prefix and the value lie within the bytes.
            length = m_bytes[position++];
            if (length == 255) {
                length = (static_cast<size_t>(m_bytes[position]) << 8) | m_bytes[position + 1];
                position += 2;
            }
        }
        field.m_field.SetType(specifier.GetType());
        field.m_field.SetLength(specifier.GetLength());
        field.m_field.SetScope(specifier.IsScope());
        field.m_field.m_value.assign(m_bytes.begin() + static_cast<std::ptrdiff_t>(position),
                                     m_bytes.begin() + static_cast<std::ptrdiff_t>(position + length));
        field.m_enterprise = m_layout->m_enterprises[i];
        position += length;
        visit(static_cast<const CIPFIXField&>(field));
    }
}
