#include "sflow/SFlowHeader.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

int CSFlowHeader::Decode(const CByteArray& data, bool exact) {
    m_version = static_cast<uint32_t>(DatagramVersion(data));
    if (m_version != 2 && m_version != 4 && m_version != 5)
        return -1;
    int offset = 4;
    // By default an unknown address type consumes -1 bytes, so reading goes on at offset 3: intended.
    if (exact)
        ReadAddressExact(data, offset, m_agentAddress);
    else
        ReadAddress(data, offset, m_agentAddress);
    if (m_version >= 5)
        m_agentSubId = ReadU32(data, offset);
    m_sequenceNumber = ReadU32(data, offset);
    m_sysUptime = ReadU32(data, offset);
    m_numSamples = ReadU32(data, offset);
    return offset;
}

CString CSFlowHeader::ToString() const {
    return tpnf::FormatText(L"Header:\r\n Version: %lu, Agent Address: %s, Agent Sub ID: %lu, Seq Num: %lu, "
                            L"SysUptime: %lu, Samples In Packet: %lu\r\n",
                            m_version, m_agentAddress.ToString(), m_agentSubId, m_sequenceNumber, m_sysUptime,
                            m_numSamples);
}
