#pragma once

#include "netflow9/NetFlowField.h"
#include "util/Types.h"

// One NetFlow v9 data record: the template's fields in template order, each with its value bytes.
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

    // Takes each template field's value from offset on; the offset advances by the sum of the field
    // lengths. FALSE when the datagram ends inside a value. The flowset's end is not a bound.
    BOOL Decode(const CByteArray& data, const CArray<CNetFlowField>& templateFields, int& offset);

    // Every field as "name=value" followed by "\r\n"; empty for a record without fields.
    CString ToString() const;
    void AppendText(CString& out) const;

    CArray<CNetFlowField> m_fields;
};
