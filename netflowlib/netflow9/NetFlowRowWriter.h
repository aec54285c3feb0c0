#pragma once

#include "corelib/ODBCRecordset.h"
#include "util/Types.h"

// Writes flow records as database rows: one "netflow_records" row per record, one "netflow_attributes"
// row per field. Every packet kind that stores records writes them through this one layout.
class CNetFlowRowWriter {
public:
    CNetFlowRowWriter(CODBCRecordset& records, CODBCRecordset& attributes)
        : m_records(records), m_attributes(attributes) {}

    // A long is 32 bits: export seconds past 2038 are stored negative, intended.
    void AddRecord(int recordId, int32_t time, const CString& address, int port, int version) {
        m_records.AddNew();
        m_records.Field(L"record_id") = recordId;
        m_records.Field(L"record_time") = time;
        m_records.Field(L"record_ip_addr") = address;
        m_records.Field(L"record_ip_port") = port;
        m_records.Field(L"record_version") = version;
        m_records.Update();
    }

    void AddAttribute(int recordId, int attributeId, const CString& value) {
        m_attributes.AddNew();
        m_attributes.Field(L"record_id") = recordId;
        m_attributes.Field(L"attr_id") = attributeId;
        m_attributes.Field(L"attr_value") = value;
        m_attributes.Update();
    }

private:
    CODBCRecordset& m_records;
    CODBCRecordset& m_attributes;
};
