#pragma once

#include <algorithm>
#include <utility>

#include "packet/TPAbstractPacket.h"

// Base of the fixed-format NetFlow packets (v1, v5, v7, v8): the record loop and the text frame they share.
class CNetFlowPacket : public CTPAbstractPacket {
protected:
    // Sender line, header text and the records heading that open every packet text.
    CString FormatOpening(const CString& headerText) const;
    // "*****Record n*****" heading in front of each record text, numbered from 0.
    static void AppendRecordHeading(CString& text, int index);

    // Appends count records of TRecord::WIRE_SIZE bytes each from firstOffset on; 0 at the first one
    // that does not fit (those before it stay), 1 otherwise. No upper limit on count; trailing bytes
    // are ignored.
    template <class TRecord>
    static int DecodeRecords(const CByteArray& data, int count, int firstOffset, CArray<TRecord>& records);
};

template <class TRecord>
int CNetFlowPacket::DecodeRecords(const CByteArray& data, int count, int firstOffset,
                                  CArray<TRecord>& records) {
    if (count < 1)
        return 1;
    // Reserve what the datagram can hold, not what a hostile count claims.
    int64_t fitting =
        std::max<int64_t>(0, (static_cast<int64_t>(data.size()) - firstOffset) / TRecord::WIRE_SIZE);
    records.reserve(records.size() + static_cast<size_t>(std::min<int64_t>(count, fitting)));
    for (int i = 0; i < count; ++i) {
        TRecord record;
        if (!record.Decode(data, firstOffset + TRecord::WIRE_SIZE * i))
            return 0;
        records.push_back(std::move(record));
    }
    return 1;
}
