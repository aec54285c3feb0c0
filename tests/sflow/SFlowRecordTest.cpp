#include <gtest/gtest.h>

#include "sflow/SFlowRecord.h"
#include "support/ByteBuilder.h"
#include "support/SFlowDatagram.h"

using tpnf::test::ByteBuilder;
using namespace tpnf::test::sflow;

namespace {

Bytes InDatagram(uint32_t version, const Bytes& body) {
    return ByteBuilder().u32(version).bytes(body).build();
}

} // namespace

TEST(SFlowRecord, FreshHolderHasZeroFormatsAllOnesEmptyArraysAndFourElementAddresses) {
    CSFlowRecord r;
    EXPECT_EQ(r.m_flowFormat, 0u);
    EXPECT_EQ(r.m_counterFormat, 0u);
    EXPECT_EQ(r.m_headerRecord.m_protocol, 0u);
    EXPECT_EQ(r.m_urlRecord.m_direction, 0u);
    EXPECT_EQ(r.m_headerRecord.m_frameLength, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_ethernetRecord.m_length, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_mplsFTNRecord.m_ftnMask, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_mplsLDPFECRecord.m_fecAddrPrefixLength, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_mplsTunnelRecord.m_tunnelId, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_mplsVCRecord.m_vcCos, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_routerRecord.m_srcMask, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_switchRecord.m_dstPriority, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_userRecord.m_srcCharset, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_ipv4Record.m_tos, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_ipv6Record.m_priority, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_gatewayRecord.m_localPref, 0xFFFFFFFFu);
    EXPECT_EQ(r.m_genericCounters.m_ifOutOctets, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(r.m_processorCounters.m_5sCpu, 0xFFFFFFFFu);
    EXPECT_TRUE(r.m_headerRecord.m_header.empty());
    EXPECT_TRUE(r.m_ethernetRecord.m_srcMAC.empty());
    EXPECT_TRUE(r.m_mplsRecord.m_inLabelStack.empty());
    EXPECT_TRUE(r.m_processRecord.m_processNames.empty());
    EXPECT_TRUE(r.m_vlanTunnelRecord.m_stack.empty());
    EXPECT_TRUE(r.m_gatewayRecord.m_asPath.empty());
    EXPECT_TRUE(r.m_urlRecord.m_url.empty());
    for (const CNetFlowIPAddress* address :
         {&r.m_ipv4Record.m_srcIP, &r.m_ipv4Record.m_dstIP, &r.m_ipv6Record.m_srcIP, &r.m_ipv6Record.m_dstIP,
          &r.m_routerRecord.m_nextHop, &r.m_gatewayRecord.m_nextHop, &r.m_mplsRecord.m_nextHop,
          &r.m_natRecord.m_srcAddress, &r.m_natRecord.m_dstAddress}) {
        EXPECT_EQ(address->m_address.size(), 4u);
        EXPECT_EQ(address->ToString(), L"0.0.0.0");
    }
}

TEST(SFlowRecord, FreshHolderRendersAsAnUnknownCounterRecord) {
    EXPECT_EQ(CSFlowRecord().ToString(), L"Unknown record");
}

TEST(SFlowRecord, CopiesShareNothing) {
    CSFlowRecord original;
    original.m_flowFormat = 1003;
    original.m_gatewayRecord.m_asPath.resize(1);
    original.m_gatewayRecord.m_asPath[0].m_type = 2;
    original.m_gatewayRecord.m_asPath[0].m_asSequence = {1, 2};
    original.m_gatewayRecord.m_communities = {7};
    original.m_urlRecord.m_url = L"abc";
    original.m_headerRecord.m_header = {1, 2, 3};
    original.m_natRecord.m_srcAddress = CNetFlowIPAddress(0x0A000001);

    CSFlowRecord copy(original);
    copy.m_gatewayRecord.m_asPath[0].m_asSequence.push_back(3);
    copy.m_gatewayRecord.m_communities.clear();
    copy.m_urlRecord.m_url += L"d";
    copy.m_headerRecord.m_header[0] = 9;
    copy.m_natRecord.m_srcAddress.m_address[3] = 2;
    EXPECT_EQ(original.m_gatewayRecord.m_asPath[0].m_asSequence, (CUIntArray{1, 2}));
    EXPECT_EQ(original.m_gatewayRecord.m_communities, (CUIntArray{7}));
    EXPECT_EQ(original.m_urlRecord.m_url, L"abc");
    EXPECT_EQ(original.m_headerRecord.m_header, (Bytes{1, 2, 3}));
    EXPECT_EQ(original.m_natRecord.m_srcAddress.ToString(), L"10.0.0.1");

    CSFlowRecord assigned;
    assigned = original;
    EXPECT_EQ(assigned.m_flowFormat, 1003u);
    EXPECT_EQ(assigned.ToString(), original.ToString());
    assigned.m_gatewayRecord.m_asPath.clear();
    EXPECT_EQ(original.m_gatewayRecord.m_asPath.size(), 1u);
}

TEST(SFlowRecord, RendersTheMemberNamedByTheFlowFormat) {
    CSFlowRecord r;
    const std::pair<uint32_t, CString> formats[] = {
        {1, r.m_headerRecord.ToString()},        {2, r.m_ethernetRecord.ToString()},
        {3, r.m_ipv4Record.ToString()},          {4, r.m_ipv6Record.ToString()},
        {1001, r.m_switchRecord.ToString()},     {1002, r.m_routerRecord.ToString()},
        {1003, r.m_gatewayRecord.ToString()},    {1004, r.m_userRecord.ToString()},
        {1005, r.m_urlRecord.ToString()},        {1006, r.m_mplsRecord.ToString()},
        {1007, r.m_natRecord.ToString()},        {1008, r.m_mplsTunnelRecord.ToString()},
        {1009, r.m_mplsVCRecord.ToString()},     {1010, r.m_mplsFTNRecord.ToString()},
        {1011, r.m_mplsLDPFECRecord.ToString()}, {1012, r.m_vlanTunnelRecord.ToString()},
        {17612803, r.m_processRecord.ToString()}};
    for (const auto& [format, text] : formats) {
        r.m_flowFormat = format;
        EXPECT_EQ(r.ToString(), text) << format;
    }
    EXPECT_EQ(formats[0].second.substr(0, 23), L"Sampled Header Record:\r");
    EXPECT_EQ(formats[16].second, L"Extended Process Flow:\r\n");
    for (uint32_t unknown : {5u, 1000u, 1013u, 2000u, 0x10CC001u}) {
        r.m_flowFormat = unknown;
        EXPECT_EQ(r.ToString(), L"Unknown record") << unknown;
    }
}

TEST(SFlowRecord, FlowFormatZeroRendersTheMemberNamedByTheCounterFormat) {
    CSFlowRecord r;
    const std::pair<uint32_t, CString> formats[] = {
        {1, r.m_genericCounters.ToString()},   {2, r.m_ethernetCounters.ToString()},
        {3, r.m_tokenringCounters.ToString()}, {4, r.m_vgCounters.ToString()},
        {5, r.m_vlanCounters.ToString()},      {1001, r.m_processorCounters.ToString()}};
    for (const auto& [format, text] : formats) {
        r.m_counterFormat = format;
        EXPECT_EQ(r.ToString(), text) << format;
    }
    r.m_counterFormat = 6;
    EXPECT_EQ(r.ToString(), L"Unknown record");
    // a flow format wins over the counter format
    r.m_counterFormat = 1;
    r.m_flowFormat = 1001;
    EXPECT_EQ(r.ToString(), r.m_switchRecord.ToString());
}

TEST(SFlowRecord, Version5FlowRecordStoresItsFormatAndReadsOnlyTheFieldsItKnows) {
    // Switch record announcing 20 bytes: the reader takes its 16, the rest is left for the next read.
    Bytes data =
        InDatagram(5, ByteBuilder().u32(1001).u32(20).bytes(ExtendedSwitch(1, 2, 3, 4)).u32(0xAB).build());
    CSFlowRecord r;
    int offset = 4;
    r.Decode(data, offset);
    EXPECT_EQ(offset, 4 + 8 + 16);
    EXPECT_EQ(r.m_flowFormat, 1001u);
    EXPECT_EQ(r.m_counterFormat, 0u);
    EXPECT_EQ(r.m_switchRecord.m_dstVLAN, 3u);
    EXPECT_EQ(r.ToString(), L"Extended Switch Flow:\r\nSrc VLAN: 1\r\nSrc Priority: 2\r\nDst VLAN: 3\r\n"
                            L"Dst Priority: 4\r\n");
}

TEST(SFlowRecord, UnknownFlowFormatIsSkippedByItsLength) {
    Bytes data = InDatagram(5, ByteBuilder().u32(2000).u32(12).u32(1).u32(2).u32(3).u32(0xCC).build());
    CSFlowRecord r;
    int offset = 4;
    r.Decode(data, offset);
    EXPECT_EQ(offset, 4 + 8 + 12);
    EXPECT_EQ(r.m_flowFormat, 2000u);
    EXPECT_EQ(r.ToString(), L"Unknown record");
}

TEST(SFlowRecord, FormatIsComparedWholeNotSplitIntoEnterpriseAndFormat) {
    // Enterprise 1, format 1001: not the switch record.
    Bytes data = InDatagram(5, ByteBuilder().u32((1u << 12) | 1001).u32(4).u32(9).build());
    CSFlowRecord r;
    int offset = 4;
    r.Decode(data, offset);
    EXPECT_EQ(offset, 16);
    EXPECT_EQ(r.ToString(), L"Unknown record");
}

TEST(SFlowRecord, ProcessRecordHasEnterpriseFormatNumber) {
    Bytes data = InDatagram(5, Record(17612803, ByteBuilder().u32(1).u32(77).u32(0).build()));
    CSFlowRecord r;
    int offset = 4;
    r.Decode(data, offset);
    EXPECT_EQ(offset, 4 + 8 + 8);
    EXPECT_EQ(r.ToString(), L"Extended Process Flow:\r\nProcess: [77]\r\n");
}

TEST(SFlowRecord, HeaderLengthFourteenLeavesTheNextRecordTwoBytesOffTheWordBoundary) {
    // The first record's header has 14 bytes and the second record is written right after them, as
    // the reader expects (an agent would pad to 16).
    Bytes data = InDatagram(5, ByteBuilder()
                                   .u32(1)
                                   .u32(30)
                                   .u32(1)
                                   .u32(64)
                                   .u32(0)
                                   .u32(14)
                                   .bytes(Bytes(14, 0xEE))
                                   .bytes(Record(1001, ExtendedSwitch(10, 0, 20, 0)))
                                   .build());
    int offset = 4;
    CSFlowRecord first;
    first.Decode(data, offset);
    EXPECT_EQ(offset, 4 + 8 + 16 + 14);
    EXPECT_EQ(offset % 4, 2);
    CSFlowRecord second;
    second.Decode(data, offset);
    EXPECT_EQ(second.m_flowFormat, 1001u);
    EXPECT_EQ(second.m_switchRecord.m_srcVLAN, 10u);
    EXPECT_EQ(second.m_switchRecord.m_dstVLAN, 20u);
    EXPECT_EQ(offset, static_cast<int>(data.size()));
}

TEST(SFlowRecord, SampledIPv4RecordThrows) {
    Bytes data = InDatagram(
        5, Record(3, ByteBuilder().u32(60).u32(6).ipv4(1, 2, 3, 4).ipv4(5, 6, 7, 8).zeros(16).build()));
    CSFlowRecord r;
    int offset = 4;
    EXPECT_THROW(r.Decode(data, offset), CInvalidArgException);
}

TEST(SFlowRecord, NegativeUnknownRecordLengthThrows) {
    // Moving back would let a record count re-read the same bytes without end.
    Bytes data = InDatagram(5, ByteBuilder().u32(2000).u32(0xFFFFFFF8).build());
    CSFlowRecord r;
    int offset = 4;
    EXPECT_THROW(r.Decode(data, offset), CInvalidArgException);
    CSFlowRecord c;
    offset = 4;
    EXPECT_THROW(c.DecodeCounters(data, offset), CInvalidArgException);
}

TEST(SFlowRecord, Version5CounterRecordSetsOnlyTheCounterFormat) {
    Bytes data = ByteBuilder().u32(5).bytes(Record(1, GenericCounters(100))).build();
    CSFlowRecord r;
    int offset = 4;
    r.DecodeCounters(data, offset);
    EXPECT_EQ(offset, 4 + 8 + 88);
    EXPECT_EQ(r.m_flowFormat, 0u);
    EXPECT_EQ(r.m_counterFormat, 1u);
    EXPECT_EQ(r.m_genericCounters.m_ifIndex, 100u);
    EXPECT_EQ(r.m_genericCounters.m_ifPromiscuousMode, 121u);
    EXPECT_EQ(r.ToString(), r.m_genericCounters.ToString());
}

TEST(SFlowRecord, ProcessorCountersWithLongerDeclaredLengthLeaveTheRestForTheNextRecord) {
    // Declared length 40 carries 28 bytes of counters and 12 more; the reader takes 28, so the next
    // record's format and length come from those 12 bytes.
    Bytes data = ByteBuilder()
                     .u32(5)
                     .u32(1001)
                     .u32(40)
                     .u32(10)
                     .u32(20)
                     .u32(30)
                     .u64(1000)
                     .u64(500)
                     .u32(5)
                     .u32(28)
                     .u32(7) // VLAN id of a VLAN counters record
                     .u64(0)
                     .u32(0)
                     .u32(0)
                     .u32(0)
                     .u32(0)
                     .build();
    int offset = 4;
    CSFlowRecord processor;
    processor.DecodeCounters(data, offset);
    EXPECT_EQ(offset, 4 + 8 + 28);
    EXPECT_EQ(processor.ToString(), L"Processor Counters:\r\n5s CPU: 10\r\n1m CPU: 20\r\n5m CPU: 30\r\n"
                                    L"Total Memory Bytes: 1000\r\nFree Memory Bytes: 500\r\n");
    CSFlowRecord next;
    next.DecodeCounters(data, offset);
    EXPECT_EQ(next.m_counterFormat, 5u);
    EXPECT_EQ(next.m_vlanCounters.m_vlanId, 7u);
}

TEST(SFlowRecord, UnknownCounterFormatSixIsSkippedByItsLength) {
    Bytes data = ByteBuilder().u32(5).u32(6).u32(8).u32(1).u32(2).u32(0xDD).build();
    CSFlowRecord r;
    int offset = 4;
    r.DecodeCounters(data, offset);
    EXPECT_EQ(offset, 4 + 16);
    EXPECT_EQ(r.m_counterFormat, 6u);
    EXPECT_EQ(r.ToString(), L"Unknown record");
}

TEST(SFlowRecord, EveryCounterFormatReadsItsFixedSize) {
    const std::pair<uint32_t, int> sizes[] = {{1, 88}, {2, 52}, {3, 72}, {4, 80}, {5, 28}, {1001, 28}};
    for (const auto& [format, size] : sizes) {
        // the declared length is deliberately wrong: readers do not look at it
        Bytes data = ByteBuilder().u32(5).u32(format).u32(4).bytes(Words(1, 30)).build();
        CSFlowRecord r;
        int offset = 4;
        r.DecodeCounters(data, offset);
        EXPECT_EQ(offset, 12 + size) << format;
        EXPECT_EQ(r.m_counterFormat, format);
    }
}

TEST(SFlowRecord, Version2PacketDataTypesSetTheFlowFormat) {
    {
        Bytes data = InDatagram(2, ByteBuilder().u32(1).u32(1).u32(64).u32(4).u32(0x01020304).build());
        CSFlowRecord r;
        int offset = 4;
        r.DecodePacketData(data, offset);
        EXPECT_EQ(offset, static_cast<int>(data.size()));
        EXPECT_EQ(r.m_flowFormat, 1u);
        EXPECT_EQ(r.m_headerRecord.m_header, (Bytes{1, 2, 3, 4}));
    }
    {
        Bytes data = InDatagram(
            4, ByteBuilder().u32(3).u32(100).u32(17).zeros(32).u32(53).u32(53).u32(0).u32(0).build());
        CSFlowRecord r;
        int offset = 4;
        r.DecodePacketData(data, offset);
        EXPECT_EQ(offset, static_cast<int>(data.size()));
        EXPECT_EQ(r.m_flowFormat, 4u);
        EXPECT_EQ(r.m_ipv6Record.m_srcPort, 53u);
    }
    {
        Bytes data = InDatagram(4, ByteBuilder().u32(2).u32(100).u32(17).zeros(24).build());
        CSFlowRecord r;
        int offset = 4;
        EXPECT_THROW(r.DecodePacketData(data, offset), CInvalidArgException);
    }
    {
        Bytes data = InDatagram(4, ByteBuilder().u32(9).u32(100).build());
        CSFlowRecord r;
        int offset = 4;
        r.DecodePacketData(data, offset);
        EXPECT_EQ(offset, 8);
        EXPECT_EQ(r.m_flowFormat, 0u);
        EXPECT_EQ(r.ToString(), L"Unknown record");
    }
}

TEST(SFlowRecord, Version2ExtendedDataTypesMapToFlowFormats) {
    // Bodies of zeros: switch 16 bytes; router with address type 0 (-1) and two masks; version 4
    // gateway with three AS words, no segments, no communities and the local preference; user with
    // two empty strings (the cursor stays); URL with its direction and an empty URL.
    const std::tuple<uint32_t, uint32_t, int> types[] = {
        {1, 1001, 8 + 16}, {2, 1002, 8 - 1 + 8}, {3, 1003, 8 + 24}, {4, 1004, 8}, {5, 1005, 8 + 4}};
    for (const auto& [type, format, end] : types) {
        Bytes data = InDatagram(4, ByteBuilder().u32(type).zeros(64).build());
        CSFlowRecord r;
        int offset = 4;
        r.DecodeExtendedData(data, offset);
        EXPECT_EQ(r.m_flowFormat, format) << type;
        EXPECT_EQ(offset, end) << type;
    }
}

TEST(SFlowRecord, Version2ExtendedDataBodiesUseTheMemberReaders) {
    Bytes data = InDatagram(2, ByteBuilder().u32(2).u32(1).ipv4(10, 0, 0, 254).u32(24).u32(8).build());
    CSFlowRecord r;
    int offset = 4;
    r.DecodeExtendedData(data, offset);
    EXPECT_EQ(offset, static_cast<int>(data.size()));
    EXPECT_EQ(r.m_routerRecord.m_nextHop.ToString(), L"10.0.0.254");
    EXPECT_EQ(r.ToString(), L"Extended Router Flow:\r\nSrc Mask: 24\r\nDst Mask: 8\r\n");
}

TEST(SFlowRecord, UnknownVersion2ExtendedTypeConsumesOnlyItsTypeWord) {
    Bytes data = InDatagram(4, ByteBuilder().u32(6).u32(1).u32(2).build());
    CSFlowRecord r;
    int offset = 4;
    r.DecodeExtendedData(data, offset);
    EXPECT_EQ(offset, 8);
    EXPECT_EQ(r.m_flowFormat, 0u);
}
