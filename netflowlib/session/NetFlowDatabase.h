#pragma once

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>

#include "session/Messages.h"
#include "session/TPAbstractPacket.h"
#include "util/Types.h"

class CNetFlowSession;

// The database writer: a worker thread with its own message queue. The session posts it OPEN, one WRITE
// per packet and QUIT; it answers by sending OPENED, OPEN_FAILED and EXITING to the session's hidden
// window. Queued packet pointers are borrowed, never deleted here. The object deletes itself when its
// thread ends.
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

    int OpenDatabase();
    int CreateTables();
    int AccessRecordId(int newId);
    int WritePackets();

    std::shared_future<int> m_hThread;

    CString m_strLastError;
    BOOL m_bStatusOK = TRUE;
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
