#include "sflow/SFlowExtendedMPLSRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedMPLSRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    if (exact) {
        ReadAddressExact(data, offset, m_nextHop);
        ReadWordsExact(data, offset, m_inLabelStack);
        ReadWordsExact(data, offset, m_outLabelStack);
    } else {
        ReadAddress(data, offset, m_nextHop);
        CNetFlowUtility::GetIntArray(data, offset, m_inLabelStack);
        CNetFlowUtility::GetIntArray(data, offset, m_outLabelStack);
    }
}

CString CSFlowExtendedMPLSRecord::PrintLabelStack(const CUIntArray& stack) {
    CString text;
    for (uint32_t entry : stack)
        tpnf::AppendFormat(text, L"%lu.%lu.%lu.%lu - ", entry >> 12, (entry >> 9) & 0x7, (entry >> 8) & 0x1,
                           entry & 0xFF);
    size_t first = text.find_first_not_of(L" -");
    if (first == CString::npos)
        return CString();
    return text.substr(first, text.find_last_not_of(L" -") - first + 1);
}

CString CSFlowExtendedMPLSRecord::ToString() const {
    return tpnf::FormatText(L"Extended MPLS Flow:\r\n"
                            L"Next Hop: %s\r\n"
                            L"Input Stack: %s\r\n"
                            L"Output Stack: %s\r\n",
                            m_nextHop.ToString(), PrintLabelStack(m_inLabelStack),
                            PrintLabelStack(m_outLabelStack));
}
