#include "corelib/ODBCRecordset.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <cwctype>
#include <exception>
#include <string>
#include <vector>

#include "corelib/Database.h"
#include "util/TextConvert.h"

namespace {

constexpr size_t kMaxBatchRows = 256;
// Parameters per statement: SQLite allows 32766; psqlODBC loses track of the server's answer to a
// prepare with more than about 7,500.
constexpr size_t kMaxParameters = 4096;
// Rows per array insert: one parameter per column whatever the row count, so only memory bounds it.
constexpr size_t kArrayBatchRows = 8192;
constexpr size_t kFirstTextWidth = 64; // bytes per buffered text value, terminator included; grows

bool IsIntegerType(SQLSMALLINT type) {
    return type == SQL_INTEGER || type == SQL_SMALLINT || type == SQL_TINYINT || type == SQL_BIGINT ||
           type == SQL_BIT;
}

wchar_t Lower(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

bool SameName(std::wstring_view a, std::wstring_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](wchar_t x, wchar_t y) { return Lower(x) == Lower(y); });
}

// Splits a select into words; only what a single-table select needs.
class SelectScanner {
public:
    explicit SelectScanner(const CString& sql) : m_sql(sql) {}

    bool Keyword(std::wstring_view word) {
        SkipSpace();
        if (m_sql.size() - m_pos < word.size() || !SameName(m_sql.substr(m_pos, word.size()), word))
            return false;
        size_t end = m_pos + word.size();
        if (end < m_sql.size() && IsIdentifierChar(m_sql[end]) && IsIdentifierChar(word.back()))
            return false;
        m_pos = end;
        return true;
    }

    CString Identifier() {
        SkipSpace();
        size_t start = m_pos;
        if (m_pos < m_sql.size() && !std::iswdigit(m_sql[m_pos]))
            while (m_pos < m_sql.size() && IsIdentifierChar(m_sql[m_pos]))
                ++m_pos;
        return CString(m_sql.substr(start, m_pos - start));
    }

    bool AtEnd() {
        SkipSpace();
        if (m_pos < m_sql.size() && m_sql[m_pos] == L';')
            ++m_pos;
        SkipSpace();
        return m_pos == m_sql.size();
    }

private:
    static bool IsIdentifierChar(wchar_t c) {
        return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') || c == L'_';
    }
    void SkipSpace() {
        while (m_pos < m_sql.size() && std::iswspace(m_sql[m_pos]))
            ++m_pos;
    }

    std::wstring_view m_sql;
    size_t m_pos = 0;
};

// The table of "select * from T [where ...]", else the empty string.
CString SingleTable(const CString& sql) {
    SelectScanner scanner(sql);
    if (!scanner.Keyword(L"select") || !scanner.Keyword(L"*") || !scanner.Keyword(L"from"))
        return CString();
    CString table = scanner.Identifier();
    if (table.empty() || !(scanner.AtEnd() || scanner.Keyword(L"where")))
        return CString();
    return table;
}

void FreeStatement(SQLHSTMT& stmt) {
    if (stmt != SQL_NULL_HSTMT) {
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        stmt = SQL_NULL_HSTMT;
    }
}

[[noreturn]] void ThrowStatementError(SQLRETURN rc, SQLHSTMT stmt) {
    throw CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, stmt);
}

void Check(SQLRETURN rc, SQLHSTMT stmt) {
    if (!SQL_SUCCEEDED(rc))
        ThrowStatementError(rc, stmt);
}

void ExecuteDirect(SQLHSTMT stmt, const std::string& sql) {
    Check(SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())), SQL_NTS), stmt);
}

struct Column {
    CString name;
    std::string sqlName;
    SQLSMALLINT type;
    bool integer;
    std::string typeName; // the database's own name, for the array cast
};

// A type name that can be written before "[]" as it stands.
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

struct CODBCRecordset::Impl {
    enum class Mode { None, Adding, Editing };

    CDatabase* db;
    bool open = false;
    std::string sql;
    std::string table; // empty: read-only
    std::vector<Column> columns;
    std::vector<CDBField> row;    // the current row
    std::vector<CDBField> newRow; // the row being added
    Mode mode = Mode::None;

