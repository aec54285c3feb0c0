#pragma once

#include "sflow/SFlowASPath.h"
#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Extended gateway (BGP) data (flow format 1003; extended type 3 of version 2/4).
class CSFlowExtendedGatewayRecord {
public:
    CSFlowExtendedGatewayRecord() = default;
    CSFlowExtendedGatewayRecord(const CSFlowExtendedGatewayRecord&) = default;
    CSFlowExtendedGatewayRecord(CSFlowExtendedGatewayRecord&&) noexcept = default;
    CSFlowExtendedGatewayRecord& operator=(const CSFlowExtendedGatewayRecord&) = default;
    CSFlowExtendedGatewayRecord& operator=(CSFlowExtendedGatewayRecord&&) noexcept = default;
    virtual ~CSFlowExtendedGatewayRecord() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    CNetFlowIPAddress m_nextHop{0u}; // version 5 only
    uint32_t m_as = 0xFFFFFFFF;
    uint32_t m_srcAS = 0xFFFFFFFF;
    uint32_t m_srcPeerAS = 0xFFFFFFFF;
    CArray<CSFlowASPath, const CSFlowASPath&> m_asPath; // version 4 and 5
    CUIntArray m_communities;                           // version 4 and 5
    uint32_t m_localPref = 0xFFFFFFFF;                  // version 4 and 5
    CUIntArray m_dstASPath;                             // version 2 only: a flat path
};
