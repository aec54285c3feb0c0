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

} // namespace tpnf::odbc
