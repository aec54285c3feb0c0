#pragma once
// How a sample is read, for either record holder: the sample's own fields go into a CSFlowSample, its
// records into an array of CSFlowRecord or of CSFlowCompactRecord.

#include "sflow/SFlowSample.h"
#include "sflow/SFlowWire.h"

namespace tpnf::sflow {

class SampleReader {
public:
    // Reads the sample tag and the body laid out for the datagram's version. Gives false when the
    // samples after this one cannot be found: exact mode met a version 2/4 sample, packet-data,
    // extended-data or counters type it does not know, none of which carries a length to skip by.
    template <class RecordArray>
    static bool Read(CSFlowSample& s, RecordArray& records, const CByteArray& data, int& offset, bool exact) {
        s.m_sampleType = ReadU32(data, offset);
        if (DatagramVersion(data) < 5) {
            if (s.m_sampleType == 1)
                return FlowV24(s, records, data, offset, exact);
            if (s.m_sampleType == 2)
                return CountersV24(s, records, data, offset, exact);
            return !exact;
        }
        bool known = s.m_sampleType >= 1 && s.m_sampleType <= 4;
        // By default an unknown tag is not skipped by the sample length: intended, the next tag is read
        // from the length word. Exact, every sample ends where its length says.
        if (!known && !exact)
            return true;
        // The length is otherwise read and ignored: the cursor moves only by what fields and records
        // consumed.
        uint32_t length = ReadU32(data, offset);
        int end = exact ? EndOf(data, offset, length) : 0;
        if (s.m_sampleType == 1 || s.m_sampleType == 3)
            FlowV5(s, records, data, offset, exact, s.m_sampleType == 3);
        else if (known)
            CountersV5(s, records, data, offset, exact, s.m_sampleType == 4);
        if (exact)
            FinishAt(offset, end);
        return true;
    }

private:
    // A compact source id: type in the top 8 bits (by default shifted as a signed value), index below.
    static void SetSourceId(CSFlowSample& s, uint32_t word, bool exact) {
        s.m_sourceIdType = exact ? static_cast<int32_t>(word >> 24) : static_cast<int32_t>(word) >> 24;
        s.m_sourceIdIndex = word & 0xFFFFFF;
    }

    // A compact interface: format in the top 2 bits (by default shifted as a signed value), port below.
    static void SplitInterface(uint32_t word, bool exact, int32_t& format, uint32_t& port) {
        format = exact ? static_cast<int32_t>(word >> 30) : static_cast<int32_t>(word) >> 30;
        port = word & 0x3FFFFFFF;
    }

    static void SourceIdV5(CSFlowSample& s, const CByteArray& data, int& offset, bool exact, bool expanded) {
        if (expanded) {
            s.m_sourceIdType = static_cast<int32_t>(ReadU32(data, offset));
            s.m_sourceIdIndex = ReadU32(data, offset);
        } else {
            SetSourceId(s, ReadU32(data, offset), exact);
        }
    }

    template <class RecordArray>
    static void FlowV5(CSFlowSample& s, RecordArray& records, const CByteArray& data, int& offset, bool exact,
                       bool expanded) {
        s.m_sequenceNumber = ReadU32(data, offset);
        SourceIdV5(s, data, offset, exact, expanded);
        s.m_samplingRate = ReadU32(data, offset);
        s.m_samplePool = ReadU32(data, offset);
        s.m_drops = ReadU32(data, offset);
        if (expanded) {
            s.m_inputPortFormat = static_cast<int32_t>(ReadU32(data, offset));
            s.m_inputPort = ReadU32(data, offset);
            s.m_outputPortFormat = static_cast<int32_t>(ReadU32(data, offset));
            s.m_outputPort = ReadU32(data, offset);
        } else {
            SplitInterface(ReadU32(data, offset), exact, s.m_inputPortFormat, s.m_inputPort);
            SplitInterface(ReadU32(data, offset), exact, s.m_outputPortFormat, s.m_outputPort);
        }
        uint32_t count = ReadU32(data, offset);
        ReserveFor(records, data, offset, count, 8);
        for (uint32_t i = 0; i < count; ++i)
            records.emplace_back().Decode(data, offset, exact);
    }

    template <class RecordArray>
    static void CountersV5(CSFlowSample& s, RecordArray& records, const CByteArray& data, int& offset,
                           bool exact, bool expanded) {
        s.m_sequenceNumber = ReadU32(data, offset);
        SourceIdV5(s, data, offset, exact, expanded);
        uint32_t count = ReadU32(data, offset);
        ReserveFor(records, data, offset, count, 8);
        for (uint32_t i = 0; i < count; ++i)
            records.emplace_back().DecodeCounters(data, offset, exact);
    }

    // Ports are whole words (no format split). By default the extended-data elements are read but the
    // packet-data record is what gets appended for each of them: intended. Exact, each element is kept.
    template <class RecordArray>
    static bool FlowV24(CSFlowSample& s, RecordArray& records, const CByteArray& data, int& offset,
                        bool exact) {
        s.m_sequenceNumber = ReadU32(data, offset);
        SetSourceId(s, ReadU32(data, offset), exact);
        s.m_samplingRate = ReadU32(data, offset);
        s.m_samplePool = ReadU32(data, offset);
        s.m_drops = ReadU32(data, offset);
        s.m_inputPort = ReadU32(data, offset);
        s.m_outputPort = ReadU32(data, offset);
        if (!records.emplace_back().DecodePacketData(data, offset, exact) && exact)
            return false;
        uint32_t count = ReadU32(data, offset);
        ReserveFor(records, data, offset, count, 4);
        for (uint32_t i = 0; i < count; ++i) {
            if (exact) {
                if (!records.emplace_back().DecodeExtendedData(data, offset, true))
                    return false;
                continue;
            }
            typename RecordArray::value_type element;
            element.DecodeExtendedData(data, offset);
            records.push_back(records.front());
        }
        return true;
    }

    // Counters types 1-6 start with the generic block, 7 is a VLAN block; 2, 3 and 5 add a second block.
    // Any other type leaves one record that renders as unknown.
    template <class RecordArray>
    static bool CountersV24(CSFlowSample& s, RecordArray& records, const CByteArray& data, int& offset,
                            bool exact) {
        s.m_sequenceNumber = ReadU32(data, offset);
        SetSourceId(s, ReadU32(data, offset), exact);
        s.m_samplingRate = ReadU32(data, offset);
        uint32_t type = ReadU32(data, offset);

        auto& first = records.emplace_back();
        if (type >= 1 && type <= 6)
            first.DecodeCounterBlock(1, data, offset, exact);
        else if (type == 7)
            first.DecodeCounterBlock(5, data, offset, exact);
        else
            return !exact;

        if (type == 2)
            records.emplace_back().DecodeCounterBlock(2, data, offset, exact);
        else if (type == 3)
            records.emplace_back().DecodeCounterBlock(3, data, offset, exact);
        else if (type == 5)
            records.emplace_back().DecodeCounterBlock(4, data, offset, exact);
        return true;
    }
};

} // namespace tpnf::sflow
