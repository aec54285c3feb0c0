#include "session/NetFlowSession.h"

#include <asio/executor_work_guard.hpp>

#include <chrono>
#include <thread>

#include "corelib/Utility.h"
#include "session/NetFlowDatabase.h"
#include "session/NetFlowSocket.h"

namespace {

constexpr std::chrono::milliseconds kWriterExitWait(10000);

} // namespace

// Listed packets and a running writer are the host's to end (Stop, GetPackets); the socket cannot
// outlive the session it reports to, so it is closed here.
CNetFlowSession::~CNetFlowSession() {
    delete m_pSocket;
}

BOOL CNetFlowSession::Init(CWnd* pOwner, UINT nPort, const CString& strDSN) {
    asio::io_context* pLoop = GetLoop();
    if (pLoop == nullptr && pOwner != nullptr)
        pLoop = pOwner->GetLoop();
    if (pLoop == nullptr) {
        m_pOwner = pOwner;
        m_nPort = nPort;
        m_strDSN = strDSN;
        m_socketError = std::make_error_code(std::errc::invalid_argument); // no loop to run on
        return FALSE;
    }
    return Init(*pLoop, pOwner, nPort, strDSN);
}

BOOL CNetFlowSession::Init(asio::io_context& loop, CWnd* pOwner, UINT nPort, const CString& strDSN) {
    m_pOwner = pOwner;
    m_nPort = nPort;
    m_strDSN = strDSN;

    if (m_pSocket == nullptr)
        m_pSocket = new CNetFlowSocket(this);
    m_socketError.clear();
    m_socketErrorAddress.clear();
    BOOL created =
        m_pSocket->Create(loop, nPort, CListenSettings{m_listenAddresses, m_bReusePort}, m_socketError);
    if (!created) {
        m_socketErrorAddress = m_pSocket->GetFailedAddress();
        delete m_pSocket;
        m_pSocket = nullptr;
    } else {
        std::error_code optionError;
        if (!m_pSocket->SetReceiveBufferSize(0x7FFFFFFF, optionError))
            CUtility::GetSystemErrorString(optionError.value()); // fetched and dropped: intended
    }

    if (!IsWindow())
        CreateEx(loop, L"NetFlowSessionWnd");

    if (created && m_pDatabaseThread == nullptr && !m_strDSN.empty()) {
        CreateDatabaseThread();
        m_pDatabaseThread->PostThreadMessage(WM_NETFLOW_DB_OPEN, 0, 0);
    }
    return created;
}

void CNetFlowSession::CreateDatabaseThread() {
    if (m_strDSN.empty())
        return;
    m_pDatabaseThread = CNetFlowDatabase::BeginThread();
    m_hDatabaseThread = m_pDatabaseThread->m_hThread;
    // The writer waits for its first message, so its fields may be set after the start.
    m_pDatabaseThread->m_pSession = this;
    m_pDatabaseThread->m_strDSN = m_strDSN;
    m_pDatabaseThread->ResumeThread();
}

void CNetFlowSession::Stop() {
    if (m_pSocket == nullptr)
        return;
    m_pSocket->UpdateLost();
    m_pSocket->ShutDownSend();
    m_pSocket->Close();
    delete m_pSocket;
    m_pSocket = nullptr;
    ShutDownDatabase();
}

void CNetFlowSession::ShutDownDatabase() {
    if (m_pDatabaseThread == nullptr)
        return;
    m_pDatabaseThread->PostThreadMessage(WM_NETFLOW_DB_QUIT, 0, 0);
    std::this_thread::yield();
    PumpUntilWriterExits();
    if (m_hDatabaseThread.valid())
        m_hDatabaseThread.wait_for(kWriterExitWait);
}

// The writer's EXITING is a send to this window: it runs only when this thread runs the loop.
void CNetFlowSession::PumpUntilWriterExits() {
    asio::io_context* pLoop = GetLoop();
    if (pLoop == nullptr)
        return;
    // After run() has returned the loop is stopped; it may be restarted while nobody runs it.
    bool restarted = false;
    if (pLoop->stopped() && !pLoop->get_executor().running_in_this_thread()) {
        pLoop->restart();
        restarted = true;
    }
    auto work = asio::make_work_guard(*pLoop);
    const auto deadline = std::chrono::steady_clock::now() + kWriterExitWait;
    while (m_pDatabaseThread != nullptr && !pLoop->stopped()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline)
            break;
        pLoop->run_one_for(deadline - now);
    }
    work.reset();
    if (restarted)
        pLoop->stop();
}

void CNetFlowSession::AddPacket(CTPAbstractPacket* pPacket) {
    {
        std::lock_guard<std::recursive_mutex> lock(m_Lock);
        m_Packets.push_back(pPacket);
        if (m_pDatabaseThread != nullptr) {
            m_pDatabaseThread->AddPacket(pPacket);
            m_pDatabaseThread->PostThreadMessage(WM_NETFLOW_DB_WRITE, 0, 0);
        }
    }
    // Outside the lock, so that the owner may call GetPackets from its handler.
    if (m_pOwner != nullptr)
        m_pOwner->SendMessage(WM_NETFLOW_PACKET, 0, 0);
}

void CNetFlowSession::GetPackets(CArray<CTPAbstractPacket*, CTPAbstractPacket*>& packets) {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    if (&packets != &m_Packets)
        packets.assign(m_Packets.begin(), m_Packets.end()); // old pointers are overwritten, not freed
    CArray<CTPAbstractPacket*, CTPAbstractPacket*>().swap(m_Packets);
}

// The text and the code never reach the host: intended, the message only says that something failed.
void CNetFlowSession::ReportError(const CString&, UINT) {
    if (m_pOwner != nullptr)
        m_pOwner->SendMessage(WM_NETFLOW_ERROR, 0, 0);
}

const CNetFlowSession::Statistics& CNetFlowSession::RefreshStatistics() {
    if (m_pSocket != nullptr)
        m_pSocket->UpdateLost();
    return m_statistics;
}

void CNetFlowSession::SetAllowList(const std::vector<CAddressPrefix>& prefixes) {
    m_allowList = prefixes;
    ++m_allowListVersion;
}

UINT CNetFlowSession::GetLocalPort() const {
    return m_pSocket != nullptr ? m_pSocket->GetLocalPort() : 0;
}

// OPENED and OPEN_FAILED are not acted on: a failed connection is not reported to the host.
LRESULT CNetFlowSession::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NETFLOW_DB_EXITING)
        m_pDatabaseThread = nullptr;
    return DefWindowProc(message, wParam, lParam);
}
