#pragma once

#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"
#include "sflow/SFlowHeader.h"
#include "sflow/SFlowSample.h"
#include "util/Types.h"

// An sFlow datagram of version 2, 4 or 5: header and samples in datagram order.
class CSFlowPacket : public CTPAbstractPacket {
public:
    CSFlowPacket() = default;
    CSFlowPacket(const CSFlowPacket& other);
    CSFlowPacket& operator=(const CSFlowPacket& other);
    ~CSFlowPacket() override = default;

    int Decode(const CByteArray& datagram) override;
    CString ToString() const override;
    int64_t GetSize() const override;
    BOOL IsEmpty() const override;
    CString GetProtocol() const override;
    CString GetTimestamp() const override;
    CString GetSysUpTime() const override;
    void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) override;

    const CSFlowHeader& GetHeader() const { return m_header; }
    const CArray<CSFlowSample, const CSFlowSample&>& GetSamples() const { return m_samples; }

    // Options for the next Decode (the session sets them); without them every datagram decodes as always.
    void SetDecodeContext(const CDecodeContext& context) { m_context = context; }
    const CDecodeContext& GetDecodeContext() const { return m_context; }

protected:
    // Copies header and samples; the sender address and port are left as they are.
    void Copy(const CSFlowPacket& other);

    CSFlowHeader m_header;
    CArray<CSFlowSample, const CSFlowSample&> m_samples;
    CDecodeContext m_context;
};
