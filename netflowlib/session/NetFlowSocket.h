#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/address.hpp>
#include <asio/ip/udp.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "packet/DecodeOptions.h"
#include "session/DatagramInfo.h"
#include "util/Types.h"

class CNetFlowSession;

// Where and how a socket listens.
struct CListenSettings {
    // One UDP socket per address, all on the same port. Empty: every IPv4 address (0.0.0.0). The IPv6
    // wildcard "::" is dual stack (IPV6_V6ONLY off, IPv4 senders seen as their IPv4 address) unless an
    // IPv4 address is listed too; then it takes IPv6 senders only.
    std::vector<asio::ip::address> addresses;
    // SO_REUSEPORT on every socket: sockets of several sessions (one per thread) may bind the same address
    // and port, and the kernel keeps each sender on one of them.
    bool reusePort = false;
};

// The UDP socket of a session. Every datagram is handled alone, in arrival order per underlying socket, on
// the loop's thread: a sender outside the session's allowlist is refused; otherwise the datagram is written
// raw to the next trace file in trace mode, or its version picks the packet kind, which decodes it and goes
// to the session. Each readiness of an underlying socket reads up to kDrainLimit datagrams with one
// recvmmsg call.
class CNetFlowSocket {
public:
    explicit CNetFlowSocket(CNetFlowSession* pSession);
    CNetFlowSocket(const CNetFlowSocket&) = delete;
    CNetFlowSocket& operator=(const CNetFlowSocket&) = delete;
    virtual ~CNetFlowSocket();

    // Opens an IPv4 datagram socket bound to nPort on all local addresses and starts receiving.
    BOOL Create(asio::io_context& loop, UINT nPort, std::error_code& error);
    // Opens one datagram socket per listen address, all bound to nPort (with nPort 0, to the port the
    // system chose for the first one), and starts receiving on each. On failure nothing stays open, and
    // GetFailedAddress names the address whose socket failed.
    BOOL Create(asio::io_context& loop, UINT nPort, const CListenSettings& settings, std::error_code& error);
    // SO_RCVBUF on every underlying socket; the system may grant less than asked.
    BOOL SetReceiveBufferSize(int bytes, std::error_code& error);
    // The receive buffer the system granted the first socket, in bytes; 0 when not open.
    int GetReceiveBufferSize() const;
    void ShutDownSend();
    void Close();
    UINT GetLocalPort() const;
    // Underlying sockets open (one per listen address).
    size_t GetSocketCount() const { return m_listeners.size(); }
    // The address whose socket the last Create could not open or bind; empty when none failed.
    const std::string& GetFailedAddress() const { return m_failedAddress; }

    // Adds to the session's `lost` what the kernel dropped on each socket since it was last asked
    // (SO_MEMINFO), so that drops after the last datagram are counted too.
    void UpdateLost();

    // Handles one received datagram (trace file, or dispatch, decode and hand-over) and says what became
    // of it. A reader's CInvalidArgException from a truncated datagram leaves it; the receive loop drops
    // that datagram. Without an exporter address the packet kinds see the exporter as unknown.
    EDatagramOutcome OnReceive(const CByteArray& datagram, const CString& senderAddress, UINT senderPort);
    EDatagramOutcome OnReceive(const CByteArray& datagram, const CString& senderAddress, UINT senderPort,
                               const CExporterAddress& exporter);

    // Datagrams handled per readiness at most, so that timers and messages of the loop are not starved.
    static constexpr int kDrainLimit = 64;
    // A read that found fewer datagrams than this is followed by the session's coalescing pause.
    static constexpr int kCoalesceBelow = kDrainLimit / 2;

    // The process-wide trace-file number, last one used; 0 before the first file. Sessions on several
    // threads draw distinct numbers from it.
    static int GetTraceFileCounter() { return s_nTraceFileCounter.load(); }
    static void SetTraceFileCounter(int value) { s_nTraceFileCounter.store(value); }

protected:
    CNetFlowSession* m_pSession;

private:
    // Receive state of one underlying socket, shared with its pending wait, so that a socket deleted from
    // inside its own handler (the host may call Stop there) or while a wait is queued is never touched
    // again. Defined in the source file.
    struct Receiver;
    struct Listener {
        std::unique_ptr<asio::ip::udp::socket> socket;
        std::shared_ptr<Receiver> receiver;
    };

    static void StartWait(const std::shared_ptr<Receiver>& receiver);
    static void HandleReadable(const std::shared_ptr<Receiver>& receiver, const std::error_code& error);
    // Reads one batch and hands each datagram to Dispatch while the socket stays open; says how many
    // datagrams it read.
    static int ReadBatch(Receiver& receiver);
    // One received datagram through the allowlist and OnReceive, with the statistics and the session's
    // notification.
    static void Dispatch(Receiver& receiver, int index, int64_t receivedMs);
    EDatagramOutcome WriteTraceFile(const CByteArray& datagram);

    std::vector<Listener> m_listeners;
    std::string m_failedAddress;

    static std::atomic<int> s_nTraceFileCounter;
};
