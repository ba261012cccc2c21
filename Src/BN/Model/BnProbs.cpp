// Tables of a node: checking, setting and reading rows.
#include "BN/Model/BnProbs.h"

#include <algorithm>
#include <cmath>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnCarry.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr double kSumTolerance = 2e-6;

[[noreturn]] void FailTooLarge(const Node& node, double entries)
{
    Fail<3615>(node.name.c_str(), entries);
}

std::string BuildTableText(const Node& node)
{
    return ExpandMarkup("to build table for >-node '") + node.name + "' (see LimitMemoryUsage_vx)";
}

void NeedParentStates(const Node& node, const int* parent_states)
{
    if (parent_states == nullptr && !node.links.empty()) Fail<6150>(node.name.c_str());
}

void CheckParentState(const Node& node, int index, int state, bool allow_every)
{
    const Node& parent = *node.links[index].parent;
    const std::string place = Ordinal(int64_t(index) + 1);
    if (state == UNDEF_STATE) Fail<6151>(node.name.c_str(), state, parent.name.c_str(), place.c_str());
    if (state == EVERY_STATE && !allow_every) Fail<6152>(state, parent.name.c_str(), place.c_str());
    if (state == IMPOSS_STATE) Fail<6153>(state, parent.name.c_str(), place.c_str());
    if (state != EVERY_STATE && (state < 0 || state >= NumStates(parent)))
        Fail<6154>(state, parent.name.c_str(), place.c_str(), NumStates(parent) - 1);
}

// Rows that match parent states, EVERY_STATE matching all.
std::vector<int64_t> MatchingRows(const Node& node, const int* parent_states)
{
    NeedParentStates(node, parent_states);
    const double all_rows = NumRows(node);
    if (all_rows > kMaxTableEntries) FailTooLarge(node, all_rows);  // and rows could not be counted
    for (int i = 0; i < int(node.links.size()); ++i) CheckParentState(node, i, parent_states[i], true);
    const std::vector<int64_t> strides = RowStrides(node);
    double num_rows = 1;
    for (size_t i = 0; i < node.links.size(); ++i)
        if (parent_states[i] == EVERY_STATE)
            num_rows = MultiplySize(num_rows, NumStates(*node.links[i].parent));
    CheckMemory(2 * num_rows * sizeof(int64_t), "%s", BuildTableText(node).c_str());
    std::vector<int64_t> rows = {0};
    for (size_t i = 0; i < node.links.size(); ++i) {
        const int num_states = NumStates(*node.links[i].parent);
        const bool every = parent_states[i] == EVERY_STATE;
        std::vector<int64_t> next;
        for (int64_t row : rows)
            for (int state = every ? 0 : parent_states[i];
                 state < (every ? num_states : parent_states[i] + 1); ++state)
                next.push_back(row + state * strides[i]);
        rows = std::move(next);
    }
    return rows;
}

// A table of one entry per row is made full of `empty` when its first entry is set.
template <class T>
TableVector<T> NewRowTable(const Node& node, T empty, const char* term)
{
    const double rows = NumRows(node);
    CheckMemory(rows * sizeof(T), "%s", term);
    return TableVector<T>(size_t(rows), empty);
}

// The parents of a node with a function table have states, by which its rows are numbered.
void NeedParentsWithStates(const Node& node)
{
    for (const Link& link : node.links)
        if (!HasStates(*link.parent)) Fail<3081>(node.name.c_str(), link.parent->name.c_str());
}

}  // namespace

// ---- Probability vectors ----

