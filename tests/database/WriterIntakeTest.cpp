// Packets handed to the writer while it writes: AddPacket never waits for the transaction, the packets
// go to the next write, and the stored rows and ids are those of writing the same packets one batch
// after the other.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "corelib/DataSourceTest.h"
#include "database/V9FlowPackets.h"
#include "database/WriterTestSupport.h"

using tpnf::test::Backend;
using tpnf::test::DataSourceTest;
using tpnf::test::DecodeThreeFieldPacket;
using tpnf::test::DirectWriter;
using tpnf::test::DumpTables;
using tpnf::test::TestDataSource;
using tpnf::test::ThreeFieldPacket;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

// A one-record packet that says when the writer reaches it and can hold the writer there.
class GatePacket : public CNetFlowPacketV9 {
public:
    explicit GatePacket(bool hold) : m_hold(hold) { DecodeThreeFieldPacket(*this, 7u, {200}); }

    void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_reached = true;
            m_changed.notify_all();
            if (m_hold)
                m_released = m_changed.wait_for(lock, 10s, [this] { return m_open; });
        }
        CNetFlowPacketV9::PrepareSQL(recordId, records, attributes);
    }

    bool WaitReached() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, 30s, [this] { return m_reached; });
    }
    void Release() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    // True when Release came while the writer was held here (not after the wait gave up).
    bool ReleasedInTime() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_released;
    }

private:
    const bool m_hold;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_reached = false;
    bool m_open = false;
    bool m_released = false;
};

class WriterIntakeTest : public DataSourceTest {
protected:
    std::unique_ptr<DirectWriter> OpenedWriter(const TestDataSource& source) {
        auto writer = std::make_unique<DirectWriter>(source.Name());
        EXPECT_EQ(writer->OpenDatabase(), 1) << tpnf::ToUtf8(writer->m_strLastError);
        return writer;
    }
};

// The writer is held inside its transaction until the test has added packets: were AddPacket to wait for
// the write, the hold would give up after 10 s and ReleasedInTime would be false.
TEST_P(WriterIntakeTest, AddPacketDuringAWriteReturnsAndGoesToTheNextWrite) {
    auto writer = OpenedWriter(Source());
    auto first = ThreeFieldPacket(1u, {1, 2});
    GatePacket gate(true);
    writer->AddPacket(first.get());
    writer->AddPacket(&gate);
    std::atomic<int> written{-1};
    std::thread writing([&] { written = writer->WritePackets(); });

    ASSERT_TRUE(gate.WaitReached());
    auto later = ThreeFieldPacket(2u, {3});
    writer->AddPacket(later.get());
    writer->AddPacket(later.get());
    EXPECT_EQ(writer->GetQueuedCount(), 4u); // the two being written and the two waiting
    gate.Release();
    writing.join();

    EXPECT_TRUE(gate.ReleasedInTime());
    EXPECT_EQ(written, 1);
    EXPECT_EQ(writer->m_Packets.size(), 2u);
    EXPECT_EQ(writer->GetQueuedCount(), 2u);
    EXPECT_EQ(DumpTables(Source().ConnectString()).size(), 3u + 9u + 1u); // ids 0-2, and the stored id

    EXPECT_EQ(writer->WritePackets(), 1);
    EXPECT_EQ(writer->GetQueuedCount(), 0u);
    const std::vector<std::string> rows = DumpTables(Source().ConnectString());
    ASSERT_EQ(rows.size(), 5u + 15u + 1u);
    EXPECT_EQ(rows[2], "netflow_records: 2|192.0.2.7|2055|7|9"); // the gate's record
    EXPECT_EQ(rows[3], "netflow_records: 3|192.0.2.7|2055|2|9");
    EXPECT_EQ(rows[4], "netflow_records: 4|192.0.2.7|2055|2|9");
    EXPECT_EQ(rows.back(), "netflow_record_id: 5");
}

// A failed write puts its packets back in front of those that arrived while it ran, in their order.
TEST_P(WriterIntakeTest, FailedWriteKeepsItsPacketsInFrontOfThoseAddedMeanwhile) {
    class FailingGate : public GatePacket {
    public:
        FailingGate() : GatePacket(true) {}
        void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
            GatePacket::PrepareSQL(recordId, records, attributes);
            AfxThrowInvalidArgException();
        }
    };
    auto writer = OpenedWriter(Source());
    auto first = ThreeFieldPacket(1u, {1});
    FailingGate gate;
    writer->AddPacket(first.get());
    writer->AddPacket(&gate);
    std::thread writing([&] { writer->WritePackets(); });
    ASSERT_TRUE(gate.WaitReached());
    auto later = ThreeFieldPacket(2u, {3});
    writer->AddPacket(later.get());
    gate.Release();
    writing.join();

    EXPECT_FALSE(writer->m_bStatusOK);
    EXPECT_EQ(writer->m_strLastError, L"Failed to execute query");
    const std::vector<CTPAbstractPacket*> expected{first.get(), &gate, later.get()};
    EXPECT_EQ(writer->m_Packets, expected);
    EXPECT_EQ(writer->GetQueuedCount(), 3u);
    EXPECT_EQ(DumpTables(Source().ConnectString()), std::vector<std::string>{"netflow_record_id: 0"});
}

