#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "CollectorSession.h"
#include "CollectorWnd.h"

class CConsole;
class CV9Store;
class CFlowStore;

// One receive loop: a session with its owner window on an event loop and a thread of its own. The
// session and the window are made on that thread, as the loop's windows must be.
class CWorker {
public:
    struct Settings {
        UINT port = 0;
        std::vector<asio::ip::address> listen; // empty: every IPv4 address
        std::vector<CAddressPrefix> allow;     // empty: every sender
        bool reusePort = false;
        int receiveBuffer = 0; // bytes; 0: the system's default
        std::chrono::microseconds coalesceDelay{0};
        bool trace = false;
        CDecodeOptions decodeOptions;
        OutputFormat format = OutputFormat::Text;
        CConsole* pConsole = nullptr;
        CV9Store* pV9Store = nullptr;
        CFlowStore* pFlowStore = nullptr;
        CMetrics* pMetrics = nullptr;
        // After every datagram, on the worker's thread; true: this loop stops receiving at once.
        std::function<bool()> onDatagram;
    };

    struct Snapshot {
        CNetFlowSession::Statistics statistics;
        CCollectorWnd::Counts counts;
    };

    explicit CWorker(Settings settings);
    ~CWorker();
    CWorker(const CWorker&) = delete;
    CWorker& operator=(const CWorker&) = delete;

    // Starts the thread and binds the socket; false, with the socket's error, when it cannot listen.
    bool Start(std::error_code& error);
    // The address whose socket could not be opened, after Start failed; empty when the port itself failed.
    const std::string& GetErrorAddress() const { return m_strErrorAddress; }
    UINT GetLocalPort() const { return m_nLocalPort; }
    // The receive buffer the kernel granted (as SO_RCVBUF reads back), after Start.
    int GetReceiveBuffer() const { return m_nReceiveBuffer; }

    // Stops the session and takes what it still lists; the thread ends when its loop runs dry. Join
    // waits for that.
    void Stop();
    void Join();

    // Asks the loop for a fresh copy of its figures; GetSnapshot returns the latest one made. After Join
    // it is exact.
    void RequestSnapshot();
    Snapshot GetSnapshot();

private:
    void Run(std::promise<std::error_code>& started);
    void TakeSnapshot();

    Settings m_settings;
    asio::io_context m_loop;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> m_work;
    std::thread m_thread;
    UINT m_nLocalPort = 0;
    int m_nReceiveBuffer = 0;
    std::string m_strErrorAddress;
    // Made on the worker's thread, used only there.
    std::unique_ptr<CCollectorSession> m_pSession;
    std::unique_ptr<CCollectorWnd> m_pOwner;

    std::mutex m_snapshotLock;
    Snapshot m_snapshot;
};
