// Which part of a model matters for some variables, and its tables cut down to the findings.
#include "BN/Propagation/RelevantPart.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "BN/Propagation/PotTable0.h"

namespace talora {

namespace {

bool IsObserved(const ModelFindings& findings, int v)
{
    return findings.positive[size_t(v)] >= 0;
}

// Decisions have no table, so nothing is learnt of their parents from them.
std::span<const int> TableParents(const ModelGraph& graph, int v)
{
    const ModelGraph::Variable& variable = graph.variables[size_t(v)];
    return variable.is_decision ? std::span<const int>() : std::span<const int>(variable.parents);
}

// The targets, the variables of which something is known, and the ancestors of both.
std::vector<char> MarkAncestors(const ModelGraph& graph, std::span<const int> targets,
                                const ModelFindings& findings)
{
    std::vector<char> marked(graph.variables.size());
    std::vector<int> open(targets.begin(), targets.end());
    for (int v = 0; v < int(marked.size()); ++v)
        if (IsObserved(findings, v) || findings.likelihoods[size_t(v)] != nullptr ||
            findings.constrained[size_t(v)])
            open.push_back(v);
    while (!open.empty()) {
        const int v = open.back();
        open.pop_back();
        if (marked[size_t(v)]) continue;
        marked[size_t(v)] = 1;
        for (int parent : TableParents(graph, v)) open.push_back(parent);
    }
    return marked;
}

// Sets of variables that are joined through tables, by a representative.
class Components {
public:
    explicit Components(size_t size) : parent_(size) { std::iota(parent_.begin(), parent_.end(), 0); }
    int Find(int v)
    {
        while (parent_[size_t(v)] != v) v = parent_[size_t(v)] = parent_[size_t(parent_[size_t(v)])];
        return v;
    }
    void Join(int a, int b) { parent_[size_t(Find(a))] = Find(b); }

private:
    std::vector<int> parent_;
};

// The variables of a family that are not observed, parents first.
std::vector<int> FreeFamily(const ModelGraph& graph, const ModelFindings& findings, int v)
{
    std::vector<int> family;
    for (int parent : TableParents(graph, v))
        if (!IsObserved(findings, parent)) family.push_back(parent);
    if (!IsObserved(findings, v)) family.push_back(v);
    return family;
}

}  // namespace

bool HasImpossibleRow(const float* table, int64_t rows, int num_states)
{
    constexpr double kTolerance = 1e-4;
    std::vector<float> probs(static_cast<size_t>(num_states));
    for (int64_t row = 0; table != nullptr && row < rows; ++row) {
        ReadRow(table + row * num_states, num_states, probs.data());
        if (std::abs(std::accumulate(probs.begin(), probs.end(), 0.0) - 1) > kTolerance) return true;
    }
    return false;
}

RelevantPart FindRelevantPart(const ModelGraph& graph, std::span<const int> targets,
                              const ModelFindings& findings, bool whole)
{
    const std::vector<char> marked = MarkAncestors(graph, targets, findings);
    Components components(marked.size());
    for (int v = 0; v < int(marked.size()); ++v) {
        if (!marked[size_t(v)]) continue;
        const std::vector<int> family = FreeFamily(graph, findings, v);
        for (int member : family) components.Join(member, family[0]);
    }
    std::vector<char> wanted(marked.size(), whole);
    for (int target : targets)
        if (!IsObserved(findings, target)) wanted[size_t(components.Find(target))] = 1;

    RelevantPart part;
    std::vector<int> variable_of(marked.size(), -1);
    for (int v = 0; v < int(marked.size()); ++v) {
        if (!marked[size_t(v)]) continue;
        const std::vector<int> family = FreeFamily(graph, findings, v);
        if (family.empty() && whole && !graph.variables[size_t(v)].is_decision) part.fixed.push_back(v);
        if (family.empty() || !wanted[size_t(components.Find(family[0]))]) continue;
        variable_of[size_t(v)] = int(part.original.size());
        part.original.push_back(v);
    }
    for (int v : part.original) {
        ModelGraph::Variable variable = graph.variables[size_t(v)];
        variable.name_rank = int(part.graph.variables.size());
        variable.parents.clear();
        for (int parent : TableParents(graph, v))
            if (!IsObserved(findings, parent)) variable.parents.push_back(variable_of[size_t(parent)]);
        if (IsObserved(findings, v)) variable.num_states = 1;
        part.graph.variables.push_back(std::move(variable));
    }
    for (int target : targets)
        part.targets.push_back(IsObserved(findings, target) ? -1 : variable_of[size_t(target)]);
    return part;
}

void CutTable(const ModelGraph& graph, const RelevantPart& part, int v, const ModelFindings& findings,
              const float* table, std::vector<float>& cut)
{
    const int whole = part.original[size_t(v)];
    const int num_states = std::max(1, graph.variables[size_t(whole)].num_states);
    const int state = findings.positive[size_t(whole)];
    // Rows of the whole table that are kept, in order: an odometer over the parents that are not observed.
    const std::span<const int> parents = TableParents(graph, whole);
    std::vector<int> at(parents.size());
    int64_t rows = 1;
    for (size_t k = 0; k < parents.size(); ++k) {
        at[k] = std::max(0, findings.positive[size_t(parents[k])]);
        if (!IsObserved(findings, parents[k])) rows *= graph.variables[size_t(parents[k])].num_states;
    }
    cut.clear();
    cut.reserve(size_t(rows * (state >= 0 ? 1 : num_states)));
    std::vector<float> probs(static_cast<size_t>(num_states));
    for (int64_t kept = 0; kept < rows; ++kept) {
        int64_t row = 0;
        for (size_t k = 0; k < parents.size(); ++k)
            row = row * graph.variables[size_t(parents[k])].num_states + at[k];
        ReadRow(table == nullptr ? nullptr : table + row * num_states, num_states, probs.data());
        if (state >= 0)
            cut.push_back(probs[size_t(state)]);
        else
            cut.insert(cut.end(), probs.begin(), probs.end());
        for (size_t k = parents.size(); k-- > 0;) {
            if (IsObserved(findings, parents[k])) continue;
            if (++at[k] < graph.variables[size_t(parents[k])].num_states) break;
            at[k] = 0;
        }
    }
}

double FixedFactor(const ModelGraph& graph, int v, const ModelFindings& findings, const float* table,
                   std::vector<float>& scratch)
{
    const ModelGraph::Variable& variable = graph.variables[size_t(v)];
    const int num_states = std::max(1, variable.num_states), state = findings.positive[size_t(v)];
    int64_t row = 0;
    for (int parent : variable.parents)
        row = row * graph.variables[size_t(parent)].num_states + findings.positive[size_t(parent)];
    scratch.resize(size_t(num_states));
    ReadRow(table == nullptr ? nullptr : table + row * num_states, num_states, scratch.data());
    const float* const likelihood = findings.likelihoods[size_t(v)];
    return double(scratch[size_t(state)]) * (likelihood == nullptr ? 1.0 : double(likelihood[state]));
}

}  // namespace talora
