#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

#include "util/Types.h"

// Datagrams a store could not queue, written raw as numbered trace files (nf_trace_<n>.nfdmp, the
// format nfreplay sends in number order) into one directory, which is created on first use. Numbers
// continue after the highest file already there, so that nothing spilled earlier is overwritten.
// Beside them, spill.index gets one line per file: number, exporter address, exporter port and time
// received (ms since 1970), so that what a replay cannot carry (the exporter) is not lost.
// Safe to call from several threads.
class CSpillDirectory {
public:
    explicit CSpillDirectory(std::filesystem::path dir) : m_dir(std::move(dir)) {}

    // Writes one datagram; false, with the reason, when it could not be written.
    bool Write(const CByteArray& datagram, const std::string& exporter, unsigned port, int64_t timeReceived,
               std::string& error);
    // Forgets what it knew of the directory (log rotation may have moved it away): the next write
    // creates it again and numbers after the files found there.
    void Reopen();
    const std::filesystem::path& GetPath() const { return m_dir; }
    uint64_t GetWritten() const;

private:
    bool Prepare(std::string& error);

    mutable std::mutex m_lock;
    std::filesystem::path m_dir;
    bool m_bPrepared = false;
    int64_t m_nNext = 1;
    uint64_t m_nWritten = 0;
};
