#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <array>
#include <memory>
#include <system_error>

#include "util/Types.h"

class CNetFlowSession;

// The UDP socket of a session. Every datagram is handled alone, in arrival order, on the loop's thread:
// it is written raw to the next trace file in trace mode, otherwise its version picks the packet kind,
// which decodes it and goes to the session. Each readiness drains up to kDrainLimit datagrams.
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

    // Datagrams handled per readiness at most, so that timers and messages of the loop are not starved.
    static constexpr int kDrainLimit = 64;

    // The process-wide trace-file number, last one used; 0 before the first file.
    static int GetTraceFileCounter() { return s_nTraceFileCounter; }
    static void SetTraceFileCounter(int value) { s_nTraceFileCounter = value; }

protected:
    CNetFlowSession* m_pSession;

private:
    // Receive state shared with the pending receive, so that a socket deleted from inside its own
    // handler (the host may call Stop there) or while a receive is queued is never touched again.
    // A datagram is read straight into `datagram` up to its current size, the rest into `overflow`;
    // only the part beyond the previous datagram's size is ever copied.
    struct Receiver {
        CNetFlowSocket* pSocket;
        CByteArray datagram;
        std::array<uint8_t, 65535> overflow;
        asio::ip::udp::endpoint sender;
        asio::ip::address lastAddress; // the sender address whose text is in senderAddress
        CString senderAddress;

        std::array<asio::mutable_buffer, 2> Buffers();
        void Complete(size_t bytes);
    };

    void StartReceive();
    static void HandleReceive(const std::shared_ptr<Receiver>& receiver, const std::error_code& error,
                              size_t bytes);
    // One received datagram through OnReceive, with the statistics and the session's notification.
    static void Dispatch(Receiver& receiver, size_t bytes);
    void WriteTraceFile(const CByteArray& datagram);

    std::unique_ptr<asio::ip::udp::socket> m_socket;
    std::shared_ptr<Receiver> m_receiver;

    static int s_nTraceFileCounter;
};
