#include "sflow/SFlowExtendedMPLS_LDP_FECRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// One word in both modes.
void CSFlowExtendedMPLS_LDP_FECRecord::Decode(const CByteArray& data, int& offset, bool) {
    m_fecAddrPrefixLength = ReadU32(data, offset);
}

CString CSFlowExtendedMPLS_LDP_FECRecord::ToString() const {
    return tpnf::FormatText(L"Extended MPLS LDP FEC Flow:\r\n"
                            L"Address Prefix Length: %lu\r\n",
                            m_fecAddrPrefixLength);
}
