// The flows table on SQLite and PostgreSQL: its columns, every value written and read back, and
// several writers at once.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "corelib/DBException.h"
#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "flows/FlowRecord.h"
#include "flows/FlowTable.h"
#include "util/TextConvert.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;
using K = EFlowKey;

namespace {

class FlowTableTest : public DataSourceTest {
protected:
    void SetUp() override {
        DataSourceTest::SetUp();
        if (IsSkipped())
            return;
        m_db.OpenEx(Source().ConnectString());
    }
    void TearDown() override {
        m_db.Close();
        DataSourceTest::TearDown();
    }

    int32_t Scalar(CDatabase& db, const CString& select) {
        CODBCRecordset rs(&db);
        rs.Open(select);
        return rs.GetLong(L"v");
    }
    int32_t Count() { return Scalar(m_db, L"select count(*) as v from flows"); }

    // (name, type) of every column of the table, in table order, as the database describes them.
    std::vector<std::pair<std::string, std::string>> Columns() {
        CODBCRecordset rs(&m_db);
        rs.Open(IsSQLite() ? L"select name as n, type as t from pragma_table_info('flows') order by cid"
                           : L"select column_name as n, data_type as t from information_schema.columns "
                             L"where table_name = 'flows' and table_schema = current_schema() "
                             L"order by ordinal_position");
        std::vector<std::pair<std::string, std::string>> columns;
        for (; !rs.IsEOF(); rs.MoveNext())
            columns.emplace_back(tpnf::ToUtf8(rs.Field(L"n").AsString()),
                                 tpnf::ToUtf8(rs.Field(L"t").AsString()));
        return columns;
    }

    std::vector<std::string> Indexes() {
        CODBCRecordset rs(&m_db);
        rs.Open(IsSQLite()
                    ? L"select name as n from sqlite_master where type = 'index' and tbl_name = 'flows' "
                      L"order by name"
                    : L"select indexname as n from pg_indexes where tablename = 'flows' and "
                      L"schemaname = current_schema() order by indexname");
        std::vector<std::string> names;
        for (; !rs.IsEOF(); rs.MoveNext())
            names.push_back(tpnf::ToUtf8(rs.Field(L"n").AsString()));
        return names;
    }

    CDatabase m_db;
};

// A flow with a value in every key, the extremes where a key has them.
CFlowRecord FullFlow() {
    CFlowRecord flow;
    flow.Set(K::TimeReceived, 1700000000123);
    uint8_t exporter[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10};
    flow.SetAddress(K::Exporter, CFlowAddress::FromBytes(exporter, 16));
    flow.Set(K::ExporterPort, 65535);
    flow.SetProtocol(EFlowProtocol::NetFlowV9);
    flow.Set(K::Sequence, 4294967295);
    flow.Set(K::ObservationDomain, 4294967295);
    flow.Set(K::FlowStart, -1); // before 1970: negative values survive too
    flow.Set(K::FlowEnd, 1700000000000);
    flow.Set(K::IpVersion, 6);
    uint8_t src[16] = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x02, 0xb3, 0xff, 0xfe, 0x1e, 0x83, 0x29};
    flow.SetAddress(K::SrcAddr, CFlowAddress::FromBytes(src, 16));
    uint8_t dst[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1};
    flow.SetAddress(K::DstAddr, CFlowAddress::FromBytes(dst, 16));
    flow.SetAddress(K::NextHop, CFlowAddress::IPv4(0x0A000001));
    flow.Set(K::SrcPort, 65535);
    flow.Set(K::DstPort, 0);
    flow.Set(K::Proto, 255);
    flow.Set(K::Tos, 255);
    flow.Set(K::TcpFlags, 0x1FF);
    flow.Set(K::Packets, 9223372036854775807);
    flow.Set(K::Bytes, 9223372036854775806);
    flow.Set(K::SamplingRate, 4294967295);
    flow.Set(K::InIf, 4294967295);
    flow.Set(K::OutIf, 0);
    flow.Set(K::SrcAs, 4294967295);
    flow.Set(K::DstAs, 15169);
    flow.Set(K::SrcMask, 128);
    flow.Set(K::DstMask, 0);
    flow.Set(K::Vlan, 4095);
    const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    flow.SetMac(K::SrcMac, mac);
    const uint8_t broadcast[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    flow.SetMac(K::DstMac, broadcast);
    return flow;
}

// Every column of the row the recordset is on, compared with the flow it was written from.
void ExpectRow(CODBCRecordset& rs, const CFlowRecord& flow) {
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i) {
        const auto key = static_cast<K>(i);
        const std::string_view name = CFlowRecord::KeyName(key);
        CDBField& field = rs.Field(CString(name.begin(), name.end()));
        if (flow.IsNull(key))
            EXPECT_TRUE(field.IsNull()) << name;
        else if (CFlowRecord::KeyKind(key) == EFlowKeyKind::Integer)
            EXPECT_EQ(field.AsBigInt(), flow.Get(key)) << name;
        else
            EXPECT_EQ(tpnf::ToUtf8(field.AsString()), flow.Text(key)) << name;
    }
}

} // namespace

