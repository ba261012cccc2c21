// Connections and queries through ODBC, with secrets kept out of messages.
#include "VarVal/Odbc.h"

#include <algorithm>

#include "Basic/Error.h"
#include "Basic/Secret.h"
#include "Basic/Text.h"

#ifdef TALORA_ODBC
#include <sql.h>
#include <sqlext.h>
#endif

namespace talora {

namespace {

// Words before secrets in connection texts.
constexpr std::string_view kSecretWords[] = {"pwd", "password", "passwd", "token", "secret", "accesstoken"};
constexpr std::string_view kHidden = "***";

// In place as far as it goes; what the text has held is wiped when it moves.
void ReplaceAll(std::string& text, std::string_view what)
{
    if (what.empty()) return;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += kHidden.size()) {
        std::string replaced = text;
        replaced.replace(at, what.size(), kHidden);
        text.swap(replaced);
        Wipe(replaced);
    }
}

// The values in "key=value;key={value};..." whose keys are words for secrets.
std::vector<std::string_view> SecretsIn(std::string_view connection_text)
{
    std::vector<std::string_view> secrets;
    size_t at = 0;
    while (at < connection_text.size()) {
        const size_t equals = connection_text.find('=', at);
        if (equals == std::string_view::npos) break;
        std::string key = LowerText(connection_text.substr(at, equals - at));
        std::erase_if(key, [](char c) { return c == ' ' || c == ';' || c == '_'; });
        const bool braced = equals + 1 < connection_text.size() && connection_text[equals + 1] == '{';
        size_t end = connection_text.find(braced ? '}' : ';', equals);
        if (end == std::string_view::npos) end = connection_text.size();
        const size_t begin = equals + 1 + (braced ? 1 : 0);
        const bool is_secret =
            std::find(std::begin(kSecretWords), std::end(kSecretWords), key) != std::end(kSecretWords);
        if (is_secret && end > begin) secrets.push_back(connection_text.substr(begin, end - begin));
        at = end + 1;
    }
    return secrets;
}

}  // namespace

std::string WithoutSecrets(std::string text, std::string_view connection_text)
{
    ReplaceAll(text, connection_text);
    for (const std::string_view secret : SecretsIn(connection_text)) ReplaceAll(text, secret);
    // A driver may have put it in another form: what stands behind such a word goes in any case.
    for (const std::string_view word : {"pwd=", "password=", "passwd="})
        for (size_t at = 0; (at = LowerText(text).find(word, at)) != std::string::npos;) {
            at += word.size();
            const size_t end = std::min(text.find_first_of(";\n", at), text.size());
            text.replace(at, end - at, kHidden);
        }
    return text;
}

#ifdef TALORA_ODBC

namespace {

// All diagnostics of a handle in one line.
std::string Diagnostics(SQLSMALLINT type, SQLHANDLE handle)
{
    std::string text;
    for (SQLSMALLINT i = 1; i <= 8; ++i) {
        SQLCHAR state[6] = "", message[1024] = "";
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        if (!SQL_SUCCEEDED(SQLGetDiagRec(type, handle, i, state, &native, message, sizeof message, &length)))
            break;
        text += (text.empty() ? "" : "; ") + std::string(reinterpret_cast<const char*>(message));
    }
    return text.empty() ? "the driver does not say why" : text;
}

SQLCHAR* SqlText(const std::string& text)
{
    return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.c_str()));
}

}  // namespace

struct DbConnection::Handles {
    SQLHENV environment = SQL_NULL_HENV;
    SQLHDBC connection = SQL_NULL_HDBC;
    Secret connection_text;  // to keep it out of messages
    char quote = '"';
    bool connected = false;

    ~Handles()
    {
        if (connected) SQLDisconnect(connection);
        if (connection != SQL_NULL_HDBC) SQLFreeHandle(SQL_HANDLE_DBC, connection);
        if (environment != SQL_NULL_HENV) SQLFreeHandle(SQL_HANDLE_ENV, environment);
    }
};

struct DbQuery::Handles {
    SQLHSTMT statement = SQL_NULL_HSTMT;
    const DbConnection::Handles* connection = nullptr;
    std::vector<char> buffer = std::vector<char>(4096);

    ~Handles()
    {
        if (statement != SQL_NULL_HSTMT) SQLFreeHandle(SQL_HANDLE_STMT, statement);
    }
    [[noreturn]] void FailQuery() const
    {
        std::string why = Diagnostics(SQL_HANDLE_STMT, statement);
        const WipeAtEnd wipe(why);
        Fail<6691>(WithoutSecrets(why, connection->connection_text.Text()).c_str());
    }
    DbColumn Describe(SQLUSMALLINT index) const;
};

