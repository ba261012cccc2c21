// Beliefs of a few variables from trees of the parts that matter, kept for the next question.
#include "BN/Propagation/TargetedQuery.h"

#include <algorithm>
#include <cmath>
#include <list>
#include <numeric>

#include "BN/Order/Graph_Triangulate.h"
#include "BN/Order/Junction.h"
#include "BN/Order/OptimizeOrder.h"
#include "BN/Propagation/TreeTables.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/Memory.h"

namespace talora {

namespace {

constexpr size_t kMostTrees = 16;
constexpr double kMostEntries = 3e7;  // of all trees together, but for the last one
// Entries of cliques from which on the order of the whole model is tried, and from which on a better one is
// searched for, with so many trials: the same part always gets the same tree.
constexpr double kLargePart = 65536, kHugePart = 1e6;
constexpr uint64_t kTrialsOfHuge = 500;

double SizeOfCliques(const ModelGraph& graph, const Triangulation& triangulation)
{
    double sum = 0;
    for (const std::vector<int>& clique : triangulation.cliques) sum += TableSize(graph, clique);
    return sum;
}

// A question that was answered, with its tree.
struct Prepared {
    std::vector<int> key;
    RelevantPart part;
    JunctionTree tree;
    std::vector<std::vector<float>> tables;  // cut down to the findings
    std::vector<int> positive;               // the states that they are cut down to, by variable of the model
    std::unique_ptr<Propagation> propagation;
};

}  // namespace

struct TargetedQuery::Answers {
    const ModelGraph* graph;
    TableSource table;
    std::vector<int> order;        // of the whole model, or none
    std::list<Prepared> prepared;  // last used first
    std::vector<int> observed;     // states of the targets of the last question that were observed, or -1
    std::vector<int> asked;
    double log_fixed = 0;           // of the last question: what takes no part in the tree
    std::vector<char> constrained;  // by variable
    std::vector<float> scratch;
    std::vector<int> not_looked_at;  // variables whose table changed since

    static std::vector<int> KeyOf(std::span<const int> targets, const ModelFindings& findings, bool whole)
    {
        std::vector<int> key(targets.begin(), targets.end());
        key.push_back(whole ? -1 : -2);
        for (int v = 0; v < int(findings.positive.size()); ++v)
            if (findings.positive[size_t(v)] >= 0) key.push_back(v);
        key.push_back(-3);
        for (int v = 0; v < int(findings.likelihoods.size()); ++v)
            if (findings.likelihoods[size_t(v)] != nullptr) key.push_back(v);
        return key;
    }

    void FindConstrained()
    {
        constrained.resize(graph->variables.size());
        for (int v : not_looked_at) {
            const ModelGraph::Variable& variable = graph->variables[size_t(v)];
            int64_t rows = 1;
            for (int parent : variable.parents) rows *= graph->variables[size_t(parent)].num_states;
            const bool before = constrained[size_t(v)] != 0;
            constrained[size_t(v)] =
                !variable.is_decision && HasImpossibleRow(table(v), rows, std::max(1, variable.num_states));
            if (before != (constrained[size_t(v)] != 0)) prepared.clear();  // another part matters
        }
        not_looked_at.clear();
    }

    // The tree for this question, at the front of the list.
    Prepared& Prepare(std::span<const int> targets, const ModelFindings& findings, bool whole)
    {
        std::vector<int> key = KeyOf(targets, findings, whole);
        const auto found =
            std::find_if(prepared.begin(), prepared.end(), [&](const Prepared& p) { return p.key == key; });
        if (found != prepared.end()) {
            prepared.splice(prepared.begin(), prepared, found);
            RefillChanged(prepared.front(), findings);
            return prepared.front();
        }
        prepared.emplace_front();
        try {
            Build(prepared.front(), targets, findings, whole);
        } catch (...) {
            prepared.pop_front();
            throw;
        }
        prepared.front().key = std::move(key);
        DropOldest();
        return prepared.front();
    }

    void DropOldest()
    {
        double entries = 0;
        for (const Prepared& p : prepared) entries += p.tree.total_size;
        while (prepared.size() > kMostTrees || (prepared.size() > 1 && entries > kMostEntries)) {
            entries -= prepared.back().tree.total_size;
            prepared.pop_back();
        }
    }

