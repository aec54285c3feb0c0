// The writer's database operations, run directly on the test thread against SQLite and PostgreSQL.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "corelib/DBException.h"
#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "database/V9FlowPackets.h"
#include "netflow/NetFlowPacketV5.h"
#include "session/NetFlowDatabase.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;
using tpnf::test::DecodeThreeFieldPacket;
using tpnf::test::ThreeFieldPacket;

namespace {

// The writer without its thread: the operations run on the calling thread.
class TestWriter : public CNetFlowDatabase {
public:
    explicit TestWriter(const CString& dsn) { m_strDSN = dsn; }
};

struct RecordRow {
    int32_t id;
    CString address;
    int32_t port;
    int32_t time;
    int32_t version;
    bool operator==(const RecordRow&) const = default;
};

struct AttributeRow {
    int32_t id;
    int32_t attr;
    CString value;
    bool operator==(const AttributeRow&) const = default;
};

void PrintTo(const RecordRow& r, std::ostream* os) {
    *os << "{" << r.id << ", " << tpnf::ToUtf8(r.address) << ", " << r.port << ", " << r.time << ", "
        << r.version << "}";
}
void PrintTo(const AttributeRow& r, std::ostream* os) {
    *os << "{" << r.id << ", " << r.attr << ", " << tpnf::ToUtf8(r.value) << "}";
}

std::unique_ptr<CNetFlowPacketV9> TwoRecordPacket() {
    return ThreeFieldPacket(1700000000u, {1, 2});
}

class NetFlowDatabaseTest : public DataSourceTest {
protected:
    void SetUp() override {
        DataSourceTest::SetUp();
        if (IsSkipped())
            return;
        m_peek.OpenEx(Source().ConnectString());
    }
    void TearDown() override {
        m_peek.Close();
        DataSourceTest::TearDown();
    }

    // What another connection sees.
    std::vector<int32_t> StoredIds() {
        std::vector<int32_t> ids;
        CODBCRecordset rs(&m_peek);
        rs.Open(L"select record_id from netflow_record_id");
        for (; !rs.IsEOF(); rs.MoveNext())
            ids.push_back(rs.GetLong(L"record_id"));
        return ids;
    }
    std::vector<RecordRow> Records() {
        std::vector<RecordRow> rows;
        CODBCRecordset rs(&m_peek);
        rs.Open(L"select record_id, record_ip_addr, record_ip_port, record_time, record_version from "
                L"netflow_records order by record_id");
        for (; !rs.IsEOF(); rs.MoveNext())
            rows.push_back({rs.GetLong(L"record_id"), rs.Field(L"record_ip_addr").AsString(),
                            rs.GetLong(L"record_ip_port"), rs.GetLong(L"record_time"),
                            rs.GetLong(L"record_version")});
        return rows;
    }
    std::vector<AttributeRow> Attributes() {
        std::vector<AttributeRow> rows;
        CODBCRecordset rs(&m_peek);
        rs.Open(L"select record_id, attr_id, attr_value from netflow_attributes order by record_id, attr_id");
        for (; !rs.IsEOF(); rs.MoveNext())
            rows.push_back(
                {rs.GetLong(L"record_id"), rs.GetLong(L"attr_id"), rs.Field(L"attr_value").AsString()});
        return rows;
    }
    int32_t Scalar(const CString& select) {
        CODBCRecordset rs(&m_peek);
        rs.Open(select);
        return rs.GetLong(L"v");
    }
    bool TableExists(const CString& table) {
        try {
            Scalar(L"select count(*) as v from " + table);
            return true;
        } catch (const CDBException&) {
            return false;
        }
    }

    // Opens a writer on the test database and checks that it came up healthy.
    std::unique_ptr<TestWriter> OpenedWriter() {
        auto writer = std::make_unique<TestWriter>(Source().Name());
        EXPECT_EQ(writer->OpenDatabase(), 1) << tpnf::ToUtf8(writer->m_strLastError);
        return writer;
    }