    SQLHSTMT select = SQL_NULL_HSTMT;
    bool executed = false;
    bool hasRows = false;
    bool eof = true;

    int key = -1; // column an edit is keyed on, learned at the first Edit
    CDBField keyValue;
    SQLHSTMT update = SQL_NULL_HSTMT;
    std::string updateSql;
    std::vector<SQLBIGINT> updateNumbers;
    std::vector<SQLLEN> updateIndicators;
    std::vector<std::string> updateTexts;

    // Added rows waiting to be written: row r, column c is parameter r * columns + c (0-based), in
    // buffers bound to the prepared statement once and refilled for every batch.
    size_t batchRows = 0;
    size_t pending = 0;
    std::vector<SQLBIGINT> numbers;
    std::vector<SQLLEN> indicators;
    std::vector<std::vector<char>> texts; // per text column: batchRows slots of widths[c] bytes
    std::vector<size_t> widths;
    SQLHSTMT insertFull = SQL_NULL_HSTMT; // prepared for batchRows rows
    bool fullBound = false;
    SQLHSTMT insertPart = SQL_NULL_HSTMT; // the shorter last batch

    // Where the database takes arrays (see CDatabase), column c of the waiting rows is the array
    // literal arrays[c] instead, and every batch goes through insertFull.
    bool useArrays = false;
    std::vector<std::string> arrays;
    std::vector<std::string> sending; // the arrays of the batch being written
    std::vector<SQLLEN> sendingLengths;
    std::vector<int64_t> rowNumbers; // the integer values of the row being appended

    explicit Impl(CDatabase* database) : db(database) {}

    void RequireOpen() const {
        if (!open)
            throw CDBException(CDBException::errorNotOpen, L"The recordset is not open\n");
    }

    size_t FindColumn(std::wstring_view name) const {
        for (size_t c = 0; c < columns.size(); ++c)
            if (SameName(columns[c].name, name))
                return c;
        throw CDBException(CDBException::errorColumnNotFound, L"Column not found: " + CString(name) + L"\n");
    }

