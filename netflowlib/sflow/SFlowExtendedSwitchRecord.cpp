#include "sflow/SFlowExtendedSwitchRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// The same four words in both modes.
void CSFlowExtendedSwitchRecord::Decode(const CByteArray& data, int& offset, bool) {
    m_srcVLAN = ReadU32(data, offset);
    m_srcPriority = ReadU32(data, offset);
    m_dstVLAN = ReadU32(data, offset);
    m_dstPriority = ReadU32(data, offset);
}

CString CSFlowExtendedSwitchRecord::ToString() const {
    return tpnf::FormatText(L"Extended Switch Flow:\r\n"
                            L"Src VLAN: %lu\r\n"
                            L"Src Priority: %lu\r\n"
                            L"Dst VLAN: %lu\r\n"
                            L"Dst Priority: %lu\r\n",
                            m_srcVLAN, m_srcPriority, m_dstVLAN, m_dstPriority);
}
