#pragma once

#include "util/Types.h"

// Extended MPLS LDP FEC data (flow format 1011).
class CSFlowExtendedMPLS_LDP_FECRecord {
public:
    CSFlowExtendedMPLS_LDP_FECRecord() = default;
    CSFlowExtendedMPLS_LDP_FECRecord(const CSFlowExtendedMPLS_LDP_FECRecord&) = default;
    CSFlowExtendedMPLS_LDP_FECRecord(CSFlowExtendedMPLS_LDP_FECRecord&&) noexcept = default;
    CSFlowExtendedMPLS_LDP_FECRecord& operator=(const CSFlowExtendedMPLS_LDP_FECRecord&) = default;
    CSFlowExtendedMPLS_LDP_FECRecord& operator=(CSFlowExtendedMPLS_LDP_FECRecord&&) noexcept = default;
    virtual ~CSFlowExtendedMPLS_LDP_FECRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_fecAddrPrefixLength = 0xFFFFFFFF;
};
