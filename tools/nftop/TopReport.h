#pragma once
// What nftop asks of the flows table and how it shows the answer.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tpnf::tools {

struct CTopOptions {
    std::string by = "src_addr";   // the column flows are grouped by
    std::string order = "bytes";   // bytes, packets or flows
    std::optional<int64_t> lastMs; // only flows that ended this recently
    uint64_t count = 10;           // rows shown
    bool scale = false;            // packets and bytes times the sampling rate
};

// One group of flows, or the sum of all of them.
struct CTopRow {
    std::optional<std::string> key; // the group's value; none for flows without one
    int64_t flows = 0;
    int64_t packets = 0;
    int64_t bytes = 0;
};

// The columns nftop groups by.
const std::vector<std::string>& TopColumns();
// "15m" (s, m, h or d after a whole number) in ms; none when the text is not such a time.
std::optional<int64_t> ParseDuration(const std::string& text);

// The select of the top groups, and the one of all flows, for flows that ended at nowMs - lastMs or
// later. Plain SQL that SQLite and PostgreSQL both run.
std::string TopSql(const CTopOptions& options, int64_t nowMs);
std::string TotalSql(const CTopOptions& options, int64_t nowMs);

// 999, 1.2K, 3.4M, 5.6G, 7.8T: thousands, one decimal.
std::string HumanCount(int64_t value);
// The report: a title line, the aligned table with each group's share of all flows, a total line.
std::string FormatReport(const CTopOptions& options, const std::string& lastText,
                         const std::vector<CTopRow>& rows, const CTopRow& total);

} // namespace tpnf::tools
