#include "flows/FlowJson.h"

#include <charconv>

void CFlowJson::AppendString(std::string& out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out += '"';
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (byte < 0x20) {
                out += "\\u00";
                out += kHex[byte >> 4];
                out += kHex[byte & 0x0F];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void CFlowJson::Append(std::string& out, const CFlowRecord& flow) {
    char text[CFlowRecord::TEXT_CAPACITY];
    out += '{';
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i) {
        const auto key = static_cast<EFlowKey>(i);
        if (i != 0)
            out += ',';
        out += '"';
        out += CFlowRecord::KeyName(key);
        out += "\":";
        if (flow.IsNull(key)) {
            out += "null";
        } else if (CFlowRecord::KeyKind(key) == EFlowKeyKind::Integer) {
            char digits[24];
            auto result = std::to_chars(digits, digits + sizeof digits, flow.Get(key));
            out.append(digits, result.ptr);
        } else {
            AppendString(out, flow.FormatText(key, text));
        }
    }
    out += '}';
}
