#pragma once

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Extended MPLS data (flow format 1006).
class CSFlowExtendedMPLSRecord {
public:
    CSFlowExtendedMPLSRecord() = default;
    CSFlowExtendedMPLSRecord(const CSFlowExtendedMPLSRecord&) = default;
    CSFlowExtendedMPLSRecord(CSFlowExtendedMPLSRecord&&) noexcept = default;
    CSFlowExtendedMPLSRecord& operator=(const CSFlowExtendedMPLSRecord&) = default;
    CSFlowExtendedMPLSRecord& operator=(CSFlowExtendedMPLSRecord&&) noexcept = default;
    virtual ~CSFlowExtendedMPLSRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    // Label stack entries as label.experimental.bottom.TTL, joined by " - ".
    static CString PrintLabelStack(const CUIntArray& stack);

    CNetFlowIPAddress m_nextHop{0u};
    CUIntArray m_inLabelStack;
    CUIntArray m_outLabelStack;
};
