#pragma once

#include "util/Types.h"

// Extended URL data (flow format 1005; extended type 5 of version 2/4).
class CSFlowExtendedURLRecord {
public:
    CSFlowExtendedURLRecord() = default;
    CSFlowExtendedURLRecord(const CSFlowExtendedURLRecord&) = default;
    CSFlowExtendedURLRecord(CSFlowExtendedURLRecord&&) noexcept = default;
    CSFlowExtendedURLRecord& operator=(const CSFlowExtendedURLRecord&) = default;
    CSFlowExtendedURLRecord& operator=(CSFlowExtendedURLRecord&&) noexcept = default;
    virtual ~CSFlowExtendedURLRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_direction = 0; // 1 source, 2 destination
    CString m_url;
    CString m_host; // version 5 only
};