    void DescribeColumns() {
        SQLSMALLINT count = 0;
        Check(SQLNumResultCols(select, &count), select);
        columns.clear();
        for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(count); ++i) {
            SQLCHAR name[256];
            SQLSMALLINT nameLength = 0, type = 0, digits = 0, nullable = 0;
            SQLULEN size = 0;
            Check(SQLDescribeCol(select, i, name, sizeof name, &nameLength, &type, &size, &digits, &nullable),
                  select);
            std::string sqlName(reinterpret_cast<char*>(name));
            char typeName[128] = "";
            if (!SQL_SUCCEEDED(SQLColAttribute(select, i, SQL_DESC_TYPE_NAME, typeName, sizeof typeName,
                                               nullptr, nullptr)))
                typeName[0] = 0;
            columns.push_back(
                Column{tpnf::FromUtf8(sqlName), std::move(sqlName), type, IsIntegerType(type), typeName});
        }
        row.assign(columns.size(), CDBField());
        newRow.assign(columns.size(), CDBField());
    }

    void EnsureExecuted() {
        RequireOpen();
        if (executed)
            return;
        db->FlushRecordsets(); // the select must see rows added before it
        ExecuteDirect(select, sql);
        executed = true;
        Fetch();
        hasRows = !eof;
    }

    void Fetch() {
        db->FinishWrite(); // another recordset's rows may be on their way
        SQLRETURN rc = SQLFetch(select);
        if (rc == SQL_NO_DATA) {
            eof = true;
            return;
        }
        Check(rc, select);
        eof = false;
        for (size_t c = 0; c < columns.size(); ++c)
            ReadColumn(c);
    }

    void ReadColumn(size_t c) {
        CDBField& field = row[c];
        field.m_bDirty = false;
        SQLUSMALLINT number = static_cast<SQLUSMALLINT>(c + 1);
        SQLLEN indicator = 0;
        if (columns[c].integer) {
            SQLBIGINT value = 0;
            Check(SQLGetData(select, number, SQL_C_SBIGINT, &value, 0, &indicator), select);
            field.m_kind = indicator == SQL_NULL_DATA ? CDBField::Kind::Null : CDBField::Kind::Integer;
            field.m_nValue = value;
            return;
        }
        // Longer texts than the buffer arrive in pieces, each ended by a terminator.
        std::string& text = field.m_strText;
        text.clear();
        field.m_kind = CDBField::Kind::Text;
        char buffer[512];
        for (;;) {
            SQLRETURN rc = SQLGetData(select, number, SQL_C_CHAR, buffer, sizeof buffer, &indicator);
            if (rc == SQL_NO_DATA)
                break;
            Check(rc, select);
            if (indicator == SQL_NULL_DATA) {
                field.m_kind = CDBField::Kind::Null;
                break;
            }
            bool partial = indicator == SQL_NO_TOTAL || indicator >= static_cast<SQLLEN>(sizeof buffer);
            text.append(buffer, partial ? sizeof buffer - 1 : static_cast<size_t>(indicator));
            if (!partial)
                break;
        }
    }

    void EnsureBuffers() {
        if (batchRows != 0)
            return;
        useArrays = db->m_bArrayInsert && !columns.empty() &&
                    std::all_of(columns.begin(), columns.end(),
                                [](const Column& column) { return IsPlainTypeName(column.typeName); });
        if (useArrays) {
            batchRows = kArrayBatchRows;
            arrays.assign(columns.size(), "{");
            sending.assign(columns.size(), {});
            sendingLengths.assign(columns.size(), 0);
            rowNumbers.assign(columns.size(), 0);
            return;
        }
        size_t n = std::max<size_t>(columns.size(), 1);
        batchRows = std::min(kMaxBatchRows, std::max<size_t>(kMaxParameters / n, 1));
        numbers.assign(batchRows * n, 0);
        indicators.assign(batchRows * n, SQL_NULL_DATA);
        texts.assign(columns.size(), {});
        widths.assign(columns.size(), 0);
        for (size_t c = 0; c < columns.size(); ++c) {
            if (!columns[c].integer) {
                widths[c] = kFirstTextWidth;
                texts[c].assign(batchRows * kFirstTextWidth, 0);
            }
        }
    }

    int64_t IntegerValue(size_t c, const CDBField& field) const {
        if (field.m_kind == CDBField::Kind::Integer)
            return field.m_nValue;
        const std::string& text = field.m_strText;
        int64_t value = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || end != text.data() + text.size() || text.empty())
            throw CDBException(CDBException::errorInvalidValue, L"Not an integer for column " +
                                                                    columns[c].name + L": " +
                                                                    tpnf::FromUtf8(text) + L"\n");
        return value;
    }

    // The text of a value for a text column; integers are written out in decimal into scratch.
    static std::string_view TextValue(const CDBField& field, char (&scratch)[24]) {
        if (field.m_kind == CDBField::Kind::Text)
            return field.m_strText;
        auto result = std::to_chars(scratch, scratch + sizeof scratch, field.m_nValue);
        return std::string_view(scratch, static_cast<size_t>(result.ptr - scratch));
    }

    void GrowText(size_t c, size_t needed) {
        size_t width = widths[c];
        while (width < needed)
            width *= 2;
        std::vector<char> grown(batchRows * width, 0);
        for (size_t r = 0; r < pending; ++r)
            std::memcpy(grown.data() + r * width, texts[c].data() + r * widths[c], widths[c]);
        texts[c].swap(grown);
        widths[c] = width;
        fullBound = false; // the prepared statement points at the old buffer
    }

    void AppendArrayRow() {
        size_t n = columns.size();
        // Integers are checked first so that a refused row leaves the arrays as they were.
        for (size_t c = 0; c < n; ++c)
            if (columns[c].integer && newRow[c].m_kind != CDBField::Kind::Null)
                rowNumbers[c] = IntegerValue(c, newRow[c]);
        for (size_t c = 0; c < n; ++c) {
            const CDBField& field = newRow[c];
            std::string& array = arrays[c];
            if (pending != 0)
                array += ',';
            char scratch[24];
            if (field.m_kind == CDBField::Kind::Null) {
                array += "NULL";
            } else if (columns[c].integer) {
                auto result = std::to_chars(scratch, scratch + sizeof scratch, rowNumbers[c]);
                array.append(scratch, result.ptr);
            } else {
                AppendArrayText(array, TextValue(field, scratch));
            }
        }
        ++pending;
        if (pending == batchRows)
            FlushArrays(false);
    }

    std::string ArrayInsertSql() const {
        std::string text = "INSERT INTO " + table + " (";
        std::string values;
        for (size_t c = 0; c < columns.size(); ++c) {
            text += (c == 0 ? "" : ",") + columns[c].sqlName;
            values += (c == 0 ? "unnest(?::" : ",unnest(?::") + columns[c].typeName + "[])";
        }
        return text + ") SELECT " + values;
    }

    // The full arrays are handed to the connection's write thread and the rows go on into the
    // emptied ones; with wait, the write is finished and its failure thrown before returning.
    void FlushArrays(bool wait) {
        pending = 0;       // a failed batch is dropped: the caller rolls back
        db->FinishWrite(); // the previous batch's arrays are free again
        sending.swap(arrays);
        ResetArrays();
        db->ThrowWriteFailure();
        if (insertFull == SQL_NULL_HSTMT)
            PrepareFull(ArrayInsertSql());
        for (size_t c = 0; c < columns.size(); ++c) {
            sending[c] += '}';
            sendingLengths[c] = static_cast<SQLLEN>(sending[c].size());
            Check(SQLBindParameter(insertFull, static_cast<SQLUSMALLINT>(c + 1), SQL_PARAM_INPUT, SQL_C_CHAR,
                                   SQL_LONGVARCHAR, sending[c].size(), 0, sending[c].data(),
                                   sendingLengths[c] + 1, &sendingLengths[c]),
                  insertFull);
        }
        SQLHSTMT stmt = insertFull;
        db->StartWrite([stmt] {
            SQLRETURN rc = SQLExecute(stmt);
            if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA)
                ThrowStatementError(rc, stmt);
        });
        if (wait)
            db->ThrowWriteFailure();
    }

    // Prepares the statement full batches go through; a failed prepare leaves none.
    void PrepareFull(std::string text) {
        insertFull = db->AllocStatement();
        SQLRETURN rc = SQLPrepare(insertFull, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS);
        if (!SQL_SUCCEEDED(rc)) {
            CDBException error = CDBException::FromDiagnostics(rc, SQL_HANDLE_STMT, insertFull);
            FreeStatement(insertFull);
            throw error;
        }
    }

    void ResetArrays() {
        if (!useArrays)
            return;
        for (std::string& array : arrays)
            array.assign(1, '{');
    }

    void AppendRow() {
        if (useArrays) {
            AppendArrayRow();
            return;
        }
        size_t n = columns.size();
        size_t r = pending;
        for (size_t c = 0; c < n; ++c) {
            const CDBField& field = newRow[c];
            size_t p = r * n + c;
            if (field.m_kind == CDBField::Kind::Null) {
                indicators[p] = SQL_NULL_DATA;
            } else if (columns[c].integer) {
                numbers[p] = IntegerValue(c, field);
                indicators[p] = 0;
            } else {
                char scratch[24];
                std::string_view text = TextValue(field, scratch);
                if (text.size() + 1 > widths[c])
                    GrowText(c, text.size() + 1);
                char* slot = texts[c].data() + r * widths[c];
                std::memcpy(slot, text.data(), text.size());
                slot[text.size()] = 0;
                indicators[p] = static_cast<SQLLEN>(text.size());
            }
        }
        ++pending;
        if (pending == batchRows)
            Flush();
    }

    std::string InsertSql(size_t rows) const {
        std::string text = "INSERT INTO " + table + " (";
        std::string values = "(";
        for (size_t c = 0; c < columns.size(); ++c) {
            text += (c == 0 ? "" : ",") + columns[c].sqlName;
            values += c == 0 ? "?" : ",?";
        }
        values += ')';
        text += ") VALUES ";
        text.reserve(text.size() + rows * (values.size() + 1));
        for (size_t r = 0; r < rows; ++r) {
            if (r != 0)
                text += ',';
            text += values;
        }
        return text;
    }

    void BindRows(SQLHSTMT stmt, size_t rows) {
        size_t n = columns.size();
        for (size_t r = 0; r < rows; ++r) {
            for (size_t c = 0; c < n; ++c) {
                size_t p = r * n + c;
                SQLUSMALLINT number = static_cast<SQLUSMALLINT>(p + 1);
                SQLRETURN rc;
                if (columns[c].integer)
                    rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, columns[c].type, 0, 0,
                                          &numbers[p], 0, &indicators[p]);
                else
                    rc = SQLBindParameter(stmt, number, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR,
                                          widths[c] - 1, 0, texts[c].data() + r * widths[c],
                                          static_cast<SQLLEN>(widths[c]), &indicators[p]);
                Check(rc, stmt);
            }
        }
    }

    void Flush() {
        if (pending == 0)
            return;
        if (useArrays) {
            FlushArrays(true);
            return;
        }
        size_t rows = pending;
        pending = 0; // a failed batch is dropped: the caller rolls back
        SQLRETURN rc;
        SQLHSTMT stmt;
        if (rows == batchRows) {
            if (insertFull == SQL_NULL_HSTMT) {
                PrepareFull(InsertSql(rows));
                fullBound = false;
            }
            if (!fullBound) {
                BindRows(insertFull, rows);
                fullBound = true;
            }
            stmt = insertFull;
            rc = SQLExecute(stmt);
        } else {
            if (insertPart == SQL_NULL_HSTMT)
                insertPart = db->AllocStatement();
            stmt = insertPart;
            SQLFreeStmt(stmt, SQL_RESET_PARAMS);
            BindRows(stmt, rows);
            std::string text = InsertSql(rows);
            rc = SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS);
        }
        if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA)
            ThrowStatementError(rc, stmt);
    }

    void LearnKey() {
        key = 0;
        SQLHSTMT stmt = db->AllocStatement();
        std::vector<std::string> names;
        if (SQL_SUCCEEDED(SQLPrimaryKeys(stmt, nullptr, 0, nullptr, 0,
                                         reinterpret_cast<SQLCHAR*>(table.data()), SQL_NTS))) {
            while (SQL_SUCCEEDED(SQLFetch(stmt))) {
                char name[256];
                SQLLEN indicator = 0;
                if (SQL_SUCCEEDED(SQLGetData(stmt, 4, SQL_C_CHAR, name, sizeof name, &indicator)) &&
                    indicator != SQL_NULL_DATA)
                    names.emplace_back(name);
            }
        }
        FreeStatement(stmt);
        if (names.size() != 1)
            return;
        for (size_t c = 0; c < columns.size(); ++c)
            if (SameName(columns[c].name, tpnf::FromUtf8(names.front())))
                key = static_cast<int>(c);
    }

    void BindUpdateValue(SQLUSMALLINT number, size_t c, const CDBField& field) {
        size_t i = number - 1u;
        SQLLEN& indicator = updateIndicators[i];
        SQLRETURN rc;
        if (field.m_kind == CDBField::Kind::Null) {
            indicator = SQL_NULL_DATA;
            rc = SQLBindParameter(update, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, columns[c].type, 0, 0,
                                  &updateNumbers[i], 0, &indicator);
        } else if (columns[c].integer) {
            updateNumbers[i] = IntegerValue(c, field);
            indicator = 0;
            rc = SQLBindParameter(update, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, columns[c].type, 0, 0,
                                  &updateNumbers[i], 0, &indicator);
        } else {
            char scratch[24];
            updateTexts[i].assign(TextValue(field, scratch));
            std::string& text = updateTexts[i];
            indicator = static_cast<SQLLEN>(text.size());
            rc = SQLBindParameter(update, number, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR,
                                  std::max<size_t>(text.size(), 1), 0, text.data(),
                                  static_cast<SQLLEN>(text.size() + 1), &indicator);
        }
        Check(rc, update);
    }

    BOOL StoreEdit() {
        std::vector<size_t> changed;
        for (size_t c = 0; c < columns.size(); ++c)
            if (row[c].m_bDirty)
                changed.push_back(c);
        if (changed.empty())
            return FALSE;
        db->FlushRecordsets();
        std::string text = "UPDATE " + table + " SET ";
        for (size_t i = 0; i < changed.size(); ++i)
            text += (i == 0 ? "" : ",") + columns[changed[i]].sqlName + "=?";
        text += " WHERE " + columns[static_cast<size_t>(key)].sqlName + "=?";
        if (update == SQL_NULL_HSTMT)
            update = db->AllocStatement();
        if (text != updateSql) {
            updateSql.clear();
            Check(SQLPrepare(update, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS), update);
            updateSql = std::move(text);
        }
        size_t count = changed.size() + 1;
        updateNumbers.assign(count, 0);
        updateIndicators.assign(count, 0);
        updateTexts.resize(count); // sized before binding: the bound buffers must not move
        for (size_t i = 0; i < changed.size(); ++i)
            BindUpdateValue(static_cast<SQLUSMALLINT>(i + 1), changed[i], row[changed[i]]);
        BindUpdateValue(static_cast<SQLUSMALLINT>(count), static_cast<size_t>(key), keyValue);
        SQLRETURN rc = SQLExecute(update);
        if (rc == SQL_NO_DATA)
            return FALSE;
        Check(rc, update);
        SQLLEN rows = 0;
        Check(SQLRowCount(update, &rows), update);
        for (size_t c : changed)
            row[c].m_bDirty = false;
        return rows > 0;
    }

    void Abandon() {
        if (db != nullptr)
            db->FinishWrite(); // the write in flight may be this recordset's
        FreeStatement(select);
        FreeStatement(update);
        FreeStatement(insertFull);
        FreeStatement(insertPart);
        open = false;
        executed = false;
        hasRows = false;
        eof = true;
        mode = Mode::None;
        key = -1;
        updateSql.clear();
        batchRows = 0;
        pending = 0;
        fullBound = false;
        numbers.clear();
        indicators.clear();
        texts.clear();
        widths.clear();
        useArrays = false;
        arrays.clear();
        sending.clear();
        sendingLengths.clear();
        rowNumbers.clear();
    }
};

