#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include <sql.h>

#include "corelib/DBField.h"
#include "corelib/RecordsetColumn.h"

// The row buffer of a multi-row insert: up to Capacity() rows in fixed slots that a prepared statement
// binds once and that are refilled for every batch. Row r, column c is parameter r * columns + c
// (0-based). A text column keeps one slot of its width per row; a longer text doubles the width, which
// moves the slots (Layout() changes, and a statement bound before must be bound again).
class CParameterRows {
public:
    CParameterRows(const std::vector<CRecordsetColumn>& columns, size_t capacity);

    size_t Capacity() const { return m_capacity; }
    size_t Size() const { return m_size; }
    void Clear() { m_size = 0; }

    // Copies the row into the next slot; a refused value throws, and the rows before stay as they were.
    void Append(const std::vector<CDBField>& row);
    // Binds the first `rows` rows as the parameters of stmt.
    void Bind(SQLHSTMT stmt, size_t rows);
    unsigned Layout() const { return m_layout; }

    // Row r, column c as held: NULL, else the integer of an integer column or the text of another.
    bool IsNull(size_t r, size_t c) const { return m_indicators[r * m_columns.size() + c] == SQL_NULL_DATA; }
    SQLBIGINT Number(size_t r, size_t c) const { return m_numbers[r * m_columns.size() + c]; }
    std::string_view Text(size_t r, size_t c) const {
        return {m_texts[c].data() + r * m_widths[c],
                static_cast<size_t>(m_indicators[r * m_columns.size() + c])};
    }

private:
    void GrowText(size_t c, size_t needed);

    const std::vector<CRecordsetColumn>& m_columns;
    size_t m_capacity;
    size_t m_size = 0;
    unsigned m_layout = 0;
    std::vector<SQLBIGINT> m_numbers;
    std::vector<SQLLEN> m_indicators;
    std::vector<std::vector<char>> m_texts; // per text column: m_capacity slots of m_widths[c] bytes
    std::vector<size_t> m_widths;
};
