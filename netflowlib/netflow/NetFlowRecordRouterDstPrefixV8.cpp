#include "netflow/NetFlowRecordRouterDstPrefixV8.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowIPAddress.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordRouterDstPrefixV8::Decode(const CByteArray& data, int offset) {
    return DecodePrefixRecord(data, offset, m_dstPrefix, m_dstMask, m_dstAS, m_outputIf);
}

CString CNetFlowRecordRouterDstPrefixV8::ToString() const {
    CString text = CNetFlowRecordCommonFieldsV8::ToString();
    tpnf::AppendFormat(text, L"\r\nPrefix: %s\r\nMask: %d\r\nDstAS: %d\r\nOutput: %d",
                       CNetFlowIPAddress::FormatIPv4(m_dstPrefix), m_dstMask, m_dstAS, m_outputIf);
    return text;
}

void CNetFlowRecordRouterDstPrefixV8::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFieldsV8::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::IPV4_DST_PREFIX, CNetFlowIPAddress::FormatIPv4(m_dstPrefix));
    AddField(fieldIds, values, CNetFlowField::DST_MASK, U::IntToString(m_dstMask));
    AddField(fieldIds, values, CNetFlowField::DST_AS, U::IntToString(m_dstAS));
    AddField(fieldIds, values, CNetFlowField::OUTPUT_SNMP, U::IntToString(m_outputIf));
}
