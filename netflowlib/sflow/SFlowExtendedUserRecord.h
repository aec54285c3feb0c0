#pragma once

#include "util/Types.h"

// Extended user data (flow format 1004; extended type 4 of version 2/4).
class CSFlowExtendedUserRecord {
public:
    CSFlowExtendedUserRecord() = default;
    CSFlowExtendedUserRecord(const CSFlowExtendedUserRecord&) = default;
    CSFlowExtendedUserRecord(CSFlowExtendedUserRecord&&) noexcept = default;
    CSFlowExtendedUserRecord& operator=(const CSFlowExtendedUserRecord&) = default;
    CSFlowExtendedUserRecord& operator=(CSFlowExtendedUserRecord&&) noexcept = default;
    virtual ~CSFlowExtendedUserRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_srcCharset = 0xFFFFFFFF; // version 5 only
    CString m_srcUser;
    uint32_t m_dstCharset = 0xFFFFFFFF; // version 5 only
    CString m_dstUser;
};
