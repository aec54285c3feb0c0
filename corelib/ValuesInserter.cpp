#include "corelib/ValuesInserter.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>

#include "corelib/ODBCCalls.h"

namespace {

constexpr size_t kMaxBatchRows = 256;
// Parameters per statement: SQLite allows 32766; psqlODBC loses track of the server's answer to a
// prepare with more than about 7,500.
constexpr size_t kMaxParameters = 4096;

} // namespace

size_t CValuesInserter::BatchRows(size_t columns) {
    return std::min(kMaxBatchRows, std::max<size_t>(kMaxParameters / std::max<size_t>(columns, 1), 1));
}

CValuesInserter::CValuesInserter(CDatabase& db, const std::string& table,
                                 const std::vector<CRecordsetColumn>& columns)
    : CRowInserter(db, table, columns), m_rows(m_columns, BatchRows(columns.size())) {}

CValuesInserter::~CValuesInserter() {
    tpnf::odbc::FreeStatement(m_full);
    tpnf::odbc::FreeStatement(m_part);
}

void CValuesInserter::Append(const std::vector<CDBField>& row) {
    m_rows.Append(row);
    if (m_rows.Size() == m_rows.Capacity())
        Flush();
}

void CValuesInserter::Flush() {
    size_t rows = m_rows.Size();
    if (rows == 0)
        return;
    m_rows.Clear(); // a failed batch is dropped: the caller rolls back
    if (rows == m_rows.Capacity()) {
        if (m_full == SQL_NULL_HSTMT) {
            m_full = PrepareStatement(InsertSql(rows));
            m_fullBound = false;
        }
        if (!m_fullBound || m_fullLayout != m_rows.Layout()) {
            m_rows.Bind(m_full, rows);
            m_fullBound = true;
            m_fullLayout = m_rows.Layout();
        }
        tpnf::odbc::ExecuteInsert(m_full, rows);
        return;
    }
    if (m_part == SQL_NULL_HSTMT)
        m_part = AllocStatement();
    SQLFreeStmt(m_part, SQL_RESET_PARAMS);
    m_rows.Bind(m_part, rows);
    std::string text = InsertSql(rows);
    tpnf::odbc::ExecuteInsertDirect(m_part, text, rows);
}

std::string CValuesInserter::InsertSql(size_t rows) const {
    std::string values = "(";
    for (size_t c = 0; c < m_columns.size(); ++c)
        values += c == 0 ? "?" : ",?";
    values += ')';
    std::string text = InsertInto() + " VALUES ";
    text.reserve(text.size() + rows * (values.size() + 1));
    for (size_t r = 0; r < rows; ++r) {
        if (r != 0)
            text += ',';
        text += values;
    }
    return text;
}
