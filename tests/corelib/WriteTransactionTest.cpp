// Transactions that keep other writers out from their start (CDatabase::BeginWriteTrans), and the
// database product the connection reports.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "corelib/DBException.h"
#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;
using namespace std::chrono_literals;

namespace {

class WriteTransactionTest : public DataSourceTest {
protected:
    void SetUp() override {
        DataSourceTest::SetUp();
        if (IsSkipped())
            return;
        m_db.OpenEx(Connect());
        m_db.ExecuteSQL(L"create table counter (n integer NOT NULL PRIMARY KEY)");
        m_db.ExecuteSQL(L"insert into counter values (0)");
    }
    void TearDown() override {
        m_db.Close();
        DataSourceTest::TearDown();
    }
    // SQLite connections wait up to 30 s for each other's write lock.
    CString Connect() {
        return IsSQLite() ? Source().ConnectString() + L";Timeout=30000" : Source().ConnectString();
    }
    CString LockingSelect() {
        return IsSQLite() ? L"select n from counter" : L"select n from counter for update";
    }
    int32_t Read(CDatabase& db, const CString& select) {
        CODBCRecordset rs(&db);
        rs.Open(select);
        return rs.GetLong(L"n");
    }

    CDatabase m_db;
};

TEST_P(WriteTransactionTest, ConnectionNamesItsDatabaseProduct) {
    EXPECT_EQ(m_db.GetDBMSName(), IsSQLite() ? L"SQLite" : L"PostgreSQL");
    EXPECT_GE(m_db.GetDBMSVersion(), 3);
    m_db.Close();
    EXPECT_EQ(m_db.GetDBMSName(), L"");
    EXPECT_EQ(m_db.GetDBMSVersion(), 0);
}

TEST_P(WriteTransactionTest, SecondWriterWaitsUntilTheFirstCommitsAndReadsItsValue) {
    ASSERT_TRUE(m_db.BeginWriteTrans());
    const int32_t first = Read(m_db, LockingSelect());
    std::atomic<int32_t> seen{-1};
    std::thread second([&] {
        CDatabase other;
        other.OpenEx(Connect());
        other.BeginWriteTrans();
        seen = Read(other, LockingSelect());
        other.ExecuteSQL(L"update counter set n = " + std::to_wstring(seen + 1));
        other.CommitTrans();
    });
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(seen, -1); // still waiting
    m_db.ExecuteSQL(L"update counter set n = " + std::to_wstring(first + 1));
    m_db.CommitTrans();
    second.join();
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(Read(m_db, L"select n from counter"), 2);
}

TEST_P(WriteTransactionTest, RollbackDropsStatementsAndBufferedRows) {
    ASSERT_TRUE(m_db.BeginWriteTrans());
    m_db.ExecuteSQL(L"update counter set n = 5");
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from counter");
    rs.AddNew();
    rs.Field(L"n") = 6; // buffered, not yet written
    rs.Update();
    EXPECT_TRUE(m_db.Rollback());
    rs.Close();
    CDatabase peek;
    peek.OpenEx(Source().ConnectString());
    EXPECT_EQ(Read(peek, L"select count(*) as n from counter"), 1);
    EXPECT_EQ(Read(peek, L"select n from counter"), 0);
}

TEST_P(WriteTransactionTest, CommitWritesBufferedRowsAndStatementsCommitThemselvesAfterwards) {
    ASSERT_TRUE(m_db.BeginWriteTrans());
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from counter");
    rs.AddNew();
    rs.Field(L"n") = 7;
    rs.Update();
    m_db.CommitTrans();
    rs.Close();
    m_db.ExecuteSQL(L"insert into counter values (8)");
    CDatabase peek;
    peek.OpenEx(Source().ConnectString());
    EXPECT_EQ(Read(peek, L"select sum(n) as n from counter"), 15);
}

TEST_P(WriteTransactionTest, ClosingInsideAWriteTransactionKeepsNothingOfIt) {
    ASSERT_TRUE(m_db.BeginWriteTrans());
    m_db.ExecuteSQL(L"update counter set n = 9");
    m_db.Close();
    m_db.OpenEx(Connect());
    EXPECT_EQ(Read(m_db, L"select n from counter"), 0);
    ASSERT_TRUE(m_db.BeginWriteTrans()); // a new one can begin
    m_db.CommitTrans();
}

TEST_P(WriteTransactionTest, ClosedDatabaseThrowsNotOpen) {
    m_db.Close();
    try {
        m_db.BeginWriteTrans();
        FAIL() << "no exception";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, CDBException::errorNotOpen);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, WriteTransactionTest,
                         testing::Values(Backend::SQLite, Backend::PostgreSQL), tpnf::test::BackendParamName);

} // namespace
