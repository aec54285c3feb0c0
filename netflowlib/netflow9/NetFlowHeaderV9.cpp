#include "netflow9/NetFlowHeaderV9.h"

#include "util/NetFlowUtility.h"

int CNetFlowHeaderV9::Decode(const CByteArray& data) {
    CNetFlowHeaderCommonFields::Decode(data);
    m_packageSequence = static_cast<uint32_t>(CNetFlowUtility::GetULong(data, 12));
    m_sourceID = static_cast<uint32_t>(CNetFlowUtility::GetULong(data, 16));
    return 1;
}
