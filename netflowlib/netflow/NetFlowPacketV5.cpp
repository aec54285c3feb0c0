#include "netflow/NetFlowPacketV5.h"

template class CNetFlowFixedPacket<CNetFlowHeaderV5, CNetFlowRecordV5>;

int CNetFlowPacketV5::Decode(const CByteArray& datagram) {
    if (datagram.size() < static_cast<size_t>(CNetFlowHeaderV5::WIRE_SIZE))
        return 0;
    m_header.Decode(datagram);
    return DecodeRecords(datagram, CNetFlowHeaderV5::WIRE_SIZE);
}