CODBCRecordset::CODBCRecordset(CDatabase* pDatabase) : m_pImpl(std::make_unique<Impl>(pDatabase)) {}

CODBCRecordset::~CODBCRecordset() {
    try {
        Close();
    } catch (const std::exception&) {
        // nothing can be reported from a destructor
    }
}

BOOL CODBCRecordset::Open(const CString& sql) {
    Close();
    Impl& d = *m_pImpl;
    if (d.db == nullptr)
        throw CDBException(CDBException::errorNotOpen, L"The recordset has no database\n");
    d.db->FlushRecordsets();
    CString table = SingleTable(sql);
    d.table = tpnf::ToUtf8(table);
    d.sql = tpnf::ToUtf8(sql);
    d.select = d.db->AllocStatement();
    try {
        if (!table.empty()) {
            ExecuteDirect(d.select, "select * from " + d.table + " where 1=0");
            d.DescribeColumns();
            SQLFreeStmt(d.select, SQL_CLOSE);
        } else {
            ExecuteDirect(d.select, d.sql);
            d.DescribeColumns();
            d.executed = true;
            d.Fetch();
            d.hasRows = !d.eof;
        }
    } catch (...) {
        d.Abandon();
        throw;
    }
    d.open = true;
    d.db->Attach(this);
    return TRUE;
}

