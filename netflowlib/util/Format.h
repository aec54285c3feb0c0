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

// Digit writers for the hottest renderings (addresses, field values): the same text as "%d" and
// "%0<minDigits>X" without a formatting call per value.
inline void AppendDecimal(CString& out, int64_t value) {
    wchar_t digits[24];
    wchar_t* const end = digits + 24;
    wchar_t* p = end;
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
        *--p = static_cast<wchar_t>(L'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0)
        *--p = L'-';
    out.append(p, end);
}

inline void AppendHex(CString& out, uint32_t value, int minDigits = 2) {
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    if (value <= 0xFF && minDigits == 2) { // the common case: one byte
        out += kDigits[value >> 4];
        out += kDigits[value & 0x0F];
        return;
    }
    wchar_t digits[8];
    int n = 0;
    do {
        digits[n++] = kDigits[value & 0x0F];
        value >>= 4;
    } while (value != 0);
    for (; n < minDigits; ++n)
        digits[n] = L'0';
    while (n > 0)
        out += digits[--n];
}

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