    void Build(Prepared& p, std::span<const int> targets, const ModelFindings& findings, bool whole)
    {
        p.part = FindRelevantPart(*graph, targets, findings, whole);
        p.tree = JoinTree(p.part.graph, TriangulatePart(p.part), false);
        CheckTreeTables(p.tree.total_size, "");
        p.tables.resize(p.part.original.size());
        for (int v = 0; v < int(p.tables.size()); ++v) Refill(p, v, findings);
        p.positive = findings.positive;
        p.propagation = std::make_unique<Propagation>(p.part.graph, p.tree,
                                                      [&p](int v) { return p.tables[size_t(v)].data(); });
    }

    // The greedy order, unless its cliques are so large that another pays.
    Triangulation TriangulatePart(const RelevantPart& part) const
    {
        std::vector<int> all(part.original.size());
        std::iota(all.begin(), all.end(), 0);
        const GreedySearchResult greedy = FindGreedyOrder(part.graph, all, nullptr);
        if (greedy.halted) FailCliquesHalted();
        Triangulation best = Triangulate(part.graph, greedy.order);
        double size = SizeOfCliques(part.graph, best);
        const auto take_better = [&](const std::vector<int>& other) {
            Triangulation triangulation = Triangulate(part.graph, other);
            if (SizeOfCliques(part.graph, triangulation) < size) best = std::move(triangulation);
            size = SizeOfCliques(part.graph, best);
        };
        if (!order.empty() && size > kLargePart) take_better(OrderOfPart(part));
        const bool has_decisions =
            std::any_of(part.graph.variables.begin(), part.graph.variables.end(),
                        [](const ModelGraph::Variable& variable) { return variable.is_decision; });
        if (size > kHugePart && !has_decisions) {
            const OptimizeLimits limits = {.seconds = 0, .trials = kTrialsOfHuge, .seed = 1};
            const std::vector<int> first = best.order;
            take_better(FindOptimizedOrder(part.graph, &first, limits, nullptr).order);
        }
        return best;
    }

    std::vector<int> OrderOfPart(const RelevantPart& part) const
    {
        std::vector<int> variable_of(graph->variables.size(), -1), own_order;
        for (size_t v = 0; v < part.original.size(); ++v) variable_of[size_t(part.original[v])] = int(v);
        for (int v : order)
            if (variable_of[size_t(v)] >= 0) own_order.push_back(variable_of[size_t(v)]);
        return own_order;
    }

    void Refill(Prepared& p, int v, const ModelFindings& findings) const
    {
        const int whole = p.part.original[size_t(v)];
        if (graph->variables[size_t(whole)].is_decision) return;  // has no table
        CutTable(*graph, p.part, v, findings, table(whole), p.tables[size_t(v)]);
    }

    // The weights of what is observed too are one factor.
    void EnterLikelihoods(Prepared& p, const ModelFindings& findings) const
    {
        for (int v = 0; v < int(p.part.original.size()); ++v) {
            const size_t whole = size_t(p.part.original[size_t(v)]);
            const float* likelihood = findings.likelihoods[whole];
            if (likelihood != nullptr && findings.positive[whole] >= 0)
                likelihood += findings.positive[whole];
            if (!graph->variables[whole].is_decision) p.propagation->SetLikelihood(v, likelihood);
        }
    }

    // Tables that a finding with another state has a part in.
    void RefillChanged(Prepared& p, const ModelFindings& findings) const
    {
        for (int v = 0; v < int(p.part.original.size()); ++v) {
            const int whole = p.part.original[size_t(v)];
            const auto changed = [&](int u) { return findings.positive[size_t(u)] != p.positive[size_t(u)]; };
            const auto& parents = graph->variables[size_t(whole)].parents;
            if (!changed(whole) && std::none_of(parents.begin(), parents.end(), changed)) continue;
            Refill(p, v, findings);
            if (!graph->variables[size_t(whole)].is_decision) p.propagation->TableChanged(v);
        }
        p.positive = findings.positive;
    }

    UpdateStatus Ask(std::span<const int> targets, const ModelFindings& findings, bool whole,
                     Progress* progress)
    {
        Prepared& p = Prepare(targets, findings, whole);
        EnterLikelihoods(p, findings);
        observed.clear();
        for (int target : targets) observed.push_back(findings.positive[size_t(target)]);
        asked.assign(targets.begin(), targets.end());
        if (!MultiplyFixed(p, findings)) return UpdateStatus::kInconsistent;
        return Update(p, whole, progress);
    }

