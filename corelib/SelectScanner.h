#pragma once

#include <string_view>

#include "util/Types.h"

// Splits a select into words; only what a single-table select needs.
class CSelectScanner {
public:
    explicit CSelectScanner(std::wstring_view sql) : m_sql(sql) {}

    // The table of "select * from T [where ...]", else the empty string.
    static CString SingleTable(std::wstring_view sql);
    // SQL names compare without case (ASCII only: names are kept ASCII).
    static bool SameName(std::wstring_view a, std::wstring_view b);

    bool Keyword(std::wstring_view word);
    CString Identifier();
    // Only space and one ';' are left.
    bool AtEnd();

private:
    void SkipSpace();

    std::wstring_view m_sql;
    size_t m_pos = 0;
};
