#pragma once

#include "netflow/NetFlowHeaderV5.h"

// The 28-byte NetFlow v8 header: the v5 words, then aggregation scheme and version; bytes 24-27 reserved.
class CNetFlowHeaderV8 : public CNetFlowHeaderV5 {
public:
    static constexpr int WIRE_SIZE = 28;

    // No length test.
    int Decode(const CByteArray& data);
    CString ToString() const;

    int m_aggregation = -1; // no scheme until decoded: intended
    int m_aggregationVersion = 0;
};
