#include "corelib/CopyConnection.h"

#include <sql.h>

#include <libpq-fe.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "corelib/DBException.h"
#include "corelib/ODBCCalls.h"
#include "util/TextConvert.h"

namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// "key=value;key={value with ; in it};..." by lower-case key; the braces are not part of the value.
std::map<std::string, std::string> ConnectAttributes(const std::string& connect) {
    std::map<std::string, std::string> attributes;
    size_t at = 0;
    while (at < connect.size()) {
        const size_t equals = connect.find('=', at);
        if (equals == std::string::npos)
            break;
        std::string key = Lower(connect.substr(at, equals - at));
        std::string value;
        size_t end;
        if (equals + 1 < connect.size() && connect[equals + 1] == '{') {
            const size_t close = connect.find('}', equals + 2);
            end = close == std::string::npos ? connect.size() : close + 1;
            value = connect.substr(equals + 2,
                                   (close == std::string::npos ? connect.size() : close) - equals - 2);
            end = std::min(connect.find(';', end), connect.size());
        } else {
            end = std::min(connect.find(';', equals + 1), connect.size());
            value = connect.substr(equals + 1, end - equals - 1);
        }
        attributes.emplace(std::move(key), std::move(value)); // the first of a repeated key counts
        at = end + 1;
    }
    return attributes;
}

// A libpq parameter value: quoted, with quotes and backslashes escaped.
std::string Quoted(const std::string& value) {
    std::string out = "'";
    for (char c : value) {
        if (c == '\'' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "'";
}

void IgnoreNotice(void*, const char*) {}

} // namespace

std::string CCopyConnection::ConnInfo(const std::string& connect, ProfileReader profile) {
    const std::map<std::string, std::string> attributes = ConnectAttributes(connect);
    const auto dsn = attributes.find("dsn");
    auto value = [&](std::initializer_list<const char*> keys) {
        for (const char* key : keys)
            if (auto found = attributes.find(key); found != attributes.end())
                return found->second;
        if (dsn != attributes.end())
            for (const char* key : keys)
                if (std::string stored = profile(dsn->second, key); !stored.empty())
                    return stored;
        return std::string();
    };
    static const struct {
        const char* libpq;
        std::initializer_list<const char*> odbc;
    } kParameters[] = {
        {"host", {"servername", "server"}}, {"port", {"port"}},
        {"dbname", {"database"}},           {"user", {"username", "uid", "user"}},
        {"password", {"password", "pwd"}},  {"sslmode", {"sslmode"}},
    };
    std::string info = "client_encoding='UTF8' fallback_application_name='tp_netflowlib'";
    for (const auto& parameter : kParameters)
        if (std::string v = value(parameter.odbc); !v.empty())
            info += std::string(" ") + parameter.libpq + "=" + Quoted(v);
    if (std::string options = value({"pqopt"}); !options.empty())
        info += " " + options; // libpq's own syntax already
    return info;
}

CCopyConnection::CCopyConnection(const std::string& connInfo) : m_conn(PQconnectdb(connInfo.c_str())) {
    if (m_conn == nullptr)
        throw CDBException(SQL_ERROR, L"Cannot allocate a PostgreSQL connection\n");
    if (PQstatus(m_conn) != CONNECTION_OK) {
        const std::string message = PQerrorMessage(m_conn);
        PQfinish(m_conn);
        m_conn = nullptr;
        throw CDBException(SQL_ERROR, tpnf::FromUtf8(message));
    }
    PQsetNoticeProcessor(m_conn, IgnoreNotice, nullptr);
}

CCopyConnection::~CCopyConnection() {
    PQfinish(m_conn); // what is not committed goes
}

void CCopyConnection::Copy(const std::string& command, const std::string& data, size_t rows,
                           bool inTransaction) {
    if (inTransaction && !m_inTransaction) {
        Run("BEGIN");
        m_inTransaction = true;
    }
    PGresult* result = PQexec(m_conn, command.c_str());
    if (PQresultStatus(result) != PGRES_COPY_IN)
        ThrowError(result);
    PQclear(result);
    if (PQputCopyData(m_conn, data.data(), static_cast<int>(data.size())) != 1 ||
        PQputCopyEnd(m_conn, nullptr) != 1)
        ThrowError(nullptr);
    result = PQgetResult(m_conn);
    if (PQresultStatus(result) != PGRES_COMMAND_OK)
        ThrowError(result);
    const long long count = std::atoll(PQcmdTuples(result));
    PQclear(result);
    while ((result = PQgetResult(m_conn)) != nullptr)
        PQclear(result);
    if (count != static_cast<long long>(rows))
        tpnf::odbc::ThrowRowsNotStored(count, rows);
}

void CCopyConnection::Commit() {
    if (!m_inTransaction)
        return;
    m_inTransaction = false;
    PGresult* result = PQexec(m_conn, "COMMIT");
    if (PQresultStatus(result) != PGRES_COMMAND_OK)
        ThrowError(result);
    // A transaction that failed earlier "commits" as a rollback, without an error.
    const bool rolledBack = std::strcmp(PQcmdStatus(result), "COMMIT") != 0;
    PQclear(result);
    if (rolledBack)
        throw CDBException(SQL_ERROR, L"The server rolled the transaction back: a statement in it failed\n");
}

bool CCopyConnection::Rollback() {
    if (!m_inTransaction)
        return true;
    m_inTransaction = false;
    PGresult* result = PQexec(m_conn, "ROLLBACK");
    const bool done = PQresultStatus(result) == PGRES_COMMAND_OK;
    PQclear(result);
    return done;
}

void CCopyConnection::Run(const char* sql) {
    PGresult* result = PQexec(m_conn, sql);
    if (PQresultStatus(result) != PGRES_COMMAND_OK)
        ThrowError(result);
    PQclear(result);
}

void CCopyConnection::ThrowError(PGresult* result) {
    std::string message = result != nullptr ? PQresultErrorMessage(result) : "";
    const char* state = result != nullptr ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    const std::string states = state != nullptr ? std::string("State:") + state + ",Native:0\n" : "";
    PQclear(result);
    // Whatever else the server sent is read, so that the connection can take its next statement.
    while ((result = PQgetResult(m_conn)) != nullptr)
        PQclear(result);
    if (message.empty())
        message = PQerrorMessage(m_conn);
    if (message.empty())
        message = "The PostgreSQL server refused the statement\n"; // a result without an error text
    if (message.back() != '\n')
        message += '\n';
    throw CDBException(SQL_ERROR, tpnf::FromUtf8(message), tpnf::FromUtf8(states));
}
