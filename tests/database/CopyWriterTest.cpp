// The writer with SetBulkCopy(TRUE) on PostgreSQL: the same rows, ids, results and kept queue as
// without it, for the default ids and for shared ones, through a refused write and its retry.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "corelib/Database.h"
#include "corelib/TestDataSource.h"
#include "database/V9FlowPackets.h"
#include "database/WriterTestSupport.h"
#include "util/TextConvert.h"

using tpnf::test::Backend;
using tpnf::test::DirectWriter;
using tpnf::test::DumpTables;
using tpnf::test::TestDataSource;
using tpnf::test::ThreeFieldPacket;

namespace {

struct Outcome {
    std::vector<std::string> steps; // per write: its result, the health flag and the packets still queued
    std::vector<std::string> tables;
    std::string refusal; // the error text of the refused write
};

// Three writes of 3, 2 and 1 records; the third meets a row that already holds its first id and fails,
// then, with that row gone, a new writer (as the collector starts after a failure) writes it whole.
Outcome WriteThrough(bool copy, bool shared) {
    TestDataSource source(Backend::PostgreSQL);
    Outcome outcome;
    if (!source.SkipReason().empty())
        return outcome;
    auto newWriter = [&] {
        auto writer = std::make_unique<DirectWriter>(source.Name());
        writer->SetBulkCopy(copy ? TRUE : FALSE);
        writer->SetSharedRecordIds(shared ? TRUE : FALSE);
        return writer;
    };
    auto first = newWriter();
    DirectWriter* writing = first.get();
    auto step = [&](int result) {
        outcome.steps.push_back(std::to_string(result) + " ok=" + std::to_string(writing->m_bStatusOK) +
                                " queued=" + std::to_string(writing->GetQueuedCount()));
    };
    step(writing->OpenDatabase());
    const auto one = ThreeFieldPacket(1000, {1, 2, 3});
    const auto two = ThreeFieldPacket(1001, {4, 5});
    const auto three = ThreeFieldPacket(1002, {6});
    writing->AddPacket(one.get());
    writing->AddPacket(two.get());
    step(writing->WritePackets());

    CDatabase other;
    other.OpenEx(source.ConnectString());
    other.ExecuteSQL(L"insert into netflow_records values (5, 'in the way', 0, 0, 9)");
    writing->AddPacket(three.get());
    step(writing->WritePackets());
    outcome.refusal = tpnf::ToUtf8(writing->m_strLastError);
    other.ExecuteSQL(L"delete from netflow_records where record_ip_addr = 'in the way'");
    auto second = newWriter();
    writing = second.get();
    writing->AddPacket(three.get());
    step(writing->OpenDatabase());
    step(writing->WritePackets());
    outcome.tables = DumpTables(source.ConnectString());
    return outcome;
}

class CopyWriterTest : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (tpnf::test::PostgreSQLDsn().empty())
            GTEST_SKIP() << "TPNF_TEST_PG_DSN is not set (start scripts/pg-server, eval scripts/odbc-env)";
    }
};

TEST_P(CopyWriterTest, SameRowsIdsAndResultsAsTheDriversInserts) {
    const bool shared = GetParam();
    const Outcome inserted = WriteThrough(false, shared);
    const Outcome copied = WriteThrough(true, shared);
    EXPECT_EQ(copied.steps, (std::vector<std::string>{"1 ok=1 queued=0", "1 ok=1 queued=0", "0 ok=0 queued=1",
                                                      "1 ok=1 queued=1", "1 ok=1 queued=0"}));
    EXPECT_EQ(copied.steps, inserted.steps);
    ASSERT_EQ(copied.tables.size(), 6u + 18u + 1u);
    EXPECT_EQ(copied.tables.front(), "netflow_records: 0|192.0.2.7|2055|1000|9");
    EXPECT_EQ(copied.tables[5], "netflow_records: 5|192.0.2.7|2055|1002|9");
    EXPECT_EQ(copied.tables.back(), "netflow_record_id: 6");
    EXPECT_EQ(copied.tables, inserted.tables);
    // The server's own text, through libpq rather than the driver.
    EXPECT_EQ(copied.refusal.rfind("ERROR:  duplicate key value violates unique constraint", 0), 0u)
        << copied.refusal;
    EXPECT_NE(copied.refusal, inserted.refusal);
}

INSTANTIATE_TEST_SUITE_P(RecordIds, CopyWriterTest, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? std::string("Shared") : std::string("Default");
                         });

TEST(CopyWriterOpenTest, ASQLiteSourceFailsToOpenWithTheReason) {
    TestDataSource source(Backend::SQLite);
    DirectWriter writer(source.Name());
    writer.SetBulkCopy(TRUE);
    EXPECT_EQ(writer.OpenDatabase(), 0);
    EXPECT_FALSE(writer.m_bStatusOK);
    EXPECT_EQ(tpnf::ToUtf8(writer.m_strLastError),
              "COPY needs a PostgreSQL data source; this one is SQLite\n");
}

} // namespace
