// The probability, beliefs and family counts of cases: sixteen at a time, or one by one where trees are
// large.
#include "BN/CaseRuns/CaseInference.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Propagation/PropagateBatch.h"
#include "BN/Propagation/TargetedQuery.h"
#include "BN/Propagation/TreeTables.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"

namespace talora {

namespace {

// Where a case leaves at most this share of the variables open, finding the part that matters costs less than
// a whole update.
constexpr int kFewOpen = 10;
// Trees from this many entries on take longer for an update than the tree of any part takes to build.
constexpr double kHugeTree = 4e6;

// A variable and its parents in the tree, and where their configurations stand in the node's table.
struct Family {
    std::vector<int> members;     // parents in the tree, then the variable
    int64_t size = 1;             // configurations of the members
    bool is_cut = false;          // the node has parents outside the tree, whose states are fixed
    std::vector<int64_t> places;  // by configuration of the members; only if cut
};

// Walks over the node and its parents from the last, with two strides: that of the node's table, and that of
// the table without parents whose state is fixed.
std::vector<int64_t> PlacesInTable(const CompiledNet& compiled, const Node& node, int64_t size)
{
    std::vector<int64_t> places(size_t(size), 0);
    int64_t stride = 1, kept_stride = 1;
    const auto add = [&](int num_states, int fixed) {
        for (int64_t at = 0; at < size; ++at)
            places[size_t(at)] += stride * (fixed >= 0 ? fixed : at / kept_stride % num_states);
        stride *= num_states;
        if (fixed < 0) kept_stride *= num_states;
    };
    add(std::max(1, NumStates(node)), -1);
    for (size_t i = node.links.size(); i-- > 0;) {
        const Node& parent = *node.links[i].parent;
        const bool in_tree = compiled.variable_of[parent.index] >= 0;
        add(std::max(1, NumStates(parent)), in_tree ? -1 : std::max(0, ConstantState(parent)));
    }
    return places;
}

// The members, and for nodes with fixed parents the way into the node's table.
Family FamilyOf(const CompiledNet& compiled, int variable)
{
    const Node& node = *compiled.nodes[size_t(variable)];
    Family family;
    family.members = compiled.graph.variables[size_t(variable)].parents;
    family.is_cut = family.members.size() != node.links.size();
    family.members.push_back(variable);
    for (int member : family.members)
        family.size *= std::max(1, compiled.graph.variables[size_t(member)].num_states);
    if (family.is_cut) family.places = PlacesInTable(compiled, node, family.size);
    return family;
}

// An elimination order that gives the cliques of the tree.
std::vector<int> OrderOf(const JunctionTree& tree)
{
    std::vector<int> order;
    for (int clique = tree.num_cliques(); clique-- > 0;) {
        const std::span<const int> kept = tree.separators[clique];
        for (int v : tree.members[clique])
            if (std::find(kept.begin(), kept.end(), v) == kept.end()) order.push_back(v);
    }
    return order;
}

}  // namespace

// Results of a case that was propagated by itself; those of the others are asked of the batch.
struct SingleResult {
    int k = 0;
    double log_probability = 0;
    std::vector<float> numbers;  // beliefs wanted, then families wanted
};

struct CaseInference::Runs {
    Net& net;
    const CompiledNet& compiled;
    CaseResults wanted;
    int num_variables = 0;
    std::vector<int> belief_at;     // by variable: where its belief stands in numbers, -1 not wanted
    std::vector<int> family_at;     // by variable: the same for its family
    std::vector<int> family_index;  // by variable: in families, -1 not wanted
    std::vector<Family> families;   // as wanted
    int64_t num_numbers = 0;
    std::vector<const float*> tables_used;  // by variable, in place of the net's
    MadeTables made;

