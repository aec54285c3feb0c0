#include "sflow/SFlowExtendedMPLS_FTNRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedMPLS_FTNRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    m_ftnDescr = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
    m_ftnMask = ReadU32(data, offset);
}

CString CSFlowExtendedMPLS_FTNRecord::ToString() const {
    return tpnf::FormatText(L"Extended MPLS FTN Flow:\r\n"
                            L"Descr: %s\r\n"
                            L"Mask: %lu\r\n",
                            m_ftnDescr, m_ftnMask);
}
