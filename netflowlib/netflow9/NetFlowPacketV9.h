#pragma once

#include "netflow9/NetFlowHeaderV9.h"
#include "netflow9/NetFlowSetRecord.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"

// A NetFlow v9 datagram: header and data records. Templates go to the process-wide template store.
class CNetFlowPacketV9 : public CTPAbstractPacket {
public:
    CNetFlowPacketV9() = default;
    CNetFlowPacketV9(const CNetFlowPacketV9& other);
    CNetFlowPacketV9& operator=(const CNetFlowPacketV9& other);
    ~CNetFlowPacketV9() override = default;

    // Copies header and records but not the sender; onto itself only the header.
    void Copy(const CNetFlowPacketV9& other);

    // FALSE only for a datagram shorter than 20 bytes. A cut-off record ends decoding with TRUE; a cut-off
    // flowset header, template or specifier raises CInvalidArgException.
    int Decode(const CByteArray& datagram) override;
    CString ToString() const override;
    int64_t GetSize() const override { return static_cast<int64_t>(m_records.size()); }
    BOOL IsEmpty() const override { return m_records.empty(); }
    CString GetProtocol() const override { return L"NetFlow v9"; }
    CString GetTimestamp() const override { return m_header.GetTimestamp(); }
    CString GetSysUpTime() const override { return m_header.GetSysUpTime(); }
    void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) override;
    // One "netflow_records" row per data record and one "netflow_attributes" row per field, with ids from
    // recordId on; recordId ends one past the last id used. Nothing is written when recordId is -1.
    void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override;

    const CNetFlowHeaderV9& GetHeader() const { return m_header; }
    const CArray<CNetFlowSetRecord>& GetRecords() const { return m_records; }

    // Options and exporter for the next Decode (the session sets them); without them templates live in
    // the one process-wide scope, as always. With ETemplateScope::Exporter templates are stored and
    // looked up per exporter address and source id, at most options.maxTemplates per exporter (0: no
    // bound).
    void SetDecodeContext(const CDecodeContext& context) { m_context = context; }
    const CDecodeContext& GetDecodeContext() const { return m_context; }

protected:
    CNetFlowHeaderV9 m_header;
    CArray<CNetFlowSetRecord> m_records;
    CDecodeContext m_context;

private:
    // Stores a decoded template in the global or in the exporter's scope.
    void StoreTemplate(CNetFlowTemplateManager& store, bool scoped, const CTemplateScope& scope,
                       const CNetFlowSetTemplate& decoded);
    // Walks the records or templates of one flowset from offset to end.
    BOOL DecodeFlowSet(const CByteArray& datagram, int id, int& offset, int end);
};
