#include "sflow/SFlowExtendedRouterRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedRouterRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    if (exact)
        ReadAddressExact(data, offset, m_nextHop);
    else
        ReadAddress(data, offset, m_nextHop);
    m_srcMask = ReadU32(data, offset);
    m_dstMask = ReadU32(data, offset);
}

// The next hop is kept but not shown.
CString CSFlowExtendedRouterRecord::ToString() const {
    return tpnf::FormatText(L"Extended Router Flow:\r\n"
                            L"Src Mask: %lu\r\n"
                            L"Dst Mask: %lu\r\n",
                            m_srcMask, m_dstMask);
}
