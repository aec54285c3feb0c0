#include "CollectorOptions.h"

#include "common/CommandLine.h"

namespace {

bool ParseListenAddress(std::string text, asio::ip::address& address) {
    if (text.size() > 2 && text.front() == '[' && text.back() == ']')
        text = text.substr(1, text.size() - 2);
    std::error_code error;
    address = asio::ip::make_address(text, error);
    return !error;
}

} // namespace

std::vector<asio::ip::address> ListenAddressesOf(const CollectorOptions& options) {
    std::vector<asio::ip::address> addresses;
    for (const std::string& text : options.listen) {
        asio::ip::address address;
        if (ParseListenAddress(text, address))
            addresses.push_back(address);
    }
    return addresses;
}

std::vector<CAddressPrefix> AllowListOf(const CollectorOptions& options) {
    std::vector<CAddressPrefix> prefixes;
    for (const std::string& text : options.allow) {
        CAddressPrefix prefix;
        std::string error;
        if (CAddressPrefix::Parse(text, prefix, error))
            prefixes.push_back(prefix);
    }
    return prefixes;
}

void AddCollectorOptions(CLI::App& app, CollectorOptions& options) {
    app.set_config("--config", "",
                   "read options from this file (TOML, or INI: one 'name = value' line per option, names\n"
                   "as below without the dashes); options on the command line override it");
    app.allow_config_extras(false); // a misspelt option in the file is an error, not a silent default
    app.add_flag("--dump-config", options.dumpConfig,
                 "print the effective configuration (file and command line together) in the file\n"
                 "format, every option described, and exit")
        ->configurable(false);

    app.add_option("-p,--port", options.port,
                   "UDP port to listen on, on all IPv4 addresses unless --listen names others (0: any free\n"
                   "port)")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_option("--listen", options.listen,
                   "address to listen on, IPv4 or IPv6, repeatable (one socket each, all on --port); :: is\n"
                   "dual stack, taking IPv4 senders too unless an IPv4 address is listed as well")
        ->check(CLI::Validator(
            [](std::string& text) {
                asio::ip::address address;
                return text.empty() || ParseListenAddress(text, address)
                           ? std::string()
                           : "'" + text + "' is not an IPv4 or IPv6 address";
            },
            "ADDRESS"))
        ->group("Receiving");
    app.add_option("--allow", options.allow,
                   "accept datagrams only from senders in this prefix (10.0.0.0/8, 2001:db8::/32, or one\n"
                   "address), repeatable; the others are counted as refused and otherwise ignored")
        ->check(CLI::Validator(
            [](std::string& text) {
                CAddressPrefix prefix;
                std::string error;
                return text.empty() || CAddressPrefix::Parse(text, prefix, error) ? std::string() : error;
            },
            "PREFIX"))
        ->group("Receiving");
    app.add_option("--receive-buffer", options.receiveBuffer,
                   "socket receive buffer in bytes (SO_RCVBUF), to ride out bursts and database pauses;\n"
                   "net.core.rmem_max caps it (0: the system's default)")
        ->capture_default_str()
        ->check(CLI::Range(0, 1 << 30))
        ->group("Receiving");
    app.add_option("--coalesce-usecs", options.coalesceUsecs,
                   "after a read that found few datagrams, wait this many microseconds before the next,\n"
                   "so that each wake-up handles several: less CPU per datagram at moderate rates, up to\n"
                   "this much more delay; the receive buffer must hold that long of traffic (0: no wait)")
        ->capture_default_str()
        ->check(CLI::Range(0, 10000))
        ->group("Receiving");
    app.add_option("--workers", options.workers,
                   "receive loops, each on a thread and socket of its own on the same port (SO_REUSEPORT);\n"
                   "the kernel keeps each exporter on one of them, so its datagrams stay in order")
        ->capture_default_str()
        ->check(CLI::Range(1, 64))
        ->group("Receiving");

    app.add_option("-f,--format", options.format,
                   "output per packet: text (the packet's rendering), fields (NAME=value lines per record),\n"
                   "json (one object per packet per line), flows (one JSON object per flow per line, the\n"
                   "same keys for every protocol) or none")
        ->capture_default_str()
        ->check(CLI::IsMember({"text", "fields", "json", "flows", "none"}))
        ->group("Output");
    app.add_flag("-t,--trace", options.trace,
                 "trace mode: write every datagram raw to nf_trace_<n>.nfdmp in the trace directory\n"
                 "instead of decoding it (n counts from 1)")
        ->group("Output");
    app.add_option("--trace-dir", options.traceDir,
                   "trace directory, created if missing (implies --trace; default: $TP_PDU_TRACE_DIR,\n"
                   "else the current directory)")
        ->run_callback_for_default()
        ->group("Output");
    app.add_flag("-q,--quiet", options.quiet, "no start line and no statistics lines on stderr")
        ->group("Output");
    app.add_option("--stats-interval", options.statsInterval,
                   "seconds between statistics lines when stderr is not a terminal (a pipe, the journal);\n"
                   "no line while nothing has changed; on a terminal one line is rewritten every second")
        ->capture_default_str()
        ->check(CLI::PositiveNumber)
        ->group("Output");

    app.add_flag("--ipfix", options.ipfix,
                 "decode IPFIX (version 10) messages; their templates are kept per exporter and observation\n"
                 "domain (without this flag version 10 datagrams are ignored)")
        ->group("Decoding");
    app.add_option("--template-scope", options.templateScope,
                   "NetFlow v9 templates: global (one store keyed by template id, shared by all exporters)\n"
                   "or exporter (per exporter address and source id, as RFC 3954 says)")
        ->capture_default_str()
        ->check(CLI::IsMember({"global", "exporter"}))
        ->group("Decoding");
    app.add_option("--max-templates", options.maxTemplates,
                   "templates kept per exporter in the exporter scope and for IPFIX; beyond it the one\n"
                   "announced longest ago is dropped and counted (0: no limit)")
        ->capture_default_str()
        ->group("Decoding");
    app.add_flag("--sflow-exact", options.sflowExact,
                 "decode sFlow as its standard says: sampled headers padded to 4 bytes, the sampled IPv4\n"
                 "and IPv6 records, strings as text")
        ->group("Decoding");
    app.add_flag("--rfc", options.rfc,
                 "every decoding option of the standards at once: --ipfix --template-scope exporter\n"
                 "--sflow-exact")
        ->group("Decoding");

    app.add_option("--dsn", options.dsn,
                   "store NetFlow v9 records in this ODBC data source (odbc.ini name);\n"
                   "tables netflow_records, netflow_attributes, netflow_record_id are\n"
                   "created when missing")
        ->run_callback_for_default()
        ->group("Storage");
    app.add_option(
           "--db", options.db,
           "store NetFlow v9 records in this SQLite file (created when missing, WAL journal), through\n"
           "the SQLite ODBC driver; no ODBC set-up needed")
        ->run_callback_for_default()
        ->group("Storage");
    app.add_option("--flows-dsn", options.flowsDsn,
                   "store every flow of every protocol as one row of the table flows in this ODBC data\n"
                   "source (created when missing); several collectors may write one table")
        ->run_callback_for_default()
        ->group("Storage");
    app.add_option(
           "--flows-db", options.flowsDb,
           "the same in this SQLite file (created when missing, WAL journal); may be the file of --db")
        ->run_callback_for_default()
        ->group("Storage");
    app.add_flag("--shared-db", options.sharedDb,
                 "several collectors store into one --db/--dsn database: each write takes and advances the\n"
                 "record id inside its own transaction, holding the id row, so no two hand out one id")
        ->group("Storage");
    app.add_flag("--pg-copy", options.pgCopy,
                 "write the rows of --dsn and --flows-dsn with PostgreSQL's COPY, on a second connection\n"
                 "made from the data source's Servername, Port, Database, Username, Password, SSLmode and\n"
                 "pqopt: the same rows and ids, 1.5 to 2.3 times as fast as the driver's INSERTs; a data\n"
                 "source of another database then fails to open")
        ->group("Storage");
    app.add_option("--max-queue", options.maxQueue,
                   "records each store may hold while its database is behind or unavailable (about 0.3 KB\n"
                   "each); datagrams beyond it are spilled, never dropped")
        ->capture_default_str()
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 40))
        ->group("Storage");
    app.add_option("--spill-dir", options.spillDir,
                   "where datagrams that a store cannot queue are written as numbered trace files, one\n"
                   "subdirectory per store (default: <database file>.spill beside the SQLite file, else\n"
                   "./nfcollect.spill)")
        ->run_callback_for_default()
        ->group("Storage");

    app.add_option("--metrics", options.metrics,
                   "serve Prometheus metrics at http://[ADDRESS:]PORT/metrics (e.g. 9100 for every address,\n"
                   "127.0.0.1:9100 for this machine only, [::1]:9100)")
        ->run_callback_for_default()
        ->group("Operation");
    app.add_option("-c,--count", options.count, "stop after this many datagrams (0: no limit)")
        ->capture_default_str()
        ->check(tpnf::tools::CountValidator())
        ->group("Operation");
    app.add_option("-d,--duration", options.duration, "stop after this many seconds (0: no limit)")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber)
        ->group("Operation");

    // Checked after the configuration file and the command line are merged: a file may name both
    // options, one of them empty.
    app.callback([&options] {
        // --dump-config writes an unset list as an empty value: it means none.
        std::erase(options.listen, std::string());
        std::erase(options.allow, std::string());
        if (!options.db.empty() && !options.dsn.empty())
            throw CLI::ValidationError("--db", "excludes --dsn: store in a SQLite file or in a data source");
        if (!options.flowsDb.empty() && !options.flowsDsn.empty())
            throw CLI::ValidationError(
                "--flows-db", "excludes --flows-dsn: store flows in a SQLite file or in a data source");
        if (options.pgCopy && options.dsn.empty() && options.flowsDsn.empty())
            throw CLI::ValidationError("--pg-copy", "needs --dsn or --flows-dsn: a PostgreSQL data source");
        if (options.sharedDb && options.db.empty() && options.dsn.empty())
            throw CLI::ValidationError("--shared-db",
                                       "needs --db or --dsn: the database the collectors share");
    });
}

CDecodeOptions DecodeOptionsOf(const CollectorOptions& options) {
    CDecodeOptions decode;
    decode.ipfix = options.ipfix || options.rfc;
    decode.templateScope = options.rfc || options.templateScope == "exporter" ? ETemplateScope::Exporter
                                                                              : ETemplateScope::Global;
    decode.maxTemplates = options.maxTemplates;
    decode.sflowExact = options.sflowExact || options.rfc;
    return decode;
}
