#pragma once

#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "corelib/DBException.h"
#include "util/Types.h"

class CCopyConnection;
class CODBCRecordset;

// One ODBC connection. Every failing ODBC call raises CDBException, except Rollback, which is
// called from error handlers and reports failure by its result.
//
// Rows added through this connection's recordsets are buffered; they reach the database before any
// other statement runs on the connection (ExecuteSQL, a recordset read, CommitTrans) and when their
// recordset closes. Rollback and Close drop rows still buffered.
class CDatabase {
public:
    CDatabase();
    ~CDatabase();
    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;

    // Connects with an ODBC connect string such as "DSN=flows". The driver manager is never allowed
    // to prompt. An open connection is closed first. The completed connect string is not kept: a
    // driver may echo the password in it.
    BOOL OpenEx(const CString& connect);
    BOOL IsOpen() const { return m_hDbc != nullptr; }
    // Closes every recordset on the connection, rolls back an open transaction and disconnects.
    void Close();

    // PostgreSQL only: opens a second connection to the same server, through libpq, made from the data
    // source and attributes of connect (as given to OpenEx; see CCopyConnection::ConnInfo). From then on
    // the recordsets' rows go there with COPY, several times faster than the driver's INSERTs. Inside a
    // transaction they go into the second connection's own one, which commits right after this
    // connection's and rolls back with it; so until then this connection's statements do not see them.
    // Throws CDBException when the data source is not PostgreSQL or the connection fails. Close ends it.
    void OpenCopyConnection(const CString& connect);
    bool UsesCopy() const { return m_copy != nullptr; }

    BOOL CanTransact() const { return m_bCanTransact; }
    // FALSE when the data source says it is read-only.
    BOOL CanUpdate() const { return m_bCanUpdate; }
    // The database product as the driver names it ("SQLite", "PostgreSQL") and its major version.
    const CString& GetDBMSName() const { return m_strDBMSName; }
    int GetDBMSVersion() const { return m_nDBMSVersion; }

    BOOL BeginTrans();
    // Begins a transaction that keeps every other writer of the database waiting from its start, for a
    // read-modify-write across connections. SQLite: BEGIN IMMEDIATE, which waits up to the data
    // source's busy timeout for the write lock. Elsewhere an ordinary transaction: lock what you read
    // with "select ... for update". Ended by CommitTrans or Rollback like any other.
    BOOL BeginWriteTrans();
    BOOL CommitTrans();
    BOOL Rollback();

    void ExecuteSQL(const CString& sql);

private:
    friend class CODBCRecordset;
    friend class CRowInserter;
    friend class CTypeInfo;

    // Allocates a statement handle; throws when the connection is closed or allocation fails.
    void* AllocStatement();
    // Writes the rows buffered by this connection's recordsets, waits for the write in flight and
    // throws the failure of any write not yet reported.
    void FlushRecordsets();
    // A recordset's batch written on a second thread while the caller goes on buffering rows. The
    // connection runs one write at a time, and nothing else while it runs: every other use of the
    // connection waits for it first (FinishWrite).
    void StartWrite(std::function<void()> write);
    // Waits for the write in flight; its failure is kept for ThrowWriteFailure.
    void FinishWrite();
    // Waits, then throws the kept failure once.
    void ThrowWriteFailure();
    // Waits and drops the kept failure: for rollback and close.
    void ForgetWrite();
    void Attach(CODBCRecordset* recordset);
    void Detach(CODBCRecordset* recordset);
    [[noreturn]] void ThrowError(int retCode) const;

    void* m_hEnv = nullptr;
    void* m_hDbc = nullptr;
    BOOL m_bCanTransact = FALSE;
    BOOL m_bCanUpdate = FALSE;
    bool m_bExplicitTrans = false; // begun by a statement (autocommit stays on): ended by one too
    CString m_strDBMSName;
    int m_nDBMSVersion = 0;
    // SQLite's own connection under the driver's (null: not lent), once asked.
    std::optional<void*> m_sqlite;
    std::unique_ptr<CCopyConnection> m_copy;
    std::vector<CODBCRecordset*> m_Recordsets;
    std::future<void> m_write;
    std::exception_ptr m_writeFailure;
};
