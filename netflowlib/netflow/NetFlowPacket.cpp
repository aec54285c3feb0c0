#include "netflow/NetFlowPacket.h"

#include "util/Format.h"

CString CNetFlowPacket::FormatOpening(const CString& headerText) const {
    CString text =
        tpnf::FormatText(L"NetFlow packet received from: %s:%d\r\n", m_strSenderIPAddress, m_nSenderPort);
    text += headerText;
    text += L"\r\n=====Records:=====";
    return text;
}

void CNetFlowPacket::AppendRecordHeading(CString& text, int index) {
    tpnf::AppendFormat(text, L"\r\n*****Record %d*****\r\n", index);
}
