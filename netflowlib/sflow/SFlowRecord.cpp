#include "sflow/SFlowRecord.h"

#include "sflow/SFlowRecordReader.h"

using namespace tpnf::sflow;

void CSFlowRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    RecordReader::Flow(*this, data, offset, exact);
}

void CSFlowRecord::DecodeCounters(const CByteArray& data, int& offset, bool exact) {
    RecordReader::Counters(*this, data, offset, exact);
}

bool CSFlowRecord::DecodePacketData(const CByteArray& data, int& offset, bool exact) {
    return RecordReader::PacketData(*this, data, offset, exact);
}

bool CSFlowRecord::DecodeExtendedData(const CByteArray& data, int& offset, bool exact) {
    return RecordReader::ExtendedData(*this, data, offset, exact);
}

void CSFlowRecord::DecodeCounterBlock(uint32_t format, const CByteArray& data, int& offset, bool exact) {
    RecordReader::CounterBlock(*this, format, data, offset, exact);
}

// The member named by the flow format, or by the counter format when the flow format is 0.
CString CSFlowRecord::ToString() const {
    CString text;
    auto render = [&](auto kind) { text = MemberOf(*this, kind).ToString(); };
    bool known =
        m_flowFormat == 0 ? VisitCounterKind(m_counterFormat, render) : VisitFlowKind(m_flowFormat, render);
    return known ? text : CString(kUnknownRecordText);
}
