#include "netflow/NetFlowRecordRouterProtoPortV8.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordRouterProtoPortV8::Decode(const CByteArray& data, int offset) {
    if (!Fits(data, offset, WIRE_SIZE))
        return 0;
    CNetFlowRecordCommonFieldsV8::Decode(data, offset);
    m_prot = CNetFlowUtility::GetUByte(data, offset + 20);
    m_srcPort = CNetFlowUtility::GetUShort(data, offset + 24);
    m_dstPort = CNetFlowUtility::GetUShort(data, offset + 26);
    return 1;
}

CString CNetFlowRecordRouterProtoPortV8::ToString() const {
    CString text = CNetFlowRecordCommonFieldsV8::ToString();
    tpnf::AppendFormat(text, L"\r\nProt: %d\r\nSrcPort: %d\r\nDstPort: %d", m_prot, m_srcPort, m_dstPort);
    return text;
}

void CNetFlowRecordRouterProtoPortV8::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFieldsV8::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::PROT, U::GetProtocol(m_prot));
    AddField(fieldIds, values, CNetFlowField::L4_SRC_PORT, U::IntToString(m_srcPort));
    AddField(fieldIds, values, CNetFlowField::L4_DST_PORT, U::IntToString(m_dstPort));
}
