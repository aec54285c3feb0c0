#include "util/NetFlowUtility.h"

#include "util/Format.h"

#include <algorithm>
#include <iterator>
#include <mutex>

std::map<int, CString> CNetFlowUtility::m_Protocols;
BOOL CNetFlowUtility::m_bInit = FALSE;

CString CNetFlowUtility::GetString(const CByteArray& data, int offset, int& length) {
    length = GetULong(data, offset);
    CString result;
    if (length < 1)
        return result;
    // The characters start at the length word itself: intended, callers account for it.
    if (offset < 0 || static_cast<uint64_t>(offset) + static_cast<uint64_t>(length) > data.size())
        AfxThrowInvalidArgException();
    result.assign(data.begin() + offset, data.begin() + offset + length);
    return result;
}

int CNetFlowUtility::GetAddress(const CByteArray& data, int offset, CNetFlowIPAddress& address) {
    int32_t type = GetULong(data, offset);
    if (type == 1) {
        address = CNetFlowIPAddress(static_cast<uint32_t>(GetULong(data, WrapAdd(offset, 4))));
        return 8;
    }
    if (type == 2) {
        int start = WrapAdd(offset, 4);
        if (start < 0 || static_cast<size_t>(start) + 16 > data.size())
            AfxThrowInvalidArgException();
        CNetFlowIPAddress v6;
        v6.m_address.assign(data.begin() + start, data.begin() + start + 16);
        address = std::move(v6);
        return 20;
    }
    return -1;
}

int CNetFlowUtility::GetOpaque(const CByteArray& data, int offset, int length, CByteArray& out) {
    if (length < 0)
        AfxThrowInvalidArgException();
    out.resize(static_cast<size_t>(length));
    // Copy what is in range, then fail at the first index that is not, as a byte-by-byte copy would.
    int64_t available = offset < 0 ? 0 : static_cast<int64_t>(data.size()) - offset;
    int64_t copied = std::max<int64_t>(0, std::min<int64_t>(available, length));
    if (copied > 0)
        std::copy_n(data.begin() + offset, copied, out.begin());
    if (copied < length)
        AfxThrowInvalidArgException();
    return length;
}

void CNetFlowUtility::GetIntArray(const CByteArray& data, int& offset, CUIntArray& out) {
    int32_t count = GetULongOffset(data, offset);
    if (count < 1)
        return;
    int64_t available = offset < 0 ? 0 : (static_cast<int64_t>(data.size()) - offset) / 4;
    out.reserve(out.size() + static_cast<size_t>(std::max<int64_t>(0, std::min<int64_t>(available, count))));
    for (int32_t i = 0; i < count; ++i)
        out.push_back(static_cast<uint32_t>(GetULongOffset(data, offset)));
}

void CNetFlowUtility::SetUByte(CByteArray& data, int offset, int value) {
    ElementAt(data, offset) = static_cast<uint8_t>(value);
}

void CNetFlowUtility::SetUShort(CByteArray& data, int offset, int value) {
    // Lowest-order byte first: a failing store keeps what was already written.
    ElementAt(data, WrapAdd(offset, 1)) = static_cast<uint8_t>(value);
    ElementAt(data, offset) = static_cast<uint8_t>(value >> 8);
}

void CNetFlowUtility::SetULong(CByteArray& data, int offset, int32_t value) {
    uint32_t v = static_cast<uint32_t>(value);
    ElementAt(data, WrapAdd(offset, 3)) = static_cast<uint8_t>(v);
    ElementAt(data, WrapAdd(offset, 2)) = static_cast<uint8_t>(v >> 8);
    ElementAt(data, WrapAdd(offset, 1)) = static_cast<uint8_t>(v >> 16);
    ElementAt(data, offset) = static_cast<uint8_t>(v >> 24);
}

