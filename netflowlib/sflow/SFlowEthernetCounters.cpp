#include "sflow/SFlowEthernetCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// 32-bit counters only: the same in both modes.
void CSFlowEthernetCounters::Decode(const CByteArray& data, int& offset, bool) {
    m_dot3StatsAlignmentErrors = ReadU32(data, offset);
    m_dot3StatsFCSErrors = ReadU32(data, offset);
    m_dot3StatsSingleCollisionFrames = ReadU32(data, offset);
    m_dot3StatsMultipleCollisionFrames = ReadU32(data, offset);
    m_dot3StatsSQETestErrors = ReadU32(data, offset);
    m_dot3StatsDeferredTransmissions = ReadU32(data, offset);
    m_dot3StatsLateCollisions = ReadU32(data, offset);
    m_dot3StatsExcessiveCollisions = ReadU32(data, offset);
    m_dot3StatsInternalMacTransmitErrors = ReadU32(data, offset);
    m_dot3StatsCarrierSenseErrors = ReadU32(data, offset);
    m_dot3StatsFrameTooLongs = ReadU32(data, offset);
    m_dot3StatsInternalMacReceiveErrors = ReadU32(data, offset);
    m_dot3StatsSymbolErrors = ReadU32(data, offset);
}

// The blank before the first line end and "AlignmentErrors" as one word are intended.
CString CSFlowEthernetCounters::ToString() const {
    return tpnf::FormatText(
        L"Ethernet Counters: \r\n"
        L"AlignmentErrors: %lu\r\n"
        L"FCS Errors: %lu\r\n"
        L"Single Collision Frames: %lu\r\n"
        L"Multiple Collision Frames: %lu\r\n"
        L"SQE Test Errors: %lu\r\n"
        L"Deferred Transmissions: %lu\r\n"
        L"Late Collisions: %lu\r\n"
        L"Excessive Collisions: %lu\r\n"
        L"Internal Mac Transmit Errors: %lu\r\n"
        L"Carrier Sense Errors: %lu\r\n"
        L"Frame Too Longs: %lu\r\n"
        L"Internal Mac Receive Errors: %lu\r\n"
        L"Symbol Errors: %lu\r\n",
        m_dot3StatsAlignmentErrors, m_dot3StatsFCSErrors, m_dot3StatsSingleCollisionFrames,
        m_dot3StatsMultipleCollisionFrames, m_dot3StatsSQETestErrors, m_dot3StatsDeferredTransmissions,
        m_dot3StatsLateCollisions, m_dot3StatsExcessiveCollisions, m_dot3StatsInternalMacTransmitErrors,
        m_dot3StatsCarrierSenseErrors, m_dot3StatsFrameTooLongs, m_dot3StatsInternalMacReceiveErrors,
        m_dot3StatsSymbolErrors);
}
