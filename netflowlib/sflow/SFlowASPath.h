#pragma once

#include "util/Types.h"

// One BGP AS-path segment: an AS set (type 1) or an AS sequence (type 2); only its type's array is filled.
class CSFlowASPath {
public:
    CSFlowASPath() = default;
    CSFlowASPath(const CSFlowASPath&) = default;
    CSFlowASPath(CSFlowASPath&&) noexcept = default;
    CSFlowASPath& operator=(const CSFlowASPath&) = default;
    CSFlowASPath& operator=(CSFlowASPath&&) noexcept = default;
    virtual ~CSFlowASPath() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_type = 0xFFFFFFFF;
    CUIntArray m_asSet;
    CUIntArray m_asSequence;
};
