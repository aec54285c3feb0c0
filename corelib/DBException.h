#pragma once

#include <exception>
#include <string>

#include "util/Types.h"

// A failed database operation. Thrown by value (the classes it stands in for threw pointers);
// catch it as `const CDBException&`.
class CDBException : public std::exception {
public:
    // Return codes for failures this library finds itself, where no ODBC call failed. They are
    // positive and above every ODBC return code, so they never read as SQL_ERROR (-1).
    enum : int {
        errorNotOpen = 1001,            // the database or recordset is not open
        errorColumnNotFound = 1002,     // no column of that name in the recordset
        errorNoTypeInfo = 1003,         // the data source lists no type for an SQL type
        errorNotUpdatable = 1004,       // AddNew or Edit on a recordset that cannot change its table
        errorNoCurrentRecord = 1005,    // no row to read, move from or edit
        errorInvalidValue = 1006,       // a text value that is not a number for an integer column
        errorNoUpdateInProgress = 1007, // Update without AddNew or Edit
        errorRowsNotStored = 1008,      // an insert reported success but stored fewer rows than it was given
        errorNoTransaction = 1009       // the driver did not begin the transaction it was asked for
    };

    CDBException(int retCode, const CString& error, const CString& stateNativeOrigin = CString());

    // Collects the diagnostic records of an ODBC handle (handleType is SQL_HANDLE_ENV, _DBC or
    // _STMT) after a call on it returned retCode.
    static CDBException FromDiagnostics(int retCode, int handleType, void* handle);

    const char* what() const noexcept override { return m_what.c_str(); }

    int m_nRetCode;                 // ODBC return code of the failed call, or one of the codes above
    CString m_strError;             // the diagnostic messages, each ended by "\n"
    CString m_strStateNativeOrigin; // "State:%s,Native:%d\n" per diagnostic record

private:
    std::string m_what;
};
