#pragma once

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "CollectorOptions.h"
#include "Console.h"
#include "FlowStore.h"
#include "Metrics.h"
#include "V9Store.h"
#include "Worker.h"

// Creates the directory if needed and proves that a file can be written there.
bool PrepareWritableDirectory(const std::string& dir, std::string& error);

// The collector: receive loops (workers) on threads of their own, the stores, and a control loop on the
// main thread for signals, timers, statistics and the stores' supervision.
class CCollector {
public:
    CCollector(const CollectorOptions& options, CConsole& console);
    ~CCollector();

    // Runs until a signal, --count or --duration, then stores or spills what waits; the exit code.
    int Run();

private:
    using Clock = std::chrono::steady_clock;

    bool Start();
    void Shutdown();
    void Finish();

    void ScheduleTick();
    void ScheduleStats();
    void WaitForSignals();
    void WaitForHangUp();
    void Notify(const char* state); // systemd, when it started us

    // Brings the metrics that mirror the collector's own figures up to date.
    void UpdateMetrics();
    // Figures of every worker and store, as one line.
    std::string StatsLine();

    const CollectorOptions& m_options;
    CConsole& m_console;
    asio::io_context m_loop;
    asio::signal_set m_signals;
    asio::signal_set m_hangUp;
    asio::steady_timer m_tickTimer;
    asio::steady_timer m_statsTimer;
    asio::steady_timer m_durationTimer;

    std::unique_ptr<CMetrics> m_pMetrics;
    std::unique_ptr<CV9Store> m_pV9Store;
    std::unique_ptr<CFlowStore> m_pFlowStore;
    std::vector<CStore*> m_stores; // both of them, those in use
    std::vector<std::unique_ptr<CWorker>> m_workers;

    std::atomic<uint64_t> m_nDatagrams{0}; // for --count
    bool m_bStopping = false;
    int m_nExitCode = 0;
    Clock::time_point m_start;
    Clock::time_point m_stopped;
    Clock::time_point m_lastStatsLine;
    std::string m_strLastStatsLine;
};
