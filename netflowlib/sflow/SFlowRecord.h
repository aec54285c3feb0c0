#pragma once

#include "sflow/SFlowEthernetCounters.h"
#include "sflow/SFlowEthernetRecord.h"
#include "sflow/SFlowExtendedGatewayRecord.h"
#include "sflow/SFlowExtendedMPLSRecord.h"
#include "sflow/SFlowExtendedMPLSTunnelRecord.h"
#include "sflow/SFlowExtendedMPLS_FTNRecord.h"
#include "sflow/SFlowExtendedMPLS_LDP_FECRecord.h"
#include "sflow/SFlowExtendedMPLS_VCRecord.h"
#include "sflow/SFlowExtendedNATRecord.h"
#include "sflow/SFlowExtendedProcessRecord.h"
#include "sflow/SFlowExtendedRouterRecord.h"
#include "sflow/SFlowExtendedSwitchRecord.h"
#include "sflow/SFlowExtendedURLRecord.h"
#include "sflow/SFlowExtendedUserRecord.h"
#include "sflow/SFlowExtendedVLANTunnelRecord.h"
#include "sflow/SFlowGenericCounters.h"
#include "sflow/SFlowHeaderRecord.h"
#include "sflow/SFlowIPv4Record.h"
#include "sflow/SFlowIPv6Record.h"
#include "sflow/SFlowProcessorCounters.h"
#include "sflow/SFlowTokenringCounters.h"
#include "sflow/SFlowVGCounters.h"
#include "sflow/SFlowVLANCounters.h"
#include "util/Types.h"

// One record of a sample, flow or counter. It carries a member of every kind by value; the format
// numbers say which one holds the decoded data (flow format 0 means a counter record).
class CSFlowRecord {
public:
    CSFlowRecord() = default;
    CSFlowRecord(const CSFlowRecord&) = default;
    CSFlowRecord(CSFlowRecord&&) noexcept = default;
    CSFlowRecord& operator=(const CSFlowRecord&) = default;
    CSFlowRecord& operator=(CSFlowRecord&&) noexcept = default;
    virtual ~CSFlowRecord() = default;

    // A version 5 flow record: format, length, body.
    void Decode(const CByteArray& data, int& offset);
    // A version 5 counter record: format, length, body.
    void DecodeCounters(const CByteArray& data, int& offset);
    // The packet-data part of a version 2/4 flow sample: type, then a header, IPv4 or IPv6 body.
    void DecodePacketData(const CByteArray& data, int& offset);
    // One extended-data element of a version 2/4 flow sample: type, then body.
    void DecodeExtendedData(const CByteArray& data, int& offset);

    CString ToString() const;

    uint32_t m_flowFormat = 0;
    uint32_t m_counterFormat = 0;

    CSFlowHeaderRecord m_headerRecord;
    CSFlowEthernetRecord m_ethernetRecord;
    CSFlowExtendedMPLS_FTNRecord m_mplsFTNRecord;
    CSFlowExtendedMPLS_LDP_FECRecord m_mplsLDPFECRecord;
    CSFlowExtendedMPLSRecord m_mplsRecord;
    CSFlowExtendedMPLSTunnelRecord m_mplsTunnelRecord;
    CSFlowExtendedMPLS_VCRecord m_mplsVCRecord;
    CSFlowExtendedNATRecord m_natRecord;
    CSFlowExtendedProcessRecord m_processRecord;
    CSFlowExtendedRouterRecord m_routerRecord;
    CSFlowExtendedSwitchRecord m_switchRecord;
    CSFlowExtendedURLRecord m_urlRecord;
    CSFlowExtendedUserRecord m_userRecord;
    CSFlowExtendedVLANTunnelRecord m_vlanTunnelRecord;
    CSFlowIPv4Record m_ipv4Record;
    CSFlowIPv6Record m_ipv6Record;
    CSFlowExtendedGatewayRecord m_gatewayRecord;

    CSFlowGenericCounters m_genericCounters;
    CSFlowEthernetCounters m_ethernetCounters;
    CSFlowVGCounters m_vgCounters;
    CSFlowProcessorCounters m_processorCounters;
    CSFlowVLANCounters m_vlanCounters;
    CSFlowTokenringCounters m_tokenringCounters;
};
