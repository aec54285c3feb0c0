#include "V9Store.h"

#include <chrono>
#include <vector>

#include "Console.h"
#include "corelib/DBException.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowPacketV9.h"
#include "session/Messages.h"
#include "session/NetFlowDatabase.h"
#include "util/TextConvert.h"

namespace {

// The records a packet writes as rows; 0 for the kinds whose PrepareSQL writes nothing.
uint64_t RowsOf(const CTPAbstractPacket& packet) {
    if (dynamic_cast<const CNetFlowPacketV9*>(&packet) != nullptr ||
        dynamic_cast<const CIPFIXPacket*>(&packet) != nullptr)
        return static_cast<uint64_t>(packet.GetSize());
    return 0;
}

// Driver texts span lines and end with a line break; a message stays one line.
std::string OneLine(const CString& text) {
    std::string line;
    for (char c : tpnf::ToUtf8(text)) {
        const bool space = c == '\n' || c == '\r' || c == '\t' || c == ' ';
        if (!space)
            line += c;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

} // namespace

LRESULT CV9Store::CWriterWindow::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NETFLOW_DB_OPENED)
        m_open = EOpen::Opened;
    else if (message == WM_NETFLOW_DB_OPEN_FAILED)
        m_open = EOpen::Failed;
    return CNetFlowSession::WindowProc(message, wParam, lParam);
}

CV9Store::CV9Store(const CString& dsn, uint64_t maxQueue, std::filesystem::path spillDir, CConsole& console,
                   asio::io_context& controlLoop)
    : CStore("database", "database", maxQueue, std::move(spillDir), console), m_strDSN(dsn) {
    m_window.CreateEx(controlLoop, L"NetFlowSessionWnd");
}

CV9Store::~CV9Store() {
    // Finish ended the writer; a writer still running here would report to a window that is gone.
    if (m_pWriter != nullptr)
        EndWriter();
}

void CV9Store::Start() {
    StartWriter();
}

void CV9Store::StartWriter() {
    m_window.m_open = CWriterWindow::EOpen::Pending;
    CNetFlowDatabase* pWriter = CNetFlowDatabase::BeginThread();
    pWriter->m_pSession = &m_window;
    pWriter->m_strDSN = m_strDSN;
    pWriter->SetSharedRecordIds(m_bSharedRecordIds ? TRUE : FALSE);
    pWriter->SetBulkCopy(m_bBulkCopy ? TRUE : FALSE);
    pWriter->SetWriteObserver([this](double seconds, int) { ObserveWrite(seconds); });
    {
        std::lock_guard<std::mutex> lock(m_lock);
        m_pWriter = pWriter;
        m_nHanded = 0;
    }
    m_writerExit = pWriter->m_hThread;
    m_state = EState::Opening;
    pWriter->PostThreadMessage(WM_NETFLOW_DB_OPEN, 0, 0);
}

void CV9Store::EndWriter() {
    CNetFlowDatabase* pWriter;
    {
        std::lock_guard<std::mutex> lock(m_lock);
        pWriter = m_pWriter;
        m_pWriter = nullptr;
        m_nHanded = 0;
    }
    if (pWriter != nullptr)
        pWriter->PostThreadMessage(WM_NETFLOW_DB_QUIT, 0, 0); // it deletes itself after its goodbye
}