    std::unique_ptr<BatchPropagation> batch;   // null where the tree is too large
    std::unique_ptr<Propagation> propagation;  // null until it is needed
    std::unique_ptr<TargetedQuery> query;      // null until it is needed
    std::vector<char> observed;                // by variable: whether the last case had it
    std::vector<int> targets;                  // of the query: beliefs wanted, then open members of families
    std::vector<int32_t> entered;              // the states that the propagation has
    std::vector<int> softened;                 // variables that have weights in it
    std::vector<SingleResult> singles;         // of the last run, ascending k
    size_t num_singles = 0;
    int num_cases = 0;

    // Lays out the numbers that a case is kept by: the beliefs wanted, then the families wanted.
    Runs(Net& of, const CaseResults& asked) : net(of), compiled(*of.compiled), wanted(asked)
    {
        num_variables = int(compiled.nodes.size());
        tables_used.assign(size_t(num_variables), nullptr);
        belief_at.assign(size_t(num_variables), -1);
        family_at.assign(size_t(num_variables), -1);
        family_index.assign(size_t(num_variables), -1);
        for (int v : wanted.beliefs) {
            belief_at[size_t(v)] = int(num_numbers);
            num_numbers += compiled.propagation_graph.variables[size_t(v)].num_states;
        }
        for (int v : wanted.families) {
            family_index[size_t(v)] = int(families.size());
            family_at[size_t(v)] = int(num_numbers);
            families.push_back(FamilyOf(compiled, v));
            num_numbers += families.back().size;
        }
        if (BatchPropagation::Suits(compiled.propagation_graph, compiled.tree))
            batch = std::make_unique<BatchPropagation>(
                compiled.propagation_graph, compiled.tree, [this](int v) { return Table(v); }, wanted);
    }

    // The table of a variable as propagation reads it: the net's, or the one given in its place, with fixed
    // parents cut out.
    const float* Table(int variable)
    {
        const float* const used = tables_used[size_t(variable)];
        if (used == nullptr) return TreeTable(compiled, variable, made);
        const int index = family_index[size_t(variable)];
        const Family own = index < 0 ? FamilyOf(compiled, variable) : Family();
        const Family& family = index < 0 ? own : families[size_t(index)];
        if (!family.is_cut) return used;
        TableVector<float>& cut = made[variable];
        cut.resize(size_t(family.size));
        for (size_t at = 0; at < cut.size(); ++at) cut[at] = used[family.places[at]];
        return cut.data();
    }

    // Every engine that has been made reads the table again.
    void TableChanged(int variable)
    {
        made.erase(variable);
        if (batch) batch->TableChanged(variable);
        if (propagation) propagation->TableChanged(variable);
        if (query) query->TableChanged(variable);
    }

    // The batch first; cases that it cannot hold in single precision, or all where there is none, by
    // themselves.
    void Run(std::span<const CaseFindings> cases)
    {
        const DenormalsOff mode;
        num_cases = int(cases.size());
        num_singles = 0;
        if (batch) batch->Run(cases);
        for (int k = 0; k < num_cases; ++k)
            if (!batch || batch->IsWeak(k)) RunSingle(k, cases[size_t(k)]);
    }

    void RunSingle(int k, const CaseFindings& findings)
    {
        if (singles.size() == num_singles) singles.emplace_back();
        SingleResult& result = singles[num_singles];
        result.k = k;
        const bool in_part = IsPartEnough(findings);
        const UpdateStatus status = in_part ? AskPart(findings) : UpdateWhole(findings);
        if (status == UpdateStatus::kHalted) FailWith<6582>(ABORTED_CND, net.name.c_str());
        result.log_probability = status == UpdateStatus::kInconsistent
                                     ? -std::numeric_limits<double>::infinity()
                                 : in_part ? query->LogProbability()
                                           : propagation->LogProbability();
        if (status == UpdateStatus::kUpdated && in_part) KeepPartResults(result);
        if (status == UpdateStatus::kUpdated && !in_part) KeepResults(result);
        ++num_singles;
    }