void CNetFlowUtility::Init() {
    // 2 repeats "ICMP", 253 and 254 are both "UFEAT": intended departures from the registry.
    static const wchar_t* const names[] = {L"HOPOPT",
                                           L"ICMP",
                                           L"ICMP",
                                           L"GGP",
                                           L"IP",
                                           L"ST",
                                           L"TCP",
                                           L"CBT",
                                           L"EGP",
                                           L"IGP",
                                           L"BBN-RCC-MON",
                                           L"NVP-II",
                                           L"PUP",
                                           L"ARGUS",
                                           L"EMCON",
                                           L"XNET",
                                           L"CHAOS",
                                           L"UDP",
                                           L"MUX",
                                           L"DCN-MEAS",
                                           L"HMP",
                                           L"PRM",
                                           L"XNS-IDP",
                                           L"TRUNK-1",
                                           L"TRUNK-2",
                                           L"LEAF-1",
                                           L"LEAF-2",
                                           L"RDP",
                                           L"IRTP",
                                           L"ISO-TP4",
                                           L"NETBLT",
                                           L"MFE-NSP",
                                           L"MERIT-INP",
                                           L"DCCP",
                                           L"3PC",
                                           L"IDPR",
                                           L"XTP",
                                           L"DDP",
                                           L"IDPR-CMTP",
                                           L"TP++",
                                           L"IL",
                                           L"IPv6",
                                           L"SDRP",
                                           L"IPv6-Route",
                                           L"IPv6-Frag",
                                           L"IDRP",
                                           L"RSVP",
                                           L"GRE",
                                           L"DSR",
                                           L"BNA",
                                           L"ESP",
                                           L"AH",
                                           L"I-NLSP",
                                           L"SWIPE",
                                           L"NARP",
                                           L"MOBILE",
                                           L"TLSP",
                                           L"SKIP",
                                           L"IPv6-ICMP",
                                           L"IPv6-NoNxt",
                                           L"IPv6-Opts",
                                           L"AHIP",
                                           L"CFTP",
                                           L"ALN",
                                           L"SAT-EXPAK",
                                           L"KRYPTOLAN",
                                           L"RVD",
                                           L"IPPC",
                                           L"ADFS",
                                           L"SAT-MON",
                                           L"VISA",
                                           L"IPCV",
                                           L"CPNX",
                                           L"CPHB",
                                           L"WSN",
                                           L"PVP",
                                           L"BR-SAT-MON",
                                           L"SUN-ND",
                                           L"WB-MON",
                                           L"WB-EXPAK",
                                           L"ISO-IP",
                                           L"VMTP",
                                           L"SECURE-VMTP",
                                           L"VINES",
                                           L"TTP",
                                           L"NSFNET-IGP",
                                           L"DGP",
                                           L"TCF",
                                           L"EIGRP",
                                           L"OSPFIGP",
                                           L"Sprite-RPC",
                                           L"LARP",
                                           L"MTP",
                                           L"AX.25",
                                           L"IPIP",
                                           L"MICP",
                                           L"SCC-SP",
                                           L"ETHERIP",
                                           L"ENCAP",
                                           L"APES",
                                           L"GMTP",
                                           L"IFMP",
                                           L"PNNI",
                                           L"PIM",
                                           L"ARIS",
                                           L"SCPS",
                                           L"QNX",
                                           L"A/N",
                                           L"IPComp",
                                           L"SNP",
                                           L"Compaq-Peer",
                                           L"IPX-in-IP",
                                           L"VRRP",
                                           L"PGM",
                                           L"A0-HP",
                                           L"L2TP",
                                           L"DDX",
                                           L"IATP",
                                           L"STP",
                                           L"SRP",
                                           L"UTI",
                                           L"SMP",
                                           L"SM",
                                           L"PTP",
                                           L"ISIS over IPv4",
                                           L"FIRE",
                                           L"CRTP",
                                           L"CRUDP",
                                           L"SSCOPMCE",
                                           L"IPLT",
                                           L"SPS",
                                           L"PIPE",
                                           L"SCTP",
                                           L"FC",
                                           L"RSVP-E2E-IGNORE",
                                           L"Mobility Header",
                                           L"UDPLite",
                                           L"MPLS-in-IP",
                                           L"manet",
                                           L"HIP"};
    static_assert(std::size(names) == 140);
    for (int i = 0; i < 140; ++i)
        m_Protocols[i] = names[i];
    for (int i = 140; i <= 252; ++i)
        m_Protocols[i] = L"Unassigned";
    m_Protocols[253] = L"UFEAT";
    m_Protocols[254] = L"UFEAT";
    m_Protocols[255] = L"Reserved";
}

CString CNetFlowUtility::GetProtocol(int protocol) {
    // Once per process, so decoders on several threads can make the first call together.
    static std::once_flag filled;
    std::call_once(filled, [] {
        Init();
        m_bInit = TRUE;
    });
    auto it = m_Protocols.find(protocol);
    return it == m_Protocols.end() ? CString(L"Undefined") : it->second;
}

CString CNetFlowUtility::FormatSysUptime(int ticks) {
    // Hundredths of a second, although NetFlow exporters count milliseconds: the raw number is shown too.
    uint32_t t = static_cast<uint32_t>(ticks);
    uint32_t days = t / 8640000;
    uint32_t r = t % 8640000;
    uint32_t hours = r / 360000;
    uint32_t minutes = (r % 360000) / 6000;
    uint32_t seconds = (r % 360000 % 6000) / 100;
    uint32_t hundredths = r % 360000 % 6000 % 100;
    if (days == 0)
        return tpnf::FormatText(L"(%u) %ld:%02ld:%02ld.%02ld", t, hours, minutes, seconds, hundredths);
    if (days == 1) // no comma after "day", one after "days": intended
        return tpnf::FormatText(L"(%u) 1 day %ld:%02ld:%02ld.%02ld", t, hours, minutes, seconds, hundredths);
    return tpnf::FormatText(L"(%u) %ld days, %ld:%02ld:%02ld.%02ld", t, days, hours, minutes, seconds,
                            hundredths);
}

CString CNetFlowUtility::IntToString(int value) {
    return tpnf::FormatText(L"%u", value);
}

CString CNetFlowUtility::IntToString(long value) {
    return IntToString(static_cast<int>(value));
}

CString CNetFlowUtility::IntToString(unsigned int value) {
    return IntToString(static_cast<int>(value));
}

CString CNetFlowUtility::PrintIntArray(const CUIntArray& values) {
    CString result;
    for (uint32_t value : values)
        result += tpnf::FormatText(L"%lu - ", value);
    size_t first = result.find_first_not_of(L" -");
    if (first == CString::npos)
        return CString();
    size_t last = result.find_last_not_of(L" -");
    return result.substr(first, last - first + 1);
}
