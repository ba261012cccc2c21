// BNode: its tables and its equation.
#include <cmath>

#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

// The parent states in node.Probs["Present", "Absent"] and node.Probs[{"Smoking": "Smoker"}].
ParentStates KeyOf(const py::args& key, size_t count)
{
    if (count == 0) return {};
    if (count == 1 && !py::isinstance<py::str>(key[0]) && !PyIndex_Check(key[0].ptr()))
        return ParentStatesArg(py::object(key[0]));
    return ParentStatesArg(py::object(key[py::slice(0, py::ssize_t(count), 1)]));
}

// A row of a table by parent states: how it is read and written.
template <class Get>
auto Getter(Get get)
{
    return [get](const Node& self, const py::args& key) {
        const ParentStates states = KeyOf(key, key.size());
        return Run(self, [&](node_bn* node) { return get(node, ResolveParentStates(node, states)); });
    };
}

template <class Value, class Set>
auto Setter(Set set)
{
    return [set](const Node& self, const py::args& key_and_value) {
        const size_t count = key_and_value.size() - 1;
        const ParentStates states = KeyOf(key_and_value, count);
        const auto value = key_and_value[count].template cast<Value>();
        Run(self, [&](node_bn* node) { set(node, ResolveParentStates(node, states), value); });
    };
}

// ---- Probabilities ----

using Row = std::optional<std::vector<float>>;

Row GetRow(const node_bn* node, const std::vector<int>& states)
{
    const prob_bn* first = GetNodeProbs_bn(node, states.data());
    if (first == nullptr) return std::nullopt;
    std::vector<float> row(first, first + GetNodeNumberStates_bn(node));
    for (float& prob : row) prob = ProbToPython(prob);
    return row;
}

void SetRow(node_bn* node, const std::vector<int>& states, std::vector<float> row)
{
    if (int(row.size()) != GetNodeNumberStates_bn(node))
        throw std::invalid_argument("one probability for each state is wanted");
    for (float& prob : row)
        if (std::isnan(prob)) prob = GetMissingProb_bn();
    SetNodeProbs_bn(node, states.data(), row.data());
}

std::vector<py::ssize_t> TableShape(const node_bn* node)
{
    std::vector<py::ssize_t> shape;
    const nodelist_bn* parents = GetNodeParents_bn(node);
    const int count = LengthNodeList_bn(parents);
    for (int i = 0; i < count; ++i) shape.push_back(GetNodeNumberStates_bn(NthNode_bn(parents, i)));
    shape.push_back(GetNodeNumberStates_bn(node));
    return shape;
}

py::object GetTable(const Node& self)
{
    auto [shape, entries] = Run(self, [](node_bn* node) {
        int64_t count = 0;
        const prob_bn* first = GetNodeTable_bn(node, &count);
        std::vector<float> copy(first, first + (first ? count : 0));
        for (float& prob : copy) prob = ProbToPython(prob);
        return std::make_pair(TableShape(node), std::move(copy));
    });
    if (entries.empty()) return py::none();
    constexpr size_t kMostDimensions = 32;  // of numpy
    if (shape.size() > kMostDimensions) shape = {py::ssize_t(entries.size())};
    return ToArray(std::move(entries), shape);
}

void SetTable(const Node& self, const FloatArray& table)
{
    const float* first = table.data();
    const py::ssize_t size = table.size();
    const std::vector<py::ssize_t> given(table.shape(), table.shape() + table.ndim());
    Run(self, [&](node_bn* node) {
        if (given.size() > 1 && given != TableShape(node)) {
            std::string wanted;
            for (const py::ssize_t extent : TableShape(node))
                wanted += (wanted.empty() ? "" : ", ") + std::to_string(extent);
            throw std::invalid_argument("the shape of the table must be (" + wanted + ")");
        }
        bool has_missing = false;
        for (py::ssize_t i = 0; i < size && !has_missing; ++i) has_missing = std::isnan(first[i]);
        if (!has_missing) {
            SetNodeTable_bn(node, first, size);
            return;
        }
        std::vector<float> entries(first, first + size);
        for (float& prob : entries)
            if (std::isnan(prob)) prob = GetMissingProb_bn();
        SetNodeTable_bn(node, entries.data(), size);
    });
}

