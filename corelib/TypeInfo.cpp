#include "corelib/TypeInfo.h"

#include <sql.h>
#include <sqlext.h>

#include "corelib/Database.h"
#include "util/Format.h"
#include "util/TextConvert.h"

namespace {

// The first TYPE_NAME listed for the type; empty when none is listed.
CString FirstTypeName(SQLHSTMT stmt, int sqlType) {
    SQLRETURN rc = SQLGetTypeInfo(stmt, static_cast<SQLSMALLINT>(sqlType));
    if (!SQL_SUCCEEDED(rc))
        throw CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
    CString name;
    rc = SQLFetch(stmt);
    if (rc != SQL_NO_DATA) {
        if (!SQL_SUCCEEDED(rc))
            throw CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
        char text[256];
        SQLLEN indicator = 0;
        rc = SQLGetData(stmt, 1, SQL_C_CHAR, text, sizeof text, &indicator);
        if (!SQL_SUCCEEDED(rc))
            throw CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
        if (indicator != SQL_NULL_DATA)
            name = tpnf::FromUtf8(text);
    }
    SQLFreeStmt(stmt, SQL_CLOSE);
    return name;
}

} // namespace

CString CTypeInfo::GetSQLType(CDatabase* pDatabase, int sqlType) {
    if (pDatabase == nullptr || !pDatabase->IsOpen())
        throw CDBException(CDBException::errorNotOpen, L"The database is not open\n");
    pDatabase->FlushRecordsets();
    SQLHSTMT stmt = pDatabase->AllocStatement();
    CString name;
    try {
        name = FirstTypeName(stmt, sqlType);
        if (name.empty() && sqlType == SQL_WVARCHAR)
            name = FirstTypeName(stmt, SQL_VARCHAR);
    } catch (...) {
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        throw;
    }
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    if (name.empty())
        throw CDBException(CDBException::errorNoTypeInfo,
                           tpnf::FormatText(L"The data source lists no type for SQL type %d\n", sqlType));
    return name;
}
