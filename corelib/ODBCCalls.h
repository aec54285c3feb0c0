#pragma once
// Small wrappers of ODBC statement calls shared by the recordset and its insert strategies: every
// failure becomes a CDBException carrying the statement's diagnostics.

#include <string>

#include <sql.h>

namespace tpnf::odbc {

[[noreturn]] void ThrowStatementError(SQLRETURN rc, SQLHSTMT stmt);

inline void Check(SQLRETURN rc, SQLHSTMT stmt) {
    if (!SQL_SUCCEEDED(rc))
        ThrowStatementError(rc, stmt);
}

// Frees the handle, if any, and forgets it.
void FreeStatement(SQLHSTMT& stmt);
void ExecuteDirect(SQLHSTMT stmt, const std::string& sql);
// Runs a prepared statement; a searched statement that touched no row (SQL_NO_DATA) is no failure.
void Execute(SQLHSTMT stmt);
// Executes a prepared or direct insert of `rows` rows and checks that the driver stored them all: a
// driver that lost its connection may report success for a statement it never sent.
void ExecuteInsert(SQLHSTMT stmt, size_t rows);
void ExecuteInsertDirect(SQLHSTMT stmt, std::string& sql, size_t rows);
// "The database stored <stored> of <rows> rows"
[[noreturn]] void ThrowRowsNotStored(long long stored, size_t rows);

} // namespace tpnf::odbc
