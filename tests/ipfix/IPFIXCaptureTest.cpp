// IPFIX messages from real exporters (softflowd, softflowd with biflows, pmacctd's nfprobe), made by
// tests/data/make_ipfix_captures.sh; tshark's reading of the same bytes is in ipfix_<exporter>.expected.
// Every header, every template and every field of every record is compared with tshark's: the field's
// bytes, and its text against tshark's text.

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/DecodeContext.h"
#include "util/TextConvert.h"

using tpnf::test::ExporterScope;
using tpnf::test::ExporterV4;

namespace {

const CExporterAddress kExporter = ExporterV4(127, 0, 0, 1, 40000);

struct ExpectedField {
    int offset = 0;
    std::string hex;
    std::string tsharkName;
    std::string text;
};

struct ExpectedRecord {
    int setId = 0;
    std::vector<ExpectedField> fields;
};

struct ExpectedMessage {
    std::vector<uint32_t> header;       // version length exportTime sequence domain
    std::vector<std::string> templates; // "id scope e/p/l ..."
    std::vector<ExpectedRecord> records;
};

CByteArray ReadDatagram(const std::string& exporter, int n) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/ipfix_" + exporter + "_" + std::to_string(n) +
                         ".bin",
                     std::ios::binary);
    return CByteArray(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<ExpectedMessage> ReadExpected(const std::string& exporter) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/ipfix_" + exporter + ".expected");
    EXPECT_TRUE(in.good()) << exporter;
    std::vector<ExpectedMessage> messages;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string kind;
        words >> kind;
        if (kind == "message") {
            ExpectedMessage& m = messages.emplace_back();
            int n = 0;
            words >> n;
            EXPECT_EQ(n, static_cast<int>(messages.size()));
            uint32_t value = 0;
            while (words >> value)
                m.header.push_back(value);
        } else if (kind == "template") {
            int n = 0;
            words >> n;
            std::string rest;
            std::getline(words, rest);
            messages.back().templates.push_back(rest.substr(1));
        } else if (kind == "record") {
            int n = 0;
            ExpectedRecord& r = messages.back().records.emplace_back();
            words >> n >> r.setId;
        } else if (kind == "field") {
            ExpectedField f;
            int size = 0;
            words >> f.offset >> size >> f.hex >> f.tsharkName;
            std::getline(words, f.text);
            f.text.erase(0, f.text.find_first_not_of(' '));
            messages.back().records.back().fields.push_back(f);
        }
    }
    return messages;
}

std::string Hex(const CByteArray& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t b : bytes) {
        text += kDigits[b >> 4];
        text += kDigits[b & 15];
    }
    return text;
}

// A template as the expectations file writes it: "id scopeCount element/enterprise/length ...".
std::string Describe(const CIPFIXTemplate& t) {
    std::string text = std::to_string(t.m_templateId) + " " + std::to_string(t.m_scopeFieldCount);
    for (size_t i = 0; i < t.m_fields.size(); ++i)
        text += " " + std::to_string(t.m_fields[i].GetType() & 0x7FFF) + "/" +
                std::to_string(t.m_enterprises[i]) + "/" + std::to_string(t.m_fields[i].GetLength());
    return text;
}

// The number our text shows: v9 catalogue integers of other than 1, 2 or 4 bytes are hexadecimal, and
// its 4-byte integers are signed.
uint64_t OurNumber(const CIPFIXField& field, const std::string& text) {
    CNetFlowField::Init();
    const size_t size = field.GetValueBytes().size();
    auto kind = CNetFlowField::m_FieldTypes.find(static_cast<CNetFlowField::eFields>(field.GetElementId()));
    if (!field.IsEnterprise() && kind != CNetFlowField::m_FieldTypes.end() &&
        kind->second == CNetFlowField::TYPE_INTEGER && size != 1 && size != 2 && size != 4)
        return std::stoull(text, nullptr, 16);
    const long long number = std::stoll(text);
    return number < 0 && size == 4 ? static_cast<uint64_t>(number + 4294967296ll)
                                   : static_cast<uint64_t>(number);
}

std::string Bare(std::string text) { // hexadecimal without separators, lower case
    std::string bare;
    for (char c : text)
        if (c != ':' && c != '-')
            bare += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return bare;
}

