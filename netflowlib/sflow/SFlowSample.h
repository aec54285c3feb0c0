#pragma once

#include "sflow/SFlowRecord.h"
#include "util/Types.h"

// One sample of a datagram with its records. Fields a sample type does not carry stay 0xFFFFFFFF.
class CSFlowSample {
public:
    CSFlowSample() = default;
    CSFlowSample(const CSFlowSample&) = default;
    CSFlowSample(CSFlowSample&&) noexcept = default;
    CSFlowSample& operator=(const CSFlowSample&) = default;
    CSFlowSample& operator=(CSFlowSample&&) noexcept = default;
    virtual ~CSFlowSample() = default;

    // Reads the sample tag and the body laid out for the datagram's version; exact: as the sFlow documents
    // lay it out (see CSFlowPacket::SetDecodeContext). Gives false when the samples after this one cannot
    // be found, which happens only in exact mode.
    bool Decode(const CByteArray& data, int& offset, bool exact = false);
    CString ToString() const;

    uint32_t m_sampleType = 0;
    uint32_t m_sequenceNumber = 0xFFFFFFFF;
    int32_t m_sourceIdType = -1;
    uint32_t m_sourceIdIndex = 0xFFFFFFFF;
    uint32_t m_samplingRate = 0xFFFFFFFF; // the counter interval in version 2/4 counter samples
    uint32_t m_samplePool = 0xFFFFFFFF;
    int32_t m_inputPortFormat = -1;
    uint32_t m_inputPort = 0xFFFFFFFF;
    int32_t m_outputPortFormat = -1;
    uint32_t m_outputPort = 0xFFFFFFFF;
    uint32_t m_drops = 0xFFFFFFFF;
    CArray<CSFlowRecord, const CSFlowRecord&> m_records;
};
