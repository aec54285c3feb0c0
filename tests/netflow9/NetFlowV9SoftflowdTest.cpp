// Datagrams exported by a real NetFlow v9 exporter (softflowd), made by tests/data/make_v9_softflowd.sh
// from traffic whose flows are known; tshark's reading of the same bytes is in v9_softflowd.expected.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "util/TextConvert.h"

namespace {

CByteArray ReadSample(int n) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/v9_softflowd_" + std::to_string(n) + ".bin",
                     std::ios::binary);
    EXPECT_TRUE(in.good()) << "sample " << n << " missing";
    return CByteArray(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Lines of the expectations file for datagram n, in file order, without the datagram number.
struct Expected {
    std::vector<std::string> header;  // version count sysUptimeMs unixSecs sequence sourceId
    std::vector<std::string> records; // "flow ..." and "options ..." lines
};

Expected ReadExpected(int n) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/v9_softflowd.expected");
    EXPECT_TRUE(in.good());
    Expected expected;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string kind;
        int datagram = 0;
        if (!(words >> kind >> datagram) || datagram != n || kind[0] == '#')
            continue;
        std::string rest;
        std::getline(words, rest);
        rest.erase(0, rest.find_first_not_of(' '));
        if (kind == "datagram") {
            std::istringstream values(rest);
            expected.header.assign(std::istream_iterator<std::string>(values), {});
        } else {
            expected.records.push_back(kind + " " + rest);
        }
    }
    return expected;
}

// The value text of the first field of a type in a record, or fallback when the record has none.
std::string Value(const CNetFlowSetRecord& record, int type, const std::string& fallback = "") {
    for (const CNetFlowField& field : record.GetFields())
        if (field.GetType() == type)
            return tpnf::ToUtf8(field.GetValue());
    return fallback;
}

bool Has(const CNetFlowSetRecord& record, int type) {
    CArray<CNetFlowField> fields = record.GetFields();
    return std::any_of(fields.begin(), fields.end(),
                       [type](const CNetFlowField& f) { return f.GetType() == type; });
}

// A record in the expectations file's words.
std::string Describe(const CNetFlowSetRecord& record) {
    if (!Has(record, CNetFlowField::IPV4_SRC_ADDR)) {
        std::string name = Value(record, CNetFlowField::IF_NAME);
        name.erase(std::find(name.begin(), name.end(), '\0'), name.end()); // zero-padded on the wire
        return "options " + Value(record, CNetFlowField::SAMPLING_INTERVAL) + " " + name;
    }
    return "flow " + Value(record, CNetFlowField::IPV4_SRC_ADDR) + " " +
           Value(record, CNetFlowField::IPV4_DST_ADDR) + " " +
           Value(record, CNetFlowField::L4_SRC_PORT, "0") + " " +
           Value(record, CNetFlowField::L4_DST_PORT, "0") + " " + Value(record, CNetFlowField::PROT) + " " +
           Value(record, CNetFlowField::IN_BYTES) + " " + Value(record, CNetFlowField::IN_PKTS);
}

// The field list of the first record whose source address is src.
void FieldsOf(const CNetFlowPacketV9& packet, const std::string& src, CUIntArray& ids, CStringArray& values) {
    for (int i = 0; i < packet.GetSize(); ++i)
        if (Value(packet.GetRecords()[static_cast<size_t>(i)], CNetFlowField::IPV4_SRC_ADDR) == src) {
            CNetFlowPacketV9 copy(packet); // the packet interface's GetRecordFields is not const
            copy.GetRecordFields(i, ids, values);
            return;
        }
    ADD_FAILURE() << "no record from " << src;
}

std::wstring ValueFor(const CUIntArray& ids, const CStringArray& values, uint32_t id) {
    for (size_t i = 0; i < ids.size(); ++i)
        if (ids[i] == id)
            return values[i];
    return L"(absent)";
}

} // namespace

class SoftflowdV9 : public EmptyTemplateStore {};

TEST_F(SoftflowdV9, EveryDatagramDecodesToTheHeaderAndRecordsTsharkReads) {
    for (int n = 1; n <= 2; ++n) {
        SCOPED_TRACE("datagram " + std::to_string(n));
        Expected expected = ReadExpected(n);
        ASSERT_EQ(expected.header.size(), 6u);
        CNetFlowPacketV9 packet;
        ASSERT_EQ(packet.Decode(ReadSample(n)), TRUE);
        const CNetFlowHeaderV9& h = packet.GetHeader();
        EXPECT_EQ(std::to_string(h.m_version), expected.header[0]);
        EXPECT_EQ(std::to_string(h.m_count), expected.header[1]);
        EXPECT_EQ(std::to_string(h.m_sysUptime), expected.header[2]);
        EXPECT_EQ(std::to_string(h.m_unixSecs), expected.header[3]);
        EXPECT_EQ(std::to_string(h.m_packageSequence), expected.header[4]);
        EXPECT_EQ(std::to_string(h.m_sourceID), expected.header[5]);
        std::vector<std::string> decoded;
        for (const CNetFlowSetRecord& record : packet.GetRecords())
            decoded.push_back(Describe(record));
        EXPECT_EQ(decoded, expected.records);
    }
}

