#pragma once

#include <type_traits>

#include "sflow/SFlowKinds.h"
#include "util/Types.h"

namespace tpnf::sflow {
struct RecordReader;
}

// One record of a sample, flow or counter. It carries a member of every kind by value; the format
// numbers say which one holds the decoded data (flow format 0 means a counter record). The packet keeps
// its records as CSFlowCompactRecord, which holds only its own kind, and builds these on request.
class CSFlowRecord {
public:
    CSFlowRecord() = default;
    CSFlowRecord(const CSFlowRecord&) = default;
    CSFlowRecord(CSFlowRecord&&) noexcept = default;
    CSFlowRecord& operator=(const CSFlowRecord&) = default;
    CSFlowRecord& operator=(CSFlowRecord&&) noexcept = default;
    virtual ~CSFlowRecord() = default;

    // exact: the layouts of the sFlow documents; then a version 5 record always ends where its length
    // says.
    // A version 5 flow record: format, length, body.
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    // A version 5 counter record: format, length, body.
    void DecodeCounters(const CByteArray& data, int& offset, bool exact = false);
    // The packet-data part of a version 2/4 flow sample: type, then a header, IPv4 or IPv6 body.
    bool DecodePacketData(const CByteArray& data, int& offset, bool exact = false);
    // One extended-data element of a version 2/4 flow sample: type, then body.
    // Both give whether the type was known (nothing further is read for an unknown one).
    bool DecodeExtendedData(const CByteArray& data, int& offset, bool exact = false);
    // A version 2/4 counters block of a known counter format (no format or length words on the wire).
    void DecodeCounterBlock(uint32_t format, const CByteArray& data, int& offset, bool exact = false);

    CString ToString() const;

    // The member of that kind when the format numbers name it (as ToString picks it), else nullptr.
    template <class Record>
    const Record* Get() const;

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

private:
    friend struct tpnf::sflow::RecordReader;
    friend class CSFlowCompactRecord;

    // The member of the given kind, const when the holder is.
    template <class Self, class Kind>
    static auto& MemberOf(Self& self, std::type_identity<Kind>);

    // What a reader decodes into: the member of that kind.
    template <class Kind>
    Kind& Emplace(std::type_identity<Kind> kind) {
        return MemberOf(*this, kind);
    }
};

template <class Self, class Kind>
inline auto& CSFlowRecord::MemberOf(Self& self, std::type_identity<Kind>) {
    if constexpr (std::is_same_v<Kind, CSFlowHeaderRecord>)
        return self.m_headerRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowEthernetRecord>)
        return self.m_ethernetRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedMPLS_FTNRecord>)
        return self.m_mplsFTNRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedMPLS_LDP_FECRecord>)
        return self.m_mplsLDPFECRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedMPLSRecord>)
        return self.m_mplsRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedMPLSTunnelRecord>)
        return self.m_mplsTunnelRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedMPLS_VCRecord>)
        return self.m_mplsVCRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedNATRecord>)
        return self.m_natRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedProcessRecord>)
        return self.m_processRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedRouterRecord>)
        return self.m_routerRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedSwitchRecord>)
        return self.m_switchRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedURLRecord>)
        return self.m_urlRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedUserRecord>)
        return self.m_userRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedVLANTunnelRecord>)
        return self.m_vlanTunnelRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowIPv4Record>)
        return self.m_ipv4Record;
    else if constexpr (std::is_same_v<Kind, CSFlowIPv6Record>)
        return self.m_ipv6Record;
    else if constexpr (std::is_same_v<Kind, CSFlowExtendedGatewayRecord>)
        return self.m_gatewayRecord;
    else if constexpr (std::is_same_v<Kind, CSFlowGenericCounters>)
        return self.m_genericCounters;
    else if constexpr (std::is_same_v<Kind, CSFlowEthernetCounters>)
        return self.m_ethernetCounters;
    else if constexpr (std::is_same_v<Kind, CSFlowVGCounters>)
        return self.m_vgCounters;
    else if constexpr (std::is_same_v<Kind, CSFlowProcessorCounters>)
        return self.m_processorCounters;
    else if constexpr (std::is_same_v<Kind, CSFlowVLANCounters>)
        return self.m_vlanCounters;
    else
        return self.m_tokenringCounters;
}

template <class Record>
const Record* CSFlowRecord::Get() const {
    bool named = false;
    auto match = [&named](auto kind) { named = std::is_same_v<typename decltype(kind)::type, Record>; };
    if (m_flowFormat == 0)
        tpnf::sflow::VisitCounterKind(m_counterFormat, match);
    else
        tpnf::sflow::VisitFlowKind(m_flowFormat, match);
    return named ? &MemberOf(*this, std::type_identity<Record>{}) : nullptr;
}
