#pragma once

#include <cstddef>
#include <string>

struct pg_conn;
struct pg_result;

// A second connection to the PostgreSQL server of an ODBC data source, through libpq, for the one thing
// the ODBC driver cannot do: COPY ... FROM STDIN, which stores rows several times faster than INSERT.
// Used by CDatabase for its recordsets' rows (CCopyInserter); every failure throws CDBException.
//
// Its transaction is its own: CDatabase begins it with the first rows of one of its transactions and
// ends it right after its own commit or rollback.
class CCopyConnection {
public:
    // The libpq connection parameters for an ODBC connect string such as "DSN=flows;Port=5433": the data
    // source's Servername (or Server), Port, Database, Username (or UID), Password (or PWD) and SSLmode,
    // each overridden by the connect string, and the driver's pass-through libpq options (pqopt).
    // `profile` reads one key of a data source's section in odbc.ini ("" when it has none).
    using ProfileReader = std::string (*)(const std::string& dsn, const std::string& key);
    static std::string ConnInfo(const std::string& connect, ProfileReader profile);

    explicit CCopyConnection(const std::string& connInfo);
    ~CCopyConnection();
    CCopyConnection(const CCopyConnection&) = delete;
    CCopyConnection& operator=(const CCopyConnection&) = delete;

    // Runs `command` (COPY ... FROM STDIN, text format) with `data`, rows ended by '\n', and checks that
    // the server stored `rows` rows. With inTransaction, inside this connection's transaction, begun
    // first when none is open; else in a transaction of its own.
    void Copy(const std::string& command, const std::string& data, size_t rows, bool inTransaction);
    // Ends the open transaction, if any. A failed commit throws; a failed rollback reports false.
    void Commit();
    bool Rollback();

private:
    void Run(const char* sql);
    // Throws the failure that result (may be null) or else the connection reports; frees result.
    [[noreturn]] void ThrowError(pg_result* result);

    pg_conn* m_conn = nullptr;
    bool m_inTransaction = false;
};
