#include <gtest/gtest.h>

#include <sql.h>
#include <sqlext.h>

#include "corelib/DBException.h"
#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/TypeInfo.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;

namespace {

class TypeInfoTest : public DataSourceTest {};

TEST_P(TypeInfoTest, IntegerTypeName) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    EXPECT_EQ(CTypeInfo::GetSQLType(&db, SQL_INTEGER), IsSQLite() ? L"integer" : L"int4");
}

// The SQLite driver lists nothing for SQL_WVARCHAR; its SQL_VARCHAR name stands in.
TEST_P(TypeInfoTest, WideTextTypeNameFallsBackToVarchar) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    EXPECT_EQ(CTypeInfo::GetSQLType(&db, SQL_WVARCHAR), L"varchar");
    EXPECT_EQ(CTypeInfo::GetSQLType(&db, SQL_VARCHAR), L"varchar");
}

TEST_P(TypeInfoTest, TypeNamesCreateUsableTables) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    db.ExecuteSQL(L"create table t (a " + CTypeInfo::GetSQLType(&db, SQL_INTEGER) +
                  L" NOT NULL PRIMARY KEY, b " + CTypeInfo::GetSQLType(&db, SQL_WVARCHAR) + L")");
    EXPECT_NO_THROW(db.ExecuteSQL(L"insert into t values (1, 'text')"));
}

TEST_P(TypeInfoTest, UnknownTypeCodeThrows) {
    CDatabase db;
    db.OpenEx(Source().ConnectString());
    EXPECT_THROW(CTypeInfo::GetSQLType(&db, 12345), CDBException);
}

TEST_P(TypeInfoTest, ClosedDatabaseThrowsNotOpen) {
    CDatabase db;
    try {
        CTypeInfo::GetSQLType(&db, SQL_INTEGER);
        FAIL() << "no exception";
    } catch (const CDBException& e) {
        EXPECT_EQ(e.m_nRetCode, CDBException::errorNotOpen);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, TypeInfoTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

} // namespace
