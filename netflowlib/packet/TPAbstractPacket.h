#pragma once

#include "util/Types.h"

class CODBCRecordset;

// Abstract base of every decoded datagram. The virtual slot order is part of the host interface.
class CTPAbstractPacket {
public:
    CTPAbstractPacket() = default;
    CTPAbstractPacket(const CTPAbstractPacket& other) = default;
    CTPAbstractPacket& operator=(const CTPAbstractPacket& other) = default;

    virtual ~CTPAbstractPacket() = default;
    virtual int Decode(const CByteArray& datagram) = 0;
    virtual CString ToString() const = 0;
    virtual void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes);
    virtual int64_t GetSize() const = 0;
    virtual BOOL IsEmpty() const = 0;
    virtual CString GetProtocol() const = 0;
    virtual CString GetTimestamp() const = 0;
    virtual CString GetSysUpTime() const = 0;
    virtual void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) = 0;

    CString GetSenderIPAddress() const { return m_strSenderIPAddress; }
    void SetSenderIPAddress(const CString& address) { m_strSenderIPAddress = address; }
    int GetSenderPort() const { return m_nSenderPort; }
    void SetSenderPort(int port) { m_nSenderPort = port; }
    void SetSenderInfo(const CString& address, UINT port) {
        m_strSenderIPAddress = address;
        m_nSenderPort = static_cast<int>(port);
    }

    // Local time of signed seconds in TIMESTAMP_FORMAT; the empty string when the text does not fit
    // 128 characters; CInvalidArgException when the time cannot be converted.
    static CString FormatTimestamp(int64_t seconds);

    static const CString TIMESTAMP_FORMAT;

protected:
    friend class CNetFlowSocket; // sets the sender after a successful decode

    CString m_strSenderIPAddress;
    int m_nSenderPort = 0;

    void Copy(const CTPAbstractPacket& other) {
        m_strSenderIPAddress = other.m_strSenderIPAddress;
        m_nSenderPort = other.m_nSenderPort;
    }
};
