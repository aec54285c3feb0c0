#include "packet/TPAbstractPacket.h"

#include <ctime>
#include <cwchar>

const CString CTPAbstractPacket::TIMESTAMP_FORMAT = L"%m/%d/%Y %H:%M:%S";

void CTPAbstractPacket::PrepareSQL(int&, CODBCRecordset&, CODBCRecordset&) {}

CString CTPAbstractPacket::FormatTimestamp(int64_t seconds) {
    // The runtime the packets were written for converts no time before 1970; keep that limit.
    if (seconds < 0)
        AfxThrowInvalidArgException();
    time_t t = static_cast<time_t>(seconds);
    struct tm local {};
    if (localtime_r(&t, &local) == nullptr)
        AfxThrowInvalidArgException();
    wchar_t buffer[128];
    size_t n = wcsftime(buffer, 128, TIMESTAMP_FORMAT.c_str(), &local);
    return n == 0 ? CString() : CString(buffer, n);
}
