#include "sflow/SFlowExtendedMPLS_VCRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedMPLS_VCRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    m_vcInstanceName = exact ? ReadPaddedString(data, offset) : ReadString(data, offset);
    m_vcId = ReadU32(data, offset);
    m_vcCos = ReadU32(data, offset);
}

CString CSFlowExtendedMPLS_VCRecord::ToString() const {
    return tpnf::FormatText(L"Extended MPLS VC Flow:\r\n"
                            L"InstanceName: %s\r\n"
                            L"ID: %lu\r\n"
                            L"COS: %lu\r\n",
                            m_vcInstanceName, m_vcId, m_vcCos);
}