// tshark's "Nov 14, 2023 22:13:20.500000000 UTC" as milliseconds since 1970.
bool DateToMilliseconds(const std::string& text, int64_t& ms) {
    std::tm tm{};
    int nanoseconds = 0;
    char month[4] = {};
    int day = 0, year = 0;
    if (std::sscanf(text.c_str(), "%3s %d, %d %d:%d:%d.%d UTC", month, &day, &year, &tm.tm_hour, &tm.tm_min,
                    &tm.tm_sec, &nanoseconds) != 7)
        return false;
    static const std::string kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    tm.tm_mon = static_cast<int>(kMonths.find(month) / 3);
    tm.tm_mday = day;
    tm.tm_year = year - 1900;
    ms = static_cast<int64_t>(timegm(&tm)) * 1000 + nanoseconds / 1000000;
    return true;
}

// Compares one decoded field with tshark's reading; returns which kind of comparison it was.
std::string CheckField(const CIPFIXField& field, const ExpectedField& expected) {
    const std::string ours = tpnf::ToUtf8(field.GetValue());
    const std::string& theirs = expected.text;
    SCOPED_TRACE(expected.tsharkName + " ours " + ours + " tshark " + theirs);
    EXPECT_EQ(Hex(field.GetValueBytes()), expected.hex);
    static const std::regex kDecimal("\\d+"), kHexNumber("0x[0-9a-f]+"), kSeconds("\\d+\\.\\d+"),
        kIPv4("\\d+\\.\\d+\\.\\d+\\.\\d+"), kColonHex("[0-9a-f]{2}(:[0-9a-f]{2})*");
    int64_t ms = 0;
    in6_addr a{}, b{};
    if (field.IsEnterprise()) {
        // Ours is always hexadecimal; tshark reads reverse elements (RFC 5103) as numbers.
        if (std::regex_match(theirs, kDecimal))
            EXPECT_EQ(std::stoull(ours, nullptr, 16), std::stoull(theirs));
        else if (std::regex_match(theirs, kHexNumber))
            EXPECT_EQ(std::stoull(ours, nullptr, 16), std::stoull(theirs, nullptr, 16));
        else
            EXPECT_EQ(Bare(ours), Bare(theirs));
        return "enterprise hex";
    }
    if (std::regex_match(theirs, kIPv4)) {
        EXPECT_EQ(ours, theirs);
        return "IPv4 address";
    }
    if (std::regex_match(theirs, kDecimal)) {
        EXPECT_EQ(OurNumber(field, ours), std::stoull(theirs));
        return "number";
    }
    if (std::regex_match(theirs, kHexNumber)) {
        EXPECT_EQ(OurNumber(field, ours), std::stoull(theirs, nullptr, 16));
        return "number";
    }
    if (std::regex_match(theirs, kSeconds)) { // uptimes in seconds; ours in milliseconds
        EXPECT_EQ(OurNumber(field, ours), static_cast<uint64_t>(std::llround(std::stod(theirs) * 1000)));
        return "uptime";
    }
    if (std::regex_match(theirs, kColonHex)) {
        EXPECT_EQ(Bare(ours), Bare(theirs));
        return "MAC address";
    }
    if (inet_pton(AF_INET6, theirs.c_str(), &a) == 1) {
        EXPECT_EQ(inet_pton(AF_INET6, ours.c_str(), &b), 1);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
        return "IPv6 address";
    }
    if (DateToMilliseconds(theirs, ms)) {
        EXPECT_EQ(OurNumber(field, ours), static_cast<uint64_t>(ms));
        return "time";
    }
    EXPECT_EQ(ours.substr(0, ours.find('\0')), theirs);
    return "text";
}

struct Counts {
    int messages = 0, templates = 0, records = 0, fields = 0;
    std::map<std::string, int> kinds;
};

// Fatal failures end the check early: the counts then fall short of what the tests expect.
void CheckCapture(const std::string& exporter, Counts& counts) {
    CNetFlowTemplateManagerTestAccess::Reset();
    const std::vector<ExpectedMessage> expected = ReadExpected(exporter);
    for (size_t n = 1; n <= expected.size(); ++n) {
        SCOPED_TRACE(exporter + " datagram " + std::to_string(n));
        const ExpectedMessage& m = expected[n - 1];
        CIPFIXPacket packet;
        packet.SetDecodeContext(ExporterScope(kExporter));
        EXPECT_EQ(packet.Decode(ReadDatagram(exporter, static_cast<int>(n))), TRUE);
        const CIPFIXHeader& h = packet.GetHeader();
        EXPECT_EQ(std::vector<uint32_t>(
                      {h.m_version, h.m_length, h.m_exportTime, h.m_sequenceNumber, h.m_observationDomainId}),
                  m.header);
        EXPECT_FALSE(packet.GetNotes().overrun);
        EXPECT_EQ(packet.GetNotes().malformedSets, 0);
        EXPECT_EQ(packet.GetNotes().unknownTemplateSets, 0);
        ++counts.messages;

        for (const std::string& t : m.templates) {
            const int id = std::stoi(t);
            auto stored = std::dynamic_pointer_cast<const CIPFIXTemplate>(
                CNetFlowTemplateManager::GetInstance()->Lookup(
                    CTemplateScope{kExporter, h.m_observationDomainId, ETemplateProtocol::IPFIX}, id));
            ASSERT_NE(stored, nullptr) << id;
            EXPECT_EQ(Describe(*stored), t);
            ++counts.templates;
        }

        ASSERT_EQ(packet.GetRecords().size(), m.records.size());
        for (size_t r = 0; r < m.records.size(); ++r) {
            const CIPFIXRecord& record = packet.GetRecords()[r];
            EXPECT_EQ(record.GetTemplate()->m_templateId, m.records[r].setId);
            const std::vector<CIPFIXField> fields = record.GetFields();
            ASSERT_EQ(fields.size(), m.records[r].fields.size()) << "record " << r;
            for (size_t f = 0; f < fields.size(); ++f) {
                ++counts.kinds[CheckField(fields[f], m.records[r].fields[f])];
                ++counts.fields;
            }
            ++counts.records;
        }
    }
}

} // namespace

