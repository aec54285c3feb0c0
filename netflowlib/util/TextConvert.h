#pragma once
// UTF-8 at the edges (files, terminals, ODBC); wide text inside.

#include <string>
#include <string_view>

#include "util/Types.h"

namespace tpnf {

// Appends the UTF-8 form of text to out, so that a caller can reuse out's storage.
inline void AppendUtf8(std::string& out, std::wstring_view text) {
    for (wchar_t wc : text) {
        uint32_t c = static_cast<uint32_t>(wc);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            c = 0xFFFD; // not a Unicode scalar value
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
}

inline std::string ToUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    AppendUtf8(out, text);
    return out;
}

// Invalid sequences become U+FFFD, one per offending byte.
inline CString FromUtf8(std::string_view text) {
    CString out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        unsigned char b = static_cast<unsigned char>(text[i]);
        int extra = b < 0x80 ? 0 : (b >> 5) == 6 ? 1 : (b >> 4) == 14 ? 2 : (b >> 3) == 30 ? 3 : -1;
        if (extra < 0 || i + extra >= text.size()) {
            out += extra == 0 ? static_cast<wchar_t>(b) : L'\xFFFD';
            ++i;
            continue;
        }
        uint32_t c = extra == 0 ? b : b & (0x3F >> extra);
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            unsigned char n = static_cast<unsigned char>(text[i + k]);
            if ((n & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            c = (c << 6) | (n & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are invalid too.
        static constexpr uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
        if (c < kSmallest[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            ok = false;
        if (!ok) {
            out += L'\xFFFD';
            ++i;
            continue;
        }
        out += static_cast<wchar_t>(c);
        i += extra + 1;
    }
    return out;
}

} // namespace tpnf
