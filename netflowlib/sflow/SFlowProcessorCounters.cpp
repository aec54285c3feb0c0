#include "sflow/SFlowProcessorCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

void CSFlowProcessorCounters::Decode(const CByteArray& data, int& offset) {
    m_5sCpu = ReadU32(data, offset);
    m_1mCpu = ReadU32(data, offset);
    m_5mCpu = ReadU32(data, offset);
    m_totalMemory = ReadU64(data, offset);
    m_freeMemory = ReadU64(data, offset);
}

CString CSFlowProcessorCounters::ToString() const {
    return tpnf::FormatText(L"Processor Counters:\r\n"
                            L"5s CPU: %lu\r\n"
                            L"1m CPU: %lu\r\n"
                            L"5m CPU: %lu\r\n"
                            L"Total Memory Bytes: %I64u\r\n"
                            L"Free Memory Bytes: %I64u\r\n",
                            m_5sCpu, m_1mCpu, m_5mCpu, m_totalMemory, m_freeMemory);
}
