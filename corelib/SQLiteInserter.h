#pragma once

#include <string>
#include <vector>

#include "corelib/ParameterRows.h"
#include "corelib/RowInserter.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tpnf::sqlite {

// This library's file, for SQLite's ODBC driver to load into each connection it opens (data-source
// attribute LoadExt): the library then finds the driver's SQLite connection and writes rows through it
// (CSQLiteInserter). Empty when the file cannot be named so.
std::string ExtensionFile();

} // namespace tpnf::sqlite

// Rows written through SQLite itself, on the connection the SQLite ODBC driver opened and in its
// transaction: one INSERT prepared once, bound and stepped per row. The driver compiles every statement
// it executes, which made compiling most of a write's time.
//
// Everything else is as with the driver's statements (CValuesInserter): rows are buffered in batches of
// the same size, a batch is written whole or not at all (a savepoint stands in for the statement), a
// batch that stored fewer rows than it was given fails, and errors read as the driver's own.
class CSQLiteInserter final : public CRowInserter {
public:
    // The driver's SQLite connection under stmt's, when the driver loaded this library into it; else null.
    static sqlite3* Connection(void* stmt);

    CSQLiteInserter(CDatabase& db, const std::string& table, const std::vector<CRecordsetColumn>& columns,
                    sqlite3* connection);
    ~CSQLiteInserter() override;

    void Append(const std::vector<CDBField>& row) override;
    void Flush() override;
    void Discard() override { m_rows.Clear(); }

private:
    void Write();
    void WriteRows(size_t rows, long long& stored);
    sqlite3_stmt* Prepare(const std::string& sql);
    void Step(sqlite3_stmt* stmt);
    void EnsureTransaction();
    [[noreturn]] void ThrowError(int rc);

    sqlite3* const m_sqlite;
    CParameterRows m_rows;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_savepoint = nullptr;
    sqlite3_stmt* m_release = nullptr;
    sqlite3_stmt* m_rollbackTo = nullptr;
};
