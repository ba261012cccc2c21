// Cases and nodes from database queries.
#include "VarVal/DbCases.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <set>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"
#include "Basic/Names.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"
#include "VarVal/CaseFile.h"
#include "VarVal/CaseWrite.h"
#include "VarVal/Odbc.h"

namespace talora {

namespace {

constexpr size_t kMostStates = 1000;  // of a node made from the values of a column
constexpr size_t kMostLevels = 50;    // more different whole numbers than this are a quantity
constexpr size_t kTextBlock = 1 << 16;

// Splits at commas that stand outside of brackets and quotes.
std::vector<std::string> SplitColumns(std::string_view list)
{
    std::vector<std::string> columns;
    if (Trimmed(list).empty()) return columns;
    int depth = 0;
    char quote = 0;
    size_t begin = 0;
    for (size_t i = 0; i <= list.size(); ++i) {
        const char c = i < list.size() ? list[i] : ',';
        if (i < list.size() && quote) {
            if (c == quote) quote = 0;
            continue;
        }
        if (c == '\'' || c == '"' || c == '`') quote = c;
        if (c == '(') ++depth;
        if (c == ')') --depth;
        if (i == list.size() || (c == ',' && depth == 0)) {
            columns.emplace_back(Trimmed(list.substr(begin, i - begin)));
            begin = i + 1;
        }
    }
    return columns;
}

// Texts of the caller go into the statement as they are, as the interface documents.
std::string SelectText(const std::string& columns, const DbSelection& selection)
{
    std::string text = "SELECT " + columns + " FROM " + selection.tables;
    if (!selection.condition.empty()) text += " WHERE " + selection.condition;
    return text;
}

// The columns that the tables have.
std::vector<DbColumn> TableColumns(DbConnection& connection, const DbSelection& selection)
{
    if (Trimmed(selection.tables).empty()) Fail<6695>();
    DbQuery query(connection, "SELECT * FROM " + selection.tables + " WHERE 0 = 1");
    return query.Columns();
}

const DbColumn* FindColumn(const std::vector<DbColumn>& columns, std::string_view name)
{
    for (const DbColumn& column : columns)
        if (EqualNoCase(column.name, name)) return &column;
    return nullptr;
}

bool IsSpecial(std::string_view name)
{
    return EqualNoCase(name, kIdColumn) || EqualNoCase(name, kFreqColumn);
}

// A line break, or a zero byte, would end the line of the case.
std::string OneLine(std::string text)
{
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    return text;
}

// ---- Cases ----

// What is asked for, as it is named in the query and in the case file.
struct CaseQuery {
    std::vector<std::string> columns;  // in the query
    std::vector<std::string> names;    // in the case file
    size_t num_special = 0;            // the first so many are IDnum and NumCases
};

// 1. IDnum and NumCases, where the tables have them. 2. For each node the column given, or the one of its
// name.
CaseQuery PlanQuery(DbConnection& connection, std::span<Node* const> nodes, const DbSelection& selection)
{
    const std::vector<DbColumn> present = TableColumns(connection, selection);
    std::vector<std::string> given = SplitColumns(selection.columns);
    if (!given.empty() && given.size() != nodes.size())
        Fail<6696>(static_cast<int>(given.size()), static_cast<int>(nodes.size()));
    CaseQuery query;
    for (const char* special : {kIdColumn, kFreqColumn})
        if (const DbColumn* column = FindColumn(present, special)) {
            query.columns.push_back(connection.Quoted(column->name));
            query.names.push_back(special);
        }
    query.num_special = query.names.size();
    for (size_t i = 0; i < nodes.size(); ++i) {
        query.names.push_back(nodes[i]->name);
        if (!given.empty()) {
            query.columns.push_back(given[i]);
            continue;
        }
        const DbColumn* column = FindColumn(present, nodes[i]->name);
        if (column == nullptr) Fail<6697>(nodes[i]->name.c_str(), OneLine(selection.tables).c_str());
        query.columns.push_back(connection.Quoted(column->name));
    }
    return query;
}

std::string Join(std::span<const std::string> words, const char* between)
{
    std::string text;
    for (size_t i = 0; i < words.size(); ++i) text += (i ? between : "") + words[i];
    return text;
}

// Six lines, as many as case files from databases do not count (kDatabaseHeaderLines), and the column names.
std::string FileHeader(const CaseQuery& query)
{
    const std::span<const std::string> columns(query.columns);
    std::string text = "// ~->[CASE-1]->~\n\n// DB columns in order:  ";
    text += OneLine(Join(columns.subspan(query.num_special), ", "));
    text += "\n// WARNING: The order of these columns must match the order of the nodes below;\n";
    text += "// each case takes its values by position.\n\n";
    return text + Join(query.names, ",");
}

// A file that is there from now on and is removed unless it is kept.
class ScratchFile {
public:
    ScratchFile()
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the library changes the environment
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder && *folder ? folder : "/tmp") + "/talora-cases-XXXXXX";
        const int file = mkstemp(path_.data());
        if (file < 0) Fail<6698>(path_.c_str());
        close(file);
    }
    ~ScratchFile()
    {
        if (!path_.empty()) unlink(path_.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    const std::string& Path() const { return path_; }
    std::string Keep() { return std::exchange(path_, {}); }

private:
    std::string path_;
};

// One row as a line, with commas.  NULL and nothing at all are missing values.
void AppendRow(std::string& text, DbQuery& rows, const CaseQuery& query, bool adds_weight)
{
    static constexpr CaseSigns kSigns = {',', 0};
    std::string value;
    for (size_t i = 0; i < query.columns.size(); ++i) {
        if (i) text += ',';
        if (!rows.Value(i, value)) {
            // Without a number the case counts once.
            if (query.names[i] == kFreqColumn) text += '1';
            continue;
        }
        AppendEntry(text, Trimmed(OneLine(std::move(value))), kSigns);
        value.clear();
    }
    if (adds_weight) text += ",1";
    text += '\n';
}

// Through a file: sets can be read again and again, queries only once.
void WriteRows(const std::string& path, environ_vx& env, DbQuery& rows, const CaseQuery& query)
{
    // A comma in the line of column names is by what the reader knows that there are quotes.
    const bool adds_weight = query.names.size() == 1;
    std::unique_ptr<Stream, void (*)(Stream*)> file(NewFileStream(env, path),
                                                    [](Stream* stream) { DeleteStream(stream); });
    ByteSink sink(*file, true);
    std::string text = FileHeader(query) + (adds_weight ? std::string(",") + kFreqColumn : "") + "\n";
    Progress progress("reading cases from database");
    for (int64_t row = 1; rows.NextRow(); ++row) {
        AppendRow(text, rows, query, adds_weight);
        if (text.size() >= kTextBlock) {
            sink.Write(text);
            text.clear();
        }
        if (row % 256 == 0 && !progress.Step(0)) FailWith<6699>(ABORTED_CND, static_cast<long long>(row));
    }
    sink.Write(text);
    sink.Commit();
}

}  // namespace

void AddDbCases(Caseset& cases, DbManager& manager, double degree, std::span<Node* const> nodes,
                const DbSelection& selection)
{
    if (nodes.empty()) Fail<6700>();
    DbConnection& connection = *manager.connection;
    const CaseQuery query = PlanQuery(connection, nodes, selection);
    DbQuery rows(connection, SelectText(Join(query.columns, ", "), selection));
    if (rows.Columns().size() != query.columns.size())
        Fail<6696>(static_cast<int>(rows.Columns().size() - query.num_special),
                   static_cast<int>(nodes.size()));
    ScratchFile file;
    WriteRows(file.Path(), *cases.env, rows, query);
    cases.sources.emplace_back();
    CaseSource& source = cases.sources.back();
    source.name = file.Keep();
    source.degree = degree;
    source.is_temporary = true;
}

// ---- Nodes ----

namespace {

struct ColumnValues {
    std::set<std::string> words;
    bool all_whole = true, all_numbers = true;
    bool too_many = false;
};

bool ReadNumber(const std::string& text, double& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
}

// The different values of one column; stops looking where they are too many to be states.
ColumnValues CollectValues(DbConnection& connection, const std::string& column, const DbSelection& selection)
{
    DbQuery query(connection, SelectText("DISTINCT " + column, selection));
    ColumnValues values;
    Progress progress("looking for the values of a database column");
    std::string text;
    for (int64_t row = 1; query.NextRow(); ++row) {
        if (!query.Value(0, text)) continue;
        text = Trimmed(OneLine(std::move(text)));
        if (text.empty()) continue;
        double number = 0;
        const bool is_number = ReadNumber(text, number);
        values.all_numbers &= is_number;
        values.all_whole &= is_number && number == std::floor(number);
        if (values.words.size() <= kMostStates) values.words.insert(text);
        values.too_many = values.words.size() > kMostStates;
        if (values.too_many && !values.all_numbers) break;
        if (row % 256 == 0 && !progress.Step(0)) FailWith<6670>(ABORTED_CND);
    }
    return values;
}

// What the values say the node is.  Words become state names, those that are no legal names titles too.
void MakeStates(Node& node, const ColumnValues& values)
{
    std::vector<std::string> names;
    for (const std::string& word : values.words) {
        std::string name = RepairName(word);
        for (int copy = 2; std::find(names.begin(), names.end(), name) != names.end(); ++copy) {
            const std::string end = "_" + std::to_string(copy);
            name = RepairName(word).substr(0, kMaxNameLength - end.size()) + end;
        }
        names.push_back(name);
    }
    SetStateNames(node, names);
    int state = 0;
    for (const std::string& word : values.words) {
        if (names[static_cast<size_t>(state)] != word)
            SetStateText(node, state, &StateText::title, word, "set state title");
        ++state;
    }
}

// Few whole numbers: each is the level of a state, in ascending order.
void MakeLevels(Node& node, const ColumnValues& values)
{
    std::set<double> levels;
    for (const std::string& word : values.words) {
        double number = 0;
        if (ReadNumber(word, number)) levels.insert(number);
    }
    const std::vector<double> sorted(levels.begin(), levels.end());
    SetLevels(node, static_cast<int>(sorted.size()), sorted.data());
}

// Fractions, or more whole numbers than could be states, make a continuous node; all else a discrete one.
Node* MakeNode(Net& net, const std::string& name, const std::string& column, const ColumnValues& values)
{
    const size_t count = values.words.size();
    const bool is_continuous =
        values.all_numbers && count > 0 && (!values.all_whole || count > kMostLevels || values.too_many);
    if (!is_continuous && values.too_many) Fail<6701>(column.c_str(), static_cast<int>(kMostStates));
    const int num_states = is_continuous ? 0 : std::max(1, static_cast<int>(count));
    Node* node = AddNode(net, UnusedName(net, RepairName(name)), num_states);
    if (node->name != name) Change(*node, node->text.title, name, NO_EFFECT, "set title");
    if (is_continuous || count == 0) return node;
    if (values.all_numbers)
        MakeLevels(*node, values);
    else
        MakeStates(*node, values);
    return node;
}

}  // namespace

std::vector<Node*> AddDbNodes(Net& net, DbManager& manager, const DbSelection& selection)
{
    DbConnection& connection = *manager.connection;
    std::vector<std::string> columns = SplitColumns(selection.columns);
    std::vector<std::string> names;
    if (columns.empty()) {
        for (const DbColumn& column : TableColumns(connection, selection)) {
            if (IsSpecial(column.name)) continue;
            columns.push_back(connection.Quoted(column.name));
            names.push_back(column.name);
        }
    } else {
        DbSelection none = selection;
        none.condition = "0 = 1";
        DbQuery query(connection, SelectText(Join(columns, ", "), none));
        for (const DbColumn& column : query.Columns()) names.push_back(column.name);
        TALORA_CHECK(names.size() == columns.size());
    }
    // All is looked up before anything is added, so that a failure changes nothing.
    std::vector<ColumnValues> values(names.size());
    for (size_t i = 0; i < names.size(); ++i)
        if (FindNode(net, names[i]) == nullptr) values[i] = CollectValues(connection, columns[i], selection);
    std::vector<Node*> nodes;
    for (size_t i = 0; i < names.size(); ++i) {
        Node* node = FindNode(net, names[i]);
        nodes.push_back(node ? node : MakeNode(net, OneLine(names[i]), columns[i], values[i]));
    }
    return nodes;
}

}  // namespace talora
