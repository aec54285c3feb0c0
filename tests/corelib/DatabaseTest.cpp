#include <gtest/gtest.h>

#include <sql.h>

#include "corelib/DBException.h"
#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;

namespace {

int32_t CountRows(CDatabase& db, const CString& table) {
    CODBCRecordset rs(&db);
    rs.Open(L"select count(*) as n from " + table);
    return rs.GetLong(L"n");
}

bool TableExists(CDatabase& db, const CString& table) {
    try {
        CountRows(db, table);
        return true;
    } catch (const CDBException&) {
        return false;
    }
}

class DatabaseTest : public DataSourceTest {};

TEST_P(DatabaseTest, OpensAndClosesTheConnection) {
    CDatabase db;
    EXPECT_FALSE(db.IsOpen());
    EXPECT_EQ(db.OpenEx(Source().ConnectString()), TRUE);
    EXPECT_TRUE(db.IsOpen());
    db.Close();
    EXPECT_FALSE(db.IsOpen());
    db.Close();
    EXPECT_FALSE(db.IsOpen());
}

TEST_P(DatabaseTest, ReopeningReplacesTheConnection) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    db.OpenEx(Source().ConnectString());
    EXPECT_TRUE(db.IsOpen());
    EXPECT_EQ(CountRows(db, L"t"), 0);
}

TEST_P(DatabaseTest, SupportsTransactions) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    EXPECT_TRUE(db.CanTransact());
    EXPECT_TRUE(db.CanUpdate());
}

TEST_P(DatabaseTest, CreatingAnExistingTableFailsWithSqlError) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    try {
        db.ExecuteSQL(L"create table t (a integer)");
        FAIL() << "second create table succeeded";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, SQL_ERROR);
        EXPECT_EQ(e.m_nRetCode, -1);
        EXPECT_FALSE(e.m_strError.empty());
        EXPECT_NE(e.m_strStateNativeOrigin.find(IsSQLite() ? L"State:HY000" : L"State:42P07"), CString::npos)
            << tpnf::ToUtf8(e.m_strStateNativeOrigin);
        EXPECT_STREQ(e.what(), tpnf::ToUtf8(e.m_strError).c_str());
    }
}

TEST_P(DatabaseTest, RollbackUndoesRowsAndTables) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    ASSERT_TRUE(db.BeginTrans());
    db.ExecuteSQL(L"insert into t values (1)");
    db.ExecuteSQL(L"create table u (a integer)");
    EXPECT_TRUE(db.Rollback());
    EXPECT_EQ(CountRows(db, L"t"), 0);
    EXPECT_FALSE(TableExists(db, L"u"));
}

TEST_P(DatabaseTest, CommitKeepsRowsForOtherConnections) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    ASSERT_TRUE(db.BeginTrans());
    db.ExecuteSQL(L"insert into t values (1)");
    db.ExecuteSQL(L"insert into t values (2)");
    EXPECT_TRUE(db.CommitTrans());
    CDatabase other;
    other.OpenEx(Source().ConnectString());
    EXPECT_EQ(CountRows(other, L"t"), 2);
}

TEST_P(DatabaseTest, AfterCommitStatementsCommitThemselvesAgain) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    db.BeginTrans();
    db.CommitTrans();
    db.ExecuteSQL(L"insert into t values (1)");
    CDatabase other;
    other.OpenEx(Source().ConnectString());
    EXPECT_EQ(CountRows(other, L"t"), 1);
}

TEST_P(DatabaseTest, CloseDropsAnUncommittedTransaction) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    db.BeginTrans();
    db.ExecuteSQL(L"insert into t values (1)");
    db.Close();
    db.OpenEx(Source().ConnectString());
    EXPECT_EQ(CountRows(db, L"t"), 0);
}

TEST_P(DatabaseTest, SearchedUpdateOfNoRowIsNoError) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a integer)");
    EXPECT_NO_THROW(db.ExecuteSQL(L"update t set a = 2 where a = 1"));
    EXPECT_NO_THROW(db.ExecuteSQL(L"delete from t"));
}

TEST_P(DatabaseTest, BadStatementThrowsWithTheDriversText) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    try {
        db.ExecuteSQL(L"select * from no_such_table");
        FAIL() << "no exception";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, SQL_ERROR);
        EXPECT_NE(e.m_strError.find(L"no_such_table"), CString::npos) << tpnf::ToUtf8(e.m_strError);
    }
}

TEST_P(DatabaseTest, StatementsOnAClosedDatabaseThrowNotOpen) {
    CDatabase db;
    try {
        db.ExecuteSQL(L"select 1");
        FAIL() << "no exception";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, CDBException::errorNotOpen);
    }
    EXPECT_THROW(db.BeginTrans(), CDBException);
    EXPECT_THROW(db.CommitTrans(), CDBException);
    EXPECT_FALSE(db.Rollback());
}

TEST_P(DatabaseTest, ReadOnlySourceSaysItCannotUpdate) {
    if (IsSQLite())
        GTEST_SKIP() << "the SQLite driver refuses writes on a ReadOnly connection but does not report it";
    {
        CDatabase db;
        db.OpenEx(Source().ConnectString());
        db.ExecuteSQL(L"create table t (a integer)");
    }
    CDatabase db;
    db.OpenEx(L"DSN=" + Source().ReadOnlyName());
    EXPECT_FALSE(db.CanUpdate());
}

INSTANTIATE_TEST_SUITE_P(Backends, DatabaseTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

TEST(DatabaseConnectTest, MissingDataSourceThrowsIM002) {
    tpnf::test::SQLiteDsn(); // the ODBC configuration is in place
    CDatabase db;
    try {
        db.OpenEx(L"DSN=tpnf_no_such_source");
        FAIL() << "connected to a missing data source";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, SQL_ERROR);
        EXPECT_NE(e.m_strStateNativeOrigin.find(L"State:IM002"), CString::npos)
            << tpnf::ToUtf8(e.m_strStateNativeOrigin);
    }
    EXPECT_FALSE(db.IsOpen());
}

TEST(DatabaseConnectTest, ServerDownThrows08001WithoutThePassword) {
    std::string dsn = tpnf::test::PostgreSQLDsn();
    if (dsn.empty())
        GTEST_SKIP() << "TPNF_TEST_PG_DSN is not set";
    CDatabase db;
    try {
        db.OpenEx(tpnf::FromUtf8("DSN=" + dsn + ";Port=1;Password=secret-pw-7"));
        FAIL() << "connected to a closed port";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, SQL_ERROR);
        EXPECT_NE(e.m_strStateNativeOrigin.find(L"State:08001"), CString::npos)
            << tpnf::ToUtf8(e.m_strStateNativeOrigin);
        EXPECT_EQ(e.m_strError.find(L"secret-pw-7"), CString::npos);
    }
    EXPECT_FALSE(db.IsOpen());
}

} // namespace
