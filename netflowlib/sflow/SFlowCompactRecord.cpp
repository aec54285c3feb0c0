#include "sflow/SFlowCompactRecord.h"

#include "sflow/SFlowRecordReader.h"

using namespace tpnf::sflow;

void CSFlowCompactRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    RecordReader::Flow(*this, data, offset, exact);
}

void CSFlowCompactRecord::DecodeCounters(const CByteArray& data, int& offset, bool exact) {
    RecordReader::Counters(*this, data, offset, exact);
}

bool CSFlowCompactRecord::DecodePacketData(const CByteArray& data, int& offset, bool exact) {
    return RecordReader::PacketData(*this, data, offset, exact);
}

bool CSFlowCompactRecord::DecodeExtendedData(const CByteArray& data, int& offset, bool exact) {
    return RecordReader::ExtendedData(*this, data, offset, exact);
}

void CSFlowCompactRecord::DecodeCounterBlock(uint32_t format, const CByteArray& data, int& offset,
                                             bool exact) {
    RecordReader::CounterBlock(*this, format, data, offset, exact);
}

// The kind held is the one the format numbers name, so this is the holder's rendering.
CString CSFlowCompactRecord::ToString() const {
    return std::visit(
        [](const auto& record) -> CString {
            if constexpr (std::is_same_v<std::decay_t<decltype(record)>, std::monostate>)
                return kUnknownRecordText;
            else
                return record.ToString();
        },
        m_kind);
}

CSFlowRecord CSFlowCompactRecord::ToRecord() const {
    CSFlowRecord record;
    CopyTo(record);
    return record;
}

void CSFlowCompactRecord::CopyTo(CSFlowRecord& record) const {
    record.m_flowFormat = m_flowFormat;
    record.m_counterFormat = m_counterFormat;
    std::visit(
        [&](const auto& kind) {
            using Record = std::decay_t<decltype(kind)>;
            if constexpr (!std::is_same_v<Record, std::monostate>)
                record.Emplace(std::type_identity<Record>{}) = kind;
        },
        m_kind);
}
