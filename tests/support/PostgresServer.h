#pragma once
// A throwaway PostgreSQL server of one test's own (scripts/pg-server on a port of its own, so tests run
// side by side) with an ODBC configuration naming it: data source flows_pg, selected for this process and
// its children through ODBCSYSINI and ODBCINI.

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

namespace tpnf::test {

class PostgresServer {
public:
    // Whether PostgreSQL 15 is installed; tests skip without it.
    static bool Available() { return std::filesystem::exists("/usr/lib/postgresql/15/bin/pg_ctl"); }

    // False when the server does not come up. Its files go to a short directory of their own (the
    // server's socket path must stay under 108 bytes).
    bool Start(int port) {
        char pattern[] = "/tmp/tpnf-pg-XXXXXX";
        if (mkdtemp(pattern) == nullptr)
            return false;
        m_port = port;
        m_dir = pattern;
        const std::filesystem::path& dir = m_dir;
        // The server runs as the postgres user when the tests run as root: it must reach its directory.
        std::filesystem::permissions(dir,
                                     std::filesystem::perms::group_read | std::filesystem::perms::group_exec |
                                         std::filesystem::perms::others_read |
                                         std::filesystem::perms::others_exec,
                                     std::filesystem::perm_options::add);
        if (!Script("pg-server start") || !Script("odbc-env --dir " + (dir / "odbc").string()))
            return false;
        m_bRunning = true;
        setenv("ODBCSYSINI", (dir / "odbc").c_str(), 1);
        setenv("ODBCINI", (dir / "odbc" / "odbc.ini").c_str(), 1);
        setenv("LANG", "C.UTF-8", 1);
        return true;
    }
    ~PostgresServer() {
        if (m_bRunning)
            Script("pg-server stop");
        if (!m_dir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_dir, ignored);
        }
    }

    // Stops the server at once, as a crash would, keeping its data; Up starts it again.
    bool Down() { return Script("pg-server down"); }
    bool Up() { return Script("pg-server up"); }

    static const char* DataSource() { return "flows_pg"; }

    // What psql prints for a query, unaligned, tuples only; nullopt when it fails.
    std::optional<std::string> Query(const std::string& sql) const {
        return Shell("PGPASSWORD=odbcpw psql -h 127.0.0.1 -p " + std::to_string(m_port) +
                     " -U odbc -d flows -tAF '|' -c \"" + sql + "\"");
    }

private:
    bool Script(const std::string& command) const {
        const std::filesystem::path scripts =
            std::filesystem::path(TPNF_TEST_DATA_DIR) / ".." / ".." / "scripts";
        return Shell("TPNF_PG_PORT=" + std::to_string(m_port) + " TPNF_PG_DIR=" + (m_dir / "pg").string() +
                     " " + (scripts / command).string() + " > /dev/null")
            .has_value();
    }

    static std::optional<std::string> Shell(const std::string& command) {
        std::FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr)
            return std::nullopt;
        std::string out;
        char buffer[512];
        while (std::fgets(buffer, sizeof buffer, pipe) != nullptr)
            out += buffer;
        return pclose(pipe) == 0 ? std::optional<std::string>(out) : std::nullopt;
    }

    int m_port = 0;
    std::filesystem::path m_dir;
    bool m_bRunning = false;
};

} // namespace tpnf::test
