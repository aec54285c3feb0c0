#include "sflow/SFlowVGCounters.h"

#include "sflow/SFlowWire.h"

using namespace tpnf::sflow;

// Exact: 64-bit counters are the plain unsigned reading of their two words.
void CSFlowVGCounters::Decode(const CByteArray& data, int& offset, bool exact) {
    auto read64 = exact ? ReadU64Exact : ReadU64;
    m_dot12InHighPriorityFrames = ReadU32(data, offset);
    m_dot12InHighPriorityOctets = read64(data, offset);
    m_dot12InNormPriorityFrames = ReadU32(data, offset);
    m_dot12InNormPriorityOctets = read64(data, offset);
    m_dot12InIPMErrors = ReadU32(data, offset);
    m_dot12InOversizeFrameErrors = ReadU32(data, offset);
    m_dot12InDataErrors = ReadU32(data, offset);
    m_dot12InNullAddressedFrames = ReadU32(data, offset);
    m_dot12OutHighPriorityFrames = ReadU32(data, offset);
    m_dot12OutHighPriorityOctets = read64(data, offset);
    m_dot12TransitionIntoTrainings = ReadU32(data, offset);
    m_dot12HCInHighPriorityOctets = read64(data, offset);
    m_dot12HCInNormPriorityOctets = read64(data, offset);
    m_dot12HCOutHighPriorityOctets = read64(data, offset);
}

CString CSFlowVGCounters::ToString() const {
    return tpnf::FormatText(L"VG Counters:\r\n"
                            L"In High Priority Frames: %lu\r\n"
                            L"In High Priority Octets: %I64u\r\n"
                            L"In Norm Priority Frames: %lu\r\n"
                            L"In Norm Priority Octets: %I64u\r\n"
                            L"In IPM Errors: %lu\r\n"
                            L"In Oversize Frame Errors: %lu\r\n"
                            L"In Data Errors: %lu\r\n"
                            L"In Null Addressed Frames: %lu\r\n"
                            L"Out High Priority Frames: %lu\r\n"
                            L"Out High Priority Octets: %I64u\r\n"
                            L"Transition Into Trainings: %lu\r\n"
                            L"HC In High Priority Octets: %I64u\r\n"
                            L"HC In Norm Priority Octets: %I64u\r\n"
                            L"HC Out High Priority Octets: %I64u\r\n",
                            m_dot12InHighPriorityFrames, m_dot12InHighPriorityOctets,
                            m_dot12InNormPriorityFrames, m_dot12InNormPriorityOctets, m_dot12InIPMErrors,
                            m_dot12InOversizeFrameErrors, m_dot12InDataErrors, m_dot12InNullAddressedFrames,
                            m_dot12OutHighPriorityFrames, m_dot12OutHighPriorityOctets,
                            m_dot12TransitionIntoTrainings, m_dot12HCInHighPriorityOctets,
                            m_dot12HCInNormPriorityOctets, m_dot12HCOutHighPriorityOctets);
}
