#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corelib/DBField.h"
#include "corelib/RecordsetColumn.h"

class CDatabase;

// How the rows added through a recordset reach its table: one strategy per kind of database, behind
// this interface. The recordset hands over each finished row; the inserter buffers rows and writes them
// in batches of its own size, and all that it holds on Flush. A batch that fails is dropped (the
// caller rolls back) and its failure is thrown, by the call that wrote it or by the connection's next
// use (see CDatabase).
class CRowInserter {
public:
    // The strategy that suits the connection and the table; the choice is made here and nowhere else.
    static std::unique_ptr<CRowInserter> Create(CDatabase& db, const std::string& table,
                                                const std::vector<CRecordsetColumn>& columns);

    virtual ~CRowInserter() = default;
    CRowInserter(const CRowInserter&) = delete;
    CRowInserter& operator=(const CRowInserter&) = delete;

    // Takes a copy of the row (one field per column); a refused value throws and leaves the buffered
    // rows as they were.
    virtual void Append(const std::vector<CDBField>& row) = 0;
    // Writes every buffered row and throws the first failure of any batch not yet reported.
    virtual void Flush() = 0;
    // Drops the buffered rows: for a rollback.
    virtual void Discard() = 0;

protected:
    CRowInserter(CDatabase& db, const std::string& table, const std::vector<CRecordsetColumn>& columns)
        : m_db(db), m_table(table), m_columns(columns) {}

    // The connection's statement handles and its one background write, for the strategies.
    void* AllocStatement();
    // A statement prepared with sql; a failed prepare throws and leaves no handle.
    void* PrepareStatement(const std::string& sql);
    void StartWrite(std::function<void()> write);
    void FinishWrite();
    void ThrowWriteFailure();
    // True in manual-commit mode (BeginTrans), where the driver begins its transaction with the next
    // statement it runs.
    bool ManualCommit();
    // Runs a statement through the driver.
    void RunStatement(const std::string& sql);

    // "INSERT INTO table (c1,c2,...)"
    std::string InsertInto() const;

    // For the strategies that write rows as text: checks the row's integer values before any of it is
    // kept (a refused value throws), then hands append each column's value in turn: null, or its text
    // and whether it is an integer (digits and a sign, nothing to quote).
    template <typename Append>
    void ForEachValueText(const std::vector<CDBField>& row, Append append) {
        const size_t n = m_columns.size();
        for (size_t c = 0; c < n; ++c)
            if (m_columns[c].integer && !row[c].IsNull())
                m_rowNumbers[c] = m_columns[c].IntegerValue(row[c]);
        for (size_t c = 0; c < n; ++c) {
            char scratch[24];
            if (row[c].IsNull())
                append(c, std::optional<std::string_view>(), false);
            else if (m_columns[c].integer)
                append(c, std::optional<std::string_view>(IntegerText(m_rowNumbers[c], scratch)), true);
            else
                append(c, std::optional<std::string_view>(CRecordsetColumn::TextValue(row[c], scratch)),
                       false);
        }
    }

    CDatabase& m_db;
    const std::string m_table;
    const std::vector<CRecordsetColumn> m_columns;

private:
    static std::string_view IntegerText(int64_t value, char (&scratch)[24]);

    std::vector<int64_t> m_rowNumbers = std::vector<int64_t>(m_columns.size(), 0); // the row being appended
};
