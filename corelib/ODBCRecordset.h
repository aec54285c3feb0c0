#pragma once

#include <memory>
#include <string_view>

#include "corelib/DBField.h"
#include "util/Types.h"

class CDatabase;

// A recordset over one select on a CDatabase, with columns reached by name.
//
// A select of the form "select * from T [where ...]" makes the recordset updatable on table T:
// - Open learns the columns from "select * from T where 1=0"; the select itself runs only when a row
//   is first read (HasRows, IsEOF, MoveNext, GetLong, Field outside AddNew, Edit), so a recordset
//   opened only to add rows never loads the table.
// - Rows added with AddNew ... Update are buffered and written in batches by the insert strategy that
//   suits the database (CRowInserter: prepared multi-row INSERT ... VALUES statements, or one array per
//   column on PostgreSQL). The buffer is written when full, before any other statement on the connection
//   (so a read sees the rows), by CDatabase::CommitTrans and by Close.
// - Edit ... Update on a visited row runs UPDATE T SET col=?,... WHERE key=? on a statement of its
//   own while the select stays open. The key is the table's primary key when SQLPrimaryKeys names
//   exactly one column, else the first column; it is looked up at the first Edit.
// Any other select is read-only (CanAppend and CanUpdate are FALSE) and runs at Open.
// Text crosses the ODBC boundary as zero-terminated UTF-8 (SQL_C_CHAR); integers as 64-bit.
class CODBCRecordset {
public:
    explicit CODBCRecordset(CDatabase* pDatabase);
    // Closes the recordset; buffered rows are still written, errors doing so are dropped.
    ~CODBCRecordset();
    CODBCRecordset(const CODBCRecordset&) = delete;
    CODBCRecordset& operator=(const CODBCRecordset&) = delete;

    BOOL Open(const CString& sql);
    // Writes buffered rows and releases the statements. The recordset is closed even when writing
    // fails; the failure is then thrown.
    void Close();
    BOOL IsOpen() const;

    BOOL CanAppend() const;
    BOOL CanUpdate() const;

    // TRUE when the select returned at least one row.
    BOOL HasRows();
    BOOL IsEOF();
    void MoveNext();

    // Starts a new row with every column NULL; Field assignments fill it; Update adds it.
    void AddNew();
    // Starts changing the current row; Field assignments change it; Update stores the changes.
    void Edit();
    // Adds the new row (TRUE) or stores the edited columns (TRUE when a row was changed).
    BOOL Update();

    // The column of the row being added, or else of the current row. Names compare without case.
    CDBField& Field(std::wstring_view name);
    // The position of a column, for FieldAt; a writer of many rows looks each name up once.
    size_t GetFieldIndex(std::wstring_view name);
    CDBField& FieldAt(size_t index);
    int32_t GetLong(std::wstring_view name);

private:
    friend class CDatabase;
    struct Impl;

    void Flush();
    void DiscardPending();
    void Abandon();

    std::unique_ptr<Impl> m_pImpl;
};
