#include "corelib/Database.h"

#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include "corelib/CopyConnection.h"
#include "corelib/ODBCRecordset.h"
#include "util/TextConvert.h"

namespace {

// unixODBC reads its configuration and finds the data source through buffers shared by every thread:
// stores opening at once on their own threads connect one at a time.
std::mutex& ConfigurationLock() {
    static std::mutex lock;
    return lock;
}

std::string DataSourceValue(const std::string& dsn, const std::string& key) {
    char value[1024] = "";
    const int length =
        SQLGetPrivateProfileString(dsn.c_str(), key.c_str(), "", value, sizeof value, "odbc.ini");
    return length > 0 ? std::string(value, static_cast<size_t>(length)) : std::string();
}

} // namespace

CDatabase::CDatabase() = default;

CDatabase::~CDatabase() {
    Close();
}

BOOL CDatabase::OpenEx(const CString& connect) {
    Close();
    std::lock_guard<std::mutex> lock(ConfigurationLock());
    SQLHENV env = SQL_NULL_HENV;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env)))
        throw CDBException(SQL_ERROR, L"Cannot allocate an ODBC environment\n");
    m_hEnv = env;
    SQLRETURN rc = SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLHDBC dbc = SQL_NULL_HDBC;
    if (SQL_SUCCEEDED(rc))
        rc = SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
    if (!SQL_SUCCEEDED(rc)) {
        CDBException error = CDBException::FromDiagnostics(rc, SQL_HANDLE_ENV, env);
        Close();
        throw error;
    }
    std::string text = tpnf::ToUtf8(connect);
    rc = SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS, nullptr, 0, nullptr,
                          SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(rc)) {
        CDBException error = CDBException::FromDiagnostics(rc, SQL_HANDLE_DBC, dbc);
        SQLFreeHandle(SQL_HANDLE_DBC, dbc);
        Close();
        throw error;
    }
    m_hDbc = dbc;

    SQLUSMALLINT txn = SQL_TC_NONE;
    rc = SQLGetInfo(dbc, SQL_TXN_CAPABLE, &txn, sizeof txn, nullptr);
    m_bCanTransact = SQL_SUCCEEDED(rc) && txn != SQL_TC_NONE;
    char readOnly[8] = "";
    rc = SQLGetInfo(dbc, SQL_DATA_SOURCE_READ_ONLY, readOnly, sizeof readOnly, nullptr);
    m_bCanUpdate = !SQL_SUCCEEDED(rc) || readOnly[0] != 'Y';

    char dbms[64] = "";
    char version[64] = "";
    if (SQL_SUCCEEDED(SQLGetInfo(dbc, SQL_DBMS_NAME, dbms, sizeof dbms, nullptr)))
        m_strDBMSName = tpnf::FromUtf8(dbms);
    if (SQL_SUCCEEDED(SQLGetInfo(dbc, SQL_DBMS_VER, version, sizeof version, nullptr)))
        m_nDBMSVersion = std::atoi(version);
    return TRUE;
}

void CDatabase::OpenCopyConnection(const CString& connect) {
    if (!IsOpen())
        throw CDBException(CDBException::errorNotOpen, L"The database is not open\n");
    if (m_strDBMSName != L"PostgreSQL")
        throw CDBException(SQL_ERROR,
                           L"COPY needs a PostgreSQL data source; this one is " + m_strDBMSName + L"\n");
    if (m_copy)
        return; // the recordsets' inserters hold it
    std::string info;
    {
        std::lock_guard<std::mutex> lock(ConfigurationLock());
        info = CCopyConnection::ConnInfo(tpnf::ToUtf8(connect), DataSourceValue);
    }
    m_copy = std::make_unique<CCopyConnection>(info);
}

void CDatabase::Close() {
    for (CODBCRecordset* recordset : m_Recordsets)
        recordset->Abandon();
    m_Recordsets.clear();
    ForgetWrite(); // what is not committed goes
    m_copy.reset();

    if (m_hDbc != nullptr) {
        // A disconnect with a transaction open fails on some drivers; what is not committed goes.
        SQLEndTran(SQL_HANDLE_DBC, m_hDbc, SQL_ROLLBACK);
        SQLDisconnect(m_hDbc);
        SQLFreeHandle(SQL_HANDLE_DBC, m_hDbc);
        m_hDbc = nullptr;
    }
    if (m_hEnv != nullptr) {
        SQLFreeHandle(SQL_HANDLE_ENV, m_hEnv);
        m_hEnv = nullptr;
    }
    m_bCanTransact = FALSE;
    m_bCanUpdate = FALSE;
    m_bExplicitTrans = false; // the disconnect ended it
    m_strDBMSName.clear();
    m_nDBMSVersion = 0;
    m_sqlite.reset();
}

