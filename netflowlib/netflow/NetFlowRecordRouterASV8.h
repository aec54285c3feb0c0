#pragma once

#include "netflow/NetFlowRecordCommonFieldsV8.h"

// A NetFlow v8 record of the router AS aggregation (scheme 1): source and destination AS and interfaces.
class CNetFlowRecordRouterASV8 : public CNetFlowRecordCommonFieldsV8 {
public:
    static constexpr int WIRE_SIZE = 28;

    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const override;

    // 1 when the record at offset fits and was read, 0 when fewer than 28 bytes remain.
    int Decode(const CByteArray& data, int offset);
    CString ToString() const;

    int m_srcAS = 0;
    int m_dstAS = 0;
    int m_inputIf = 0;
    int m_outputIf = 0;
};
