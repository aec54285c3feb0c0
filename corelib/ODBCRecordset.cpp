#include "corelib/ODBCRecordset.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "corelib/Database.h"
#include "corelib/ODBCCalls.h"
#include "corelib/RecordsetColumn.h"
#include "corelib/RowInserter.h"
#include "corelib/SelectScanner.h"
#include "util/TextConvert.h"

using tpnf::odbc::Check;
using tpnf::odbc::ExecuteDirect;
using tpnf::odbc::FreeStatement;

namespace {

bool IsIntegerType(SQLSMALLINT type) {
    return type == SQL_INTEGER || type == SQL_SMALLINT || type == SQL_TINYINT || type == SQL_BIGINT ||
           type == SQL_BIT;
}

} // namespace

// Reading, editing and the row being added; added rows go to the insert strategy (CRowInserter).
struct CODBCRecordset::Impl {
    enum class Mode { None, Adding, Editing };

    CDatabase* db;
    bool open = false;
    std::string sql;
    std::string table; // empty: read-only
    std::vector<CRecordsetColumn> columns;
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

    std::unique_ptr<CRowInserter> inserter; // made at the first AddNew

    explicit Impl(CDatabase* database) : db(database) {}

    void RequireOpen() const {
        if (!open)
            throw CDBException(CDBException::errorNotOpen, L"The recordset is not open\n");
    }

    size_t FindColumn(std::wstring_view name) const {
        for (size_t c = 0; c < columns.size(); ++c) // names as the table spells them: the usual case
            if (columns[c].name == name)
                return c;
        for (size_t c = 0; c < columns.size(); ++c)
            if (CSelectScanner::SameName(columns[c].name, name))
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
            columns.push_back(CRecordsetColumn{tpnf::FromUtf8(sqlName), std::move(sqlName), type,
                                               IsIntegerType(type), typeName});
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

    void Flush() {
        if (inserter)
            inserter->Flush();
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
            if (CSelectScanner::SameName(columns[c].name, tpnf::FromUtf8(names.front())))
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
            updateNumbers[i] = columns[c].IntegerValue(field);
            indicator = 0;
            rc = SQLBindParameter(update, number, SQL_PARAM_INPUT, SQL_C_SBIGINT, columns[c].type, 0, 0,
                                  &updateNumbers[i], 0, &indicator);
        } else {
            char scratch[24];
            updateTexts[i].assign(CRecordsetColumn::TextValue(field, scratch));
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
        inserter.reset();
        FreeStatement(select);
        FreeStatement(update);
        open = false;
        executed = false;
        hasRows = false;
        eof = true;
        mode = Mode::None;
        key = -1;
        updateSql.clear();
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
    CString table = CSelectScanner::SingleTable(sql);
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
    if (!d.inserter)
        d.inserter = CRowInserter::Create(*d.db, d.table, d.columns);
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
        d.inserter->Append(d.newRow);
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
    if (m_pImpl->inserter)
        m_pImpl->inserter->Discard();
    if (m_pImpl->mode == Impl::Mode::Adding)
        m_pImpl->mode = Impl::Mode::None;
}

void CODBCRecordset::Abandon() {
    m_pImpl->Abandon();
}
