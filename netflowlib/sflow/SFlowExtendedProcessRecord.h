#pragma once

#include "util/Types.h"

// Processes behind a flow (flow format 17612803: enterprise 4300, format 3).
class CSFlowExtendedProcessRecord {
public:
    CSFlowExtendedProcessRecord() = default;
    CSFlowExtendedProcessRecord(const CSFlowExtendedProcessRecord&) = default;
    CSFlowExtendedProcessRecord(CSFlowExtendedProcessRecord&&) noexcept = default;
    CSFlowExtendedProcessRecord& operator=(const CSFlowExtendedProcessRecord&) = default;
    CSFlowExtendedProcessRecord& operator=(CSFlowExtendedProcessRecord&&) noexcept = default;
    virtual ~CSFlowExtendedProcessRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CUIntArray m_processIds;
    CStringArray m_processNames;
};
