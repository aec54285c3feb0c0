#pragma once

#include "util/Types.h"

// Token ring interface counters (counter format 3).
class CSFlowTokenringCounters {
public:
    CSFlowTokenringCounters() = default;
    CSFlowTokenringCounters(const CSFlowTokenringCounters&) = default;
    CSFlowTokenringCounters(CSFlowTokenringCounters&&) noexcept = default;
    CSFlowTokenringCounters& operator=(const CSFlowTokenringCounters&) = default;
    CSFlowTokenringCounters& operator=(CSFlowTokenringCounters&&) noexcept = default;
    virtual ~CSFlowTokenringCounters() = default;

    // exact: the layout of the sFlow documents (see CSFlowPacket::SetDecodeContext).
    void Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_dot5StatsLineErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsBurstErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsACErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsAbortTransErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsInternalErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsLostFrameErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsReceiveCongestions = 0xFFFFFFFF;
    uint32_t m_dot5StatsFrameCopiedErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsTokenErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsSoftErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsHardErrors = 0xFFFFFFFF;
    uint32_t m_dot5StatsSignalLoss = 0xFFFFFFFF;
    uint32_t m_dot5StatsTransmitBeacons = 0xFFFFFFFF;
    uint32_t m_dot5StatsRecoverys = 0xFFFFFFFF;
    uint32_t m_dot5StatsLobeWires = 0xFFFFFFFF;
    uint32_t m_dot5StatsRemoves = 0xFFFFFFFF;
    uint32_t m_dot5StatsSingles = 0xFFFFFFFF;
    uint32_t m_dot5StatsFreqErrors = 0xFFFFFFFF;
};
