#include "ipfix/IPFIXPacket.h"

#include <algorithm>
#include <memory>

#include "netflow9/NetFlowRowWriter.h"
#include "netflow9/NetFlowTemplateManager.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"

namespace {

constexpr int kHeaderLength = 16;
constexpr int kTemplateSet = 2;
constexpr int kOptionsTemplateSet = 3;
constexpr int kFirstDataSet = 256;

} // namespace

CIPFIXPacket::CIPFIXPacket(const CIPFIXPacket& other) : CTPAbstractPacket(other) {
    Copy(other);
}

CIPFIXPacket& CIPFIXPacket::operator=(const CIPFIXPacket& other) {
    CTPAbstractPacket::operator=(other);
    Copy(other);
    return *this;
}

void CIPFIXPacket::Copy(const CIPFIXPacket& other) {
    if (&other == this)
        return;
    m_header = other.m_header;
    m_records = other.m_records;
    m_notes = other.m_notes;
}

int CIPFIXPacket::Decode(const CByteArray& datagram) {
    if (datagram.size() < kHeaderLength)
        return FALSE;
    m_header.Decode(datagram);
    if (m_header.m_version != 10 || m_header.m_length < kHeaderLength || m_header.m_length > datagram.size())
        return FALSE;

    CNetFlowTemplateManager* store = nullptr;
    const CTemplateScope scope{m_context.exporter, m_header.m_observationDomainId, ETemplateProtocol::IPFIX};
    const int end = static_cast<int>(m_header.m_length);
    int offset = kHeaderLength;
    // Fewer than 4 bytes after the last set cannot be a set: they are ignored.
    while (end - offset >= 4) {
        const int setId = CNetFlowUtility::GetUShort(datagram, offset);
        const int setLength = CNetFlowUtility::GetUShort(datagram, offset + 2);
        if (setLength < 4 || setLength > end - offset) {
            // The next set cannot be found: keep what was decoded, drop the rest.
            m_notes.overrun = true;
            break;
        }
        const int setEnd = offset + setLength;
        if (store == nullptr &&
            (setId == kTemplateSet || setId == kOptionsTemplateSet || setId >= kFirstDataSet))
            store = CNetFlowTemplateManager::GetInstance();
        if (setId == kTemplateSet || setId == kOptionsTemplateSet)
            DecodeTemplateSet(datagram, setId, offset + 4, setEnd, *store, scope);
        else if (setId >= kFirstDataSet)
            DecodeDataSet(datagram, setId, offset + 4, setEnd, *store, scope);
        // Set ids 0, 1 and 4 to 255 are unassigned or reserved: such a set is skipped.
        offset = setEnd;
    }
    return TRUE;
}

void CIPFIXPacket::DecodeTemplateSet(const CByteArray& datagram, int setId, int offset, int end,
                                     CNetFlowTemplateManager& store, const CTemplateScope& scope) {
    const bool options = setId == kOptionsTemplateSet;
    // Fewer than 4 bytes left are padding.
    while (end - offset >= 4) {
        auto decoded = std::make_shared<CIPFIXTemplate>();
        if (!decoded->Decode(datagram, offset, end, options)) {
            ++m_notes.malformedSets;
            return;
        }
        const int id = decoded->m_templateId;
        if (decoded->m_fieldCount == 0) {
            // A withdrawal; the set's own id as template id withdraws every template of the set's kind.
            ++m_notes.withdrawals;
            if (id == setId)
                store.WithdrawAll(scope, options);
            else
                store.Withdraw(scope, id);
            continue;
        }
        if (id < kFirstDataSet) {
            ++m_notes.malformedSets;
            return;
        }
        ++m_notes.templates;
        const size_t bytes = decoded->GetMemoryBytes();
        store.SetTemplate(scope, id, std::move(decoded), bytes, options, m_context.options.maxTemplates);
    }
}

void CIPFIXPacket::DecodeDataSet(const CByteArray& datagram, int setId, int offset, int end,
                                 CNetFlowTemplateManager& store, const CTemplateScope& scope) {
    auto layout = std::dynamic_pointer_cast<const CIPFIXTemplate>(store.Lookup(scope, setId));
    if (layout == nullptr) {
        // Data for a template not (yet) announced is lost, even if the template follows later.
        ++m_notes.unknownTemplateSets;
        return;
    }
    const int64_t minimum = layout->m_minRecordLength;
    if (minimum <= 0) {
        ++m_notes.malformedSets; // a record of no bytes would never end the set
        return;
    }
    // Room for the records the set can hold, growing geometrically across sets.
    const size_t needed = m_records.size() + static_cast<size_t>((end - offset) / minimum);
    if (needed > m_records.capacity())
        m_records.reserve(std::max(needed, 2 * m_records.capacity()));
    // Fewer bytes left than the smallest record are padding.
    while (end - offset >= minimum) {
        CIPFIXRecord& record = m_records.emplace_back();
        if (!record.Decode(datagram, layout, offset, end)) {
            m_records.pop_back();
            ++m_notes.malformedSets;
            return;
        }
    }
}

CString CIPFIXPacket::GetTimestamp() const {
    return FormatTimestamp(static_cast<int64_t>(m_header.m_exportTime));
}

CString CIPFIXPacket::ToString() const {
    CString text =
        tpnf::FormatText(L"IPFIX packet received from: %s:%d\r\n", m_strSenderIPAddress, m_nSenderPort);
    tpnf::AppendFormat(text,
                       L"IPFIXHeader [ version = %u, length = %u, exportTime = %u, sequenceNumber = %u, "
                       L"observationDomainId = %u ]",
                       m_header.m_version, m_header.m_length, m_header.m_exportTime,
                       m_header.m_sequenceNumber, m_header.m_observationDomainId);
    text += L"\r\n=====Records:=====";
    int counter = 0;
    for (const CIPFIXRecord& record : m_records) {
        tpnf::AppendFormat(text, L"\r\n*****Record %d*****\r\n", counter++);
        record.AppendText(text);
    }
    return text;
}

void CIPFIXPacket::GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) {
    ElementAt(m_records, recordIndex).GetRecordFields(fieldIds, values);
}

void CIPFIXPacket::PrepareSQL(int& recordId, CODBCRecordset& records, CODBCRecordset& attributes) {
    if (recordId == -1)
        return;
    CNetFlowRowWriter writer(records, attributes);
    for (const CIPFIXRecord& record : m_records) {
        writer.AddRecord(recordId, static_cast<int32_t>(m_header.m_exportTime), m_strSenderIPAddress,
                         m_nSenderPort, 10);
        record.ForEachField([&](const CIPFIXField& field) {
            writer.AddAttribute(recordId, static_cast<int>(field.GetFieldId()), field.GetValue());
        });
        ++recordId;
    }
}