    CDatabase m_peek;
};

TEST_P(NetFlowDatabaseTest, FreshSourceGetsTheThreeTables) {
    TestWriter writer(Source().Name());
    EXPECT_EQ(writer.OpenDatabase(), 1);
    EXPECT_TRUE(writer.m_bStatusOK);
    EXPECT_EQ(writer.m_strLastError, L"");
    EXPECT_TRUE(writer.m_Database.IsOpen());
    if (IsSQLite()) {
        // SQLite keeps the statement as issued, with its first two words in capitals.
        auto definition = [this](const wchar_t* table) {
            CODBCRecordset rs(&m_peek);
            rs.Open(CString(L"select sql as v from sqlite_master where name = '") + table + L"'");
            return rs.Field(L"v").AsString();
        };
        EXPECT_EQ(
            definition(L"netflow_records"),
            L"CREATE TABLE netflow_records (record_id integer NOT NULL PRIMARY KEY, record_ip_addr varchar, "
            L"record_ip_port integer, record_time integer, record_version integer)");
        EXPECT_EQ(definition(L"netflow_attributes"), L"CREATE TABLE netflow_attributes (record_id integer "
                                                     L"NOT NULL, attr_id integer, attr_value varchar)");
        EXPECT_EQ(definition(L"netflow_record_id"),
                  L"CREATE TABLE netflow_record_id (record_id integer NOT NULL PRIMARY KEY)");
    } else {
        auto columns = [this](const wchar_t* table) {
            CString text;
            CODBCRecordset rs(&m_peek);
            rs.Open(CString(L"select column_name, data_type, is_nullable from information_schema.columns "
                            L"where table_schema = current_schema() and table_name = '") +
                    table + L"' order by ordinal_position");
            for (; !rs.IsEOF(); rs.MoveNext())
                text += rs.Field(L"column_name").AsString() + L" " + rs.Field(L"data_type").AsString() +
                        L" " + rs.Field(L"is_nullable").AsString() + L"; ";
            return text;
        };
        auto primaryKey = [this](const wchar_t* table) {
            CODBCRecordset rs(&m_peek);
            rs.Open(CString(L"select k.column_name as v from information_schema.table_constraints c join "
                            L"information_schema.key_column_usage k on c.constraint_name = k.constraint_name "
                            L"and c.table_schema = k.table_schema where c.table_schema = current_schema() "
                            L"and c.constraint_type = 'PRIMARY KEY' and c.table_name = '") +
                    table + L"'");
            return rs.IsEOF() ? CString() : rs.Field(L"v").AsString();
        };
        EXPECT_EQ(columns(L"netflow_records"),
                  L"record_id integer NO; record_ip_addr character varying YES; record_ip_port integer YES; "
                  L"record_time integer YES; record_version integer YES; ");
        EXPECT_EQ(columns(L"netflow_attributes"),
                  L"record_id integer NO; attr_id integer YES; attr_value character varying YES; ");
        EXPECT_EQ(columns(L"netflow_record_id"), L"record_id integer NO; ");
        EXPECT_EQ(primaryKey(L"netflow_records"), L"record_id");
        EXPECT_EQ(primaryKey(L"netflow_attributes"), L"");
        EXPECT_EQ(primaryKey(L"netflow_record_id"), L"record_id");
    }
    EXPECT_TRUE(StoredIds().empty());
}

TEST_P(NetFlowDatabaseTest, FirstWriteStartsIdsAtZeroAndStoresOneMoreThanTheLast) {
    auto writer = OpenedWriter();
    auto packet = TwoRecordPacket();
    writer->AddPacket(packet.get());
    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_TRUE(writer->m_bStatusOK);
    EXPECT_TRUE(writer->m_Packets.empty());
    std::vector<RecordRow> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].id, 0);
    EXPECT_EQ(records[1].id, 1);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{2});
}

TEST_P(NetFlowDatabaseTest, TwoRecordsOfThreeFieldsGiveTwoAndSixRowsWithIdsNAndNPlusOne) {
    auto writer = OpenedWriter();
    auto first = ThreeFieldPacket(1u, {9});
    writer->AddPacket(first.get());
    ASSERT_EQ(writer->WritePackets(), 1);
    ASSERT_EQ(StoredIds(), std::vector<int32_t>{1}); // n = 1

    auto packet = TwoRecordPacket();
    writer->AddPacket(packet.get());
    EXPECT_EQ(writer->WritePackets(), 1);
    std::vector<RecordRow> records = Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[1], (RecordRow{1, L"192.0.2.7", 2055, 1700000000, 9}));
    EXPECT_EQ(records[2], (RecordRow{2, L"192.0.2.7", 2055, 1700000000, 9}));
    std::vector<AttributeRow> attributes = Attributes();
    ASSERT_EQ(attributes.size(), 9u);
    std::vector<AttributeRow> written(attributes.begin() + 3, attributes.end());
    EXPECT_EQ(written, (std::vector<AttributeRow>{{1, 1, L"1001"},
                                                  {1, 4, L"17"},
                                                  {1, 8, L"10.0.0.1"},
                                                  {2, 1, L"1002"},
                                                  {2, 4, L"17"},
                                                  {2, 8, L"10.0.0.2"}}));
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{3});
}

