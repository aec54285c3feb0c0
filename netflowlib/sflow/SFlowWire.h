#pragma once
// Cursor helpers shared by the sFlow readers: thin forms of the CNetFlowUtility readers that move the
// caller's offset, the readers of exact mode (XDR as the sFlow documents use it), plus the one
// hexadecimal byte rendering of sampled headers and MAC addresses.

#include <algorithm>

#include "util/Format.h"
#include "util/NetFlowUtility.h"
#include "util/Types.h"

namespace tpnf::sflow {

inline int DatagramVersion(const CByteArray& data) {
    return CNetFlowUtility::GetULong(data, 0);
}

inline uint32_t ReadU32(const CByteArray& data, int& offset) {
    return static_cast<uint32_t>(CNetFlowUtility::GetULongOffset(data, offset));
}

// Both halves sign-extended before they are added: intended, see GetULongLong.
inline uint64_t ReadU64(const CByteArray& data, int& offset) {
    return static_cast<uint64_t>(CNetFlowUtility::GetULongLongOffset(data, offset));
}

// Moves the cursor by a length taken from the wire. A negative length would move it backwards, so a
// count-driven loop could re-read the same bytes without end; such a datagram is malformed.
inline void Advance(int& offset, int32_t length) {
    if (length < 0)
        AfxThrowInvalidArgException();
    offset = WrapAdd(offset, length);
}

// The text starts at the length word itself and the cursor moves by the length alone, with no
// padding: intended.
inline CString ReadString(const CByteArray& data, int& offset) {
    int length = 0;
    CString text = CNetFlowUtility::GetString(data, offset, length);
    Advance(offset, length);
    return text;
}

// Copies length bytes and moves the cursor by exactly length (no padding). The range is tested before
// the copy so a huge length on the wire never sizes a buffer for bytes that are not there.
inline void ReadOpaque(const CByteArray& data, int& offset, int32_t length, CByteArray& out) {
    if (length < 0 || offset < 0 ||
        static_cast<uint64_t>(offset) + static_cast<uint64_t>(length) > data.size())
        AfxThrowInvalidArgException();
    CNetFlowUtility::GetOpaque(data, offset, length, out);
    offset = WrapAdd(offset, length);
}

// An address as a type word and its bytes; the cursor moves by what GetAddress reports, so an
// unknown type (-1) steps one byte back: intended.
inline void ReadAddress(const CByteArray& data, int& offset, CNetFlowIPAddress& address) {
    offset = WrapAdd(offset, CNetFlowUtility::GetAddress(data, offset, address));
}

// --- Protocol-exact readers: the XDR encoding the sFlow documents define (RFC 3176, sFlow version 5).

// Fails unless count bytes from offset lie inside the datagram.
inline void Require(const CByteArray& data, int offset, int64_t count) {
    if (offset < 0 || count < 0 || static_cast<uint64_t>(offset) + static_cast<uint64_t>(count) > data.size())
        AfxThrowInvalidArgException();
}

// XDR pads opaque data and strings to a multiple of 4 bytes.
inline int64_t Padded(int64_t length) {
    return (length + 3) & ~int64_t{3};
}

// Both words unsigned: the plain 64-bit reading.
inline uint64_t ReadU64Exact(const CByteArray& data, int& offset) {
    uint64_t high = ReadU32(data, offset);
    return (high << 32) | ReadU32(data, offset);
}

// length bytes, then the padding after them.
inline void ReadPaddedBytes(const CByteArray& data, int& offset, uint32_t length, CByteArray& out) {
    Require(data, offset, Padded(length));
    out.assign(data.begin() + offset, data.begin() + offset + length);
    offset += static_cast<int>(Padded(length));
}

// A string: length word, text (one character per byte), padding.
inline CString ReadPaddedString(const CByteArray& data, int& offset) {
    uint32_t length = ReadU32(data, offset);
    Require(data, offset, Padded(length));
    CString text(data.begin() + offset, data.begin() + offset + length);
    offset += static_cast<int>(Padded(length));
    return text;
}

// An address union: type 0 carries no address (the value is left as it is), 1 IPv4, 2 IPv6; any other
// type has no defined layout.
inline void ReadAddressExact(const CByteArray& data, int& offset, CNetFlowIPAddress& address) {
    uint32_t type = ReadU32(data, offset);
    if (type == 0)
        return;
    if (type == 1) {
        address = CNetFlowIPAddress(ReadU32(data, offset));
    } else if (type == 2) {
        Require(data, offset, 16);
        address.m_address.assign(data.begin() + offset, data.begin() + offset + 16);
        offset += 16;
    } else {
        AfxThrowInvalidArgException();
    }
}

// An array of words: unsigned count, then the words.
inline void ReadWordsExact(const CByteArray& data, int& offset, CUIntArray& out) {
    uint32_t count = ReadU32(data, offset);
    Require(data, offset, int64_t{count} * 4);
    out.reserve(out.size() + count);
    for (uint32_t i = 0; i < count; ++i)
        out.push_back(ReadU32(data, offset));
}

// Where a structure of the given length that starts at offset ends; it must lie inside the datagram.
inline int EndOf(const CByteArray& data, int offset, uint32_t length) {
    Require(data, offset, length);
    return offset + static_cast<int>(length);
}

// Moves the cursor to the end of a structure whose fields have been read; reading past that end means
// the announced length was too short for the fields.
inline void FinishAt(int& offset, int end) {
    if (offset > end)
        AfxThrowInvalidArgException();
    offset = end;
}

// Bytes as two upper-case hexadecimal digits each, joined by "-".
inline CString FormatHexBytes(const CByteArray& bytes) {
    CString text;
    text.reserve(bytes.size() * 3);
    for (uint8_t byte : bytes)
        tpnf::AppendFormat(text, L"%02X-", byte);
    if (!text.empty())
        text.pop_back();
    return text;
}

// Makes room for count more entries, but never for more than the rest of the datagram can hold at
// minBytes each: a count is only a claim until its entries have been read.
template <class Array>
inline void ReserveFor(Array& array, const CByteArray& data, int offset, uint32_t count, int minBytes) {
    int64_t remaining = offset < 0 ? 0 : static_cast<int64_t>(data.size()) - offset;
    int64_t room = std::min<int64_t>(count, std::max<int64_t>(0, remaining) / minBytes);
    array.reserve(array.size() + static_cast<size_t>(room));
}

} // namespace tpnf::sflow
