#pragma once

#include "netflow/NetFlowRecordV5.h"

// One 52-byte NetFlow v7 flow record: a v5 record plus flags and the bypassed router.
class CNetFlowRecordV7 : public CNetFlowRecordV5 {
public:
    static constexpr int WIRE_SIZE = 52;

    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const override;

    // 1 when the record at offset fits and was read, 0 when fewer than 52 bytes remain.
    int Decode(const CByteArray& data, int offset);
    CString ToString() const;

    int m_flags = 0;
    uint32_t m_routerSC = 0;
};
