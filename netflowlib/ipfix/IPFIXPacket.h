#pragma once

#include "ipfix/IPFIXHeader.h"
#include "ipfix/IPFIXRecord.h"
#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"

class CNetFlowTemplateManager;
struct CTemplateScope;

// What decoding an IPFIX message met besides data records.
struct CIPFIXDecodeNotes {
    int templates = 0;           // template and options template records stored
    int withdrawals = 0;         // withdrawal records (of one template or of all of a kind)
    int unknownTemplateSets = 0; // data sets skipped because their template was not known
    int malformedSets = 0;       // sets, or the rest of a set, skipped as malformed
    bool overrun = false;        // a set ran past the message: it and everything after it were dropped
};

// An IPFIX message (RFC 7011): header and data records.
//
// Templates always live in the exporter scope of the process-wide template store, keyed by the exporter's
// address (from the decode context) and the observation domain id, at most options.maxTemplates per
// exporter (0: no bound); the template-scope option does not apply to IPFIX.
//
// Malformed input never ends in undefined behaviour: the message length bounds every read. A set whose
// length runs past the message ends the walk (what was decoded stays); a template or record that runs past
// its set ends that set, and the walk goes on with the next one.
class CIPFIXPacket : public CTPAbstractPacket {
public:
    CIPFIXPacket() = default;
    CIPFIXPacket(const CIPFIXPacket& other);
    CIPFIXPacket& operator=(const CIPFIXPacket& other);
    ~CIPFIXPacket() override = default;

    // Copies header, records and notes but not the sender; onto itself nothing.
    void Copy(const CIPFIXPacket& other);

    // FALSE for fewer than 16 bytes, a version other than 10, or a message length below 16 or beyond the
    // datagram; bytes after the message length are ignored. Otherwise TRUE, whatever the sets held.
    int Decode(const CByteArray& datagram) override;
    // "IPFIX packet received from: ...", the header line, then the records as a v9 packet shows them.
    CString ToString() const override;
    int64_t GetSize() const override { return static_cast<int64_t>(m_records.size()); }
    BOOL IsEmpty() const override { return m_records.empty(); }
    CString GetProtocol() const override { return L"IPFIX"; }
    // The export time (unsigned seconds since 1970) in local time.
    CString GetTimestamp() const override;
    // IPFIX carries no exporter uptime: always the empty string.
    CString GetSysUpTime() const override { return CString(); }
    // Field ids as CIPFIXField describes them (CIPFIXField::GetFieldName names them); values as in ToString,
    // the protocol field showing its name.
    void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) override;
    // Rows as a v9 packet writes them, with record_version 10 and the export time as record_time.
    void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override;

    const CIPFIXHeader& GetHeader() const { return m_header; }
    const CArray<CIPFIXRecord>& GetRecords() const { return m_records; }
    const CIPFIXDecodeNotes& GetNotes() const { return m_notes; }

    // Options and exporter for the next Decode (the session sets them).
    void SetDecodeContext(const CDecodeContext& context) { m_context = context; }
    const CDecodeContext& GetDecodeContext() const { return m_context; }

protected:
    CIPFIXHeader m_header;
    CArray<CIPFIXRecord> m_records;
    CIPFIXDecodeNotes m_notes;
    CDecodeContext m_context;

private:
    // One template or options template set from offset to end.
    void DecodeTemplateSet(const CByteArray& datagram, int setId, int offset, int end,
                           CNetFlowTemplateManager& store, const CTemplateScope& scope);
    // One data set from offset to end.
    void DecodeDataSet(const CByteArray& datagram, int setId, int offset, int end,
                       CNetFlowTemplateManager& store, const CTemplateScope& scope);
};
