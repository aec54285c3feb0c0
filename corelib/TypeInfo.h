#pragma once

#include "util/Types.h"

class CDatabase;

// The data source's own names for ODBC SQL types.
class CTypeInfo {
public:
    // The TYPE_NAME of the first type SQLGetTypeInfo lists for sqlType (an SQL_* type code, e.g. 4 for
    // SQL_INTEGER). A driver that lists no type for SQL_WVARCHAR (-9) gets its SQL_VARCHAR name.
    // Throws CDBException when the source lists no type at all.
    static CString GetSQLType(CDatabase* pDatabase, int sqlType);
};
