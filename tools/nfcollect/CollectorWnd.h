#pragma once

#include <cstdint>
#include <map>

#include "Metrics.h"
#include "PacketPrinter.h"
#include "flows/FlowMaker.h"
#include "flows/SequenceTracker.h"
#include "session/NetFlowSession.h"
#include "session/Wnd.h"

class CConsole;
class CV9Store;
class CFlowStore;

// A worker's owner window: takes the packets on each WM_NETFLOW_PACKET, makes their flows when the output
// or a store needs them, prints them, counts them by protocol, hands them to the stores and counts
// WM_NETFLOW_ERROR. A packet a store keeps belongs to the
// store from then on; every other packet is deleted at once.
class CCollectorWnd : public CWnd {
public:
    CCollectorWnd(CNetFlowSession& session, OutputFormat format, CConsole& console, CV9Store* pV9Store,
                  CFlowStore* pFlowStore, CMetrics* pMetrics)
        : m_session(session), m_printer(format), m_console(console), m_pV9Store(pV9Store),
          m_pFlowStore(pFlowStore),
          m_pCounters(pMetrics != nullptr ? pMetrics->NewWorkerCounters() : nullptr) {}

    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;

    // Takes, prints and stores what is listed (also the final drain after Stop).
    void TakePackets();
    // After each datagram, whatever became of it: the per-exporter error counters of the metrics.
    void DatagramHandled(const CDatagramInfo& info);

    struct Counts {
        uint64_t packets = 0;
        uint64_t errors = 0;
        uint64_t renderFailures = 0;
        std::map<CString, uint64_t> byProtocol;
    };
    const Counts& GetCounts() const { return m_counts; }

private:
    CNetFlowSession& m_session;
    CPacketPrinter m_printer;
    CConsole& m_console;
    CV9Store* m_pV9Store;
    CFlowStore* m_pFlowStore;
    CFlowMaker m_flowMaker;
    std::vector<CFlowRecord> m_flows; // the current packet's, reused
    std::unique_ptr<CMetrics::CWorkerCounters> m_pCounters;
    CSequenceTracker m_sequences; // only with metrics
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> m_batch;
    Counts m_counts;
};
