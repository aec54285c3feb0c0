#pragma once

#include <cstdint>

#include "netflow9/NetFlowField.h"
#include "util/Types.h"

// IANA's abstract data types of information elements (RFC 7012, section 3.1).
enum class EIPFIXDataType : uint8_t {
    OctetArray,
    Unsigned8,
    Unsigned16,
    Unsigned32,
    Unsigned64,
    Signed8,
    Signed16,
    Signed32,
    Signed64,
    Float32,
    Float64,
    Boolean,
    MacAddress,
    String,
    DateTimeSeconds,
    DateTimeMilliseconds,
    DateTimeMicroseconds,
    DateTimeNanoseconds,
    IPv4Address,
    IPv6Address,
    BasicList,
    SubTemplateList,
    SubTemplateMultiList,
};

// One field of an IPFIX template or data record, and the vocabulary of IPFIX fields.
//
// Names and renderings, in this order:
// - an element the NetFlow v9 catalogue knows (no enterprise bit): the catalogue's name and rendering, so
//   a host sees the same IPV4_SRC_ADDR=... from v9 and IPFIX (a value too short for an address renders
//   as hexadecimal instead of raising);
// - another IANA element: its IANA name, rendered by its abstract data type;
// - an enterprise element: E<enterprise number>.<element id>, rendered as hexadecimal;
// - an element IANA has not assigned: UNKNOWN(<id>), rendered as hexadecimal.
//
// Field ids (what GetRecordFields reports and the database stores as attr_id):
// - no enterprise bit: the element id itself (0..32767), which is the v9 catalogue number where one
//   exists;
// - enterprise numbers 1..65535: (enterprise << 15) | element id, from 32768 to 0x7FFFFFFF;
// - any other enterprise number: 0x80000000 | (slot << 15) | element id, where slot numbers such
//   enterprise numbers in the order the process first meets them (65,535 slots; the last one is shared
//   by every number after them, which GetFieldName then names E?.<id>).
// GetFieldName names every field id of all three kinds.
class CIPFIXField {
public:
    static constexpr int VARIABLE_LENGTH = 65535; // the length a template announces for variable length
    static constexpr uint32_t REVERSE_ENTERPRISE = 29305; // RFC 5103 reverse elements

    // One IANA information element.
    struct SElement {
        uint16_t id;
        const wchar_t* name;
        EIPFIXDataType type;
    };

    CIPFIXField() = default;

    // The IANA element with this id, or null when IANA has not assigned it.
    static const SElement* FindElement(int elementId);
    // The field id of an element; enterprise is ignored without the enterprise bit.
    static uint32_t GetFieldId(bool enterpriseBit, uint32_t enterprise, int elementId);
    // The name of any field id GetFieldId gives (and so of any id an IPFIX packet's GetRecordFields
    // reports): v9 catalogue names, IANA names, E<enterprise>.<id>, or UNKNOWN(<id>).
    static CString GetFieldName(uint32_t fieldId);

    // Element id without the enterprise bit.
    int GetElementId() const { return m_field.GetType() & 0x7FFF; }
    bool IsEnterprise() const { return (m_field.GetType() & 0x8000) != 0; }
    uint32_t GetEnterprise() const { return IsEnterprise() ? m_enterprise : 0; }
    // The length the template announced (VARIABLE_LENGTH for a variable-length field).
    int GetLength() const { return m_field.GetLength(); }
    BOOL IsScope() const { return m_field.IsScope(); }
    const CByteArray& GetValueBytes() const { return m_field.m_value; }

    uint32_t GetFieldId() const { return GetFieldId(IsEnterprise(), m_enterprise, GetElementId()); }
    CString GetName() const;
    CString GetValue() const;
    // The value as field lists show it: the protocol field shows its protocol name, as in v9.
    CString GetListedValue() const;
    // "name=value", each part ending at its first zero character, as v9 fields render.
    CString ToString() const;

    // Type: the element id as on the wire, enterprise bit included; length as announced; scope flag;
    // value bytes (in a data record).
    CNetFlowField m_field;
    uint32_t m_enterprise = 0; // meaningful with the enterprise bit only

private:
    // True when the v9 catalogue names and renders this field.
    bool InCatalogue() const;
};