bool CV9Store::WriterGone() const {
    return !m_writerExit.valid() ||
           m_writerExit.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

// A failure between a write's commit and the storing of the advanced id leaves the id row behind the
// rows; the ids then continue after the highest stored one, so that what waited does not collide with
// what was stored. Any failure here is met again by the writer, which reports it.
void CV9Store::RepairRecordId() {
    try {
        CDatabase database;
        database.OpenEx(L"DSN=" + m_strDSN);
        CODBCRecordset highest(&database);
        highest.Open(L"select max(record_id) as v from netflow_records");
        if (highest.HasRows() && !highest.Field(L"v").IsNull()) {
            const int64_t next = highest.Field(L"v").AsBigInt() + 1;
            highest.Close();
            CODBCRecordset stored(&database);
            stored.Open(L"select record_id from netflow_record_id");
            if (stored.HasRows() && stored.Field(L"record_id").AsBigInt() < next) {
                stored.Close();
                database.ExecuteSQL(L"update netflow_record_id set record_id = " + std::to_wstring(next));
                m_console.Message("record ids continue from " + std::to_string(next) +
                                  ", after the highest stored one");
            }
        }
        database.Close();
    } catch (const CDBException&) {
    }
}

void CV9Store::HandAll() {
    std::lock_guard<std::mutex> lock(m_lock);
    for (size_t i = m_nHanded; i < m_queue.size(); ++i)
        m_pWriter->AddPacket(m_queue[i].packet.get());
    m_nHanded = m_queue.size();
    m_state = EState::Healthy;
}

bool CV9Store::Collect(CString& error) {
    std::vector<Entry> stored;
    bool healthy;
    {
        std::lock_guard<std::mutex> lock(m_lock);
        if (m_pWriter == nullptr)
            return true;
        const size_t queued = m_pWriter->GetQueuedCount();
        const size_t done = queued < m_nHanded ? m_nHanded - queued : 0;
        for (size_t i = 0; i < done; ++i) {
            stored.push_back(std::move(m_queue.front()));
            m_queue.pop_front();
        }
        m_nHanded -= done;
        std::lock_guard<std::recursive_mutex> writerLock(m_pWriter->m_Lock);
        healthy = m_pWriter->m_bStatusOK != FALSE;
        if (!healthy)
            error = m_pWriter->m_strLastError;
    }
    uint64_t records = 0;
    for (const Entry& entry : stored)
        records += entry.records;
    CountStored(stored.size(), records);
    return healthy;
}

void CV9Store::Offer(std::unique_ptr<CTPAbstractPacket>& packet, const CReceivedDatagram& datagram) {
    const uint64_t records = RowsOf(*packet);
    if (records == 0) {
        m_nStoredPackets.fetch_add(1); // nothing to write: stored as it is
        return;
    }
    if (!Admit(records)) {
        Spill(*packet, datagram);
        return;
    }
    std::lock_guard<std::mutex> lock(m_lock);
    Entry& entry =
        m_queue.emplace_back(Entry{std::move(packet), datagram.bytes, datagram.timeReceived, records});
    if (m_pWriter != nullptr && m_state == EState::Healthy) {
        m_pWriter->AddPacket(entry.packet.get());
        ++m_nHanded;
    }
}

bool CV9Store::Supervise() {
    switch (m_state.load()) {
    case EState::Opening:
        if (m_window.m_open == CWriterWindow::EOpen::Opened) {
            // Shared ids are advanced inside each write's transaction, so they are never behind the rows;
            // and another collector may be writing.
            if (m_bEverOpened && !m_bSharedRecordIds)
                RepairRecordId();
            m_bEverOpened = true;
            HandAll();
            Recovered();
        } else if (m_window.m_open == CWriterWindow::EOpen::Failed) {
            CString error;
            {
                std::lock_guard<std::recursive_mutex> writerLock(m_pWriter->m_Lock);
                error = m_pWriter->m_strLastError;
            }
            EndWriter();
            if (!m_bEverOpened) {
                m_state = EState::Finished;
                m_strFatal = OneLine(error);
                return false;
            }
            Failed(OneLine(error));
        }
        break;
    case EState::Healthy: {
        CString error;
        if (!Collect(error)) {
            EndWriter();
            Failed(OneLine(error));
            break;
        }
        std::lock_guard<std::mutex> lock(m_lock);
        if (m_nHanded > 0)
            m_pWriter->PostThreadMessage(WM_NETFLOW_DB_WRITE, 0, 0);
        break;
    }
    case EState::Failed:
        if (RetryDue() && WriterGone()) {
            m_nRetries.fetch_add(1);
            StartWriter();
        }
        break;
    case EState::Finished:
        break;
    }
    return true;
}

bool CV9Store::Finish() {
    if (!m_bFinishing) {
        m_bFinishing = true;
        if (m_state == EState::Failed)
            RetryNow(); // one more attempt at once rather than after the backoff
    }
    const EState before = m_state;
    if (before != EState::Finished && !Supervise())
        SpillRest();
    const EState now = m_state;
    if (now == EState::Healthy) {
        bool empty;
        {
            std::lock_guard<std::mutex> lock(m_lock);
            empty = m_queue.empty();
        }
        if (empty) {
            EndWriter();
            m_state = EState::Finished;
        }
    } else if (now == EState::Failed && before != EState::Failed) {
        if (m_bRetriedAtFinish) {
            SpillRest();
        } else {
            m_bRetriedAtFinish = true;
            RetryNow();
        }
    }
    if (m_state == EState::Finished)
        SpillRest(); // what arrived after a failed first open, too
    return m_state == EState::Finished && WriterGone();
}

void CV9Store::SpillRest() {
    std::deque<Entry> rest;
    {
        std::lock_guard<std::mutex> lock(m_lock);
        rest.swap(m_queue);
        m_nHanded = 0;
    }
    for (const Entry& entry : rest)
        SpillAtEnd(entry.datagram, entry.packet->GetSenderIPAddress(), entry.packet->GetSenderPort(),
                   entry.timeReceived, entry.records);
    m_state = EState::Finished;
}
