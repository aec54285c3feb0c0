#pragma once

#include "netflow/NetFlowHeaderCommonFields.h"

// The 24-byte NetFlow v5 header; also the start of the v8 header.
class CNetFlowHeaderV5 : public CNetFlowHeaderCommonFields {
public:
    static constexpr int WIRE_SIZE = 24;

    // Common words, flow sequence, engine type and id; the sampling interval is not read. No length test.
    int Decode(const CByteArray& data);
    CString ToString() const;

    int32_t m_flowSequence = -1; // all bits set until decoded: intended
    int m_engineType = 0;
    int m_engineId = 0;
};
