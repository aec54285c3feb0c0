// Rows written with COPY on the second connection (CDatabase::OpenCopyConnection): the same values as the
// driver's INSERTs store, the same transactions, and the server's own error when a row is refused.

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <string>
#include <vector>

#include "corelib/CopyConnection.h"
#include "corelib/DBException.h"
#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "util/TextConvert.h"

using tpnf::test::Backend;
using tpnf::test::TestDataSource;

namespace {

// The odbc.ini section of one data source, for ConnInfo; keys are looked up case-blind, as unixODBC does.
std::string FakeProfile(const std::string& dsn, const std::string& key) {
    static const std::map<std::string, std::string> kFlows = {
        {"servername", "db.example.net"},
        {"port", "5433"},
        {"database", "flows"},
        {"username", "collector"},
        {"password", "it's\\secret"},
        {"sslmode", "require"},
    };
    if (dsn != "flows")
        return "";
    std::string lower = key;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    auto found = kFlows.find(lower);
    return found == kFlows.end() ? "" : found->second;
}

TEST(CopyConnectionTest, ParametersComeFromTheDataSourceQuotedForLibpq) {
    EXPECT_EQ(CCopyConnection::ConnInfo("DSN=flows", FakeProfile),
              "client_encoding='UTF8' fallback_application_name='tp_netflowlib' host='db.example.net' "
              "port='5433' dbname='flows' user='collector' password='it\\'s\\\\secret' sslmode='require'");
}

TEST(CopyConnectionTest, TheConnectStringOverridesTheDataSourceAndPassesPqoptOn) {
    EXPECT_EQ(CCopyConnection::ConnInfo(
                  "DSN=flows;port=6000;UID=reader;pqopt={options=-csearch_path=s1 application_name=s1}",
                  FakeProfile),
              "client_encoding='UTF8' fallback_application_name='tp_netflowlib' host='db.example.net' "
              "port='6000' dbname='flows' user='reader' password='it\\'s\\\\secret' sslmode='require' "
              "options=-csearch_path=s1 application_name=s1");
}

TEST(CopyConnectionTest, WithoutADataSourceOnlyTheConnectStringCounts) {
    EXPECT_EQ(CCopyConnection::ConnInfo("Server=10.0.0.1;Database=x", FakeProfile),
              "client_encoding='UTF8' fallback_application_name='tp_netflowlib' host='10.0.0.1' dbname='x'");
}

class CopyInserterTest : public testing::Test {
protected:
    void SetUp() override {
        m_source = std::make_unique<TestDataSource>(Backend::PostgreSQL);
        if (!m_source->SkipReason().empty())
            GTEST_SKIP() << m_source->SkipReason();
        CDatabase setup;
        setup.OpenEx(m_source->ConnectString());
        for (const wchar_t* table : {L"copied", L"inserted"})
            setup.ExecuteSQL(CString(L"create table ") + table +
                             L" (id integer NOT NULL PRIMARY KEY, txt varchar, n integer)");
        m_db.OpenEx(m_source->ConnectString());
        m_db.OpenCopyConnection(m_source->ConnectString());
    }
    void TearDown() override {
        m_db.Close();
        m_source.reset();
    }

    // Every row, "id|txt|n" with NULL for a null, in id order; read on a connection of its own.
    std::vector<std::string> Rows(const CString& table) {
        CDatabase other;
        other.OpenEx(m_source->ConnectString());
        CODBCRecordset rs(&other);
        rs.Open(L"select id, txt, n from " + table + L" order by id");
        std::vector<std::string> rows;
        for (; !rs.IsEOF(); rs.MoveNext()) {
            std::string row;
            for (size_t c = 0; c < 3; ++c) {
                const CDBField& field = rs.FieldAt(c);
                row += (c == 0 ? "" : "|") +
                       (field.IsNull() ? std::string("NULL") : tpnf::ToUtf8(field.AsString()));
            }
            rows.push_back(row);
        }
        return rows;
    }

    static void AddRow(CODBCRecordset& rs, int32_t id, const wchar_t* text, const wchar_t* number) {
        rs.AddNew();
        rs.Field(L"id") = id;
        if (text == nullptr)
            rs.Field(L"txt").SetNull();
        else
            rs.Field(L"txt") = CString(text);
        if (number == nullptr)
            rs.Field(L"n").SetNull();
        else
            rs.Field(L"n") = CString(number);
        rs.Update();
    }

    std::unique_ptr<TestDataSource> m_source;
    CDatabase m_db;
};

TEST_F(CopyInserterTest, ValuesArriveAsTheDriversInsertsStoreThem) {
    const struct {
        int32_t id;
        const wchar_t* text;
        const wchar_t* number;
    } kRows[] = {
        {1, L"plain", L"7"},
        {2, L"tab\there", L"-2147483648"},
        {3, L"line\nbreak and\rreturn", L"2147483647"},
        {4, L"back\\slash \\N \\t", nullptr},
        {5, nullptr, L"0"},
        {6, L"", L"42"},
        {7, L"quotes ' \" and caf\u00e9 \u6d41", L"00012"},
    };
    CDatabase plain;
    plain.OpenEx(m_source->ConnectString());
    ASSERT_FALSE(plain.UsesCopy());
    ASSERT_TRUE(m_db.UsesCopy());
    CODBCRecordset copied(&m_db);
    CODBCRecordset inserted(&plain);
    copied.Open(L"select * from copied");
    inserted.Open(L"select * from inserted");
    for (const auto& row : kRows) {
        AddRow(copied, row.id, row.text, row.number);
        AddRow(inserted, row.id, row.text, row.number);
    }
    copied.Close();
    inserted.Close();

    const std::vector<std::string> rows = Rows(L"copied");
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[1], "2|tab\there|-2147483648");
    EXPECT_EQ(rows[3], "4|back\\slash \\N \\t|NULL");
    EXPECT_EQ(rows[4], "5|NULL|0");
    EXPECT_EQ(rows[5], "6||42");
    EXPECT_EQ(rows[6], "7|quotes ' \" and caf\u00e9 \u6d41|12");
    EXPECT_EQ(rows, Rows(L"inserted"));
}

