#pragma once

#include <deque>
#include <future>
#include <memory>
#include <mutex>

#include "Store.h"
#include "session/NetFlowSession.h"

class CNetFlowDatabase;

// The NetFlow v9 attribute tables (netflow_records, netflow_attributes, netflow_record_id), written by
// the library's own database writer, CNetFlowDatabase, which keeps its behaviour: it is only fed and
// watched from here. Packets stay owned by this store until the writer has stored them: the writer
// stores its queue in order, so the oldest (handed over - still queued) packets are the stored ones.
// A writer that fails is ended and, after the backoff, replaced by a fresh one that is handed every
// packet that waited, in order; the record ids continue from the id the database holds.
class CV9Store : public CStore {
public:
    CV9Store(const CString& dsn, uint64_t maxQueue, std::filesystem::path spillDir, CConsole& console,
             asio::io_context& controlLoop);
    ~CV9Store() override;

    // --shared-db: each write takes and advances the record id inside its own transaction. Before Start.
    void SetSharedRecordIds(bool shared) { m_bSharedRecordIds = shared; }

    std::string Progress(const Snapshot& snapshot) const override {
        return std::to_string(snapshot.storedPackets) + " stored, " +
               std::to_string(snapshot.waitingPackets) + " waiting for the database";
    }
    std::string Unstored(uint64_t count) const override {
        return std::to_string(count) + " packets were not stored";
    }
    void Start() override;
    bool Supervise() override;
    bool Finish() override;

    // Worker threads: takes the packet (packet becomes null) unless the queue is full, in which case the
    // datagram is spilled and the packet stays with the caller.
    void Offer(std::unique_ptr<CTPAbstractPacket>& packet, const CReceivedDatagram& datagram);

private:
    // The window the writer reports to (OPENED, OPEN_FAILED, EXITING), on the control loop.
    class CWriterWindow : public CNetFlowSession {
    public:
        enum class EOpen { Pending, Opened, Failed };
        EOpen m_open = EOpen::Pending;

    protected:
        LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;
    };

    struct Entry {
        std::unique_ptr<CTPAbstractPacket> packet;
        CByteArray datagram; // spilled at the end if never stored
        int64_t timeReceived;
        uint64_t records;
    };

    void StartWriter();
    // Asks the writer to end; its goodbye runs on the control loop.
    void EndWriter();
    bool WriterGone() const;
    // Deletes what the writer has stored; false when it has turned unhealthy.
    bool Collect(CString& error);
    void HandAll();
    void RepairRecordId();
    // At the end: every packet still waiting goes to the spill directory.
    void SpillRest();

    const CString m_strDSN;
    bool m_bSharedRecordIds = false;
    CWriterWindow m_window;
    bool m_bEverOpened = false;
    bool m_bFinishing = false;
    bool m_bRetriedAtFinish = false;

    std::mutex m_lock; // the queue, the hand-over count and the writer pointer, for the workers
    std::deque<Entry> m_queue;
    size_t m_nHanded = 0; // the oldest entries of m_queue that the writer holds
    CNetFlowDatabase* m_pWriter = nullptr;
    std::shared_future<int> m_writerExit;
};
