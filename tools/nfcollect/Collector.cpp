#include "Collector.h"

#include <asio/post.hpp>

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>

#include "flows/FlowRecord.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "util/TextConvert.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kTick(50);

OutputFormat ParseFormat(const std::string& name) {
    if (name == "flows")
        return OutputFormat::Flows;
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
    if (!options.flowsDb.empty())
        return options.flowsDb + ".spill";
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
    if (!m_options.dsn.empty()) {
        m_pV9Store = std::make_unique<CV9Store>(tpnf::FromUtf8(m_options.dsn), m_options.maxQueue,
                                                spillDir / "database", m_console, m_loop);
        m_pV9Store->SetSharedRecordIds(m_options.sharedDb);
        m_pV9Store->SetBulkCopy(m_options.pgCopy && m_options.db.empty()); // not into the SQLite file
        m_stores.push_back(m_pV9Store.get());
    }
    if (!m_options.flowsDsn.empty()) {
        m_pFlowStore = std::make_unique<CFlowStore>(tpnf::FromUtf8(m_options.flowsDsn), m_options.maxQueue,
                                                    spillDir / "flows", m_console);
        m_pFlowStore->SetBulkCopy(m_options.pgCopy && m_options.flowsDb.empty());
        m_stores.push_back(m_pFlowStore.get());
    }
    if (m_pMetrics)
        for (CStore* store : m_stores)
            store->SetWriteObserver(
                [this, name = store->GetName()](double seconds) { m_pMetrics->ObserveWrite(name, seconds); });

    CWorker::Settings settings;
    settings.port = static_cast<UINT>(m_options.port);
    settings.trace = m_options.trace;
    settings.decodeOptions = DecodeOptionsOf(m_options);
    settings.format = ParseFormat(m_options.format);
    settings.pConsole = &m_console;
    settings.pV9Store = m_pV9Store.get();
    settings.pFlowStore = m_pFlowStore.get();
    settings.pMetrics = m_pMetrics.get();
    if (m_options.count > 0)
        settings.onDatagram = [this] {
            if (m_nDatagrams.fetch_add(1) + 1 < m_options.count)
                return false;
            asio::post(m_loop, [this] { Shutdown(); });
            return true;
        };
    settings.listen = ListenAddressesOf(m_options);
    settings.allow = AllowListOf(m_options);
    settings.reusePort = m_options.workers > 1;
    settings.receiveBuffer = m_options.receiveBuffer;
    settings.coalesceDelay = std::chrono::microseconds(m_options.coalesceUsecs);
    UINT port = 0;
    for (int i = 0; i < m_options.workers; ++i) {
        auto worker = std::make_unique<CWorker>(settings);
        std::error_code error;
        if (!worker->Start(error)) {
            // The address is named only when --listen chose it: without, the message stays as it was.
            const std::string where = m_options.listen.empty() || worker->GetErrorAddress().empty()
                                          ? std::string()
                                          : " on " + worker->GetErrorAddress();
            m_console.Message("cannot listen on UDP port " + std::to_string(settings.port) + where + ": " +
                              error.message());
            m_nExitCode = 1;
            for (const auto& started : m_workers)
                started->Stop();
            m_workers.clear();
            return false;
        }
        // Port 0: the other workers share the port the system chose for the first.
        port = worker->GetLocalPort();
        settings.port = port;
        m_workers.push_back(std::move(worker));
    }
    if (const int granted = m_workers.front()->GetReceiveBuffer();
        m_options.receiveBuffer > 0 && granted < m_options.receiveBuffer)
        m_console.Message("receive buffer is " + std::to_string(granted) + " bytes, not " +
                          std::to_string(m_options.receiveBuffer) +
                          ": raise net.core.rmem_max (sysctl) to allow more");

    m_start = Clock::now();
    m_lastStatsLine = m_start;
    m_strLastStatsLine = StatsLine(); // nothing has happened yet: no line until something does
    for (CStore* store : m_stores)
        store->Start();
    if (!m_options.quiet) {
        std::string where = "listening on UDP port " + std::to_string(port);
        if (!m_options.listen.empty()) {
            where += " of";
            for (size_t i = 0; i < m_options.listen.size(); ++i)
                where += (i == 0 ? " " : ", ") + m_options.listen[i];
        }
        if (m_options.workers > 1)
            where += " with " + std::to_string(m_options.workers) + " workers";
        if (m_options.trace)
            m_console.Message(where + ", writing trace files to " + m_options.traceDir);
        else
            m_console.Message(where + ", " + m_options.format + " output");
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
        for (CStore* store : m_stores)
            store->ReopenSpill();
        m_console.Message("SIGHUP: output directories reopened");
        WaitForHangUp();
    });
}

