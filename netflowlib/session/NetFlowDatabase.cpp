#include "session/NetFlowDatabase.h"

#include <chrono>

#include <sql.h>
#include <sqlext.h>

#include <thread>

#include "corelib/DBException.h"
#include "corelib/ODBCRecordset.h"
#include "corelib/TypeInfo.h"
#include "session/NetFlowSession.h"
#include "util/Format.h"

CNetFlowDatabase* CNetFlowDatabase::BeginThread() {
    CNetFlowDatabase* pThread = new CNetFlowDatabase;
    std::promise<int> finished;
    pThread->m_hThread = finished.get_future().share();
    std::thread([pThread, finished = std::move(finished)]() mutable {
        finished.set_value_at_thread_exit(pThread->Run());
    }).detach();
    return pThread;
}

int CNetFlowDatabase::Run() {
    int exitCode = 0;
    if (InitInstance()) {
        while (!m_bEnding) {
            MSG msg = GetMessage();
            PreTranslateMessage(&msg);
        }
        exitCode = m_nExitCode;
    }
    delete this;
    return exitCode;
}

MSG CNetFlowDatabase::GetMessage() {
    std::unique_lock<std::mutex> lock(m_queueLock);
    m_queueReady.wait(lock, [this] { return !m_queue.empty(); });
    MSG msg = m_queue.front();
    m_queue.pop_front();
    return msg;
}

BOOL CNetFlowDatabase::PostThreadMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    {
        std::lock_guard<std::mutex> lock(m_queueLock);
        m_queue.push_back(MSG{message, wParam, lParam});
    }
    m_queueReady.notify_one();
    return TRUE;
}

BOOL CNetFlowDatabase::InitInstance() {
    return TRUE;
}

void CNetFlowDatabase::EndThread(int exitCode) {
    m_nExitCode = exitCode;
    m_bEnding = true;
}

BOOL CNetFlowDatabase::PreTranslateMessage(MSG* pMsg) {
    switch (pMsg->message) {
    case WM_NETFLOW_DB_QUIT:
        // Synchronous: the session's loop runs it before this thread goes.
        m_pSession->SendMessage(WM_NETFLOW_DB_EXITING);
        EndThread(1);
        return TRUE;
    case WM_NETFLOW_DB_OPEN:
        m_pSession->SendMessage(OpenDatabase() == 1 ? WM_NETFLOW_DB_OPENED : WM_NETFLOW_DB_OPEN_FAILED);
        break;
    case WM_NETFLOW_DB_WRITE:
        WritePackets();
        break;
    default:
        break;
    }
    return FALSE; // no window of this thread translates messages
}

void CNetFlowDatabase::AddPacket(CTPAbstractPacket* pPacket) {
    std::lock_guard<std::mutex> lock(m_IntakeLock);
    m_Packets.push_back(pPacket);
}

size_t CNetFlowDatabase::GetQueuedCount() {
    std::lock_guard<std::mutex> lock(m_IntakeLock);
    return m_Packets.size() + m_nWriting;
}

BOOL CNetFlowDatabase::PeekStatus(CString& lastError) {
    std::lock_guard<std::mutex> lock(m_IntakeLock);
    lastError = m_strPublishedError;
    return m_bPublishedOK;
}

void CNetFlowDatabase::PublishStatus() {
    std::lock_guard<std::mutex> lock(m_IntakeLock);
    m_bPublishedOK = m_bStatusOK;
    m_strPublishedError = m_strLastError;
}

void CNetFlowDatabase::SetSharedRecordIds(BOOL bShared) {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    m_bSharedRecordIds = bShared;
}

namespace {

const wchar_t* const RECORDS_TABLE = L"netflow_records";
const wchar_t* const ATTRIBUTES_TABLE = L"netflow_attributes";
const wchar_t* const RECORD_ID_TABLE = L"netflow_record_id";
const wchar_t* const RECORD_ID = L"record_id";

CString SelectAll(const wchar_t* table) {
    return CString(L"select * from ") + table;
}

// Closing after a failure must not throw again; what it would still write is rolled back anyway.
void CloseQuietly(CODBCRecordset& recordset) {
    try {
        recordset.Close();
    } catch (const CDBException&) {
    }
}

} // namespace

int CNetFlowDatabase::OpenDatabase() {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    const int result = Connect();
    PublishStatus();
    return result;
}

