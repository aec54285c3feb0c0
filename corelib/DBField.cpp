#include "corelib/DBField.h"

#include <cstdlib>

#include "util/TextConvert.h"

CDBField& CDBField::operator=(int32_t value) {
    SetInteger(value);
    m_bDirty = true;
    return *this;
}

CDBField& CDBField::SetBigInt(int64_t value) {
    SetInteger(value);
    m_bDirty = true;
    return *this;
}

CDBField& CDBField::operator=(const CString& value) {
    // Encoded into the storage the previous text left, so that a row written again allocates nothing.
    m_kind = Kind::Text;
    m_strText.clear();
    tpnf::AppendUtf8(m_strText, value);
    m_bDirty = true;
    return *this;
}

void CDBField::SetNull() {
    m_kind = Kind::Null;
    m_bDirty = true;
}

int32_t CDBField::AsLong() const {
    return static_cast<int32_t>(AsBigInt());
}

int64_t CDBField::AsBigInt() const {
    switch (m_kind) {
    case Kind::Integer:
        return m_nValue;
    case Kind::Text:
        return std::strtoll(m_strText.c_str(), nullptr, 10);
    case Kind::Null:
        break;
    }
    return 0;
}

CString CDBField::AsString() const {
    switch (m_kind) {
    case Kind::Integer:
        return std::to_wstring(m_nValue);
    case Kind::Text:
        return tpnf::FromUtf8(m_strText);
    case Kind::Null:
        break;
    }
    return CString();
}

void CDBField::SetInteger(int64_t value) {
    m_kind = Kind::Integer;
    m_nValue = value;
}
