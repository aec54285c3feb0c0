#include "corelib/ODBCCalls.h"

#include <sqlext.h>

#include "corelib/DBException.h"

namespace tpnf::odbc {

void ThrowStatementError(SQLRETURN rc, SQLHSTMT stmt) {
    throw CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
}

void FreeStatement(SQLHSTMT& stmt) {
    if (stmt != SQL_NULL_HSTMT) {
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        stmt = SQL_NULL_HSTMT;
    }
}

void ExecuteDirect(SQLHSTMT stmt, const std::string& sql) {
    Check(SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())), SQL_NTS), stmt);
}

void Execute(SQLHSTMT stmt) {
    SQLRETURN rc = SQLExecute(stmt);
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA)
        ThrowStatementError(rc, stmt);
}

namespace {

void CheckInserted(SQLRETURN rc, SQLHSTMT stmt, size_t rows) {
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA)
        ThrowStatementError(rc, stmt);
    SQLLEN stored = -1;
    if (rc == SQL_NO_DATA)
        stored = 0;
    else if (!SQL_SUCCEEDED(SQLRowCount(stmt, &stored)))
        stored = -1;
    // -1: the driver does not know; then its word is taken.
    if (stored >= 0 && static_cast<size_t>(stored) != rows)
        ThrowRowsNotStored(stored, rows);
}

} // namespace

void ThrowRowsNotStored(long long stored, size_t rows) {
    throw CDBException(CDBException::errorRowsNotStored, CString(L"The database stored ") +
                                                             std::to_wstring(stored) + L" of " +
                                                             std::to_wstring(rows) + L" rows\n");
}

void ExecuteInsert(SQLHSTMT stmt, size_t rows) {
    CheckInserted(SQLExecute(stmt), stmt, rows);
}

void ExecuteInsertDirect(SQLHSTMT stmt, std::string& sql, size_t rows) {
    CheckInserted(SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(sql.data()), SQL_NTS), stmt, rows);
}

} // namespace tpnf::odbc
