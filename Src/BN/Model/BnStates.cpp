// States and levels: names, adding, removing and reordering, with tables and findings carried along.
#include <algorithm>
#include <cmath>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnCarry.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Error.h"
#include "Basic/Names.h"

namespace talora {

namespace {

// What is wrong with a list of state names, "" if nothing: each legal and none repeated.
std::string NamesProblem(const std::vector<std::string>& names)
{
    std::string reason;
    for (const std::string& name : names)
        if (CheckNarrowName(name, false, &reason) != 0) return reason;
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    const auto repeated = std::adjacent_find(sorted.begin(), sorted.end());
    return repeated == sorted.end() ? "" : "name '" + repeated->substr(0, kMaxNameLength) + "' is repeated";
}

void NeedDiscrete(const Node& node, const char* what)
{
    if (!IsDiscrete(node)) Fail<6120>(what, node.name.c_str());
}

// Room for the texts of so many states.
void CheckStateTexts(const Node& node, int64_t count)
{
    CheckMemory(double(count) * sizeof(StateText),
                "to keep the names of the states of >-node '%s' (see >-LimitMemoryUsage_vx)",
                node.name.c_str());
}

// The parts of a node and its children that follow a change of its states.
struct NewStates {
    NodeStates states;
    NodeFinding finding;
    NodeTables tables;
    std::vector<NodeTables> children;  // tables of each child
};

// Computes everything; old_state[i] is the old state of new state i, or -1.
NewStates PrepareStates(const Node& node, const std::vector<int>& old_state, float fill)
{
    const int count = int(old_state.size());
    NewStates prepared;
    const NodeStates& old = node.states;
    prepared.states.type = old.type;
    prepared.states.num_states = count;
    prepared.finding.value = node.finding.value;
    if (!old.texts.empty()) prepared.states.texts.resize(count);
    if (!old.levels.empty()) prepared.states.levels.assign(count, UndefDbl());
    const NodeFinding& finding = node.finding;
    if (!finding.likelihood.empty()) prepared.finding.likelihood.assign(count, 1.0f);
    if (!finding.product.empty()) prepared.finding.product.assign(count, {0.5, 1});
    for (int state = 0; state < count; ++state) {
        const int from = old_state[state];
        if (from < 0) continue;
        if (from < int(old.texts.size())) prepared.states.texts[state] = old.texts[from];
        if (from < int(old.levels.size())) prepared.states.levels[state] = old.levels[from];
        if (!finding.likelihood.empty()) prepared.finding.likelihood[state] = finding.likelihood[from];
        if (!finding.product.empty()) prepared.finding.product[state] = finding.product[from];
        if (node.finding.state == from) prepared.finding.state = state;
    }
    TableCarry carry = IdentityCarry(node);
    carry.own.count = count;
    carry.own.old_state = old_state;
    carry.fill = fill;
    prepared.tables = CarryTables(node, carry);
    for (const Node* child : node.children.nodes) {
        TableCarry of_child = IdentityCarry(*child);
        CarriedDim& dim = of_child.parents[FindParent(*child, &node)];
        dim.count = count;
        dim.old_state = old_state;
        of_child.fill = fill;
        prepared.children.push_back(CarryTables(*child, of_child));
    }
    return prepared;
}

void ApplyStates(Node& node, NewStates prepared, const char* what)
{
    Change(node, node.states, std::move(prepared.states), RESTRUCTURES, what);
    Change(node, node.finding, std::move(prepared.finding), REFINDS, what);
    Change(node, node.tables, std::move(prepared.tables), RETABLES, what);
    Change(node, node.saved_belief, std::vector<float>(), NO_EFFECT, what);
    for (size_t i = 0; i < prepared.children.size(); ++i) {
        Node& child = *node.children.nodes[i];
        Change(child, child.tables, std::move(prepared.children[i]), RETABLES, what);
    }
}

// Rows that lost an entry and summed to 1 before do so again; a row left without mass becomes missing.
void RescaleRows(const TableVector<float>& old, int old_count, TableVector<float>& rows, int count)
{
    for (size_t row = 0; row * count < rows.size(); ++row) {
        float* entries = rows.data() + row * count;
        if (CheckProbs(old.data() + row * old_count, old_count) != 0) continue;
        double sum = 0;
        for (int i = 0; i < count; ++i) sum += entries[i];
        for (int i = 0; i < count; ++i) entries[i] = sum > 0 ? float(entries[i] / sum) : MissingProb();
    }
}

}  // namespace

void CheckState(const Node& node, int state)
{
    const int num_states = NumStates(node);
    if (num_states == 0) Fail<6121>(state, node.name.c_str());
    if (state < 0 || state >= num_states) Fail<6122>(state, node.name.c_str(), num_states - 1);
}

// The list of texts is only as long as the last state that has one.
void SetStateText(Node& node, int state, std::string StateText::*member, std::string text, const char* what)
{
    CheckState(node, state);
    std::vector<StateText>& texts = node.states.texts;
    if (size_t(state) >= texts.size()) {
        if (text.empty()) return;
        // Room for all states at once, so that naming them one by one copies no list.
        CheckStateTexts(node, NumStates(node));
        std::vector<StateText> all;
        all.reserve(size_t(NumStates(node)));
        all = texts;
        all.resize(size_t(NumStates(node)));
        all[size_t(state)].*member = std::move(text);
        return Change(node, texts, std::move(all), NO_EFFECT, what);
    }
    StateText changed = texts[size_t(state)];
    changed.*member = std::move(text);
    ChangeElement(*node.net, &node, texts, ListEdit::kReplace, size_t(state), std::move(changed), what);
}

void SetStateName(Node& node, int state, std::string_view name)
{
    CheckState(node, state);
    std::string reason;
    const std::string text(name);
    if (!text.empty() && CheckNarrowName(text, false, &reason) != 0) Fail<6123>(text.c_str(), reason.c_str());
    const int holder = FindState(node, name);
    if (holder >= 0 && holder != state) Fail<6124>(node.name.c_str(), text.c_str());
    SetStateText(node, state, &StateText::name, text, "name state");
}

void SetStateNames(Node& node, const std::vector<std::string>& names)
{
    const int num_states = NumStates(node);
    if (!names.empty() && int(names.size()) != num_states) Fail<6125>(int(names.size()), num_states);
    const std::string problem = NamesProblem(names);
    if (!problem.empty()) Fail<6126>(problem.c_str());
    std::vector<StateText> texts = node.states.texts;
    if (texts.size() < names.size()) texts.resize(names.size());
    for (size_t state = 0; state < texts.size(); ++state)
        texts[state].name = state < names.size() ? names[state] : "";
    Change(node, node.states.texts, std::move(texts), NO_EFFECT, "name states");
}

// 1. Arguments and memory.
void AddStates(Node& node, int first, const std::vector<std::string>& names, int count, double cpt_fill)
{
    NeedDiscrete(node, "add states to");
    const int old_count = NumStates(node);
    if (first < -1 || first > old_count) Fail<6127>(old_count, first);
    if (cpt_fill != -1 && cpt_fill != 0 && !IsUndef(cpt_fill)) Fail<6128>(cpt_fill);
    if (count < 0) Fail<6129>(node.name.c_str(), count);
    if (!names.empty() && int(names.size()) != count) Fail<6130>(int(names.size()), count, node.name.c_str());
    if (count > INT32_MAX - old_count) Fail<6131>(node.name.c_str());
    if (count == 0) return;
    const bool has_texts = !names.empty() || !node.states.texts.empty();
    CheckMemory(
        double(old_count + count) * (sizeof(int) + sizeof(double) + (has_texts ? sizeof(StateText) : 0)),
        "to add states to >-node '%s' (see >-LimitMemoryUsage_vx)", node.name.c_str());
    // 2. Where each new state comes from, and all that follows from it, without a change yet.
    if (first == -1) first = old_count;
    std::vector<int> old_state(old_count + count, -1);
    for (int state = 0; state < old_count; ++state) old_state[state < first ? state : state + count] = state;
    NewStates prepared = PrepareStates(node, old_state, cpt_fill == 0 ? 0.0f : MissingProb());

    // 3. Names: all states have one, or none.
    const bool drops_names = HasStateNames(node) && names.empty();
    if (!names.empty()) prepared.states.texts.resize(old_count + count);
    for (size_t i = 0; i < names.size(); ++i) prepared.states.texts[first + i].name = names[i];
    if (drops_names)
        for (StateText& text : prepared.states.texts) text.name.clear();
    std::vector<std::string> all;
    for (const StateText& text : prepared.states.texts)
        if (!text.name.empty()) all.push_back(text.name);
    const std::string problem = NamesProblem(all);
    if (!problem.empty()) Fail<6132>(node.name.c_str(), problem.c_str());
    if (drops_names) Warn<6133>(node.name.c_str(), first);
    // 4. The change.
    DescribeStep(*node.net, "add states to %s", node.name.c_str());
    ApplyStates(node, std::move(prepared), "add states");
}

void RemoveState(Node& node, int state)
{
    CheckState(node, state);
    NeedDiscrete(node, "remove a state of");
    const int count = NumStates(node) - 1;
    if (count == 0) Fail<6134>(node.name.c_str());
    std::vector<int> old_state;
    for (int i = 0; i <= count; ++i)
        if (i != state) old_state.push_back(i);
    NewStates prepared = PrepareStates(node, old_state, MissingProb());
    RescaleRows(node.tables.probs, count + 1, prepared.tables.probs, count);
    // A finding that says something of the state that goes cannot be kept.
    if (node.finding.state == state || !node.finding.likelihood.empty()) prepared.finding = NodeFinding();
    ApplyStates(node, std::move(prepared), "remove state");
}

void ReorderStates(Node& node, const std::vector<int>& new_order)
{
    NeedDiscrete(node, "reorder the states of");
    const int num_states = NumStates(node);
    std::vector<char> seen(num_states, 0);
    for (const int state : new_order) {
        CheckState(node, state);
        if (seen[state]) Fail<6135>(node.name.c_str(), state);
        seen[state] = 1;
    }
    if (int(new_order.size()) != num_states) Fail<6136>(node.name.c_str(), int(new_order.size()), num_states);
    ApplyStates(node, PrepareStates(node, new_order, MissingProb()), "reorder states");
}

namespace {

// A level as it is kept: without the infinities of the hardware.
double CheckedLevel(const Node& node, int index, double level)
{
    if (std::isnan(level)) Fail<6137>(index, node.name.c_str());
    return std::isinf(level) ? std::copysign(InfinityDbl(), level) : level;
}

void CheckThresholds(const Node& node, const std::vector<double>& levels)
{
    const bool rising = levels.size() < 2 || levels[0] <= levels[1];
    for (size_t i = 0; i < levels.size(); ++i) {
        if (IsUndef(levels[i])) Fail<6137>(int(i), node.name.c_str());
        if (i > 0 && (rising ? levels[i] < levels[i - 1] : levels[i] > levels[i - 1]))
            Fail<6138>(node.name.c_str(), int(i) - 1, levels[i - 1], int(i), levels[i]);
    }
}

void NoticeTablesGo(const Node& node)
{
    const auto has_tables = [](const Node* each) { return each->tables != NodeTables(); };
    const std::vector<Node*>& children = node.children.nodes;
    if (has_tables(&node) || std::any_of(children.begin(), children.end(), has_tables))
        Notice<6142>(node.name.c_str());
}

// A value that was entered may lie in another interval now; one that lies in none goes with its finding.
void ChangeLevels(Node& node, std::vector<double> levels)
{
    NodeFinding finding = node.finding;
    // A function that gives values leads to other states, and its potential has to be made again.
    Change(node, node.states.levels, std::move(levels), RETABLES, "set levels");
    if (IsUndef(finding.value)) return;
    if (HasStates(node)) {
        finding.state = StateOfValue(node, finding.value);
        const bool ruled_out = finding.state >= 0 && !finding.likelihood.empty() &&
                               finding.likelihood[size_t(finding.state)] == 0;
        if (finding.state < 0 || ruled_out) finding = NodeFinding();
    } else if (!IsInRange(node, finding.value)) {
        finding = NodeFinding();
    }
    Change(node, node.finding, std::move(finding), REFINDS, "set levels");
}

// Another number of intervals: nothing in the tables of the node and its children can be carried over.
void Rediscretize(Node& node, int num_states, std::vector<double> levels)
{
    NodeStates states;
    states.type = node.states.type;
    states.num_states = num_states;
    states.levels = std::move(levels);
    NoticeTablesGo(node);
    for (Node* child : node.children.nodes)
        Change(*child, child->tables, NodeTables(), RETABLES, "change discretization");
    Change(node, node.tables, NodeTables(), RETABLES, "change discretization");
    Change(node, node.finding, NodeFinding(), REFINDS, "change discretization");
    Change(node, node.saved_belief, std::vector<float>(), NO_EFFECT, "change discretization");
    Change(node, node.states, std::move(states), RESTRUCTURES, "change discretization");
}

}  // namespace

// 1. How many levels go with the states. 2. The levels themselves. 3. The same number of states keeps tables,
// another one drops them.
void SetLevels(Node& node, int num_states, const double* values)
{
    if (num_states < 0) Fail<6139>(node.name.c_str(), num_states);
    if (IsDiscrete(node) && num_states != NumStates(node))
        Fail<6140>(node.name.c_str(), NumStates(node), num_states);
    std::vector<double> levels;
    if (values != nullptr) {
        const int64_t count = IsDiscrete(node) ? num_states : num_states == 0 ? 2 : int64_t(num_states) + 1;
        CheckMemory(double(count) * sizeof(double),
                    "to set the levels of >-node '%s' (see >-LimitMemoryUsage_vx)", node.name.c_str());
        levels.assign(values, values + count);
        for (int i = 0; i < int(count); ++i) levels[i] = CheckedLevel(node, i, levels[i]);
        if (!IsDiscrete(node)) CheckThresholds(node, levels);
    } else if (!IsDiscrete(node) && num_states != 0) {
        Fail<6141>(node.name.c_str());
    }
    if (num_states == NumStates(node))
        ChangeLevels(node, std::move(levels));
    else
        Rediscretize(node, num_states, std::move(levels));
}

}  // namespace talora
