// A collector under hostile or broken conditions: a flood of random datagrams at full loopback rate with
// valid ones in between, extreme NetFlow v9 templates, sFlow counts of 2^32-1, trace directories that
// cannot be written, a port that is taken. The collector must stay up, keep decoding what is valid and
// keep its memory bounded; what each test saw is printed for the record.

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "corelib/Utility.h"
#include "netflow9/NetFlowPacketV9.h"
#include "session/SessionTestSupport.h"
#include "support/ByteBuilder.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"
#include "util/TextConvert.h"

using namespace tpnf::test;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

// A line of /proc/self/status in kB ("VmRSS", "VmHWM"); 0 when unreadable.
long StatusKb(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(key) + ":";
    while (std::getline(status, line))
        if (line.rfind(prefix, 0) == 0)
            return std::strtol(line.c_str() + prefix.size(), nullptr, 10);
    return 0;
}

double Seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

// NetFlow v5 header and `records` records of 48 bytes, all well formed.
Bytes ValidV5(uint32_t sequence, int records) {
    ByteBuilder b;
    b.u16(5).u16(static_cast<uint32_t>(records)).u32(123456).u32(1700000000).u32(0);
    b.u32(sequence).u8(0).u8(0).u16(0);
    for (int i = 0; i < records; ++i) {
        b.ipv4(10, 0, 0, static_cast<uint8_t>(i)).ipv4(192, 168, 0, 1).ipv4(0, 0, 0, 0);
        b.u16(1).u16(2).u32(10).u32(1500).u32(100).u32(200);
        b.u16(1024).u16(80).u8(0).u8(0x12).u8(6).u8(0);
        b.u16(65001).u16(65002).u8(24).u8(16).u16(0);
    }
    return b.build();
}

// NetFlow v9 header (20 bytes) with the given flowset count.
ByteBuilder V9Header(uint32_t count) {
    ByteBuilder b;
    b.u16(9).u16(count).u32(3600000).u32(1700000000).u32(1).u32(0);
    return b;
}

// sFlow v5 header with an IPv4 agent, announcing `samples` samples.
ByteBuilder SFlowV5Header(uint32_t samples) {
    ByteBuilder b;
    b.u32(5).u32(1).ipv4(10, 9, 8, 7).u32(0).u32(1).u32(5000).u32(samples);
    return b;
}

// Starting points for the flood's mutations, one of each kind the dispatcher knows.
std::vector<Bytes> FloodSeeds() {
    std::vector<Bytes> seeds;
    seeds.push_back(ValidV5(1, 3));
    seeds.push_back(ByteBuilder().u16(1).u16(1).u32(1).u32(2).u32(3).zeros(48).build());
    seeds.push_back(ByteBuilder().u16(7).u16(1).u32(1).u32(2).u32(3).u32(4).u32(0).zeros(52).build());
    seeds.push_back(ByteBuilder()
                        .u16(8)
                        .u16(1)
                        .u32(1)
                        .u32(2)
                        .u32(3)
                        .u32(4)
                        .u8(0)
                        .u8(0)
                        .u8(1)
                        .u8(2)
                        .u32(0)
                        .zeros(28)
                        .build());
    // v9: a template of ids in the 60000s (kept apart from the other tests' ids), then data for it.
    ByteBuilder v9 = V9Header(2);
    v9.u16(0).u16(4 + 4 + 3 * 4).u16(60001).u16(3).u16(8).u16(4).u16(12).u16(4).u16(4).u16(1);
    v9.u16(60001).u16(4 + 2 * 9 + 2).ipv4(10, 0, 0, 1).ipv4(10, 0, 0, 2).u8(6);
    v9.ipv4(10, 0, 0, 3).ipv4(10, 0, 0, 4).u8(17).zeros(2);
    seeds.push_back(v9.build());
    // sFlow v5: one flow sample with an extended switch record and one counter sample.
    ByteBuilder sflow = SFlowV5Header(2);
    sflow.u32(1).u32(8 * 4 + 4 + 8 + 16).u32(1).u32(3).u32(400).u32(4000).u32(0).u32(1).u32(2).u32(1);
    sflow.u32(1001).u32(16).u32(10).u32(0).u32(20).u32(0);
    sflow.u32(2).u32(12 + 8 + 88).u32(2).u32(3).u32(1).u32(1).u32(88);
    for (uint32_t i = 0; i < 22; ++i)
        sflow.u32(i);
    seeds.push_back(sflow.build());
    return seeds;
}

