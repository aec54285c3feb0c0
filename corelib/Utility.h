#pragma once

#include "util/Types.h"

// Services of the core library that the collector uses.
class CUtility {
public:
    // Directory for trace files, always ending in '/'. Set by the host, else TP_PDU_TRACE_DIR, else the
    // current directory.
    static CString GetPduTraceDir();
    static void SetPduTraceDir(const CString& directory);

    // Text of a system error code (errno value).
    static CString GetSystemErrorString(int errorCode);
};
