#pragma once

#include "netflow9/NetFlowField.h"
#include "util/Types.h"

// A NetFlow v9 template: its id and the ordered field specifiers data records are laid out by.
class CNetFlowSetTemplate {
public:
    CNetFlowSetTemplate() = default;
    CNetFlowSetTemplate(const CNetFlowSetTemplate&) = default;
    CNetFlowSetTemplate(CNetFlowSetTemplate&&) noexcept = default;
    CNetFlowSetTemplate& operator=(const CNetFlowSetTemplate&) = default;
    CNetFlowSetTemplate& operator=(CNetFlowSetTemplate&&) noexcept = default;
    virtual ~CNetFlowSetTemplate() = default;

    // Reads id, field count and the specifiers from offset; the offset ends past the last specifier.
    // Fields already in the list count towards the field count.
    BOOL Decode(const CByteArray& data, int& offset);

    // Bytes of one data record laid out by this template: the sum of the field lengths.
    int64_t GetRecordLength() const;

    int m_templateId = 0;
    int m_fieldCount = 0;
    CArray<CNetFlowField> m_fields;

protected:
    // Makes room for up to wanted more specifiers, but no more than the rest of the datagram can hold,
    // so a bogus count or length costs nothing before it fails.
    void ReserveFields(const CByteArray& data, int offset, int64_t wanted);
};
