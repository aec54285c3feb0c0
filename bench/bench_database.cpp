// Database write throughput: 100,000 flow records of 12 fields each (1,300,000 rows) stored by the
// writer's WritePackets in one write, against the same rows bulk-loaded by the database's own tool
// (sqlite3 .import, psql \copy) into the same kind of database on the same machine.
//
// The Sample cases do the same with the rows nfcollect stores for nfreplay's v9 sample (5,000 datagrams of
// 20 records with 16 fields: 100,000 netflow_records rows and 1,600,000 netflow_attributes rows), SQLite in
// the collector's settings (WAL, synchronous=NORMAL) on both sides. After the table, one line per
// database gives the median writer rows/s over the median bulk-load rows/s of the same rows. For the
// bulk load alone: --benchmark_filter=BM_SampleBulkLoad (add --benchmark_format=json to read rows_per_s).
//
// Each case also shows where its time went: client_cpu is this process's CPU and that of the commands it
// ran (psql, sqlite3), server_cpu that of the PostgreSQL server's processes, each in cores over the case's
// wall time. A PostgreSQL case with server_cpu near 1 waits for its one server backend.
//
// Uses the data sources of the database tests: eval "$(scripts/odbc-env)" after scripts/pg-server start.
// Without TPNF_TEST_PG_DSN the PostgreSQL cases are skipped. Each case runs 3 times; read the median.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "corelib/TestDataSource.h"
#include "flows/FlowMaker.h"
#include "flows/FlowTable.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow9/NetFlowPacketV9.h"
#include "nfreplay/Samples.h"
#include "session/NetFlowDatabase.h"
#include "sflow/SFlowPacket.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowV9Datagram.h"
#include "util/TextConvert.h"

