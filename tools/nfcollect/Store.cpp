#include "Store.h"

#include <algorithm>

#include "Console.h"
#include "util/TextConvert.h"

namespace {

constexpr std::chrono::seconds kLongestBackoff(30);

} // namespace

CStore::CStore(std::string name, std::string title, uint64_t maxQueue, std::filesystem::path spillDir,
               CConsole& console)
    : m_strName(std::move(name)), m_strTitle(std::move(title)), m_nMaxQueue(maxQueue), m_console(console),
      m_spill(std::move(spillDir)) {}

CStore::Snapshot CStore::GetSnapshot() const {
    Snapshot s;
    s.state = m_state.load();
    s.storedPackets = m_nStoredPackets.load();
    s.waitingPackets = m_nWaitingPackets.load();
    s.storedRecords = m_nStoredRecords.load();
    s.waitingRecords = m_nWaitingRecords.load();
    s.spilled = m_nSpilled.load();
    s.spillErrors = m_nSpillErrors.load();
    s.retries = m_nRetries.load();
    std::lock_guard<std::mutex> lock(m_errorLock);
    s.lastError = m_strLastError;
    if (s.state == EState::Failed)
        s.secondsToRetry = std::max(0.0, std::chrono::duration<double>(m_retryAt - Clock::now()).count());
    return s;
}

bool CStore::Admit(uint64_t records) {
    uint64_t waiting = m_nWaitingRecords.load(std::memory_order_relaxed);
    do {
        // A packet larger than the whole queue still goes in when the queue is empty.
        if (waiting > 0 && waiting + records > m_nMaxQueue)
            return false;
    } while (!m_nWaitingRecords.compare_exchange_weak(waiting, waiting + records));
    m_nWaitingPackets.fetch_add(1);
    return true;
}

void CStore::Spill(const CTPAbstractPacket& packet, const CReceivedDatagram& datagram) {
    if (!WriteSpill(datagram.bytes, packet.GetSenderIPAddress(), packet.GetSenderPort(),
                    datagram.timeReceived))
        return;
    if (!m_bSpillAnnounced.exchange(true))
        m_console.Message("the " + m_strTitle + " store cannot take more (" + std::to_string(m_nMaxQueue) +
                          " records waiting, --max-queue): datagrams go to " + m_spill.GetPath().string() +
                          " instead; store them later by replaying that directory into a collector "
                          "with the same storage options (nfreplay " +
                          m_spill.GetPath().string() + " --port <its port>)");
}

void CStore::SpillAtEnd(const CByteArray& bytes, const CString& exporter, int port, int64_t timeReceived,
                        uint64_t records) {
    WriteSpill(bytes, exporter, port, timeReceived);
    CountGone(1, records);
    ++m_nUnstoredAtEnd;
}

bool CStore::WriteSpill(const CByteArray& bytes, const CString& exporter, int port, int64_t timeReceived) {
    std::string error;
    if (!m_spill.Write(bytes, tpnf::ToUtf8(exporter), static_cast<unsigned>(port), timeReceived, error)) {
        if (m_nSpillErrors.fetch_add(1) == 0)
            m_console.Message("cannot spill a datagram of the " + m_strTitle + " store: " + error +
                              " (the datagram is lost; later failures are counted)");
        return false;
    }
    m_nSpilled.fetch_add(1);
    return true;
}

void CStore::Failed(const std::string& error) {
    {
        std::lock_guard<std::mutex> lock(m_errorLock);
        m_strLastError = error;
        m_retryAt = Clock::now() + m_backoff;
    }
    m_console.Message(m_strTitle + " error: " + error + "; " + std::to_string(m_nWaitingRecords.load()) +
                      " records wait, next attempt in " + std::to_string(m_backoff.count()) + " s");
    m_backoff = std::min(m_backoff * 2, kLongestBackoff);
    m_state = EState::Failed;
}

void CStore::Recovered() {
    if (m_nRetries.load() > 0)
        m_console.Message(m_strTitle + " available again; storing the " +
                          std::to_string(m_nWaitingRecords.load()) + " records that waited");
    m_backoff = std::chrono::seconds(1);
    m_state = EState::Healthy;
}

void CStore::CountStored(uint64_t packets, uint64_t records) {
    m_nStoredPackets.fetch_add(packets);
    m_nStoredRecords.fetch_add(records);
    CountGone(packets, records);
}

void CStore::CountGone(uint64_t packets, uint64_t records) {
    m_nWaitingPackets.fetch_sub(packets);
    m_nWaitingRecords.fetch_sub(records);
}
