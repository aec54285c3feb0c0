// IPFIX packets writing their records as rows, as v9 packets do, against SQLite and PostgreSQL.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "database/RecordTablesTest.h"
#include "ipfix/IPFIXPacket.h"
#include "support/DecodeContext.h"
#include "support/IPFIXDatagram.h"

using tpnf::test::Backend;
using tpnf::test::ByteBuilder;
using tpnf::test::ExporterScope;
using tpnf::test::ExporterV4;
using tpnf::test::IPFIXDatagram;
using tpnf::test::RecordTablesTest;
using tpnf::test::VariableLength;

namespace {

class IPFIXPrepareSqlTest : public RecordTablesTest {};

// Two records of IPV4_SRC_ADDR, PROT, flowEndReason, VRFname (variable length) and pmacct's label.
CIPFIXPacket TwoRecords(uint32_t exportTime) {
    CIPFIXPacket packet;
    packet.SetDecodeContext(ExporterScope(ExporterV4(192, 0, 2, 9)));
    ByteBuilder records;
    for (uint8_t host : {1, 2})
        records.ipv4(10, 0, 0, host)
            .u8(17)
            .u8(host)
            .bytes(VariableLength("red"))
            .bytes(VariableLength("gold"));
    EXPECT_EQ(packet.Decode(IPFIXDatagram({.exportTime = exportTime})
                                .Template(256, {{8, 4}, {4, 1}, {136, 1}, {236, 65535}, {3, 65535, 43874}})
                                .Data(256, records)),
              TRUE);
    packet.SetSenderInfo(L"192.0.2.9", 4739);
    return packet;
}

TEST_P(IPFIXPrepareSqlTest, RecordsAreRowsOfVersion10WithFieldIdsAndTexts) {
    CIPFIXPacket packet = TwoRecords(1700000000u);
    int recordId = 40;
    Write(packet, recordId);
    EXPECT_EQ(recordId, 42);
    EXPECT_EQ(Records(), (std::vector<std::string>{"40|1700000000|192.0.2.9|4739|10",
                                                   "41|1700000000|192.0.2.9|4739|10"}));
    std::vector<std::string> attributes = Attributes();
    ASSERT_EQ(attributes.size(), 10u);
    const std::string label = std::to_string((43874 << 15) | 3);
    for (int r = 0; r < 2; ++r) {
        std::vector<std::string> record(attributes.begin() + 5 * r, attributes.begin() + 5 * r + 5);
        std::sort(record.begin(), record.end());
        const std::string id = std::to_string(40 + r);
        std::vector<std::string> expected{id + "|136|" + std::to_string(1 + r), id + "|236|red", id + "|4|17",
                                          id + "|8|10.0.0." + std::to_string(1 + r),
                                          id + "|" + label + "|676F6C64"};
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(record, expected);
    }
}

TEST_P(IPFIXPrepareSqlTest, RecordIdMinusOneWritesNothingAndLateExportTimesAreStoredSigned) {
    CIPFIXPacket packet = TwoRecords(0x80000001u);
    int recordId = -1;
    Write(packet, recordId);
    EXPECT_EQ(recordId, -1);
    EXPECT_TRUE(Records().empty());
    recordId = 0;
    Write(packet, recordId);
    EXPECT_EQ(Records(), (std::vector<std::string>{"0|-2147483647|192.0.2.9|4739|10",
                                                   "1|-2147483647|192.0.2.9|4739|10"}));
}

INSTANTIATE_TEST_SUITE_P(Backends, IPFIXPrepareSqlTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

} // namespace
