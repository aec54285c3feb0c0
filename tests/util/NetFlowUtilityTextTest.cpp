#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "util/NetFlowUtility.h"

// Expected protocol names for 0 to 139, one per number; 140 to 255 are checked separately below.
static const wchar_t* const kNamedProtocols[] = {L"HOPOPT",
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

TEST(GetProtocol, NamesZeroTo139AsTabled) {
    static_assert(std::size(kNamedProtocols) == 140);
    for (int number = 0; number < 140; ++number)
        EXPECT_EQ(CNetFlowUtility::GetProtocol(number), kNamedProtocols[number]) << number;
}

TEST(GetProtocol, NumbersFrom140To252AreUnassigned) {
    for (int number = 140; number <= 252; ++number)
        EXPECT_EQ(CNetFlowUtility::GetProtocol(number), L"Unassigned") << number;
}

TEST(GetProtocol, TopThreeNumbers) {
    EXPECT_EQ(CNetFlowUtility::GetProtocol(253), L"UFEAT");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(254), L"UFEAT");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(255), L"Reserved");
}

TEST(GetProtocol, CommonNumbers) {
    EXPECT_EQ(CNetFlowUtility::GetProtocol(6), L"TCP");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(17), L"UDP");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(1), L"ICMP");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(2), L"ICMP"); // same name as 1: intended
    EXPECT_EQ(CNetFlowUtility::GetProtocol(200), L"Unassigned");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(124), L"ISIS over IPv4");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(138), L"manet");
}

TEST(GetProtocol, OutsideZeroTo255IsUndefined) {
    EXPECT_EQ(CNetFlowUtility::GetProtocol(256), L"Undefined");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(-1), L"Undefined");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(INT32_MIN), L"Undefined");
    EXPECT_EQ(CNetFlowUtility::GetProtocol(INT32_MAX), L"Undefined");
}

// Exposes the protected table so its size can be checked.
struct ProtocolTableProbe : CNetFlowUtility {
    static size_t Size() { return m_Protocols.size(); }
    static BOOL Filled() { return m_bInit; }
    static void Refill() { Init(); }
};

TEST(GetProtocol, TableHoldsExactly256EntriesAndRefillingChangesNothing) {
    CNetFlowUtility::GetProtocol(0);
    EXPECT_TRUE(ProtocolTableProbe::Filled());
    EXPECT_EQ(ProtocolTableProbe::Size(), 256u);
    ProtocolTableProbe::Refill();
    EXPECT_EQ(ProtocolTableProbe::Size(), 256u);
    EXPECT_EQ(CNetFlowUtility::GetProtocol(6), L"TCP");
}

// --- FormatSysUptime ----------------------------------------------------------------------------------

TEST(FormatSysUptime, ZeroTicks) {
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(0), L"(0) 0:00:00.00");
}

TEST(FormatSysUptime, UnderOneDayShowsHoursMinutesSecondsHundredths) {
    // 3 h 25 min 7 s 9 hundredths = 1,080,000 + 150,000 + 700 + 9.
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(1230709), L"(1230709) 3:25:07.09");
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(8639999), L"(8639999) 23:59:59.99");
}

TEST(FormatSysUptime, ExactlyOneDayHasNoComma) {
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(8640000), L"(8640000) 1 day 0:00:00.00");
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(17279999), L"(17279999) 1 day 23:59:59.99");
}

TEST(FormatSysUptime, SeveralDaysHaveCommaAfterDays) {
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(17280001), L"(17280001) 2 days, 0:00:00.01");
}

TEST(FormatSysUptime, NegativeArgumentIsReadUnsigned) {
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(-1), L"(4294967295) 497 days, 2:27:52.95");
    EXPECT_EQ(CNetFlowUtility::FormatSysUptime(INT32_MIN), L"(2147483648) 248 days, 13:13:56.48");
}

// --- IntToString --------------------------------------------------------------------------------------

TEST(IntToString, PrintsUnsignedDecimal) {
    EXPECT_EQ(CNetFlowUtility::IntToString(0), L"0");
    EXPECT_EQ(CNetFlowUtility::IntToString(1532), L"1532");
    EXPECT_EQ(CNetFlowUtility::IntToString(-1), L"4294967295");
    EXPECT_EQ(CNetFlowUtility::IntToString(INT32_MIN), L"2147483648");
}

TEST(IntToString, LongOverloadPrintsThe32BitValue) {
    EXPECT_EQ(CNetFlowUtility::IntToString(-2L), L"4294967294");
    EXPECT_EQ(CNetFlowUtility::IntToString(4000000000L), L"4000000000");
}

TEST(IntToString, UnsignedOverloadPrintsSameText) {
    EXPECT_EQ(CNetFlowUtility::IntToString(0xFFFFFFFFu), L"4294967295");
    EXPECT_EQ(CNetFlowUtility::IntToString(7u), L"7");
}

// --- PrintIntArray ------------------------------------------------------------------------------------

TEST(PrintIntArray, EmptyArrayGivesEmptyText) {
    EXPECT_EQ(CNetFlowUtility::PrintIntArray(CUIntArray()), L"");
}

TEST(PrintIntArray, OneElementHasNoSeparator) {
    EXPECT_EQ(CNetFlowUtility::PrintIntArray(CUIntArray{7}), L"7");
}

TEST(PrintIntArray, ElementsJoinedBySpacedDash) {
    EXPECT_EQ(CNetFlowUtility::PrintIntArray(CUIntArray{1, 2, 3}), L"1 - 2 - 3");
}

TEST(PrintIntArray, ElementsPrintUnsigned) {
    EXPECT_EQ(CNetFlowUtility::PrintIntArray(CUIntArray{0xFFFFFFFFu, 0}), L"4294967295 - 0");
}
