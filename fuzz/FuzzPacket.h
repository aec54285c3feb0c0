#pragma once
// Shared by the harnesses: decode one input, then use the packet the way a host does (text, field lists,
// protocol, times, copies). Only the failures the packet interface documents are accepted; anything else
// that escapes, or a broken invariant, stops the run as a finding.

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
    Check(size >= -1, "GetSize below -1");
    Check((packet.IsEmpty() != FALSE) == (size < 1), "IsEmpty disagrees with GetSize");
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
    // Past the last record: the invalid-argument exception (or nothing at all for sFlow and unknown v8
    // schemes), and the arrays stay as they were.
    const size_t before = ids.size();
    try {
        packet.GetRecordFields(static_cast<int>(size < 0 ? 0 : size), ids, values);
    } catch (const CInvalidArgException&) {
    }
    Check(ids.size() == before && values.size() == before, "GetRecordFields past the end changed the arrays");
    return text;
}

// A copy of a decoded packet renders like the original (text: the original's, empty when it has none).
template <class Packet>
void ExerciseCopies(const Packet& packet, const CString& text) {
    Packet copy(packet);
    Packet assigned;
    assigned = packet;
    Check(copy.GetSize() == packet.GetSize() && assigned.GetSize() == packet.GetSize(),
          "copy holds a different number of records");
    // A long text (a v8 count of up to 65535 headings from a 28-byte datagram) is not rendered again: its
    // rendering dominated the run and the copies' records are compared by count above.
    if (text.empty() || text.size() >= 65536)
        return;
    Check(copy.ToString() == text, "copy renders differently");
    Check(assigned.ToString() == text, "assigned copy renders differently");
}

// Decodes one input into a fresh packet of the given kind. The invalid-argument exception a decoder
// raises on short or malformed data is where the receive loop drops a datagram.
template <class Packet>
int DecodeAndExercise(const uint8_t* data, size_t size) {
    CByteArray datagram(data, data + size);
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
    const CString text = Exercise(packet);
    ExerciseCopies(packet, text);
    return 0;
}

} // namespace tpnf::fuzz
