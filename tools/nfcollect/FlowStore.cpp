#include "FlowStore.h"

#include <chrono>

#include "Console.h"
#include "corelib/DBException.h"
#include "corelib/Database.h"
#include "flows/FlowTable.h"
#include "util/TextConvert.h"

namespace {

// A batch waits this long for more flows unless it is full already: large transactions are cheaper.
constexpr std::chrono::milliseconds kLinger(100);
constexpr size_t kBatchFlows = 50000;

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

CFlowStore::CFlowStore(const CString& dsn, uint64_t maxQueue, std::filesystem::path spillDir,
                       CConsole& console)
    : CStore("flows", "flows table", maxQueue, std::move(spillDir), console), m_strDSN(dsn) {}

CFlowStore::~CFlowStore() {
    {
        std::lock_guard<std::mutex> lock(m_lock);
        m_bFinishing = true;
    }
    m_ready.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void CFlowStore::Start() {
    m_thread = std::thread([this] { Run(); });
}

bool CFlowStore::Supervise() {
    return !m_bFatal.load();
}

bool CFlowStore::Finish() {
    {
        std::lock_guard<std::mutex> lock(m_lock);
        m_bFinishing = true;
    }
    m_ready.notify_all();
    if (!m_bDone.load())
        return false;
    if (m_thread.joinable())
        m_thread.join();
    return true;
}

void CFlowStore::Offer(const CTPAbstractPacket& packet, const std::vector<CFlowRecord>& flows,
                       const CReceivedDatagram& datagram) {
    if (flows.empty()) {
        m_nStoredPackets.fetch_add(1); // nothing to write: stored as it is
        return;
    }
    if (!Admit(flows.size())) {
        Spill(packet, datagram);
        return;
    }
    Entry entry{flows, datagram.bytes, packet.GetSenderIPAddress(), packet.GetSenderPort(),
                datagram.timeReceived};
    size_t waiting;
    bool first;
    {
        std::lock_guard<std::mutex> lock(m_lock);
        first = m_queue.empty();
        m_queue.push_back(std::move(entry));
        waiting = m_nWaitingRecords.load();
    }
    // The writer sleeps on an empty queue until its first entry; a full batch cuts its linger short.
    if (first || waiting >= kBatchFlows)
        m_ready.notify_one();
}

// The writer thread: connects (again after a failure, with the backoff), then writes what the workers
// queued, a batch of whole datagrams per transaction, until the collector finishes and the queue is empty.
void CFlowStore::Run() {
    CDatabase database;
    bool open = false;
    bool everOpened = false;
    bool retriedAtEnd = false;
    auto finishing = [this] {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_bFinishing;
    };
    // After a failure at the end: one more attempt at once, then what is left goes to the spill directory.
    auto failedAtEnd = [&] {
        if (!finishing())
            return false;
        if (retriedAtEnd)
            return true;
        retriedAtEnd = true;
        RetryNow();
        return false;
    };
    for (;;) {
        if (!open) {
            if (m_state == EState::Failed && !RetryDue()) {
                std::unique_lock<std::mutex> lock(m_lock);
                m_ready.wait_for(lock, kLinger, [this] { return m_bFinishing; });
                continue;
            }
            if (everOpened)
                m_nRetries.fetch_add(1);
            try {
                database.OpenEx(L"DSN=" + m_strDSN);
                if (m_bBulkCopy)
                    database.OpenCopyConnection(L"DSN=" + m_strDSN);
                CFlowTable(database).Create();
                open = true;
                everOpened = true;
                Recovered();
            } catch (const CDBException& e) {
                if (database.IsOpen())
                    database.Close();
                if (!everOpened) {
                    m_strFatal = OneLine(e.m_strError);
                    m_bFatal = true;
                    break;
                }
                Failed(OneLine(e.m_strError));
                if (failedAtEnd())
                    break;
                continue;
            }
        }

        std::deque<Entry> batch;
        {
            std::unique_lock<std::mutex> lock(m_lock);
            m_ready.wait(lock, [this] { return !m_queue.empty() || m_bFinishing; });
            if (m_queue.empty())
                break; // finishing, and everything is written
            if (!m_bFinishing && m_nWaitingRecords.load() < kBatchFlows)
                m_ready.wait_for(lock, kLinger,
                                 [this] { return m_bFinishing || m_nWaitingRecords.load() >= kBatchFlows; });
            size_t flows = 0;
            while (!m_queue.empty() &&
                   (batch.empty() || flows + m_queue.front().flows.size() <= kBatchFlows)) {
                flows += m_queue.front().flows.size();
                batch.push_back(std::move(m_queue.front()));
                m_queue.pop_front();
            }
        }

        m_batchFlows.clear();
        for (const Entry& entry : batch)
            m_batchFlows.insert(m_batchFlows.end(), entry.flows.begin(), entry.flows.end());
        const auto start = std::chrono::steady_clock::now();
        try {
            CFlowTable(database).Write(m_batchFlows);
            ObserveWrite(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            CountStored(batch.size(), m_batchFlows.size());
            continue;
        } catch (const CDBException& e) {
            {
                // Back to the front, before what came meanwhile: written whole with the next attempt.
                std::lock_guard<std::mutex> lock(m_lock);
                for (auto it = batch.rbegin(); it != batch.rend(); ++it)
                    m_queue.push_front(std::move(*it));
            }
            database.Close();
            open = false;
            Failed(OneLine(e.m_strError));
            if (failedAtEnd())
                break;
        }
    }
    if (database.IsOpen())
        database.Close();
    // What could not be written goes to the spill directory as the datagrams it came from.
    std::deque<Entry> rest;
    {
        std::unique_lock<std::mutex> lock(m_lock);
        // A failed first open ends the collector: the workers stop soon, and what they queued until then
        // is spilled too.
        m_ready.wait(lock, [this] { return m_bFinishing; });
        rest.swap(m_queue);
    }
    for (const Entry& entry : rest)
        SpillAtEnd(entry.datagram, entry.exporter, entry.port, entry.timeReceived, entry.flows.size());
    m_state = EState::Finished;
    m_bDone = true;
}