// One garbage datagram: a seed with some bytes changed and its length cut or grown, or random bytes
// behind a known version word.
Bytes Garbage(std::mt19937& random, const std::vector<Bytes>& seeds) {
    std::uniform_int_distribution<int> byte(0, 255);
    Bytes d;
    if (random() % 2 == 0) {
        d = seeds[random() % seeds.size()];
        const int changes = 1 + static_cast<int>(random() % 8);
        for (int i = 0; i < changes && !d.empty(); ++i)
            d[random() % d.size()] = static_cast<uint8_t>(byte(random));
        if (random() % 3 == 0)
            d.resize(random() % (d.size() + 64), static_cast<uint8_t>(byte(random)));
    } else {
        static const uint32_t versions[] = {1, 5, 7, 8, 9, 2, 4, 5, 6, 0x1234};
        const uint32_t version = versions[random() % std::size(versions)];
        d.resize(random() % 1400);
        for (uint8_t& b : d)
            b = static_cast<uint8_t>(byte(random));
        if (version <= 9 && d.size() >= 2 && version != 2 && version != 4) {
            d[0] = 0;
            d[1] = static_cast<uint8_t>(version);
        } else if (d.size() >= 4) {
            d[0] = d[1] = d[2] = 0;
            d[3] = static_cast<uint8_t>(version);
        }
    }
    return d;
}

// Host window that takes, renders and deletes every packet, as a host does, counting the valid ones
// (those from the sender of valid datagrams).
class HostWnd : public CWnd {
public:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_NETFLOW_PACKET && session != nullptr) {
            CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
            session->GetPackets(packets);
            for (CTPAbstractPacket* packet : packets) {
                ++taken;
                try {
                    rendered += packet->ToString().size();
                } catch (const CInvalidArgException&) {
                    ++renderFailures; // v8 and v9 texts may need more than was decoded
                }
                if (packet->GetSenderPort() == static_cast<int>(validPort) &&
                    packet->GetProtocol() == L"NetFlow v5" && packet->GetSize() == validRecords)
                    ++validDecoded;
                delete packet;
            }
        } else if (message == WM_NETFLOW_ERROR) {
            ++errors;
        }
        return CWnd::WindowProc(message, wParam, lParam);
    }

    CNetFlowSession* session = nullptr;
    UINT validPort = 0;
    int64_t validRecords = 2;
    uint64_t taken = 0;
    uint64_t renderFailures = 0;
    uint64_t validDecoded = 0;
    uint64_t errors = 0;
    size_t rendered = 0;
};

class FaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        owner.CreateEx(loop, L"owner");
        owner.session = &session;
    }
    void TearDown() override {
        session.Stop();
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> rest;
        session.GetPackets(rest);
        DeletePackets(rest);
    }

    void Start() {
        ASSERT_TRUE(session.Init(&owner, 0, L""));
        port = session.GetLocalPort();
    }

    // Sends one datagram and runs the loop until the session has handled it.
    void Deliver(const Bytes& datagram) { Deliver(datagram, sender); }
    void Deliver(const Bytes& datagram, UdpSender& from) {
        const uint64_t before = session.GetStatistics().datagrams;
        from.Send(port, datagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return session.GetStatistics().datagrams == before + 1; }))
            << "datagram not received";
    }

    // Runs the loop until no datagram has arrived for `quiet`.
    void Drain(std::chrono::milliseconds quiet = std::chrono::milliseconds(300)) {
        uint64_t seen = session.GetStatistics().datagrams;
        auto last = Clock::now();
        while (Clock::now() - last < quiet) {
            if (loop.stopped())
                loop.restart();
            loop.run_one_for(std::chrono::milliseconds(10));
            if (session.GetStatistics().datagrams != seen) {
                seen = session.GetStatistics().datagrams;
                last = Clock::now();
            }
        }
    }

    asio::io_context loop;
    HostWnd owner;
    TestSession session;
    UdpSender sender;
    UINT port = 0;
};

} // namespace

