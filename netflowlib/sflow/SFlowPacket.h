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
// Decoding keeps each record in a CSFlowCompactRecord, which holds only its own kind; GetSamples builds,
// on its first call after a decode, the samples with records that carry a member of every kind
// (CSFlowRecord). GetSamples may be called from several threads at once; Decode and assignment may not
// run while another thread reads the packet.
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
    // The samples with records that carry a member of every kind.
    const CArray<CSFlowSample, const CSFlowSample&>& GetSamples() const;
    // The same samples as decoded: each record holds only its own kind. Cheaper to read than GetSamples.
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
    CArray<CSFlowCompactSample> m_compactSamples;
    CDecodeContext m_context;
    // Built from m_compactSamples by the first GetSamples after a decode or copy.
    mutable CArray<CSFlowSample, const CSFlowSample&> m_samples;

private:
    mutable std::atomic<bool> m_samplesBuilt{false};
    mutable std::mutex m_samplesLock;
};
