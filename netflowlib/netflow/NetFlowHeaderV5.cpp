#include "netflow/NetFlowHeaderV5.h"

#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowHeaderV5::Decode(const CByteArray& data) {
    CNetFlowHeaderCommonFields::Decode(data);
    m_flowSequence = CNetFlowUtility::GetULong(data, 16);
    m_engineType = CNetFlowUtility::GetUByte(data, 20);
    m_engineId = CNetFlowUtility::GetUByte(data, 21);
    return 1;
}

CString CNetFlowHeaderV5::ToString() const {
    // No blank after "flowSequence = %d,": intended.
    return tpnf::FormatText(
        L"V5FlowHeader [ version = %d, count = %d, sysUptime = %u, unixSecs = %u, unixNsecs = %u, "
        L"flowSequence = %d,engineType = %d, engineId = %d ]",
        m_version, m_count, m_sysUptime, m_unixSecs, m_unixNsecs, m_flowSequence, m_engineType, m_engineId);
}