TEST_F(CopyInserterTest, RowsOfATransactionAreStoredByItsCommitAndDroppedByItsRollback) {
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from copied");
    m_db.BeginTrans();
    AddRow(rs, 1, L"rolled back", L"1");
    rs.Close(); // the rows reach the server, inside the transaction
    EXPECT_TRUE(Rows(L"copied").empty());
    EXPECT_TRUE(m_db.Rollback());
    EXPECT_TRUE(Rows(L"copied").empty());

    rs.Open(L"select * from copied");
    m_db.BeginTrans();
    AddRow(rs, 2, L"committed", L"2");
    rs.Close();
    EXPECT_TRUE(Rows(L"copied").empty());
    m_db.CommitTrans();
    EXPECT_EQ(Rows(L"copied"), std::vector<std::string>{"2|committed|2"});
}

TEST_F(CopyInserterTest, WithoutATransactionEachBatchCommitsOnItsOwn) {
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from copied");
    AddRow(rs, 1, L"a", L"1");
    AddRow(rs, 2, L"b", L"2");
    rs.Close();
    EXPECT_EQ(Rows(L"copied"), (std::vector<std::string>{"1|a|1", "2|b|2"}));
}

TEST_F(CopyInserterTest, ARefusedRowFailsTheBatchWithTheServersErrorAndStoresNone) {
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from copied");
    m_db.BeginTrans();
    AddRow(rs, 1, L"first", L"1");
    AddRow(rs, 1, L"same key", L"2");
    try {
        m_db.CommitTrans();
        FAIL() << "the commit stored a duplicate key";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, -1);
        EXPECT_EQ(
            tpnf::ToUtf8(e.m_strError).rfind("ERROR:  duplicate key value violates unique constraint", 0), 0u)
            << tpnf::ToUtf8(e.m_strError);
        EXPECT_EQ(tpnf::ToUtf8(e.m_strStateNativeOrigin), "State:23505,Native:0\n");
    }
    EXPECT_TRUE(m_db.Rollback());
    EXPECT_TRUE(Rows(L"copied").empty());

    // The connection goes on after the failure.
    rs.Close();
    rs.Open(L"select * from copied");
    m_db.BeginTrans();
    AddRow(rs, 3, L"after", L"3");
    rs.Close();
    m_db.CommitTrans();
    EXPECT_EQ(Rows(L"copied"), std::vector<std::string>{"3|after|3"});
}

TEST_F(CopyInserterTest, ANonIntegerForAnIntegerColumnIsRefusedBeforeItIsSent) {
    CODBCRecordset rs(&m_db);
    rs.Open(L"select * from copied");
    AddRow(rs, 1, L"kept", L"1");
    rs.AddNew();
    rs.Field(L"id") = 2;
    rs.Field(L"n") = CString(L"12abc");
    try {
        rs.Update();
        FAIL() << "a text that is no number was taken for an integer column";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, CDBException::errorInvalidValue);
    }
    rs.Close();
    EXPECT_EQ(Rows(L"copied"), std::vector<std::string>{"1|kept|1"});
}

TEST(CopyConnectionOpenTest, OnlyAPostgreSQLSourceTakesIt) {
    TestDataSource source(Backend::SQLite);
    CDatabase db;
    db.OpenEx(source.ConnectString());
    try {
        db.OpenCopyConnection(source.ConnectString());
        FAIL() << "a SQLite source took a COPY connection";
    } catch (const CDBException& e) {
        EXPECT_EQ(tpnf::ToUtf8(e.m_strError), "COPY needs a PostgreSQL data source; this one is SQLite\n");
    }
    EXPECT_FALSE(db.UsesCopy());
}

TEST(CopyConnectionOpenTest, AServerThatRefusesTheConnectionFailsWithLibpqsText) {
    TestDataSource source(Backend::PostgreSQL);
    if (!source.SkipReason().empty())
        GTEST_SKIP() << source.SkipReason();
    CDatabase db;
    db.OpenEx(source.ConnectString());
    try {
        db.OpenCopyConnection(source.ConnectString() + L";Password=wrong");
        FAIL() << "a wrong password was taken";
    } catch (const CDBException& e) {
        EXPECT_NE(tpnf::ToUtf8(e.m_strError).find("password authentication failed for user \"odbc\""),
                  std::string::npos)
            << tpnf::ToUtf8(e.m_strError);
    }
    EXPECT_FALSE(db.UsesCopy());
}

} // namespace
