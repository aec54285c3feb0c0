#include "netflow/NetFlowPacketV1.h"

template class CNetFlowFixedPacket<CNetFlowHeaderV1, CNetFlowRecordV1>;

int CNetFlowPacketV1::Decode(const CByteArray& datagram) {
    // No minimum length, unlike v5: a datagram shorter than the header throws from the readers, intended.
    m_header.Decode(datagram);
    return DecodeRecords(datagram, CNetFlowHeaderV1::WIRE_SIZE);
}
