#pragma once
// How a record of any holder is read: one set of readers for the holder that carries every kind
// (CSFlowRecord) and the one that carries only its own (CSFlowCompactRecord).

#include "sflow/SFlowKinds.h"
#include "sflow/SFlowWire.h"

namespace tpnf::sflow {

// The text of a record without a known kind; no line end, so the next record follows on its line.
inline constexpr const wchar_t* kUnknownRecordText = L"Unknown record";

// How a record of either holder is read. A holder befriends this struct and gives, through
// Emplace(KindTag<Kind>), the member of that kind a reader decodes into.
struct RecordReader {
    // A version 5 flow record: format, length, body. By default known formats read exactly the fields
    // they know and the length only skips unknown ones; exact, every record ends where its length says.
    template <class Holder>
    static void Flow(Holder& holder, const CByteArray& data, int& offset, bool exact) {
        holder.m_flowFormat = ReadU32(data, offset);
        int32_t length = CNetFlowUtility::GetULongOffset(data, offset);
        int end = exact ? EndOf(data, offset, static_cast<uint32_t>(length)) : 0;
        bool known = VisitFlowKind(holder.m_flowFormat,
                                   [&](auto kind) { holder.Emplace(kind).Decode(data, offset, exact); });
        if (exact)
            FinishAt(offset, end);
        else if (!known)
            Advance(offset, length);
    }

    // A version 5 counter record: format, length, body; the length is used as for flow records.
    template <class Holder>
    static void Counters(Holder& holder, const CByteArray& data, int& offset, bool exact) {
        holder.m_counterFormat = ReadU32(data, offset);
        int32_t length = CNetFlowUtility::GetULongOffset(data, offset);
        int end = exact ? EndOf(data, offset, static_cast<uint32_t>(length)) : 0;
        bool known = VisitCounterKind(holder.m_counterFormat,
                                      [&](auto kind) { holder.Emplace(kind).Decode(data, offset, exact); });
        if (exact)
            FinishAt(offset, end);
        else if (!known)
            Advance(offset, length);
    }

    // The packet data of a version 2/4 flow sample: type (1 header, 2 IPv4, 3 IPv6), then the body. An
    // unknown type reads nothing further; gives whether the type was known.
    template <class Holder>
    static bool PacketData(Holder& holder, const CByteArray& data, int& offset, bool exact) {
        static constexpr uint32_t formats[] = {0, 1, 3, 4};
        uint32_t type = ReadU32(data, offset);
        if (type < 1 || type > 3)
            return false;
        holder.m_flowFormat = formats[type];
        VisitFlowKind(holder.m_flowFormat,
                      [&](auto kind) { holder.Emplace(kind).Decode(data, offset, exact); });
        return true;
    }

    // One extended-data element of a version 2/4 flow sample: type (1 to 5: switch, router, gateway,
    // user, URL), then the body. No length is available, so an unknown type reads nothing further; gives
    // whether the type was known.
    template <class Holder>
    static bool ExtendedData(Holder& holder, const CByteArray& data, int& offset, bool exact) {
        uint32_t type = ReadU32(data, offset);
        if (type < 1 || type > 5)
            return false;
        holder.m_flowFormat = 1000 + type;
        VisitFlowKind(holder.m_flowFormat,
                      [&](auto kind) { holder.Emplace(kind).Decode(data, offset, exact); });
        return true;
    }

    // A version 2/4 counters block of a known counter format (no format or length words on the wire).
    template <class Holder>
    static void CounterBlock(Holder& holder, uint32_t format, const CByteArray& data, int& offset,
                             bool exact) {
        holder.m_counterFormat = format;
        VisitCounterKind(format, [&](auto kind) { holder.Emplace(kind).Decode(data, offset, exact); });
    }
};

} // namespace tpnf::sflow
