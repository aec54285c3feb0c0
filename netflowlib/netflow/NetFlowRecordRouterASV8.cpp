#include "netflow/NetFlowRecordRouterASV8.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordRouterASV8::Decode(const CByteArray& data, int offset) {
    if (!Fits(data, offset, WIRE_SIZE))
        return 0;
    CNetFlowRecordCommonFieldsV8::Decode(data, offset);
    m_srcAS = CNetFlowUtility::GetUShort(data, offset + 20);
    m_dstAS = CNetFlowUtility::GetUShort(data, offset + 22);
    m_inputIf = CNetFlowUtility::GetUShort(data, offset + 24);
    m_outputIf = CNetFlowUtility::GetUShort(data, offset + 26);
    return 1;
}

CString CNetFlowRecordRouterASV8::ToString() const {
    CString text = CNetFlowRecordCommonFieldsV8::ToString();
    tpnf::AppendFormat(text, L"\r\nSrcAS: %d\r\nDstAS: %d\r\nInput: %d\r\nOutput: %d", m_srcAS, m_dstAS,
                       m_inputIf, m_outputIf);
    return text;
}

void CNetFlowRecordRouterASV8::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    using U = CNetFlowUtility;
    CNetFlowRecordCommonFieldsV8::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::SRC_AS, U::IntToString(m_srcAS));
    AddField(fieldIds, values, CNetFlowField::DST_AS, U::IntToString(m_dstAS));
    AddField(fieldIds, values, CNetFlowField::INPUT_SNMP, U::IntToString(m_inputIf));
    AddField(fieldIds, values, CNetFlowField::OUTPUT_SNMP, U::IntToString(m_outputIf));
}
