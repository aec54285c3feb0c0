#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "flows/FlowRecord.h"
#include "packet/TPAbstractPacket.h"
#include "util/Types.h"

enum class OutputFormat { Text, Fields, Json, Flows, None };

// Renders packets as UTF-8 in one of the output formats:
// - text: the packet's own rendering, "\n" line ends, a blank line after each packet;
// - fields: per record a "# <protocol> <sender> record <i>" line, then NAME=value lines, then a blank line
//   (a packet without records gets one "# <protocol> <sender> no records" line); backslashes and control
//   characters in values are written as \\ and \xNN, so every field stays on one line;
// - json: one object per packet per line;
// - flows: one object per flow per line, with the keys of every flow record in their order.
class CPacketPrinter {
public:
    explicit CPacketPrinter(OutputFormat format) : m_format(format) {}

    OutputFormat GetFormat() const { return m_format; }
    // The packet's output (flows: its flows, made by the caller); empty for the none format. Valid until
    // the next call.
    const std::string& Render(CTPAbstractPacket& packet, const std::vector<CFlowRecord>& flows);

    static void AppendFieldValue(std::string& out, std::string_view utf8);

private:
    void PrintText(CTPAbstractPacket& packet);
    void PrintFields(CTPAbstractPacket& packet);
    void PrintJson(CTPAbstractPacket& packet);

    OutputFormat m_format;
    std::string m_buffer; // reused for every packet
    CUIntArray m_ids;
    CStringArray m_values;
};
