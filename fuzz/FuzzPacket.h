#pragma once
// Shared by the harnesses. A packet harness is one file that names its packet kind and a structure check
// (a function of the decoded packet and the datagram that needs no text); it is built twice:
//  - decode harness: decode, sizes, cheap copies and the structure check, no text at all, so decoding is
//    tried at the speed of decoding;
//  - render harness (TPNF_FUZZ_RENDER): the same, then every text a host asks for (packet text, times,
//    field lists) of the packet and of its copies.
// Only the failures the packet interface documents are accepted; anything else that escapes, or a broken
// invariant, stops the run as a finding.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "packet/TPAbstractPacket.h"

namespace tpnf::fuzz {

[[noreturn]] inline void Fail(const char* what) {
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
}

inline void Check(bool condition, const char* what) {
    if (!condition)
        Fail(what);
}

// Big-endian 16-bit word at offset of a datagram known to be long enough.
inline unsigned Word16(const CByteArray& datagram, size_t offset) {
    return (static_cast<unsigned>(datagram[offset]) << 8) | datagram[offset + 1];
}

// What any decoded packet promises without rendering: a size of -1 or more that IsEmpty agrees with, and
// no record past the last one (the invalid-argument exception, or nothing for sFlow and unknown v8
// schemes, with the arrays left as they were). Asking for a record past the end renders nothing.
inline void CheckDecoded(CTPAbstractPacket& packet) {
    const int64_t size = packet.GetSize();
    Check(size >= -1, "GetSize below -1");
    Check((packet.IsEmpty() != FALSE) == (size < 1), "IsEmpty disagrees with GetSize");
    CUIntArray ids;
    CStringArray values;
    try {
        packet.GetRecordFields(static_cast<int>(size < 0 ? 0 : size), ids, values);
    } catch (const CInvalidArgException&) {
    }
    Check(ids.empty() && values.empty(), "GetRecordFields past the end filled the arrays");
}

// Kinds whose rendering may raise the invalid-argument exception: a v8 text runs over the header's
// count, past the records a cut-off datagram left; a v9 address value shorter than its kind needs (an
// IPv4 field of fewer than 4 bytes, an IPv6 field of odd length) is read past its end.
inline bool RenderingMayThrow(const CString& protocol) {
    return protocol == L"NetFlow v8" || protocol == L"NetFlow v9";
}

// Renders every part of a decoded packet; gives its text (empty when it cannot be rendered).
inline CString Exercise(CTPAbstractPacket& packet) {
    const CString protocol = packet.GetProtocol();
    CString text;
    try {
        text = packet.ToString();
        Check(!text.empty(), "empty packet text");
    } catch (const CInvalidArgException&) {
        Check(RenderingMayThrow(protocol), "ToString threw for a packet whose text cannot fail");
    }
    (void)packet.GetSysUpTime();
    try {
        (void)packet.GetTimestamp();
    } catch (const CInvalidArgException&) {
        // Export seconds from 0x80000000 on are negative and cannot be converted.
        Check(protocol.rfind(L"NetFlow", 0) == 0, "GetTimestamp threw for the current time");
    }

    const int64_t size = packet.GetSize();
    CUIntArray ids;
    CStringArray values;
    for (int64_t i = 0; i < size; ++i) {
        try {
            packet.GetRecordFields(static_cast<int>(i), ids, values);
        } catch (const CInvalidArgException&) {
            Check(protocol == L"NetFlow v9", "GetRecordFields threw for a record in range");
        }
        Check(ids.size() == values.size(), "GetRecordFields left unpaired entries");
    }
    return text;
}

// A copy of a decoded packet renders like the original (text: the original's, empty when it has none).
template <class Packet>
void ExerciseCopies(const Packet& packet, const CString& text) {
    // A long text (a v8 count of up to 65535 headings from a 28-byte datagram) is not rendered again: its
    // rendering dominated the run and the copies' records are compared by count and structure.
    if (text.empty() || text.size() >= 65536)
        return;
    Packet copy(packet);
    Packet assigned;
    assigned = packet;
    Check(copy.ToString() == text, "copy renders differently");
    Check(assigned.ToString() == text, "assigned copy renders differently");
}

#ifdef TPNF_FUZZ_RENDER
inline constexpr bool kRender = true;
#else
inline constexpr bool kRender = false;
#endif

// Decodes one input into a fresh packet of the given kind, checks it with checkStructure(Packet&, const
// CByteArray& datagram) and its copies by size; the render harness then renders them. The
// invalid-argument exception a decoder raises on short or malformed data is where the receive loop
// drops a datagram.
template <class Packet, bool render = kRender, class StructureCheck>
int FuzzPacket(const uint8_t* data, size_t size, StructureCheck&& checkStructure) {
    const CByteArray datagram(data, data + size);
    Packet packet;
    int result = 0;
    try {
        result = packet.Decode(datagram);
    } catch (const CInvalidArgException&) {
        return 0;
    }
    if (result == 0)
        return 0;
    packet.SetSenderInfo(L"192.0.2.1", 2055);
    CheckDecoded(packet);
    checkStructure(packet, datagram);

    Packet copy(packet);
    Packet assigned;
    assigned = packet;
    Check(copy.GetSize() == packet.GetSize() && assigned.GetSize() == packet.GetSize(),
          "copy holds a different number of records");
    Check(copy.GetSenderIPAddress() == L"192.0.2.1" && assigned.GetSenderPort() == 2055,
          "copy lost the sender");

    if constexpr (render) {
        const CString text = Exercise(packet);
        ExerciseCopies(packet, text);
    }
    return 0;
}

// Decode, sizes, copies and every text in one harness, without a structure check: what every harness
// did before the split. New harnesses use FuzzPacket.
template <class Packet>
int DecodeAndExercise(const uint8_t* data, size_t size) {
    return FuzzPacket<Packet, true>(data, size, [](Packet&, const CByteArray&) {});
}

} // namespace tpnf::fuzz
