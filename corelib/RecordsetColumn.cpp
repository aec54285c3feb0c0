#include "corelib/RecordsetColumn.h"

#include <charconv>

#include "corelib/DBException.h"
#include "util/TextConvert.h"

int64_t CRecordsetColumn::IntegerValue(const CDBField& field) const {
    if (field.m_kind == CDBField::Kind::Integer)
        return field.m_nValue;
    const std::string& text = field.m_strText;
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        throw CDBException(CDBException::errorInvalidValue,
                           L"Not an integer for column " + name + L": " + tpnf::FromUtf8(text) + L"\n");
    return value;
}

std::string_view CRecordsetColumn::TextValue(const CDBField& field, char (&scratch)[24]) {
    if (field.m_kind == CDBField::Kind::Text)
        return field.m_strText;
    auto result = std::to_chars(scratch, scratch + sizeof scratch, field.m_nValue);
    return std::string_view(scratch, static_cast<size_t>(result.ptr - scratch));
}
