#pragma once

#include "util/Types.h"

// Extended switch data (flow format 1001; extended type 1 of version 2/4).
class CSFlowExtendedSwitchRecord {
public:
    CSFlowExtendedSwitchRecord() = default;
    CSFlowExtendedSwitchRecord(const CSFlowExtendedSwitchRecord&) = default;
    CSFlowExtendedSwitchRecord(CSFlowExtendedSwitchRecord&&) noexcept = default;
    CSFlowExtendedSwitchRecord& operator=(const CSFlowExtendedSwitchRecord&) = default;
    CSFlowExtendedSwitchRecord& operator=(CSFlowExtendedSwitchRecord&&) noexcept = default;
    virtual ~CSFlowExtendedSwitchRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_srcVLAN = 0xFFFFFFFF;
    uint32_t m_srcPriority = 0xFFFFFFFF;
    uint32_t m_dstVLAN = 0xFFFFFFFF;
    uint32_t m_dstPriority = 0xFFFFFFFF;
};
