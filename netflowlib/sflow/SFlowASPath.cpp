#include "sflow/SFlowASPath.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// Any other segment type reads only its type word: nothing is skipped.
void CSFlowASPath::Decode(const CByteArray& data, int& offset, bool exact) {
    m_type = ReadU32(data, offset);
    if (exact) {
        // Both segment types carry a word array; another type has no defined layout.
        if (m_type != 1 && m_type != 2)
            AfxThrowInvalidArgException();
        ReadWordsExact(data, offset, m_type == 1 ? m_asSet : m_asSequence);
        return;
    }
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
