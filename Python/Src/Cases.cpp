// Caseset and DatabaseManager: cases from files, frames and databases.
#include "Cases.h"

#include <charconv>
#include <cmath>

using namespace py::literals;

namespace talora_py {

namespace {

struct Database {
    AppPtr app;
    dbmgr_cs* handle = nullptr;
    std::recursive_mutex lock;
    ~Database()
    {
        FreeHandle(*app, [&] { DeleteDatabaseManager_cs(handle); });
    }
};
using DatabasePtr = std::shared_ptr<Database>;

template <class Body>
auto RunCases(const CasesetPtr& cases, Body&& body, Length length = SHORT_JOB)
{
    return Run(
        cases->app,
        [&] {
            std::shared_lock reading(cases->sources_lock);
            return body(cases->handle);
        },
        length);
}

// ---- Frames: columns of numbers or of coded words, written as the text of a case file ----

// An entry as it is written between commas.
std::string Quoted(const std::string& entry)
{
    if (entry.find_first_of("\r\n") != std::string::npos)
        throw std::invalid_argument("a line break in an entry of a case: " + entry);
    if (entry.find_first_of(" \t,\"/{") == std::string::npos || entry[0] == '{') return entry;
    std::string quoted = "\"";
    for (const char c : entry) quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + "\"";
}

struct Column {
    std::vector<int64_t> codes;  // of words; -1: not known
    std::vector<std::string> words;
    const double* numbers = nullptr;
    const int64_t* integers = nullptr;
};

void AppendEntry(std::string& text, const Column& column, size_t row)
{
    char digits[32];
    if (column.numbers) {
        const double number = column.numbers[row];
        if (!std::isfinite(number))
            text += '*';
        else
            text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    } else if (column.integers) {
        text.append(digits, std::to_chars(digits, digits + sizeof digits, column.integers[row]).ptr);
    } else {
        const int64_t code = column.codes[row];
        const bool known = code >= 0 && size_t(code) < column.words.size();
        text += known ? column.words[size_t(code)] : std::string("*");
    }
}

using Integers = py::array_t<int64_t, py::array::c_style | py::array::forcecast>;

// names: of the columns; columns: an array of float64 or int64, or (codes, words).
py::bytes WriteColumns(const std::vector<Text>& names, const py::list& columns, size_t rows)
{
    std::vector<Column> parts;
    std::vector<py::object> kept;
    for (const py::handle item : columns) {
        Column column;
        py::ssize_t length = 0;
        if (py::isinstance<py::tuple>(item)) {
            const auto [codes, words] = item.cast<std::pair<Integers, std::vector<Text>>>();
            column.codes.assign(codes.data(), codes.data() + codes.size());
            for (const Text& word : words) column.words.push_back(Quoted(word.bytes));
            length = codes.size();
        } else if (py::isinstance<py::array_t<int64_t>>(item)) {
            const auto numbers = item.cast<Integers>();
            column.integers = numbers.data(), length = numbers.size();
            kept.push_back(numbers);
        } else {
            const auto numbers = item.cast<DoubleArray>();
            column.numbers = numbers.data(), length = numbers.size();
            kept.push_back(numbers);
        }
        if (size_t(length) != rows) throw std::invalid_argument("columns of different lengths");
        parts.push_back(std::move(column));
    }
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) text += (i ? "," : "") + Quoted(names[i].bytes);
    text += '\n';
    {
        py::gil_scoped_release released;
        text.reserve(text.size() + rows * (parts.size() * 8 + 1));
        for (size_t row = 0; row < rows; ++row) {
            for (size_t i = 0; i < parts.size(); ++i) {
                if (i) text += ',';
                AppendEntry(text, parts[i], row);
            }
            text += '\n';
        }
    }
    return py::bytes(text);
}

// ---- Case sets ----

CasesetPtr EmptySet(const AppPtr& app, const OptionalText& name)
{
    auto cases = std::make_shared<Caseset>();
    cases->app = app;
    cases->handle = Run(app, [&] { return NewCaseset_cs(OrNull(name), app->env); });
    return cases;
}

void AddFile(const CasesetPtr& cases, const py::object& source, double degree, const OptionalText& options)
{
    const bool is_frame = py::hasattr(source, "keys") && !py::isinstance<Stream>(source);
    const py::object file = is_frame ? FromPackage("talora._frames", "case_bytes")(source) : source;
    const StreamPtr stream = StreamArg(cases->app, file);
    Run(
        cases->app,
        [&] {
            std::unique_lock writing(cases->sources_lock);
            std::lock_guard lock(stream->lock);
            AddFileToCaseset_cs(cases->handle, stream->handle, degree, OrNull(options));
        },
        LONG_JOB);
}

CasesetPtr MakeSet(const AppPtr& app, const py::object& source, const OptionalText& name)
{
    const CasesetPtr cases = EmptySet(app, name);
    if (py::isinstance<py::list>(source) || py::isinstance<py::tuple>(source)) {
        for (const py::handle item : source)
            AddFile(cases, py::reinterpret_borrow<py::object>(item), 1, std::nullopt);
    } else if (!source.is_none()) {
        AddFile(cases, source, 1, std::nullopt);
    }
    return cases;
}

void AddDatabaseCases(const CasesetPtr& cases, const DatabasePtr& manager, const py::object& which,
                      const Text& tables, const OptionalText& columns, const OptionalText& condition,
                      double degree, const OptionalText& options)
{
    const std::vector<Node> nodes = NodesArg(which, nullptr);
    const NetPtr net = NetOf(nodes, "AddDBCases");
    Run(
        net,
        [&] {
            std::unique_lock writing(cases->sources_lock);
            std::lock_guard lock(manager->lock);
            const TempList list(net, nodes);
            AddDBCasesToCaseset_cs(cases->handle, manager->handle, degree, list, OrNull(columns),
                                   tables.c_str(), OrNull(condition), OrNull(options));
        },
        LONG_JOB);
}

double WriteBeliefs(const CasesetPtr& cases, const py::object& which, const py::object& target,
                    const OptionalText& options)
{
    const NetPtr given = py::isinstance<Net>(which) ? which.cast<NetPtr>() : nullptr;
    const std::vector<Node> nodes = NodesArg(given ? py::object(py::none()) : which, given);
    const NetPtr net = NetOf(nodes, "WriteBeliefs");
    const StreamPtr stream = StreamArg(cases->app, target);
    return Run(
        net,
        [&] {
            std::shared_lock reading(cases->sources_lock);
            std::lock_guard lock(stream->lock);
            const TempList list(net, nodes);
            return ToPython(WriteCaseBeliefs_bn(cases->handle, list, stream->handle, OrNull(options)));
        },
        LONG_JOB);
}

std::pair<int64_t, double> Count(const CasesetPtr& cases)
{
    return RunCases(
        cases,
        [](caseset_cs* handle) {
            double weight = 0;
            const int64_t count = CountCasesetCases_cs(handle, &weight);
            return std::make_pair(count, weight);
        },
        LONG_JOB);
}

using CasesetClass = py::class_<Caseset, CasesetPtr>;

void BindCaseset(CasesetClass& cls)
{
    cls.def(
        "AddFile", AddFile, "source"_a, "degree"_a = 1.0, "options"_a = py::none(),
        "Adds all cases of a case file (a path, bytes, a Streamer) or of a pandas DataFrame or dict of "
        "columns.\n\ndegree: each case counts so many times. options: 'SkipMisfits' leaves out cases with a "
        "value that\nfits no state. A file on disk is only opened when the cases are read.");
    cls.def(
        "AddDBCases", AddDatabaseCases, "manager"_a, "nodes"_a, "tables"_a, "columns"_a = py::none(),
        "condition"_a = py::none(), "degree"_a = 1.0, "options"_a = py::none(),
        "Adds the rows of SELECT columns FROM tables WHERE condition, a column for each node. These texts "
        "go to\nthe database as they are: never put text from elsewhere in them.");
    cls.def(
        "Write",
        [](const CasesetPtr& cases, const py::object& target, const OptionalText& options) {
            const StreamPtr stream = StreamArg(cases->app, target);
            RunCases(
                cases,
                [&](caseset_cs* handle) {
                    std::lock_guard lock(stream->lock);
                    WriteCaseset_cs(handle, stream->handle, OrNull(options));
                },
                LONG_JOB);
        },
        "target"_a, "options"_a = py::none(), "Writes all cases to one case file.");
    cls.def("WriteBeliefs", WriteBeliefs, "nodes"_a, "target"_a, "options"_a = py::none(),
            "Writes the cases with the beliefs of nodes that they give rise to; gives how many cases.\n\n"
            "options: 'jsonl' for JSON lines; 'whole' enters what a case says of the nodes themselves, too.");
    cls.def(
        "CountCases", [](const CasesetPtr& cases) { return Count(cases).first; },
        "How many cases there are; reads through them.");
    cls.def_property_readonly(
        "TotalWeight", [](const CasesetPtr& cases) { return Count(cases).second; },
        "The sum of the cases' weights times degrees; reads through them.");
    cls.def_property_readonly(
        "Name",
        [](const CasesetPtr& cases) {
            return RunCases(cases, [](caseset_cs* handle) { return Text(GetCasesetName_cs(handle)); });
        },
        "The name of the set.");
    cls.def_property_readonly(
        "CountSources", [](const CasesetPtr& cases) { return RunCases(cases, CountCasesetSources_cs); },
        "How many files the cases come from.");
    DefIndexed(
        cls, "SourceName",
        [](const CasesetPtr& cases, int index) {
            return RunCases(cases,
                            [&](caseset_cs* handle) { return Text(GetCasesetSourceName_cs(handle, index)); });
        },
        "The name of a source, from 0.");
    DefIndexed(
        cls, "SourceDegree",
        [](const CasesetPtr& cases, int index) {
            return RunCases(cases,
                            [&](caseset_cs* handle) { return GetCasesetSourceDegree_cs(handle, index); });
        },
        "How many times each case of a source counts.");
    cls.def("__len__", [](const CasesetPtr& cases) { return std::max<int64_t>(Count(cases).first, 0); });
    cls.def("__bool__", [](const CasesetPtr&) { return true; });
    cls.def("__repr__", [](const CasesetPtr& cases) {
        const int count = RunCases(cases, CountCasesetSources_cs);
        return "<Caseset of " + std::to_string(count) + (count == 1 ? " source>" : " sources>");
    });
}

// ---- Databases ----

DatabasePtr Connect(const AppPtr& app, const Text& connection, const OptionalText& options)
{
    auto manager = std::make_shared<Database>();
    manager->app = app;
    manager->handle = Run(
        app, [&] { return NewDatabaseManager_cs(connection.c_str(), OrNull(options), app->env); }, LONG_JOB);
    return manager;
}

std::vector<Node> AddNodesForColumns(const NetPtr& net, const DatabasePtr& manager, const Text& tables,
                                     const OptionalText& columns, const OptionalText& condition)
{
    return Run(
        net,
        [&] {
            std::lock_guard lock(manager->lock);
            nodelist_bn* list = AddNodesForColumns_bn(manager->handle, net->handle, OrNull(columns),
                                                      tables.c_str(), OrNull(condition), nullptr);
            std::vector<Node> nodes = MarkNodes(net, list);
            DeleteNodeList_bn(list);
            return nodes;
        },
        LONG_JOB);
}

}  // namespace

