#include "SpillDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <regex>
#include <system_error>

namespace fs = std::filesystem;

bool CSpillDirectory::Write(const CByteArray& datagram, const std::string& exporter, unsigned port,
                            int64_t timeReceived, std::string& error) {
    std::lock_guard<std::mutex> lock(m_lock);
    if (!m_bPrepared && !Prepare(error))
        return false;
    const int64_t number = m_nNext;
    const fs::path file = m_dir / ("nf_trace_" + std::to_string(number) + ".nfdmp");
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (out == nullptr) {
        error = file.string() + ": " + std::strerror(errno);
        m_bPrepared = false; // the directory may be gone: look again next time
        return false;
    }
    const size_t written = datagram.empty() ? 0 : std::fwrite(datagram.data(), 1, datagram.size(), out);
    if (std::fclose(out) != 0 || written != datagram.size()) {
        error = file.string() + ": " + std::strerror(errno);
        return false;
    }
    ++m_nNext;
    std::FILE* index = std::fopen((m_dir / "spill.index").c_str(), "a");
    if (index != nullptr) {
        std::fprintf(index, "%lld %s %u %lld\n", static_cast<long long>(number), exporter.c_str(), port,
                     static_cast<long long>(timeReceived));
        std::fclose(index);
    }
    ++m_nWritten;
    return true;
}

void CSpillDirectory::Reopen() {
    std::lock_guard<std::mutex> lock(m_lock);
    m_bPrepared = false;
}

uint64_t CSpillDirectory::GetWritten() const {
    std::lock_guard<std::mutex> lock(m_lock);
    return m_nWritten;
}

bool CSpillDirectory::Prepare(std::string& error) {
    std::error_code ec;
    fs::create_directories(m_dir, ec);
    if (ec) {
        error = m_dir.string() + ": " + ec.message();
        return false;
    }
    static const std::regex kTrace(R"(nf_trace_(\d+)\.nfdmp)");
    int64_t highest = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_dir, ec)) {
        std::smatch match;
        const std::string name = entry.path().filename().string();
        if (std::regex_match(name, match, kTrace))
            highest = std::max<int64_t>(highest, std::stoll(match[1].str()));
    }
    m_nNext = std::max(m_nNext, highest + 1);
    m_bPrepared = true;
    return true;
}
