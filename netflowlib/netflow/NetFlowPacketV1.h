#pragma once

#include "netflow/NetFlowFixedPacket.h"
#include "netflow/NetFlowHeaderV1.h"
#include "netflow/NetFlowRecordV1.h"

extern template class CNetFlowFixedPacket<CNetFlowHeaderV1, CNetFlowRecordV1>;

// A decoded NetFlow v1 datagram.
class CNetFlowPacketV1 : public CNetFlowFixedPacket<CNetFlowHeaderV1, CNetFlowRecordV1> {
public:
    int Decode(const CByteArray& datagram) override;
    CString GetProtocol() const override { return L"NetFlow v1"; }

    // Header and records only; unlike the copy constructor and assignment, the sender stays as it is.
    void Copy(const CNetFlowPacketV1& other) { CopyContent(other); }
};
