#pragma once

#include "corelib/ParameterRows.h"
#include "corelib/RowInserter.h"

// Rows written as prepared multi-row INSERT INTO T (...) VALUES (?,...),(?,...) statements: up to 256
// rows and 4096 parameters each. Full batches go through one statement prepared and bound once; the
// shorter last batch through a second one. The way for SQLite and any other database.
class CValuesInserter final : public CRowInserter {
public:
    CValuesInserter(CDatabase& db, const std::string& table, const std::vector<CRecordsetColumn>& columns);
    ~CValuesInserter() override;

    void Append(const std::vector<CDBField>& row) override;
    void Flush() override;
    void Discard() override { m_rows.Clear(); }

    // Rows per statement for a table of that many columns.
    static size_t BatchRows(size_t columns);

private:
    std::string InsertSql(size_t rows) const;

    CParameterRows m_rows;
    SQLHSTMT m_full = SQL_NULL_HSTMT;
    bool m_fullBound = false;
    unsigned m_fullLayout = 0; // the row buffer's layout m_full was bound to
    SQLHSTMT m_part = SQL_NULL_HSTMT;
};
