// Connections that the SQLite driver opens on several threads at once each load the library and lend
// it their connection; rows written through each reach its own file.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "corelib/SQLiteInserter.h"
#include "corelib/TestDataSource.h"
#include "util/TextConvert.h"

namespace {

TEST(SQLiteInserterThreadsTest, ConnectionsOpenedAtOnceEachWriteTheirOwnRows) {
    const std::filesystem::path dir = tpnf::test::NewTempDir();
    constexpr int kThreads = 4;
    constexpr int32_t kRows = 1000;
    std::vector<int32_t> counts(kThreads, -1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            CDatabase db;
            db.OpenEx(tpnf::FromUtf8("DSN=" + tpnf::test::SQLiteDsn() +
                                     ";Database=" + (dir / ("t" + std::to_string(t) + ".sqlite")).string() +
                                     ";LoadExt=" + tpnf::sqlite::ExtensionFile()));
            db.ExecuteSQL(L"create table t (id integer NOT NULL PRIMARY KEY, n integer)");
            db.BeginTrans();
            CODBCRecordset rs(&db);
            rs.Open(L"select * from t");
            for (int32_t i = 0; i < kRows; ++i) {
                rs.AddNew();
                rs.Field(L"id") = i;
                rs.Field(L"n") = t;
                rs.Update();
            }
            rs.Close();
            db.CommitTrans();
            CODBCRecordset count(&db);
            count.Open(CString(L"select count(*) as v from t where n = ") + std::to_wstring(t));
            counts[static_cast<size_t>(t)] = count.GetLong(L"v");
        });
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(counts[static_cast<size_t>(t)], kRows) << "thread " << t;
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
}

} // namespace