// 1. An environment and a connection handle. 2. Connecting without dialogs. 3. How identifiers are quoted.
DbConnection::DbConnection(const std::string& connection_text) : handles_(std::make_unique<Handles>())
{
    Handles& h = *handles_;
    h.connection_text = Secret(connection_text);
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &h.environment);
    SQLSetEnvAttr(h.environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, h.environment, &h.connection))) Fail<6692>();
    const SQLRETURN result = SQLDriverConnect(h.connection, nullptr, SqlText(connection_text), SQL_NTS,
                                              nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(result)) {
        std::string why = Diagnostics(SQL_HANDLE_DBC, h.connection);
        const WipeAtEnd wipe(why);
        Fail<6690>(WithoutSecrets(why, connection_text).c_str());
    }
    h.connected = true;
    char quote[8] = "";
    SQLSMALLINT length = 0;
    if (SQL_SUCCEEDED(SQLGetInfo(h.connection, SQL_IDENTIFIER_QUOTE_CHAR, quote, sizeof quote, &length)))
        h.quote = quote[0];
}

DbConnection::~DbConnection() = default;

std::string DbConnection::Quoted(std::string_view name) const
{
    const char quote = handles_->quote;
    if (quote == ' ' || quote == '\0') return std::string(name);
    std::string text(1, quote);
    for (const char c : name) {
        if (c == quote) text += quote;
        text += c;
    }
    return text + quote;
}

DbColumn DbQuery::Handles::Describe(SQLUSMALLINT index) const
{
    std::vector<SQLCHAR> name(1024);
    SQLSMALLINT length = 0, type = 0, digits = 0, nullable = 0;
    SQLULEN size = 0;
    if (!SQL_SUCCEEDED(SQLDescribeCol(statement, index, name.data(), static_cast<SQLSMALLINT>(name.size()),
                                      &length, &type, &size, &digits, &nullable)))
        FailQuery();
    DbColumn column;
    column.name = reinterpret_cast<const char*>(name.data());
    switch (type) {
        case SQL_SMALLINT:
        case SQL_INTEGER:
        case SQL_BIGINT:
        case SQL_TINYINT:
        case SQL_BIT:
            column.kind = ColumnKind::INTEGER;
            break;
        case SQL_REAL:
        case SQL_FLOAT:
        case SQL_DOUBLE:
        case SQL_DECIMAL:
        case SQL_NUMERIC:
            column.kind = ColumnKind::REAL;
            break;
        default:
            break;
    }
    return column;
}

// Executes at once; rows come one by one, so a large result needs no memory.
DbQuery::DbQuery(DbConnection& connection, const std::string& statement)
    : handles_(std::make_unique<Handles>())
{
    Handles& h = *handles_;
    h.connection = connection.handles_.get();
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, h.connection->connection, &h.statement))) Fail<6692>();
    SQLSetStmtAttr(h.statement, SQL_ATTR_CURSOR_TYPE, reinterpret_cast<SQLPOINTER>(SQL_CURSOR_FORWARD_ONLY),
                   0);
    const SQLRETURN result = SQLExecDirect(h.statement, SqlText(statement), SQL_NTS);
    if (!SQL_SUCCEEDED(result) && result != SQL_NO_DATA) h.FailQuery();
    SQLSMALLINT count = 0;
    SQLNumResultCols(h.statement, &count);
    for (SQLSMALLINT i = 1; i <= count; ++i) columns_.push_back(h.Describe(static_cast<SQLUSMALLINT>(i)));
}

DbQuery::~DbQuery() = default;

bool DbQuery::NextRow()
{
    const SQLRETURN result = SQLFetch(handles_->statement);
    if (result == SQL_NO_DATA) return false;
    if (!SQL_SUCCEEDED(result)) handles_->FailQuery();
    return true;
}

// A value that does not fit the buffer comes in pieces, each ended by a zero byte.
bool DbQuery::Value(size_t column, std::string& text)
{
    Handles& h = *handles_;
    text.clear();
    for (;;) {
        SQLLEN length = 0;
        const SQLRETURN result = SQLGetData(h.statement, static_cast<SQLUSMALLINT>(column + 1), SQL_C_CHAR,
                                            h.buffer.data(), static_cast<SQLLEN>(h.buffer.size()), &length);
        if (result == SQL_NO_DATA) return true;
        if (!SQL_SUCCEEDED(result)) h.FailQuery();
        if (length == SQL_NULL_DATA) return false;
        const size_t room = h.buffer.size() - 1;
        const bool whole = length != SQL_NO_TOTAL && length >= 0 && static_cast<size_t>(length) <= room;
        text.append(h.buffer.data(), whole ? static_cast<size_t>(length) : room);
        if (text.size() > kLongestValue) Fail<6693>(columns_[column].name.c_str());
        if (whole) return true;
    }
}

#else

struct DbConnection::Handles {};
struct DbQuery::Handles {};

DbConnection::DbConnection(const std::string&)
{
    Fail<6694>();
}
DbConnection::~DbConnection() = default;
std::string DbConnection::Quoted(std::string_view name) const
{
    return std::string(name);
}
DbQuery::DbQuery(DbConnection&, const std::string&) {}
DbQuery::~DbQuery() = default;
bool DbQuery::NextRow()
{
    return false;
}
bool DbQuery::Value(size_t, std::string&)
{
    return false;
}

#endif

}  // namespace talora