void CODBCRecordset::Close() {
    Impl& d = *m_pImpl;
    if (!d.open)
        return;
    std::exception_ptr failure;
    try {
        d.Flush();
    } catch (...) {
        failure = std::current_exception();
    }
    d.Abandon();
    d.db->Detach(this);
    if (failure)
        std::rethrow_exception(failure);
}

BOOL CODBCRecordset::IsOpen() const {
    return m_pImpl->open;
}

BOOL CODBCRecordset::CanAppend() const {
    return m_pImpl->open && !m_pImpl->table.empty() && m_pImpl->db->CanUpdate();
}

BOOL CODBCRecordset::CanUpdate() const {
    return CanAppend();
}

BOOL CODBCRecordset::HasRows() {
    m_pImpl->EnsureExecuted();
    return m_pImpl->hasRows;
}

BOOL CODBCRecordset::IsEOF() {
    m_pImpl->EnsureExecuted();
    return m_pImpl->eof;
}

void CODBCRecordset::MoveNext() {
    Impl& d = *m_pImpl;
    d.EnsureExecuted();
    if (d.eof)
        throw CDBException(CDBException::errorNoCurrentRecord, L"MoveNext past the last row\n");
    d.mode = Impl::Mode::None;
    d.Fetch();
}

void CODBCRecordset::AddNew() {
    Impl& d = *m_pImpl;
    d.RequireOpen();
    if (!CanAppend())
        throw CDBException(CDBException::errorNotUpdatable, L"The recordset cannot add rows\n");
    d.EnsureBuffers();
    for (CDBField& field : d.newRow) {
        field.m_kind = CDBField::Kind::Null;
        field.m_bDirty = false;
    }
    d.mode = Impl::Mode::Adding;
}

