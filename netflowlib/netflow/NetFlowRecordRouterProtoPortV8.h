#pragma once

#include "netflow/NetFlowRecordCommonFieldsV8.h"

// A NetFlow v8 record of the router protocol/port aggregation (scheme 2).
class CNetFlowRecordRouterProtoPortV8 : public CNetFlowRecordCommonFieldsV8 {
public:
    static constexpr int WIRE_SIZE = 28;

    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const override;

    // 1 when the record at offset fits and was read, 0 when fewer than 28 bytes remain.
    int Decode(const CByteArray& data, int offset);
    CString ToString() const;

    int m_prot = 0;
    int m_srcPort = 0;
    int m_dstPort = 0;
};
