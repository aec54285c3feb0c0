#pragma once

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>

#include "corelib/Database.h"
#include "session/Messages.h"
#include "packet/TPAbstractPacket.h"
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

    // Appends under m_Lock; the session calls it inside its own lock (session lock, then writer lock).
    void AddPacket(CTPAbstractPacket* pPacket);
    // Number of packets waiting to be stored.
    size_t GetQueuedCount();

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
    int Run();
    MSG GetMessage();

    std::mutex m_queueLock;
    std::condition_variable m_queueReady;
    std::deque<MSG> m_queue;
    bool m_bEnding = false;
    int m_nExitCode = 0;
};
