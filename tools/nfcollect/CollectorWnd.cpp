#include "CollectorWnd.h"

#include <cstdio>
#include <exception>

#include "session/Messages.h"
#include "util/TextConvert.h"

LRESULT CCollectorWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_NETFLOW_PACKET:
        TakePackets();
        return 0;
    case WM_NETFLOW_ERROR:
        ++m_nErrors;
        return 0;
    default:
        return CWnd::WindowProc(message, wParam, lParam);
    }
}

void CCollectorWnd::TakePackets() {
    m_session.GetPackets(m_batch);
    for (CTPAbstractPacket* pPacket : m_batch) {
        ++m_nPackets;
        ++m_packetsByProtocol[pPacket->GetProtocol()];
        try {
            m_printer.Print(*pPacket);
        } catch (const std::exception& error) {
            ++m_nRenderFailures;
            std::fprintf(stderr, "nfcollect: could not render a %s packet: %s\n",
                         tpnf::ToUtf8(pPacket->GetProtocol()).c_str(), error.what());
        }
        if (m_bKeepUntilStop)
            m_kept.push_back(pPacket);
        else
            delete pPacket;
    }
    m_batch.clear();
}

void CCollectorWnd::DeleteKeptExcept(const std::unordered_set<const CTPAbstractPacket*>& stillQueued) {
    size_t kept = 0;
    for (CTPAbstractPacket* pPacket : m_kept) {
        if (stillQueued.count(pPacket))
            m_kept[kept++] = pPacket;
        else
            delete pPacket;
    }
    m_kept.resize(kept);
}

void CCollectorWnd::DeleteKept() {
    for (CTPAbstractPacket* pPacket : m_kept)
        delete pPacket;
    m_kept.clear();
}
