#include "netflow/NetFlowRecordRouterSrcPrefixV8.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowIPAddress.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordRouterSrcPrefixV8::Decode(const CByteArray& data, int offset) {
    return DecodePrefixRecord(data, offset, m_srcPrefix, m_srcMask, m_srcAS, m_inputIf);
}

CString CNetFlowRecordRouterSrcPrefixV8::ToString() const {
    CString text = CNetFlowRecordCommonFieldsV8::ToString();
    tpnf::AppendFormat(text, L"\r\nPrefix: %s\r\nMask: %d\r\nSrcAS: %d\r\nInput: %d",
                       CNetFlowIPAddress::FormatIPv4(m_srcPrefix), m_srcMask, m_srcAS, m_inputIf);
    return text;
}

void CNetFlowRecordRouterSrcPrefixV8::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFieldsV8::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::IPV4_SRC_PREFIX, CNetFlowIPAddress::FormatIPv4(m_srcPrefix));
    AddField(fieldIds, values, CNetFlowField::SRC_MASK, U::IntToString(m_srcMask));
    AddField(fieldIds, values, CNetFlowField::SRC_AS, U::IntToString(m_srcAS));
    AddField(fieldIds, values, CNetFlowField::INPUT_SNMP, U::IntToString(m_inputIf));
}