void CCollector::ScheduleTick() {
    m_tickTimer.expires_after(kTick);
    m_tickTimer.async_wait([this](const std::error_code& error) {
        if (error || m_bStopping)
            return;
        for (CStore* store : m_stores)
            if (!store->Supervise()) {
                m_console.Message(store->GetTitle() + " error: " + store->GetFatalError());
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
    Clock::time_point nextReport = Clock::now() + std::chrono::seconds(1);
    for (;;) {
        bool finished = true;
        uint64_t waiting = 0;
        for (CStore* store : m_stores) {
            finished = store->Finish() && finished;
            waiting += store->GetSnapshot().waitingRecords;
        }
        if (finished)
            break;
        if (Clock::now() >= nextReport && waiting > 0) {
            m_console.Message("waiting for the stores to write " + std::to_string(waiting) + " records");
            nextReport += std::chrono::seconds(5);
        }
        // The v9 writer says goodbye through this loop.
        m_loop.restart();
        m_loop.run_for(kTick);
    }
    for (CStore* store : m_stores) {
        const CStore::Snapshot snapshot = store->GetSnapshot();
        if (const uint64_t unstored = store->GetUnstoredAtEnd(); unstored > 0) {
            m_console.Message(store->Unstored(unstored) +
                              (snapshot.lastError.empty() ? "" : ": " + snapshot.lastError) +
                              "; their datagrams are in " + store->GetSpillPath().string());
            m_nExitCode = 1;
        }
        if (snapshot.spillErrors > 0) {
            m_console.Message(std::to_string(snapshot.spillErrors) +
                              " datagrams could neither be stored nor spilled and are lost");
            m_nExitCode = 1;
        } else if (snapshot.spilled > 0) {
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
    uint64_t lost = 0;
    uint64_t refused = 0;
    for (const auto& worker : m_workers) {
        const CWorker::Snapshot snapshot = worker->GetSnapshot();
        lost += snapshot.statistics.lost;
        refused += snapshot.statistics.refused;
    }
    m_pMetrics->SetReceiveTotals(lost, refused);
    for (CStore* store : m_stores)
        m_pMetrics->SetStore(store->GetName(), store->GetSnapshot());
    const CTemplateStoreSnapshot templates = CNetFlowTemplateManager::GetInstance()->GetSnapshot();
    for (const CTemplateStoreSnapshot::Exporter& exporter : templates.exporters) {
        char text[CFlowAddress::MAX_TEXT];
        const CFlowAddress address =
            CFlowAddress::FromBytes(exporter.address.bytes.data(), exporter.address.length);
        m_pMetrics->SetTemplates(std::string(text, address.Format(text)), exporter.templates);
    }
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
        s.lost += snapshot.statistics.lost;
        s.refused += snapshot.statistics.refused;
        counts.packets += snapshot.counts.packets;
        counts.errors += snapshot.counts.errors;
        for (const auto& [protocol, n] : snapshot.counts.byProtocol)
            counts.byProtocol[protocol] += n;
    }
    std::string line = std::to_string(s.datagrams) + " datagrams, ";
    if (s.lost > 0)
        line += std::to_string(s.lost) + " lost in the receive buffer, ";
    line += std::to_string(counts.packets) + " packets";
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
    if (!m_options.allow.empty() || s.refused > 0)
        line += ", " + std::to_string(s.refused) + " refused";
    for (CStore* store : m_stores) {
        const CStore::Snapshot snapshot = store->GetSnapshot();
        line += ", " + store->Progress(snapshot);
        if (snapshot.spilled > 0)
            line += ", " + std::to_string(snapshot.spilled) + " spilled";
        if (snapshot.state == CStore::EState::Failed) {
            char retry[32];
            std::snprintf(retry, sizeof retry, "%.0f", snapshot.secondsToRetry);
            line += " (" + store->GetTitle() + " unavailable, attempt " +
                    std::to_string(snapshot.retries + 1) + " in " + retry + " s)";
        }
    }
    if (const uint64_t dropped = CNetFlowTemplateManager::GetInstance()->GetSnapshot().dropped; dropped > 0)
        line += ", " + std::to_string(dropped) + " templates dropped (--max-templates)";
    if (m_options.trace || s.traced > 0 || s.traceFailures > 0)
        line += ", " + std::to_string(s.traced) + " traced, " + std::to_string(s.traceFailures) +
                " trace failures";
    return line;
}
