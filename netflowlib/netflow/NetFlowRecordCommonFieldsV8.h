#pragma once

#include <utility>

#include "util/Types.h"

// The 20-byte counter block that opens every NetFlow v8 aggregation record.
class CNetFlowRecordCommonFieldsV8 {
public:
    CNetFlowRecordCommonFieldsV8() = default;
    CNetFlowRecordCommonFieldsV8(const CNetFlowRecordCommonFieldsV8&) = default;
    CNetFlowRecordCommonFieldsV8& operator=(const CNetFlowRecordCommonFieldsV8&) = default;
    virtual ~CNetFlowRecordCommonFieldsV8() = default;

    // Appends the 5 counter (identifier, value) pairs.
    virtual void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const;

    // Reads the 20 counter bytes at offset; the caller has checked that the whole record fits.
    void Decode(const CByteArray& data, int offset);
    CString ToString() const;

    uint32_t m_flows = 0;
    uint32_t m_packets = 0;
    uint32_t m_octets = 0;
    uint32_t m_first = 0;
    uint32_t m_last = 0;

protected:
    // True when size bytes remain from offset.
    static bool Fits(const CByteArray& data, int offset, int size) {
        return static_cast<int64_t>(data.size()) - offset >= size;
    }

    // The one decoder of both 32-byte prefix kinds: counters, prefix, mask, AS and interface.
    int DecodePrefixRecord(const CByteArray& data, int offset, uint32_t& prefix, int& mask, int& as,
                           int& interfaceIndex);

    // Appends one (identifier, value) pair, keeping the two arrays in step.
    static void AddField(CUIntArray& fieldIds, CStringArray& values, UINT id, CString&& value) {
        fieldIds.push_back(id);
        values.push_back(std::move(value));
    }
};
