#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "SpillDirectory.h"
#include "packet/TPAbstractPacket.h"
#include "util/Types.h"

class CConsole;

// What a worker hands a store with each decoded packet: the datagram it came from, for spilling.
struct CReceivedDatagram {
    const CByteArray& bytes;
    int64_t timeReceived; // ms since 1970
};

// One database the collector stores into, with the rules every store follows:
// - the receive loops only append to its queue and never wait for the database;
// - the queue holds at most --max-queue records; a datagram that does not fit is spilled (written raw to
//   the store's spill directory), never dropped, and the user is told once how to store it later;
// - a store whose database fails keeps its queue and is re-opened after a backoff (1 s doubling to 30 s);
//   what waited is then written once;
// - at the end, what could not be stored is spilled.
// Appending runs on worker threads; the rest on the thread that watches the store's database (the
// collector's control thread, or the store's own writer thread).
class CStore {
public:
    enum class EState { Opening, Healthy, Failed, Finished };

    struct Snapshot {
        EState state = EState::Opening;
        uint64_t storedPackets = 0;
        uint64_t waitingPackets = 0;
        uint64_t storedRecords = 0;
        uint64_t waitingRecords = 0;
        uint64_t spilled = 0;     // datagrams written to the spill directory
        uint64_t spillErrors = 0; // datagrams that could not even be spilled
        uint64_t retries = 0;     // re-opens after a failure
        double secondsToRetry = 0;
        std::string lastError;
    };

    // name labels the store's metrics and spill directory; title names it in messages.
    CStore(std::string name, std::string title, uint64_t maxQueue, std::filesystem::path spillDir,
           CConsole& console);
    virtual ~CStore() = default;
    CStore(const CStore&) = delete;
    CStore& operator=(const CStore&) = delete;

    // "database" (the NetFlow v9 attribute tables) or "flows" (the flows table).
    const std::string& GetName() const { return m_strName; }
    const std::string& GetTitle() const { return m_strTitle; }
    // What the statistics line says of the store's progress, e.g. "5 stored, 0 waiting for the database".
    virtual std::string Progress(const Snapshot& snapshot) const = 0;
    // What the summary says of the packets that were not stored, e.g. "3 packets were not stored".
    virtual std::string Unstored(uint64_t count) const = 0;

    // Control thread. Starts the first open; what it gives is known at a later Supervise.
    virtual void Start() = 0;
    // Control thread, every tick: frees what was stored, notices failures, re-opens after the backoff.
    // Returns false when the first open failed: the collector cannot store at all and ends.
    virtual bool Supervise() = 0;
    // Control thread, at the end (no worker appends any more): true once everything is stored or spilled
    // and the store has let go of its database.
    virtual bool Finish() = 0;

    Snapshot GetSnapshot() const;
    // Why the first open failed (Supervise returned false).
    const std::string& GetFatalError() const { return m_strFatal; }
    // Packets that were still waiting at the end and went to the spill directory instead.
    uint64_t GetUnstoredAtEnd() const { return m_nUnstoredAtEnd; }
    const std::filesystem::path& GetSpillPath() const { return m_spill.GetPath(); }
    // SIGHUP: the spill directory is looked up again at the next spill.
    void ReopenSpill() { m_spill.Reopen(); }
    // Called with the duration of every write (for the metrics), on whatever thread writes.
    void SetWriteObserver(std::function<void(double seconds)> observer) { m_onWrite = std::move(observer); }
    // --pg-copy: rows go to the PostgreSQL data source through COPY (CDatabase::OpenCopyConnection).
    // Before Start.
    void SetBulkCopy(bool copy) { m_bBulkCopy = copy; }

protected:
    using Clock = std::chrono::steady_clock;

    bool m_bBulkCopy = false;

    // Worker threads: reserves room for a packet of this many records; false when the queue is full.
    bool Admit(uint64_t records);
    // Writes the datagram of a packet the queue has no room for to the spill directory and counts it;
    // tells the user the first time.
    void Spill(const CTPAbstractPacket& packet, const CReceivedDatagram& datagram);
    // The same for a packet that waited until the end; no announcement (the summary says it).
    void SpillAtEnd(const CByteArray& bytes, const CString& exporter, int port, int64_t timeReceived,
                    uint64_t records);
    void ObserveWrite(double seconds) {
        if (m_onWrite)
            m_onWrite(seconds);
    }
    // The watching thread: the backoff after a failure, and the message saying so.
    void Failed(const std::string& error);
    void Recovered();
    bool RetryDue() const { return Clock::now() >= m_retryAt; }
    void RetryNow() { m_retryAt = Clock::now(); }

    void CountStored(uint64_t packets, uint64_t records);
    void CountGone(uint64_t packets, uint64_t records); // no longer waiting, not stored (spilled at the end)

    const std::string m_strName;
    const std::string m_strTitle;
    const uint64_t m_nMaxQueue;
    CConsole& m_console;

    std::atomic<EState> m_state{EState::Opening};
    std::atomic<uint64_t> m_nWaitingPackets{0};
    std::atomic<uint64_t> m_nWaitingRecords{0};
    std::atomic<uint64_t> m_nStoredPackets{0};
    std::atomic<uint64_t> m_nStoredRecords{0};
    std::atomic<uint64_t> m_nSpilled{0};
    std::atomic<uint64_t> m_nSpillErrors{0};
    std::atomic<uint64_t> m_nRetries{0};
    std::string m_strFatal;
    uint64_t m_nUnstoredAtEnd = 0;

private:
    bool WriteSpill(const CByteArray& bytes, const CString& exporter, int port, int64_t timeReceived);

    CSpillDirectory m_spill;
    std::atomic<bool> m_bSpillAnnounced{false};
    std::chrono::seconds m_backoff{1};
    Clock::time_point m_retryAt{};
    mutable std::mutex m_errorLock;
    std::string m_strLastError;
    std::function<void(double)> m_onWrite;
};
