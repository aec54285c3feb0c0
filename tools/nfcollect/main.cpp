// nfcollect: listens for NetFlow v1/5/7/8/9 and sFlow v2/4/5 datagrams on one UDP port and prints every
// decoded packet, or writes each raw datagram to a numbered trace file; stores NetFlow v9 records in a
// database when asked to.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

#include "Collector.h"
#include "CollectorOptions.h"
#include "Console.h"
#include "common/CommandLine.h"
#include "common/SQLiteSource.h"
#include "corelib/Utility.h"
#include "util/TextConvert.h"

namespace {

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

} // namespace

int main(int argc, char** argv) {
    CollectorOptions options;
    CLI::App app{
        "nfcollect: collect NetFlow v1, v5, v7, v8, v9, IPFIX (--ipfix) and sFlow v2, v4, v5 datagrams\n"
        "on a UDP port, print every decoded packet on stdout (statistics go to stderr) and store\n"
        "them as the storage options say. Stops on SIGINT or\n"
        "SIGTERM, after --count datagrams or after --duration seconds, whichever comes first;\n"
        "SIGHUP makes it look up its trace and spill directories again (after log rotation)."};
    AddCollectorOptions(app, options);
    tpnf::tools::UseToolErrors(app, "nfcollect");
    if (int exitCode = 0; !tpnf::tools::Parse(app, argc, argv, exitCode))
        return exitCode;
    if (options.dumpConfig) {
        std::fputs(app.config_to_str(true, true).c_str(), stdout);
        return 0;
    }

    tpnf::tools::CSQLiteSources sqlite;
    for (auto [file, dsn] :
         {std::pair(&options.db, &options.dsn), std::pair(&options.flowsDb, &options.flowsDsn)}) {
        std::string error;
        if (!file->empty() && !sqlite.Add(*file, *dsn, error)) {
            std::fprintf(stderr, "nfcollect: cannot use %s as database: %s\n", file->c_str(), error.c_str());
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
        if (!PrepareWritableDirectory(options.traceDir, error)) {
            std::fprintf(stderr, "nfcollect: trace directory %s is not writable: %s\n",
                         options.traceDir.c_str(), error.c_str());
            return 1;
        }
    }

    CConsole console(stdout, stderr);
    CCollector collector(options, console);
    return collector.Run();
}
