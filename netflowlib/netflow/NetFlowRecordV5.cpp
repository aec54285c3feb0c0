#include "netflow/NetFlowRecordV5.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordV5::Decode(const CByteArray& data, int offset) {
    if (!Fits(data, offset, WIRE_SIZE))
        return 0;
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFields::Decode(data, offset);
    m_tcpFlags = U::GetUByte(data, offset + 37);
    m_prot = U::GetUByte(data, offset + 38);
    m_tos = U::GetUByte(data, offset + 39);
    m_srcAS = U::GetUShort(data, offset + 40);
    m_dstAS = U::GetUShort(data, offset + 42);
    m_srcMask = U::GetUByte(data, offset + 44);
    m_dstMask = U::GetUByte(data, offset + 45);
    return 1;
}

CString CNetFlowRecordV5::ToString() const {
    CString text = CNetFlowRecordCommonFields::ToString();
    tpnf::AppendFormat(text,
                       L"\r\nTcpFlags: %d\r\nProt: %d\r\nTOS: %d\r\nSrcAS: %d\r\nDstAS: %d"
                       L"\r\nSrcMask: %d\r\nDstMask: %d",
                       m_tcpFlags, m_prot, m_tos, m_srcAS, m_dstAS, m_srcMask, m_dstMask);
    return text;
}

void CNetFlowRecordV5::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using F = CNetFlowField;
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFields::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, F::TCP_FLAGS, U::IntToString(m_tcpFlags));
    // A name here, the number in the text: both intended.
    AddField(fieldIds, values, F::PROT, U::GetProtocol(m_prot));
    AddField(fieldIds, values, F::SRC_TOS, U::IntToString(m_tos));
    AddField(fieldIds, values, F::SRC_AS, U::IntToString(m_srcAS));
    AddField(fieldIds, values, F::DST_AS, U::IntToString(m_dstAS));
    AddField(fieldIds, values, F::SRC_MASK, U::IntToString(m_srcMask));
    AddField(fieldIds, values, F::DST_MASK, U::IntToString(m_dstMask));
}
