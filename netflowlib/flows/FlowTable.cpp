#include "flows/FlowTable.h"

#include <sqlext.h>

#include "corelib/Database.h"
#include "corelib/ODBCRecordset.h"
#include "corelib/TypeInfo.h"

namespace {

// The source's own name for an SQL type; the plain SQL name where the source lists none.
CString TypeName(CDatabase& database, int sqlType, const wchar_t* plain) {
    try {
        return CTypeInfo::GetSQLType(&database, sqlType);
    } catch (const CDBException& e) {
        if (e.m_nRetCode != CDBException::errorNoTypeInfo)
            throw;
        return plain;
    }
}

// Integer keys whose values fit 16 bits get the source's INTEGER type; the others need 64 bits.
bool IsSmallInteger(EFlowKey key) {
    switch (key) {
    case EFlowKey::ExporterPort:
    case EFlowKey::IpVersion:
    case EFlowKey::SrcPort:
    case EFlowKey::DstPort:
    case EFlowKey::Proto:
    case EFlowKey::Tos:
    case EFlowKey::TcpFlags:
    case EFlowKey::SrcMask:
    case EFlowKey::DstMask:
    case EFlowKey::Vlan:
        return true;
    default:
        return false;
    }
}

CString Wide(std::string_view text) {
    return CString(text.begin(), text.end());
}

} // namespace

void CFlowTable::CreateMissing(const CString& sql) {
    try {
        m_database.ExecuteSQL(sql);
    } catch (const CDBException&) {
        // Two writers creating the same object at once: PostgreSQL fails the later statement on its
        // catalog once the first one commits, and the same statement run again finds the object made.
        m_database.ExecuteSQL(sql);
    }
}

void CFlowTable::Create() {
    const CString bigint = TypeName(m_database, SQL_BIGINT, L"bigint");
    const CString integer = TypeName(m_database, SQL_INTEGER, L"integer");
    const CString text = TypeName(m_database, SQL_VARCHAR, L"varchar") + L"(64)";
    CString sql = CString(L"create table if not exists ") + TABLE_NAME + L" (";
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i) {
        const auto key = static_cast<EFlowKey>(i);
        if (i != 0)
            sql += L", ";
        sql += Wide(CFlowRecord::KeyName(key)) + L" ";
        if (CFlowRecord::KeyKind(key) != EFlowKeyKind::Integer)
            sql += text;
        else
            sql += IsSmallInteger(key) ? integer : bigint;
    }
    sql += L")";
    CreateMissing(sql);
    CreateMissing(CString(L"create index if not exists flows_flow_end on ") + TABLE_NAME + L" (flow_end)");
    CreateMissing(CString(L"create index if not exists flows_exporter on ") + TABLE_NAME + L" (exporter)");
}

void CFlowTable::Write(const CFlowRecord* flows, size_t count) {
    if (count == 0)
        return;
    const bool transact = m_database.CanTransact() != FALSE;
    CODBCRecordset rows(&m_database);
    // The columns are learnt before the transaction starts, so that its first statement writes: an
    // SQLite transaction that has read waits for no other writer, it fails at once.
    rows.Open(CString(L"select * from ") + TABLE_NAME);
    if (!rows.CanAppend())
        throw CDBException(CDBException::errorNotUpdatable, L"The flows table cannot be written\n");
    size_t columns[FLOW_KEY_COUNT];
    for (size_t i = 0; i < FLOW_KEY_COUNT; ++i)
        columns[i] = rows.GetFieldIndex(Wide(CFlowRecord::KeyName(static_cast<EFlowKey>(i))));
    try {
        if (transact)
            m_database.BeginTrans();
        char text[CFlowRecord::TEXT_CAPACITY];
        for (const CFlowRecord* flow = flows; flow != flows + count; ++flow) {
            rows.AddNew(); // every column starts NULL
            for (size_t i = 0; i < FLOW_KEY_COUNT; ++i) {
                const auto key = static_cast<EFlowKey>(i);
                if (flow->IsNull(key))
                    continue;
                CDBField& field = rows.FieldAt(columns[i]);
                if (CFlowRecord::KeyKind(key) == EFlowKeyKind::Integer) {
                    field.SetBigInt(flow->Get(key));
                } else {
                    const std::string_view value = flow->FormatText(key, text);
                    m_text.assign(value.begin(), value.end());
                    field = m_text;
                }
            }
            rows.Update();
        }
        rows.Close();
        if (transact)
            m_database.CommitTrans();
    } catch (...) {
        // Rows still buffered are dropped with the transaction; the recordset then closes quietly.
        if (transact)
            m_database.Rollback();
        throw;
    }
}
