#include "sflow/SFlowProcessorCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// Exact: 64-bit counters are the plain unsigned reading of their two words.
void CSFlowProcessorCounters::Decode(const CByteArray& data, int& offset, bool exact) {
    auto read64 = exact ? ReadU64Exact : ReadU64;
    m_5sCpu = ReadU32(data, offset);
    m_1mCpu = ReadU32(data, offset);
    m_5mCpu = ReadU32(data, offset);
    m_totalMemory = read64(data, offset);
    m_freeMemory = read64(data, offset);
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
