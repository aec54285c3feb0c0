#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "flows/FlowRecord.h"
#include "netflow/NetFlowPacketV8.h"
#include "packet/DecodeOptions.h"
#include "packet/TPAbstractPacket.h"

class CNetFlowPacketV1;
class CNetFlowPacketV5;
class CNetFlowPacketV7;
class CNetFlowPacketV9;
class CIPFIXPacket;
class CNetFlowHeaderCommonFields;
class CSFlowPacket;

// What a flow needs to know besides its packet: when and from where the datagram came.
struct CFlowContext {
    int64_t timeReceived = 0;  // ms since 1970 (UTC)
    CExporterAddress exporter; // length 0: unknown, the flow's exporter keys are null
    // The datagram the packet was decoded from, when the caller still has it: a v5 packet does not keep
    // its header's sampling interval, so the flows read it from here (bytes 22-23). Without it v5 flows
    // have sampling rate 1.
    const CByteArray* datagram = nullptr;

    // The context of a packet whose datagram is gone: its sender text and port as the socket set them.
    static CFlowContext ForPacket(const CTPAbstractPacket& packet, int64_t timeReceived);
};

// Turns decoded packets of every kind into flow records, reading the packets' typed members (headers,
// records, field values), never their text:
// - NetFlow v1, v5, v7: one flow per record; v8: one per record of aggregation schemes 1 to 5 (any
//   other scheme holds no records, so it gives none);
// - NetFlow v9: one per data record; records of options templates (with scope fields) are not flows,
//   and keys the template lacks stay null;
// - IPFIX: the same as v9 (IANA elements 1 to 127 are the v9 field types), plus the elements IPFIX adds:
//   flow start and end in seconds, milliseconds, micro- or nanoseconds (150-157; the finest given wins),
//   as microseconds before the export (158, 159), or as uptimes (22, 21) with the exporter's
//   systemInitTimeMilliseconds (160) from the record itself or from an earlier options record of the same
//   exporter and observation domain (otherwise they stay null); ICMP type and code (139, 176-179);
//   sampling from samplingInterval (34) or samplerRandomInterval (50), else RFC 5477's packet interval
//   and space (305, 306), sample size and population (309, 310) or probability (311). Only elements in
//   the data record itself count, as in v9: an options record's sampling does not reach the flows.
//   Enterprise elements are not read, so a biflow (RFC 5103 reverse elements) is one flow of its forward
//   direction;
// - sFlow v2, v4, v5: one per flow sample whose packet data can be read (a sampled header, or a
//   sampled IPv4 or IPv6 record); counter samples give none.
// Flow times: NetFlow's export time minus (sysUptime - first/last switched), in ms; sFlow's are the
// time received.
//
// One maker per thread: it keeps scratch space between calls so that making flows does not allocate, and
// the IPFIX init times its exporters announced (as a session's receive loop sees one exporter's
// datagrams, so does its maker).
class CFlowMaker {
public:
    // Appends the packet's flows to flows (which is not cleared) and gives their number. Packets of
    // kinds it does not know give none.
    size_t Append(const CTPAbstractPacket& packet, const CFlowContext& context,
                  std::vector<CFlowRecord>& flows);

private:
    void AppendV1(const CNetFlowPacketV1& packet, const CFlowContext& context,
                  std::vector<CFlowRecord>& flows);
    void AppendV5(const CNetFlowPacketV5& packet, const CFlowContext& context,
                  std::vector<CFlowRecord>& flows);
    void AppendV7(const CNetFlowPacketV7& packet, const CFlowContext& context,
                  std::vector<CFlowRecord>& flows);
    void AppendV8(const CNetFlowPacketV8& packet, const CFlowContext& context,
                  std::vector<CFlowRecord>& flows);
    void AppendV9(const CNetFlowPacketV9& packet, const CFlowContext& context,
                  std::vector<CFlowRecord>& flows);
    void AppendIPFIX(const CIPFIXPacket& packet, const CFlowContext& context,
                     std::vector<CFlowRecord>& flows);
    void AppendSFlow(const CSFlowPacket& packet, const CFlowContext& context,
                     std::vector<CFlowRecord>& flows);

    // An IPFIX exporter's address and observation domain.
    struct CExporterDomain {
        std::array<uint8_t, 16> address{};
        uint8_t length = 0;
        uint32_t domain = 0;
        bool operator==(const CExporterDomain&) const = default;
    };
    struct CExporterDomainHash {
        size_t operator()(const CExporterDomain& key) const;
    };
    // System init times (ms since 1970) by exporter and domain, at most MAX_EXPORTERS: a new one beyond
    // them replaces an arbitrary one, which reads its uptimes again once its exporter announces it anew.
    class CInitTimes {
    public:
        static constexpr size_t MAX_EXPORTERS = 4096;
        int64_t Find(const CExporterDomain& key) const; // -1: not known
        void Remember(const CExporterDomain& key, int64_t initTime);

    private:
        std::unordered_map<CExporterDomain, int64_t, CExporterDomainHash> m_times;
    };

    // v8 records are handed out only as copies; these keep their capacity between packets.
    CNetFlowPacketV8::CRouterASArray m_routerAS;
    CNetFlowPacketV8::CRouterProtoPortArray m_routerProtoPort;
    CNetFlowPacketV8::CRouterSrcPrefixArray m_routerSrcPrefix;
    CNetFlowPacketV8::CRouterDstPrefixArray m_routerDstPrefix;
    CNetFlowPacketV8::CRouterPrefixArray m_routerPrefix;
    CInitTimes m_initTimes;
};
