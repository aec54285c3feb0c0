#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "corelib/DBField.h"
#include "util/Types.h"

// One column of a recordset's result, as the data source describes it, and how a value is written to it.
struct CRecordsetColumn {
    CString name;
    std::string sqlName;  // the name as statements spell it
    int16_t type = 0;     // the ODBC SQL type
    bool integer = false; // crosses the ODBC boundary as a 64-bit integer, else as UTF-8 text
    std::string typeName; // the data source's own name of the type

    // A value for an integer column: an integer, or a text that is a whole decimal number. Anything
    // else throws CDBException::errorInvalidValue. Not for NULL.
    int64_t IntegerValue(const CDBField& field) const;
    // A value for a text column: the text, or an integer written out in decimal into scratch. Not for NULL.
    static std::string_view TextValue(const CDBField& field, char (&scratch)[24]);
};
