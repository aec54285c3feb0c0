#pragma once

#include <cstdint>
#include <map>
#include <unordered_set>

#include "PacketPrinter.h"
#include "session/NetFlowSession.h"
#include "session/Wnd.h"

// The collector's owner window: takes the packets on each WM_NETFLOW_PACKET, prints them, counts them by
// protocol, and counts WM_NETFLOW_ERROR. Packets are deleted at once, or, with a database writer that
// borrows them, kept until the writer has stored them.
class CCollectorWnd : public CWnd {
public:
    CCollectorWnd(CNetFlowSession& session, CPacketPrinter& printer, bool keepUntilStop)
        : m_session(session), m_printer(printer), m_bKeepUntilStop(keepUntilStop) {}
    ~CCollectorWnd() override { DeleteKept(); }

    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;

    // Takes and prints what is still listed (the final drain after Stop).
    void TakePackets();
    // Deletes the kept packets that the writer no longer holds.
    void DeleteKeptExcept(const std::unordered_set<const CTPAbstractPacket*>& stillQueued);
    void DeleteKept();
    size_t GetKeptCount() const { return m_kept.size(); }

    uint64_t GetPacketCount() const { return m_nPackets; }
    uint64_t GetErrorCount() const { return m_nErrors; }
    uint64_t GetRenderFailures() const { return m_nRenderFailures; }
    const std::map<CString, uint64_t>& GetPacketsByProtocol() const { return m_packetsByProtocol; }

private:
    CNetFlowSession& m_session;
    CPacketPrinter& m_printer;
    bool m_bKeepUntilStop;
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> m_batch;
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> m_kept;
    std::map<CString, uint64_t> m_packetsByProtocol;
    uint64_t m_nPackets = 0;
    uint64_t m_nErrors = 0;
    uint64_t m_nRenderFailures = 0;
};
