#include "corelib/DBException.h"

#include <sql.h>
#include <sqlext.h>

#include "util/Format.h"
#include "util/TextConvert.h"

CDBException::CDBException(int retCode, const CString& error, const CString& stateNativeOrigin)
    : m_nRetCode(retCode), m_strError(error), m_strStateNativeOrigin(stateNativeOrigin),
      m_what(tpnf::ToUtf8(error)) {}

CDBException CDBException::FromDiagnostics(int retCode, int handleType, void* handle) {
    CString error;
    CString states;
    SQLCHAR state[SQL_SQLSTATE_SIZE + 1];
    SQLINTEGER native = 0;
    std::string message(SQL_MAX_MESSAGE_LENGTH, '\0');
    for (SQLSMALLINT record = 1;; ++record) {
        SQLSMALLINT length = 0;
        SQLRETURN rc = SQLGetDiagRec(static_cast<SQLSMALLINT>(handleType), handle, record, state, &native,
                                     reinterpret_cast<SQLCHAR*>(message.data()),
                                     static_cast<SQLSMALLINT>(message.size()), &length);
        if (rc == SQL_SUCCESS_WITH_INFO && static_cast<size_t>(length) >= message.size()) {
            message.resize(static_cast<size_t>(length) + 1);
            --record; // read the same record again into the larger buffer
            continue;
        }
        if (rc != SQL_SUCCESS && rc != SQL_SUCCESS_WITH_INFO)
            break;
        error += tpnf::FromUtf8(std::string_view(message.data(), static_cast<size_t>(length)));
        error += L'\n';
        tpnf::AppendFormat(states, L"State:%s,Native:%d\n", tpnf::FromUtf8(reinterpret_cast<char*>(state)),
                           static_cast<int32_t>(native));
    }
    if (error.empty())
        error = tpnf::FormatText(L"ODBC call failed with return code %d\n", retCode);
    return CDBException(retCode, error, states);
}
