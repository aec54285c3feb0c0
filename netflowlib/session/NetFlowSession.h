#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/address.hpp>

#include <chrono>
#include <cstdint>
#include <future>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"
#include "session/AddressPrefix.h"
#include "session/DatagramInfo.h"
#include "session/Messages.h"
#include "session/Wnd.h"
#include "util/Types.h"

class CNetFlowSocket;
class CNetFlowDatabase;

// Collects flow datagrams on one UDP port for a host window. The session is itself a window (the hidden
// "NetFlowSessionWnd") so that the database writer can report back to it.
//
// Threads: the session is bound to the host's asio::io_context. Init, Stop, GetPackets, the socket's
// receive handling, every decode and every message to the owner run on the thread that runs that loop;
// only the database writer has a thread of its own. Init(pOwner, ...) takes the loop from the owner
// window (which must have been created with CWnd::CreateEx); the overload taking a loop also allows a
// session without owner. Call Stop while the loop can still run handlers (from a handler, or after run()
// has returned, but not after stop() inside the current handler): Stop lets the loop run the writer's
// goodbye before it waits for the writer thread.
//
// Beyond the defaults, a host may set before Init where the session listens (SetListenAddresses, IPv4 and
// IPv6), whether its port may be shared with sessions on other threads (SetReusePort); and at any time
// which senders it accepts (SetAllowList), how it decodes (SetDecodeOptions) and whether the socket pauses
// after a read that found few datagrams (SetCoalesceDelay). Without these calls the
// session listens on every IPv4 address, accepts every sender and decodes every datagram as
// Decode(CByteArray) does. Sessions on different threads, each with its own loop, share only process-wide
// state: the trace-file number (drawn atomically) and the NetFlow v9 template store (see its header).
class CNetFlowSession : public CWnd {
public:
    // What the socket did with the datagrams of this session, counted on the loop thread. Not reset by
    // Stop or Init. Every datagram read counts in `datagrams` and in exactly one of the counters from
    // `traced` to `packets` or `refused`; `lost` counts those the kernel dropped before they could be read.
    struct Statistics {
        uint64_t datagrams = 0;      // datagrams received
        uint64_t traced = 0;         // written to trace files
        uint64_t traceFailures = 0;  // trace file could not be written
        uint64_t ignored = 0;        // shorter than 2 bytes or of an unknown version
        uint64_t decodeFailures = 0; // Decode returned 0 (the owner got WM_NETFLOW_ERROR)
        uint64_t malformed = 0;      // an exception left the decoding; the datagram was dropped
        uint64_t packets = 0;        // decoded and listed
        // Dropped by the kernel because the receive buffer was full: as of the last datagram read, of
        // RefreshStatistics, or of Stop, whichever came last.
        uint64_t lost = 0;
        uint64_t refused = 0; // the sender was not on the allowlist: not decoded, traced or stored
    };

    CNetFlowSession() = default;
    ~CNetFlowSession() override;

    BOOL Init(CWnd* pOwner, UINT nPort, const CString& strDSN);
    BOOL Init(asio::io_context& loop, CWnd* pOwner, UINT nPort, const CString& strDSN);
    void Stop();
    void AddPacket(CTPAbstractPacket* pPacket);
    void GetPackets(CArray<CTPAbstractPacket*, CTPAbstractPacket*>& packets);
    void ReportError(const CString& strError, UINT nCode);
    BOOL IsStarted() const { return m_pSocket != nullptr; }
    BOOL IsTraceMode() const { return m_bTraceMode; }
    void SetTraceMode(BOOL bTrace) { m_bTraceMode = bTrace; }

    // The UDP port the socket is bound to (the one the system chose when Init was given 0); 0 when not
    // started.
    UINT GetLocalPort() const;
    // Why the last Init could not create the socket; empty after a successful one.
    const std::error_code& GetSocketError() const { return m_socketError; }
    const Statistics& GetStatistics() const { return m_statistics; }
    // Asks the kernel how many datagrams it dropped on the session's sockets up to now, then returns the
    // statistics. Stop does the same before it closes the sockets.
    const Statistics& RefreshStatistics();

