#pragma once

#include "util/Types.h"

// Extended MPLS FEC-to-NHLFE data (flow format 1010).
class CSFlowExtendedMPLS_FTNRecord {
public:
    CSFlowExtendedMPLS_FTNRecord() = default;
    CSFlowExtendedMPLS_FTNRecord(const CSFlowExtendedMPLS_FTNRecord&) = default;
    CSFlowExtendedMPLS_FTNRecord(CSFlowExtendedMPLS_FTNRecord&&) noexcept = default;
    CSFlowExtendedMPLS_FTNRecord& operator=(const CSFlowExtendedMPLS_FTNRecord&) = default;
    CSFlowExtendedMPLS_FTNRecord& operator=(CSFlowExtendedMPLS_FTNRecord&&) noexcept = default;
    virtual ~CSFlowExtendedMPLS_FTNRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CString m_ftnDescr;
    uint32_t m_ftnMask = 0xFFFFFFFF;
};
