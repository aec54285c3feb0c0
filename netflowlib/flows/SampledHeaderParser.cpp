#include "flows/SampledHeaderParser.h"

namespace {

constexpr uint16_t kEtherIPv4 = 0x0800;
constexpr uint16_t kEtherIPv6 = 0x86DD;
constexpr uint16_t kEtherVlan = 0x8100;
constexpr uint16_t kEtherQinQ = 0x88A8;
constexpr uint16_t kEtherQinQOld = 0x9100;

constexpr uint8_t kIcmp = 1;
constexpr uint8_t kTcp = 6;
constexpr uint8_t kUdp = 17;
constexpr uint8_t kIcmpV6 = 58;

// The bytes of a header with reads that are tested first: Has() before any read.
class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    bool Has(size_t offset, size_t count) const { return offset <= m_size && count <= m_size - offset; }
    uint8_t U8(size_t offset) const { return m_data[offset]; }
    uint16_t U16(size_t offset) const {
        return static_cast<uint16_t>((m_data[offset] << 8) | m_data[offset + 1]);
    }
    const uint8_t* At(size_t offset) const { return m_data + offset; }

private:
    const uint8_t* m_data;
    size_t m_size;
};

// Ports or ICMP type and code, and TCP flags, of the transport header at offset.
void ParseTransport(const Bytes& bytes, size_t offset, uint8_t protocol, CFlowRecord& flow) {
    switch (protocol) {
    case kTcp:
    case kUdp:
        if (!bytes.Has(offset, 4))
            return;
        flow.Set(EFlowKey::SrcPort, bytes.U16(offset));
        flow.Set(EFlowKey::DstPort, bytes.U16(offset + 2));
        if (protocol == kTcp && bytes.Has(offset, 14))
            flow.Set(EFlowKey::TcpFlags, bytes.U8(offset + 13));
        return;
    case kIcmp:
    case kIcmpV6:
        // As NetFlow carries it: type * 256 + code in the destination port.
        if (!bytes.Has(offset, 2))
            return;
        flow.Set(EFlowKey::SrcPort, 0);
        flow.Set(EFlowKey::DstPort, bytes.U16(offset));
        return;
    default:
        return;
    }
}

bool ParseIPv4(const Bytes& bytes, size_t offset, CFlowRecord& flow) {
    if (!bytes.Has(offset, 20) || (bytes.U8(offset) >> 4) != 4)
        return false;
    const size_t headerLength = size_t(bytes.U8(offset) & 0x0F) * 4;
    const uint8_t protocol = bytes.U8(offset + 9);
    flow.Set(EFlowKey::IpVersion, 4);
    flow.Set(EFlowKey::Tos, bytes.U8(offset + 1));
    flow.Set(EFlowKey::Proto, protocol);
    flow.SetAddress(EFlowKey::SrcAddr, CFlowAddress::FromBytes(bytes.At(offset + 12), 4));
    flow.SetAddress(EFlowKey::DstAddr, CFlowAddress::FromBytes(bytes.At(offset + 16), 4));
    // Only a first fragment carries the transport header.
    const bool firstFragment = (bytes.U16(offset + 6) & 0x1FFF) == 0;
    if (headerLength >= 20 && firstFragment)
        ParseTransport(bytes, offset + headerLength, protocol, flow);
    return true;
}

bool ParseIPv6(const Bytes& bytes, size_t offset, CFlowRecord& flow) {
    if (!bytes.Has(offset, 40) || (bytes.U8(offset) >> 4) != 6)
        return false;
    flow.Set(EFlowKey::IpVersion, 6);
    flow.Set(EFlowKey::Tos, (bytes.U16(offset) >> 4) & 0xFF);
    flow.SetAddress(EFlowKey::SrcAddr, CFlowAddress::FromBytes(bytes.At(offset + 8), 16));
    flow.SetAddress(EFlowKey::DstAddr, CFlowAddress::FromBytes(bytes.At(offset + 24), 16));
    uint8_t next = bytes.U8(offset + 6);
    offset += 40;
    // Extension headers up to the transport header; each takes at least 8 bytes, so the walk ends.
    bool transport = true;
    for (;;) {
        if (next == 0 || next == 43 || next == 60 || next == 51) { // hop-by-hop, routing, options, AH
            if (!bytes.Has(offset, 8)) {
                transport = false;
                break;
            }
            const size_t length =
                next == 51 ? (size_t(bytes.U8(offset + 1)) + 2) * 4 : (size_t(bytes.U8(offset + 1)) + 1) * 8;
            next = bytes.U8(offset);
            offset += length;
        } else if (next == 44) { // fragment: only the first one carries the transport header
            if (!bytes.Has(offset, 8)) {
                transport = false;
                break;
            }
            transport = (bytes.U16(offset + 2) >> 3) == 0;
            next = bytes.U8(offset);
            offset += 8;
            if (!transport)
                break;
        } else {
            break;
        }
    }
    flow.Set(EFlowKey::Proto, next);
    if (transport)
        ParseTransport(bytes, offset, next, flow);
    return true;
}

bool ParseEthernet(const Bytes& bytes, CFlowRecord& flow) {
    if (!bytes.Has(0, 14))
        return false;
    flow.SetMac(EFlowKey::DstMac, bytes.At(0));
    flow.SetMac(EFlowKey::SrcMac, bytes.At(6));
    size_t offset = 12;
    uint16_t type = bytes.U16(offset);
    bool tagged = false;
    // The outermost tag names the VLAN; inner tags are stepped over.
    while ((type == kEtherVlan || type == kEtherQinQ || type == kEtherQinQOld) && bytes.Has(offset, 6)) {
        if (!tagged)
            flow.Set(EFlowKey::Vlan, bytes.U16(offset + 2) & 0x0FFF);
        tagged = true;
        offset += 4;
        type = bytes.U16(offset);
    }
    offset += 2;
    if (type == kEtherIPv4)
        ParseIPv4(bytes, offset, flow);
    else if (type == kEtherIPv6)
        ParseIPv6(bytes, offset, flow);
    return true;
}

} // namespace

bool CSampledHeaderParser::Parse(uint32_t headerProtocol, const uint8_t* data, size_t size,
                                 CFlowRecord& flow) {
    const Bytes bytes(data, size);
    switch (headerProtocol) {
    case ETHERNET:
        return ParseEthernet(bytes, flow);
    case IPV4:
        return ParseIPv4(bytes, 0, flow);
    case IPV6:
        return ParseIPv6(bytes, 0, flow);
    default:
        return false;
    }
}