    // Listen addresses for the next Init, IPv4 or IPv6, one socket each, all on Init's port. Empty (the
    // default): every IPv4 address. "::" is dual stack (IPv4 senders then appear as their dotted IPv4
    // text) unless an IPv4 address is listed as well.
    void SetListenAddresses(const std::vector<asio::ip::address>& addresses) {
        m_listenAddresses = addresses;
    }
    const std::vector<asio::ip::address>& GetListenAddresses() const { return m_listenAddresses; }
    // SO_REUSEPORT for the next Init: several sessions, each run by its own thread and loop, may then
    // listen on the same addresses and port, and the kernel keeps each sender on one of them, so that
    // each sender's datagrams stay in order. Off by default.
    void SetReusePort(bool reusePort) { m_bReusePort = reusePort; }
    bool GetReusePort() const { return m_bReusePort; }
    // The address whose socket the last Init could not open or bind; empty when none failed.
    const std::string& GetSocketErrorAddress() const { return m_socketErrorAddress; }

    // After a read that found fewer than CNetFlowSocket::kCoalesceBelow datagrams, the socket pauses this
    // long before it waits for more, so that each wake-up of the loop handles several datagrams: less CPU
    // per datagram at moderate rates, for up to this much more delay, and the loop runs no other handler
    // meanwhile. The receive buffer must hold that long of traffic. Zero (the default): no pause. Takes
    // effect from the next read; call on the loop's thread.
    void SetCoalesceDelay(std::chrono::microseconds delay) { m_coalesceDelay = delay; }
    std::chrono::microseconds GetCoalesceDelay() const { return m_coalesceDelay; }

    // Senders whose datagrams are handled; others are counted as refused and otherwise dropped. Empty
    // (the default): every sender. Takes effect from the next datagram; call on the loop's thread.
    void SetAllowList(const std::vector<CAddressPrefix>& prefixes);
    const std::vector<CAddressPrefix>& GetAllowList() const { return m_allowList; }

    // How the packets this session creates decode, from the next datagram on. The default options decode
    // exactly as Decode(CByteArray) does. Call on the loop's thread.
    void SetDecodeOptions(const CDecodeOptions& options) { m_decodeOptions = options; }
    const CDecodeOptions& GetDecodeOptions() const { return m_decodeOptions; }

    // The datagram being handled, while it is (inside AddPacket's notification of the owner and inside
    // OnDatagramHandled); null otherwise.
    const CByteArray* GetCurrentDatagram() const {
        return m_pCurrentDatagram != nullptr ? m_pCurrentDatagram->datagram : nullptr;
    }
    // The same datagram with its sender, arrival time and, inside OnDatagramHandled, its outcome.
    const CDatagramInfo* GetDatagramInfo() const { return m_pCurrentDatagram; }

protected:
    friend class CNetFlowSocket;

    void CreateDatabaseThread();
    void ShutDownDatabase();
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;

    // Called on the loop thread after each datagram has been handled, whatever became of it. A host may
    // override it, e.g. to stop after a number of datagrams; calling Stop from here is allowed.
    virtual void OnDatagramHandled() {}

    CNetFlowSocket* m_pSocket = nullptr;
    CWnd* m_pOwner = nullptr;
    UINT m_nPort = 0;
    std::recursive_mutex m_Lock;
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> m_Packets;
    CNetFlowDatabase* m_pDatabaseThread = nullptr;
    std::shared_future<int> m_hDatabaseThread;
    CString m_strDSN;
    BOOL m_bTraceMode = FALSE;

private:
    // Runs the loop's handlers until the writer has announced its end, at most for the final wait's time.
    void PumpUntilWriterExits();

    std::error_code m_socketError;
    std::string m_socketErrorAddress;
    Statistics m_statistics;
    std::vector<asio::ip::address> m_listenAddresses;
    bool m_bReusePort = false;
    std::chrono::microseconds m_coalesceDelay{0};
    std::vector<CAddressPrefix> m_allowList;
    uint64_t m_allowListVersion = 0; // tells the socket's sender cache that the list changed
    CDecodeOptions m_decodeOptions;
    const CDatagramInfo* m_pCurrentDatagram = nullptr;
};
