#pragma once

#include <string>
#include <vector>

#include "corelib/RowInserter.h"

class CCopyConnection;

// Rows written with COPY ... FROM STDIN on the connection's second, libpq connection (CCopyConnection),
// in text format: a batch of about 4 MB of rows is one COPY, handed to the connection's background write
// while the next one fills. Inside a transaction of the ODBC connection the rows go into the second
// connection's transaction, which ends with it (CDatabase).
class CCopyInserter final : public CRowInserter {
public:
    CCopyInserter(CDatabase& db, const std::string& table, const std::vector<CRecordsetColumn>& columns,
                  CCopyConnection& copy);
    ~CCopyInserter() override;

    void Append(const std::vector<CDBField>& row) override;
    void Flush() override;
    void Discard() override;

private:
    // Hands the waiting rows to the background write; with wait, the write is finished and its failure
    // thrown before returning.
    void Send(bool wait);

    CCopyConnection& m_copy;
    const std::string m_command; // COPY table (c1,c2,...) FROM STDIN
    size_t m_pending = 0;
    std::string m_rows;    // the waiting rows in COPY's text format
    std::string m_sending; // the rows of the batch being written
};
