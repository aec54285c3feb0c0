// nfcollect: listens for NetFlow v1/5/7/8/9 and sFlow v2/4/5 datagrams on one UDP port and prints every
// decoded packet, or writes each raw datagram to a numbered trace file.

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <CLI/CLI.hpp>

#include "common/CommandLine.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "CollectorSession.h"
#include "CollectorWnd.h"
#include "PacketPrinter.h"
#include "common/SQLiteSource.h"
#include "corelib/Utility.h"
#include "util/TextConvert.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
    int port = 2055;
    std::string format = "text";
    uint64_t count = 0;
    double duration = 0;
    bool trace = false;
    std::string traceDir;
    std::string dsn;
    std::string db;
    bool quiet = false;
};

// The trace directory becomes part of a format string inside the library, so '%' is doubled here.
CString TraceDirForLibrary(const std::string& dir) {
    std::string escaped;
    for (char c : dir) {
        escaped += c;
        if (c == '%')
            escaped += '%';
    }
    if (escaped.empty() || escaped.back() != '/')
        escaped += '/';
    return tpnf::FromUtf8(escaped);
}

// Creates the directory if needed and proves that a file can be written there.
bool PrepareTraceDir(const std::string& dir, std::string& error) {
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

OutputFormat ParseFormat(const std::string& name) {
    if (name == "fields")
        return OutputFormat::Fields;
    if (name == "json")
        return OutputFormat::Json;
    if (name == "none")
        return OutputFormat::None;
    return OutputFormat::Text;
}

class Collector {
public:
    Collector(const Options& options, asio::io_context& loop)
        : m_options(options), m_loop(loop), m_printer(ParseFormat(options.format), stdout),
          m_owner(m_session, m_printer, !options.dsn.empty()), m_signals(loop, SIGINT, SIGTERM),
          m_statsTimer(loop), m_durationTimer(loop), m_writerTimer(loop) {}

    int ExitCode() const { return m_nExitCode; }

    bool Start() {
        m_owner.CreateEx(m_loop, L"nfcollect");
        m_session.SetTraceMode(m_options.trace ? TRUE : FALSE);
        if (m_options.count > 0)
            m_session.m_onDatagram = [this] {
                if (m_session.GetStatistics().datagrams >= m_options.count)
                    Shutdown();
            };
        if (!m_session.Init(&m_owner, static_cast<UINT>(m_options.port), tpnf::FromUtf8(m_options.dsn))) {
            std::fprintf(stderr, "nfcollect: cannot listen on UDP port %d: %s\n", m_options.port,
                         m_session.GetSocketError().message().c_str());
            return false;
        }
        m_start = Clock::now();
        if (!m_options.quiet) {
            if (m_options.trace)
                std::fprintf(stderr, "nfcollect: listening on UDP port %u, writing trace files to %s\n",
                             m_session.GetLocalPort(), m_options.traceDir.c_str());
            else
                std::fprintf(stderr, "nfcollect: listening on UDP port %u, %s output\n",
                             m_session.GetLocalPort(), m_options.format.c_str());
        }
        m_signals.async_wait([this](const std::error_code& error, int) {
            if (!error)
                Shutdown();
        });
        if (m_options.duration > 0) {
            m_durationTimer.expires_after(std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(m_options.duration)));
            m_durationTimer.async_wait([this](const std::error_code& error) {
                if (!error)
                    Shutdown();
            });
        }
        ScheduleStats();
        if (!m_options.dsn.empty())
            WatchWriter();
        return true;
    }

    // After the loop has run out of work: a writer still storing its backlog is given the time it needs,
    // then the summary.
    void Finish() {
        if (m_session.HasWriter()) {
            Clock::time_point nextReport = Clock::now() + std::chrono::seconds(1);
            while (!m_session.WriterFinished()) {
                if (Clock::now() >= nextReport) {
                    std::fprintf(stderr, "nfcollect: waiting for the database writer to store %zu packets\n",
                                 m_owner.GetKeptCount());
                    nextReport += std::chrono::seconds(5);
                }
                // The writer says goodbye through this loop.
                m_loop.restart();
                m_loop.run_for(std::chrono::milliseconds(200));
            }
            const CCollectorSession::FinalWriterState& final = m_session.GetFinalWriterState();
            const size_t kept = m_owner.GetKeptCount();
            const size_t unstored = final.seen ? std::min(final.unstored, kept) : kept;
            m_nStored += kept - unstored;
            if (unstored > 0) {
                std::fprintf(stderr, "nfcollect: %zu packets were not stored%s%s\n", unstored,
                             final.lastError.empty() ? "" : ": ", Trimmed(final.lastError).c_str());
                m_nExitCode = 1;
            }
            m_owner.DeleteKept();
        }
        const double seconds = std::chrono::duration<double>(m_stopped - m_start).count();
        std::fprintf(stderr, "nfcollect: stopped after %.1f s: %s\n", seconds, StatsLine().c_str());
    }

private:
    // Packets are freed once the writer has stored them; a writer that fails ends the collector, since from
    // then on it would store nothing and hold every packet.
    void WatchWriter() {
        m_writerTimer.expires_after(std::chrono::milliseconds(200));
        m_writerTimer.async_wait([this](const std::error_code& error) {
            if (error || m_bStopping)
                return;
            CCollectorSession::WriterState state = m_session.PeekWriter();
            if (state.known) {
                if (!state.healthy) {
                    std::fprintf(stderr, "nfcollect: database error: %s\n", Trimmed(state.lastError).c_str());
                    m_nExitCode = 1;
                    Shutdown();
                    return;
                }
                const size_t before = m_owner.GetKeptCount();
                m_owner.DeleteKeptExcept(state.queued);
                m_nStored += before - m_owner.GetKeptCount();
            }
            WatchWriter();
        });
    }

    void ScheduleStats() {
        m_statsTimer.expires_after(std::chrono::seconds(1));
        m_statsTimer.async_wait([this](const std::error_code& error) {
            if (error || m_bStopping)
                return;
            std::fflush(stdout);
            if (!m_options.quiet)
                std::fprintf(stderr, "nfcollect: %s\n", StatsLine().c_str());
            ScheduleStats();
        });
    }

    std::string StatsLine() const {
        const CNetFlowSession::Statistics& s = m_session.GetStatistics();
        std::string line = std::to_string(s.datagrams) + " datagrams, " +
                           std::to_string(m_owner.GetPacketCount()) + " packets";
        if (!m_owner.GetPacketsByProtocol().empty()) {
            line += " (";
            bool first = true;
            for (const auto& [protocol, n] : m_owner.GetPacketsByProtocol()) {
                line += (first ? "" : ", ") + tpnf::ToUtf8(protocol) + " " + std::to_string(n);
                first = false;
            }
            line += ")";
        }
        line += ", " + std::to_string(m_owner.GetErrorCount()) + " decode errors";
        line += ", " + std::to_string(s.ignored + s.malformed) + " dropped";
        if (!m_options.dsn.empty())
            line += ", " + std::to_string(m_nStored) + " stored, " + std::to_string(m_owner.GetKeptCount()) +
                    " waiting for the database";
        if (m_options.trace || s.traced > 0 || s.traceFailures > 0)
            line += ", " + std::to_string(s.traced) + " traced, " + std::to_string(s.traceFailures) +
                    " trace failures";
        return line;
    }

    // Stop and final drain; the loop then runs out of work.
    void Shutdown() {
        if (m_bStopping)
            return;
        m_bStopping = true;
        m_session.Stop(); // the writer stores what is queued before it ends
        m_owner.TakePackets();
        std::error_code ignored;
        m_signals.cancel(ignored);
        m_statsTimer.cancel();
        m_durationTimer.cancel();
        m_writerTimer.cancel();
        std::fflush(stdout);
        m_stopped = Clock::now();
    }

    // Driver texts end with a line break.
    static std::string Trimmed(const CString& text) {
        std::string utf8 = tpnf::ToUtf8(text);
        while (!utf8.empty() && std::isspace(static_cast<unsigned char>(utf8.back())))
            utf8.pop_back();
        return utf8;
    }

    const Options& m_options;
    asio::io_context& m_loop;
    CPacketPrinter m_printer;
    CCollectorSession m_session;
    CCollectorWnd m_owner;
    asio::signal_set m_signals;
    asio::steady_timer m_statsTimer;
    asio::steady_timer m_durationTimer;
    asio::steady_timer m_writerTimer;
    Clock::time_point m_start;
    Clock::time_point m_stopped;
    bool m_bStopping = false;
    int m_nExitCode = 0;
    uint64_t m_nStored = 0; // packets the writer has stored and that were freed
};

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{
        "nfcollect: collect NetFlow v1, v5, v7, v8, v9 and sFlow v2, v4, v5 datagrams on a UDP port\n"
        "and print every decoded packet on stdout (statistics go to stderr). Stops on SIGINT or\n"
        "SIGTERM, after --count datagrams or after --duration seconds, whichever comes first."};
    app.add_option("-p,--port", options.port,
                   "UDP port to listen on, on all IPv4 addresses (0: any free port)")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_option("-f,--format", options.format,
                   "output per packet: text (the packet's rendering), fields (NAME=value lines per record),\n"
                   "json (one object per packet per line) or none")
        ->capture_default_str()
        ->check(CLI::IsMember({"text", "fields", "json", "none"}));
    app.add_option("-c,--count", options.count, "stop after this many datagrams (0: no limit)")
        ->capture_default_str()
        ->check(tpnf::tools::CountValidator());
    app.add_option("-d,--duration", options.duration, "stop after this many seconds (0: no limit)")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    app.add_flag("-t,--trace", options.trace,
                 "trace mode: write every datagram raw to nf_trace_<n>.nfdmp in the trace directory\n"
                 "instead of decoding it (n counts from 1)");
    app.add_option("--trace-dir", options.traceDir,
                   "trace directory, created if missing (implies --trace; default: $TP_PDU_TRACE_DIR,\n"
                   "else the current directory)");
    CLI::Option* dsn = app.add_option("--dsn", options.dsn,
                                      "store NetFlow v9 records in this ODBC data source (odbc.ini name);\n"
                                      "tables netflow_records, netflow_attributes, netflow_record_id are\n"
                                      "created when missing");
    app.add_option("--db", options.db,
                   "store NetFlow v9 records in this SQLite file (created when missing), through\n"
                   "the SQLite ODBC driver; no ODBC set-up needed")
        ->excludes(dsn);
    app.add_flag("-q,--quiet", options.quiet, "no start line and no once-a-second statistics on stderr");
    tpnf::tools::UseToolErrors(app, "nfcollect");
    if (int exitCode = 0; !tpnf::tools::Parse(app, argc, argv, exitCode))
        return exitCode;

    tpnf::tools::CSQLiteSources sqlite;
    if (!options.db.empty()) {
        std::string error;
        if (!sqlite.Add(options.db, options.dsn, error)) {
            std::fprintf(stderr, "nfcollect: cannot use %s as database: %s\n", options.db.c_str(),
                         error.c_str());
            return 1;
        }
    }
    if (!options.traceDir.empty()) {
        options.trace = true;
        CUtility::SetPduTraceDir(TraceDirForLibrary(options.traceDir));
    } else if (options.trace) {
        options.traceDir = tpnf::ToUtf8(CUtility::GetPduTraceDir());
    }
    if (options.trace) {
        std::string error;
        if (!PrepareTraceDir(options.traceDir, error)) {
            std::fprintf(stderr, "nfcollect: trace directory %s is not writable: %s\n",
                         options.traceDir.c_str(), error.c_str());
            return 1;
        }
    }

    asio::io_context loop;
    Collector collector(options, loop);
    if (!collector.Start())
        return 1;
    loop.run();
    collector.Finish();
    return collector.ExitCode();
}
