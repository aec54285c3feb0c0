#include "corelib/ParameterRows.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cstring>

#include "corelib/ODBCCalls.h"

namespace {

constexpr size_t kFirstTextWidth = 64; // bytes per text value, terminator included; grows

} // namespace

CParameterRows::CParameterRows(const std::vector<CRecordsetColumn>& columns, size_t capacity)
    : m_columns(columns), m_capacity(capacity) {
    size_t n = std::max<size_t>(columns.size(), 1);
    m_numbers.assign(capacity * n, 0);
    m_indicators.assign(capacity * n, SQL_NULL_DATA);
    m_texts.assign(columns.size(), {});
    m_widths.assign(columns.size(), 0);
    for (size_t c = 0; c < columns.size(); ++c) {
        if (!columns[c].integer) {
            m_widths[c] = kFirstTextWidth;
            m_texts[c].assign(capacity * kFirstTextWidth, 0);
        }
    }
}

void CParameterRows::Append(const std::vector<CDBField>& row) {
    size_t n = m_columns.size();
    size_t r = m_size;
    for (size_t c = 0; c < n; ++c) {
        const CDBField& field = row[c];
        size_t p = r * n + c;
        if (field.IsNull()) {
            m_indicators[p] = SQL_NULL_DATA;
        } else if (m_columns[c].integer) {
            m_numbers[p] = m_columns[c].IntegerValue(field);
            m_indicators[p] = 0;
        } else {
            char scratch[24];
            std::string_view text = CRecordsetColumn::TextValue(field, scratch);
            if (text.size() + 1 > m_widths[c])
                GrowText(c, text.size() + 1);
            char* slot = m_texts[c].data() + r * m_widths[c];
            std::memcpy(slot, text.data(), text.size());
            slot[text.size()] = 0;
            m_indicators[p] = static_cast<SQLLEN>(text.size());
        }
    }
    ++m_size; // only a whole row counts
}

void CParameterRows::Bind(SQLHSTMT stmt, size_t rows) {
    size_t n = m_columns.size();
    for (size_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < n; ++c) {
            size_t p = r * n + c;
            SQLUSMALLINT number = static_cast<SQLUSMALLINT>(p + 1);
            SQLRETURN rc;
            if (m_columns[c].integer)
                rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, m_columns[c].type, 0, 0,
                                      &m_numbers[p], 0, &m_indicators[p]);
            else
                rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, m_widths[c] - 1,
                                      0, m_texts[c].data() + r * m_widths[c],
                                      static_cast<SQLLEN>(m_widths[c]), &m_indicators[p]);
            tpnf::odbc::Check(rc, stmt);
        }
    }
}

void CParameterRows::GrowText(size_t c, size_t needed) {
    size_t width = m_widths[c];
    while (width < needed)
        width *= 2;
    std::vector<char> grown(m_capacity * width, 0);
    for (size_t r = 0; r < m_size; ++r)
        std::memcpy(grown.data() + r * width, m_texts[c].data() + r * m_widths[c], m_widths[c]);
    m_texts[c].swap(grown);
    m_widths[c] = width;
    ++m_layout;
}
