#include "Collector.h"

#include <asio/post.hpp>

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>

#include "util/TextConvert.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kTick(50);

OutputFormat ParseFormat(const std::string& name) {
    if (name == "fields")
        return OutputFormat::Fields;
    if (name == "json")
        return OutputFormat::Json;
    if (name == "none")
        return OutputFormat::None;
    return OutputFormat::Text;
}

} // namespace

bool PrepareWritableDirectory(const std::string& dir, std::string& error) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (ec) {
        error = ec.message();
        return false;
    }
    const fs::path probe = fs::path(dir) / (".nfcollect_probe_" + std::to_string(getpid()));
    {
        std::ofstream out(probe);
        if (!out) {
            error = std::error_code(errno, std::generic_category()).message();
            return false;
        }
    }
    fs::remove(probe, ec);
    return true;
}

namespace {

std::filesystem::path DefaultSpillDir(const CollectorOptions& options) {
    if (!options.spillDir.empty())
        return options.spillDir;
    if (!options.db.empty())
        return options.db + ".spill";
    return "nfcollect.spill";
}

} // namespace

CCollector::CCollector(const CollectorOptions& options, CConsole& console)
    : m_options(options), m_console(console), m_signals(m_loop, SIGINT, SIGTERM), m_hangUp(m_loop, SIGHUP),
      m_tickTimer(m_loop), m_statsTimer(m_loop), m_durationTimer(m_loop) {}

CCollector::~CCollector() = default;

int CCollector::Run() {
    if (!Start())
        return m_nExitCode;
    m_loop.run();
    Finish();
    return m_nExitCode;
}

bool CCollector::Start() {
    if (!m_options.metrics.empty()) {
        std::string error;
        m_pMetrics = CMetrics::Create(m_options.metrics, error);
        if (!m_pMetrics) {
            m_console.Message("cannot serve metrics on " + m_options.metrics + ": " + error);
            m_nExitCode = 1;
            return false;
        }
    }
    const fs::path spillDir = DefaultSpillDir(m_options);
    if (!m_options.dsn.empty())
        m_pV9Store = std::make_unique<CV9Store>(tpnf::FromUtf8(m_options.dsn), m_options.maxQueue,
                                                spillDir / "database", m_console, m_loop);

    CWorker::Settings settings;
    settings.port = static_cast<UINT>(m_options.port);
    settings.trace = m_options.trace;
    settings.format = ParseFormat(m_options.format);
    settings.pConsole = &m_console;
    settings.pV9Store = m_pV9Store.get();
    settings.pMetrics = m_pMetrics.get();
    if (m_options.count > 0)
        settings.onDatagram = [this] {
            if (m_nDatagrams.fetch_add(1) + 1 < m_options.count)
                return false;
            asio::post(m_loop, [this] { Shutdown(); });
            return true;
        };
    auto worker = std::make_unique<CWorker>(settings);
    std::error_code error;
    if (!worker->Start(error)) {
        m_console.Message("cannot listen on UDP port " + std::to_string(m_options.port) + ": " +
                          error.message());
        m_nExitCode = 1;
        return false;
    }
    const UINT port = worker->GetLocalPort();
    m_workers.push_back(std::move(worker));

    m_start = Clock::now();
    m_lastStatsLine = m_start;
    m_strLastStatsLine = StatsLine(); // nothing has happened yet: no line until something does
    if (m_pV9Store)
        m_pV9Store->Start();
    if (!m_options.quiet) {
        if (m_options.trace)
            m_console.Message("listening on UDP port " + std::to_string(port) + ", writing trace files to " +
                              m_options.traceDir);
        else
            m_console.Message("listening on UDP port " + std::to_string(port) + ", " + m_options.format +
                              " output");
        if (m_pMetrics)
            m_console.Message("metrics at http://" +
                              m_options.metrics.substr(0, m_options.metrics.rfind(':') + 1) +
                              std::to_string(m_pMetrics->GetPort()) + "/metrics");
    }
    WaitForSignals();
    WaitForHangUp();
    if (m_options.duration > 0) {
        m_durationTimer.expires_after(
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_options.duration)));
        m_durationTimer.async_wait([this](const std::error_code& error) {
            if (!error)
                Shutdown();
        });
    }
    ScheduleTick();
    ScheduleStats();
    Notify("READY=1");
    return true;
}