void CODBCRecordset::Edit() {
    Impl& d = *m_pImpl;
    d.RequireOpen();
    if (!CanUpdate())
        throw CDBException(CDBException::errorNotUpdatable, L"The recordset cannot change rows\n");
    d.EnsureExecuted();
    if (d.eof)
        throw CDBException(CDBException::errorNoCurrentRecord, L"No current row to edit\n");
    if (d.key < 0)
        d.LearnKey();
    d.keyValue = d.row[static_cast<size_t>(d.key)];
    for (CDBField& field : d.row)
        field.m_bDirty = false;
    d.mode = Impl::Mode::Editing;
}

BOOL CODBCRecordset::Update() {
    Impl& d = *m_pImpl;
    d.RequireOpen();
    Impl::Mode mode = d.mode;
    d.mode = Impl::Mode::None;
    switch (mode) {
    case Impl::Mode::Adding:
        d.AppendRow();
        return TRUE;
    case Impl::Mode::Editing:
        return d.StoreEdit();
    case Impl::Mode::None:
        break;
    }
    throw CDBException(CDBException::errorNoUpdateInProgress, L"Update without AddNew or Edit\n");
}

CDBField& CODBCRecordset::Field(std::wstring_view name) {
    Impl& d = *m_pImpl;
    d.RequireOpen();
    return FieldAt(d.FindColumn(name));
}

size_t CODBCRecordset::GetFieldIndex(std::wstring_view name) {
    m_pImpl->RequireOpen();
    return m_pImpl->FindColumn(name);
}

CDBField& CODBCRecordset::FieldAt(size_t c) {
    Impl& d = *m_pImpl;
    d.RequireOpen();
    if (c >= d.columns.size())
        throw CDBException(CDBException::errorColumnNotFound,
                           L"Column not found: " + std::to_wstring(c) + L"\n");
    if (d.mode == Impl::Mode::Adding)
        return d.newRow[c];
    d.EnsureExecuted();
    return d.row[c];
}

int32_t CODBCRecordset::GetLong(std::wstring_view name) {
    return Field(name).AsLong();
}

void CODBCRecordset::Flush() {
    m_pImpl->Flush();
}

void CODBCRecordset::DiscardPending() {
    m_pImpl->pending = 0;
    m_pImpl->ResetArrays();
    if (m_pImpl->mode == Impl::Mode::Adding)
        m_pImpl->mode = Impl::Mode::None;
}

void CODBCRecordset::Abandon() {
    m_pImpl->Abandon();
}
