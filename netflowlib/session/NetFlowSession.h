#pragma once

#include <asio/io_context.hpp>

#include <cstdint>
#include <future>
#include <mutex>
#include <system_error>

#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"
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
class CNetFlowSession : public CWnd {
public:
    // What the socket did with the datagrams of this session, counted on the loop thread. Not reset by
    // Stop or Init.
    struct Statistics {
        uint64_t datagrams = 0;      // datagrams received
        uint64_t traced = 0;         // written to trace files
        uint64_t traceFailures = 0;  // trace file could not be written
        uint64_t ignored = 0;        // shorter than 2 bytes or of an unknown version
        uint64_t decodeFailures = 0; // Decode returned 0 (the owner got WM_NETFLOW_ERROR)
        uint64_t malformed = 0;      // an exception left the decoding; the datagram was dropped
        uint64_t packets = 0;        // decoded and listed
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
    // The datagram being handled, while it is (inside AddPacket's notification of the owner and inside
    // OnDatagramHandled); null otherwise.
    const CByteArray* GetCurrentDatagram() const { return m_pCurrentDatagram; }

    // How the packets this session creates decode, from the next datagram on. The default options decode
    // exactly as Decode(CByteArray) does. Call on the loop's thread.
    void SetDecodeOptions(const CDecodeOptions& options) { m_decodeOptions = options; }
    const CDecodeOptions& GetDecodeOptions() const { return m_decodeOptions; }

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
    CDecodeOptions m_decodeOptions;
    Statistics m_statistics;
    const CByteArray* m_pCurrentDatagram = nullptr;
};
