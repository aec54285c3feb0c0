#pragma once

#include <array>
#include <cstdint>

// How a session decodes beyond its default behaviour. A value-initialised CDecodeOptions is the default:
// every datagram then decodes exactly as Decode(CByteArray) always has.
enum class ETemplateScope {
    Global,   // NetFlow v9 templates keyed by template id alone, shared by every exporter
    Exporter, // keyed by exporter address, source id and template id (RFC 3954)
};

struct CDecodeOptions {
    bool ipfix = false;                                    // version 10 datagrams decode as IPFIX
    ETemplateScope templateScope = ETemplateScope::Global; // NetFlow v9 template store key
    bool sflowExact = false;                               // sFlow as its published documents say
    uint32_t maxTemplates = 0; // templates kept per exporter (exporter scope, IPFIX); 0: no limit

    bool IsDefault() const {
        return !ipfix && templateScope == ETemplateScope::Global && !sflowExact && maxTemplates == 0;
    }
};

// The exporter of one datagram as the decoders see it: its address in network byte order (4 bytes for
// IPv4, 16 for IPv6, an IPv4-mapped IPv6 address given as IPv4) and its UDP port.
struct CExporterAddress {
    std::array<uint8_t, 16> bytes{};
    uint8_t length = 0; // 4 or 16; 0: unknown
    uint16_t port = 0;

    bool operator==(const CExporterAddress&) const = default;
};

// What a packet kind may need besides the datagram: the session's options and the datagram's exporter.
struct CDecodeContext {
    CDecodeOptions options;
    CExporterAddress exporter;
};