    // False: one of them is impossible.
    bool MultiplyFixed(const Prepared& p, const ModelFindings& findings)
    {
        double product = 1;
        log_fixed = 0;
        for (int v : p.part.fixed) {
            product *= FixedFactor(*graph, v, findings, table(v), scratch);
            if (product == 0) return false;
            if (product > 1e-200 && product < 1e200) continue;
            log_fixed += std::log(product);
            product = 1;
        }
        log_fixed += std::log(product);
        return true;
    }

    // Messages towards one clique are enough where little is asked.
    static UpdateStatus Update(Prepared& p, bool whole, Progress* progress)
    {
        std::vector<int> free;
        for (int target : p.part.targets)
            if (target >= 0) free.push_back(target);
        if (free.empty() && whole && !p.part.original.empty()) free.push_back(0);
        if (free.size() > 2) return p.propagation->Update(progress);
        UpdateStatus status = UpdateStatus::kUpdated;
        for (size_t k = 0; k < free.size() && status == UpdateStatus::kUpdated; ++k)
            status = p.propagation->UpdateFor(free[k], progress);
        return status;
    }
};

TargetedQuery::TargetedQuery(const ModelGraph& graph, TableSource table, std::vector<int> order)
    : answers_(std::make_unique<Answers>())
{
    answers_->graph = &graph;
    answers_->table = std::move(table);
    answers_->order = std::move(order);
    answers_->not_looked_at.resize(graph.variables.size());
    std::iota(answers_->not_looked_at.begin(), answers_->not_looked_at.end(), 0);
}

TargetedQuery::~TargetedQuery() = default;

UpdateStatus TargetedQuery::Ask(std::span<const int> targets, ModelFindings& findings, bool wants_probability,
                                Progress* progress)
{
    const DenormalsOff mode;
    answers_->FindConstrained();
    findings.constrained = answers_->constrained;
    return answers_->Ask(targets, findings, wants_probability, progress);
}

void TargetedQuery::Belief(int target, float* belief) const
{
    const Prepared& p = answers_->prepared.front();
    const int state = answers_->observed[size_t(target)];
    if (state < 0) {
        p.propagation->Belief(p.part.targets[size_t(target)], belief);
        return;
    }
    const int n = answers_->graph->variables[size_t(answers_->asked[size_t(target)])].num_states;
    std::fill_n(belief, n, 0.0f);
    belief[state] = 1;
}

void TargetedQuery::JointBelief(std::span<const int> variables, float* joint) const
{
    const Prepared& p = answers_->prepared.front();
    std::vector<int> free, counts;
    std::vector<int64_t> strides;
    int64_t size = 1, start = 0, num_free = 1;
    for (size_t k = variables.size(); k-- > 0;) {
        const int v = variables[k], state = p.positive[size_t(v)];
        const int num_states = std::max(1, answers_->graph->variables[size_t(v)].num_states);
        if (state >= 0) {
            start += state * size;
        } else {
            const auto found = std::lower_bound(p.part.original.begin(), p.part.original.end(), v);
            free.insert(free.begin(), int(found - p.part.original.begin()));
            counts.insert(counts.begin(), num_states);
            strides.insert(strides.begin(), size);
            num_free *= num_states;
        }
        size *= num_states;
    }
    std::fill_n(joint, size, 0.0f);
    std::vector<float> part(size_t(num_free), 1.0f);
    if (!free.empty()) TALORA_CHECK(p.propagation->JointBelief(free, part.data()));
    std::vector<int> at(free.size());
    for (float entry : part) {
        joint[start] = entry;
        for (size_t k = free.size(); k-- > 0;) {
            start += strides[k];
            if (++at[k] < counts[k]) break;
            start -= strides[k] * counts[k];
            at[k] = 0;
        }
    }
}

double TargetedQuery::LogProbability() const
{
    const Prepared& p = answers_->prepared.front();
    return (p.part.original.empty() ? 0 : p.propagation->LogProbability()) + answers_->log_fixed;
}

void TargetedQuery::TableChanged(int variable)
{
    answers_->not_looked_at.push_back(variable);
    for (Prepared& p : answers_->prepared) {
        const auto found = std::find(p.part.original.begin(), p.part.original.end(), variable);
        // Filled anew with the next question.
        if (found != p.part.original.end()) p.positive.assign(p.positive.size(), -2);
    }
}

}  // namespace talora
