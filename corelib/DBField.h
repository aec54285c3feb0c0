#pragma once

#include <cstdint>
#include <string>

#include "util/Types.h"

// One column value of a recordset row: NULL, an integer or a text. Assigning to it sets the column
// for the row being added or edited (see CODBCRecordset::Field).
class CDBField {
public:
    // A long is 32 bits wide in this library's width rules, so int and long share this overload.
    CDBField& operator=(int32_t value);
    CDBField& operator=(const CString& value);
    // A 64-bit integer (a counter of bytes, a time in ms); named so that unsigned arguments stay unambiguous.
    CDBField& SetBigInt(int64_t value);

    void SetNull();
    BOOL IsNull() const { return m_kind == Kind::Null; }
    // The value as a 32-bit integer: a text gives its leading decimal number, NULL gives 0.
    int32_t AsLong() const;
    // The same at 64 bits.
    int64_t AsBigInt() const;
    CString AsString() const;

private:
    friend class CODBCRecordset;
    friend struct CRecordsetColumn;
    enum class Kind : uint8_t { Null, Integer, Text };

    void SetInteger(int64_t value);

    Kind m_kind = Kind::Null;
    bool m_bDirty = false; // assigned since AddNew or Edit
    int64_t m_nValue = 0;
    std::string m_strText; // UTF-8, the form it crosses the ODBC boundary in
};
