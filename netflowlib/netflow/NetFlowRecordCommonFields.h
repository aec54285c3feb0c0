#pragma once

#include <utility>

#include "util/Types.h"

// The first 36 bytes of a v1, v5 and v7 flow record: addresses, interfaces, counters, times and ports.
class CNetFlowRecordCommonFields {
public:
    CNetFlowRecordCommonFields() = default;
    CNetFlowRecordCommonFields(const CNetFlowRecordCommonFields&) = default;
    CNetFlowRecordCommonFields& operator=(const CNetFlowRecordCommonFields&) = default;
    virtual ~CNetFlowRecordCommonFields() = default;

    // Appends the 11 common (identifier, value) pairs.
    virtual void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const;

    // Reads the 36 common bytes at offset; the caller has checked that the whole record fits.
    void Decode(const CByteArray& data, int offset);
    CString ToString() const;

    uint32_t m_srcAddr = 0;
    uint32_t m_dstAddr = 0;
    uint32_t m_nextHop = 0;
    int m_inputIf = 0;
    int m_outputIf = 0;
    uint32_t m_dPkts = 0;
    uint32_t m_dOctets = 0;
    uint32_t m_first = 0;
    uint32_t m_last = 0;
    int m_srcPort = 0;
    int m_dstPort = 0;

protected:
    // True when size bytes remain from offset.
    static bool Fits(const CByteArray& data, int offset, int size) {
        return static_cast<int64_t>(data.size()) - offset >= size;
    }

    // Appends one (identifier, value) pair, keeping the two arrays in step.
    static void AddField(CUIntArray& fieldIds, CStringArray& values, UINT id, CString&& value) {
        fieldIds.push_back(id);
        values.push_back(std::move(value));
    }
};