namespace {

using tpnf::test::Backend;
using tpnf::test::ByteBuilder;
using tpnf::test::NetFlowV9Datagram;
using tpnf::test::TestDataSource;
using tpnf::test::V9Header;

constexpr int kRecords = 100000;
constexpr int kRecordsPerPacket = 20;
constexpr int kFields = 12;
constexpr int64_t kRows = int64_t{kRecords} * (1 + kFields);

class BenchWriter : public CNetFlowDatabase {
public:
    explicit BenchWriter(const CString& dsn) { m_strDSN = dsn; }
};

// Decoded NetFlow v9 packets of kRecordsPerPacket records with the 12 fields of a typical IPv4 template:
// IPV4_SRC_ADDR, IPV4_DST_ADDR, IN_BYTES, PROT, SRC_TOS, L4_SRC_PORT, L4_DST_PORT, TCP_FLAGS, SRC_MASK,
// FIRST_SWITCHED, INPUT_SNMP, DST_MASK.
std::vector<std::unique_ptr<CNetFlowPacketV9>> MakePackets() {
    ByteBuilder records;
    for (int r = 0; r < kRecordsPerPacket; ++r)
        records.ipv4(10, 1, 2, 3)
            .ipv4(192, 168, 7, 20)
            .u32(1532)
            .u8(17)
            .u8(6)
            .u16(443)
            .u16(51234)
            .u8(0)
            .u8(24)
            .u32(1700000000)
            .u16(3)
            .u8(16);
    std::vector<std::unique_ptr<CNetFlowPacketV9>> packets;
    for (int p = 0; p < kRecords / kRecordsPerPacket; ++p) {
        const std::vector<uint8_t> datagram =
            NetFlowV9Datagram(
                V9Header{2, 0, 1700000000u + static_cast<uint32_t>(p), static_cast<uint32_t>(p), 0})
                .Template(310, {{8, 4},
                                {12, 4},
                                {1, 4},
                                {4, 1},
                                {5, 1},
                                {7, 2},
                                {11, 2},
                                {6, 1},
                                {9, 1},
                                {22, 4},
                                {10, 2},
                                {13, 1}})
                .Data(310, records.build())
                .build();
        auto packet = std::make_unique<CNetFlowPacketV9>();
        if (!packet->Decode(CByteArray(datagram.begin(), datagram.end())) ||
            packet->GetSize() != kRecordsPerPacket)
            std::abort();
        packet->SetSenderInfo(L"192.0.2.7", 2055);
        packets.push_back(std::move(packet));
    }
    return packets;
}

const std::vector<std::unique_ptr<CNetFlowPacketV9>>& Packets() {
    static const std::vector<std::unique_ptr<CNetFlowPacketV9>> packets = MakePackets();
    return packets;
}

bool Available(benchmark::State& state, const TestDataSource& source) {
    if (source.SkipReason().empty())
        return true;
    state.SkipWithError(source.SkipReason().c_str());
    return false;
}

// Seconds of CPU in /proc/<pid>/stat: user and system, its own and its waited-for children's.
double ProcessCpu(const std::string& pid, std::string& name) {
    std::ifstream in("/proc/" + pid + "/stat");
    std::string stat;
    if (!std::getline(in, stat))
        return 0;
    const size_t open = stat.find('('), close = stat.rfind(')');
    if (open == std::string::npos || close == std::string::npos)
        return 0;
    name = stat.substr(open + 1, close - open - 1);
    std::istringstream fields(stat.substr(close + 2)); // from the third field, the state
    std::vector<std::string> field(std::istream_iterator<std::string>(fields), {});
    if (field.size() < 15)
        return 0;
    // utime, stime, cutime, cstime are the 14th to 17th fields
    const double ticks =
        std::stod(field[11]) + std::stod(field[12]) + std::stod(field[13]) + std::stod(field[14]);
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The CPU of every PostgreSQL server process on this machine: the running ones, and through the
// postmaster's children times those that ended (a psql session's backend).
double ServerCpu() {
    double seconds = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string pid = entry.path().filename();
        if (!std::all_of(pid.begin(), pid.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        std::string name;
        const double cpu = ProcessCpu(pid, name);
        if (name == "postgres")
            seconds += cpu;
    }
    return seconds;
}

// This process and the commands it ran and waited for (psql, sqlite3).
double ClientCpu() {
    rusage self{}, children{};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(self.ru_utime) + seconds(self.ru_stime) + seconds(children.ru_utime) +
           seconds(children.ru_stime);
}

// A timed part: its wall time, and the CPU the client side and the PostgreSQL server used meanwhile, each
// as a share of one core over that time (one side near 1.0 while the other is not: that side bounds it).
struct Timing {
    double seconds = -1; // negative: the part failed
    double client = 0;
    double server = 0;
};

class Stopwatch {
public:
    Timing Stop() const {
        Timing timing;
        timing.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        timing.client = (ClientCpu() - m_client) / timing.seconds;
        timing.server = (ServerCpu() - m_server) / timing.seconds;
        return timing;
    }

private:
    double m_server = ServerCpu();
    double m_client = ClientCpu();
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

void Report(benchmark::State& state, const Timing& timing, int64_t rows = kRows) {
    state.SetIterationTime(timing.seconds);
    state.counters["rows_per_s"] = benchmark::Counter(static_cast<double>(rows) / timing.seconds);
    state.counters["client_cpu"] = timing.client;
    state.counters["server_cpu"] = timing.server;
}

// Rows in the two tables, read back after a load so that no case counts rows it did not store.
int64_t StoredRows(const TestDataSource& source) {
    CDatabase db;
    db.OpenEx(source.ConnectString());
    int64_t rows = 0;
    for (const wchar_t* table : {L"netflow_records", L"netflow_attributes"}) {
        CODBCRecordset rs(&db);
        rs.Open(CString(L"select count(*) as n from ") + table);
        rows += rs.GetLong(L"n");
    }
    return rows;
}

bool AllStored(benchmark::State& state, const TestDataSource& source, int64_t rows) {
    if (StoredRows(source) == rows)
        return true;
    state.SkipWithError("the tables do not hold every row");
    return false;
}

// The writer's data source: the test one, with extra attributes for SQLite.
CString WriterSource(const TestDataSource& source, std::wstring_view sqliteAttributes) {
    return source.GetBackend() == Backend::SQLite ? source.Name() + CString(sqliteAttributes) : source.Name();
}

template <typename Packet>
void TimeWriter(benchmark::State& state, Backend backend, const std::vector<std::unique_ptr<Packet>>& packets,
                int64_t rows, std::wstring_view sqliteAttributes, bool copy) {
    for (auto _ : state) {
        TestDataSource source(backend);
        if (!Available(state, source))
            return;
        BenchWriter writer(WriterSource(source, sqliteAttributes));
        writer.SetBulkCopy(copy ? TRUE : FALSE);
        if (writer.OpenDatabase() != 1) {
            state.SkipWithError(tpnf::ToUtf8(writer.m_strLastError).c_str());
            return;
        }
        for (const auto& packet : packets)
            writer.AddPacket(packet.get());
        Stopwatch stopwatch;
        int written = writer.WritePackets();
        const Timing timing = stopwatch.Stop();
        if (written != 1) {
            state.SkipWithError(tpnf::ToUtf8(writer.m_strLastError).c_str());
            return;
        }
        if (!AllStored(state, source, rows))
            return;
        Report(state, timing, rows);
    }
}

void BM_WriterWritePackets(benchmark::State& state, Backend backend, bool copy) {
    TimeWriter(state, backend, Packets(), kRows, L"", copy);
}

// The same rows as CSV files, written once.
struct CsvFiles {
    std::filesystem::path dir = tpnf::test::NewTempDir();
    std::filesystem::path records = dir / "records.csv";
    std::filesystem::path attributes = dir / "attributes.csv";

    explicit CsvFiles(const std::vector<std::unique_ptr<CNetFlowPacketV9>>& packets) {
        std::ofstream r(records);
        std::ofstream a(attributes);
        // The rows PrepareSQL writes, taken from the same packets.
        int id = 0;
        for (const auto& packet : packets)
            for (const CNetFlowSetRecord& record : packet->GetRecords()) {
                r << id << ',' << tpnf::ToUtf8(packet->GetSenderIPAddress()) << ',' << packet->GetSenderPort()
                  << ',' << packet->GetHeader().m_unixSecs << ",9\n";
                record.ForEachField([&](const CNetFlowField& field) {
                    a << id << ',' << field.GetType() << ',' << tpnf::ToUtf8(field.GetValue()) << '\n';
                });
                ++id;
            }
    }
    ~CsvFiles() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

const CsvFiles& Csv() {
    static const CsvFiles files(Packets());
    return files;
}

// The attributes of a data source in the odbc.ini that ODBCINI names.
std::map<std::string, std::string> DataSourceAttributes(const std::string& dsn) {
    std::map<std::string, std::string> attributes;
    const char* ini = std::getenv("ODBCINI");
    if (ini == nullptr)
        return attributes;
    std::ifstream in(ini);
    std::string line;
    bool inSection = false;
    auto trim = [](std::string s) {
        s.erase(0, s.find_first_not_of(" \t"));
        s.erase(s.find_last_not_of(" \t\r") + 1);
        return s;
    };
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line[0] == ';' || line[0] == '#')
            continue;
        if (line.front() == '[') {
            inSection = line == "[" + dsn + "]";
            continue;
        }
        size_t eq = line.find('=');
        if (inSection && eq != std::string::npos) {
            std::string key = trim(line.substr(0, eq));
            std::transform(key.begin(), key.end(), key.begin(),
                           [](unsigned char c) { return std::tolower(c); });
            attributes[key] = trim(line.substr(eq + 1));
        }
    }
    return attributes;
}

// Creates the writer's tables (a writer that opens and closes) so both loads fill the same schema.
bool CreateTables(benchmark::State& state, const TestDataSource& source, std::wstring_view sqliteAttributes) {
    BenchWriter writer(WriterSource(source, sqliteAttributes));
    if (writer.OpenDatabase() == 1)
        return true;
    state.SkipWithError(tpnf::ToUtf8(writer.m_strLastError).c_str());
    return false;
}

Timing TimeCommand(const std::string& command) {
    Stopwatch stopwatch;
    int status = std::system(command.c_str());
    Timing timing = stopwatch.Stop();
    if (status != 0)
        timing.seconds = -1;
    return timing;
}

// psql on the source's schema running each of commands, in one transaction.
std::string Psql(const TestDataSource& source, const std::vector<std::string>& commands) {
    auto pg = DataSourceAttributes(tpnf::test::PostgreSQLDsn());
    std::string command = "PGPASSWORD='" + pg["password"] + "' PGOPTIONS='-csearch_path=" + source.Schema() +
                          "' psql -q -1 -X -v ON_ERROR_STOP=1 -h '" + pg["servername"] + "' -p '" +
                          pg["port"] + "' -U '" + pg["username"] + "' '" + pg["database"] + "'";
    for (const std::string& c : commands)
        command += " -c \"" + c + "\"";
    return command;
}

std::string CopyFrom(const std::string& table, const std::filesystem::path& csv) {
    return "\\copy " + table + " from '" + csv.string() + "' with (format csv)";
}

void TimeBulkLoad(benchmark::State& state, Backend backend, const CsvFiles& csv, int64_t rows,
                  std::wstring_view sqliteAttributes, const std::string& sqlitePragmas) {
    for (auto _ : state) {
        TestDataSource source(backend);
        if (!Available(state, source) || !CreateTables(state, source, sqliteAttributes))
            return;
        std::string command;
        if (backend == Backend::SQLite) {
            command = "sqlite3 '" + source.SQLiteFile().string() + "' -cmd '" + sqlitePragmas +
                      "' '.mode csv' '.import " + csv.records.string() + " netflow_records' '.import " +
                      csv.attributes.string() + " netflow_attributes' > /dev/null"; // the pragma echoes "wal"
        } else {
            command = Psql(source, {CopyFrom("netflow_records", csv.records),
                                    CopyFrom("netflow_attributes", csv.attributes)});
        }
        const Timing timing = TimeCommand(command);
        if (timing.seconds < 0) {
            state.SkipWithError("the bulk load failed");
            return;
        }
        if (!AllStored(state, source, rows))
            return;
        Report(state, timing, rows);
    }
}

void BM_BulkLoad(benchmark::State& state, Backend backend) {
    TimeBulkLoad(state, backend, Csv(), kRows, L"", "pragma synchronous=normal");
}

// nfreplay's v9 sample as nfcollect stores it: kSampleDatagrams copies from one sender.
constexpr int kSampleDatagrams = 5000;
// The data-source attributes nfcollect --db writes. The test data source adds the one that has the driver
// lend its connection to the library, as nfcollect does (TPNF_TEST_SQLITE_INSERTS=driver: without it).
const std::wstring& CollectorSQLite() {
    static const std::wstring attributes = L";JournalMode=WAL;SyncPragma=NORMAL";
    return attributes;
}
constexpr char kCollectorPragmas[] = "pragma journal_mode=wal; pragma synchronous=normal";

struct SampleRows {
    std::vector<std::unique_ptr<CNetFlowPacketV9>> packets;
    int64_t rows = 0;
    std::unique_ptr<CsvFiles> csv;

    SampleRows() {
        const std::vector<uint8_t> datagram = tpnf::tools::MakeSample("v9");
        for (int p = 0; p < kSampleDatagrams; ++p) {
            auto packet = std::make_unique<CNetFlowPacketV9>();
            if (!packet->Decode(CByteArray(datagram.begin(), datagram.end())) || packet->GetSize() == 0)
                std::abort();
            packet->SetSenderInfo(L"127.0.0.1", 40000);
            for (const CNetFlowSetRecord& record : packet->GetRecords()) {
                rows += 1;
                record.ForEachField([&](const CNetFlowField&) { ++rows; });
            }
            packets.push_back(std::move(packet));
        }
        csv = std::make_unique<CsvFiles>(packets);
    }
};

const SampleRows& Sample() {
    static const SampleRows sample;
    return sample;
}

void BM_SampleWriter(benchmark::State& state, Backend backend, bool copy) {
    TimeWriter(state, backend, Sample().packets, Sample().rows, CollectorSQLite(), copy);
}

void BM_SampleBulkLoad(benchmark::State& state, Backend backend) {
    TimeBulkLoad(state, backend, *Sample().csv, Sample().rows, CollectorSQLite(), kCollectorPragmas);
}

// Flow rows as nfcollect --flows-db stores them: kFlowRows flows made from nfreplay's v5, v9 and sFlow
// samples in turn, written by the flows table in transactions of kFlowsPerWrite, against the same rows
// as CSV bulk-loaded into the same table (its indexes included). A NULL is an empty CSV field, which
// psql loads as NULL and sqlite3 as an empty text.
constexpr size_t kFlowRows = 200000;
constexpr size_t kFlowsPerWrite = 10000;

struct FlowRows {
    std::vector<CFlowRecord> flows;
    std::filesystem::path dir = tpnf::test::NewTempDir();
    std::filesystem::path csv = dir / "flows.csv";

    FlowRows() {
        CFlowMaker maker;
        std::vector<CByteArray> datagrams;
        std::vector<std::unique_ptr<CTPAbstractPacket>> packets;
        for (const char* kind : {"v5", "v9", "sflow"}) {
            datagrams.push_back(tpnf::tools::MakeSample(kind));
            std::unique_ptr<CTPAbstractPacket> packet;
            if (std::string_view(kind) == "v5")
                packet = std::make_unique<CNetFlowPacketV5>();
            else if (std::string_view(kind) == "v9")
                packet = std::make_unique<CNetFlowPacketV9>();
            else
                packet = std::make_unique<CSFlowPacket>();
            if (!packet->Decode(datagrams.back()))
                std::abort();
            packets.push_back(std::move(packet));
        }
        for (size_t i = 0; flows.size() < kFlowRows; ++i) {
            CFlowContext context;
            context.timeReceived = 1700000000000 + static_cast<int64_t>(i);
            context.exporter.bytes = {192, 0, 2, static_cast<uint8_t>(1 + i % 3)};
            context.exporter.length = 4;
            context.exporter.port = 2055;
            context.datagram = &datagrams[i % 3];
            maker.Append(*packets[i % 3], context, flows);
        }
        flows.resize(kFlowRows);
        std::ofstream out(csv);
        char text[CFlowRecord::TEXT_CAPACITY];
        for (const CFlowRecord& flow : flows) {
            for (size_t k = 0; k < FLOW_KEY_COUNT; ++k) {
                const auto key = static_cast<EFlowKey>(k);
                if (k != 0)
                    out << ',';
                if (flow.IsNull(key))
                    continue;
                if (CFlowRecord::KeyKind(key) == EFlowKeyKind::Integer)
                    out << flow.Get(key);
                else
                    out << '"' << flow.FormatText(key, text) << '"';
            }
            out << '\n';
        }
    }
    ~FlowRows() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

const FlowRows& Flows() {
    static const FlowRows rows;
    return rows;
}

int64_t StoredFlows(const TestDataSource& source) {
    CDatabase db;
    db.OpenEx(source.ConnectString());
    CODBCRecordset rs(&db);
    rs.Open(L"select count(*) as n from flows");
    return rs.GetLong(L"n");
}

bool AllFlowsStored(benchmark::State& state, const TestDataSource& source) {
    if (StoredFlows(source) == static_cast<int64_t>(kFlowRows))
        return true;
    state.SkipWithError("the flows table does not hold every row");
    return false;
}

// The flows table on a fresh database, as nfcollect --flows-db sets SQLite up.
bool OpenFlowTable(benchmark::State& state, const TestDataSource& source, CDatabase& db) {
    if (!Available(state, source))
        return false;
    db.OpenEx(L"DSN=" + WriterSource(source, CollectorSQLite()));
    CFlowTable(db).Create();
    return true;
}

void BM_FlowsWriter(benchmark::State& state, Backend backend, bool copy) {
    const FlowRows& rows = Flows();
    for (auto _ : state) {
        TestDataSource source(backend);
        CDatabase db;
        if (!OpenFlowTable(state, source, db))
            return;
        if (copy)
            db.OpenCopyConnection(source.ConnectString());
        CFlowTable table(db);
        Stopwatch stopwatch;
        for (size_t i = 0; i < rows.flows.size(); i += kFlowsPerWrite)
            table.Write(rows.flows.data() + i, std::min(kFlowsPerWrite, rows.flows.size() - i));
        const Timing timing = stopwatch.Stop();
        if (!AllFlowsStored(state, source))
            return;
        Report(state, timing, kFlowRows);
    }
}

void BM_FlowsBulkLoad(benchmark::State& state, Backend backend) {
    const FlowRows& rows = Flows();
    for (auto _ : state) {
        TestDataSource source(backend);
        {
            CDatabase db;
            if (!OpenFlowTable(state, source, db))
                return;
        }
        std::string command;
        if (backend == Backend::SQLite) {
            command = "sqlite3 '" + source.SQLiteFile().string() + "' -cmd '" + kCollectorPragmas +
                      "' '.mode csv' '.import " + rows.csv.string() + " flows' > /dev/null";
        } else {
            command = Psql(source, {CopyFrom("flows", rows.csv)});
        }
        const Timing timing = TimeCommand(command);
        if (timing.seconds < 0) {
            state.SkipWithError("the bulk load failed");
            return;
        }
        if (!AllFlowsStored(state, source))
            return;
        Report(state, timing, kFlowRows);
    }
}

// The most any INSERT-based writer can get from the server: the same rows, staged in tables of the same
// shape by \copy beforehand, moved into the tables by INSERT ... SELECT within the server, with no client
// and no parsing. PostgreSQL only (sqlite3 .import itself inserts row by row).
void TimeInsertCeiling(benchmark::State& state, const std::vector<std::string>& tables,
                       const std::vector<std::filesystem::path>& csvs, int64_t rows,
                       const std::function<bool(const TestDataSource&)>& create,
                       const std::function<int64_t(const TestDataSource&)>& stored) {
    for (auto _ : state) {
        TestDataSource source(Backend::PostgreSQL);
        if (!Available(state, source) || !create(source))
            return;
        std::vector<std::string> stage, insert;
        for (size_t i = 0; i < tables.size(); ++i) {
            stage.push_back("create table stage_" + tables[i] + " (like " + tables[i] + ")");
            stage.push_back(CopyFrom("stage_" + tables[i], csvs[i]));
            insert.push_back("insert into " + tables[i] + " select * from stage_" + tables[i]);
        }
        if (TimeCommand(Psql(source, stage)).seconds < 0) {
            state.SkipWithError("staging the rows failed");
            return;
        }
        const Timing timing = TimeCommand(Psql(source, insert));
        if (timing.seconds < 0) {
            state.SkipWithError("the insert failed");
            return;
        }
        if (stored(source) != rows) {
            state.SkipWithError("the tables do not hold every row");
            return;
        }
        Report(state, timing, rows);
    }
}

void BM_SampleInsertCeiling(benchmark::State& state) {
    TimeInsertCeiling(
        state, {"netflow_records", "netflow_attributes"}, {Sample().csv->records, Sample().csv->attributes},
        Sample().rows,
        [&](const TestDataSource& source) { return CreateTables(state, source, CollectorSQLite()); },
        [](const TestDataSource& source) { return StoredRows(source); });
}

void BM_FlowsInsertCeiling(benchmark::State& state) {
    TimeInsertCeiling(
        state, {"flows"}, {Flows().csv}, kFlowRows,
        [&](const TestDataSource& source) {
            CDatabase db;
            return OpenFlowTable(state, source, db);
        },
        [](const TestDataSource& source) { return StoredFlows(source); });
}

void Configure(benchmark::internal::Benchmark* b) {
    b->Iterations(1)->Repetitions(3)->UseManualTime()->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK_CAPTURE(BM_WriterWritePackets, SQLite, Backend::SQLite, false)->Apply(Configure);
BENCHMARK_CAPTURE(BM_BulkLoad, SQLite_sqlite3_import, Backend::SQLite)->Apply(Configure);
BENCHMARK_CAPTURE(BM_WriterWritePackets, PostgreSQL, Backend::PostgreSQL, false)->Apply(Configure);
BENCHMARK_CAPTURE(BM_WriterWritePackets, PostgreSQL_copy, Backend::PostgreSQL, true)->Apply(Configure);
BENCHMARK_CAPTURE(BM_BulkLoad, PostgreSQL_psql_copy, Backend::PostgreSQL)->Apply(Configure);
BENCHMARK_CAPTURE(BM_SampleWriter, SQLite, Backend::SQLite, false)->Apply(Configure);
BENCHMARK_CAPTURE(BM_SampleBulkLoad, SQLite_sqlite3_import, Backend::SQLite)->Apply(Configure);
BENCHMARK_CAPTURE(BM_SampleWriter, PostgreSQL, Backend::PostgreSQL, false)->Apply(Configure);
BENCHMARK_CAPTURE(BM_SampleWriter, PostgreSQL_copy, Backend::PostgreSQL, true)->Apply(Configure);
BENCHMARK_CAPTURE(BM_SampleBulkLoad, PostgreSQL_psql_copy, Backend::PostgreSQL)->Apply(Configure);
BENCHMARK_CAPTURE(BM_FlowsWriter, SQLite, Backend::SQLite, false)->Apply(Configure);
BENCHMARK_CAPTURE(BM_FlowsBulkLoad, SQLite_sqlite3_import, Backend::SQLite)->Apply(Configure);
BENCHMARK_CAPTURE(BM_FlowsWriter, PostgreSQL, Backend::PostgreSQL, false)->Apply(Configure);
BENCHMARK_CAPTURE(BM_FlowsWriter, PostgreSQL_copy, Backend::PostgreSQL, true)->Apply(Configure);
BENCHMARK_CAPTURE(BM_FlowsBulkLoad, PostgreSQL_psql_copy, Backend::PostgreSQL)->Apply(Configure);
BENCHMARK(BM_SampleInsertCeiling)->Name("BM_SampleInsertCeiling/PostgreSQL")->Apply(Configure);
BENCHMARK(BM_FlowsInsertCeiling)->Name("BM_FlowsInsertCeiling/PostgreSQL")->Apply(Configure);

namespace {

// The console table as usual, then the ratio of each writer's median rows/s to the bulk load of the
// same rows on the same database, where both ran.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    explicit RatioReporter(OutputOptions options) : ConsoleReporter(options) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name != "median" || run.error_occurred)
                continue;
            auto rate = run.counters.find("rows_per_s");
            if (rate != run.counters.end())
                m_medians[run.run_name.function_name] = rate->second.value; // "BM_x/capture"
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        static const struct {
            const char* writer;
            const char* bulk;
            const char* label;
            const char* what = "writer";
        } kPairs[] = {
            {"BM_WriterWritePackets/SQLite", "BM_BulkLoad/SQLite_sqlite3_import", "12-field rows, SQLite"},
            {"BM_WriterWritePackets/PostgreSQL", "BM_BulkLoad/PostgreSQL_psql_copy",
             "12-field rows, PostgreSQL"},
            {"BM_SampleWriter/SQLite", "BM_SampleBulkLoad/SQLite_sqlite3_import", "v9 sample rows, SQLite"},
            {"BM_SampleWriter/PostgreSQL", "BM_SampleBulkLoad/PostgreSQL_psql_copy",
             "v9 sample rows, PostgreSQL"},
            {"BM_FlowsWriter/SQLite", "BM_FlowsBulkLoad/SQLite_sqlite3_import", "flow rows, SQLite"},
            {"BM_FlowsWriter/PostgreSQL", "BM_FlowsBulkLoad/PostgreSQL_psql_copy", "flow rows, PostgreSQL"},
            {"BM_WriterWritePackets/PostgreSQL_copy", "BM_BulkLoad/PostgreSQL_psql_copy",
             "12-field rows, PostgreSQL", "writer with COPY"},
            {"BM_SampleWriter/PostgreSQL_copy", "BM_SampleBulkLoad/PostgreSQL_psql_copy",
             "v9 sample rows, PostgreSQL", "writer with COPY"},
            {"BM_FlowsWriter/PostgreSQL_copy", "BM_FlowsBulkLoad/PostgreSQL_psql_copy",
             "flow rows, PostgreSQL", "writer with COPY"},
            {"BM_SampleInsertCeiling/PostgreSQL", "BM_SampleBulkLoad/PostgreSQL_psql_copy",
             "v9 sample rows, PostgreSQL", "INSERT ... SELECT of staged rows"},
            {"BM_FlowsInsertCeiling/PostgreSQL", "BM_FlowsBulkLoad/PostgreSQL_psql_copy",
             "flow rows, PostgreSQL", "INSERT ... SELECT of staged rows"},
        };
        for (const auto& pair : kPairs) {
            auto writer = m_medians.find(pair.writer);
            auto bulk = m_medians.find(pair.bulk);
            if (writer == m_medians.end() || bulk == m_medians.end())
                continue;
            std::printf("%s/bulk load, %s: %.0f / %.0f rows/s = %.2f\n", pair.what, pair.label,
                        writer->second, bulk->second, writer->second / bulk->second);
        }
    }

private:
    std::map<std::string, double> m_medians;
};

// The console options the library's own reporter would take from the same flags.
benchmark::ConsoleReporter::OutputOptions ConsoleOptions(int argc, char** argv) {
    bool color = isatty(STDOUT_FILENO) != 0;
    bool tabular = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg(argv[i]);
        const bool on = arg.ends_with("=true") || arg.ends_with("=yes") || arg.ends_with("=1");
        if (arg.starts_with("--benchmark_color="))
            color = arg.ends_with("=auto") ? color : on;
        else if (arg == "--benchmark_counters_tabular" || arg.starts_with("--benchmark_counters_tabular="))
            tabular = arg == "--benchmark_counters_tabular" || on;
    }
    int options = benchmark::ConsoleReporter::OO_None;
    if (color)
        options |= benchmark::ConsoleReporter::OO_Color;
    if (tabular)
        options |= benchmark::ConsoleReporter::OO_Tabular;
    return static_cast<benchmark::ConsoleReporter::OutputOptions>(options);
}

} // namespace

int main(int argc, char** argv) {
    // Another format asked for on the command line replaces the table and the ratios.
    bool plain = true;
    for (int i = 1; i < argc; ++i)
        plain = plain && std::string_view(argv[i]).rfind("--benchmark_format=", 0) != 0;
    const benchmark::ConsoleReporter::OutputOptions options = ConsoleOptions(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (plain) {
        RatioReporter reporter(options);
        benchmark::RunSpecifiedBenchmarks(&reporter);
    } else {
        benchmark::RunSpecifiedBenchmarks();
    }
    benchmark::Shutdown();
    return 0;
}
