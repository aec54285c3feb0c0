#pragma once

#include <functional>

#include "session/NetFlowSession.h"
#include "session/NetFlowSocket.h"

// A session that calls back after every datagram it has handled, so that the collector can stop after a
// number of datagrams in any mode (trace mode lists no packets).
class CCollectorSession : public CNetFlowSession {
public:
    std::function<void()> m_onDatagram;

    // SO_RCVBUF of every socket, after Init. Returns the size granted (net.core.rmem_max caps it), 0 when
    // the kernel refused.
    int SetReceiveBuffer(int bytes) {
        std::error_code error;
        if (m_pSocket == nullptr || !m_pSocket->SetReceiveBufferSize(bytes, error))
            return 0;
        return m_pSocket->GetReceiveBufferSize();
    }

protected:
    void OnDatagramHandled() override {
        if (m_onDatagram)
            m_onDatagram();
    }
};
