#pragma once
// Builds datagrams big-endian, field by field, so a test reads like the wire layout it sends.

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace tpnf::test {

class ByteBuilder {
public:
    ByteBuilder& u8(uint32_t v) {
        bytes_.push_back(static_cast<uint8_t>(v));
        return *this;
    }
    ByteBuilder& u16(uint32_t v) { return u8(v >> 8).u8(v); }
    ByteBuilder& u32(uint32_t v) { return u16(v >> 16).u16(v); }
    ByteBuilder& u64(uint64_t v) { return u32(static_cast<uint32_t>(v >> 32)).u32(static_cast<uint32_t>(v)); }
    ByteBuilder& ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return u8(a).u8(b).u8(c).u8(d); }
    ByteBuilder& bytes(std::initializer_list<uint8_t> list) {
        bytes_.insert(bytes_.end(), list);
        return *this;
    }
    ByteBuilder& bytes(const std::vector<uint8_t>& more) {
        // Element by element: GCC 12 warns falsely on a range insert into a vector it proved empty.
        for (uint8_t b : more)
            bytes_.push_back(b);
        return *this;
    }
    ByteBuilder& text(std::string_view s) {
        bytes_.insert(bytes_.end(), s.begin(), s.end());
        return *this;
    }
    ByteBuilder& zeros(size_t n) {
        bytes_.insert(bytes_.end(), n, 0);
        return *this;
    }
    // Overwrites a 16-bit value already written, e.g. a length known only at the end.
    ByteBuilder& patch16(size_t at, uint32_t v) {
        bytes_.at(at) = static_cast<uint8_t>(v >> 8);
        bytes_.at(at + 1) = static_cast<uint8_t>(v);
        return *this;
    }
    ByteBuilder& patch32(size_t at, uint32_t v) { return patch16(at, v >> 16).patch16(at + 2, v); }

    size_t size() const { return bytes_.size(); }
    const std::vector<uint8_t>& build() const { return bytes_; }
    operator const std::vector<uint8_t>&() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
};

} // namespace tpnf::test