BOOL CDatabase::BeginTrans() {
    if (!IsOpen())
        throw CDBException(CDBException::errorNotOpen, L"The database is not open\n");
    if (!m_bCanTransact)
        return FALSE;
    FlushRecordsets(); // rows added before belong in front of the transaction
    SQLRETURN rc = SQLSetConnectAttr(m_hDbc, SQL_ATTR_AUTOCOMMIT,
                                     reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), SQL_IS_UINTEGER);
    if (!SQL_SUCCEEDED(rc))
        ThrowError(rc);
    return TRUE;
}

BOOL CDatabase::BeginWriteTrans() {
    if (!IsOpen())
        throw CDBException(CDBException::errorNotOpen, L"The database is not open\n");
    if (!m_bCanTransact)
        return FALSE;
    if (m_strDBMSName != L"SQLite")
        return BeginTrans();
    // The SQLite driver begins its own transactions deferred; this one is begun by hand, with the
    // driver left in autocommit so that it issues no BEGIN or COMMIT of its own.
    ExecuteSQL(L"BEGIN IMMEDIATE");
    m_bExplicitTrans = true;
    return TRUE;
}

// Unlike Rollback, a failed commit throws: the caller must learn that its rows are not stored.
BOOL CDatabase::CommitTrans() {
    if (!IsOpen())
        throw CDBException(CDBException::errorNotOpen, L"The database is not open\n");
    if (m_bExplicitTrans) {
        ExecuteSQL(L"COMMIT"); // writes what is buffered first
        m_bExplicitTrans = false;
        return TRUE;
    }
    FlushRecordsets();
    SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, m_hDbc, SQL_COMMIT);
    if (!SQL_SUCCEEDED(rc))
        ThrowError(rc);
    rc = SQLSetConnectAttr(m_hDbc, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON),
                           SQL_IS_UINTEGER);
    if (!SQL_SUCCEEDED(rc))
        ThrowError(rc);
    // After this connection's commit: a failure now leaves what it locked or advanced (a record id)
    // ahead of the rows, never rows behind it.
    if (m_copy)
        m_copy->Commit();
    return TRUE;
}

BOOL CDatabase::Rollback() {
    if (!IsOpen())
        return FALSE;
    ForgetWrite(); // the rolled-back rows need no report
    for (CODBCRecordset* recordset : m_Recordsets)
        recordset->DiscardPending();
    if (m_bExplicitTrans) {
        m_bExplicitTrans = false;
        try {
            ExecuteSQL(L"ROLLBACK");
        } catch (const CDBException&) {
            return FALSE;
        }
        return TRUE;
    }
    SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, m_hDbc, SQL_ROLLBACK);
    SQLRETURN autocommit = SQLSetConnectAttr(
        m_hDbc, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), SQL_IS_UINTEGER);
    const bool copyRolledBack = !m_copy || m_copy->Rollback();
    return SQL_SUCCEEDED(rc) && SQL_SUCCEEDED(autocommit) && copyRolledBack;
}

void CDatabase::ExecuteSQL(const CString& sql) {
    FlushRecordsets();
    SQLHSTMT stmt = AllocStatement();
    std::string text = tpnf::ToUtf8(sql);
    SQLRETURN rc = SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS);
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA) { // NO_DATA: a searched UPDATE or DELETE hit no row
        CDBException error = CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        throw error;
    }
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
}

void* CDatabase::AllocStatement() {
    if (!IsOpen())
        throw CDBException(CDBException::errorNotOpen, L"The database is not open\n");
    FinishWrite();
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    SQLRETURN rc = SQLAllocHandle(SQL_HANDLE_STMT, m_hDbc, &stmt);
    if (!SQL_SUCCEEDED(rc))
        ThrowError(rc);
    return stmt;
}

void CDatabase::FlushRecordsets() {
    for (CODBCRecordset* recordset : m_Recordsets)
        recordset->Flush();
    ThrowWriteFailure();
}

void CDatabase::StartWrite(std::function<void()> write) {
    FinishWrite();
    try {
        m_write = std::async(std::launch::async, write);
    } catch (const std::system_error&) {
        write(); // no thread to be had: write here and now
    }
}

void CDatabase::FinishWrite() {
    if (!m_write.valid())
        return;
    try {
        m_write.get();
    } catch (...) {
        if (!m_writeFailure) // the first failure is the one to report
            m_writeFailure = std::current_exception();
    }
}

void CDatabase::ForgetWrite() {
    FinishWrite();
    m_writeFailure = nullptr;
}

void CDatabase::ThrowWriteFailure() {
    FinishWrite();
    if (m_writeFailure)
        std::rethrow_exception(std::exchange(m_writeFailure, nullptr));
}

void CDatabase::Attach(CODBCRecordset* recordset) {
    m_Recordsets.push_back(recordset);
}

void CDatabase::Detach(CODBCRecordset* recordset) {
    m_Recordsets.erase(std::remove(m_Recordsets.begin(), m_Recordsets.end(), recordset), m_Recordsets.end());
}

void CDatabase::ThrowError(int retCode) const {
    throw CDBException::FromDiagnostics(retCode, SQL_HANDLE_DBC, m_hDbc);
}
