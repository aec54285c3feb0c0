#pragma once

#include <atomic>
#include <mutex>

#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"
#include "sflow/SFlowCompactSample.h"
#include "sflow/SFlowHeader.h"
#include "sflow/SFlowSample.h"
#include "util/Types.h"

// An sFlow datagram of version 2, 4 or 5: header and samples in datagram order.
//
// Decode keeps each record in a CSFlowCompactRecord, which holds only its own kind (GetCompactSamples).
// GetSamples gives the samples with records that carry a member of every kind (CSFlowRecord): those a
// subclass placed in m_samples, then the decoded ones, built on its first call after a decode or copy.
// GetSamples may be called from several threads at once; Decode and assignment may not run while
// another thread reads the packet.
class CSFlowPacket : public CTPAbstractPacket {
public:
    CSFlowPacket() = default;
    CSFlowPacket(const CSFlowPacket& other);
    CSFlowPacket& operator=(const CSFlowPacket& other);
    ~CSFlowPacket() override = default;

    int Decode(const CByteArray& datagram) override;
    CString ToString() const override;
    int64_t GetSize() const override;
    BOOL IsEmpty() const override;
    CString GetProtocol() const override;
    CString GetTimestamp() const override;
    CString GetSysUpTime() const override;
    void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) override;

    const CSFlowHeader& GetHeader() const { return m_header; }
    // Every sample, with records that carry a member of every kind.
    const CArray<CSFlowSample, const CSFlowSample&>& GetSamples() const;
    // The samples Decode read, each record holding only its own kind: cheaper to read than GetSamples.
    const CArray<CSFlowCompactSample>& GetCompactSamples() const { return m_compactSamples; }

    // Options for the next Decode (the session sets them); without them every datagram decodes as always.
    // With options.sflowExact, version 5 decodes as the sFlow version 5 document lays it out and versions 2
    // and 4 as RFC 3176 does: strings and opaque data padded to 4 bytes, strings holding their text,
    // Ethernet MACs as padded 8-byte fields, sampled IPv4 records read, compact source ids and interfaces
    // split unsigned, 64-bit counters unsigned, every version 5 sample and record skipped by its own
    // length, and version 2/4 extended data kept as records of their own. Decoding then stops after a
    // version 2/4 sample that holds a type without a known layout, as nothing says where the next starts.
    void SetDecodeContext(const CDecodeContext& context) { m_context = context; }
    const CDecodeContext& GetDecodeContext() const { return m_context; }

protected:
    // Copies header and samples; the sender address and port are left as they are.
    void Copy(const CSFlowPacket& other);

    CSFlowHeader m_header;
    CArray<CSFlowSample, const CSFlowSample&> m_samples; // samples given to the packet other than by Decode
    CArray<CSFlowCompactSample> m_compactSamples;        // the samples Decode read
    CDecodeContext m_context;

private:
    // Invalidates the samples GetSamples built.
    void ResetView();

    // m_samples and then m_compactSamples with full records, built by the first GetSamples that needs it.
    mutable CArray<CSFlowSample, const CSFlowSample&> m_view;
    mutable std::atomic<bool> m_viewBuilt{false};
    mutable std::mutex m_viewLock;
};