TEST_F(FaultTest, RandomFloodLeavesCollectorUpDecodingValidDatagramsWithBoundedMemory) {
    Start();
    // A backlog of a few hundred datagrams, not of the whole flood: the loop drains it in a moment even
    // in a sanitized build. The flood still overruns it, and the system drops the rest.
    std::error_code bufferError;
    ASSERT_TRUE(session.m_pSocket->SetReceiveBufferSize(256 * 1024, bufferError)) << bufferError.message();
    UdpSender valid;
    owner.validPort = valid.LocalPort();
    const Bytes validDatagram = ValidV5(7, 2);

    // Warm up (first allocations of the loop, the catalogues and the template store) before measuring.
    for (int i = 0; i < 20; ++i)
        Deliver(validDatagram, valid);
    ASSERT_EQ(owner.validDecoded, 20u);
    owner.validDecoded = 0;

    double floodSeconds = kSanitized ? 3.0 : 5.0;
    if (const char* s = std::getenv("TPNF_FLOOD_SECONDS"); s != nullptr && std::atof(s) > 0)
        floodSeconds = std::atof(s);

    const long rssBefore = StatusKb("VmRSS");
    const CNetFlowSession::Statistics before = session.GetStatistics();
    std::atomic<bool> done{false};
    std::atomic<uint64_t> garbageSent{0};
    std::atomic<uint64_t> validSent{0};
    const UINT target = port;
    std::thread flood([&] {
        asio::io_context io;
        asio::ip::udp::socket garbageSocket(io, asio::ip::udp::endpoint(asio::ip::address_v4::loopback(), 0));
        const asio::ip::udp::endpoint to(asio::ip::address_v4::loopback(), static_cast<uint16_t>(target));
        std::mt19937 random(20261121);
        const std::vector<Bytes> seeds = FloodSeeds();
        const auto end = Clock::now() + std::chrono::duration<double>(floodSeconds);
        uint64_t n = 0;
        while (Clock::now() < end) {
            if (++n % 10 == 0) {
                valid.Send(target, validDatagram); // the main thread leaves this sender alone meanwhile
                ++validSent;
            } else {
                const Bytes d = Garbage(random, seeds);
                std::error_code error;
                garbageSocket.send_to(asio::buffer(d), to, 0, error);
                if (!error)
                    ++garbageSent;
            }
        }
        done = true;
    });
    long rssPeak = rssBefore;
    auto nextSample = Clock::now();
    const auto floodStart = Clock::now();
    while (!done) {
        if (loop.stopped())
            loop.restart();
        loop.run_one_for(std::chrono::milliseconds(10));
        if (Clock::now() >= nextSample) {
            rssPeak = std::max(rssPeak, StatusKb("VmRSS"));
            nextSample = Clock::now() + std::chrono::milliseconds(100);
        }
    }
    flood.join();
    Drain();
    const double elapsed = Seconds(Clock::now() - floodStart);
    rssPeak = std::max(rssPeak, StatusKb("VmRSS"));
    const long rssAfter = StatusKb("VmRSS");
    const CNetFlowSession::Statistics& after = session.GetStatistics();
    const uint64_t validDuringFlood = owner.validDecoded;

    // After the flood, valid datagrams sent one at a time are all decoded.
    owner.validDecoded = 0;
    for (int i = 0; i < 100; ++i) {
        const uint64_t wanted = owner.validDecoded + 1;
        valid.Send(port, validDatagram);
        ASSERT_TRUE(RunUntil(loop, [&] { return owner.validDecoded == wanted; })) << "valid datagram " << i;
    }

    const uint64_t received = after.datagrams - before.datagrams;
    std::printf("flood: %.1f s, sent %llu garbage + %llu valid; received %llu (%.0f/s): listed %llu, "
                "decode failures %llu, malformed %llu, ignored %llu; valid decoded during the flood %llu; "
                "host rendered %llu packets (%llu texts could not be rendered); RSS %ld kB before, "
                "peak %ld kB, after %ld kB (VmHWM %ld kB)%s\n",
                elapsed, static_cast<unsigned long long>(garbageSent.load()),
                static_cast<unsigned long long>(validSent.load()), static_cast<unsigned long long>(received),
                received / elapsed, static_cast<unsigned long long>(after.packets - before.packets),
                static_cast<unsigned long long>(after.decodeFailures - before.decodeFailures),
                static_cast<unsigned long long>(after.malformed - before.malformed),
                static_cast<unsigned long long>(after.ignored - before.ignored),
                static_cast<unsigned long long>(validDuringFlood),
                static_cast<unsigned long long>(owner.taken),
                static_cast<unsigned long long>(owner.renderFailures), rssBefore, rssPeak, rssAfter,
                StatusKb("VmHWM"), kSanitized ? " [sanitized build]" : "");

    EXPECT_TRUE(session.IsStarted());
    EXPECT_GT(received, 100u); // a sanitized build handles only about a hundred a second
    EXPECT_GT(validDuringFlood, 0u);
    // Every datagram was handled exactly one way.
    EXPECT_EQ(received, (after.packets - before.packets) + (after.decodeFailures - before.decodeFailures) +
                            (after.malformed - before.malformed) + (after.ignored - before.ignored));
    EXPECT_GT(after.malformed - before.malformed, 0u);
    // The abandoned packets of failed decodes are the only thing kept; the growth stays far below what
    // keeping the datagrams would take. The sanitizer's quarantine holds freed memory on top.
    const long boundKb = kSanitized ? 1024 * 1024 : 256 * 1024;
    EXPECT_LT(rssPeak - rssBefore, boundKb);
}

