#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>

#include "corelib/Database.h"
#include "packet/TPAbstractPacket.h"
#include "session/Messages.h"
#include "util/Types.h"

class CNetFlowSession;

// The database writer: a worker thread with its own message queue. The session posts it OPEN, one WRITE
// per packet and QUIT; it answers by sending OPENED, OPEN_FAILED and EXITING to the session's hidden
// window. Queued packet pointers are borrowed, never deleted here. The object deletes itself when its
// thread ends.
//
// Storage: three tables, "netflow_records" (one row per flow record), "netflow_attributes" (one row per
// field of a record) and "netflow_record_id" (the next free record id), created on the first open. Each
// write stores the whole queue in one transaction through the packets' PrepareSQL. Failures are kept in
// m_strLastError and clear m_bStatusOK; from then on writes are refused and the queue only grows.
// Database errors arrive as CDBException thrown by value.
//
// Locks: m_Lock guards the connection, the health flag and the error text, and is held for a whole
// write. The queue has a lock of its own that a write holds only to take the queued packets (and to put
// them back in front after a failure), so AddPacket never waits for a transaction; packets added during
// a write go to the next one.
//
// Record ids: by default the next id is read in one transaction and the advanced id stored in another
// after the rows, so two writers on one database can hand out the same ids (and one then fails on the
// key). With SetSharedRecordIds(TRUE) each write reads and advances the id inside the transaction that
// stores its rows, holding the id row against other writers until it commits (SQLite: an immediate
// transaction; elsewhere "select ... for update"), so writers in any number of processes never collide.
class CNetFlowDatabase {
public:
    // Creates the object and starts its thread at once; m_hThread becomes ready with the exit code when
    // the thread has ended.
    static CNetFlowDatabase* BeginThread();

    CNetFlowDatabase(const CNetFlowDatabase&) = delete;
    CNetFlowDatabase& operator=(const CNetFlowDatabase&) = delete;
    virtual ~CNetFlowDatabase() = default;

    BOOL PostThreadMessage(UINT message, WPARAM wParam, LPARAM lParam);
    UINT ResumeThread() { return 0; } // the thread runs from its creation: nothing to resume

    virtual BOOL InitInstance();
    virtual BOOL PreTranslateMessage(MSG* pMsg);

    // Appends under the queue's lock, never waiting for a write; the session calls it inside its own lock.
    void AddPacket(CTPAbstractPacket* pPacket);
    // Packets not yet stored: those waiting and those of the write in progress.
    size_t GetQueuedCount();

    // m_bStatusOK (the result) and m_strLastError as the last open or write left them, read without waiting
    // for a write in progress (the members themselves are read under m_Lock, which a write holds).
    BOOL PeekStatus(CString& lastError);

    // Off by default. Set before the first write.
    void SetSharedRecordIds(BOOL bShared);
    // Called on the writer's thread after each write of a non-empty batch with its duration in seconds
    // and its result. None by default. Set before posting the first message.
    void SetWriteObserver(std::function<void(double seconds, int result)> observer) {
        m_writeObserver = std::move(observer);
    }
    BOOL GetSharedRecordIds() const { return m_bSharedRecordIds; }
    // Off by default. With TRUE, a PostgreSQL data source gets its rows through COPY on a second
    // connection (CDatabase::OpenCopyConnection): the same rows and ids, several times faster; a data
    // source of any other database fails to open. Set before opening.
    void SetBulkCopy(BOOL bCopy) { m_bBulkCopy = bCopy; }

    // Connects with "DSN=" + m_strDSN and creates the tables; 1 on success, else 0. Holds m_Lock.
    int OpenDatabase();
    // 1 when the tables were made or already exist (the create error text is kept), else 0.
    int CreateTables();
    // The next free record id, after storing newId unless it is -1; -1 when unknown; 0 on a failure.
    int AccessRecordId(int newId);
    // Stores every queued packet in one transaction; 1 on success, else 0 with the queue kept. Holds m_Lock.
    int WritePackets();

    std::shared_future<int> m_hThread;

    CString m_strLastError;
    BOOL m_bStatusOK = TRUE;
    CDatabase m_Database;
    std::recursive_mutex m_Lock;
    CNetFlowSession* m_pSession = nullptr;
    CString m_strDSN;
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> m_Packets;

protected:
    CNetFlowDatabase() = default;

    // Ends the thread once the current message is handled; the object is then deleted.
    void EndThread(int exitCode);

private:
    using PacketArray = CArray<CTPAbstractPacket*, CTPAbstractPacket*>;

    int Run();
    MSG GetMessage();

    // OpenDatabase's work, under m_Lock.
    int Connect();
    // Copies the health flag and error text for PeekStatus.
    void PublishStatus();
    // Stores the batch taken from the queue: 1, or 0 with the failure recorded.
    int WriteBatch(const PacketArray& batch);
    // Begins a write transaction holding the id row and returns the next free id; -1 when there is no row.
    int LockRecordId();
    // LockRecordId, making the id row first on a fresh database; throws when there is still none.
    int TakeSharedRecordId();

    std::mutex m_IntakeLock; // guards m_Packets, m_nWriting and the published status
    PacketArray m_Batch;     // the write in progress; its storage is kept for the next one
    size_t m_nWriting = 0;
    BOOL m_bPublishedOK = TRUE;
    CString m_strPublishedError;
    BOOL m_bSharedRecordIds = FALSE;
    BOOL m_bBulkCopy = FALSE;
    std::function<void(double, int)> m_writeObserver;

    std::mutex m_queueLock;
    std::condition_variable m_queueReady;
    std::deque<MSG> m_queue;
    bool m_bEnding = false;
    int m_nExitCode = 0;
};
