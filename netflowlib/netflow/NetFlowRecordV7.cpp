#include "netflow/NetFlowRecordV7.h"

#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/NetFlowIPAddress.h"
#include "util/NetFlowUtility.h"

int CNetFlowRecordV7::Decode(const CByteArray& data, int offset) {
    if (!Fits(data, offset, WIRE_SIZE))
        return 0;
    CNetFlowRecordV5::Decode(data, offset);
    m_flags = CNetFlowUtility::GetUShort(data, offset + 46);
    // Only the first address byte is read, so a.b.c.d shows as 0.0.0.a: intended.
    m_routerSC = static_cast<uint32_t>(CNetFlowUtility::GetUByte(data, offset + 48));
    return 1;
}

CString CNetFlowRecordV7::ToString() const {
    CString text = CNetFlowRecordV5::ToString();
    tpnf::AppendFormat(text, L"\r\nFlags: %d\r\nRouterSC: %s", m_flags,
                       CNetFlowIPAddress::FormatIPv4(m_routerSC));
    return text;
}

void CNetFlowRecordV7::GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const {
    CNetFlowRecordV5::GetRecordFields(fieldIds, values);
    AddField(fieldIds, values, CNetFlowField::FLAGS, CNetFlowUtility::IntToString(m_flags));
    AddField(fieldIds, values, CNetFlowField::ROUTER_SC, CNetFlowIPAddress::FormatIPv4(m_routerSC));
}
