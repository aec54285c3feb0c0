#pragma once

#include <cstdint>

#include "util/Types.h"

// The 16-byte IPFIX message header (RFC 7011, section 3.1).
class CIPFIXHeader {
public:
    // Reads the header from the first 16 bytes; CInvalidArgException when there are fewer.
    void Decode(const CByteArray& data);

    uint32_t m_version = 0;
    uint32_t m_length = 0;     // of the whole message, header included
    uint32_t m_exportTime = 0; // seconds since 1970, UTC
    uint32_t m_sequenceNumber = 0;
    uint32_t m_observationDomainId = 0;
};
