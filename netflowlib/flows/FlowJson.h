#pragma once

#include <string>
#include <string_view>

#include "flows/FlowRecord.h"

// A flow as one JSON object: every key in the record's order, integers as JSON numbers, null keys as
// null, texts as JSON strings.
class CFlowJson {
public:
    // Appends the object (no line end) to out; nothing is allocated beyond out's own growth.
    static void Append(std::string& out, const CFlowRecord& flow);
    // Appends text as a JSON string, quotes included; control characters as \n, \t ... or \u00XX.
    static void AppendString(std::string& out, std::string_view text);
};
