// Rows inserted through SQLite itself (the driver lends its connection to the library) and through the
// driver's statements are the same rows, fail with the same errors and belong to the same transaction.

#include <gtest/gtest.h>

#include <sql.h>

#include <filesystem>
#include <string>
#include <vector>

#include "corelib/DBException.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "corelib/RowInserter.h"
#include "corelib/SQLiteInserter.h"
#include "corelib/TestDataSource.h"
#include "corelib/ValuesInserter.h"
#include "util/TextConvert.h"

namespace {

enum class Inserts { Driver, SQLite };

class SQLiteInserterTest : public testing::Test {
protected:
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }

    // A connect string of the file `name` in this test's directory.
    CString Connect(Inserts inserts, const std::string& name, const std::string& more = "") const {
        std::string text = "DSN=" + tpnf::test::SQLiteDsn() + ";Database=" + (m_dir / name).string() + more;
        if (inserts == Inserts::SQLite)
            text += ";LoadExt=" + tpnf::sqlite::ExtensionFile();
        return tpnf::FromUtf8(text);
    }

    // Every row of t as text: each column's SQLite type and value, in id order.
    static std::vector<CString> Dump(CDatabase& db) {
        CODBCRecordset rs(&db);
        rs.Open(L"select typeof(id)||':'||quote(id)||' '||typeof(n)||':'||quote(n)||' '||typeof(txt)||':'||"
                L"quote(txt)||' '||typeof(r)||':'||quote(r) as v from t order by id");
        std::vector<CString> rows;
        for (; !rs.IsEOF(); rs.MoveNext())
            rows.push_back(rs.Field(L"v").AsString());
        return rows;
    }

    static int32_t Count(CDatabase& db) {
        CODBCRecordset rs(&db);
        rs.Open(L"select count(*) as v from t");
        return rs.GetLong(L"v");
    }

    // Adds a row of t with only its key set.
    static void AddId(CODBCRecordset& rs, int32_t id) {
        rs.AddNew();
        rs.Field(L"id") = id;
        rs.Update();
    }

    static void CreateTable(CDatabase& db) {
        db.ExecuteSQL(L"create table t (id integer NOT NULL PRIMARY KEY, n bigint, txt varchar(20), r real)");
    }

    // 600 rows (more than one row-count check) of every kind of value the recordset writes.
    static void AddRows(CDatabase& db) {
        CODBCRecordset rs(&db);
        rs.Open(L"select * from t");
        for (int32_t i = 0; i < 600; ++i) {
            rs.AddNew();
            rs.Field(L"id") = i;
            switch (i % 6) {
            case 0:
                rs.Field(L"n") = -i;
                rs.Field(L"txt") = CString(L"row ") + std::to_wstring(i);
                rs.Field(L"r") = CString(L"1.5");
                break;
            case 1:
                rs.Field(L"n") = CString(L"9223372036854775807"); // an integer given as text
                rs.Field(L"txt") = CString(L"Grüße, ☃");
                break;
            case 2:
                rs.Field(L"n") = CString(L"-9223372036854775808");
                rs.Field(L"txt") = CString(300, L'x'); // longer than the declared length, as SQLite keeps
                rs.Field(L"r") = i;
                break;
            case 3:
                rs.Field(L"txt") = CString(L"");
                break;
            case 4:
                rs.Field(L"n") = 0;
                rs.Field(L"txt") = i; // an integer into a text column
                rs.Field(L"r") = CString(L"not a number");
                break;
            default:
                break; // NULL but for the key
            }
            rs.Update();
        }
        rs.Close();
    }

    std::filesystem::path m_dir = tpnf::test::NewTempDir();
};

TEST_F(SQLiteInserterTest, TheExtensionIsThisLibrarysFile) {
    const std::filesystem::path file = tpnf::sqlite::ExtensionFile();
    ASSERT_FALSE(file.empty());
    EXPECT_TRUE(file.is_absolute());
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(file.filename().string().rfind("libtp_corelib.so", 0), 0u) << file;
}

