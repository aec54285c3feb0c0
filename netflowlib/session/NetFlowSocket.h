#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <array>
#include <memory>
#include <system_error>

#include "util/Types.h"

class CNetFlowSession;

// The UDP socket of a session. One datagram per readiness: it is written raw to the next trace file in
// trace mode, otherwise its version picks the packet kind, which decodes it and goes to the session.
class CNetFlowSocket {
public:
    explicit CNetFlowSocket(CNetFlowSession* pSession);
    CNetFlowSocket(const CNetFlowSocket&) = delete;
    CNetFlowSocket& operator=(const CNetFlowSocket&) = delete;
    virtual ~CNetFlowSocket();

    // Opens an IPv4 datagram socket bound to nPort on all local addresses and starts receiving.
    BOOL Create(asio::io_context& loop, UINT nPort, std::error_code& error);
    // SO_RCVBUF; the system may grant less than asked.
    BOOL SetReceiveBufferSize(int bytes, std::error_code& error);
    // The receive buffer the system granted, in bytes; 0 when not open.
    int GetReceiveBufferSize() const;
    void ShutDownSend();
    void Close();
    UINT GetLocalPort() const;

    // Handles one received datagram (trace file, or dispatch, decode and hand-over). A reader's
    // CInvalidArgException from a truncated datagram leaves it; the receive loop drops that datagram.
    void OnReceive(const CByteArray& datagram, const CString& senderAddress, UINT senderPort);

    // The process-wide trace-file number, last one used; 0 before the first file.
    static int GetTraceFileCounter() { return s_nTraceFileCounter; }
    static void SetTraceFileCounter(int value) { s_nTraceFileCounter = value; }

protected:
    CNetFlowSession* m_pSession;

private:
    // Receive state shared with the pending receive, so that a socket deleted from inside its own
    // handler (the host may call Stop there) or while a receive is queued is never touched again.
    struct Receiver {
        CNetFlowSocket* pSocket;
        std::array<uint8_t, 65535> buffer;
        asio::ip::udp::endpoint sender;
        CByteArray datagram;
    };

    void StartReceive();
    static void HandleReceive(const std::shared_ptr<Receiver>& receiver, const std::error_code& error,
                              size_t bytes);
    void WriteTraceFile(const CByteArray& datagram);

    std::unique_ptr<asio::ip::udp::socket> m_socket;
    std::shared_ptr<Receiver> m_receiver;

    static int s_nTraceFileCounter;
};
