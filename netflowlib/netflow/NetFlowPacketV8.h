#pragma once

#include "netflow/NetFlowHeaderV8.h"
#include "netflow/NetFlowPacket.h"
#include "netflow/NetFlowRecordRouterASV8.h"
#include "netflow/NetFlowRecordRouterDstPrefixV8.h"
#include "netflow/NetFlowRecordRouterPrefixV8.h"
#include "netflow/NetFlowRecordRouterProtoPortV8.h"
#include "netflow/NetFlowRecordRouterSrcPrefixV8.h"

// A decoded NetFlow v8 datagram. One array per aggregation scheme; the header's scheme (1 to 5) selects
// the one in use, and any other scheme has none.
class CNetFlowPacketV8 : public CNetFlowPacket {
public:
    using CRouterASArray = CArray<CNetFlowRecordRouterASV8, const CNetFlowRecordRouterASV8&>;
    using CRouterProtoPortArray =
        CArray<CNetFlowRecordRouterProtoPortV8, const CNetFlowRecordRouterProtoPortV8&>;
    using CRouterSrcPrefixArray =
        CArray<CNetFlowRecordRouterSrcPrefixV8, const CNetFlowRecordRouterSrcPrefixV8&>;
    using CRouterDstPrefixArray =
        CArray<CNetFlowRecordRouterDstPrefixV8, const CNetFlowRecordRouterDstPrefixV8&>;
    using CRouterPrefixArray = CArray<CNetFlowRecordRouterPrefixV8, const CNetFlowRecordRouterPrefixV8&>;

    int Decode(const CByteArray& datagram) override;
    CString ToString() const override;
    int64_t GetSize() const override; // -1 for an unknown scheme
    BOOL IsEmpty() const override;
    CString GetProtocol() const override { return L"NetFlow v8"; }
    CString GetTimestamp() const override { return m_header.GetTimestamp(); }
    CString GetSysUpTime() const override { return m_header.GetSysUpTime(); }
    void GetRecordFields(int recordIndex, CUIntArray& fieldIds, CStringArray& values) override;

    CNetFlowHeaderV8 GetHeader() const { return m_header; }
    void SetHeader(const CNetFlowHeaderV8& header) { m_header = header; }
    void GetRecords(CRouterASArray& records) const { CopyArray(m_routerASRecords, records); }
    void GetRecords(CRouterProtoPortArray& records) const { CopyArray(m_routerProtoPortRecords, records); }
    void GetRecords(CRouterSrcPrefixArray& records) const { CopyArray(m_routerSrcPrefixRecords, records); }
    void GetRecords(CRouterDstPrefixArray& records) const { CopyArray(m_routerDstPrefixRecords, records); }
    void GetRecords(CRouterPrefixArray& records) const { CopyArray(m_routerPrefixRecords, records); }
    void SetRecords(const CRouterASArray& records) { m_routerASRecords = records; }
    void SetRecords(const CRouterProtoPortArray& records) { m_routerProtoPortRecords = records; }
    void SetRecords(const CRouterSrcPrefixArray& records) { m_routerSrcPrefixRecords = records; }
    void SetRecords(const CRouterDstPrefixArray& records) { m_routerDstPrefixRecords = records; }
    void SetRecords(const CRouterPrefixArray& records) { m_routerPrefixRecords = records; }

    // Header and the five arrays only; unlike the copy constructor and assignment, the sender stays as it is.
    void Copy(const CNetFlowPacketV8& other);

protected:
    CNetFlowHeaderV8 m_header;
    CRouterASArray m_routerASRecords;
    CRouterProtoPortArray m_routerProtoPortRecords;
    CRouterDstPrefixArray m_routerDstPrefixRecords;
    CRouterSrcPrefixArray m_routerSrcPrefixRecords;
    CRouterPrefixArray m_routerPrefixRecords;

private:
    template <class Array>
    static void CopyArray(const Array& from, Array& to) {
        if (&from != &to)
            to = from;
    }

    // Calls visit with the record array of the header's scheme; false, without a call, for any other scheme.
    template <class Self, class Visit>
    static bool VisitSchemeRecords(Self& self, Visit&& visit);
};
