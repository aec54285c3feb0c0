#pragma once

#include "netflow/NetFlowHeaderCommonFields.h"

// The 20-byte NetFlow v9 header: the common words, then the package sequence and the source id where
// other versions have their nanoseconds.
class CNetFlowHeaderV9 : public CNetFlowHeaderCommonFields {
public:
    // Reads the common words and bytes 12-19; a datagram shorter than 20 bytes raises
    // CInvalidArgException.
    int Decode(const CByteArray& data);

    uint32_t m_packageSequence = 0;
    uint32_t m_sourceID = 0;
};