int CNetFlowDatabase::Connect() {
    try {
        if (m_Database.IsOpen())
            m_Database.Close();
        m_Database.OpenEx(L"DSN=" + m_strDSN); // never prompts
        if (m_bBulkCopy)
            m_Database.OpenCopyConnection(L"DSN=" + m_strDSN);
        if (!CreateTables())
            return 0;
        m_bStatusOK = TRUE;
        return 1;
    } catch (const CDBException& e) {
        m_strLastError = e.m_strError;
    } catch (const std::exception&) {
        m_strLastError = L"Failed to open database";
    }
    m_bStatusOK = FALSE;
    if (m_Database.IsOpen())
        m_Database.Close();
    return 0;
}

int CNetFlowDatabase::CreateTables() {
    if (!m_Database.IsOpen())
        return 0;
    const BOOL canTransact = m_Database.CanTransact();
    try {
        const CString integer = CTypeInfo::GetSQLType(&m_Database, SQL_INTEGER);
        const CString text = CTypeInfo::GetSQLType(&m_Database, SQL_WVARCHAR);
        const CString records =
            tpnf::FormatText(L"create table %s (%s %s NOT NULL PRIMARY KEY, %s %s, %s %s, %s %s, %s %s)",
                             RECORDS_TABLE, RECORD_ID, integer, L"record_ip_addr", text, L"record_ip_port",
                             integer, L"record_time", integer, L"record_version", integer);
        const CString attributes =
            tpnf::FormatText(L"create table %s (%s %s NOT NULL, %s %s, %s %s)", ATTRIBUTES_TABLE, RECORD_ID,
                             integer, L"attr_id", integer, L"attr_value", text);
        const CString recordId = tpnf::FormatText(L"create table %s (%s %s NOT NULL PRIMARY KEY)",
                                                  RECORD_ID_TABLE, RECORD_ID, integer);
        if (canTransact)
            m_Database.BeginTrans();
        m_Database.ExecuteSQL(records);
        m_Database.ExecuteSQL(attributes);
        m_Database.ExecuteSQL(recordId);
        if (canTransact)
            m_Database.CommitTrans();
        m_bStatusOK = TRUE;
        return 1;
    } catch (const CDBException& e) {
        m_strLastError = e.m_strError;
        // Creating a table that exists fails with SQL_ERROR: an existing schema counts as success, intended.
        if (e.m_nRetCode != SQL_ERROR)
            m_bStatusOK = FALSE;
    } catch (const std::exception&) {
        m_strLastError = L"Failed to create table";
        m_bStatusOK = FALSE;
    }
    if (canTransact)
        m_Database.Rollback();
    return m_bStatusOK;
}

int CNetFlowDatabase::AccessRecordId(int newId) {
    if (!m_Database.IsOpen())
        return -1;
    const BOOL canTransact = m_Database.CanTransact();
    CODBCRecordset recordset(&m_Database);
    try {
        if (canTransact)
            m_Database.BeginTrans();
        recordset.Open(SelectAll(RECORD_ID_TABLE));
        int result;
        if (recordset.HasRows()) {
            // Every row is visited: with several rows all take newId and the last one's value is returned.
            result = -1;
            while (!recordset.IsEOF()) {
                result = recordset.GetLong(RECORD_ID);
                if (newId != -1) {
                    result = newId;
                    recordset.Edit();
                    recordset.Field(RECORD_ID) = newId;
                    recordset.Update();
                }
                recordset.MoveNext();
            }
        } else {
            if (!recordset.CanAppend())
                return -1; // the transaction begun above stays open: intended
            recordset.AddNew();
            recordset.Field(RECORD_ID) = 0; // whatever newId was: intended
            recordset.Update();
            result = 0;
        }
        recordset.Close();
        if (canTransact)
            m_Database.CommitTrans();
        return result;
    } catch (const CDBException& e) {
        m_strLastError = e.m_strError;
    } catch (const std::exception&) {
        m_strLastError = L"Failed to execute query";
    }
    m_bStatusOK = FALSE;
    CloseQuietly(recordset);
    if (canTransact)
        m_Database.Rollback();
    return 0; // taken as an id by WritePackets: intended
}