TEST_P(NetFlowDatabaseTest, QueueOfNonWritingPacketsStoresTheUnchangedId) {
    auto writer = OpenedWriter();
    auto packet = TwoRecordPacket();
    writer->AddPacket(packet.get());
    ASSERT_EQ(writer->WritePackets(), 1);
    CNetFlowPacketV5 v5a, v5b;
    writer->AddPacket(&v5a);
    writer->AddPacket(&v5b);
    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_TRUE(writer->m_Packets.empty());
    EXPECT_EQ(Records().size(), 2u);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{2});
}

TEST_P(NetFlowDatabaseTest, NonWritingPacketsOnAFreshSourceLeaveTheIdRowAtZero) {
    auto writer = OpenedWriter();
    CNetFlowPacketV5 v5;
    writer->AddPacket(&v5);
    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_TRUE(Records().empty());
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{0});
}

TEST_P(NetFlowDatabaseTest, ExistingTablesStillCountAsOpened) {
    {
        auto writer = OpenedWriter();
        auto packet = TwoRecordPacket();
        writer->AddPacket(packet.get());
        ASSERT_EQ(writer->WritePackets(), 1);
    }
    TestWriter writer(Source().Name());
    EXPECT_EQ(writer.OpenDatabase(), 1);
    EXPECT_TRUE(writer.m_bStatusOK);
    EXPECT_FALSE(writer.m_strLastError.empty()); // the create error is kept
    EXPECT_NE(writer.m_strLastError.find(L"netflow_records"), CString::npos)
        << tpnf::ToUtf8(writer.m_strLastError);
    auto packet = TwoRecordPacket();
    writer.AddPacket(packet.get());
    EXPECT_EQ(writer.WritePackets(), 1);
    EXPECT_EQ(Records().size(), 4u);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{4});
}

TEST_P(NetFlowDatabaseTest, CreateTablesOnExistingTablesKeepsAnUnhealthyFlag) {
    auto writer = OpenedWriter();
    writer->m_bStatusOK = FALSE;
    EXPECT_EQ(writer->CreateTables(), 0); // the flag is returned as it is
    EXPECT_FALSE(writer->m_bStatusOK);
    writer->m_bStatusOK = TRUE;
    writer->m_strLastError.clear();
    EXPECT_EQ(writer->CreateTables(), 1);
    EXPECT_FALSE(writer->m_strLastError.empty());
}

TEST_P(NetFlowDatabaseTest, CreateTablesWithoutConnectionFails) {
    TestWriter writer(Source().Name());
    EXPECT_EQ(writer.CreateTables(), 0);
    EXPECT_EQ(writer.AccessRecordId(-1), -1);
    EXPECT_FALSE(TableExists(L"netflow_records"));
}

TEST_P(NetFlowDatabaseTest, AccessRecordIdInsertsZeroWhateverTheNewIdWas) {
    auto writer = OpenedWriter();
    EXPECT_EQ(writer->AccessRecordId(42), 0);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{0});
    EXPECT_EQ(writer->AccessRecordId(42), 42);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{42});
    EXPECT_EQ(writer->AccessRecordId(-1), 42);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{42});
}

// A record id table made by someone else, without its key, can hold several rows.
TEST_P(NetFlowDatabaseTest, AccessRecordIdVisitsEveryRowAndReturnsTheLast) {
    m_peek.ExecuteSQL(L"create table netflow_record_id (record_id integer NOT NULL)");
    for (int id : {3, 7, 5})
        m_peek.ExecuteSQL(L"insert into netflow_record_id values (" + std::to_wstring(id) + L")");
    auto writer = OpenedWriter();
    EXPECT_EQ(writer->AccessRecordId(-1), 5);
    EXPECT_EQ(writer->AccessRecordId(9), 9);
    EXPECT_EQ(StoredIds(), (std::vector<int32_t>{9, 9, 9}));
}

