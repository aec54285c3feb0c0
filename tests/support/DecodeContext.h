#pragma once
// Decode contexts for tests: the options a session would hand to its packets and an exporter address.

#include <cstdint>
#include <initializer_list>

#include "packet/DecodeOptions.h"

namespace tpnf::test {

inline CExporterAddress ExporterV4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port = 2055) {
    CExporterAddress address;
    address.bytes = {a, b, c, d};
    address.length = 4;
    address.port = port;
    return address;
}

// Sixteen bytes, most significant first.
inline CExporterAddress ExporterV6(std::initializer_list<uint8_t> bytes, uint16_t port = 2055) {
    CExporterAddress address;
    size_t i = 0;
    for (uint8_t b : bytes)
        if (i < address.bytes.size())
            address.bytes[i++] = b;
    address.length = 16;
    address.port = port;
    return address;
}

// Templates per exporter, at most maxTemplates each (0: no bound).
inline CDecodeContext ExporterScope(const CExporterAddress& exporter, uint32_t maxTemplates = 0) {
    CDecodeContext context;
    context.options.templateScope = ETemplateScope::Exporter;
    context.options.maxTemplates = maxTemplates;
    context.exporter = exporter;
    return context;
}

// The default options (one global v9 scope), with the exporter known.
inline CDecodeContext GlobalScope(const CExporterAddress& exporter, uint32_t maxTemplates = 0) {
    CDecodeContext context;
    context.options.maxTemplates = maxTemplates;
    context.exporter = exporter;
    return context;
}

} // namespace tpnf::test
