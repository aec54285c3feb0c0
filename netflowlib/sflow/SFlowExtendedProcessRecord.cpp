#include "sflow/SFlowExtendedProcessRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedProcessRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    if (exact) {
        // Each entry is at least a process id and an empty name's length word.
        uint32_t count = ReadU32(data, offset);
        Require(data, offset, int64_t{count} * 8);
        m_processIds.reserve(m_processIds.size() + count);
        m_processNames.reserve(m_processNames.size() + count);
        for (uint32_t i = 0; i < count; ++i) {
            m_processIds.push_back(ReadU32(data, offset));
            m_processNames.push_back(ReadPaddedString(data, offset));
        }
        return;
    }
    int32_t count = CNetFlowUtility::GetULongOffset(data, offset);
    if (count < 1)
        return;
    ReserveFor(m_processIds, data, offset, static_cast<uint32_t>(count), 4);
    ReserveFor(m_processNames, data, offset, static_cast<uint32_t>(count), 4);
    for (int32_t i = 0; i < count; ++i) {
        m_processIds.push_back(ReadU32(data, offset));
        m_processNames.push_back(ReadString(data, offset));
    }
}

CString CSFlowExtendedProcessRecord::ToString() const {
    CString text = L"Extended Process Flow:\r\n";
    for (size_t i = 0; i < m_processNames.size(); ++i)
        tpnf::AppendFormat(text, L"Process: %s[%d]\r\n", m_processNames[i],
                           static_cast<int32_t>(ElementAt(m_processIds, static_cast<int64_t>(i))));
    return text;
}