TEST_P(NetFlowDatabaseTest, WriteAfterAFailureIsRefusedAndTheQueueOnlyGrows) {
    auto writer = OpenedWriter();
    m_peek.ExecuteSQL(L"drop table netflow_attributes");
    auto first = TwoRecordPacket();
    writer->AddPacket(first.get());
    EXPECT_EQ(writer->WritePackets(), 0);
    EXPECT_FALSE(writer->m_bStatusOK);
    EXPECT_NE(writer->m_strLastError.find(L"netflow_attributes"), CString::npos)
        << tpnf::ToUtf8(writer->m_strLastError);
    EXPECT_EQ(writer->m_Packets.size(), 1u);
    EXPECT_TRUE(Records().empty()); // rolled back

    m_peek.ExecuteSQL(
        L"create table netflow_attributes (record_id integer NOT NULL, attr_id integer, attr_value "
        L"varchar(100))");
    auto second = TwoRecordPacket();
    writer->AddPacket(second.get());
    EXPECT_EQ(writer->WritePackets(), 0);
    EXPECT_EQ(writer->WritePackets(), 0);
    EXPECT_EQ(writer->m_Packets.size(), 2u);
    EXPECT_TRUE(Records().empty());
    EXPECT_TRUE(Attributes().empty());
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{0});
}

TEST_P(NetFlowDatabaseTest, LostConnectionStopsWriting) {
    if (IsSQLite())
        GTEST_SKIP() << "an embedded database has no connection to lose";
    auto writer = OpenedWriter();
    auto first = TwoRecordPacket();
    writer->AddPacket(first.get());
    ASSERT_EQ(writer->WritePackets(), 1);
    CDatabase admin;
    admin.OpenEx(L"DSN=" + tpnf::FromUtf8(tpnf::test::PostgreSQLDsn()));
    CODBCRecordset killed(&admin);
    killed.Open(tpnf::FromUtf8("select count(pg_terminate_backend(pid)) as v from pg_stat_activity where "
                               "application_name = '" +
                               Source().Schema() + "' and pid <> pg_backend_pid()"));
    ASSERT_GE(killed.GetLong(L"v"), 2); // the writer's and this test's
    killed.Close();
    m_peek.OpenEx(Source().ConnectString());

    auto second = TwoRecordPacket();
    writer->AddPacket(second.get());
    EXPECT_EQ(writer->WritePackets(), 0);
    EXPECT_FALSE(writer->m_bStatusOK);
    EXPECT_FALSE(writer->m_strLastError.empty());
    EXPECT_EQ(writer->m_Packets.size(), 1u);
    auto third = TwoRecordPacket();
    writer->AddPacket(third.get());
    EXPECT_EQ(writer->WritePackets(), 0);
    EXPECT_EQ(writer->m_Packets.size(), 2u);
    EXPECT_EQ(Records().size(), 2u);
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{2});
}

// The failed id read returns 0, which the write takes as an id: intended.
TEST_P(NetFlowDatabaseTest, UnreadableIdTableWritesWithIdZero) {
    auto writer = OpenedWriter();
    m_peek.ExecuteSQL(L"drop table netflow_record_id");
    auto packet = TwoRecordPacket();
    writer->AddPacket(packet.get());
    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_TRUE(writer->m_bStatusOK);
    EXPECT_NE(writer->m_strLastError.find(L"netflow_record_id"), CString::npos)
        << tpnf::ToUtf8(writer->m_strLastError);
    EXPECT_TRUE(writer->m_Packets.empty());
    std::vector<RecordRow> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].id, 0);
    EXPECT_EQ(records[1].id, 1);
}

TEST_P(NetFlowDatabaseTest, EmptyQueueWritesNothingAndSucceeds) {
    auto writer = OpenedWriter();
    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_TRUE(StoredIds().empty()); // the id table is not even read
}

TEST_P(NetFlowDatabaseTest, WriteWithoutConnectionKeepsTheQueue) {
    TestWriter writer(Source().Name());
    auto packet = TwoRecordPacket();
    writer.AddPacket(packet.get());
    EXPECT_EQ(writer.WritePackets(), 0);
    EXPECT_EQ(writer.m_Packets.size(), 1u);
    EXPECT_TRUE(writer.m_strLastError.empty());
}

TEST_P(NetFlowDatabaseTest, ExceptionOutsideTheDatabaseFailsTheWriteWithItsText) {
    class ThrowingPacket : public CNetFlowPacketV9 {
    public:
        ThrowingPacket() { DecodeThreeFieldPacket(*this, 1u, {1}); }
        void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
            CNetFlowPacketV9::PrepareSQL(recordId, records, attributes);
            AfxThrowInvalidArgException();
        }
    };
    auto writer = OpenedWriter();
    auto good = TwoRecordPacket();
    ThrowingPacket bad;
    writer->AddPacket(good.get());
    writer->AddPacket(&bad);
    EXPECT_EQ(writer->WritePackets(), 0);
    EXPECT_EQ(writer->m_strLastError, L"Failed to execute query");
    EXPECT_FALSE(writer->m_bStatusOK);
    EXPECT_EQ(writer->m_Packets.size(), 2u);
    EXPECT_TRUE(Records().empty());
    EXPECT_TRUE(Attributes().empty());
    EXPECT_EQ(StoredIds(), std::vector<int32_t>{0}); // inserted by its own committed transaction
}

