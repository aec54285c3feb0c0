#include "CollectorWnd.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>

#include "Console.h"
#include "FlowStore.h"
#include "V9Store.h"
#include "session/Messages.h"
#include "util/TextConvert.h"

LRESULT CCollectorWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_NETFLOW_PACKET:
        TakePackets();
        return 0;
    case WM_NETFLOW_ERROR:
        ++m_counts.errors;
        return 0;
    default:
        return CWnd::WindowProc(message, wParam, lParam);
    }
}

void CCollectorWnd::TakePackets() {
    m_session.GetPackets(m_batch);
    if (m_batch.empty())
        return;
    static const CByteArray kNoDatagram;
    // Inside the session's notification the datagram is at hand; the final drain after Stop has none.
    const CDatagramInfo* pInfo = m_session.GetDatagramInfo();
    const CByteArray* pDatagram = pInfo != nullptr ? pInfo->datagram : nullptr;
    const CReceivedDatagram datagram{pDatagram != nullptr ? *pDatagram : kNoDatagram,
                                     pInfo != nullptr
                                         ? pInfo->receivedMs
                                         : std::chrono::duration_cast<std::chrono::milliseconds>(
                                               std::chrono::system_clock::now().time_since_epoch())
                                               .count()};
    for (CTPAbstractPacket* pPacket : m_batch) {
        std::unique_ptr<CTPAbstractPacket> packet(pPacket);
        ++m_counts.packets;
        const CString protocol = packet->GetProtocol();
        ++m_counts.byProtocol[protocol];
        if (m_pCounters) {
            m_pCounters->Packet(packet->GetSenderIPAddress(), protocol,
                                static_cast<uint64_t>(std::max<int64_t>(0, packet->GetSize())));
            if (pInfo != nullptr)
                if (const uint64_t missing = m_sequences.Check(*packet, pInfo->exporter); missing > 0)
                    m_pCounters->SequenceGap(packet->GetSenderIPAddress(), missing);
        }
        m_flows.clear();
        if (m_pFlowStore != nullptr || m_printer.GetFormat() == OutputFormat::Flows) {
            CFlowContext context;
            if (pInfo != nullptr) {
                context.timeReceived = pInfo->receivedMs;
                context.exporter = pInfo->exporter;
            } else {
                context = CFlowContext::ForPacket(*packet, datagram.timeReceived);
            }
            context.datagram = pDatagram;
            m_flowMaker.Append(*packet, context, m_flows);
        }
        if (m_printer.GetFormat() != OutputFormat::None) {
            try {
                m_console.Write(m_printer.Render(*packet, m_flows));
            } catch (const std::exception& error) {
                ++m_counts.renderFailures;
                m_console.Message("could not render a " + tpnf::ToUtf8(packet->GetProtocol()) +
                                  " packet: " + error.what());
            }
        }
        if (m_pFlowStore != nullptr)
            m_pFlowStore->Offer(*packet, m_flows, datagram);
        if (m_pV9Store != nullptr)
            m_pV9Store->Offer(packet, datagram);
    }
    m_batch.clear();
}

void CCollectorWnd::DatagramHandled(const CDatagramInfo& info) {
    if (!m_pCounters || info.senderAddress == nullptr)
        return;
    switch (info.outcome) {
    case EDatagramOutcome::DecodeFailure:
        m_pCounters->DecodeError(*info.senderAddress);
        break;
    case EDatagramOutcome::Ignored:
        m_pCounters->Ignored(*info.senderAddress);
        break;
    case EDatagramOutcome::Malformed:
        m_pCounters->Malformed(*info.senderAddress);
        break;
    default:
        break;
    }
}
