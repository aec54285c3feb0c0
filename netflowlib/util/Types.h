#pragma once
// Framework stand-ins: the classes were written against a Windows framework; these aliases keep
// their spelling while using standard C++ underneath.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

using CString = std::wstring;
using CByteArray = std::vector<uint8_t>;
using CUIntArray = std::vector<uint32_t>;
using CStringArray = std::vector<std::wstring>;
template <class T, class ARG = const T&>
using CArray = std::vector<T>;

// A CUIntArray that keeps up to N elements inline, so a value that usually fits (an address) is
// held without a heap allocation; a longer sequence moves to the heap and behaves the same.
template <size_t N>
class CInlineUIntArray {
public:
    CInlineUIntArray() = default;
    CInlineUIntArray(const CInlineUIntArray& other) : m_heap(other.m_heap) { CopyInline(other); }
    CInlineUIntArray& operator=(const CInlineUIntArray& other) {
        if (this != &other) {
            m_heap = other.m_heap;
            CopyInline(other);
        }
        return *this;
    }
    // A moved-from array is empty, as a moved-from vector is.
    CInlineUIntArray(CInlineUIntArray&& other) noexcept : m_heap(std::move(other.m_heap)) {
        CopyInline(other);
        other.Empty();
    }
    CInlineUIntArray& operator=(CInlineUIntArray&& other) noexcept {
        if (this != &other) {
            m_heap = std::move(other.m_heap);
            CopyInline(other);
            other.Empty();
        }
        return *this;
    }
    CInlineUIntArray(std::initializer_list<uint32_t> values) { assign(values.begin(), values.end()); }
    CInlineUIntArray& operator=(std::initializer_list<uint32_t> values) {
        assign(values.begin(), values.end());
        return *this;
    }

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    uint32_t* data() { return m_size <= N ? m_inline : m_heap.data(); }
    const uint32_t* data() const { return m_size <= N ? m_inline : m_heap.data(); }
    uint32_t* begin() { return data(); }
    uint32_t* end() { return data() + m_size; }
    const uint32_t* begin() const { return data(); }
    const uint32_t* end() const { return data() + m_size; }
    uint32_t& operator[](size_t index) { return data()[index]; }
    const uint32_t& operator[](size_t index) const { return data()[index]; }

    void clear() { resize(0); }
    void resize(size_t count) {
        if (count <= N) {
            if (m_size > N) {
                std::copy_n(m_heap.data(), count, m_inline);
                m_heap.clear();
            } else if (count > m_size) {
                std::fill(m_inline + m_size, m_inline + count, 0u);
            }
        } else {
            if (m_size <= N)
                m_heap.assign(m_inline, m_inline + m_size);
            m_heap.resize(count);
        }
        m_size = count;
    }
    void assign(size_t count, uint32_t value) {
        if (count <= N) {
            m_heap.clear();
            std::fill_n(m_inline, count, value);
        } else {
            m_heap.assign(count, value);
        }
        m_size = count;
    }
    template <std::input_iterator Iterator>
    void assign(Iterator first, Iterator last) {
        size_t count = static_cast<size_t>(std::distance(first, last));
        if (count <= N) {
            m_heap.clear();
            std::copy(first, last, m_inline);
        } else {
            m_heap.assign(first, last);
        }
        m_size = count;
    }
    void push_back(uint32_t value) {
        resize(m_size + 1);
        data()[m_size - 1] = value;
    }

    friend bool operator==(const CInlineUIntArray& a, const CInlineUIntArray& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }
    friend bool operator==(const CInlineUIntArray& a, const CUIntArray& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }

private:
    // The size and the inline elements of other; its heap elements are taken by the caller.
    void CopyInline(const CInlineUIntArray& other) {
        m_size = other.m_size;
        if (m_size <= N)
            std::copy_n(other.m_inline, m_size, m_inline);
    }
    void Empty() {
        m_size = 0;
        m_heap.clear();
    }

    uint32_t m_inline[N]; // only the first m_size are ever read
    size_t m_size = 0;
    CUIntArray m_heap; // holds every element once there are more than N
};

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
