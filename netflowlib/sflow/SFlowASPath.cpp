#include "sflow/SFlowASPath.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// Any other segment type reads only its type word: nothing is skipped.
void CSFlowASPath::Decode(const CByteArray& data, int& offset) {
    m_type = ReadU32(data, offset);
    if (m_type == 1)
        CNetFlowUtility::GetIntArray(data, offset, m_asSet);
    else if (m_type == 2)
        CNetFlowUtility::GetIntArray(data, offset, m_asSequence);
}

CString CSFlowASPath::ToString() const {
    if (m_type == 1)
        return L"AS SET: " + CNetFlowUtility::PrintIntArray(m_asSet);
    if (m_type == 2)
        return L"AS SEQUENCE: " + CNetFlowUtility::PrintIntArray(m_asSequence);
    return CString();
}