// All faults of a row at once, as bits: which of them matter depends on the caller.
uint32_t CheckProbs(const float* probs, int count)
{
    uint32_t problems = 0;
    double sum = 0;
    for (int i = 0; i < count; ++i) {
        const float entry = probs[i];
        if (entry == ImpossibleProb())
            problems |= PROBS_IMPOSSIBLE;
        else if (entry == MissingProb())
            problems |= problems & PROBS_MISSING_ONE ? PROBS_MISSING_SOME : PROBS_MISSING_ONE;
        else if (entry < 0)
            problems |= PROBS_NEGATIVE;
        else {
            sum += entry;  // not-a-number comes here too and spoils the sum
            if (entry > 1) problems |= PROBS_ABOVE_ONE;
        }
    }
    if (problems & PROBS_IMPOSSIBLE) return sum == 0 ? problems : problems | PROBS_MIXED;
    if (sum > 1 + kSumTolerance || std::isnan(sum))
        problems |= PROBS_SUM;
    else if (sum < 1 - kSumTolerance && !(problems & PROBS_MISSING_ONE))
        problems |= sum == 0 ? PROBS_ALL_ZERO : PROBS_SUM;
    else if (sum == 1)
        problems &= ~uint32_t(PROBS_MISSING_SOME);
    return problems;
}

// The phrases for the bits, in the order in which they matter; brief: the first alone.
std::string DescribeProbs(uint32_t problems, bool brief)
{
    std::string text;
    const auto phrase = [&](bool applies, const char* words) {
        if (applies && !(brief && !text.empty())) text += words;
    };
    phrase(problems & PROBS_TOO_FEW, "has too few probabilities, ");
    phrase(problems & PROBS_TOO_MANY, "has too many probabilities, ");
    phrase(problems & PROBS_NEGATIVE, "has a negative probability, ");
    phrase(problems & PROBS_MIXED, "some probabilities indicate an impossible condition and some don't, ");
    phrase((problems & PROBS_ALL_ZERO) && !(problems & PROBS_NEGATIVE),
           "all probabilities are 0 (and none are empty), ");
    phrase(problems & PROBS_ABOVE_ONE, "has a probability greater than 1, ");
    phrase((problems & PROBS_SUM) && !(problems & PROBS_ALL_ZERO), "sum of probabilities isn't 1 (100%), ");
    if (problems & PROBS_MISSING_SOME)
        phrase(true, "has some missing probabilities, ");
    else
        phrase(problems & PROBS_MISSING_ONE, "has a missing probability, ");
    phrase((problems & PROBS_IMPOSSIBLE) && !(problems & PROBS_MIXED),
           "has an impossible condition indicator, ");
    if (text.empty()) return "okay";
    return text.substr(0, text.size() - 2);
}

// ---- Sizes and rows ----

double NumRows(const Node& node)
{
    double rows = 1;
    for (const Link& link : node.links) rows = MultiplySize(rows, NumStates(*link.parent));
    return rows;
}

double TableEntries(const Node& node)
{
    return MultiplySize(NumRows(node), NumStates(node));
}

void CheckCanHaveTable(const Node& node)
{
    if (!HasStates(node)) Fail<3082>(node.name.c_str());
    NeedParentsWithStates(node);
    const double entries = TableEntries(node);
    if (entries > kMaxTableEntries) FailTooLarge(node, entries);
}

int64_t RowOf(const Node& node, const int* parent_states)
{
    NeedParentStates(node, parent_states);
    int64_t row = 0;
    for (int i = 0; i < int(node.links.size()); ++i) {
        CheckParentState(node, i, parent_states[i], false);
        row = row * NumStates(*node.links[i].parent) + parent_states[i];
    }
    return row;
}

// ---- Probabilities ----

// 1. The rows meant. 2. The vector is checked once. 3. The first row that is set makes the table, with the
// others missing.
void SetProbs(Node& node, const int* parent_states, const float* probs)
{
    if (probs == nullptr) Fail<5113>();
    const int num_states = NumStates(node);
    if (num_states == 0) Fail<6155>(node.name.c_str());
    CheckCanHaveTable(node);
    const std::vector<int64_t> rows = MatchingRows(node, parent_states);
    const uint32_t problems = CheckProbs(probs, num_states);
    if (CheckingLevel() >= CHECK_VALUES && (problems & ~kAcceptedProbs))
        Fail<5133>(DescribeProbs(problems, false).c_str());
    if (node.tables.probs.empty()) {
        const double entries = TableEntries(node);
        CheckMemory(entries * sizeof(float), "to build table for >-node '%s' (see >-LimitMemoryUsage_vx)",
                    node.name.c_str());
        TableVector<float> table(size_t(entries), MissingProb());
        for (const int64_t row : rows) std::copy(probs, probs + num_states, table.data() + row * num_states);
        Change(node, node.tables.probs, std::move(table), RETABLES, "set probabilities");
        return;
    }
    ChangeProbs(node, rows, probs, "set probabilities");
}