CasesetPtr CasesArg(const AppPtr& app, const py::object& source)
{
    return py::isinstance<Caseset>(source) ? source.cast<CasesetPtr>() : MakeSet(app, source, std::nullopt);
}

void BindCases(py::module_& module)
{
    py::class_<Database, DatabasePtr> manager(
        module, "DatabaseManager",
        "A connection to a database through ODBC.\n\nconnection: 'DSN=...' or 'Driver=...;...'.\n"
        "Errors: TaloraError 6690 with the driver's reason, 6694 where the library was built without ODBC.");
    CasesetClass cls(
        module, "Caseset",
        "Cases for learning, testing and scoring.\n\n"
        "source: a path of a case file, bytes, a Streamer, a pandas DataFrame or dict of columns "
        "(names of\nnodes; values: names or numbers of states, values of continuous nodes; None or "
        "nan: not known), or a\nlist of these.");
    cls.def(py::init(&MakeSet), "app"_a, "source"_a = py::none(), "name"_a = py::none());
    BindCaseset(cls);
    manager.def(py::init(&Connect), "app"_a, "connection"_a, "options"_a = py::none());
    manager.def("_add_nodes_for_columns",
                [](const DatabasePtr& database, const NetPtr& net, const Text& tables,
                   const OptionalText& columns, const OptionalText& condition) {
                    return ToNodeList(AddNodesForColumns(net, database, tables, columns, condition));
                });
    auto application = py::reinterpret_borrow<py::object>(module.attr("Application"));
    application.attr("NewCaseset") =
        py::cpp_function(MakeSet, py::is_method(application), py::name("NewCaseset"), "source"_a = py::none(),
                         "name"_a = py::none(), "Makes a Caseset.");
    application.attr("NewDatabaseManager") =
        py::cpp_function(Connect, py::is_method(application), py::name("NewDatabaseManager"), "connection"_a,
                         "options"_a = py::none(), "Connects to a database.");
    module.def("_write_columns", WriteColumns, "names"_a, "columns"_a, "rows"_a);
}

}  // namespace talora_py
