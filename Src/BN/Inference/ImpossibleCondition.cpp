// Which parent condition declared impossible is behind findings of probability 0.
#include "BN/Inference/ImpossibleCondition.h"

#include <algorithm>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/Likelihood.h"
#include "Basic/Error.h"

namespace talora {

namespace {

bool IsImpossibleRow(const float* row, int num_states)
{
    if (std::find(row, row + num_states, ImpossibleProb()) != row + num_states) return true;
    return std::all_of(row, row + num_states, [](float entry) { return entry == 0; });
}

struct ParentCondition {
    int variable = -1;
    int64_t row = 0;  // over the parents that are in the tree
};

// The tables with impossible rows, each of those made uniform.
using RelaxedTables = std::unordered_map<int, TableVector<float>>;

int64_t NumTreeRows(const CompiledNet& compiled, int variable)
{
    int64_t rows = 1;
    for (int parent : compiled.propagation_graph.variables[variable].parents)
        rows *= compiled.propagation_graph.variables[parent].num_states;
    return rows;
}

// Only tables that have such rows are copied.
RelaxedTables Relax(const CompiledNet& compiled, const TableSource& table)
{
    RelaxedTables relaxed;
    for (int v = 0; v < int(compiled.nodes.size()); ++v) {
        const float* probs = table(v);
        const int num_states = compiled.propagation_graph.variables[v].num_states;
        if (probs == nullptr) continue;
        const int64_t rows = NumTreeRows(compiled, v);
        for (int64_t row = 0; row < rows; ++row) {
            if (!IsImpossibleRow(probs + row * num_states, num_states)) continue;
            TableVector<float>& copy = relaxed[v];
            if (copy.empty()) copy.assign(probs, probs + rows * num_states);
            std::fill_n(copy.begin() + row * num_states, num_states, 1.0f / float(num_states));
        }
    }
    return relaxed;
}

// The state of a node that findings or its kind settle, -1 if none.
int SettledState(const Node& node)
{
    if (node.kind == CONSTANT_NODE) return ConstantState(node);
    return NumStates(node) == 1 ? 0 : node.finding.state;
}

// The row of the condition that is settled for all parents, -1 if there is none.
int64_t SettledRow(const CompiledNet& compiled, int variable)
{
    int64_t row = 0;
    for (int parent : compiled.propagation_graph.variables[variable].parents) {
        const int state = SettledState(*compiled.nodes[parent]);
        if (state < 0) return -1;
        row = row * compiled.propagation_graph.variables[parent].num_states + state;
    }
    return row;
}

// The cheap case: findings at all parents of one node select an impossible row.
ParentCondition FindSettled(const CompiledNet& compiled, const RelaxedTables& relaxed,
                            const TableSource& table)
{
    for (int v = 0; v < int(compiled.nodes.size()); ++v) {
        if (relaxed.count(v) == 0) continue;
        const int64_t row = SettledRow(compiled, v);
        const int num_states = compiled.propagation_graph.variables[v].num_states;
        if (row >= 0 && IsImpossibleRow(table(v) + row * num_states, num_states)) return {v, row};
    }
    return {};
}

void EnterFindings(const CompiledNet& compiled, Propagation& propagation)
{
    for (int v = 0; v < int(compiled.nodes.size()); ++v) {
        const NodeFinding& finding = compiled.nodes[v]->finding;
        propagation.SetPositive(v, finding.state);
        if (!finding.likelihood.empty())
            propagation.SetLikelihood(v, WeightsForInference(finding).weights.data());
    }
}

// Where the rows that were impossible have the most probability, and there the most probable one.
ParentCondition FindLikely(const CompiledNet& compiled, const RelaxedTables& relaxed,
                           const TableSource& table, const Propagation& propagation)
{
    ParentCondition likely;
    double most = 0;
    for (int v = 0; v < int(compiled.nodes.size()); ++v) {
        if (relaxed.count(v) == 0) continue;
        const ModelGraph::Variable& variable = compiled.propagation_graph.variables[v];
        const float* probs = table(v);
        const int64_t rows = NumTreeRows(compiled, v);
        TableVector<float> conditions(rows);
        if (!propagation.JointBelief(variable.parents, conditions.data())) continue;
        double sum = 0;
        int64_t best = -1;
        for (int64_t row = 0; row < rows; ++row) {
            if (!IsImpossibleRow(probs + row * variable.num_states, variable.num_states)) continue;
            sum += conditions[row];
            if (best < 0 || conditions[row] > conditions[best]) best = row;
        }
        if (sum <= most) continue;
        most = sum;
        likely = {v, best};
    }
    return likely;
}

// The condition that the impossible rows would meet if they were ordinary ones; none if the findings
// contradict one another all the same.
ParentCondition FindBehindFindings(const CompiledNet& compiled, const RelaxedTables& relaxed,
                                   const TableSource& table)
{
    Propagation propagation(compiled.propagation_graph, compiled.tree, [&](int v) {
        const auto found = relaxed.find(v);
        return found == relaxed.end() ? table(v) : found->second.data();
    });
    EnterFindings(compiled, propagation);
    if (propagation.Update() != UpdateStatus::kUpdated) return {};
    return FindLikely(compiled, relaxed, table, propagation);
}

struct Cause {
    ParentCondition condition;
    bool is_settled = false;  // by findings at the parents
};

// No condition as well where memory is out: the findings can be reported as inconsistent without one.
Cause FindCause(const CompiledNet& compiled, const TableSource& table)
{
    try {
        const RelaxedTables relaxed = Relax(compiled, table);
        if (relaxed.empty()) return {};
        const ParentCondition settled = FindSettled(compiled, relaxed, table);
        if (settled.variable >= 0) return {settled, true};
        return {FindBehindFindings(compiled, relaxed, table), false};
    } catch (const std::bad_alloc&) {
        return {};
    } catch (const OutOfMemory&) {
        return {};
    }
}

// "Smoker=yes, Age=old"
std::string ConditionText(const CompiledNet& compiled, const ParentCondition& condition)
{
    const Node& node = *compiled.nodes[condition.variable];
    std::string text;
    int64_t row = condition.row;
    for (size_t i = node.links.size(); i-- > 0;) {
        const Node& parent = *node.links[i].parent;
        int state = SettledState(parent);
        if (IsInTree(parent)) {
            const int count = std::max(1, NumStates(parent));
            state = int(row % count);
            row /= count;
        }
        text.insert(0, parent.name + "=" + StateWord(parent, state) + (text.empty() ? "" : ", "));
    }
    return text;
}

}  // namespace

void ReportImpossibleCondition(const Net& net, const TableSource& table)
{
    const CompiledNet& compiled = *net.compiled;
    const auto [condition, is_settled] = FindCause(compiled, table);
    if (condition.variable < 0) return;
    const Node& node = *compiled.nodes[condition.variable];
    const char* const name = node.name.c_str();
    const std::string text = ConditionText(compiled, condition);
    if (is_settled) FailWith<2102>(INCONSISTENT_FINDING_CND, name, text.c_str());
    if (!node.equation.empty()) FailWith<2487>(INCONSISTENT_FINDING_CND, name, text.c_str());
    if (node.tables.probs.empty()) FailWith<2489>(INCONSISTENT_FINDING_CND, name, text.c_str());
    FailWith<2489, 1>(INCONSISTENT_FINDING_CND, name, text.c_str());
}

}  // namespace talora