// The health flag and error text are read during a write without waiting for it (the write holds m_Lock
// throughout), and show the write's outcome once it has ended.
TEST_P(WriterIntakeTest, PeekStatusAnswersDuringAWriteAndShowsItsOutcomeAfterwards) {
    class FailingGate : public GatePacket {
    public:
        FailingGate() : GatePacket(true) {}
        void PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) override {
            GatePacket::PrepareSQL(recordId, records, attributes);
            AfxThrowInvalidArgException();
        }
    };
    auto writer = OpenedWriter(Source());
    FailingGate gate;
    writer->AddPacket(&gate);
    std::thread writing([&] { writer->WritePackets(); });
    ASSERT_TRUE(gate.WaitReached());
    const bool lockFree = writer->m_Lock.try_lock();
    if (lockFree)
        writer->m_Lock.unlock();
    EXPECT_FALSE(lockFree); // the write is in progress and holds it
    CString error = L"unchanged";
    EXPECT_TRUE(writer->PeekStatus(error));
    EXPECT_EQ(error, L"");
    gate.Release();
    writing.join();
    EXPECT_TRUE(gate.ReleasedInTime());
    EXPECT_FALSE(writer->PeekStatus(error));
    EXPECT_EQ(error, L"Failed to execute query");
}

TEST(WriterStatusTest, FailedOpenIsPublished) {
    tpnf::test::SQLiteDsn(); // the ODBC configuration is in place
    DirectWriter writer(L"tpnf_no_such_source");
    EXPECT_EQ(writer.OpenDatabase(), 0);
    CString error;
    EXPECT_FALSE(writer.PeekStatus(error));
    EXPECT_EQ(error, writer.m_strLastError);
    EXPECT_NE(error.find(L"not found"), CString::npos) << tpnf::ToUtf8(error);
}

// AddPacket timed over many calls while a write of 100,000 rows runs on another thread; then the stored
// tables are compared whole with those of a second database given the same packets one write at a time.
TEST_P(WriterIntakeTest, AddPacketReturnsWithinAMillisecondWhileAHundredThousandRowsAreWritten) {
    constexpr int kPackets = 500;
    constexpr int kRecordsPerPacket = 50; // 25,000 records: 25,000 + 75,000 rows
    std::vector<int> seeds(kRecordsPerPacket);
    for (int s = 0; s < kRecordsPerPacket; ++s)
        seeds[static_cast<size_t>(s)] = s;
    std::vector<std::unique_ptr<CNetFlowPacketV9>> batch;
    for (int p = 0; p < kPackets; ++p)
        batch.push_back(ThreeFieldPacket(static_cast<uint32_t>(p), seeds));
    auto added = ThreeFieldPacket(999u, {1, 2});

    auto writer = OpenedWriter(Source());
    GatePacket start(false);
    writer->AddPacket(&start);
    for (const auto& packet : batch)
        writer->AddPacket(packet.get());
    std::atomic<bool> done{false};
    std::atomic<int> written{-1};
    std::thread writing([&] {
        written = writer->WritePackets();
        done = true;
    });
    ASSERT_TRUE(start.WaitReached());
    Clock::duration slowest{};
    int calls = 0;
    while (!done) {
        const auto before = Clock::now();
        writer->AddPacket(added.get());
        slowest = std::max(slowest, Clock::now() - before);
        ++calls;
        std::this_thread::sleep_for(200us);
    }
    writing.join();
    ASSERT_EQ(written, 1) << tpnf::ToUtf8(writer->m_strLastError);
    ASSERT_EQ(writer->m_Packets.size(), static_cast<size_t>(calls));
    ASSERT_EQ(writer->WritePackets(), 1);

    const double slowestMs = std::chrono::duration<double, std::milli>(slowest).count();
    std::printf("%d calls of AddPacket during the write, the slowest %.3f ms\n", calls, slowestMs);
    EXPECT_GE(calls, 20); // the write lasted long enough to measure anything
    EXPECT_LT(slowestMs, 1.0);

    TestDataSource reference(GetParam());
    auto sequential = OpenedWriter(reference);
    sequential->AddPacket(&start);
    for (const auto& packet : batch)
        sequential->AddPacket(packet.get());
    ASSERT_EQ(sequential->WritePackets(), 1);
    for (int c = 0; c < calls; ++c)
        sequential->AddPacket(added.get());
    ASSERT_EQ(sequential->WritePackets(), 1);
    const std::vector<std::string> rows = DumpTables(Source().ConnectString());
    const size_t records = 1 + kPackets * kRecordsPerPacket + 2 * static_cast<size_t>(calls);
    EXPECT_EQ(rows.size(), records * 4 + 1);
    EXPECT_EQ(rows.back(), "netflow_record_id: " + std::to_string(records));
    EXPECT_TRUE(rows == DumpTables(reference.ConnectString())); // whole tables: no diff printed
}

INSTANTIATE_TEST_SUITE_P(Backends, WriterIntakeTest, testing::Values(Backend::SQLite, Backend::PostgreSQL),
                         tpnf::test::BackendParamName);

} // namespace
