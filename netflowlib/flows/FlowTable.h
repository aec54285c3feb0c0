#pragma once

#include <cstddef>
#include <vector>

#include "flows/FlowRecord.h"
#include "util/Types.h"

class CDatabase;

// The "flows" table of an ODBC data source: one row per flow, one typed column per key (named as the
// key; 64-bit integers, text for addresses, MACs and the protocol), indexed on flow_end and on
// exporter. Rows have no key of their own, so any number of writers, in any number of processes, add
// rows to one table at once.
//
// Synchronous: every failure is thrown as CDBException. The connection is the caller's and stays open.
class CFlowTable {
public:
    static constexpr const wchar_t* TABLE_NAME = L"flows";

    explicit CFlowTable(CDatabase& database) : m_database(database) {}

    // Creates the table and its indexes where they are missing. Writers that start at the same moment
    // may all call it.
    void Create();

    // Adds the flows as rows in one transaction (where the source has transactions): all of them, or,
    // after a failure, none.
    void Write(const CFlowRecord* flows, size_t count);
    void Write(const std::vector<CFlowRecord>& flows) { Write(flows.data(), flows.size()); }

private:
    // Runs a statement that creates something if it is missing (see Create).
    void CreateMissing(const CString& sql);

    CDatabase& m_database;
    CString m_text; // a text value on its way to its column
};
