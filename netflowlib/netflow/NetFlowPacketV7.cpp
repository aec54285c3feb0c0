#include "netflow/NetFlowPacketV7.h"

template class CNetFlowFixedPacket<CNetFlowHeaderV7, CNetFlowRecordV7>;

int CNetFlowPacketV7::Decode(const CByteArray& datagram) {
    if (datagram.size() < static_cast<size_t>(CNetFlowHeaderV7::WIRE_SIZE))
        return 0;
    m_header.Decode(datagram);
    return DecodeRecords(datagram, CNetFlowHeaderV7::WIRE_SIZE);
}
