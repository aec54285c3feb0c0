#include "corelib/SelectScanner.h"

#include <algorithm>
#include <cwctype>

namespace {

wchar_t Lower(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

bool IsIdentifierChar(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') || c == L'_';
}

} // namespace

CString CSelectScanner::SingleTable(std::wstring_view sql) {
    CSelectScanner scanner(sql);
    if (!scanner.Keyword(L"select") || !scanner.Keyword(L"*") || !scanner.Keyword(L"from"))
        return CString();
    CString table = scanner.Identifier();
    if (table.empty() || !(scanner.AtEnd() || scanner.Keyword(L"where")))
        return CString();
    return table;
}

bool CSelectScanner::SameName(std::wstring_view a, std::wstring_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](wchar_t x, wchar_t y) { return Lower(x) == Lower(y); });
}

bool CSelectScanner::Keyword(std::wstring_view word) {
    SkipSpace();
    if (m_sql.size() - m_pos < word.size() || !SameName(m_sql.substr(m_pos, word.size()), word))
        return false;
    size_t end = m_pos + word.size();
    if (end < m_sql.size() && IsIdentifierChar(m_sql[end]) && IsIdentifierChar(word.back()))
        return false;
    m_pos = end;
    return true;
}

CString CSelectScanner::Identifier() {
    SkipSpace();
    size_t start = m_pos;
    if (m_pos < m_sql.size() && !std::iswdigit(m_sql[m_pos]))
        while (m_pos < m_sql.size() && IsIdentifierChar(m_sql[m_pos]))
            ++m_pos;
    return CString(m_sql.substr(start, m_pos - start));
}

bool CSelectScanner::AtEnd() {
    SkipSpace();
    if (m_pos < m_sql.size() && m_sql[m_pos] == L';')
        ++m_pos;
    SkipSpace();
    return m_pos == m_sql.size();
}

void CSelectScanner::SkipSpace() {
    while (m_pos < m_sql.size() && std::iswspace(m_sql[m_pos]))
        ++m_pos;
}
