#include "ipfix/IPFIXHeader.h"

#include "util/NetFlowUtility.h"

void CIPFIXHeader::Decode(const CByteArray& data) {
    int offset = 0;
    m_version = static_cast<uint32_t>(CNetFlowUtility::GetUShortOffset(data, offset));
    m_length = static_cast<uint32_t>(CNetFlowUtility::GetUShortOffset(data, offset));
    m_exportTime = static_cast<uint32_t>(CNetFlowUtility::GetULongOffset(data, offset));
    m_sequenceNumber = static_cast<uint32_t>(CNetFlowUtility::GetULongOffset(data, offset));
    m_observationDomainId = static_cast<uint32_t>(CNetFlowUtility::GetULongOffset(data, offset));
}
