#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "Store.h"
#include "flows/FlowRecord.h"

// The flows table (one row per flow of every protocol), written by a thread of this store's own in large
// batches, one transaction each. Each datagram's flows stay together with the datagram itself until they
// are written, so that a batch always holds whole datagrams: what could not be written at the end is
// spilled as those datagrams, and nothing is stored twice when they are replayed.
class CFlowStore : public CStore {
public:
    CFlowStore(const CString& dsn, uint64_t maxQueue, std::filesystem::path spillDir, CConsole& console);
    ~CFlowStore() override;

    std::string Progress(const Snapshot& snapshot) const override {
        return std::to_string(snapshot.storedRecords) + " flows stored, " +
               std::to_string(snapshot.waitingRecords) + " flows waiting for the flows table";
    }
    std::string Unstored(uint64_t count) const override {
        return "the flows of " + std::to_string(count) + " datagrams were not stored";
    }
    void Start() override;
    bool Supervise() override;
    bool Finish() override;

    // Worker threads: queues a packet's flows, or spills its datagram when the queue is full.
    void Offer(const CTPAbstractPacket& packet, const std::vector<CFlowRecord>& flows,
               const CReceivedDatagram& datagram);

private:
    struct Entry {
        std::vector<CFlowRecord> flows;
        CByteArray datagram;
        CString exporter;
        int port;
        int64_t timeReceived;
    };

    void Run();

    const CString m_strDSN;
    std::thread m_thread;

    std::mutex m_lock;
    std::condition_variable m_ready;
    std::deque<Entry> m_queue;
    bool m_bFinishing = false; // the workers are done: write what is left, then end
    std::atomic<bool> m_bFatal{false};
    std::atomic<bool> m_bDone{false};

    // The writer thread's own.
    std::vector<CFlowRecord> m_batchFlows;
};
