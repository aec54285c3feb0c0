#pragma once
// A fresh, empty database per test, on SQLite or on PostgreSQL.
//
// SQLite: a new file in a temporary directory, reached through the data source named by
// TPNF_TEST_SQLITE_DSN with its Database attribute overridden; without that variable the test makes
// its own private ODBC configuration. Like nfcollect --db, the driver loads the library into the
// connection, so rows are inserted through SQLite itself; with TPNF_TEST_SQLITE_INSERTS=driver they go
// through the driver's statements instead. PostgreSQL: a new schema on the server of the data source named
// by TPNF_TEST_PG_DSN, made the search path by a server option in the connect string (the driver
// ignores its ConnSettings on read-only connections) and dropped afterwards;
// without that variable PostgreSQL tests are skipped (scripts/pg-server and scripts/odbc-env set it).

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include "corelib/Database.h"
#include "corelib/SQLiteInserter.h"
#include "util/TextConvert.h"

namespace tpnf::test {

enum class Backend { SQLite, PostgreSQL };

inline const char* BackendName(Backend backend) {
    return backend == Backend::SQLite ? "SQLite" : "PostgreSQL";
}

inline std::filesystem::path NewTempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tpnf-dbtest-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    return pattern;
}

// A private ODBC configuration holding one SQLite data source; removed when the process ends.
class PrivateOdbcConfig {
public:
    PrivateOdbcConfig() : m_dir(NewTempDir()) {
        std::ofstream(m_dir / "odbcinst.ini") << "[SQLite3]\nDriver = "
                                                 "/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so\n";
        std::ofstream(m_dir / "odbc.ini")
            << "[tpnf_test_sqlite]\nDriver = SQLite3\nDatabase = " << (m_dir / "unused.sqlite").string()
            << "\nTimeout = 2000\nSyncPragma = NORMAL\n";
        setenv("ODBCSYSINI", m_dir.c_str(), 1);
        setenv("ODBCINI", (m_dir / "odbc.ini").c_str(), 1);
    }
    ~PrivateOdbcConfig() {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }
    std::string Dsn() const { return "tpnf_test_sqlite"; }

private:
    std::filesystem::path m_dir;
};

// The SQLite data source: the configured one, or one in a private configuration.
inline std::string SQLiteDsn() {
    if (const char* name = std::getenv("TPNF_TEST_SQLITE_DSN"); name != nullptr && *name != 0)
        return name;
    static const PrivateOdbcConfig config;
    return config.Dsn();
}

// The attribute that has the SQLite driver lend its connection to the library, unless
// TPNF_TEST_SQLITE_INSERTS=driver.
inline std::string SQLiteInsertAttribute() {
    const char* inserts = std::getenv("TPNF_TEST_SQLITE_INSERTS");
    if (inserts != nullptr && std::string(inserts) == "driver")
        return {};
    return ";LoadExt=" + tpnf::sqlite::ExtensionFile();
}

inline std::string PostgreSQLDsn() {
    const char* name = std::getenv("TPNF_TEST_PG_DSN");
    return name != nullptr ? std::string(name) : std::string();
}

class TestDataSource {
public:
    explicit TestDataSource(Backend backend) : m_backend(backend) {
        static std::atomic<int> counter{0};
        int serial = counter++;
        if (backend == Backend::SQLite) {
            m_dir = NewTempDir();
            m_name = SQLiteDsn() + ";Database=" + SQLiteFile().string() + SQLiteInsertAttribute();
            return;
        }
        std::string dsn = PostgreSQLDsn();
        if (dsn.empty()) {
            m_skipReason = "TPNF_TEST_PG_DSN is not set (start scripts/pg-server, eval scripts/odbc-env)";
            return;
        }
        std::random_device random;
        m_schema = "tpnf_" + std::to_string(getpid()) + "_" + std::to_string(serial) + "_" +
                   std::to_string(random() % 100000);
        m_name = dsn + ";pqopt={options=-csearch_path=" + m_schema + " application_name=" + m_schema + "}";
        CDatabase admin;
        admin.OpenEx(tpnf::FromUtf8("DSN=" + dsn));
        admin.ExecuteSQL(tpnf::FromUtf8("create schema " + m_schema));
    }

    ~TestDataSource() {
        if (!m_schema.empty()) {
            try {
                CDatabase admin;
                admin.OpenEx(tpnf::FromUtf8("DSN=" + PostgreSQLDsn()));
                admin.ExecuteSQL(tpnf::FromUtf8("drop schema " + m_schema + " cascade"));
            } catch (const std::exception&) {
                // a stopped server keeps its schema; the cluster is thrown away anyway
            }
        }
        if (!m_dir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_dir, ignored);
        }
    }

    TestDataSource(const TestDataSource&) = delete;
    TestDataSource& operator=(const TestDataSource&) = delete;

    Backend GetBackend() const { return m_backend; }
    const std::string& SkipReason() const { return m_skipReason; }
    // The data source name as the writer takes it: "DSN=" followed by it reaches this database.
    CString Name() const { return tpnf::FromUtf8(m_name); }
    CString ConnectString() const { return L"DSN=" + Name(); }
    // PostgreSQL: the schema, which is also the application name of every connection to it.
    const std::string& Schema() const { return m_schema; }
    // SQLite: the database file.
    std::filesystem::path SQLiteFile() const { return m_dir / "flows.sqlite"; }
    // The same database through a connection that the driver makes read-only.
    CString ReadOnlyName() const { return Name() + L";ReadOnly=1"; }

private:
    Backend m_backend;
    std::string m_name;
    std::string m_skipReason;
    std::string m_schema;
    std::filesystem::path m_dir;
};

} // namespace tpnf::test