int CNetFlowDatabase::WritePackets() {
    std::lock_guard<std::recursive_mutex> lock(m_Lock);
    if (!m_Database.IsOpen() || !m_bStatusOK)
        return 0;
    {
        std::lock_guard<std::mutex> intake(m_IntakeLock);
        if (m_Packets.empty())
            return 1;
        m_Batch.swap(m_Packets); // the emptied batch storage takes the next packets
        m_nWriting = m_Batch.size();
    }
    const auto started = std::chrono::steady_clock::now();
    const int result = WriteBatch(m_Batch);
    if (m_writeObserver)
        m_writeObserver(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(),
                        result);
    {
        std::lock_guard<std::mutex> intake(m_IntakeLock);
        if (result == 0) // kept, in front of what arrived meanwhile
            m_Packets.insert(m_Packets.begin(), m_Batch.begin(), m_Batch.end());
        m_Batch.clear();
        m_nWriting = 0;
        m_bPublishedOK = m_bStatusOK;
        m_strPublishedError = m_strLastError;
    }
    return result;
}

// The default ids: read in a transaction of their own before the rows and stored in another after them.
// Shared ids: read, locked and advanced inside the rows' transaction.
int CNetFlowDatabase::WriteBatch(const PacketArray& batch) {
    const bool shared = m_bSharedRecordIds;
    const BOOL canTransact = m_Database.CanTransact();
    int recordId = -1;
    if (shared && !canTransact) {
        m_strLastError = L"Shared record ids need a data source with transactions";
        m_bStatusOK = FALSE;
        return 0;
    }
    if (!shared) {
        recordId = AccessRecordId(-1);
        if (recordId == -1)
            return 0;
    }
    CODBCRecordset records(&m_Database);
    CODBCRecordset attributes(&m_Database);
    try {
        if (shared)
            recordId = TakeSharedRecordId();
        else if (canTransact)
            m_Database.BeginTrans();
        records.Open(SelectAll(RECORDS_TABLE));
        attributes.Open(SelectAll(ATTRIBUTES_TABLE));
        if (!records.CanAppend() || !attributes.CanAppend()) {
            m_strLastError = L"Failed to write to the database";
            m_bStatusOK = FALSE;
            records.Close();
            attributes.Close();
            if (canTransact)
                m_Database.Rollback();
            return 0;
        }
        for (CTPAbstractPacket* packet : batch)
            packet->PrepareSQL(recordId, records, attributes);
        records.Close();
        attributes.Close();
        if (shared)
            m_Database.ExecuteSQL(
                tpnf::FormatText(L"update %s set %s = %d", RECORD_ID_TABLE, RECORD_ID, recordId));
        if (canTransact)
            m_Database.CommitTrans();
        if (!shared)
            AccessRecordId(recordId);
        m_bStatusOK = TRUE;
        return 1;
    } catch (const CDBException& e) {
        m_strLastError = e.m_strError;
    } catch (const std::exception&) {
        m_strLastError = L"Failed to execute query";
    }
    m_bStatusOK = FALSE;
    CloseQuietly(records);
    CloseQuietly(attributes);
    if (canTransact)
        m_Database.Rollback();
    return 0;
}

int CNetFlowDatabase::LockRecordId() {
    m_Database.BeginWriteTrans();
    // SQLite's immediate transaction already keeps every other writer out; elsewhere the rows are locked.
    const CString lockRows = m_Database.GetDBMSName() == L"SQLite" ? L"" : L" for update";
    CODBCRecordset ids(&m_Database);
    ids.Open(tpnf::FormatText(L"select %s from %s", RECORD_ID, RECORD_ID_TABLE) + lockRows);
    int recordId = -1;
    for (; !ids.IsEOF(); ids.MoveNext())
        recordId = ids.GetLong(RECORD_ID); // with several rows the last one counts, as in AccessRecordId
    ids.Close();
    return recordId;
}

int CNetFlowDatabase::TakeSharedRecordId() {
    int recordId = LockRecordId();
    if (recordId != -1)
        return recordId;
    // A fresh database: the id row is made apart, so that writers starting together do not fail on its
    // key; whoever is first makes it.
    m_Database.Rollback();
    try {
        m_Database.ExecuteSQL(
            tpnf::FormatText(L"insert into %s (%s) values (0)", RECORD_ID_TABLE, RECORD_ID));
    } catch (const CDBException&) {
    }
    recordId = LockRecordId();
    if (recordId == -1)
        throw CDBException(CDBException::errorNoCurrentRecord, L"No record id row\n");
    return recordId;
}
