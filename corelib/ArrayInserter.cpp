#include "corelib/ArrayInserter.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>

#include "corelib/ODBCCalls.h"

namespace {

// Rows per batch: one parameter per column whatever the row count, so only memory bounds it.
constexpr size_t kBatchRows = 8192;

bool IsPlainTypeName(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    });
}

// One element of an array literal: quoted, with quotes and backslashes escaped.
void AppendArrayText(std::string& out, std::string_view text) {
    out += '"';
    for (char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    out += '"';
}

} // namespace

bool CArrayInserter::CanWrite(const std::vector<CRecordsetColumn>& columns) {
    return !columns.empty() &&
           std::all_of(columns.begin(), columns.end(),
                       [](const CRecordsetColumn& column) { return IsPlainTypeName(column.typeName); });
}

CArrayInserter::CArrayInserter(CDatabase& db, const std::string& table,
                               const std::vector<CRecordsetColumn>& columns)
    : CRowInserter(db, table, columns), m_arrays(columns.size(), "{"), m_sending(columns.size()),
      m_sendingLengths(columns.size(), 0) {}

CArrayInserter::~CArrayInserter() {
    FinishWrite(); // the write in flight reads this statement and these arrays
    tpnf::odbc::FreeStatement(m_insert);
}

void CArrayInserter::Append(const std::vector<CDBField>& row) {
    ForEachValueText(row, [this](size_t c, std::optional<std::string_view> text, bool integer) {
        std::string& array = m_arrays[c];
        if (m_pending != 0)
            array += ',';
        if (!text)
            array += "NULL";
        else if (integer)
            array += *text;
        else
            AppendArrayText(array, *text);
    });
    ++m_pending;
    if (m_pending == kBatchRows)
        Send(false);
}

void CArrayInserter::Flush() {
    if (m_pending != 0)
        Send(true);
}

void CArrayInserter::Discard() {
    m_pending = 0;
    ResetArrays();
}

void CArrayInserter::Send(bool wait) {
    const size_t rows = m_pending;
    m_pending = 0; // a failed batch is dropped: the caller rolls back
    FinishWrite(); // the previous batch's arrays are free again
    m_sending.swap(m_arrays);
    ResetArrays();
    ThrowWriteFailure();
    if (m_insert == SQL_NULL_HSTMT) {
        std::string values;
        for (size_t c = 0; c < m_columns.size(); ++c)
            values += (c == 0 ? "unnest(?::" : ",unnest(?::") + m_columns[c].typeName + "[])";
        m_insert = PrepareStatement(InsertInto() + " SELECT " + values);
    }
    for (size_t c = 0; c < m_columns.size(); ++c) {
        std::string& array = m_sending[c];
        array += '}';
        m_sendingLengths[c] = static_cast<SQLLEN>(array.size());
        tpnf::odbc::Check(SQLBindParameter(m_insert, static_cast<SQLUSMALLINT>(c + 1), SQL_PARAM_INPUT,
                                           SQL_C_CHAR, SQL_LONGVARCHAR, array.size(), 0, array.data(),
                                           m_sendingLengths[c] + 1, &m_sendingLengths[c]),
                          m_insert);
    }
    SQLHSTMT stmt = m_insert;
    StartWrite([stmt, rows] { tpnf::odbc::ExecuteInsert(stmt, rows); });
    if (wait)
        ThrowWriteFailure();
}

void CArrayInserter::ResetArrays() {
    for (std::string& array : m_arrays)
        array.assign(1, '{');
}