TEST_F(FaultTest, V9TemplateOf65535FieldsAndItsDataAreDecodedAndRendered) {
    // 65535 specifiers do not fit a UDP datagram (262140 bytes): handed to the socket's datagram handling
    // directly, as the receive loop would hand them over.
    owner.session = nullptr; // the packets stay listed for the test to take
    Start();
    const uint32_t id = 61000;
    static const uint16_t types[] = {1, 2, 4, 10}; // IN_BYTES, IN_PKTS, PROT, INPUT_SNMP: integers
    ByteBuilder tmpl = V9Header(1);
    // The flowset length cannot say 262148. 65532 ends it on a specifier boundary; the walk then goes on
    // inside the specifiers, reading each as a flowset header of length 0 or 1 that is stepped over.
    tmpl.u16(0).u16(65532).u16(id).u16(65535);
    for (uint32_t i = 0; i < 65535; ++i)
        tmpl.u16(types[i % 4]).u16(i < 65531 ? 1 : 0); // 65531 bytes per record, the last four empty
    ByteBuilder data = V9Header(1);
    data.u16(id).u16(4 + 65531);
    for (uint32_t i = 0; i < 65531; ++i)
        data.u8(i % 7);

    CNetFlowSocket socket(&session);
    const auto t0 = Clock::now();
    socket.OnReceive(tmpl.build(), L"127.0.0.1", 2055);
    const auto t1 = Clock::now();
    socket.OnReceive(data.build(), L"127.0.0.1", 2055);
    const auto t2 = Clock::now();

    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0]->GetSize(), 0); // the template datagram holds no records
    ASSERT_EQ(packets[1]->GetSize(), 1);
    CUIntArray ids;
    CStringArray values;
    packets[1]->GetRecordFields(0, ids, values);
    const auto t3 = Clock::now();
    ASSERT_EQ(ids.size(), 65535u);
    ASSERT_EQ(values.size(), 65535u);
    EXPECT_EQ(ids[0], 1u);
    EXPECT_EQ(ids[2], 4u);
    EXPECT_EQ(ids[65531], 10u);
    EXPECT_EQ(ids[65534], 4u);
    EXPECT_EQ(values[1], L"1");
    EXPECT_EQ(values[2], CNetFlowUtility::GetProtocol(2));
    EXPECT_EQ(values[65529], tpnf::FormatText(L"%d", 65529 % 7));
    EXPECT_EQ(values[65531], L""); // empty values render as nothing
    const CString text = packets[1]->ToString();
    const auto t4 = Clock::now();
    EXPECT_NE(text.find(L"*****Record 0*****\r\nIN_BYTES=0\r\nIN_PKTS=1\r\nPROT=2\r\nINPUT_SNMP=3\r\n"),
              CString::npos);
    const CString tail = L"\r\nINPUT_SNMP=\r\nIN_BYTES=\r\nIN_PKTS=\r\nPROT=\r\n";
    ASSERT_GT(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    std::printf(
        "v9 template of 65535 fields: template datagram of %zu bytes decoded in %.3f s, data datagram "
        "of %zu bytes in %.3f s, field list in %.3f s, text of %zu characters in %.3f s; RSS %ld kB\n",
        tmpl.size(), Seconds(t1 - t0), data.size(), Seconds(t2 - t1), Seconds(t3 - t2), text.size(),
        Seconds(t4 - t3), StatusKb("VmRSS"));
    DeletePackets(packets);
}