TEST_P(NetFlowDatabaseTest, ReadOnlySourceWithoutIdRowCannotWrite) {
    if (IsSQLite())
        GTEST_SKIP() << "the SQLite driver does not report a ReadOnly connection";
    OpenedWriter(); // tables exist, the id table is empty
    TestWriter writer(Source().ReadOnlyName());
    ASSERT_EQ(writer.OpenDatabase(), 1);
    EXPECT_EQ(writer.AccessRecordId(-1), -1);
    auto packet = TwoRecordPacket();
    writer.AddPacket(packet.get());
    writer.m_strLastError.clear();
    EXPECT_EQ(writer.WritePackets(), 0);
    EXPECT_TRUE(writer.m_strLastError.empty());
    EXPECT_TRUE(writer.m_bStatusOK);
    EXPECT_EQ(writer.m_Packets.size(), 1u);
    EXPECT_TRUE(StoredIds().empty());
}

TEST_P(NetFlowDatabaseTest, ReadOnlySourceWithIdRowFailsToWrite) {
    if (IsSQLite())
        GTEST_SKIP() << "the SQLite driver does not report a ReadOnly connection";
    {
        auto writer = OpenedWriter();
        ASSERT_EQ(writer->AccessRecordId(5), 0);
    }
    TestWriter writer(Source().ReadOnlyName());
    ASSERT_EQ(writer.OpenDatabase(), 1);
    auto packet = TwoRecordPacket();
    writer.AddPacket(packet.get());
    EXPECT_EQ(writer.WritePackets(), 0);
    EXPECT_EQ(writer.m_strLastError, L"Failed to write to the database");
    EXPECT_FALSE(writer.m_bStatusOK);
    EXPECT_EQ(writer.m_Packets.size(), 1u);
    EXPECT_TRUE(Records().empty());
}

TEST_P(NetFlowDatabaseTest, ReopeningClosesTheOldConnectionFirst) {
    auto writer = OpenedWriter();
    EXPECT_EQ(writer->OpenDatabase(), 1);
    EXPECT_TRUE(writer->m_Database.IsOpen());
    auto packet = TwoRecordPacket();
    writer->AddPacket(packet.get());
    EXPECT_EQ(writer->WritePackets(), 1);
}

TEST_P(NetFlowDatabaseTest, WriteHoldsTheWriterLockForTheWholeTransaction) {
    class ProbingPacket : public CNetFlowPacketV9 {
    public:
        explicit ProbingPacket(CNetFlowDatabase& writer) : m_writer(writer) {
            DecodeThreeFieldPacket(*this, 1u, {1});
        }
        void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
            std::thread([this] {
                if (m_writer.m_Lock.try_lock()) {
                    m_writer.m_Lock.unlock();
                    m_lockedDuringWrite = false;
                } else {
                    m_lockedDuringWrite = true;
                }
            }).join();
            CNetFlowPacketV9::PrepareSQL(recordId, records, attributes);
        }
        CNetFlowDatabase& m_writer;
        std::atomic<bool> m_lockedDuringWrite{false};
    };
    auto writer = OpenedWriter();
    ProbingPacket packet(*writer);
    writer->AddPacket(&packet);
    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_TRUE(packet.m_lockedDuringWrite);
}

INSTANTIATE_TEST_SUITE_P(Backends, NetFlowDatabaseTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

TEST(NetFlowDatabaseOpenTest, MissingDataSourceFailsWithTheDriversText) {
    tpnf::test::SQLiteDsn(); // the ODBC configuration is in place
    TestWriter writer(L"tpnf_no_such_source");
    EXPECT_EQ(writer.OpenDatabase(), 0);
    EXPECT_FALSE(writer.m_bStatusOK);
    EXPECT_FALSE(writer.m_Database.IsOpen());
    EXPECT_NE(writer.m_strLastError.find(L"not found"), CString::npos) << tpnf::ToUtf8(writer.m_strLastError);
    CNetFlowPacketV5 v5;
    writer.AddPacket(&v5);
    EXPECT_EQ(writer.WritePackets(), 0);
    EXPECT_EQ(writer.m_Packets.size(), 1u);
}

} // namespace