void BindProbs(NodeClass& cls)
{
    DefIndexed(
        cls, "Probs",
        [](const Node& self, const py::args& key) -> py::object {
            Row row = Getter(GetRow)(self, key);
            return row ? py::object(ToArray(std::move(*row))) : py::none();
        },
        Setter<std::vector<float>>(SetRow),
        "A row of the conditional probability table by parent states, names or numbers:\n"
        "node.Probs['Smoker', 'Abroad'], or a dict by parents; node.Probs() for a node without parents.\n"
        "Shape (states,), float32, a copy; nan where an entry has not been given. None without a table.\n"
        "Setting '*' or leaving a parent out of the dict sets the rows for all its states.");
    cls.def_property(
        "Table", GetTable, SetTable,
        "The whole conditional probability table: shape (states of the parents ..., own states), "
        "float32,\na copy; nan where an entry has not been given, rows of zeros where parent states "
        "cannot occur\ntogether. None without a table. Setting takes that shape, or the entries in "
        "one dimension.\n\nErrors: TaloraError 6156 for another size, 6157 for a row that does not "
        "sum to 1.");
    cls.def_property_readonly("_table_shape", [](const Node& self) {
        return py::tuple(py::cast(Run(self, [](node_bn* node) { return TableShape(node); })));
    });
    cls.def_property_readonly(
        "SizeTable", [](const Node& self) { return Run(self, SizeNodeTable_bn); },
        "How many entries the table has or would have.");
}

// ---- Functions, experience ----

void BindFunctions(NodeClass& cls)
{
    DefIndexed(cls, "FuncState", Getter([](node_bn* node, const std::vector<int>& states) {
                   return GetNodeFuncState_bn(node, states.data());
               }),
               Setter<StateArg>([](node_bn* node, const std::vector<int>& states, const StateArg& state) {
                   SetNodeFuncState_bn(node, states.data(), ResolveState(node, state));
               }),
               "The state of a deterministic node by parent states: its number, UNDEF_STATE if not given.");
    DefIndexed(
        cls, "FuncReal", Getter([](node_bn* node, const std::vector<int>& states) {
            return ToPython(GetNodeFuncReal_bn(node, states.data()));
        }),
        Setter<double>([](node_bn* node, const std::vector<int>& states, double value) {
            SetNodeFuncReal_bn(node, states.data(), FromPython(value));
        }),
        "The value of a deterministic continuous node or a utility node by parent states; nan if not given.");
    DefIndexed(cls, "Experience", Getter([](node_bn* node, const std::vector<int>& states) {
                   return ToPython(GetNodeExperience_bn(node, states.data()));
               }),
               Setter<double>([](node_bn* node, const std::vector<int>& states, double value) {
                   SetNodeExperience_bn(node, states.data(), FromPython(value));
               }),
               "How many cases are behind a row, by parent states; nan if not known.");
    cls.def(
        "DeleteTables", [](const Node& self) { Run(self, DeleteNodeTables_bn); },
        "Removes the probability, function and experience tables.");
    cls.def_property_readonly(
        "HasTable",
        [](const Node& self) {
            return Run(self, [](node_bn* node) { return HasNodeTable_bn(node, nullptr) != 0; });
        },
        "Whether there is a probability or function table.");
    cls.def_property_readonly(
        "HasCompleteTable",
        [](const Node& self) {
            return Run(self, [](node_bn* node) {
                bool_vx complete = 0;
                return HasNodeTable_bn(node, &complete) && complete;
            });
        },
        "Whether there is a table without missing entries.");
    cls.def_property_readonly(
        "IsDeterministic",
        [](const Node& self) {
            return Run(self, [](node_bn* node) { return IsNodeDeterministic_bn(node) != 0; });
        },
        "Whether every row of the table gives one state probability 1.");
}

// ---- Equations ----

void BindEquations(NodeClass& cls)
{
    cls.def(
        "CheckEquation",
        [](const Node& self, const OptionalText& equation) {
            return Run(self, [&](node_bn* node) -> std::pair<int, Text> {
                ReportScope scope(GetNetEnviron_bn(GetNodeNet_bn(node)));
                int place = -1;
                if (CheckNodeEquation_bn(node, OrNull(equation), &place)) return {-1, {}};
                const std::vector<Report> reports = scope.Take();
                return {place, reports.empty() ? Text("the equation is not in order") : reports.back().text};
            });
        },
        "equation"_a = py::none(),
        "Whether a text (or the node's own equation) is in order: (place, message), the byte that the mistake is "
        "at\nand what is wrong; (-1, '') if nothing is.");
    cls.def(
        "EquationToTable",
        [](const Node& self, int samples, bool uncertainty, bool add_existing) {
            Run(
                self, [&](node_bn* node) { EquationToTable_bn(node, samples, uncertainty, add_existing); },
                LONG_JOB);
        },
        "num_samples"_a = 1000, "sample_uncertainty"_a = false, "add_existing"_a = false,
        "Fills the table from the equation: exactly where that is possible, else by so many samples for each\n"
        "configuration of the parents. sample_uncertainty keeps the number of samples as experience;\n"
        "add_existing adds to the table that there is.");
}

}  // namespace

void BindNodeTables(NodeClass& cls)
{
    BindProbs(cls);
    BindFunctions(cls);
    BindEquations(cls);
}

}  // namespace talora_py
