#include "netflow/NetFlowHeaderV8.h"

#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowHeaderV8::Decode(const CByteArray& data) {
    CNetFlowHeaderV5::Decode(data);
    m_aggregation = CNetFlowUtility::GetUByte(data, 22);
    m_aggregationVersion = CNetFlowUtility::GetUByte(data, 23);
    return 1;
}

CString CNetFlowHeaderV8::ToString() const {
    return tpnf::FormatText(
        L"V8FlowHeader [ version = %d, count = %d, sysUptime = %u, unixSecs = %u, unixNsecs = %u, "
        L"flowSequence = %d,engineType = %d, engineId = %d, aggregation = %d, "
        L"aggregationVersion = %d ]",
        m_version, m_count, m_sysUptime, m_unixSecs, m_unixNsecs, m_flowSequence, m_engineType, m_engineId,
        m_aggregation, m_aggregationVersion);
}
