#pragma once

#include "util/Types.h"

// Header words shared by every NetFlow version, and the one time and uptime rendering of all NetFlow kinds.
class CNetFlowHeaderCommonFields {
public:
    CNetFlowHeaderCommonFields() = default;
    CNetFlowHeaderCommonFields(const CNetFlowHeaderCommonFields&) = default;
    CNetFlowHeaderCommonFields& operator=(const CNetFlowHeaderCommonFields&) = default;
    virtual ~CNetFlowHeaderCommonFields() = default;

    // Reads version, count, uptime and seconds, and the nanoseconds except for version 9. No length
    // test: a short datagram raises CInvalidArgException.
    int Decode(const CByteArray& data);

    CString GetTimestamp() const;
    CString GetSysUpTime() const;

    int m_version = 0;
    int m_count = 0;
    uint32_t m_sysUptime = 0;
    uint32_t m_unixSecs = 0;
    uint32_t m_unixNsecs = 0;
};
