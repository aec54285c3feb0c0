#include "sflow/SFlowExtendedVLANTunnelRecord.h"

#include "sflow/SFlowExtendedMPLSRecord.h"
#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedVLANTunnelRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    if (exact)
        ReadWordsExact(data, offset, m_stack);
    else
        CNetFlowUtility::GetIntArray(data, offset, m_stack);
}

// VLAN tags are shown split as MPLS label entries: intended.
CString CSFlowExtendedVLANTunnelRecord::ToString() const {
    return L"Extended VLAN Tunnel Flow:\r\nStack: " + CSFlowExtendedMPLSRecord::PrintLabelStack(m_stack) +
           L"\r\n";
}
