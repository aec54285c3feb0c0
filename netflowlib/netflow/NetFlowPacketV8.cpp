#include "netflow/NetFlowPacketV8.h"

template <class Self, class Visit>
bool CNetFlowPacketV8::VisitSchemeRecords(Self& self, Visit&& visit) {
    switch (self.m_header.m_aggregation) {
    case 1:
        visit(self.m_routerASRecords);
        return true;
    case 2:
        visit(self.m_routerProtoPortRecords);
        return true;
    case 3:
        visit(self.m_routerSrcPrefixRecords);
        return true;
    case 4:
        visit(self.m_routerDstPrefixRecords);
        return true;
    case 5:
        visit(self.m_routerPrefixRecords);
        return true;
    default:
        return false;
    }
}

int CNetFlowPacketV8::Decode(const CByteArray& datagram) {
    if (datagram.size() < static_cast<size_t>(CNetFlowHeaderV8::WIRE_SIZE))
        return 0;
    m_header.Decode(datagram);
    // An unknown scheme reads no record and succeeds.
    int result = 1;
    VisitSchemeRecords(*this, [&](auto& records) {
        result = DecodeRecords(datagram, m_header.m_count, CNetFlowHeaderV8::WIRE_SIZE, records);
    });
    return result;
}

CString CNetFlowPacketV8::ToString() const {
    CString text = FormatOpening(m_header.ToString());
    // Runs over the header's count: fewer stored records throw CInvalidArgException, and an unknown
    // scheme gets the headings alone.
    bool known = VisitSchemeRecords(*this, [&](const auto& records) {
        text.reserve(text.size() + records.size() * 200);
        for (int i = 0; i < m_header.m_count; ++i) {
            AppendRecordHeading(text, i);
            text += ElementAt(records, i).ToString();
        }
    });
    if (!known) {
        for (int i = 0; i < m_header.m_count; ++i)
            AppendRecordHeading(text, i);
    }
    return text;
}

int64_t CNetFlowPacketV8::GetSize() const {
    int64_t size = -1;
    VisitSchemeRecords(*this, [&](const auto& records) { size = static_cast<int64_t>(records.size()); });
    return size;
}

BOOL CNetFlowPacketV8::IsEmpty() const {
    return GetSize() < 1 ? TRUE : FALSE;
}

void CNetFlowPacketV8::GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) {
    VisitSchemeRecords(*this, [&](const auto& records) {
        ElementAt(records, recordIndex).GetRecordFields(fieldIds, values);
    });
}

void CNetFlowPacketV8::Copy(const CNetFlowPacketV8& other) {
    m_header = other.m_header;
    m_routerASRecords = other.m_routerASRecords;
    m_routerProtoPortRecords = other.m_routerProtoPortRecords;
    m_routerDstPrefixRecords = other.m_routerDstPrefixRecords;
    m_routerSrcPrefixRecords = other.m_routerSrcPrefixRecords;
    m_routerPrefixRecords = other.m_routerPrefixRecords;
}
