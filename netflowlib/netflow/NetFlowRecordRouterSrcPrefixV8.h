#pragma once

#include "netflow/NetFlowRecordCommonFieldsV8.h"

// A NetFlow v8 record of the router source-prefix aggregation (scheme 3).
class CNetFlowRecordRouterSrcPrefixV8 : public CNetFlowRecordCommonFieldsV8 {
public:
    static constexpr int WIRE_SIZE = 32;

    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const override;

    // 1 when the record at offset fits and was read, 0 when fewer than 32 bytes remain.
    int Decode(const CByteArray& data, int offset);
    CString ToString() const;

    uint32_t m_srcPrefix = 0;
    int m_srcMask = 0;
    int m_srcAS = 0;
    int m_inputIf = 0;
};
