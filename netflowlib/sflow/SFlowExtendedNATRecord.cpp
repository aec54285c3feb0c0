#include "sflow/SFlowExtendedNATRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedNATRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    if (exact) {
        ReadAddressExact(data, offset, m_srcAddress);
        ReadAddressExact(data, offset, m_dstAddress);
    } else {
        ReadAddress(data, offset, m_srcAddress);
        ReadAddress(data, offset, m_dstAddress);
    }
}

CString CSFlowExtendedNATRecord::ToString() const {
    return tpnf::FormatText(L"Extended NAT Flow:\r\n"
                            L"Src Address: %s\r\n"
                            L"Dst Address: %s\r\n",
                            m_srcAddress.ToString(), m_dstAddress.ToString());
}