// In a whole table, rows of impossible entries may stand beside others.
void SetTable(Node& node, TableVector<float> probs)
{
    CheckCanHaveTable(node);
    const int num_states = NumStates(node);
    const double entries = TableEntries(node);
    if (double(probs.size()) != entries) Fail<6156>(node.name.c_str(), double(probs.size()), entries);
    constexpr uint32_t kAcceptedInTable = kAcceptedProbs | PROBS_IMPOSSIBLE;
    for (size_t at = 0, row = 0; at < probs.size(); at += num_states, ++row) {
        const uint32_t problems = CheckProbs(probs.data() + at, num_states);
        if (problems & ~kAcceptedInTable)
            Fail<6157>(node.name.c_str(), double(row), DescribeProbs(problems, false).c_str());
    }
    Change(node, node.tables.probs, std::move(probs), RETABLES, "set table");
}

const float* GetProbs(const Node& node, const int* parent_states)
{
    if (node.tables.probs.empty()) return nullptr;
    return node.tables.probs.data() + RowOf(node, parent_states) * NumStates(node);
}

// ---- Functions ----

void SetFuncState(Node& node, const int* parent_states, int state)
{
    if (!HasStates(node)) Fail<6158>(node.name.c_str());
    const int num_states = NumStates(node);
    const bool is_indicator =
        state == UNDEF_STATE || state == IMPOSS_STATE || state == EVERY_STATE || state == UNIFORM_STATE;
    if (!is_indicator && (state < 0 || state >= num_states))
        Fail<6159>(state, num_states - 1, node.name.c_str(), num_states);
    NeedParentsWithStates(node);
    const std::vector<int64_t> rows = MatchingRows(node, parent_states);
    if (node.tables.func_states.empty()) {
        TableVector<int32_t> table = NewRowTable(node, int32_t(UNDEF_STATE), BuildTableText(node).c_str());
        for (const int64_t row : rows) table[row] = state;
        Change(node, node.tables.func_states, std::move(table), RETABLES, "set function");
        return;
    }
    ChangeFuncState(node, rows, state, "set function");
}

int GetFuncState(const Node& node, const int* parent_states)
{
    if (node.tables.func_states.empty()) {
        const bool has_values = !node.tables.func_reals.empty();
        const bool impossible =
            has_values && node.tables.func_reals[RowOf(node, parent_states)] == ImpossibleDbl();
        return impossible ? IMPOSS_STATE : UNDEF_STATE;
    }
    return node.tables.func_states[RowOf(node, parent_states)];
}

void SetFuncReal(Node& node, const int* parent_states, double value)
{
    if (IsDiscrete(node) && HasStates(node) && node.states.levels.empty() && node.kind != UTILITY_NODE)
        Fail<6160>(node.name.c_str());
    if (!std::isfinite(value)) Fail<6162>(node.name.c_str(), value);
    NeedParentsWithStates(node);
    const std::vector<int64_t> rows = MatchingRows(node, parent_states);
    if (node.tables.func_reals.empty()) {
        TableVector<double> table = NewRowTable(node, UndefDbl(), BuildTableText(node).c_str());
        for (const int64_t row : rows) table[row] = value;
        Change(node, node.tables.func_reals, std::move(table), RETABLES, "set function");
        return;
    }
    ChangeFuncReal(node, rows, value, "set function");
}

double GetFuncReal(const Node& node, const int* parent_states)
{
    if (node.tables.func_reals.empty()) return UndefDbl();
    const double value = node.tables.func_reals[RowOf(node, parent_states)];
    return value == ImpossibleDbl() ? UndefDbl() : value;
}

// ---- Experience ----

