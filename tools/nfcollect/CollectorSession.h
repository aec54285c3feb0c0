#pragma once

#include <functional>

#include "session/NetFlowSession.h"

// A session that calls back after every datagram it has handled, so that the collector can stop after a
// number of datagrams in any mode (trace mode lists no packets).
class CCollectorSession : public CNetFlowSession {
public:
    std::function<void()> m_onDatagram;

protected:
    void OnDatagramHandled() override {
        if (m_onDatagram)
            m_onDatagram();
    }
};
