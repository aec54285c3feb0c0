#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "packet/TPAbstractPacket.h"
#include "util/Types.h"

enum class OutputFormat { Text, Fields, Json, None };

// Writes packets to a stream as UTF-8 in one of the output formats:
// - text: the packet's own rendering, "\n" line ends, a blank line after each packet;
// - fields: per record a "# <protocol> <sender> record <i>" line, then NAME=value lines, then a blank line
//   (a packet without records gets one "# <protocol> <sender> no records" line); backslashes and control
//   characters in values are written as \\ and \xNN, so every field stays on one line;
// - json: one object per packet per line.
class CPacketPrinter {
public:
    CPacketPrinter(OutputFormat format, std::FILE* out) : m_format(format), m_out(out) {}

    void Print(CTPAbstractPacket& packet);

    static void AppendJsonString(std::string& out, std::string_view utf8);
    static void AppendFieldValue(std::string& out, std::string_view utf8);

private:
    void PrintText(CTPAbstractPacket& packet);
    void PrintFields(CTPAbstractPacket& packet);
    void PrintJson(CTPAbstractPacket& packet);

    OutputFormat m_format;
    std::FILE* m_out;
    std::string m_buffer; // reused for every packet
    CUIntArray m_ids;
    CStringArray m_values;
};
