#include "PacketPrinter.h"

#include "flows/FlowJson.h"
#include "ipfix/IPFIXField.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow9/NetFlowField.h"
#include "util/Format.h"
#include "util/TextConvert.h"

namespace {

constexpr char kHex[] = "0123456789abcdef";

// IPFIX packets list IANA and enterprise element ids beside the v9 catalogue's.
CString FieldName(const CTPAbstractPacket& packet, uint32_t id) {
    if (dynamic_cast<const CIPFIXPacket*>(&packet) != nullptr)
        return CIPFIXField::GetFieldName(id);
    return CNetFlowField::GetName(static_cast<CNetFlowField::eFields>(id));
}

std::string Sender(const CTPAbstractPacket& packet) {
    return tpnf::ToUtf8(packet.GetSenderIPAddress()) + ":" + std::to_string(packet.GetSenderPort());
}

} // namespace

const std::string& CPacketPrinter::Render(CTPAbstractPacket& packet, const std::vector<CFlowRecord>& flows) {
    m_buffer.clear();
    switch (m_format) {
    case OutputFormat::Text:
        PrintText(packet);
        break;
    case OutputFormat::Fields:
        PrintFields(packet);
        break;
    case OutputFormat::Json:
        PrintJson(packet);
        break;
    case OutputFormat::Flows:
        for (const CFlowRecord& flow : flows) {
            CFlowJson::Append(m_buffer, flow);
            m_buffer += '\n';
        }
        break;
    case OutputFormat::None:
        break;
    }
    return m_buffer;
}

void CPacketPrinter::PrintText(CTPAbstractPacket& packet) {
    const std::string text = tpnf::ToUtf8(packet.ToString());
    m_buffer.reserve(text.size() + 2);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')
            continue;
        m_buffer += text[i];
    }
    m_buffer += "\n\n";
}

void CPacketPrinter::PrintFields(CTPAbstractPacket& packet) {
    const std::string heading = "# " + tpnf::ToUtf8(packet.GetProtocol()) + " " + Sender(packet);
    const int64_t size = packet.GetSize();
    if (size <= 0) {
        m_buffer += heading + " no records\n\n";
        return;
    }
    for (int64_t i = 0; i < size; ++i) {
        m_ids.clear();
        m_values.clear();
        packet.GetRecordFields(static_cast<int>(i), m_ids, m_values);
        m_buffer += heading;
        m_buffer += " record ";
        m_buffer += std::to_string(i);
        m_buffer += '\n';
        for (size_t k = 0; k < m_ids.size() && k < m_values.size(); ++k) {
            m_buffer += tpnf::ToUtf8(FieldName(packet, m_ids[k]));
            m_buffer += '=';
            AppendFieldValue(m_buffer, tpnf::ToUtf8(m_values[k]));
            m_buffer += '\n';
        }
        m_buffer += '\n';
    }
}

void CPacketPrinter::PrintJson(CTPAbstractPacket& packet) {
    m_buffer += "{\"sender\":";
    CFlowJson::AppendString(m_buffer, Sender(packet));
    m_buffer += ",\"protocol\":";
    CFlowJson::AppendString(m_buffer, tpnf::ToUtf8(packet.GetProtocol()));
    m_buffer += ",\"timestamp\":";
    try {
        CFlowJson::AppendString(m_buffer, tpnf::ToUtf8(packet.GetTimestamp()));
    } catch (const CInvalidArgException&) {
        m_buffer += "null"; // an export time before 1970 has no local time
    }
    m_buffer += ",\"uptime\":";
    CFlowJson::AppendString(m_buffer, tpnf::ToUtf8(packet.GetSysUpTime()));
    const int64_t size = packet.GetSize();
    m_buffer += ",\"size\":";
    m_buffer += std::to_string(size);
    m_buffer += ",\"records\":[";
    for (int64_t i = 0; i < size; ++i) {
        m_ids.clear();
        m_values.clear();
        packet.GetRecordFields(static_cast<int>(i), m_ids, m_values);
        m_buffer += i == 0 ? "[" : ",[";
        for (size_t k = 0; k < m_ids.size() && k < m_values.size(); ++k) {
            m_buffer += k == 0 ? "{\"id\":" : ",{\"id\":";
            m_buffer += std::to_string(m_ids[k]);
            m_buffer += ",\"name\":";
            CFlowJson::AppendString(m_buffer, tpnf::ToUtf8(FieldName(packet, m_ids[k])));
            m_buffer += ",\"value\":";
            CFlowJson::AppendString(m_buffer, tpnf::ToUtf8(m_values[k]));
            m_buffer += '}';
        }
        m_buffer += ']';
    }
    m_buffer += "]}\n";
}

void CPacketPrinter::AppendFieldValue(std::string& out, std::string_view utf8) {
    for (char ch : utf8) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c == '\\') {
            out += "\\\\";
        } else if (c < 0x20 || c == 0x7F) {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
        } else {
            out += ch;
        }
    }
}
