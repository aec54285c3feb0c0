#pragma once
// The database writer run without its thread, and the writer's three tables read back whole.

#include <string>
#include <vector>

#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "session/NetFlowDatabase.h"
#include "util/TextConvert.h"

namespace tpnf::test {

// The writer's operations run on the calling thread.
class DirectWriter : public CNetFlowDatabase {
public:
    explicit DirectWriter(const CString& dsn) { m_strDSN = dsn; }
};

// Every row of the three tables, one "table: v1|v2|..." line each, in a fixed order.
inline std::vector<std::string> DumpTables(const CString& connect) {
    static const struct {
        const wchar_t* name;
        const wchar_t* select;
        int columns;
    } kTables[] = {
        {L"netflow_records",
         L"select record_id, record_ip_addr, record_ip_port, record_time, record_version from "
         L"netflow_records "
         L"order by record_id",
         5},
        {L"netflow_attributes",
         L"select record_id, attr_id, attr_value from netflow_attributes order by record_id, attr_id, "
         L"attr_value",
         3},
        {L"netflow_record_id", L"select record_id from netflow_record_id order by record_id", 1},
    };
    CDatabase db;
    db.OpenEx(connect);
    std::vector<std::string> lines;
    for (const auto& table : kTables) {
        CODBCRecordset rs(&db);
        rs.Open(table.select);
        for (; !rs.IsEOF(); rs.MoveNext()) {
            std::string line = ToUtf8(table.name) + ":";
            for (int c = 0; c < table.columns; ++c)
                line += (c == 0 ? " " : "|") + ToUtf8(rs.FieldAt(static_cast<size_t>(c)).AsString());
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

} // namespace tpnf::test