TEST_P(FlowTableTest, CreateMakesOneTypedColumnPerKeyAndTwoIndexes) {
    CFlowTable(m_db).Create();
    const auto columns = Columns();
    ASSERT_EQ(columns.size(), FLOW_KEY_COUNT);
    const char* const bigint = "bigint";
    const char* const integer = IsSQLite() ? "INTEGER" : "integer";
    const char* const text = IsSQLite() ? "varchar(64)" : "character varying";
    const char* const types[FLOW_KEY_COUNT] = {
        bigint, text,   integer, text,    bigint,  bigint,  bigint,  bigint, integer, text,
        text,   text,   integer, integer, integer, integer, integer, bigint, bigint,  bigint,
        bigint, bigint, bigint,  bigint,  integer, integer, integer, text,   text};
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i) {
        EXPECT_EQ(columns[i].first, CFlowRecord::KeyName(static_cast<K>(i)));
        EXPECT_EQ(columns[i].second, types[i]) << columns[i].first;
    }
    EXPECT_EQ(Indexes(), (std::vector<std::string>{"flows_exporter", "flows_flow_end"}));
}

TEST_P(FlowTableTest, CreateLeavesATableThatIsThereAsItIs) {
    CFlowTable table(m_db);
    table.Create();
    table.Write({FullFlow()});
    table.Create();
    CFlowTable(m_db).Create();
    EXPECT_EQ(Count(), 1);
    EXPECT_EQ(Indexes().size(), 2u);
}

TEST_P(FlowTableTest, EveryValueComesBack) {
    CFlowTable table(m_db);
    table.Create();
    CFlowRecord ipv4;
    ipv4.Set(K::TimeReceived, 2);
    ipv4.SetProtocol(EFlowProtocol::SFlowV5);
    ipv4.SetAddress(K::SrcAddr, CFlowAddress::IPv4(0xC0A80001));
    ipv4.Set(K::Bytes, 0);
    const std::vector<CFlowRecord> flows = {FullFlow(), CFlowRecord(), ipv4};
    table.Write(flows);
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from flows order by time_received");
    // NULL sorts first on SQLite and last on PostgreSQL.
    std::vector<const CFlowRecord*> order = {&flows[2], &flows[0], &flows[1]};
    if (IsSQLite())
        order = {&flows[1], &flows[2], &flows[0]};
    for (const CFlowRecord* flow : order) {
        ASSERT_FALSE(rs.IsEOF());
        ExpectRow(rs, *flow);
        rs.MoveNext();
    }
    EXPECT_TRUE(rs.IsEOF());
}

TEST_P(FlowTableTest, TextsAreWrittenAsTheRecordShowsThem) {
    CFlowTable table(m_db);
    table.Create();
    table.Write({FullFlow()});
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from flows");
    EXPECT_EQ(rs.Field(L"exporter").AsString(), L"2001:db8::10");
    EXPECT_EQ(rs.Field(L"protocol").AsString(), L"NetFlow v9");
    EXPECT_EQ(rs.Field(L"src_addr").AsString(), L"fe80::202:b3ff:fe1e:8329");
    EXPECT_EQ(rs.Field(L"dst_addr").AsString(), L"::ffff:192.0.2.1");
    EXPECT_EQ(rs.Field(L"next_hop").AsString(), L"10.0.0.1");
    EXPECT_EQ(rs.Field(L"src_mac").AsString(), L"00:1a:2b:3c:4d:5e");
    EXPECT_EQ(rs.Field(L"dst_mac").AsString(), L"ff:ff:ff:ff:ff:ff");
    EXPECT_EQ(rs.Field(L"packets").AsBigInt(), 9223372036854775807);
}

