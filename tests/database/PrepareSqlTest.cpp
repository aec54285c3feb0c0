// NetFlow v9 packets writing their records as rows, against SQLite and PostgreSQL.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "corelib/DataSourceTest.h"
#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "database/RecordTablesTest.h"
#include "database/V9FlowPackets.h"
#include "netflow9/NetFlowPacketV9.h"
#include "support/NetFlowV9Datagram.h"
#include "util/TextConvert.h"

using tpnf::test::Backend;
using tpnf::test::ByteBuilder;
using tpnf::test::DataSourceTest;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::RecordTablesTest;
using tpnf::test::ThreeFieldPacket;
using tpnf::test::V9Header;

namespace {

class PrepareSqlTest : public RecordTablesTest {};

TEST_P(PrepareSqlTest, ThreeRecordsFromId100TakeIds100To102AndLeave103) {
    auto packet = ThreeFieldPacket(1700000000u, {1, 2, 3});
    int recordId = 100;
    Write(*packet, recordId);
    EXPECT_EQ(recordId, 103);
    EXPECT_EQ(Records(),
              (std::vector<std::string>{"100|1700000000|192.0.2.7|2055|9", "101|1700000000|192.0.2.7|2055|9",
                                        "102|1700000000|192.0.2.7|2055|9"}));
    std::vector<std::string> attributes = Attributes();
    ASSERT_EQ(attributes.size(), 9u);
    // Protocol numbers stay numbers here.
    for (int r = 0; r < 3; ++r) {
        std::vector<std::string> record(attributes.begin() + 3 * r, attributes.begin() + 3 * r + 3);
        std::sort(record.begin(), record.end());
        const std::string id = std::to_string(100 + r);
        EXPECT_EQ(record, (std::vector<std::string>{id + "|1|" + std::to_string(1001 + r), id + "|4|17",
                                                    id + "|8|10.0.0." + std::to_string(1 + r)}));
    }
}

TEST_P(PrepareSqlTest, RecordIdMinusOneWritesNothing) {
    auto packet = ThreeFieldPacket(1700000000u, {1, 2});
    int recordId = -1;
    Write(*packet, recordId);
    EXPECT_EQ(recordId, -1);
    EXPECT_TRUE(Records().empty());
    EXPECT_TRUE(Attributes().empty());
}

TEST_P(PrepareSqlTest, PacketWithoutDataRecordsLeavesTheIdAlone) {
    CNetFlowPacketV9 packet;
    const std::vector<uint8_t> onlyTemplate =
        NetFlowV9Datagram(V9Header{1, 0, 5, 0, 0}).Template(301, {{8, 4}}).build();
    ASSERT_TRUE(packet.Decode(CByteArray(onlyTemplate.begin(), onlyTemplate.end())));
    int recordId = 7;
    Write(packet, recordId);
    EXPECT_EQ(recordId, 7);
    EXPECT_TRUE(Records().empty());
}

// Unknown types keep their number and their byte rendering; export seconds past 2038 are stored as a
// signed 32-bit number, intended.
TEST_P(PrepareSqlTest, UnknownFieldTypeAndLateExportTime) {
    CNetFlowPacketV9 packet;
    const std::vector<uint8_t> datagram = NetFlowV9Datagram(V9Header{2, 0, 0x80000001u, 0, 0})
                                              .Template(302, {{999, 2}})
                                              .Data(302, ByteBuilder().u8(0x01).u8(0xFF).build())
                                              .build();
    ASSERT_TRUE(packet.Decode(CByteArray(datagram.begin(), datagram.end())));
    packet.SetSenderInfo(L"198.51.100.1", 9995);
    int recordId = 0;
    Write(packet, recordId);
    EXPECT_EQ(Records(), (std::vector<std::string>{"0|-2147483647|198.51.100.1|9995|9"}));
    EXPECT_EQ(Attributes(), (std::vector<std::string>{"0|999|1 255 "}));
}

INSTANTIATE_TEST_SUITE_P(Backends, PrepareSqlTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

} // namespace
