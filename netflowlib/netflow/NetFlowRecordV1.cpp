#include "netflow/NetFlowRecordV1.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordV1::Decode(const CByteArray& data, int offset) {
    if (!Fits(data, offset, WIRE_SIZE))
        return 0;
    CNetFlowRecordCommonFields::Decode(data, offset);
    m_prot = CNetFlowUtility::GetUByte(data, offset + 38);
    m_tos = CNetFlowUtility::GetUByte(data, offset + 39);
    m_tcpFlags = CNetFlowUtility::GetUByte(data, offset + 40);
    return 1;
}

CString CNetFlowRecordV1::ToString() const {
    CString text = CNetFlowRecordCommonFields::ToString();
    // Flags first although the wire holds them last: intended.
    tpnf::AppendFormat(text, L"\r\nTcpFlags: %d\r\nProt: %d\r\nTOS: %d", m_tcpFlags, m_prot, m_tos);
    return text;
}

void CNetFlowRecordV1::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    CNetFlowRecordCommonFields::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::TCP_FLAGS, CNetFlowUtility::IntToString(m_tcpFlags));
    AddField(fieldIds, values, CNetFlowField::PROT, CNetFlowUtility::GetProtocol(m_prot));
    AddField(fieldIds, values, CNetFlowField::SRC_TOS, CNetFlowUtility::IntToString(m_tos));
}
