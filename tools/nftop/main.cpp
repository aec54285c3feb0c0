// nftop: the groups of flows that carried the most bytes, packets or flows, from the flows table that
// nfcollect writes, in the spirit of nfdump -s.

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "TopReport.h"
#include "common/CommandLine.h"
#include "common/SQLiteSource.h"
#include "corelib/DBException.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "util/TextConvert.h"

namespace {

using tpnf::tools::CTopOptions;
using tpnf::tools::CTopRow;

// The first line of a database error, as the driver worded it.
std::string FirstLine(const CDBException& e) {
    std::string text = tpnf::ToUtf8(e.m_strError);
    return text.substr(0, text.find('\n'));
}

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

CTopRow ReadRow(CODBCRecordset& rs, bool withKey) {
    CTopRow row;
    if (withKey && !rs.Field(L"k").IsNull())
        row.key = tpnf::ToUtf8(rs.Field(L"k").AsString());
    row.flows = rs.Field(L"flows").AsBigInt();
    row.packets = rs.Field(L"packets").AsBigInt();
    row.bytes = rs.Field(L"bytes").AsBigInt();
    return row;
}

} // namespace

int main(int argc, char** argv) {
    CTopOptions options;
    std::string db, dsn, last;
    CLI::App app{"nftop: the top groups of flows in the flows table that nfcollect writes (--flows-db,\n"
                 "--flows-dsn): per value of one column, the flows, packets and bytes, and their share of\n"
                 "all flows. K, M, G, T are thousands, millions, billions, trillions."};
    CLI::Option* dbOption = app.add_option(
        "--db", db, "read the flows table of this SQLite file (through the SQLite ODBC driver)");
    CLI::Option* dsnOption =
        app.add_option("--dsn", dsn, "read the flows table of this ODBC data source")->excludes(dbOption);
    dbOption->excludes(dsnOption);
    app.add_option("--by", options.by, "the column to group by")
        ->capture_default_str()
        ->check(CLI::IsMember(tpnf::tools::TopColumns()));
    app.add_option("--order", options.order, "what the top groups have most of")
        ->capture_default_str()
        ->check(CLI::IsMember({"bytes", "packets", "flows"}));
    app.add_option("--last", last,
                   "only flows that ended this recently: a whole number and s, m, h or d (15m)")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return tpnf::tools::ParseDuration(text) ? std::string()
                                                        : "must be a whole number followed by s, m, h or d";
            },
            "DURATION"));
    app.add_option("-n,--count", options.count, "the number of groups shown")
        ->capture_default_str()
        ->check(tpnf::tools::CountValidator());
    app.add_flag("--scale", options.scale,
                 "multiply packets and bytes by the flow's sampling rate (an estimate of the traffic)");
    tpnf::tools::UseToolErrors(app, "nftop");
    if (int exitCode = 0; !tpnf::tools::Parse(app, argc, argv, exitCode))
        return exitCode;
    if (db.empty() && dsn.empty()) {
        std::fprintf(stderr, "nftop: --db FILE or --dsn NAME is required (see --help)\n");
        return 2;
    }
    if (!last.empty())
        options.lastMs = tpnf::tools::ParseDuration(last);

    tpnf::tools::CSQLiteSources sqlite;
    std::string source = dsn.empty() ? db : "data source " + dsn;
    if (!db.empty()) {
        std::error_code ec;
        if (!std::filesystem::is_regular_file(db, ec)) {
            std::fprintf(stderr, "nftop: %s: no such database file\n", db.c_str());
            return 1;
        }
        std::string error;
        if (!sqlite.Add(db, dsn, error)) {
            std::fprintf(stderr, "nftop: cannot use %s: %s\n", db.c_str(), error.c_str());
            return 1;
        }
    }

    CDatabase database;
    try {
        database.OpenEx(tpnf::FromUtf8("DSN=" + dsn));
    } catch (const CDBException& e) {
        std::fprintf(stderr, "nftop: cannot connect to %s: %s\n", source.c_str(), FirstLine(e).c_str());
        return 1;
    }
    std::vector<CTopRow> rows;
    CTopRow total;
    try {
        CODBCRecordset probe(&database);
        probe.Open(L"select * from flows where 1 = 0");
    } catch (const CDBException& e) {
        std::fprintf(stderr, "nftop: %s has no flows table that can be read: %s\n", source.c_str(),
                     FirstLine(e).c_str());
        return 1;
    }
    try {
        const int64_t now = NowMs();
        CODBCRecordset top(&database);
        top.Open(tpnf::FromUtf8(tpnf::tools::TopSql(options, now)));
        for (; !top.IsEOF(); top.MoveNext())
            rows.push_back(ReadRow(top, true));
        CODBCRecordset all(&database);
        all.Open(tpnf::FromUtf8(tpnf::tools::TotalSql(options, now)));
        if (!all.IsEOF())
            total = ReadRow(all, false);
    } catch (const CDBException& e) {
        std::fprintf(stderr, "nftop: cannot read the flows table of %s: %s\n", source.c_str(),
                     FirstLine(e).c_str());
        return 1;
    }
    std::fputs(tpnf::tools::FormatReport(options, last, rows, total).c_str(), stdout);
    return 0;
}