TEST_F(FaultTest, V9TemplateClaiming65535FieldsInAShortDatagramIsDroppedAndNotStored) {
    owner.session = nullptr; // the packets stay listed for the test to take
    Start();
    const uint32_t id = 61001;
    ByteBuilder tmpl = V9Header(1);
    tmpl.u16(0).u16(4 + 4 + 10 * 4).u16(id).u16(65535);
    for (uint32_t i = 0; i < 10; ++i)
        tmpl.u16(1).u16(4);
    Deliver(tmpl.build());
    EXPECT_EQ(session.GetStatistics().malformed, 1u);
    ByteBuilder data = V9Header(1);
    data.u16(id).u16(4 + 40).zeros(40);
    Deliver(data.build());
    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0]->GetSize(), 0); // no template was stored: the data flowset is skipped
    DeletePackets(packets);
}

namespace {

// sFlow v5 datagram with one flow sample holding the given record count and record bytes.
Bytes SFlowFlowSample(uint32_t recordCount, const Bytes& records, uint32_t samples = 1) {
    ByteBuilder b = SFlowV5Header(samples);
    b.u32(1).u32(32 + static_cast<uint32_t>(records.size())); // tag, sample length (not used)
    b.u32(1).u32(3).u32(400).u32(4000).u32(0).u32(1).u32(2).u32(recordCount);
    b.bytes(records);
    return b.build();
}

Bytes Rec(uint32_t format, const Bytes& body) {
    return ByteBuilder().u32(format).u32(static_cast<uint32_t>(body.size())).bytes(body).build();
}

} // namespace

