#include "sflow/SFlowPacket.h"

#include "sflow/SFlowWire.h"
#include "util/Format.h"

#include <ctime>

using namespace tpnf::sflow;

CSFlowPacket::CSFlowPacket(const CSFlowPacket& other) : CTPAbstractPacket(other) {
    Copy(other);
}

CSFlowPacket& CSFlowPacket::operator=(const CSFlowPacket& other) {
    CTPAbstractPacket::operator=(other);
    Copy(other);
    return *this;
}

void CSFlowPacket::Copy(const CSFlowPacket& other) {
    m_header.m_version = other.m_header.m_version;
    m_header.m_agentSubId = other.m_header.m_agentSubId;
    m_header.m_sequenceNumber = other.m_header.m_sequenceNumber;
    m_header.m_sysUptime = other.m_header.m_sysUptime;
    m_header.m_numSamples = other.m_header.m_numSamples;
    m_header.m_agentAddress = other.m_header.m_agentAddress;
    if (this != &other) {
        m_samples = other.m_samples;
        m_compactSamples = other.m_compactSamples;
        ResetView();
    }
}

void CSFlowPacket::ResetView() {
    m_view.clear();
    m_viewBuilt.store(false, std::memory_order_relaxed);
}

// An unsupported version is no error: the packet stays empty. A sample is kept only once it has
// been read completely; a failed read leaves the samples before it.
int CSFlowPacket::Decode(const CByteArray& datagram) {
    const bool exact = m_context.options.sflowExact;
    ResetView();
    int offset = m_header.Decode(datagram, exact);
    // By default a rejected version still goes on with the count held before: intended.
    if (offset < 0 && exact)
        return 1;
    uint32_t count = m_header.m_numSamples;
    if (count < 1)
        return 1;
    ReserveFor(m_compactSamples, datagram, offset, count, 4);
    for (uint32_t i = 0; i < count; ++i) {
        CSFlowCompactSample sample;
        bool more = sample.Decode(datagram, offset, exact);
        m_compactSamples.push_back(std::move(sample));
        if (!more)
            break;
    }
    return 1;
}

const CArray<CSFlowSample, const CSFlowSample&>& CSFlowPacket::GetSamples() const {
    if (m_compactSamples.empty())
        return m_samples;
    if (!m_viewBuilt.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(m_viewLock);
        if (!m_viewBuilt.load(std::memory_order_relaxed)) {
            m_view.reserve(m_samples.size() + m_compactSamples.size());
            m_view.assign(m_samples.begin(), m_samples.end());
            for (const CSFlowCompactSample& sample : m_compactSamples)
                m_view.push_back(sample.ToSample());
            m_viewBuilt.store(true, std::memory_order_release);
        }
    }
    return m_view;
}

CString CSFlowPacket::ToString() const {
    CString text =
        tpnf::FormatText(L"sFlow packet received from: %s:%d\r\n", m_strSenderIPAddress, m_nSenderPort);
    text += m_header.ToString();
    text += L"===============Samples===============\r\n";
    int number = 1;
    for (const CSFlowSample& sample : m_samples) {
        tpnf::AppendFormat(text, L"-----<Sample %d>-----\r\n", number++);
        text += sample.ToString();
    }
    for (const CSFlowCompactSample& sample : m_compactSamples) {
        tpnf::AppendFormat(text, L"-----<Sample %d>-----\r\n", number++);
        text += sample.ToString();
    }
    return text;
}

int64_t CSFlowPacket::GetSize() const {
    return static_cast<int64_t>(m_samples.size() + m_compactSamples.size());
}

BOOL CSFlowPacket::IsEmpty() const {
    return m_samples.empty() && m_compactSamples.empty() ? TRUE : FALSE;
}

CString CSFlowPacket::GetProtocol() const {
    switch (m_header.m_version) {
    case 2:
        return L"sFlow v2";
    case 4:
        return L"sFlow v4";
    case 5:
        return L"sFlow v5";
    default:
        return CString();
    }
}

// sFlow datagrams carry no export time: the clock at the moment of the call is shown.
CString CSFlowPacket::GetTimestamp() const {
    return FormatTimestamp(static_cast<int32_t>(std::time(nullptr)));
}

CString CSFlowPacket::GetSysUpTime() const {
    return CNetFlowUtility::FormatSysUptime(static_cast<int>(m_header.m_sysUptime));
}

// sFlow records have no field list.
void CSFlowPacket::GetRecordFields(int, CUIntArray&, CStringArray&) {}
