#pragma once

#include "util/Types.h"

// Extended MPLS virtual circuit data (flow format 1009); laid out as the tunnel record.
class CSFlowExtendedMPLS_VCRecord {
public:
    CSFlowExtendedMPLS_VCRecord() = default;
    CSFlowExtendedMPLS_VCRecord(const CSFlowExtendedMPLS_VCRecord&) = default;
    CSFlowExtendedMPLS_VCRecord(CSFlowExtendedMPLS_VCRecord&&) noexcept = default;
    CSFlowExtendedMPLS_VCRecord& operator=(const CSFlowExtendedMPLS_VCRecord&) = default;
    CSFlowExtendedMPLS_VCRecord& operator=(CSFlowExtendedMPLS_VCRecord&&) noexcept = default;
    virtual ~CSFlowExtendedMPLS_VCRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CString m_vcInstanceName;
    uint32_t m_vcId = 0xFFFFFFFF;
    uint32_t m_vcCos = 0xFFFFFFFF;
};