TEST_F(SoftflowdV9, FlowsMatchTheGeneratedTraffic) {
    CNetFlowPacketV9 first;
    ASSERT_EQ(first.Decode(ReadSample(1)), TRUE);
    CNetFlowPacketV9 second;
    ASSERT_EQ(second.Decode(ReadSample(2)), TRUE);
    // 1 options record and 24 flows, then the other 16 one-packet flows and the TCP flow.
    EXPECT_EQ(first.GetSize(), 25);
    EXPECT_EQ(second.GetSize(), 19);

    CUIntArray ids;
    CStringArray values;
    FieldsOf(first, "10.1.1.1", ids, values); // 3 UDP datagrams of 48, 58 and 68 IP bytes
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IPV4_DST_ADDR), L"10.2.2.2");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::L4_SRC_PORT), L"5353");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::L4_DST_PORT), L"53");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::PROT), L"UDP");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IN_BYTES), L"174");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IN_PKTS), L"3");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IP_PROTOCOL_VERSION), L"4");

    FieldsOf(first, "10.1.1.5", ids, values); // 2 echo requests of 84 IP bytes
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::PROT), L"ICMP");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IN_BYTES), L"168");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IN_PKTS), L"2");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::ICMP_TYPE), L"2048"); // type 8 * 256 + code 0

    FieldsOf(second, "10.1.1.3", ids, values); // SYN, ACK, 2 x PSH+ACK, FIN+ACK
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IPV4_DST_ADDR), L"10.2.2.4");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::L4_SRC_PORT), L"40000");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::L4_DST_PORT), L"80");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::PROT), L"TCP");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IN_BYTES), L"500");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::IN_PKTS), L"5");
    EXPECT_EQ(ValueFor(ids, values, CNetFlowField::TCP_FLAGS), L"27"); // FIN|SYN|PSH|ACK
}

TEST_F(SoftflowdV9, FirstDatagramAnnouncesTheTemplatesAndTheOptionsTemplate) {
    CNetFlowPacketV9 first;
    first.Decode(ReadSample(1));
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    for (int id : {1024, 1025, 2048, 2049, 256})
        EXPECT_NE(store->Lookup(id), nullptr) << id;
    auto v4 = store->Lookup(1024);
    ASSERT_NE(v4, nullptr);
    EXPECT_EQ(v4->m_fieldCount, 16);
    EXPECT_EQ(v4->GetRecordLength(), 42);
    auto options = store->Lookup(256);
    ASSERT_NE(options, nullptr);
    ASSERT_EQ(options->m_fields.size(), 4u); // scope interface; sampling interval, algorithm, interface name
    EXPECT_EQ(options->m_fields[0].IsScope(), TRUE);
    EXPECT_EQ(options->m_fields[0].GetType(), 2);
    EXPECT_EQ(options->m_fields[1].GetType(), CNetFlowField::SAMPLING_INTERVAL);
    EXPECT_EQ(options->m_fields[2].GetType(), CNetFlowField::SAMPLING_ALGORITHM);
    EXPECT_EQ(options->m_fields[3].GetType(), CNetFlowField::IF_NAME);
    EXPECT_EQ(options->m_fields[3].IsScope(), FALSE);
}

TEST_F(SoftflowdV9, SecondDatagramAloneHasNoTemplatesAndDecodesNoRecords) {
    CNetFlowPacketV9 second;
    EXPECT_EQ(second.Decode(ReadSample(2)), TRUE);
    EXPECT_TRUE(second.IsEmpty());
}

TEST_F(SoftflowdV9, RecordTextShowsFieldsTheCatalogueLacksByTheirBytes) {
    CNetFlowPacketV9 first;
    first.Decode(ReadSample(1));
    first.SetSenderInfo(L"127.0.0.1", 39555);
    CString text = first.ToString();
    EXPECT_EQ(text.find(L"NetFlow packet received from: 127.0.0.1:39555\r\nV9FlowHeader [ version = 9, "),
              0u);
    // The UDP flow's record: flow end reason (type 136, idle timeout = 1) is not in the catalogue.
    EXPECT_NE(text.find(L"*****Record 1*****\r\nIPV4_SRC_ADDR=10.1.1.1\r\nIPV4_DST_ADDR=10.2.2.2\r\n"),
              CString::npos);
    EXPECT_NE(
        text.find(L"DIRECTION=0\r\nUNKNOWN(136)=1 \r\nL4_SRC_PORT=5353\r\nL4_DST_PORT=53\r\nPROT=17\r\n"),
        CString::npos);
    EXPECT_NE(text.find(L"*****Record 24*****\r\n"), CString::npos);
    EXPECT_EQ(text.find(L"*****Record 25*****"), CString::npos);
}
