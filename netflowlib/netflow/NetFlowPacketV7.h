#pragma once

#include "netflow/NetFlowFixedPacket.h"
#include "netflow/NetFlowHeaderV7.h"
#include "netflow/NetFlowRecordV7.h"

extern template class CNetFlowFixedPacket<CNetFlowHeaderV7, CNetFlowRecordV7>;

// A decoded NetFlow v7 datagram.
class CNetFlowPacketV7 : public CNetFlowFixedPacket<CNetFlowHeaderV7, CNetFlowRecordV7> {
public:
    int Decode(const CByteArray& datagram) override;
    CString GetProtocol() const override { return L"NetFlow v7"; }

    // Header and records only; unlike the copy constructor and assignment, the sender stays as it is.
    void Copy(const CNetFlowPacketV7& other) { CopyContent(other); }
};
