#pragma once

#include <cstdint>

#include "packet/DecodeOptions.h"
#include "util/Types.h"

// What became of one received datagram; each datagram has exactly one outcome, and each outcome has its
// counter in CNetFlowSession::Statistics.
enum class EDatagramOutcome : uint8_t {
    Packet,        // decoded and listed (packets)
    Ignored,       // shorter than 2 bytes or of an unknown version (ignored)
    DecodeFailure, // Decode returned 0 (decodeFailures)
    Malformed,     // an exception left the decoding (malformed)
    Traced,        // written to a trace file (traced)
    TraceFailure,  // the trace file could not be written (traceFailures)
    Refused,       // the sender is not on the allowlist (refused)
};

// The datagram a session is handling, as its host may look at it from inside the owner's
// WM_NETFLOW_PACKET handler and from OnDatagramHandled. Nothing is copied: the pointers refer to the
// receive buffers and are valid only until OnDatagramHandled returns.
struct CDatagramInfo {
    const CByteArray* datagram = nullptr;   // the UDP payload
    const CString* senderAddress = nullptr; // as packets carry it: dotted IPv4 or IPv6 text
    UINT senderPort = 0;
    CExporterAddress exporter; // the sender's address bytes and port, as the decoders see it
    int64_t receivedMs = 0;    // when its batch was read: milliseconds since 1970-01-01 UTC
    EDatagramOutcome outcome = EDatagramOutcome::Packet; // final only in OnDatagramHandled
};
