#include "corelib/Utility.h"

#include "util/TextConvert.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

std::mutex g_traceDirLock;
CString g_traceDir;
bool g_traceDirSet = false;

} // namespace

CString CUtility::GetPduTraceDir() {
    CString directory;
    {
        std::lock_guard<std::mutex> lock(g_traceDirLock);
        if (g_traceDirSet)
            directory = g_traceDir;
    }
    if (directory.empty()) {
        const char* env = std::getenv("TP_PDU_TRACE_DIR");
        directory = env != nullptr && *env != 0 ? tpnf::FromUtf8(env) : CString(L".");
    }
    if (directory.back() != L'/')
        directory += L'/';
    return directory;
}

void CUtility::SetPduTraceDir(const CString& directory) {
    std::lock_guard<std::mutex> lock(g_traceDirLock);
    g_traceDir = directory;
    g_traceDirSet = true;
}

CString CUtility::GetSystemErrorString(int errorCode) {
    char buffer[256];
    // GNU strerror_r returns the text, which may or may not live in buffer.
    const char* text = strerror_r(errorCode, buffer, sizeof buffer);
    return tpnf::FromUtf8(text);
}
