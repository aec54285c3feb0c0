#pragma once

#include "netflow/NetFlowHeaderCommonFields.h"

// The 24-byte NetFlow v7 header: common words and the flow sequence; bytes 20-23 are reserved.
class CNetFlowHeaderV7 : public CNetFlowHeaderCommonFields {
public:
    static constexpr int WIRE_SIZE = 24;

    // No length test.
    int Decode(const CByteArray& data);
    CString ToString() const;

    int32_t m_flowSequence = 0;
};
