// A connection to a database through ODBC, and queries whose rows are taken one at a time.
//
// Memory does not grow with the number of rows: a value is fetched into one buffer that is reused, and may be
// at most kLongestValue bytes long.  Diagnostics of the driver become part of our messages only after the
// connection text, and what stands in it behind words like PWD=, has been taken out.
//
// Where the library was built without ODBC, connecting fails.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace talora {

constexpr size_t kLongestValue = size_t{1} << 20;

enum class ColumnKind { TEXT, INTEGER, REAL };

struct DbColumn {
    std::string name;
    ColumnKind kind = ColumnKind::TEXT;
};

class DbConnection {
public:
    explicit DbConnection(const std::string& connection_text);
    ~DbConnection();
    DbConnection(const DbConnection&) = delete;
    DbConnection& operator=(const DbConnection&) = delete;

    // The name as the database takes it whatever characters are in it.
    std::string Quoted(std::string_view name) const;

private:
    friend class DbQuery;
    struct Handles;
    std::unique_ptr<Handles> handles_;
};

class DbQuery {
public:
    DbQuery(DbConnection& connection, const std::string& statement);
    ~DbQuery();
    DbQuery(const DbQuery&) = delete;
    DbQuery& operator=(const DbQuery&) = delete;

    const std::vector<DbColumn>& Columns() const { return columns_; }
    bool NextRow();  // false at the end
    // The value of a column of the row, false for NULL.  Columns are taken in ascending order, each once.
    bool Value(size_t column, std::string& text);

private:
    struct Handles;
    std::unique_ptr<Handles> handles_;
    std::vector<DbColumn> columns_;
};

// The text without passwords, for messages.
std::string WithoutSecrets(std::string text, std::string_view connection_text);

}  // namespace talora
