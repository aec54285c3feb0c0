#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <unordered_set>

#include "session/NetFlowDatabase.h"
#include "session/NetFlowSession.h"

// A session that calls back after every datagram it has handled, so that the collector can stop after a
// number of datagrams in any mode (trace mode lists no packets), and that lets the collector watch its
// database writer.
class CCollectorSession : public CNetFlowSession {
public:
    std::function<void()> m_onDatagram;

    // What the writer is doing, read without waiting: a writer busy with a transaction is not asked.
    struct WriterState {
        bool known = false; // false: the writer held its lock (a write is running)
        bool healthy = true;
        CString lastError;
        std::unordered_set<const CTPAbstractPacket*> queued;
    };

    bool HasWriter() const { return m_hDatabaseThread.valid(); }

    WriterState PeekWriter() const {
        WriterState state;
        CNetFlowDatabase* pWriter = m_pDatabaseThread;
        if (pWriter == nullptr)
            return state;
        std::unique_lock<std::recursive_mutex> lock(pWriter->m_Lock, std::try_to_lock);
        if (!lock.owns_lock())
            return state;
        state.known = true;
        state.healthy = pWriter->m_bStatusOK != FALSE;
        state.lastError = pWriter->m_strLastError;
        state.queued.insert(pWriter->m_Packets.begin(), pWriter->m_Packets.end());
        return state;
    }

    // True once the writer thread has ended (or there never was one).
    bool WriterFinished() const {
        return !m_hDatabaseThread.valid() ||
               m_hDatabaseThread.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    // The writer's queue as it said goodbye: what is still queued then was never stored.
    struct FinalWriterState {
        bool seen = false;
        bool healthy = true;
        size_t unstored = 0;
        CString lastError;
    };
    const FinalWriterState& GetFinalWriterState() const { return m_final; }

private:
    FinalWriterState m_final;

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        // The writer waits inside its goodbye, between messages, so its lock is free and its queue final.
        if (message == WM_NETFLOW_DB_EXITING && m_pDatabaseThread != nullptr) {
            std::lock_guard<std::recursive_mutex> lock(m_pDatabaseThread->m_Lock);
            m_final.seen = true;
            m_final.healthy = m_pDatabaseThread->m_bStatusOK != FALSE;
            m_final.unstored = m_pDatabaseThread->m_Packets.size();
            m_final.lastError = m_pDatabaseThread->m_strLastError;
        }
        return CNetFlowSession::WindowProc(message, wParam, lParam);
    }

    void OnDatagramHandled() override {
        if (m_onDatagram)
            m_onDatagram();
    }
};
