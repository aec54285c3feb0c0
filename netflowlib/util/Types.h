#pragma once
// Framework stand-ins: the classes were written against a Windows framework; these aliases keep
// their spelling while using standard C++ underneath.

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

using CString = std::wstring;
using CByteArray = std::vector<uint8_t>;
using CUIntArray = std::vector<uint32_t>;
using CStringArray = std::vector<std::wstring>;
template <class T, class ARG = const T&>
using CArray = std::vector<T>;

#ifndef BOOL
using BOOL = int;
#endif
using UINT = uint32_t;
using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Raised by every out-of-range access to a byte array or another array.
class CInvalidArgException : public std::exception {
public:
    const char* what() const noexcept override { return "invalid argument"; }
};

[[noreturn]] void AfxThrowInvalidArgException();

// Offsets are 32-bit and wrap like the original's; a wrapped offset fails at the next read.
inline int WrapAdd(int offset, int64_t delta) {
    return static_cast<int>(static_cast<uint32_t>(offset) + static_cast<uint32_t>(delta));
}

// Bounds-tested element access: the one place an index is checked against an array.
template <class Array>
inline auto& ElementAt(Array& array, int64_t index) {
    if (index < 0 || static_cast<uint64_t>(index) >= array.size())
        AfxThrowInvalidArgException();
    return array[static_cast<size_t>(index)];
}
