#include "TopReport.h"

#include <cinttypes>
#include <cstdio>

namespace tpnf::tools {

namespace {

std::string Filter(const CTopOptions& options, int64_t nowMs) {
    if (!options.lastMs)
        return std::string();
    return " where flow_end >= " + std::to_string(nowMs - *options.lastMs);
}

// The sums as the options ask for them: scaled by the sampling rate (1 where it is unknown) or not.
std::string Sums(const CTopOptions& options) {
    const char* factor = options.scale ? " * coalesce(sampling_rate, 1)" : "";
    return std::string("count(*) as flows, sum(packets") + factor + ") as packets, sum(bytes" + factor +
           ") as bytes";
}

std::string Percent(int64_t part, int64_t whole) {
    char text[16];
    std::snprintf(text, sizeof text, "%.1f%%", whole > 0 ? 100.0 * static_cast<double>(part) / whole : 0.0);
    return text;
}

} // namespace

const std::vector<std::string>& TopColumns() {
    static const std::vector<std::string> kColumns = {"src_addr", "dst_addr", "src_port", "dst_port",
                                                      "proto",    "exporter", "src_as",   "dst_as"};
    return kColumns;
}

std::optional<int64_t> ParseDuration(const std::string& text) {
    if (text.size() < 2 || text.size() > 10)
        return std::nullopt;
    int64_t number = 0;
    for (size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return std::nullopt;
        number = number * 10 + (text[i] - '0');
    }
    switch (text.back()) {
    case 's':
        return number * 1000;
    case 'm':
        return number * 60 * 1000;
    case 'h':
        return number * 3600 * 1000;
    case 'd':
        return number * 86400 * 1000;
    default:
        return std::nullopt;
    }
}

std::string TopSql(const CTopOptions& options, int64_t nowMs) {
    // Ties go by the group's value, groups without one last, so that every database lists the same.
    return "select " + options.by + " as k, " + Sums(options) + " from flows" + Filter(options, nowMs) +
           " group by " + options.by + " order by " + options.order + " desc, case when " + options.by +
           " is null then 1 else 0 end, " + options.by + " limit " + std::to_string(options.count);
}

std::string TotalSql(const CTopOptions& options, int64_t nowMs) {
    return "select " + Sums(options) + " from flows" + Filter(options, nowMs);
}

std::string HumanCount(int64_t value) {
    if (value < 1000)
        return std::to_string(value);
    static const char kUnits[] = "KMGTPE";
    double scaled = static_cast<double>(value) / 1000;
    size_t unit = 0;
    while (scaled >= 999.95 && unit + 1 < sizeof kUnits - 1) {
        scaled /= 1000;
        ++unit;
    }
    char text[24];
    std::snprintf(text, sizeof text, "%.1f%c", scaled, kUnits[unit]);
    return text;
}

std::string FormatReport(const CTopOptions& options, const std::string& lastText,
                         const std::vector<CTopRow>& rows, const CTopRow& total) {
    std::vector<std::vector<std::string>> cells;
    cells.push_back({options.by, "flows", "flows%", "packets", "packets%", "bytes", "bytes%"});
    for (const CTopRow& row : rows)
        cells.push_back({row.key.value_or("-"), HumanCount(row.flows), Percent(row.flows, total.flows),
                         HumanCount(row.packets), Percent(row.packets, total.packets), HumanCount(row.bytes),
                         Percent(row.bytes, total.bytes)});
    std::vector<size_t> widths(cells[0].size(), 0);
    for (const auto& line : cells)
        for (size_t c = 0; c < line.size(); ++c)
            widths[c] = std::max(widths[c], line[c].size());

    std::string out = "Top " + std::to_string(rows.size()) + " " + options.by + " by " + options.order +
                      ", " + (lastText.empty() ? "all flows" : "flows of the last " + lastText) +
                      (options.scale ? ", packets and bytes scaled by the sampling rate" : "") + "\n";
    for (const auto& line : cells) {
        for (size_t c = 0; c < line.size(); ++c) {
            const std::string padding(widths[c] - line[c].size(), ' ');
            // The group's value reads from the left, the numbers from the right.
            out += c == 0 ? line[c] + padding : "  " + padding + line[c];
        }
        out += "\n";
    }
    out += "Total: " + HumanCount(total.flows) + " flows, " + HumanCount(total.packets) + " packets, " +
           HumanCount(total.bytes) + " bytes\n";
    return out;
}

} // namespace tpnf::tools
