#include "session/NetFlowDatabase.h"

#include <thread>

#include "session/NetFlowSession.h"

CNetFlowDatabase* CNetFlowDatabase::BeginThread() {
    CNetFlowDatabase* pThread = new CNetFlowDatabase;
    std::promise<int> finished;
    pThread->m_hThread = finished.get_future().share();
    std::thread([pThread, finished = std::move(finished)]() mutable {
        finished.set_value_at_thread_exit(pThread->Run());
    }).detach();
    return pThread;
}

int CNetFlowDatabase::Run() {
    int exitCode = 0;
    if (InitInstance()) {
        while (!m_bEnding) {
            MSG msg = GetMessage();
            PreTranslateMessage(&msg);
        }
        exitCode = m_nExitCode;
    }
    delete this;
    return exitCode;
}

MSG CNetFlowDatabase::GetMessage() {
    std::unique_lock<std::mutex> lock(m_queueLock);
    m_queueReady.wait(lock, [this] { return !m_queue.empty(); });
    MSG msg = m_queue.front();
    m_queue.pop_front();
    return msg;
}

BOOL CNetFlowDatabase::PostThreadMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    {
        std::lock_guard<std::mutex> lock(m_queueLock);
        m_queue.push_back(MSG{message, wParam, lParam});
    }
    m_queueReady.notify_one();
    return TRUE;
}

BOOL CNetFlowDatabase::InitInstance() {
    return TRUE;
}

void CNetFlowDatabase::EndThread(int exitCode) {
    m_nExitCode = exitCode;
    m_bEnding = true;
}

BOOL CNetFlowDatabase::PreTranslateMessage(MSG* pMsg) {
    switch (pMsg->message) {
    case WM_NETFLOW_DB_QUIT:
        // Synchronous: the session's loop runs it before this thread goes.
        m_pSession->SendMessage(WM_NETFLOW_DB_EXITING);
        EndThread(1);
        return TRUE;
    case WM_NETFLOW_DB_OPEN:
        m_pSession->SendMessage(OpenDatabase() == 1 ? WM_NETFLOW_DB_OPENED : WM_NETFLOW_DB_OPEN_FAILED);
        break;
    case WM_NETFLOW_DB_WRITE:
        WritePackets();
        break;
    default:
        break;
    }
    return FALSE; // no window of this thread translates messages
}

void CNetFlowDatabase::AddPacket(CTPAbstractPacket* pPacket) {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    m_Packets.push_back(pPacket);
}

size_t CNetFlowDatabase::GetQueuedCount() {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    return m_Packets.size();
}

int CNetFlowDatabase::OpenDatabase() {
    // replaced by the ODBC writer
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    m_strLastError = L"Failed to open database";
    m_bStatusOK = FALSE;
    return 0;
}

int CNetFlowDatabase::CreateTables() {
    return 0; // replaced by the ODBC writer
}

int CNetFlowDatabase::AccessRecordId(int) {
    return -1; // replaced by the ODBC writer
}

int CNetFlowDatabase::WritePackets() {
    return 0; // replaced by the ODBC writer; the queue is kept
}
