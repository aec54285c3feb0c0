#include "Worker.h"

#include <asio/post.hpp>

CWorker::CWorker(Settings settings) : m_settings(std::move(settings)) {}

CWorker::~CWorker() {
    if (m_work)
        Stop();
    Join();
}

bool CWorker::Start(std::error_code& error) {
    m_work.emplace(m_loop.get_executor());
    std::promise<std::error_code> started;
    std::future<std::error_code> result = started.get_future();
    m_thread = std::thread([this, &started] { Run(started); });
    error = result.get();
    if (error) {
        m_work.reset();
        Join();
        return false;
    }
    return true;
}

void CWorker::Run(std::promise<std::error_code>& started) {
    m_pSession = std::make_unique<CCollectorSession>();
    m_pOwner =
        std::make_unique<CCollectorWnd>(*m_pSession, m_settings.format, *m_settings.pConsole,
                                        m_settings.pV9Store, m_settings.pFlowStore, m_settings.pMetrics);
    m_pOwner->CreateEx(m_loop, L"nfcollect");
    m_pSession->SetTraceMode(m_settings.trace ? TRUE : FALSE);
    m_pSession->SetDecodeOptions(m_settings.decodeOptions);
    m_pSession->SetListenAddresses(m_settings.listen);
    m_pSession->SetAllowList(m_settings.allow);
    m_pSession->SetReusePort(m_settings.reusePort);
    m_pSession->SetCoalesceDelay(m_settings.coalesceDelay);
    m_pSession->m_onDatagram = [this] {
        if (const CDatagramInfo* pInfo = m_pSession->GetDatagramInfo())
            m_pOwner->DatagramHandled(*pInfo);
        // The last datagram of a --count run ends this loop at once; the collector ends the others.
        if (m_settings.onDatagram && m_settings.onDatagram() && m_pSession->IsStarted()) {
            m_pSession->Stop();
            m_pOwner->TakePackets();
        }
    };
    if (!m_pSession->Init(m_pOwner.get(), m_settings.port, CString())) {
        std::error_code error = m_pSession->GetSocketError();
        m_strErrorAddress = m_pSession->GetSocketErrorAddress();
        m_pOwner.reset();
        m_pSession.reset();
        started.set_value(error ? error : std::make_error_code(std::errc::invalid_argument));
        return;
    }
    m_nLocalPort = m_pSession->GetLocalPort();
    if (m_settings.receiveBuffer > 0)
        m_nReceiveBuffer = m_pSession->SetReceiveBuffer(m_settings.receiveBuffer);
    started.set_value({});
    m_loop.run();
    TakeSnapshot();
    m_pOwner.reset();
    m_pSession.reset();
}

void CWorker::Stop() {
    m_work.reset();
    asio::post(m_loop, [this] {
        if (m_pSession == nullptr || !m_pSession->IsStarted())
            return;
        m_pSession->Stop();
        m_pOwner->TakePackets();
    });
}

void CWorker::Join() {
    if (m_thread.joinable())
        m_thread.join();
}

void CWorker::RequestSnapshot() {
    asio::post(m_loop, [this] { TakeSnapshot(); });
}

CWorker::Snapshot CWorker::GetSnapshot() {
    std::lock_guard<std::mutex> lock(m_snapshotLock);
    return m_snapshot;
}

void CWorker::TakeSnapshot() {
    if (m_pSession == nullptr)
        return;
    std::lock_guard<std::mutex> lock(m_snapshotLock);
    // While receiving, the kernel is asked for its drops, so that drops after the last datagram show.
    m_snapshot.statistics =
        m_pSession->IsStarted() ? m_pSession->RefreshStatistics() : m_pSession->GetStatistics();
    m_snapshot.counts = m_pOwner->GetCounts();
}