TEST_F(SQLiteInserterTest, SQLiteInsertsOnlyWhereTheDriverLendsItsConnection) {
    const std::vector<CRecordsetColumn> columns{{L"id", "id", SQL_INTEGER, true, "integer"}};
    for (Inserts inserts : {Inserts::Driver, Inserts::SQLite}) {
        CDatabase db;
        db.OpenEx(Connect(inserts, "lent.sqlite"));
        CreateTable(db);
        std::unique_ptr<CRowInserter> inserter = CRowInserter::Create(db, "t", columns);
        if (inserts == Inserts::SQLite)
            EXPECT_NE(dynamic_cast<CSQLiteInserter*>(inserter.get()), nullptr);
        else
            EXPECT_NE(dynamic_cast<CValuesInserter*>(inserter.get()), nullptr);
        inserter.reset();
        db.ExecuteSQL(L"drop table t");
    }
}

TEST_F(SQLiteInserterTest, BothWaysStoreTheSameRows) {
    std::vector<CString> dumps[2];
    for (Inserts inserts : {Inserts::Driver, Inserts::SQLite}) {
        CDatabase db;
        db.OpenEx(Connect(inserts, inserts == Inserts::SQLite ? "sqlite.sqlite" : "driver.sqlite"));
        CreateTable(db);
        ASSERT_TRUE(db.BeginTrans());
        AddRows(db);
        db.CommitTrans();
        dumps[static_cast<int>(inserts)] = Dump(db);
    }
    ASSERT_EQ(dumps[0].size(), 600u);
    EXPECT_EQ(dumps[0], dumps[1]);
    EXPECT_EQ(dumps[1][1], L"integer:1 integer:9223372036854775807 text:'Grüße, ☃' null:NULL");
    EXPECT_EQ(dumps[1][4], L"integer:4 integer:0 text:'4' text:'not a number'");
}

TEST_F(SQLiteInserterTest, BothWaysFailWithTheDriversError) {
    struct Failure {
        int retCode = 0;
        CString error;
        CString states;
    };
    auto fail = [&](Inserts inserts, const std::string& name, bool nullValue) {
        CDatabase db;
        db.OpenEx(Connect(inserts, name));
        db.ExecuteSQL(L"create table f (k integer NOT NULL UNIQUE, v varchar(20) NOT NULL)");
        db.ExecuteSQL(L"insert into f values (7, 'seven')");
        Failure failure;
        try {
            db.BeginTrans();
            CODBCRecordset rs(&db);
            rs.Open(L"select * from f");
            for (int32_t k = 10; k < 20; ++k) { // rows of the same batch before the failing one
                rs.AddNew();
                rs.Field(L"k") = k;
                rs.Field(L"v") = CString(L"ok");
                rs.Update();
            }
            rs.AddNew();
            rs.Field(L"k") = nullValue ? 8 : 7;
            if (!nullValue)
                rs.Field(L"v") = CString(L"again");
            rs.Update();
            rs.Close();
            db.CommitTrans();
        } catch (const CDBException& e) {
            failure = {e.m_nRetCode, e.m_strError, e.m_strStateNativeOrigin};
            EXPECT_TRUE(db.Rollback());
        }
        CODBCRecordset rs(&db);
        rs.Open(L"select count(*) as v from f");
        EXPECT_EQ(rs.GetLong(L"v"), 1);
        return failure;
    };
    for (bool nullValue : {false, true}) {
        Failure driver = fail(Inserts::Driver, nullValue ? "d1.sqlite" : "d2.sqlite", nullValue);
        Failure sqlite = fail(Inserts::SQLite, nullValue ? "s1.sqlite" : "s2.sqlite", nullValue);
        EXPECT_EQ(sqlite.retCode, SQL_ERROR);
        EXPECT_EQ(sqlite.error, nullValue ? L"[SQLite]NOT NULL constraint failed: f.v (19)\n"
                                          : L"[SQLite]UNIQUE constraint failed: f.k (19)\n");
        EXPECT_EQ(sqlite.states, L"State:HY000,Native:19\n");
        EXPECT_EQ(driver.retCode, sqlite.retCode);
        EXPECT_EQ(driver.error, sqlite.error);
        EXPECT_EQ(driver.states, sqlite.states);
    }
}

