#pragma once

#include "netflow/NetFlowFixedPacket.h"
#include "netflow/NetFlowHeaderV5.h"
#include "netflow/NetFlowRecordV5.h"

extern template class CNetFlowFixedPacket<CNetFlowHeaderV5, CNetFlowRecordV5>;

// A decoded NetFlow v5 datagram.
class CNetFlowPacketV5 : public CNetFlowFixedPacket<CNetFlowHeaderV5, CNetFlowRecordV5> {
public:
    int Decode(const CByteArray& datagram) override;
    CString GetProtocol() const override { return L"NetFlow v5"; }

    // Header and records only; unlike the copy constructor and assignment, the sender stays as it is.
    void Copy(const CNetFlowPacketV5& other) { CopyContent(other); }
};
