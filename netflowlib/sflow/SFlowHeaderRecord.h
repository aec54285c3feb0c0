#pragma once

#include "util/Types.h"

// Sampled packet header (flow format 1; packet-data type 1 of a version 2/4 sample).
class CSFlowHeaderRecord {
public:
    CSFlowHeaderRecord() = default;
    CSFlowHeaderRecord(const CSFlowHeaderRecord&) = default;
    CSFlowHeaderRecord(CSFlowHeaderRecord&&) noexcept = default;
    CSFlowHeaderRecord& operator=(const CSFlowHeaderRecord&) = default;
    CSFlowHeaderRecord& operator=(CSFlowHeaderRecord&&) noexcept = default;
    virtual ~CSFlowHeaderRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    // Name of a header protocol number; empty for a number without one.
    static CString GetProtocolName(uint32_t protocol);

    uint32_t m_protocol = 0;
    uint32_t m_frameLength = 0xFFFFFFFF;
    uint32_t m_stripped = 0xFFFFFFFF; // version 5 only
    uint32_t m_headerLength = 0xFFFFFFFF;
    CByteArray m_header;
};