void SetExperience(Node& node, const int* parent_states, double experience)
{
    if (!(experience >= 0)) Fail<6161>(node.name.c_str(), experience);
    if (std::isinf(experience)) Fail<6163>(node.name.c_str(), experience);
    NeedParentsWithStates(node);
    const std::vector<int64_t> rows = MatchingRows(node, parent_states);
    if (node.tables.experience.empty()) {
        const std::string text = ExpandMarkup("to create >-expertable for >-Bnode '") + node.name + "'";
        TableVector<double> table = NewRowTable(node, 0.0, text.c_str());
        for (const int64_t row : rows) table[row] = experience;
        Change(node, node.tables.experience, std::move(table), NO_EFFECT, "set experience");
        return;
    }
    ChangeExperience(node, rows, experience, "set experience");
}

double GetExperience(const Node& node, const int* parent_states)
{
    if (node.tables.experience.empty()) return UndefDbl();
    return node.tables.experience[RowOf(node, parent_states)];
}

void DeleteTables(Node& node)
{
    Change(node, node.tables, NodeTables(), RETABLES, "delete tables");
}

// ---- Questions ----

bool HasTable(const Node& node, bool* complete)
{
    const NodeTables& tables = node.tables;
    if (complete) {
        *complete = false;
        if (!tables.probs.empty())
            *complete =
                std::find(tables.probs.begin(), tables.probs.end(), MissingProb()) == tables.probs.end();
        else if (!tables.func_states.empty())
            *complete = std::find(tables.func_states.begin(), tables.func_states.end(), int(UNDEF_STATE)) ==
                        tables.func_states.end();
        else if (!tables.func_reals.empty())
            *complete = std::find(tables.func_reals.begin(), tables.func_reals.end(), UndefDbl()) ==
                        tables.func_reals.end();
    }
    return !tables.probs.empty() || !tables.func_states.empty() || !tables.func_reals.empty();
}

namespace {

// The state, or indicator, that a function table gives in a row.
int32_t FunctionState(const Node& node, size_t row)
{
    const NodeTables& tables = node.tables;
    if (!tables.func_states.empty()) return tables.func_states[row];
    if (tables.func_reals[row] == ImpossibleDbl()) return IMPOSS_STATE;
    return StateOfValue(node, tables.func_reals[row]);
}

size_t NumFunctionRows(const Node& node)
{
    return std::max(node.tables.func_states.size(), node.tables.func_reals.size());
}

}  // namespace

bool IsDeterministic(const Node& node)
{
    const TableVector<float>& probs = node.tables.probs;
    const int num_states = NumStates(node);
    if (num_states == 0 || (probs.empty() && NumFunctionRows(node) == 0)) return false;
    for (auto row = probs.begin(); row != probs.end(); row += num_states)
        if (std::find(row, row + num_states, 1.0f) == row + num_states) return false;
    for (size_t row = 0; probs.empty() && row < NumFunctionRows(node); ++row)
        if (FunctionState(node, row) < 0) return false;
    return true;
}

namespace {

// One row of the CPT that a function table stands for.
void FillFunctionRow(int32_t state, int num_states, float* row)
{
    if (state >= 0)
        row[state] = 1;
    else if (state == EVERY_STATE || state == UNIFORM_STATE)
        std::fill(row, row + num_states, 1.0f / float(num_states));
    else
        std::fill(row, row + num_states, state == IMPOSS_STATE ? ImpossibleProb() : MissingProb());
}

}  // namespace

// The CPT that inference works with: the node's own, or one made from its function table.
const float* EffectiveProbs(const Node& node, TableVector<float>& scratch)
{
    if (!node.tables.probs.empty()) return node.tables.probs.data();
    const int num_states = NumStates(node);
    const size_t num_rows = NumFunctionRows(node);
    if (num_states == 0 || num_rows == 0) return nullptr;
    const double entries = MultiplySize(double(num_rows), num_states);
    if (entries > kMaxTableEntries) FailTooLarge(node, entries);
    CheckMemory(entries * sizeof(float), "%s", BuildTableText(node).c_str());
    scratch.assign(num_rows * num_states, 0.0f);
    for (size_t row = 0; row < num_rows; ++row)
        FillFunctionRow(FunctionState(node, row), num_states, scratch.data() + row * num_states);
    return scratch.data();
}

}  // namespace talora
