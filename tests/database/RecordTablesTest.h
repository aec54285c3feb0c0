#pragma once
// Base for tests of packets writing their records as rows: the two record tables on each backend, a
// writer's way of running PrepareSQL, and the rows read back as text.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "packet/TPAbstractPacket.h"
#include "util/TextConvert.h"

namespace tpnf::test {

class RecordTablesTest : public DataSourceTest {
protected:
    void SetUp() override {
        DataSourceTest::SetUp();
        if (IsSkipped())
            return;
        m_db.OpenEx(Source().ConnectString());
        m_db.ExecuteSQL(
            L"create table netflow_records (record_id integer NOT NULL PRIMARY KEY, record_ip_addr "
            L"varchar(64), record_ip_port integer, record_time integer, record_version integer)");
        m_db.ExecuteSQL(L"create table netflow_attributes (record_id integer NOT NULL, attr_id integer, "
                        L"attr_value varchar(255))");
    }
    void TearDown() override {
        m_db.Close();
        DataSourceTest::TearDown();
    }

    // Runs PrepareSQL the way the writer does: both recordsets open, then closed to flush the rows.
    void Write(CTPAbstractPacket& packet, int& recordId) {
        CODBCRecordset records(&m_db);
        CODBCRecordset attributes(&m_db);
        records.Open(L"select * from netflow_records");
        attributes.Open(L"select * from netflow_attributes");
        packet.PrepareSQL(recordId, records, attributes);
        records.Close();
        attributes.Close();
    }

    // Each row as "a|b|c" in table order.
    std::vector<std::string> Rows(const CString& select, int columns) {
        std::vector<std::string> rows;
        CODBCRecordset rs(&m_db);
        rs.Open(select);
        for (; !rs.IsEOF(); rs.MoveNext()) {
            std::string row;
            for (int c = 0; c < columns; ++c) {
                static const wchar_t* const kNames[] = {L"c0", L"c1", L"c2", L"c3", L"c4"};
                row += (c ? "|" : "") + tpnf::ToUtf8(rs.Field(kNames[c]).AsString());
            }
            rows.push_back(row);
        }
        return rows;
    }
    std::vector<std::string> Records() {
        return Rows(L"select record_id as c0, record_time as c1, record_ip_addr as c2, record_ip_port as c3, "
                    L"record_version as c4 from netflow_records order by record_id",
                    5);
    }
    std::vector<std::string> Attributes() {
        // Insertion order within a record is field order; the key sorts records.
        return Rows(
            L"select record_id as c0, attr_id as c1, attr_value as c2 from netflow_attributes order by "
            L"record_id",
            3);
    }

    CDatabase m_db;
};

} // namespace tpnf::test
