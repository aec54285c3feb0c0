#include "sflow/SFlowTokenringCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// 32-bit counters only: the same in both modes.
void CSFlowTokenringCounters::Decode(const CByteArray& data, int& offset, bool) {
    m_dot5StatsLineErrors = ReadU32(data, offset);
    m_dot5StatsBurstErrors = ReadU32(data, offset);
    m_dot5StatsACErrors = ReadU32(data, offset);
    m_dot5StatsAbortTransErrors = ReadU32(data, offset);
    m_dot5StatsInternalErrors = ReadU32(data, offset);
    m_dot5StatsLostFrameErrors = ReadU32(data, offset);
    m_dot5StatsReceiveCongestions = ReadU32(data, offset);
    m_dot5StatsFrameCopiedErrors = ReadU32(data, offset);
    m_dot5StatsTokenErrors = ReadU32(data, offset);
    m_dot5StatsSoftErrors = ReadU32(data, offset);
    m_dot5StatsHardErrors = ReadU32(data, offset);
    m_dot5StatsSignalLoss = ReadU32(data, offset);
    m_dot5StatsTransmitBeacons = ReadU32(data, offset);
    m_dot5StatsRecoverys = ReadU32(data, offset);
    m_dot5StatsLobeWires = ReadU32(data, offset);
    m_dot5StatsRemoves = ReadU32(data, offset);
    m_dot5StatsSingles = ReadU32(data, offset);
    m_dot5StatsFreqErrors = ReadU32(data, offset);
}

CString CSFlowTokenringCounters::ToString() const {
    return tpnf::FormatText(
        L"Tokenring Counters:\r\n"
        L"Line Errors: %lu\r\n"
        L"Burst Errors: %lu\r\n"
        L"AC Errors: %lu\r\n"
        L"Abort Trans Errors: %lu\r\n"
        L"Internal Errors: %lu\r\n"
        L"Lost Frame Errors: %lu\r\n"
        L"Receive Congestions: %lu\r\n"
        L"Frame Copied Errors: %lu\r\n"
        L"Token Errors: %lu\r\n"
        L"Soft Errors: %lu\r\n"
        L"Hard Errors: %lu\r\n"
        L"Signal Loss: %lu\r\n"
        L"Transmit Beacons: %lu\r\n"
        L"Recoverys: %lu\r\n"
        L"Lobe Wires: %lu\r\n"
        L"Removes: %lu\r\n"
        L"Singles: %lu\r\n"
        L"Freq Errors: %lu\r\n",
        m_dot5StatsLineErrors, m_dot5StatsBurstErrors, m_dot5StatsACErrors, m_dot5StatsAbortTransErrors,
        m_dot5StatsInternalErrors, m_dot5StatsLostFrameErrors, m_dot5StatsReceiveCongestions,
        m_dot5StatsFrameCopiedErrors, m_dot5StatsTokenErrors, m_dot5StatsSoftErrors, m_dot5StatsHardErrors,
        m_dot5StatsSignalLoss, m_dot5StatsTransmitBeacons, m_dot5StatsRecoverys, m_dot5StatsLobeWires,
        m_dot5StatsRemoves, m_dot5StatsSingles, m_dot5StatsFreqErrors);
}
