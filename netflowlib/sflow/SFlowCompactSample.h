#pragma once

#include "sflow/SFlowCompactRecord.h"
#include "sflow/SFlowSample.h"
#include "util/Types.h"

// One sample as the packet keeps it: the sample's fields, and records that hold only their own kind.
class CSFlowCompactSample {
public:
    // Reads the sample tag and the body laid out for the datagram's version (exact: see
    // CSFlowPacket::SetDecodeContext). Gives false when the samples after this one cannot be found.
    bool Decode(const CByteArray& data, int& offset, bool exact = false);
    // The text of CSFlowSample::ToString for the same sample.
    CString ToString() const;
    // The sample with its records as holders of every kind.
    CSFlowSample ToSample() const;

    CSFlowSample m_fields; // the sample's own fields; its m_records stays empty
    CArray<CSFlowCompactRecord> m_records;
};