// Without a transaction a batch is stored whole or not at all, as one statement would be.
TEST_F(SQLiteInserterTest, WithoutATransactionAFailedBatchStoresNothingOfIt) {
    for (Inserts inserts : {Inserts::Driver, Inserts::SQLite}) {
        CDatabase db;
        db.OpenEx(Connect(inserts, inserts == Inserts::SQLite ? "a1.sqlite" : "a2.sqlite"));
        CreateTable(db);
        CODBCRecordset rs(&db);
        rs.Open(L"select * from t");
        for (int32_t id : {1, 2, 3, 2, 4})
            AddId(rs, id);
        EXPECT_THROW(rs.Close(), CDBException);
        for (int32_t id : {5, 6}) {
            rs.Open(L"select * from t");
            AddId(rs, id);
            rs.Close();
        }
        CDatabase other;
        other.OpenEx(Connect(Inserts::Driver, inserts == Inserts::SQLite ? "a1.sqlite" : "a2.sqlite"));
        EXPECT_EQ(Count(other), 2);
    }
}

// The recordset opened before the transaction began: its rows are still the transaction's.
TEST_F(SQLiteInserterTest, RowsBelongToTheTransactionBegunAfterTheRecordsetOpened) {
    CDatabase db;
    db.OpenEx(Connect(Inserts::SQLite, "late.sqlite"));
    CreateTable(db);
    CODBCRecordset rs(&db);
    rs.Open(L"select * from t");
    for (bool commit : {false, true}) {
        ASSERT_TRUE(db.BeginTrans());
        for (int32_t i = 0; i < 10; ++i)
            AddId(rs, i);
        if (commit)
            db.CommitTrans();
        else
            EXPECT_TRUE(db.Rollback());
        CDatabase other;
        other.OpenEx(Connect(Inserts::Driver, "late.sqlite"));
        EXPECT_EQ(Count(other), commit ? 10 : 0);
    }
}

// A refused value fails its row before anything of it is written.
TEST_F(SQLiteInserterTest, ARefusedValueWritesNothing) {
    CDatabase db;
    db.OpenEx(Connect(Inserts::SQLite, "refused.sqlite"));
    CreateTable(db);
    CODBCRecordset rs(&db);
    rs.Open(L"select * from t");
    AddId(rs, 1);
    rs.AddNew();
    rs.Field(L"id") = 2;
    rs.Field(L"n") = CString(L"12x");
    try {
        rs.Update();
        FAIL() << "no exception";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, CDBException::errorInvalidValue);
    }
    rs.Close();
    EXPECT_EQ(Count(db), 1);
}

// The statement the library prepared is finalized before the driver closes the connection, which
// otherwise stays open: the write-ahead log, removed by the last connection's close, would remain.
TEST_F(SQLiteInserterTest, ClosingTheDatabaseClosesSQLitesConnection) {
    {
        CDatabase db;
        db.OpenEx(Connect(Inserts::SQLite, "closed.sqlite", ";JournalMode=WAL"));
        CreateTable(db);
        CODBCRecordset rs(&db);
        rs.Open(L"select * from t");
        for (int32_t id : {1, 2}) {
            AddId(rs, id);
            if (id == 1)
                db.ExecuteSQL(L"select 1"); // writes row 1; row 2 stays buffered and is dropped
        }
        EXPECT_TRUE(std::filesystem::exists(m_dir / "closed.sqlite-wal"));
        db.Close(); // with the recordset and its statements still open
    }
    EXPECT_FALSE(std::filesystem::exists(m_dir / "closed.sqlite-wal"));
    CDatabase db;
    db.OpenEx(Connect(Inserts::Driver, "closed.sqlite"));
    EXPECT_EQ(Count(db), 1);
}

} // namespace
