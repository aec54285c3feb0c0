#pragma once
// Builds NetFlow v9 datagrams flowset by flowset, so a test shows the layout it sends:
//
//   NetFlowV9Datagram(header).Template(256, {{8, 4}, {4, 1}})
//                            .Data(256, ByteBuilder().ipv4(10, 0, 0, 1).u8(17), 3 /* padding */)
//
// Flowset lengths are filled in from what was written unless a test gives one on purpose.

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "support/ByteBuilder.h"

namespace tpnf::test {

// One field specifier: field type number and field length in bytes.
struct V9FieldSpecifier {
    uint16_t type;
    uint16_t length;
};

struct V9Template {
    uint16_t id;
    std::vector<V9FieldSpecifier> fields;
};

struct V9Header {
    uint16_t count = 0;
    uint32_t sysUptime = 0;
    uint32_t unixSecs = 0;
    uint32_t packageSequence = 0;
    uint32_t sourceId = 0;
};

class NetFlowV9Datagram {
public:
    // The 20-byte header: version 9, flowset count, uptime, export seconds, sequence, source id.
    explicit NetFlowV9Datagram(const V9Header& header = {}) {
        b_.u16(9)
            .u16(header.count)
            .u32(header.sysUptime)
            .u32(header.unixSecs)
            .u32(header.packageSequence)
            .u32(header.sourceId);
    }

    // A template flowset (id 0) announcing the given templates.
    NetFlowV9Datagram& Templates(std::initializer_list<V9Template> templates) {
        size_t start = OpenFlowSet(0);
        for (const V9Template& t : templates) {
            b_.u16(t.id).u16(static_cast<uint32_t>(t.fields.size()));
            Specifiers(t.fields);
        }
        return CloseFlowSet(start);
    }

    // A template flowset with one template.
    NetFlowV9Datagram& Template(uint16_t id, std::vector<V9FieldSpecifier> fields) {
        return Templates({V9Template{id, std::move(fields)}});
    }

    // An options template flowset: template id, scope length and option length in bytes, then the scope
    // and option specifiers. The lengths default to 4 bytes per specifier; a test may state others.
    NetFlowV9Datagram& OptionsTemplate(uint16_t templateId, const std::vector<V9FieldSpecifier>& scope,
                                       const std::vector<V9FieldSpecifier>& options, uint16_t flowSetId = 1,
                                       int scopeLength = -1, int optionLength = -1) {
        size_t start = OpenFlowSet(flowSetId);
        b_.u16(templateId)
            .u16(scopeLength >= 0 ? static_cast<uint32_t>(scopeLength)
                                  : static_cast<uint32_t>(scope.size() * 4))
            .u16(optionLength >= 0 ? static_cast<uint32_t>(optionLength)
                                   : static_cast<uint32_t>(options.size() * 4));
        Specifiers(scope);
        Specifiers(options);
        return CloseFlowSet(start);
    }

    // A data flowset for template id: the records' bytes, then padding zero bytes.
    NetFlowV9Datagram& Data(uint16_t id, const std::vector<uint8_t>& records, size_t padding = 0) {
        size_t start = OpenFlowSet(id);
        b_.bytes(records).zeros(padding);
        return CloseFlowSet(start);
    }

    // A flowset whose length word says what the test wants, whatever follows it.
    NetFlowV9Datagram& RawFlowSet(uint16_t id, uint16_t declaredLength,
                                  const std::vector<uint8_t>& body = {}) {
        b_.u16(id).u16(declaredLength).bytes(body);
        return *this;
    }

    // Bytes appended as they are (e.g. a cut-off record at the very end).
    NetFlowV9Datagram& Raw(const std::vector<uint8_t>& bytes) {
        b_.bytes(bytes);
        return *this;
    }

    size_t size() const { return b_.size(); }
    const std::vector<uint8_t>& build() const { return b_.build(); }
    operator const std::vector<uint8_t>&() const { return b_.build(); }

private:
    size_t OpenFlowSet(uint16_t id) {
        size_t start = b_.size();
        b_.u16(id).u16(0);
        return start;
    }
    NetFlowV9Datagram& CloseFlowSet(size_t start) {
        b_.patch16(start + 2, static_cast<uint32_t>(b_.size() - start));
        return *this;
    }
    void Specifiers(const std::vector<V9FieldSpecifier>& fields) {
        for (const V9FieldSpecifier& f : fields)
            b_.u16(f.type).u16(f.length);
    }

    ByteBuilder b_;
};

} // namespace tpnf::test
