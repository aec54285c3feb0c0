#pragma once
// SQLite files as ODBC data sources without any system set-up, shared by the tools that take a database
// file: a private odbc.ini (ODBCINI) lists one data source per file, with the SQLite driver's absolute
// path, after whatever the user's own odbc.ini held, so that their data sources stay usable alongside.

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "corelib/SQLiteInserter.h"

namespace tpnf::tools {

class CSQLiteSources {
public:
    CSQLiteSources() = default;
    CSQLiteSources(const CSQLiteSources&) = delete;
    CSQLiteSources& operator=(const CSQLiteSources&) = delete;
    ~CSQLiteSources() {
        if (!m_dir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_dir, ignored);
        }
    }

    // The SQLite ODBC driver (Debian package libsqliteodbc); empty when it is not installed.
    static std::string FindDriver() {
        static const char* const kDrivers[] = {"/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so",
                                               "/usr/lib/aarch64-linux-gnu/odbc/libsqlite3odbc.so",
                                               "/usr/lib/odbc/libsqlite3odbc.so",
                                               "/usr/local/lib/libsqlite3odbc.so"};
        for (const char* candidate : kDrivers)
            if (std::filesystem::exists(candidate))
                return candidate;
        return {};
    }

    // Adds a data source for the file (created on first connect) and names it in dsn. The file's
    // directory must exist and the file must be writable.
    bool Add(const std::string& file, std::string& dsn, std::string& error) {
        namespace fs = std::filesystem;
        const std::string driver = FindDriver();
        if (driver.empty()) {
            error =
                "the SQLite ODBC driver (libsqlite3odbc.so, Debian package libsqliteodbc) is not installed";
            return false;
        }
        std::error_code ec;
        const fs::path path = fs::absolute(file, ec);
        if (ec || !fs::is_directory(path.parent_path())) {
            error = "directory " + path.parent_path().string() + " does not exist";
            return false;
        }
        {
            std::ofstream probe(path, std::ios::app);
            if (!probe) {
                error = path.string() +
                        " cannot be written: " + std::error_code(errno, std::generic_category()).message();
                return false;
            }
        }
        if (m_dir.empty()) {
            char dirTemplate[] = "/tmp/nfcollect-odbc.XXXXXX";
            if (mkdtemp(dirTemplate) == nullptr) {
                error = std::string("no temporary directory: ") + std::strerror(errno);
                return false;
            }
            m_dir = dirTemplate;
            m_userSources = ReadUserSources();
        }
        dsn = "nfcollect_sqlite_" + std::to_string(m_sources.size() + 1);
        // WAL lets readers work while the collector writes; NORMAL sync may lose the last transactions on a
        // power cut but never corrupts the file; the busy timeout (ms) lets a writer wait for a reader.
        m_sources += "[" + dsn + "]\nDriver = " + driver + "\nDatabase = " + path.string() +
                     "\nJournalMode = WAL\nSyncPragma = NORMAL\nTimeout = 10000\n";
        // The driver loads this library into the connection, which then writes rows through SQLite
        // itself, several times as fast as through the driver's statements.
        if (const std::string extension = tpnf::sqlite::ExtensionFile(); !extension.empty())
            m_sources += "LoadExt = " + extension + "\n";
        const fs::path ini = fs::path(m_dir) / "odbc.ini";
        std::ofstream(ini) << m_userSources << "\n" << m_sources;
        setenv("ODBCINI", ini.c_str(), 1);
        return true;
    }

private:
    // The odbc.ini the driver manager would read for this user: $ODBCINI, else ~/.odbc.ini.
    static std::string ReadUserSources() {
        std::string file;
        if (const char* ini = getenv("ODBCINI"); ini != nullptr && *ini != '\0')
            file = ini;
        else if (const char* home = getenv("HOME"); home != nullptr && *home != '\0')
            file = std::string(home) + "/.odbc.ini";
        std::ifstream in(file);
        return in ? std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())
                  : std::string();
    }

    std::string m_dir;
    std::string m_userSources;
    std::string m_sources;
};

} // namespace tpnf::tools
