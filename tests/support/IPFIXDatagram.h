#pragma once
// Builds IPFIX messages set by set, so a test shows the layout it sends:
//
//   IPFIXDatagram({.exportTime = 1700000000, .domain = 7})
//       .Template(256, {{8, 4}, {7, 2}, {3, 65535, 43874}})          // the last: enterprise, variable length
//       .Data(256, ByteBuilder().ipv4(10, 0, 0, 1).u16(53).bytes(VariableLength("gold")))
//
// The message length and every set length are filled in from what was written, unless a test gives one.

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "support/ByteBuilder.h"

namespace tpnf::test {

// One field specifier: element id, length (65535: variable) and, when given, an enterprise number, which
// sets the enterprise bit.
struct IPFIXFieldSpecifier {
    uint16_t id;
    uint16_t length;
    std::optional<uint32_t> enterprise = std::nullopt;
};

struct IPFIXTemplateRecord {
    uint16_t id;
    std::vector<IPFIXFieldSpecifier> fields;
};

struct IPFIXHeaderValues {
    uint32_t exportTime = 0;
    uint32_t sequence = 0;
    uint32_t domain = 0;
};

// A variable-length value with its length prefix: one byte, or 255 and two bytes when longForm is set or
// the value has 255 bytes or more.
inline std::vector<uint8_t> VariableLength(const std::vector<uint8_t>& value, bool longForm = false) {
    ByteBuilder b;
    if (longForm || value.size() >= 255)
        b.u8(255).u16(static_cast<uint32_t>(value.size()));
    else
        b.u8(static_cast<uint32_t>(value.size()));
    return b.bytes(value).build();
}

inline std::vector<uint8_t> VariableLength(std::string_view text, bool longForm = false) {
    return VariableLength(std::vector<uint8_t>(text.begin(), text.end()), longForm);
}

class IPFIXDatagram {
public:
    // The 16-byte header: version 10, message length, export time, sequence number, observation domain.
    explicit IPFIXDatagram(const IPFIXHeaderValues& header = {}) {
        b_.u16(10).u16(0).u32(header.exportTime).u32(header.sequence).u32(header.domain);
        Finish();
    }

    // A template set (id 2) with the given template records.
    IPFIXDatagram& Templates(std::initializer_list<IPFIXTemplateRecord> templates) {
        const size_t start = OpenSet(2);
        for (const IPFIXTemplateRecord& t : templates) {
            b_.u16(t.id).u16(static_cast<uint32_t>(t.fields.size()));
            Specifiers(t.fields);
        }
        return CloseSet(start);
    }

    IPFIXDatagram& Template(uint16_t id, std::vector<IPFIXFieldSpecifier> fields) {
        return Templates({IPFIXTemplateRecord{id, std::move(fields)}});
    }

    // An options template set (id 3) with one record: id, field count, scope field count, the scope
    // specifiers, then the others. A test may state another scope field count.
    IPFIXDatagram& OptionsTemplate(uint16_t id, const std::vector<IPFIXFieldSpecifier>& scope,
                                   const std::vector<IPFIXFieldSpecifier>& options, int scopeCount = -1) {
        const size_t start = OpenSet(3);
        b_.u16(id)
            .u16(static_cast<uint32_t>(scope.size() + options.size()))
            .u16(scopeCount >= 0 ? static_cast<uint32_t>(scopeCount) : static_cast<uint32_t>(scope.size()));
        Specifiers(scope);
        Specifiers(options);
        return CloseSet(start);
    }

    // A withdrawal: a template record with field count 0 in a set of the given id (2: templates,
    // 3: options templates). The set's own id as template id withdraws all templates of its kind.
    IPFIXDatagram& Withdraw(uint16_t templateId, uint16_t setId = 2) {
        const size_t start = OpenSet(setId);
        b_.u16(templateId).u16(0);
        return CloseSet(start);
    }

    // A data set for template id: the records' bytes, then padding zero bytes.
    IPFIXDatagram& Data(uint16_t id, const std::vector<uint8_t>& records, size_t padding = 0) {
        const size_t start = OpenSet(id);
        b_.bytes(records).zeros(padding);
        return CloseSet(start);
    }

    // A set whose length word says what the test wants, whatever follows it.
    IPFIXDatagram& RawSet(uint16_t id, uint16_t declaredLength, const std::vector<uint8_t>& body = {}) {
        b_.u16(id).u16(declaredLength).bytes(body);
        return Finish();
    }

    // Bytes appended as they are.
    IPFIXDatagram& Raw(const std::vector<uint8_t>& bytes) {
        b_.bytes(bytes);
        return Finish();
    }

    // A message length other than the bytes written; later appends keep it.
    IPFIXDatagram& Length(uint16_t length) {
        length_ = length;
        return Finish();
    }

    size_t size() const { return b_.size(); }
    const std::vector<uint8_t>& build() const { return b_.build(); }
    operator const std::vector<uint8_t>&() const { return b_.build(); }

private:
    size_t OpenSet(uint16_t id) {
        const size_t start = b_.size();
        b_.u16(id).u16(0);
        return start;
    }
    IPFIXDatagram& CloseSet(size_t start) {
        b_.patch16(start + 2, static_cast<uint32_t>(b_.size() - start));
        return Finish();
    }
    IPFIXDatagram& Finish() {
        b_.patch16(2, length_ ? *length_ : static_cast<uint32_t>(b_.size()));
        return *this;
    }
    void Specifiers(const std::vector<IPFIXFieldSpecifier>& fields) {
        for (const IPFIXFieldSpecifier& f : fields) {
            b_.u16(f.enterprise ? (f.id | 0x8000u) : f.id).u16(f.length);
            if (f.enterprise)
                b_.u32(*f.enterprise);
        }
    }

    ByteBuilder b_;
    std::optional<uint16_t> length_;
};

} // namespace tpnf::test
