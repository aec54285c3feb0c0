#pragma once

#include <type_traits>
#include <variant>

#include "sflow/SFlowRecord.h"
#include "util/Types.h"

// One record of a sample that holds only the kind its format names (CSFlowRecord carries a member of
// every kind). It reads and renders exactly as CSFlowRecord does; ToRecord gives that holder.
class CSFlowCompactRecord {
public:
    // Nothing (an unknown format) or one record kind.
    using Kind =
        std::variant<std::monostate, CSFlowHeaderRecord, CSFlowEthernetRecord, CSFlowIPv4Record,
                     CSFlowIPv6Record, CSFlowExtendedSwitchRecord, CSFlowExtendedRouterRecord,
                     CSFlowExtendedGatewayRecord, CSFlowExtendedUserRecord, CSFlowExtendedURLRecord,
                     CSFlowExtendedMPLSRecord, CSFlowExtendedNATRecord, CSFlowExtendedMPLSTunnelRecord,
                     CSFlowExtendedMPLS_VCRecord, CSFlowExtendedMPLS_FTNRecord,
                     CSFlowExtendedMPLS_LDP_FECRecord, CSFlowExtendedVLANTunnelRecord,
                     CSFlowExtendedProcessRecord, CSFlowGenericCounters, CSFlowEthernetCounters,
                     CSFlowTokenringCounters, CSFlowVGCounters, CSFlowVLANCounters, CSFlowProcessorCounters>;

    // The readers of CSFlowRecord, with the same arguments and results.
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    void DecodeCounters(const CByteArray& data, int& offset, bool exact = false);
    // Both give whether the type was known (nothing further is read for an unknown one).
    bool DecodePacketData(const CByteArray& data, int& offset, bool exact = false);
    bool DecodeExtendedData(const CByteArray& data, int& offset, bool exact = false);
    void DecodeCounterBlock(uint32_t format, const CByteArray& data, int& offset, bool exact = false);

    CString ToString() const;

    // The record as a holder of every kind: this record's kind in the member its format names, every
    // other member as a fresh holder has it.
    CSFlowRecord ToRecord() const;
    // Gives a holder of every kind this record's formats and its kind; its other members stay as they are.
    void CopyTo(CSFlowRecord& record) const;

    uint32_t GetFlowFormat() const { return m_flowFormat; }       // 0 for a counter record
    uint32_t GetCounterFormat() const { return m_counterFormat; } // used when the flow format is 0
    const Kind& GetKind() const { return m_kind; }
    // The record of that kind, or nullptr when this record holds another.
    template <class Record>
    const Record* Get() const {
        return std::get_if<Record>(&m_kind);
    }

private:
    friend struct tpnf::sflow::RecordReader;

    template <class Record>
    Record& Emplace(std::type_identity<Record>) {
        return m_kind.template emplace<Record>();
    }

    uint32_t m_flowFormat = 0;
    uint32_t m_counterFormat = 0;
    Kind m_kind;
};