TEST_F(FaultTest, SFlowCountsOf2To32Minus1EndInTheInvalidArgumentDropOrAreReadAsNothing) {
    owner.session = nullptr; // the packets stay listed for the test to take
    Start();
    const Bytes sw = Rec(1001, ByteBuilder().u32(10).u32(0).u32(20).u32(0).build());
    struct Case {
        const char* name;
        Bytes datagram;
        bool dropped; // malformed, else listed
    };
    const uint32_t all = 0xFFFFFFFF;
    std::vector<Case> cases;
    {
        ByteBuilder b = SFlowV5Header(all);
        b.u32(2).u32(12).u32(1).u32(1).u32(0); // one counter sample without records
        cases.push_back({"samples in the header", b.build(), true});
    }
    cases.push_back({"records in a flow sample", SFlowFlowSample(all, sw), true});
    {
        ByteBuilder b = SFlowV5Header(1);
        b.u32(2).u32(12).u32(1).u32(1).u32(all);
        cases.push_back({"records in a counter sample", b.build(), true});
    }
    {
        ByteBuilder b = SFlowV5Header(1);
        b.u32(4).u32(16).u32(1).u32(0).u32(1).u32(all);
        cases.push_back({"records in an expanded counter sample", b.build(), true});
    }
    {
        ByteBuilder gw;
        gw.u32(1).ipv4(10, 0, 0, 1).u32(1).u32(2).u32(3).u32(all); // next hop, AS words, segments
        cases.push_back({"AS path segments", SFlowFlowSample(1, Rec(1003, gw.build())), true});
    }
    for (uint32_t count : {all, 0x7FFFFFFFu}) {
        ByteBuilder gw;
        gw.u32(1).ipv4(10, 0, 0, 1).u32(1).u32(2).u32(3).u32(1).u32(2).u32(count).u32(65001);
        cases.push_back({count == all ? "AS numbers in a segment (-1)" : "AS numbers in a segment (2^31-1)",
                         SFlowFlowSample(1, Rec(1003, gw.build())), true});
    }
    for (uint32_t count : {all, 0x7FFFFFFFu}) {
        ByteBuilder body;
        body.u32(count).u32(1).u32(4);
        // -1 reads as no process at all, and the record is complete
        cases.push_back({count == all ? "processes (-1)" : "processes (2^31-1)",
                         SFlowFlowSample(1, Rec(17612803, body.build())), count != all});
    }
    for (uint32_t length : {all, 0x7FFFFFFFu}) {
        ByteBuilder body;
        body.u32(1).u32(1518).u32(4).u32(length).u32(0);
        cases.push_back({length == all ? "sampled header length (-1)" : "sampled header length (2^31-1)",
                         SFlowFlowSample(1, Rec(1, body.build())), true});
    }
    for (uint32_t length : {all, 0x7FFFFFFFu}) {
        ByteBuilder url;
        url.u32(1).u32(length).text("abcd"); // direction, then the URL string
        cases.push_back({length == all ? "URL length (-1)" : "URL length (2^31-1)",
                         SFlowFlowSample(1, Rec(1005, url.build())), true});
    }
    {
        ByteBuilder mpls;
        mpls.u32(1).ipv4(10, 0, 0, 1).u32(all).u32(7);
        cases.push_back({"MPLS label stack", SFlowFlowSample(1, Rec(1006, mpls.build())), true});
    }

    const long rssBefore = StatusKb("VmRSS");
    for (const Case& c : cases) {
        const CNetFlowSession::Statistics before = session.GetStatistics();
        const auto t0 = Clock::now();
        Deliver(c.datagram);
        const double took = Seconds(Clock::now() - t0);
        const CNetFlowSession::Statistics& after = session.GetStatistics();
        const uint64_t malformed = after.malformed - before.malformed;
        const uint64_t listed = after.packets - before.packets;
        std::printf("sFlow %s = 2^32-1 or as given: %s in %.4f s, RSS %ld kB\n", c.name,
                    malformed == 1 ? "dropped as malformed"
                    : listed == 1  ? "listed"
                                   : "other",
                    took, StatusKb("VmRSS"));
        EXPECT_EQ(malformed, c.dropped ? 1u : 0u) << c.name;
        EXPECT_EQ(listed, c.dropped ? 0u : 1u) << c.name;
        EXPECT_LT(took, 2.0) << c.name;
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
        session.GetPackets(packets);
        for (CTPAbstractPacket* p : packets)
            EXPECT_FALSE(p->ToString().empty());
        DeletePackets(packets);
    }
    // No count made the decoder reserve for what it claimed.
    EXPECT_LT(StatusKb("VmRSS") - rssBefore, 64 * 1024);
    EXPECT_TRUE(session.IsStarted());
}

TEST_F(FaultTest, UnwritableTraceDirectoriesCountFailuresAndDecodingResumes) {
    Start();
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("tpnf-fault-" + std::to_string(::getpid()) + ".txt");
    std::ofstream(file) << "not a directory";
    const CString saved = CUtility::GetPduTraceDir();
    session.SetTraceMode(TRUE);
    const int counter = CNetFlowSocket::GetTraceFileCounter();
    // Below a regular file, a directory that does not exist, and conversions in the directory text
    // (the directory is part of the file name's format: intended), none of which names a writable file.
    const CString dirs[] = {tpnf::FromUtf8(file.string() + "/"), L"/nonexistent-tpnf-dir/x/",
                            L"/tmp/%s%s%s%n%n/", L"/tmp/%99999999999d/"};
    for (const CString& dir : dirs) {
        CUtility::SetPduTraceDir(dir);
        Deliver(ValidV5(1, 1));
    }
    CUtility::SetPduTraceDir(saved);
    const CNetFlowSession::Statistics& stats = session.GetStatistics();
    EXPECT_EQ(stats.traceFailures, std::size(dirs));
    EXPECT_EQ(stats.traced, 0u);
    EXPECT_EQ(stats.packets, 0u);
    EXPECT_EQ(CNetFlowSocket::GetTraceFileCounter(), counter + static_cast<int>(std::size(dirs)));
    EXPECT_EQ(owner.errors, 0u); // trace failures are silent
    std::printf("unwritable trace directories: %llu datagrams, %llu trace failures, counter %d -> %d\n",
                static_cast<unsigned long long>(stats.datagrams),
                static_cast<unsigned long long>(stats.traceFailures), counter,
                CNetFlowSocket::GetTraceFileCounter());

    session.SetTraceMode(FALSE);
    Deliver(ValidV5(2, 1));
    EXPECT_EQ(session.GetStatistics().packets, 1u);
    EXPECT_EQ(owner.taken, 1u);
    std::filesystem::remove(file);
}

