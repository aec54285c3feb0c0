#pragma once

#include "util/Types.h"

// Ethernet frame summary (flow format 2).
class CSFlowEthernetRecord {
public:
    CSFlowEthernetRecord() = default;
    CSFlowEthernetRecord(const CSFlowEthernetRecord&) = default;
    CSFlowEthernetRecord(CSFlowEthernetRecord&&) noexcept = default;
    CSFlowEthernetRecord& operator=(const CSFlowEthernetRecord&) = default;
    CSFlowEthernetRecord& operator=(CSFlowEthernetRecord&&) noexcept = default;
    virtual ~CSFlowEthernetRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_length = 0xFFFFFFFF;
    CByteArray m_srcMAC;
    CByteArray m_dstMAC;
    uint32_t m_type = 0xFFFFFFFF;
};
