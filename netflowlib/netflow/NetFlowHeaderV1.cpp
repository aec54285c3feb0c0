#include "netflow/NetFlowHeaderV1.h"

#include "util/Format.h"

CString CNetFlowHeaderV1::ToString() const {
    return tpnf::FormatText(
        L"V1FlowHeader [ version = %d, count = %d, sysUptime = %u, unixSecs = %u, unixNsecs = %u ]",
        m_version, m_count, m_sysUptime, m_unixSecs, m_unixNsecs);
}