TEST_F(FaultTest, PortInUseFailsTheSecondSessionWhileTheFirstKeepsReceiving) {
    Start();
    HostWnd secondOwner;
    secondOwner.CreateEx(loop, L"second owner");
    TestSession second;
    secondOwner.session = &second;
    EXPECT_FALSE(second.Init(&secondOwner, port, L""));
    EXPECT_FALSE(second.IsStarted());
    EXPECT_TRUE(second.IsWindow()); // the hidden window is made whatever the socket outcome
    EXPECT_TRUE(static_cast<bool>(second.GetSocketError()));
    std::printf("port in use: second Init on port %u returned 0 (%s)\n", port,
                second.GetSocketError().message().c_str());
    second.Stop(); // does nothing: no socket

    Deliver(ValidV5(3, 1));
    EXPECT_EQ(owner.taken, 1u);
    EXPECT_EQ(secondOwner.taken, 0u);

    // A socket of another program on a port: the same refusal; once it is gone the port can be used.
    asio::io_context io;
    auto other =
        std::make_unique<asio::ip::udp::socket>(io, asio::ip::udp::endpoint(asio::ip::address_v4::any(), 0));
    const UINT otherPort = other->local_endpoint().port();
    EXPECT_FALSE(second.Init(&secondOwner, otherPort, L""));
    other.reset();
    EXPECT_TRUE(second.Init(&secondOwner, otherPort, L""));
    second.Stop();
}

TEST_F(FaultTest, LargestV9TemplatesCostTheirFieldsOnceAndReannouncingThemDoesNotGrowMemory) {
    // The template store keeps every id for the life of the process; what a hostile exporter can make
    // it hold is 65536 ids times the largest template a datagram carries. Measured here on 32 ids.
    owner.session = nullptr;
    Start();
    const uint32_t fields = (65507 - 20 - 4 - 4) / 4; // the most specifiers one UDP datagram holds
    auto announce = [&](uint32_t firstId, uint32_t ids) {
        CNetFlowSocket socket(&session);
        for (uint32_t id = firstId; id < firstId + ids; ++id) {
            ByteBuilder b = V9Header(1);
            b.u16(0).u16(4 + 4 + fields * 4).u16(id).u16(fields);
            for (uint32_t i = 0; i < fields; ++i)
                b.u16(1 + i % 80).u16(4);
            socket.OnReceive(b.build(), L"127.0.0.1", 2055);
        }
        CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
        session.GetPackets(packets);
        EXPECT_EQ(packets.size(), ids);
        DeletePackets(packets);
    };
    const uint32_t ids = 32;
    announce(63000, 1); // first use of the store and the catalogues
    const long before = StatusKb("VmRSS");
    announce(63001, ids);
    const long first = StatusKb("VmRSS");
    announce(63001, ids);
    const long again = StatusKb("VmRSS");
    const double bytesPerField = (first - before) * 1024.0 / (static_cast<double>(ids) * fields);
    std::printf("v9 template store: %u templates of %u fields took %ld kB (%.0f bytes per field, so at most "
                "about %.1f GB for all 65536 ids); announcing them once more: %+ld kB%s\n",
                ids, fields, first - before, bytesPerField, bytesPerField * fields * 65536 / 1e9,
                again - first, kSanitized ? " [sanitized build]" : "");
    EXPECT_LT(bytesPerField, kSanitized ? 512.0 : 128.0);
    // Replacing a template frees the one it replaces.
    EXPECT_LT(again - first, kSanitized ? 512 * 1024 : 8 * 1024);
}
