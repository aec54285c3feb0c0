#include "netflow/NetFlowHeaderV7.h"

#include "util/Format.h"
#include "util/NetFlowUtility.h"

int CNetFlowHeaderV7::Decode(const CByteArray& data) {
    CNetFlowHeaderCommonFields::Decode(data);
    m_flowSequence = CNetFlowUtility::GetULong(data, 16);
    return 1;
}

CString CNetFlowHeaderV7::ToString() const {
    return tpnf::FormatText(
        L"V7FlowHeader [ version = %d, count = %d, sysUptime = %u, unixSecs = %u, unixNsecs = %u, "
        L"flowSequence = %d ]",
        m_version, m_count, m_sysUptime, m_unixSecs, m_unixNsecs, m_flowSequence);
}
