#pragma once

#include <string>
#include <vector>

#include <sql.h>

#include "corelib/RowInserter.h"

// Rows written as one array per column: INSERT INTO T (...) SELECT unnest(?::type[]), ... with one
// parameter per column whatever the row count (PostgreSQL 10 and later). A batch of up to 8192 rows is
// handed to the connection's background write while the next one fills.
class CArrayInserter final : public CRowInserter {
public:
    // Every column's type name can be written before "[]" as it stands.
    static bool CanWrite(const std::vector<CRecordsetColumn>& columns);

    CArrayInserter(CDatabase& db, const std::string& table, const std::vector<CRecordsetColumn>& columns);
    ~CArrayInserter() override;

    void Append(const std::vector<CDBField>& row) override;
    void Flush() override;
    void Discard() override;

private:
    // Hands the filled arrays to the background write and empties them; with wait, the write is
    // finished and its failure thrown before returning.
    void Send(bool wait);
    void ResetArrays();

    size_t m_pending = 0;
    std::vector<std::string> m_arrays;  // per column: the array literal of the waiting rows, open
    std::vector<std::string> m_sending; // the arrays of the batch being written
    std::vector<SQLLEN> m_sendingLengths;
    SQLHSTMT m_insert = SQL_NULL_HSTMT;
};
