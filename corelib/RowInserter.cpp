#include "corelib/RowInserter.h"

#include <charconv>

#include <sql.h>
#include <sqlext.h>

#include "corelib/ArrayInserter.h"
#include "corelib/CopyInserter.h"
#include "corelib/DBException.h"
#include "corelib/Database.h"
#include "corelib/ODBCCalls.h"
#include "corelib/SQLiteInserter.h"
#include "corelib/ValuesInserter.h"

std::unique_ptr<CRowInserter> CRowInserter::Create(CDatabase& db, const std::string& table,
                                                   const std::vector<CRecordsetColumn>& columns) {
    if (db.m_copy)
        return std::make_unique<CCopyInserter>(db, table, columns, *db.m_copy);
    // PostgreSQL 10 and later expand several arrays in one select list side by side, which turns a
    // whole batch of rows into one parameter per column.
    if (db.GetDBMSName() == L"PostgreSQL" && db.GetDBMSVersion() >= 10 && CArrayInserter::CanWrite(columns))
        return std::make_unique<CArrayInserter>(db, table, columns);
    if (db.GetDBMSName() == L"SQLite") {
        if (!db.m_sqlite) { // asked once per connection
            SQLHSTMT stmt = db.AllocStatement();
            db.m_sqlite = CSQLiteInserter::Connection(stmt);
            tpnf::odbc::FreeStatement(stmt);
        }
        if (*db.m_sqlite != nullptr)
            return std::make_unique<CSQLiteInserter>(db, table, columns, static_cast<sqlite3*>(*db.m_sqlite));
    }
    return std::make_unique<CValuesInserter>(db, table, columns);
}

void* CRowInserter::AllocStatement() {
    return m_db.AllocStatement();
}

void* CRowInserter::PrepareStatement(const std::string& sql) {
    SQLHSTMT stmt = m_db.AllocStatement();
    SQLRETURN rc = SQLPrepare(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())), SQL_NTS);
    if (!SQL_SUCCEEDED(rc)) {
        CDBException error = CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
        tpnf::odbc::FreeStatement(stmt);
        throw error;
    }
    return stmt;
}

void CRowInserter::StartWrite(std::function<void()> write) {
    m_db.StartWrite(std::move(write));
}

void CRowInserter::FinishWrite() {
    m_db.FinishWrite();
}

void CRowInserter::ThrowWriteFailure() {
    m_db.ThrowWriteFailure();
}

bool CRowInserter::ManualCommit() {
    SQLULEN autocommit = SQL_AUTOCOMMIT_ON;
    SQLRETURN rc = SQLGetConnectAttr(m_db.m_hDbc, SQL_ATTR_AUTOCOMMIT, &autocommit, SQL_IS_UINTEGER, nullptr);
    return SQL_SUCCEEDED(rc) && autocommit == SQL_AUTOCOMMIT_OFF;
}

void CRowInserter::RunStatement(const std::string& sql) {
    SQLHSTMT stmt = m_db.AllocStatement();
    try {
        tpnf::odbc::ExecuteDirect(stmt, sql);
    } catch (...) {
        tpnf::odbc::FreeStatement(stmt);
        throw;
    }
    tpnf::odbc::FreeStatement(stmt);
}

std::string_view CRowInserter::IntegerText(int64_t value, char (&scratch)[24]) {
    auto result = std::to_chars(scratch, scratch + sizeof scratch, value);
    return std::string_view(scratch, static_cast<size_t>(result.ptr - scratch));
}

std::string CRowInserter::InsertInto() const {
    std::string text = "INSERT INTO " + m_table + " (";
    for (size_t c = 0; c < m_columns.size(); ++c)
        text += (c == 0 ? "" : ",") + m_columns[c].sqlName;
    return text + ")";
}
