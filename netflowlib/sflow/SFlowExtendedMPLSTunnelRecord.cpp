#include "sflow/SFlowExtendedMPLSTunnelRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedMPLSTunnelRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    m_tunnelName = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
    m_tunnelId = ReadU32(data, offset);
    m_tunnelCos = ReadU32(data, offset);
}

CString CSFlowExtendedMPLSTunnelRecord::ToString() const {
    return tpnf::FormatText(L"Extended MPLS Tunnel Flow:\r\n"
                            L"Name: %s\r\n"
                            L"ID: %lu\r\n"
                            L"COS: %lu\r\n",
                            m_tunnelName, m_tunnelId, m_tunnelCos);
}
