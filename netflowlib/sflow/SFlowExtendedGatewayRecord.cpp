#include "sflow/SFlowExtendedGatewayRecord.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowExtendedGatewayRecord::Decode(const CByteArray& data, int& offset, bool exact) {
    int version = DatagramVersion(data);
    if (version >= 5) {
        if (exact)
            ReadAddressExact(data, offset, m_nextHop);
        else
            ReadAddress(data, offset, m_nextHop);
    }
    m_as = ReadU32(data, offset);
    m_srcAS = ReadU32(data, offset);
    m_srcPeerAS = ReadU32(data, offset);
    if (version < 4) {
        if (version == 2) {
            if (exact)
                ReadWordsExact(data, offset, m_dstASPath);
            else
                CNetFlowUtility::GetIntArray(data, offset, m_dstASPath);
        }
        return;
    }
    uint32_t segments = ReadU32(data, offset);
    // Segments are added as they are read; the record is discarded with the sample if one fails.
    ReserveFor(m_asPath, data, offset, segments, 4);
    for (uint32_t i = 0; i < segments; ++i)
        m_asPath.emplace_back().Decode(data, offset, exact);
    if (exact)
        ReadWordsExact(data, offset, m_communities);
    else
        CNetFlowUtility::GetIntArray(data, offset, m_communities);
    m_localPref = ReadU32(data, offset);
}

CString CSFlowExtendedGatewayRecord::ToString() const {
    CString text = L"Extended Gateway Flow:\r\nBGP Next Hop: ";
    text += m_nextHop.ToString();
    tpnf::AppendFormat(text, L"\r\nAS: %lu\r\nSrc AS: %lu\r\nSrc Peer AS: %lu\r\n", m_as, m_srcAS,
                       m_srcPeerAS);
    // Communities and local preference are left out when there is neither a segment nor a
    // community, and the flat path is shown only then: intended.
    if (m_asPath.empty() && m_communities.empty()) {
        if (!m_dstASPath.empty())
            text += CNetFlowUtility::PrintIntArray(m_dstASPath) + L"\r\n";
        return text;
    }
    for (const CSFlowASPath& segment : m_asPath)
        text += segment.ToString() + L"\r\n";
    text += L"BGP Communities:\r\n";
    text += CNetFlowUtility::PrintIntArray(m_communities);
    tpnf::AppendFormat(text, L"\r\nBGP Local Pref: %d\r\n", m_localPref);
    return text;
}
