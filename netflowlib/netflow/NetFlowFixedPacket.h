#pragma once

#include "netflow/NetFlowPacket.h"

// A NetFlow packet of one header and one array of fixed-size flow records (v1, v5, v7). The version
// class adds Decode, GetProtocol and its own Copy.
template <class THeader, class TRecord>
class CNetFlowFixedPacket : public CNetFlowPacket {
public:
    using CRecordArray = CArray<TRecord, const TRecord&>;

    CString ToString() const override;
    int64_t GetSize() const override { return static_cast<int64_t>(m_records.size()); }
    BOOL IsEmpty() const override { return m_records.empty() ? TRUE : FALSE; }
    CString GetTimestamp() const override { return m_header.GetTimestamp(); }
    CString GetSysUpTime() const override { return m_header.GetSysUpTime(); }
    void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) override {
        ElementAt(m_records, recordIndex).GetRecordFields(fieldIds, values);
    }

    THeader GetHeader() const { return m_header; }
    void SetHeader(const THeader& header) { m_header = header; }
    void GetRecords(CRecordArray& records) const {
        if (&records != &m_records)
            records = m_records;
    }
    CRecordArray& GetRecords() { return m_records; }
    void SetRecords(const CRecordArray& records) { m_records = records; }

protected:
    // The records follow the header's count from firstOffset on.
    int DecodeRecords(const CByteArray& data, int firstOffset) {
        return CNetFlowPacket::DecodeRecords(data, m_header.m_count, firstOffset, m_records);
    }
    // Header and records only: the sender address and port are left as they are.
    void CopyContent(const CNetFlowFixedPacket& other) {
        m_header = other.m_header;
        m_records = other.m_records;
    }

    THeader m_header;
    CRecordArray m_records;
};

template <class THeader, class TRecord>
CString CNetFlowFixedPacket<THeader, TRecord>::ToString() const {
    CString text = FormatOpening(m_header.ToString());
    text.reserve(text.size() + m_records.size() * 400);
    for (size_t i = 0; i < m_records.size(); ++i) {
        AppendRecordHeading(text, static_cast<int>(i));
        text += m_records[i].ToString();
    }
    return text;
}
