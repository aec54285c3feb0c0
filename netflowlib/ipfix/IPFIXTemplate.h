#pragma once

#include <cstdint>

#include "netflow9/NetFlowSetTemplate.h"
#include "util/Types.h"

// An IPFIX template or options template record (RFC 7011, sections 3.4.1 and 3.4.2), kept in the template
// store like a v9 template: each field's type is its element id as on the wire (enterprise bit included),
// its length as announced (65535: variable length), its scope flag set for the scope fields, which come
// first. The enterprise numbers stand beside the fields.
class CIPFIXTemplate : public CNetFlowSetTemplate {
public:
    // Reads the template record at offset, which must end by end: template id, field count, for an
    // options template the scope field count, then the field specifiers (4 bytes, 8 with an enterprise
    // number). A field count of 0 (a withdrawal) reads nothing more. FALSE when the
    // record runs past end, or when an options template's scope field count is 0 or above its field
    // count; the template is then not to be used and offset is unspecified. On success offset ends past
    // the record.
    BOOL Decode(const CByteArray& data, int& offset, int end, bool options);

    // Memory the template holds, for the template store's estimate.
    size_t GetMemoryBytes() const;

    CArray<uint32_t> m_enterprises; // per field; 0 without the enterprise bit
    int m_scopeFieldCount = 0;      // 0 for a template
    bool m_options = false;
    int64_t m_minRecordLength = 0; // fixed lengths, and 1 for each variable-length field
    bool m_variableLength = false; // some field has variable length
};