    // ---- The part of the model that matters (TargetedQuery.h). ----

    // Whether it is quicker than the whole tree: where nearly all is observed, where the tree that it gets
    // serves once more, or where the whole tree is huge.
    bool IsPartEnough(const CaseFindings& findings)
    {
        if (batch || compiled.has_decisions) return false;
        observed.resize(size_t(num_variables));
        bool is_as_before = true;
        int num_open = 0;
        for (int v = 0; v < num_variables; ++v) {
            const bool is_observed = findings.states[v] >= 0;
            num_open += !is_observed;
            is_as_before &= is_observed == bool(observed[size_t(v)]);
            observed[size_t(v)] = is_observed;
        }
        return is_as_before || num_open <= num_variables / kFewOpen || compiled.tree.total_size > kHugeTree;
    }

    // 1. The case as findings. 2. The targets: beliefs wanted, then the members of families that are not
    // observed, each once. 3. The query.
    UpdateStatus AskPart(const CaseFindings& findings)
    {
        if (!query)
            query = std::make_unique<TargetedQuery>(
                compiled.propagation_graph, [this](int v) { return Table(v); }, OrderOf(compiled.tree));
        ModelFindings known;
        known.positive.assign(findings.states, findings.states + num_variables);
        for (int& state : known.positive) state = std::max(-1, state);
        known.likelihoods.assign(size_t(num_variables), nullptr);
        for (const CaseFindings::Weights& soft : findings.likelihoods)
            known.likelihoods[size_t(soft.variable)] = soft.weights;
        targets = wanted.beliefs;
        for (const Family& family : families)
            for (int member : family.members)
                if (known.positive[size_t(member)] < 0) targets.push_back(member);
        if (!families.empty()) {
            std::sort(targets.begin() + std::ptrdiff_t(wanted.beliefs.size()), targets.end());
            targets.erase(std::unique(targets.begin() + std::ptrdiff_t(wanted.beliefs.size()), targets.end()),
                          targets.end());
        }
        return query->Ask(targets, known, true);
    }

    void KeepPartResults(SingleResult& result)
    {
        result.numbers.resize(size_t(num_numbers));
        for (size_t i = 0; i < wanted.beliefs.size(); ++i)
            query->Belief(int(i), result.numbers.data() + belief_at[size_t(wanted.beliefs[i])]);
        for (size_t f = 0; f < families.size(); ++f)
            query->JointBelief(families[f].members,
                               result.numbers.data() + family_at[size_t(wanted.families[f])]);
    }

    // ---- The whole tree. ----

    UpdateStatus UpdateWhole(const CaseFindings& findings)
    {
        // Only under its findings may the tables of a large tree be small enough.
        if (compiled.tree.total_size * sizeof(float) > kMaxTreeBytes)
            CheckTreeTables(TotalSize(compiled.propagation_graph, compiled.tree,
                                      {findings.states, findings.states + num_variables}),
                            net.name);
        if (!propagation) {
            propagation = std::make_unique<Propagation>(compiled.propagation_graph, compiled.tree,
                                                        [this](int v) { return Table(v); });
            entered.assign(size_t(num_variables), -1);
        }
        Enter(findings);
        return Update();
    }

    // Only what differs from the case before is entered, so that messages which still hold are kept.
    void Enter(const CaseFindings& findings)
    {
        for (int v : softened) propagation->SetLikelihood(v, nullptr);
        softened.clear();
        for (int v = 0; v < num_variables; ++v) {
            const int32_t state = std::max(-1, findings.states[v]);
            if (state == entered[size_t(v)]) continue;
            propagation->SetPositive(v, state);
            entered[size_t(v)] = state;
        }
        for (const CaseFindings::Weights& soft : findings.likelihoods) {
            softened.push_back(soft.variable);
            propagation->SetLikelihood(soft.variable, soft.weights);
        }
    }