TEST_P(FlowTableTest, ManyBatchesOfManyRows) {
    CFlowTable table(m_db);
    table.Create();
    std::vector<CFlowRecord> batch(2500);
    for (int round = 0; round < 4; ++round) {
        for (size_t i = 0; i < batch.size(); ++i) {
            batch[i] = CFlowRecord();
            batch[i].Set(K::Sequence, int64_t(round) * 10000 + int64_t(i));
            batch[i].Set(K::Bytes, int64_t(i) * 1000000007);
            if (i % 3 == 0)
                batch[i].SetAddress(K::SrcAddr, CFlowAddress::IPv4(static_cast<uint32_t>(i)));
        }
        table.Write(batch);
    }
    EXPECT_EQ(Count(), 10000);
    EXPECT_EQ(Scalar(m_db, L"select count(distinct sequence) as v from flows"), 10000);
    EXPECT_EQ(Scalar(m_db, L"select count(src_addr) as v from flows"), 4 * 834);
    EXPECT_EQ(Scalar(m_db, L"select count(*) as v from flows where bytes = 2499000017493"), 4);
}

TEST_P(FlowTableTest, AFailedWriteLeavesNoRow) {
    // A table that refuses big byte counts: the batch fails at its last row.
    m_db.ExecuteSQL(
        L"create table flows (time_received bigint, exporter varchar(64), exporter_port integer, "
        L"protocol varchar(64), sequence bigint, observation_domain bigint, flow_start bigint, "
        L"flow_end bigint, ip_version integer, src_addr varchar(64), dst_addr varchar(64), "
        L"next_hop varchar(64), src_port integer, dst_port integer, proto integer, tos integer, "
        L"tcp_flags integer, packets bigint, bytes bigint check (bytes < 1000), "
        L"sampling_rate bigint, in_if bigint, out_if bigint, src_as bigint, dst_as bigint, "
        L"src_mask integer, dst_mask integer, vlan integer, src_mac varchar(64), dst_mac varchar(64))");
    CFlowTable table(m_db);
    table.Create();
    std::vector<CFlowRecord> batch(600);
    for (size_t i = 0; i < batch.size(); ++i)
        batch[i].Set(K::Bytes, i + 1 < batch.size() ? 1 : 5000);
    EXPECT_THROW(table.Write(batch), CDBException);
    EXPECT_EQ(Count(), 0);
    batch.pop_back();
    table.Write(batch);
    EXPECT_EQ(Count(), 599);
}

TEST_P(FlowTableTest, WritingWithoutATableFails) {
    CFlowTable table(m_db);
    EXPECT_THROW(table.Write({FullFlow()}), CDBException);
    table.Create();
    table.Write({FullFlow()});
    EXPECT_EQ(Count(), 1);
}

TEST_P(FlowTableTest, AnEmptyBatchWritesNothing) {
    CFlowTable table(m_db);
    EXPECT_NO_THROW(table.Write(std::vector<CFlowRecord>()));
}

// Writers that start together all create the table (one of them makes it) and then write into it at
// once, each on its own connection, as separate collectors do.
TEST_P(FlowTableTest, WritersThatStartTogether) {
    constexpr int kWriters = 4;
    constexpr int kRounds = 3;
    constexpr int kBatches = 3;
    constexpr int kRows = 100;
    // SQLite writers wait for each other as long as the collector's data sources let them (10 s).
    const CString connect = Source().ConnectString() + (IsSQLite() ? L";Timeout=10000" : L"");
    for (int round = 0; round < kRounds; ++round) {
        m_db.ExecuteSQL(L"drop table if exists flows");
        std::barrier start(kWriters);
        std::atomic<int> failures{0};
        std::vector<std::string> errors(kWriters);
        std::vector<std::thread> writers;
        for (int w = 0; w < kWriters; ++w) {
            writers.emplace_back([&, w] {
                try {
                    CDatabase db;
                    db.OpenEx(connect);
                    CFlowTable table(db);
                    start.arrive_and_wait();
                    table.Create();
                    std::vector<CFlowRecord> batch(kRows);
                    for (int b = 0; b < kBatches; ++b) {
                        for (int r = 0; r < kRows; ++r) {
                            batch[r].Set(K::ObservationDomain, w);
                            batch[r].Set(K::Sequence, int64_t(b) * kRows + r);
                        }
                        table.Write(batch);
                    }
                } catch (const CDBException& e) {
                    errors[w] = tpnf::ToUtf8(e.m_strError);
                    ++failures;
                }
            });
        }
        for (std::thread& writer : writers)
            writer.join();
        ASSERT_EQ(failures.load(), 0) << errors[0] << errors[1] << errors[2] << errors[3];
        EXPECT_EQ(Count(), kWriters * kBatches * kRows);
        for (int w = 0; w < kWriters; ++w)
            EXPECT_EQ(Scalar(m_db, tpnf::FromUtf8("select count(distinct sequence) as v from flows "
                                                  "where observation_domain = " +
                                                  std::to_string(w))),
                      kBatches * kRows);
        EXPECT_EQ(Indexes().size(), 2u);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, FlowTableTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);