void CCollector::WaitForSignals() {
    m_signals.async_wait([this](const std::error_code& error, int) {
        if (!error)
            Shutdown();
    });
}

// SIGHUP after log rotation: the trace and spill directories may have been moved away; they are made
// again where they belong, and numbering goes on.
void CCollector::WaitForHangUp() {
    m_hangUp.async_wait([this](const std::error_code& error, int) {
        if (error)
            return;
        if (m_options.trace) {
            std::string problem;
            if (!PrepareWritableDirectory(m_options.traceDir, problem))
                m_console.Message("trace directory " + m_options.traceDir + " is not writable: " + problem);
        }
        if (m_pV9Store)
            m_pV9Store->ReopenSpill();
        m_console.Message("SIGHUP: output directories reopened");
        WaitForHangUp();
    });
}

void CCollector::ScheduleTick() {
    m_tickTimer.expires_after(kTick);
    m_tickTimer.async_wait([this](const std::error_code& error) {
        if (error || m_bStopping)
            return;
        if (m_pV9Store && !m_pV9Store->Supervise()) {
            m_console.Message("database error: " + m_pV9Store->GetFatalError());
            m_nExitCode = 1;
            Shutdown();
            return;
        }
        ScheduleTick();
    });
}

void CCollector::ScheduleStats() {
    const std::chrono::duration<double> period(
        m_console.IsTerminal() ? 1.0 : std::min(1.0, m_options.statsInterval));
    m_statsTimer.expires_after(std::chrono::duration_cast<Clock::duration>(period));
    m_statsTimer.async_wait([this](const std::error_code& error) {
        if (error || m_bStopping)
            return;
        for (const auto& worker : m_workers)
            worker->RequestSnapshot();
        const std::string line = StatsLine();
        Notify(("STATUS=" + line).c_str());
        UpdateMetrics();
        if (!m_options.quiet) {
            const Clock::time_point now = Clock::now();
            if (m_console.IsTerminal()) {
                m_console.Status(line);
            } else if (now - m_lastStatsLine >= std::chrono::duration<double>(m_options.statsInterval) &&
                       line != m_strLastStatsLine) {
                // In a pipe or the journal: one line per interval, none while nothing changes.
                m_console.Status(line);
                m_lastStatsLine = now;
                m_strLastStatsLine = line;
            }
        }
        ScheduleStats();
    });
}

void CCollector::Notify(const char* state) {
    sd_notify(0, state); // does nothing unless systemd gave us NOTIFY_SOCKET
}

void CCollector::Shutdown() {
    if (m_bStopping)
        return;
    m_bStopping = true;
    Notify("STOPPING=1");
    for (const auto& worker : m_workers)
        worker->Stop();
    for (const auto& worker : m_workers)
        worker->Join();
    std::error_code ignored;
    m_signals.cancel(ignored);
    m_hangUp.cancel(ignored);
    m_tickTimer.cancel();
    m_statsTimer.cancel();
    m_durationTimer.cancel();
    m_console.Flush();
    m_stopped = Clock::now();
}

