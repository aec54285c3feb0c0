#pragma once

#include <map>

#include "util/NetFlowIPAddress.h"
#include "util/Types.h"

// Bounds-tested big-endian readers and writers over datagrams, and the text helpers every renderer uses.
// Every access outside the array raises CInvalidArgException.
class CNetFlowUtility {
public:
    static int GetUByte(const CByteArray& data, int offset);
    static int GetUShort(const CByteArray& data, int offset);
    static int GetUShortOffset(const CByteArray& data, int& offset);
    static int32_t GetULong(const CByteArray& data, int offset);
    static int32_t GetULongOffset(const CByteArray& data, int& offset);
    static int64_t GetULongLong(const CByteArray& data, int offset);
    static int64_t GetULongLongOffset(const CByteArray& data, int& offset);
    static CString GetString(const CByteArray& data, int offset, int& length);
    static int GetAddress(const CByteArray& data, int offset, CNetFlowIPAddress& address);
    static int GetOpaque(const CByteArray& data, int offset, int length, CByteArray& out);
    static void GetIntArray(const CByteArray& data, int& offset, CUIntArray& out);

    static void SetUByte(CByteArray& data, int offset, int value);
    static void SetUShort(CByteArray& data, int offset, int value);
    static void SetULong(CByteArray& data, int offset, int32_t value);

    static CString GetProtocol(int protocol);
    static CString FormatSysUptime(int ticks);
    static CString IntToString(int value);
    static CString IntToString(long value);
    static CString IntToString(unsigned int value); // same "%u" text; spares callers a cast
    static CString PrintIntArray(const CUIntArray& values);

protected:
    static void Init();

    static std::map<int, CString> m_Protocols;
    static BOOL m_bInit;
};

// Inline fast paths: one range test per value instead of one per byte; the outcome (value or
// exception, cursor untouched on failure) is the same as testing each byte.
inline int CNetFlowUtility::GetUByte(const CByteArray& data, int offset) {
    return ElementAt(data, offset);
}

inline int CNetFlowUtility::GetUShort(const CByteArray& data, int offset) {
    if (offset < 0 || static_cast<size_t>(offset) + 2 > data.size())
        AfxThrowInvalidArgException();
    const uint8_t* p = data.data() + offset;
    return (p[0] << 8) | p[1];
}

inline int CNetFlowUtility::GetUShortOffset(const CByteArray& data, int& offset) {
    int value = GetUShort(data, offset);
    offset = WrapAdd(offset, 2);
    return value;
}

inline int32_t CNetFlowUtility::GetULong(const CByteArray& data, int offset) {
    if (offset < 0 || static_cast<size_t>(offset) + 4 > data.size())
        AfxThrowInvalidArgException();
    const uint8_t* p = data.data() + offset;
    return static_cast<int32_t>((uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) |
                                p[3]);
}

inline int32_t CNetFlowUtility::GetULongOffset(const CByteArray& data, int& offset) {
    int32_t value = GetULong(data, offset);
    offset = WrapAdd(offset, 4);
    return value;
}

inline int64_t CNetFlowUtility::GetULongLong(const CByteArray& data, int offset) {
    int64_t hi = GetULong(data, offset);
    int64_t lo = GetULong(data, WrapAdd(offset, 4));
    // Both halves are sign-extended before they are added: intended, a low word with bit 31 set
    // yields a value 2^32 below the wire value.
    return static_cast<int64_t>((static_cast<uint64_t>(hi) << 32) + static_cast<uint64_t>(lo));
}

inline int64_t CNetFlowUtility::GetULongLongOffset(const CByteArray& data, int& offset) {
    int64_t value = GetULongLong(data, offset);
    offset = WrapAdd(offset, 8);
    return value;
}
