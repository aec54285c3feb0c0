// nfcollect's decoding options: IPFIX, template scopes and bounds, as the flags ask.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/ByteBuilder.h"
#include "support/CollectorProcess.h"
#include "support/IPFIXDatagram.h"

namespace fs = std::filesystem;
using tpnf::test::ByteBuilder;
using tpnf::test::CollectorProcess;
using tpnf::test::CollectorResult;
using tpnf::test::IPFIXDatagram;
using tpnf::test::Query;

namespace {

// Template 300: source address (a v9 catalogue field), flowEndReason (136, IANA only) and an enterprise
// element of 2 bytes; one record.
std::vector<uint8_t> IPFIXMessage() {
    return IPFIXDatagram({.exportTime = 1700000000, .sequence = 5, .domain = 9})
        .Template(300, {{8, 4}, {136, 1}, {17, 2, 43874}})
        .Data(300, ByteBuilder().ipv4(192, 0, 2, 1).u8(3).u16(0xBEEF))
        .build();
}

class CollectorDecodingTest : public testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("tpnf_decoding_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    CollectorResult Run(std::vector<std::string> args, const std::vector<std::vector<uint8_t>>& datagrams) {
        args.insert(args.begin(), {"--port", std::to_string(m_port)});
        CollectorProcess collector(m_dir);
        if (!collector.Start(args) || !collector.WaitListening(m_port))
            return {};
        for (const auto& datagram : datagrams)
            m_sender.Send(m_port, datagram);
        return collector.Wait();
    }

    fs::path m_dir;
    int m_port = tpnf::test::FreePort();
    tpnf::test::Sender m_sender;
};

TEST_F(CollectorDecodingTest, WithoutTheFlagIPFIXIsIgnoredAsAnUnknownVersion) {
    const CollectorResult r = Run({"--count", "1"}, {IPFIXMessage()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(tpnf::test::LastLine(r.err).find(": 1 datagrams, 0 packets, 0 decode errors, 1 dropped"),
              std::string::npos)
        << r.err;
}

TEST_F(CollectorDecodingTest, IPFIXFieldsCarryTheV9NamesIANANamesAndEnterpriseNumbers) {
    const CollectorResult r = Run({"--ipfix", "--count", "1", "--format", "fields"}, {IPFIXMessage()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "# IPFIX 127.0.0.1:" + std::to_string(m_sender.Port()) +
                         " record 0\nIPV4_SRC_ADDR=192.0.2.1\nflowEndReason=3\nE43874.17=BEEF\n\n");
}

TEST_F(CollectorDecodingTest, IPFIXJsonNamesTheProtocolAndItsElements) {
    const CollectorResult r = Run({"--rfc", "--count", "1", "--format", "json"}, {IPFIXMessage()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("\"protocol\":\"IPFIX\""), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("{\"id\":136,\"name\":\"flowEndReason\",\"value\":\"3\"}"), std::string::npos)
        << r.out;
}

TEST_F(CollectorDecodingTest, IPFIXRecordsAreStoredAsVersion10Rows) {
    const fs::path db = m_dir / "v9.sqlite";
    const CollectorResult r =
        Run({"--ipfix", "--count", "1", "--format", "none", "--db", db.string()}, {IPFIXMessage()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(Query(db, "select record_id, record_ip_addr, record_time, record_version from netflow_records"),
              "0|127.0.0.1|1700000000|10\n");
    EXPECT_EQ(Query(db, "select attr_id, attr_value from netflow_attributes order by rowid"),
              "8|192.0.2.1\n136|3\n" + std::to_string((43874u << 15) | 17) + "|BEEF\n");
}

} // namespace
