#include "netflow9/NetFlowPacketV9.h"

#include <algorithm>

#include "netflow9/NetFlowOptionsTemplate.h"
#include "netflow9/NetFlowRowWriter.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

CNetFlowPacketV9::CNetFlowPacketV9(const CNetFlowPacketV9& other) : CTPAbstractPacket(other) {
    Copy(other);
}

CNetFlowPacketV9& CNetFlowPacketV9::operator=(const CNetFlowPacketV9& other) {
    CTPAbstractPacket::operator=(other);
    Copy(other);
    return *this;
}

void CNetFlowPacketV9::Copy(const CNetFlowPacketV9& other) {
    m_header = other.m_header;
    if (&other == this)
        return;
    m_records = other.m_records;
}

int CNetFlowPacketV9::Decode(const CByteArray& datagram) {
    if (datagram.size() < 20)
        return FALSE;
    m_header.Decode(datagram);

    const int64_t size = static_cast<int64_t>(datagram.size());
    int offset = 20;
    while (offset < size) {
        const int start = offset;
        const int id = CNetFlowUtility::GetUShortOffset(datagram, offset);
        const int length = CNetFlowUtility::GetUShortOffset(datagram, offset);
        const int end = WrapAdd(start, length);
        // A length of 4 or less (0 included) holds nothing: the next flowset header follows the 4 bytes.
        if (offset >= end)
            continue;
        if (!DecodeFlowSet(datagram, id, offset, end))
            return TRUE; // a cut-off record ends the datagram; what was decoded stays
    }
    return TRUE;
}

void CNetFlowPacketV9::StoreTemplate(CNetFlowTemplateManager& store, bool scoped, const CTemplateScope& scope,
                                     const CNetFlowSetTemplate& decoded) {
    if (!scoped)
        return store.SetTemplate(decoded);
    // Stored as a plain template, as in the global scope; the scope flags travel with the fields.
    auto layout = std::make_shared<CNetFlowSetTemplate>();
    layout->m_templateId = decoded.m_templateId;
    layout->m_fieldCount = decoded.m_fieldCount;
    layout->m_fields = decoded.m_fields;
    const size_t bytes = CNetFlowTemplateManager::EstimateBytes(*layout);
    store.SetTemplate(scope, decoded.m_templateId, std::move(layout), bytes, false,
                      m_context.options.maxTemplates);
}

BOOL CNetFlowPacketV9::DecodeFlowSet(const CByteArray& datagram, int id, int& offset, int end) {
    CNetFlowTemplateManager* store = CNetFlowTemplateManager::GetInstance();
    const bool scoped = m_context.options.templateScope == ETemplateScope::Exporter;
    const CTemplateScope scope{m_context.exporter, m_header.m_sourceID, ETemplateProtocol::NetFlowV9};
    std::shared_ptr<const CNetFlowSetTemplate> layout;
    if (id >= 255) { // 255 itself is a data flowset: intended
        layout = scoped ? store->Lookup(scope, id) : store->Lookup(id);
        if (layout == nullptr) {
            // Data for a template not (yet) announced is lost, even if the template follows later.
            offset = end;
            return TRUE;
        }
        // Room for the records the flowset can hold, growing geometrically across flowsets.
        const int64_t recordBytes = layout->GetRecordLength();
        const int64_t span = std::min<int64_t>(end, static_cast<int64_t>(datagram.size())) - offset;
        const size_t needed =
            m_records.size() +
            static_cast<size_t>(std::max<int64_t>(1, recordBytes > 0 ? span / recordBytes : 1));
        if (needed > m_records.capacity())
            m_records.reserve(std::max(needed, 2 * m_records.capacity()));
    }

    do {
        if (id == 0) {
            CNetFlowSetTemplate decoded;
            decoded.Decode(datagram, offset);
            StoreTemplate(*store, scoped, scope, decoded);
        } else if (id < 255) { // every id from 1 to 254 announces an options template: intended
            CNetFlowOptionsTemplate decoded;
            decoded.Decode(datagram, offset);
            StoreTemplate(*store, scoped, scope, decoded);
        } else {
            const int recordStart = offset;
            CNetFlowSetRecord& record = m_records.emplace_back();
            if (!record.Decode(datagram, layout, offset)) {
                m_records.pop_back();
                return FALSE;
            }
            // A template whose fields total zero bytes would never reach the end: one record, then stop.
            if (offset == recordStart)
                offset = end;
        }
        // Fewer than 4 bytes left are padding; an overrun past the end is pulled back to it.
        if (static_cast<int64_t>(end) - offset < 4)
            offset = end;
    } while (offset < end);
    return TRUE;
}

CString CNetFlowPacketV9::ToString() const {
    CString text =
        tpnf::FormatText(L"NetFlow packet received from: %s:%d\r\n", m_strSenderIPAddress, m_nSenderPort);
    // Sequence and source id print signed: intended.
    tpnf::AppendFormat(text,
                       L"V9FlowHeader [ version = %d, flowSets = %d, sysUptime = %u, unixSecs = %u, "
                       L"packageSequence = %d, sourceID = %d ]",
                       m_header.m_version, m_header.m_count, m_header.m_sysUptime, m_header.m_unixSecs,
                       static_cast<int32_t>(m_header.m_packageSequence),
                       static_cast<int32_t>(m_header.m_sourceID));
    text += L"\r\n=====Records:=====";
    int counter = 0;
    for (const CNetFlowSetRecord& record : m_records) {
        tpnf::AppendFormat(text, L"\r\n*****Record %d*****\r\n", counter++);
        record.AppendText(text);
    }
    return text;
}

void CNetFlowPacketV9::GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) {
    ElementAt(m_records, recordIndex).GetRecordFields(fieldIds, values);
}

void CNetFlowPacketV9::PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) {
    if (recordId == -1)
        return;
    CNetFlowRowWriter writer(records, attributes);
    for (const CNetFlowSetRecord& record : m_records) {
        writer.AddRecord(recordId, static_cast<int32_t>(m_header.m_unixSecs), m_strSenderIPAddress,
                         m_nSenderPort, 9);
        record.ForEachField([&](const CNetFlowField& field) {
            writer.AddAttribute(recordId, field.GetType(), field.GetValue());
        });
        ++recordId;
    }
}
