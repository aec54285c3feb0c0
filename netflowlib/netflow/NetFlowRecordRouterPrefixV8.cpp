#include "netflow/NetFlowRecordRouterPrefixV8.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowIPAddress.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordRouterPrefixV8::Decode(const CByteArray& data, int offset) {
    if (!Fits(data, offset, WIRE_SIZE))
        return 0;
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFieldsV8::Decode(data, offset);
    m_srcPrefix = static_cast<uint32_t>(U::GetULong(data, offset + 20));
    m_dstPrefix = static_cast<uint32_t>(U::GetULong(data, offset + 24));
    m_dstMask = U::GetUByte(data, offset + 28);
    m_srcMask = U::GetUByte(data, offset + 29);
    m_srcAS = U::GetUShort(data, offset + 32);
    m_dstAS = U::GetUShort(data, offset + 34);
    m_inputIf = U::GetUShort(data, offset + 36);
    m_outputIf = U::GetUShort(data, offset + 38);
    return 1;
}

CString CNetFlowRecordRouterPrefixV8::ToString() const {
    CString text = CNetFlowRecordCommonFieldsV8::ToString();
    tpnf::AppendFormat(text,
                       L"\r\nSrcPrefix: %s\r\nDstPrefix: %s\r\nDstMask: %d\r\nSrcMask: %d"
                       L"\r\nSrcAS: %d\r\nDstAS: %d\r\nInput: %d\r\nOutput: %d",
                       CNetFlowIPAddress::FormatIPv4(m_srcPrefix), CNetFlowIPAddress::FormatIPv4(m_dstPrefix),
                       m_dstMask, m_srcMask, m_srcAS, m_dstAS, m_inputIf, m_outputIf);
    return text;
}

void CNetFlowRecordRouterPrefixV8::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFieldsV8::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::IPV4_SRC_PREFIX, CNetFlowIPAddress::FormatIPv4(m_srcPrefix));
    AddField(fieldIds, values, CNetFlowField::IPV4_DST_PREFIX, CNetFlowIPAddress::FormatIPv4(m_dstPrefix));
    AddField(fieldIds, values, CNetFlowField::DST_MASK, U::IntToString(m_dstMask));
    AddField(fieldIds, values, CNetFlowField::SRC_MASK, U::IntToString(m_srcMask));
    AddField(fieldIds, values, CNetFlowField::SRC_AS, U::IntToString(m_srcAS));
    AddField(fieldIds, values, CNetFlowField::DST_AS, U::IntToString(m_dstAS));
    AddField(fieldIds, values, CNetFlowField::INPUT_SNMP, U::IntToString(m_inputIf));
    AddField(fieldIds, values, CNetFlowField::OUTPUT_SNMP, U::IntToString(m_outputIf));
}