    // Messages towards one clique are enough where little is asked.
    UpdateStatus Update()
    {
        if (!wanted.families.empty() || wanted.beliefs.size() > 2) return propagation->Update();
        if (wanted.beliefs.empty()) return propagation->UpdateFor(0);
        for (int v : wanted.beliefs)
            if (const UpdateStatus status = propagation->UpdateFor(v); status != UpdateStatus::kUpdated)
                return status;
        return UpdateStatus::kUpdated;
    }

    void KeepResults(SingleResult& result)
    {
        result.numbers.resize(size_t(num_numbers));
        for (int v : wanted.beliefs) propagation->Belief(v, result.numbers.data() + belief_at[size_t(v)]);
        for (int v : wanted.families)
            TALORA_CHECK(propagation->JointBelief(families[size_t(family_index[size_t(v)])].members,
                                                  result.numbers.data() + family_at[size_t(v)]));
    }

    const SingleResult* Single(int k) const
    {
        const auto end = singles.begin() + std::ptrdiff_t(num_singles);
        const auto found = std::lower_bound(singles.begin(), end, k,
                                            [](const SingleResult& result, int at) { return result.k < at; });
        return found != end && found->k == k ? &*found : nullptr;
    }

    // Adds weight times P (family | case) of every case: those of the batch in one pass, the single ones
    // after them.
    void AddFamilyCounts(int variable, std::span<const double> weights, double* counts) const
    {
        const Family& family = families[size_t(family_index[size_t(variable)])];
        std::vector<double> sums;  // in the order of the tree, where the table has another
        double* out = counts;
        if (family.is_cut) {
            sums.assign(size_t(family.size), 0);
            out = sums.data();
        }
        if (batch) batch->AddFamilyCounts(variable, weights, out);
        for (size_t i = 0; i < num_singles; ++i) {
            const SingleResult& result = singles[i];
            const double weight = weights[size_t(result.k)];
            if (weight == 0 || std::isinf(result.log_probability)) continue;
            const float* const joint = result.numbers.data() + family_at[size_t(variable)];
            for (int64_t at = 0; at < family.size; ++at) out[at] += weight * double(joint[at]);
        }
        for (size_t at = 0; at < sums.size(); ++at) counts[family.places[at]] += sums[at];
    }
};

CaseInference::CaseInference(Net& net, const CaseResults& wanted)
{
    if (!net.compiled) CompileNet(net);
    runs_ = std::make_unique<Runs>(net, wanted);
}

CaseInference::~CaseInference() = default;

int CaseInference::Width() const
{
    return runs_->batch ? BatchPropagation::kCases : 1;
}

void CaseInference::Run(std::span<const CaseFindings> cases)
{
    TALORA_CHECK(!cases.empty() && int(cases.size()) <= Width());
    runs_->Run(cases);
}

double CaseInference::LogProbability(int k) const
{
    if (const SingleResult* single = runs_->Single(k)) return single->log_probability;
    return runs_->batch->LogProbability(k);
}

void CaseInference::Belief(int k, int variable, float* belief) const
{
    const SingleResult* const single = runs_->Single(k);
    if (single == nullptr) return runs_->batch->Belief(k, variable, belief);
    const float* const from = single->numbers.data() + runs_->belief_at[size_t(variable)];
    std::copy_n(from, runs_->compiled.propagation_graph.variables[size_t(variable)].num_states, belief);
}

void CaseInference::AddFamilyCounts(int variable, std::span<const double> weights, double* counts) const
{
    runs_->AddFamilyCounts(variable, weights, counts);
}

void CaseInference::TableChanged(int variable)
{
    runs_->tables_used[size_t(variable)] = nullptr;
    runs_->TableChanged(variable);
}

void CaseInference::UseTable(int variable, const float* probs)
{
    runs_->tables_used[size_t(variable)] = probs;
    runs_->TableChanged(variable);
}

}  // namespace talora
