#pragma once

#include "netflow/NetFlowRecordCommonFields.h"

// One 48-byte NetFlow v5 flow record; also the first 46 bytes of a v7 record.
class CNetFlowRecordV5 : public CNetFlowRecordCommonFields {
public:
    static constexpr int WIRE_SIZE = 48;

    void GetRecordFields(CUIntArray& fieldIds, CStringArray& values) const override;

    // 1 when the record at offset fits and was read, 0 when fewer than 48 bytes remain.
    int Decode(const CByteArray& data, int offset);
    CString ToString() const;

    int m_tcpFlags = 0;
    int m_prot = 0;
    int m_tos = 0;
    int m_srcAS = 0;
    int m_dstAS = 0;
    int m_srcMask = 0;
    int m_dstMask = 0;
};
