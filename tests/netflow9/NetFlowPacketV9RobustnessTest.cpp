// Damaged datagrams: decoding either finishes or raises CInvalidArgException, never anything else, and
// whatever was decoded can be rendered (run under ASan+UBSan to catch stray reads).

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

#include "netflow9/NetFlowPacketV9.h"
#include "netflow9/TemplateStoreReset.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"

using tpnf::test::ByteBuilder;
using tpnf::test::NetFlowV9Datagram;

namespace {

CByteArray Sample(const char* name) {
    std::ifstream in(std::string(TPNF_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    return CByteArray(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Outcome {
    int decoded = 0;
    int records = 0;
    int raised = 0;
    int rejected = 0;
};

void DecodeAndRender(const CByteArray& data, Outcome& outcome) {
    CNetFlowPacketV9 packet;
    try {
        if (!packet.Decode(data)) {
            ++outcome.rejected;
            return;
        }
        ++outcome.decoded;
    } catch (const CInvalidArgException&) {
        ++outcome.raised;
    }
    outcome.records += static_cast<int>(packet.GetSize());
    // Values that do not fit their kind (a 2-byte address, an odd IPv6 length) raise while rendering.
    try {
        (void)packet.ToString();
    } catch (const CInvalidArgException&) {
    }
    for (int i = 0; i < packet.GetSize(); ++i) {
        CUIntArray ids;
        CStringArray values;
        try {
            packet.GetRecordFields(i, ids, values);
        } catch (const CInvalidArgException&) {
        }
    }
}

} // namespace

class V9Robustness : public EmptyTemplateStore {};

TEST_F(V9Robustness, MutatedDatagramsDecodeOrRaiseInvalidArgumentOnly) {
    std::vector<CByteArray> seeds = {Sample("v9_softflowd_1.bin"), Sample("v9_softflowd_2.bin"),
                                     NetFlowV9Datagram()
                                         .Template(300, {{8, 4}, {12, 4}, {4, 1}, {27, 16}, {56, 6}, {82, 3}})
                                         .OptionsTemplate(301, {{1, 4}}, {{34, 4}})
                                         .Data(300, ByteBuilder().zeros(34 * 3), 2)
                                         .Data(301, ByteBuilder().u32(1).u32(2))
                                         .build()};
    ASSERT_GT(seeds[0].size(), 20u);
    std::mt19937 random(20240229);
    Outcome outcome;
    for (int round = 0; round < 4000; ++round) {
        CByteArray data = seeds[static_cast<size_t>(round) % seeds.size()];
        // Flip up to 8 bytes; sometimes cut the datagram short.
        int flips = static_cast<int>(random() % 9);
        for (int i = 0; i < flips; ++i)
            data[random() % data.size()] = static_cast<uint8_t>(random());
        if (random() % 4 == 0)
            data.resize(random() % data.size());
        DecodeAndRender(data, outcome);
    }
    // Every kind of ending was reached, and decoding made progress on most inputs.
    EXPECT_GT(outcome.decoded, 2000);
    EXPECT_GT(outcome.raised, 100);
    EXPECT_GT(outcome.rejected, 10);
    EXPECT_GT(outcome.records, 20000);
}
