// NetFlow v9 packets writing their records as rows, against SQLite and PostgreSQL.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "database/V9FlowPackets.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/NetFlowV9Datagram.h"
#include "util/TextConvert.h"

using tpnf::test::Backend;
using tpnf::test::ByteBuilder;
using tpnf::test::DataSourceTest;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::ThreeFieldPacket;
using tpnf::test::V9Header;

namespace {

class PrepareSqlTest : public DataSourceTest {
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
    void Write(CNetFlowPacketV9& packet, int& recordId) {
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

TEST_P(PrepareSqlTest, ThreeRecordsFromId100TakeIds100To102AndLeave103) {
    auto packet = ThreeFieldPacket(1700000000u, {1, 2, 3});
    int recordId = 100;
    Write(*packet, recordId);
    EXPECT_EQ(recordId, 103);
    EXPECT_EQ(Records(),
              (std::vector<std::string>{"100|1700000000|192.0.2.7|2055|9", "101|1700000000|192.0.2.7|2055|9",
                                        "102|1700000000|192.0.2.7|2055|9"}));
    std::vector<std::string> attributes = Attributes();
    ASSERT_EQ(attributes.size(), 9u);
    // Protocol numbers stay numbers here.
    for (int r = 0; r < 3; ++r) {
        std::vector<std::string> record(attributes.begin() + 3 * r, attributes.begin() + 3 * r + 3);
        std::sort(record.begin(), record.end());
        const std::string id = std::to_string(100 + r);
        EXPECT_EQ(record, (std::vector<std::string>{id + "|1|" + std::to_string(1001 + r), id + "|4|17",
                                                    id + "|8|10.0.0." + std::to_string(1 + r)}));
    }
}

TEST_P(PrepareSqlTest, RecordIdMinusOneWritesNothing) {
    auto packet = ThreeFieldPacket(1700000000u, {1, 2});
    int recordId = -1;
    Write(*packet, recordId);
    EXPECT_EQ(recordId, -1);
    EXPECT_TRUE(Records().empty());
    EXPECT_TRUE(Attributes().empty());
}

TEST_P(PrepareSqlTest, PacketWithoutDataRecordsLeavesTheIdAlone) {
    CNetFlowPacketV9 packet;
    const std::vector<uint8_t> onlyTemplate =
        NetFlowV9Datagram(V9Header{1, 0, 5, 0, 0}).Template(301, {{8, 4}}).build();
    ASSERT_TRUE(packet.Decode(CByteArray(onlyTemplate.begin(), onlyTemplate.end())));
    int recordId = 7;
    Write(packet, recordId);
    EXPECT_EQ(recordId, 7);
    EXPECT_TRUE(Records().empty());
}

// Unknown types keep their number and their byte rendering; export seconds past 2038 are stored as a
// signed 32-bit number, intended.
TEST_P(PrepareSqlTest, UnknownFieldTypeAndLateExportTime) {
    CNetFlowPacketV9 packet;
    const std::vector<uint8_t> datagram = NetFlowV9Datagram(V9Header{2, 0, 0x80000001u, 0, 0})
                                              .Template(302, {{999, 2}})
                                              .Data(302, ByteBuilder().u8(0x01).u8(0xFF).build())
                                              .build();
    ASSERT_TRUE(packet.Decode(CByteArray(datagram.begin(), datagram.end())));
    packet.SetSenderInfo(L"198.51.100.1", 9995);
    int recordId = 0;
    Write(packet, recordId);
    EXPECT_EQ(Records(), (std::vector<std::string>{"0|-2147483647|198.51.100.1|9995|9"}));
    EXPECT_EQ(Attributes(), (std::vector<std::string>{"0|999|1 255 "}));
}

INSTANTIATE_TEST_SUITE_P(Backends, PrepareSqlTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

} // namespace
