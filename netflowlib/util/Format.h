#pragma once
// The one text-formatting helper: printf-compatible formats on wide strings, with the Windows
// spellings the formats were written in.
//
// - "%I64u" is the Windows spelling of "%llu" and is rewritten.
// - A string argument is passed as its character pointer, so "%s" stops at the first character 0.
// - "%lu"/"%ld" print the argument at its own width; callers pass 32-bit values where Windows had long.

#include <fmt/printf.h>
#include <fmt/xchar.h>

#include <cwchar>
#include <string>
#include <string_view>
#include <type_traits>

#include "util/Types.h"

namespace tpnf {

namespace detail {

// Rewrites "I64" length modifiers to "ll" only when the format has one.
inline std::wstring_view WindowsFormat(std::wstring_view format, std::wstring& scratch) {
    if (format.find(L"I64") == std::wstring_view::npos)
        return format;
    scratch.assign(format);
    for (size_t pos = scratch.find(L"%"); pos != std::wstring::npos; pos = scratch.find(L'%', pos + 1)) {
        size_t p = pos + 1;
        if (p < scratch.size() && scratch[p] == L'%') { // "%%" is a literal percent sign
            pos = p;
            continue;
        }
        while (p < scratch.size() && std::wcschr(L"-+ #0123456789.*", scratch[p]) != nullptr &&
               scratch[p] != 0)
            ++p;
        if (scratch.compare(p, 3, L"I64") == 0)
            scratch.replace(p, 3, L"ll");
    }
    return scratch;
}

template <class T>
inline decltype(auto) PrintfArg(const T& value) {
    if constexpr (std::is_same_v<T, std::wstring>)
        return value.c_str();
    else
        return (value);
}

} // namespace detail

template <class... Args>
inline CString FormatText(std::wstring_view format, const Args&... args) {
    std::wstring scratch;
    return fmt::sprintf(detail::WindowsFormat(format, scratch), detail::PrintfArg(args)...);
}

template <class... Args>
inline void AppendFormat(CString& out, std::wstring_view format, const Args&... args) {
    out += FormatText(format, args...);
}

} // namespace tpnf