class IPFIXCapture : public EmptyTemplateStore {};

TEST_F(IPFIXCapture, SoftflowdAgreesWithTsharkOnEveryField) {
    Counts c;
    CheckCapture("softflowd", c);
    EXPECT_EQ(c.messages, 2);
    EXPECT_EQ(c.templates, 5); // four flow templates and an options template
    EXPECT_EQ(c.records, 46);  // 45 flows and the options record
    EXPECT_GT(c.kinds["number"], 0);
    EXPECT_GT(c.kinds["IPv4 address"], 0);
    EXPECT_GT(c.kinds["IPv6 address"], 0);
    EXPECT_GT(c.kinds["uptime"], 0);
    EXPECT_EQ(c.kinds["text"], 1); // the options record's interface name
    RecordProperty("fields", c.fields);
}

TEST_F(IPFIXCapture, SoftflowdBiflowsWithReverseElementsAgreeWithTsharkOnEveryField) {
    Counts c;
    CheckCapture("softflowd_bidir", c);
    EXPECT_EQ(c.messages, 3);
    EXPECT_EQ(c.records, 46);
    EXPECT_GT(c.kinds["enterprise hex"], 0); // reverse octets, packets, ToS, flags
    EXPECT_GT(c.kinds["MAC address"], 0);
    EXPECT_GT(c.kinds["time"], 0); // absolute milliseconds
    RecordProperty("fields", c.fields);
}

TEST_F(IPFIXCapture, PmacctAgreesWithTsharkOnEveryFieldIncludingVariableLengthEnterpriseLabels) {
    Counts c;
    CheckCapture("pmacct", c);
    EXPECT_EQ(c.messages, 10);
    EXPECT_EQ(c.records, 46);
    EXPECT_EQ(c.kinds["enterprise hex"], 2 * 46); // the label (variable length) and the layer 4 header
    EXPECT_GT(c.kinds["time"], 0);
    RecordProperty("fields", c.fields);
}

TEST_F(IPFIXCapture, PmacctRecordTextShowsLabelsVlansAndCountersAsExpected) {
    CNetFlowTemplateManagerTestAccess::Reset();
    CIPFIXPacket first;
    first.SetDecodeContext(ExporterScope(kExporter));
    ASSERT_EQ(first.Decode(ReadDatagram("pmacct", 1)), TRUE);
    ASSERT_EQ(first.GetSize(), 1);
    CUIntArray ids;
    CStringArray values;
    first.GetRecordFields(0, ids, values);
    std::map<std::wstring, std::wstring> byName;
    for (size_t i = 0; i < ids.size(); ++i)
        byName[CIPFIXField::GetFieldName(ids[i])] = values[i];
    EXPECT_EQ(byName[L"IPV4_SRC_ADDR"], L"10.1.1.1");
    EXPECT_EQ(byName[L"L4_DST_PORT"], L"53");
    EXPECT_EQ(byName[L"PROT"], L"UDP");
    EXPECT_EQ(byName[L"IN_BYTES"], L"00000000000000AE"); // 8 bytes: hexadecimal, as v9 shows them
    EXPECT_EQ(byName[L"SRC_TOS"], L"184");
    EXPECT_EQ(byName[L"E43874.3"], L"676F6C6400"); // the label "gold"
    EXPECT_EQ(byName[L"E43874.501"], L"14E90035"); // ports 5353 and 53
    EXPECT_EQ(byName[L"IN_SRC_MAC"], L"02:00:00:00:00:01");
}