// The loop has run out of work: the stores are given the time they need to store what waits (or to
// spill it), then the summary.
void CCollector::Finish() {
    if (m_pV9Store) {
        Clock::time_point nextReport = Clock::now() + std::chrono::seconds(1);
        while (!m_pV9Store->Finish()) {
            if (Clock::now() >= nextReport && m_pV9Store->GetSnapshot().waitingPackets > 0) {
                m_console.Message("waiting for the database writer to store " +
                                  std::to_string(m_pV9Store->GetSnapshot().waitingPackets) + " packets");
                nextReport += std::chrono::seconds(5);
            }
            // The writer says goodbye through this loop.
            m_loop.restart();
            m_loop.run_for(kTick);
        }
        const CStore::Snapshot store = m_pV9Store->GetSnapshot();
        if (const uint64_t unstored = m_pV9Store->GetUnstoredAtEnd(); unstored > 0) {
            m_console.Message(std::to_string(unstored) + " packets were not stored" +
                              (store.lastError.empty() ? "" : ": " + store.lastError) +
                              "; their datagrams are in " + m_pV9Store->GetSpillPath().string());
            m_nExitCode = 1;
        }
        if (store.spillErrors > 0) {
            m_console.Message(std::to_string(store.spillErrors) +
                              " datagrams could neither be stored nor spilled and are lost");
            m_nExitCode = 1;
        } else if (store.spilled > 0) {
            m_nExitCode = 1; // stored later only by a replay
        }
    }
    m_console.EndStatus();
    const double seconds = std::chrono::duration<double>(m_stopped - m_start).count();
    char elapsed[32];
    std::snprintf(elapsed, sizeof elapsed, "%.1f", seconds);
    m_console.Message(std::string("stopped after ") + elapsed + " s: " + StatsLine());
}

void CCollector::UpdateMetrics() {
    if (!m_pMetrics)
        return;
    if (m_pV9Store)
        m_pMetrics->SetStore(m_pV9Store->GetName(), m_pV9Store->GetSnapshot());
}

std::string CCollector::StatsLine() {
    CNetFlowSession::Statistics s;
    CCollectorWnd::Counts counts;
    for (const auto& worker : m_workers) {
        const CWorker::Snapshot snapshot = worker->GetSnapshot();
        s.datagrams += snapshot.statistics.datagrams;
        s.traced += snapshot.statistics.traced;
        s.traceFailures += snapshot.statistics.traceFailures;
        s.ignored += snapshot.statistics.ignored;
        s.decodeFailures += snapshot.statistics.decodeFailures;
        s.malformed += snapshot.statistics.malformed;
        s.packets += snapshot.statistics.packets;
        counts.packets += snapshot.counts.packets;
        counts.errors += snapshot.counts.errors;
        for (const auto& [protocol, n] : snapshot.counts.byProtocol)
            counts.byProtocol[protocol] += n;
    }
    std::string line =
        std::to_string(s.datagrams) + " datagrams, " + std::to_string(counts.packets) + " packets";
    if (!counts.byProtocol.empty()) {
        line += " (";
        bool first = true;
        for (const auto& [protocol, n] : counts.byProtocol) {
            line += (first ? "" : ", ") + tpnf::ToUtf8(protocol) + " " + std::to_string(n);
            first = false;
        }
        line += ")";
    }
    line += ", " + std::to_string(counts.errors) + " decode errors";
    line += ", " + std::to_string(s.ignored + s.malformed) + " dropped";
    if (m_pV9Store) {
        const CStore::Snapshot store = m_pV9Store->GetSnapshot();
        line += ", " + std::to_string(store.storedPackets) + " stored, " +
                std::to_string(store.waitingPackets) + " waiting for the database";
        if (store.spilled > 0)
            line += ", " + std::to_string(store.spilled) + " spilled";
        if (store.state == CStore::EState::Failed) {
            char retry[32];
            std::snprintf(retry, sizeof retry, "%.0f", store.secondsToRetry);
            line += " (database unavailable, attempt " + std::to_string(store.retries + 1) + " in " + retry +
                    " s)";
        }
    }
    if (m_options.trace || s.traced > 0 || s.traceFailures > 0)
        line += ", " + std::to_string(s.traced) + " traced, " + std::to_string(s.traceFailures) +
                " trace failures";
    return line;
}
