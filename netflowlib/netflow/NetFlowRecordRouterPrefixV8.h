#pragma once

#include "netflow/NetFlowRecordCommonFieldsV8.h"

// A NetFlow v8 record of the router prefix aggregation (scheme 5): both prefixes, masks, AS and interfaces.
class CNetFlowRecordRouterPrefixV8 : public CNetFlowRecordCommonFieldsV8 {
public:
    static constexpr int WIRE_SIZE = 40;

    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const override;

    // 1 when the record at offset fits and was read, 0 when fewer than 40 bytes remain.
    int Decode(const CByteArray& data, int offset);
    CString ToString() const;

    uint32_t m_srcPrefix = 0;
    uint32_t m_dstPrefix = 0;
    int m_dstMask = 0;
    int m_srcMask = 0;
    int m_srcAS = 0;
    int m_dstAS = 0;
    int m_inputIf = 0;
    int m_outputIf = 0;
};
