#include "corelib/SQLiteInserter.h"

#include <dlfcn.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlite3ext.h>

#include <atomic>
#include <cstdint>
#include <filesystem>

#include "corelib/DBException.h"
#include "corelib/ODBCCalls.h"
#include "corelib/ValuesInserter.h"
#include "util/TextConvert.h"

namespace {

// The SQLite library's functions, as the driver's SQLite hands them to an extension: this library does
// not link SQLite itself, and so uses the very SQLite the driver does. Connections opened on several
// threads at once each hand it over; sqlite3ext.h's names reach it through sqlite3_api.
std::atomic<const sqlite3_api_routines*> g_api{nullptr};
#define sqlite3_api (g_api.load(std::memory_order_acquire))

// SELECT tpnf_connection(): the connection running it, as an integer.
void ConnectionFunction(sqlite3_context* context, int, sqlite3_value**) {
    sqlite3_result_int64(
        context, static_cast<sqlite3_int64>(reinterpret_cast<intptr_t>(sqlite3_context_db_handle(context))));
}

} // namespace

// The entry point SQLite derives from the file name libtp_corelib.so.
extern "C" __attribute__((visibility("default"))) int
sqlite3_tpcorelib_init(sqlite3* db, char** /*error*/, const sqlite3_api_routines* api) {
    g_api.store(api, std::memory_order_release);
    return sqlite3_create_function(db, "tpnf_connection", 0, SQLITE_UTF8 | SQLITE_DIRECTONLY, nullptr,
                                   ConnectionFunction, nullptr, nullptr);
}

namespace tpnf::sqlite {

std::string ExtensionFile() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&sqlite3_tpcorelib_init), &info) == 0 || info.dli_fname == nullptr)
        return {};
    std::error_code ec;
    const std::filesystem::path file = std::filesystem::absolute(info.dli_fname, ec);
    const std::string text = file.string();
    // Linked into a program instead, or a name a data source cannot carry.
    if (ec || !file.filename().string().starts_with("libtp_corelib.") ||
        text.find_first_of(";{}=\n\r") != std::string::npos)
        return {};
    return text;
}

} // namespace tpnf::sqlite

sqlite3* CSQLiteInserter::Connection(void* stmt) {
    SQLCHAR sql[] = "SELECT tpnf_connection()";
    SQLBIGINT value = 0;
    SQLLEN indicator = 0;
    if (!SQL_SUCCEEDED(SQLExecDirect(stmt, sql, SQL_NTS)) || !SQL_SUCCEEDED(SQLFetch(stmt)) ||
        !SQL_SUCCEEDED(SQLGetData(stmt, 1, SQL_C_SBIGINT, &value, 0, &indicator)) ||
        indicator == SQL_NULL_DATA || sqlite3_api == nullptr)
        return nullptr;
    return reinterpret_cast<sqlite3*>(static_cast<intptr_t>(value));
}

CSQLiteInserter::CSQLiteInserter(CDatabase& db, const std::string& table,
                                 const std::vector<CRecordsetColumn>& columns, sqlite3* connection)
    : CRowInserter(db, table, columns), m_sqlite(connection),
      m_rows(m_columns, CValuesInserter::BatchRows(columns.size())) {}

CSQLiteInserter::~CSQLiteInserter() {
    // Before the driver closes the connection, which it could not with a statement left open.
    for (sqlite3_stmt* stmt : {m_insert, m_savepoint, m_release, m_rollbackTo})
        sqlite3_finalize(stmt);
}

void CSQLiteInserter::Append(const std::vector<CDBField>& row) {
    m_rows.Append(row);
    if (m_rows.Size() == m_rows.Capacity())
        Write();
}

void CSQLiteInserter::Flush() {
    if (m_rows.Size() != 0)
        Write();
}

void CSQLiteInserter::Write() {
    const size_t rows = m_rows.Size();
    // A batch written or failed is gone either way: after a failure the caller rolls back.
    struct Dropped {
        CParameterRows& rows;
        ~Dropped() { rows.Clear(); }
    } dropped{m_rows};
    if (m_insert == nullptr) {
        std::string sql = InsertInto() + " VALUES (";
        for (size_t c = 0; c < m_columns.size(); ++c)
            sql += c == 0 ? "?" : ",?";
        m_insert = Prepare(sql + ')');
        m_savepoint = Prepare("SAVEPOINT tpnf_rows");
        m_release = Prepare("RELEASE tpnf_rows");
        m_rollbackTo = Prepare("ROLLBACK TO tpnf_rows");
    }
    EnsureTransaction();
    const bool outermost = sqlite3_get_autocommit(m_sqlite) != 0; // then RELEASE commits
    Step(m_savepoint);
    long long stored = 0;
    try {
        WriteRows(rows, stored);
    } catch (...) {
        sqlite3_step(m_rollbackTo);
        sqlite3_reset(m_rollbackTo);
        sqlite3_step(m_release);
        sqlite3_reset(m_release);
        throw;
    }
    try {
        Step(m_release);
    } catch (...) {
        if (outermost &&
            sqlite3_get_autocommit(m_sqlite) == 0) // the commit failed: leave no transaction open
            sqlite3_exec(m_sqlite, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
    if (static_cast<size_t>(stored) != rows)
        tpnf::odbc::ThrowRowsNotStored(stored, rows);
}

void CSQLiteInserter::WriteRows(size_t rows, long long& stored) {
    const size_t n = m_columns.size();
    for (size_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < n; ++c) {
            const int parameter = static_cast<int>(c + 1);
            if (m_rows.IsNull(r, c)) {
                sqlite3_bind_null(m_insert, parameter);
            } else if (m_columns[c].integer) {
                sqlite3_bind_int64(m_insert, parameter, m_rows.Number(r, c));
            } else {
                std::string_view text = m_rows.Text(r, c);
                sqlite3_bind_text(m_insert, parameter, text.data(), static_cast<int>(text.size()),
                                  SQLITE_STATIC);
            }
        }
        Step(m_insert);
        stored += sqlite3_changes(m_sqlite);
    }
}

sqlite3_stmt* CSQLiteInserter::Prepare(const std::string& sql) {
    sqlite3_stmt* stmt = nullptr;
    const int rc =
        sqlite3_prepare_v2(m_sqlite, sql.c_str(), static_cast<int>(sql.size() + 1), &stmt, nullptr);
    if (rc != SQLITE_OK)
        ThrowError(rc);
    return stmt;
}

void CSQLiteInserter::Step(sqlite3_stmt* stmt) {
    const int rc = sqlite3_step(stmt);
    sqlite3_reset(stmt); // keeps the failure's message
    if (rc != SQLITE_DONE && rc != SQLITE_ROW)
        ThrowError(rc);
}

// In manual-commit mode the driver begins its transaction with the next statement it runs; rows written
// before that would be committed on their own.
void CSQLiteInserter::EnsureTransaction() {
    if (sqlite3_get_autocommit(m_sqlite) == 0 || !ManualCommit())
        return;
    RunStatement("SELECT 1");
    if (sqlite3_get_autocommit(m_sqlite) != 0)
        throw CDBException(CDBException::errorNoTransaction, L"The SQLite driver began no transaction\n");
}

// The text the driver gives the same failure.
void CSQLiteInserter::ThrowError(int rc) {
    const int code = rc & 0xff;
    CString error =
        L"[SQLite]" + tpnf::FromUtf8(sqlite3_errmsg(m_sqlite)) + L" (" + std::to_wstring(code) + L")\n";
    throw CDBException(SQL_ERROR, error, L"State:HY000,Native:" + std::to_wstring(code) + L"\n");
}
