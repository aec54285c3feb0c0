#pragma once
// Shared by the session and integration tests: a loop runner, a recording owner window, a session that
// shows its protected state, a packet that counts its deletions and a UDP sender on loopback.

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <vector>

#include "session/Messages.h"
#include "session/NetFlowDatabase.h"
#include "session/NetFlowSession.h"
#include "session/NetFlowSocket.h"
#include "packet/TPAbstractPacket.h"
#include "session/Wnd.h"

namespace tpnf::test {

struct RecordedMessage {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

// Runs the loop on this thread until done() holds or the time is up; returns done().
inline bool RunUntil(asio::io_context& loop, const std::function<bool()>& done,
                     std::chrono::milliseconds limit = std::chrono::milliseconds(5000)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        if (loop.stopped())
            loop.restart();
        loop.run_one_for(std::chrono::milliseconds(10));
    }
    return done();
}

// Host window that records every message and may react to WM_NETFLOW_PACKET.
class RecordingWnd : public CWnd {
public:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        messages.push_back({message, wParam, lParam});
        if (message == WM_NETFLOW_PACKET && onPacket)
            onPacket();
        return CWnd::WindowProc(message, wParam, lParam);
    }
    size_t Count(UINT message) const {
        size_t n = 0;
        for (const auto& m : messages)
            n += m.message == message ? 1 : 0;
        return n;
    }

    std::vector<RecordedMessage> messages;
    std::function<void()> onPacket;
};

// Session with its protected state in view; records what reaches its hidden window.
class TestSession : public CNetFlowSession {
public:
    using CNetFlowSession::m_hDatabaseThread;
    using CNetFlowSession::m_Lock;
    using CNetFlowSession::m_Packets;
    using CNetFlowSession::m_pDatabaseThread;
    using CNetFlowSession::m_pOwner;
    using CNetFlowSession::m_pSocket;

    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        hiddenMessages.push_back({message, wParam, lParam});
        return CNetFlowSession::WindowProc(message, wParam, lParam);
    }
    size_t HiddenCount(UINT message) const {
        size_t n = 0;
        for (const auto& m : hiddenMessages)
            n += m.message == message ? 1 : 0;
        return n;
    }
    void OnDatagramHandled() override {
        if (onDatagram)
            onDatagram();
    }

    std::vector<RecordedMessage> hiddenMessages;
    std::function<void()> onDatagram;
};

// A packet that counts how often a packet of its kind was deleted.
class CountingPacket : public CTPAbstractPacket {
public:
    explicit CountingPacket(int id = 0) : m_id(id) {}
    ~CountingPacket() override { ++s_deleted; }
    int Decode(const CByteArray&) override { return 1; }
    CString ToString() const override { return L"counting packet"; }
    int64_t GetSize() const override { return 0; }
    BOOL IsEmpty() const override { return TRUE; }
    CString GetProtocol() const override { return L"test"; }
    CString GetTimestamp() const override { return CString(); }
    CString GetSysUpTime() const override { return CString(); }
    void GetRecordFields(int, CUIntArray&, CStringArray&) override {}

    int m_id;
    static inline int s_deleted = 0;
};

// Sends datagrams from its own loopback socket.
class UdpSender {
public:
    UdpSender() : m_socket(m_loop, asio::ip::udp::endpoint(asio::ip::address_v4::loopback(), 0)) {}
    void Send(UINT port, const std::vector<uint8_t>& datagram) {
        m_socket.send_to(asio::buffer(datagram), asio::ip::udp::endpoint(asio::ip::address_v4::loopback(),
                                                                         static_cast<uint16_t>(port)));
    }
    UINT LocalPort() const { return m_socket.local_endpoint().port(); }

private:
    asio::io_context m_loop;
    asio::ip::udp::socket m_socket;
};

inline void DeletePackets(CArray<CTPAbstractPacket*, CTPAbstractPacket*>& packets) {
    for (CTPAbstractPacket* p : packets)
        delete p;
    packets.clear();
}

} // namespace tpnf::test
