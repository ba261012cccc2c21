// Belief updating of a net: what a change concerns, and the results that are read.
#include "BN/Inference/BnUpdating.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <iterator>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnFindings.h"
#include "BN/Inference/BnQuery.h"
#include "BN/Inference/ImpossibleCondition.h"
#include "BN/Model/BnProbs.h"
#include "BN/Model/BnUndo.h"
#include "BN/Model/Likelihood.h"
#include "BN/Propagation/TreeTables.h"
#include "Basic/Error.h"
#include "Basic/Memory.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

// A table may have come, and a value gone, since the net was compiled.
void CheckConstants(const Net& net)
{
    for (const Node* node : net.compiled->below_constants) CheckConstantParents(*node);
}

[[noreturn]] void FailHalted(const Net& net)
{
    FailWith<6013>(ABORTED_CND, net.name.c_str());
}

int VariableOf(const Node& node)
{
    const CompiledNet* compiled = node.net->compiled.get();
    if (compiled == nullptr || node.index >= int(compiled->variable_of.size())) return -1;
    return compiled->variable_of[node.index];
}

// The table with its constant parents fixed at their states, which they must have.
TableVector<float> CutAtConstants(const Node& node, const float* probs)
{
    const int num_states = NumStates(node);
    const int num_parents = int(node.links.size());
    std::vector<int> counts(num_parents), fixed(num_parents), at(num_parents, 0);
    int64_t kept_rows = 1;
    for (int i = 0; i < num_parents; ++i) {
        const Node& parent = *node.links[i].parent;
        counts[i] = NumStates(parent);
        fixed[i] = parent.kind == CONSTANT_NODE ? ConstantState(parent) : -1;
        if (parent.kind == CONSTANT_NODE && fixed[i] < 0) FailWithoutValue(parent, node);
        if (fixed[i] < 0) kept_rows *= counts[i];
        at[i] = std::max(fixed[i], 0);
    }
    TableVector<float> cut;
    cut.reserve(kept_rows * num_states);
    for (int64_t kept = 0; kept < kept_rows; ++kept) {
        int64_t row = 0;
        for (int i = 0; i < num_parents; ++i) row = row * counts[i] + at[i];
        cut.insert(cut.end(), probs + row * num_states, probs + (row + 1) * num_states);
        for (int i = num_parents - 1; i >= 0; --i) {
            if (fixed[i] >= 0) continue;
            if (++at[i] < counts[i]) break;
            at[i] = 0;
        }
    }
    return cut;
}

void SyncFinding(CompiledNet& compiled, int variable)
{
    const Node& node = *compiled.nodes[variable];
    Propagation& propagation = *compiled.propagation;
    propagation.SetPositive(variable, node.finding.state);
    const InferenceWeights scaled = WeightsForInference(node.finding);
    propagation.SetLikelihood(variable, scaled.weights.empty() ? nullptr : scaled.weights.data());
}

// Findings are handed over only when beliefs are asked for, so many changes cost one update.
void SyncFindings(CompiledNet& compiled)
{
    for (int variable : compiled.stale_findings) {
        SyncFinding(compiled, variable);
        compiled.finding_is_stale[variable] = 0;
    }
    compiled.stale_findings.clear();
}

// The tables under the current findings fit the limits and are wanted, or this fails.
void CheckTablesForUpdate(Net& net)
{
    if (!CheckTableMemory(net, SizesOf(net))) FailHalted(net);
}

TableSource TablesOf(CompiledNet& compiled)
{
    return [&compiled](int variable) { return TableOf(compiled, variable); };
}

void MakePropagation(Net& net)
{
    CompiledNet& compiled = *net.compiled;
    CheckTablesForUpdate(net);
    compiled.propagation =
        std::make_unique<Propagation>(compiled.propagation_graph, compiled.tree, TablesOf(compiled));
    compiled.propagation->SetMaximise(net.most_probable);
    for (int variable = 0; variable < int(compiled.nodes.size()); ++variable)
        if (!compiled.nodes[variable]->finding.IsEmpty()) SyncFinding(compiled, variable);
    for (int variable : compiled.stale_findings) compiled.finding_is_stale[variable] = 0;
    compiled.stale_findings.clear();
}

// Only nets that update automatically are compiled without having been asked for it.
void CompileOnDemand(Net& net)
{
    if (net.auto_update == 0) Fail<6011>(net.name.c_str());
    try {
        CompileNet(net);
    } catch (const Unwind& unwind) {
        const std::string reason = MessageOf(*unwind.record);
        Fail<6012>(reason.c_str());
    }
}

}  // namespace

// The node's own table where all parents are in the tree, else a copy with constants fixed; kept until it
// changes.
const float* TreeTable(const CompiledNet& compiled, int variable, MadeTables& made_tables)
{
    const Node& node = *compiled.nodes[variable];
    if (node.kind == DECISION_NODE) return nullptr;
    TableVector<float>& made = made_tables[variable];
    const float* probs = EffectiveProbs(node, made);
    const bool all_in_tree = std::all_of(node.links.begin(), node.links.end(),
                                         [](const Link& link) { return IsInTree(*link.parent); });
    if (probs == nullptr || all_in_tree) {
        if (made.empty()) made_tables.erase(variable);
        return probs;
    }
    TableVector<float> cut = CutAtConstants(node, probs);
    made = std::move(cut);
    return made.data();
}

const float* TableOf(CompiledNet& compiled, int variable)
{
    return TreeTable(compiled, variable, compiled.made_tables);
}

void FailWithoutValue(const Node& constant, const Node& child)
{
    Fail<6003>(child.net->name.c_str(), constant.name.c_str(), child.name.c_str());
}

void CheckConstantParents(const Node& node)
{
    for (const Link& link : node.links) {
        const Node& parent = *link.parent;
        if (parent.kind == CONSTANT_NODE && HasStates(parent) && HasTable(node, nullptr) &&
            ConstantState(parent) < 0)
            FailWithoutValue(parent, node);
    }
}

int ConstantState(const Node& node)
{
    if (node.finding.state >= 0) return node.finding.state;
    if (!node.links.empty()) return -1;
    TableVector<float> scratch;
    const float* probs = EffectiveProbs(node, scratch);
    if (probs == nullptr) return -1;
    const float* certain = std::find(probs, probs + NumStates(node), 1.0f);
    return certain == probs + NumStates(node) ? -1 : int(certain - probs);
}

void CompiledNetDeleter::operator()(CompiledNet* compiled) const noexcept
{
    delete compiled;
}

// ---- Notices from the model ----

uint64_t NewUpdateCount() noexcept
{
    static std::atomic<uint64_t> count{0};
    return ++count;
}

void DiscardTree(Net& net) noexcept
{
    net.compiled.reset();
    net.queries.reset();
    net.config_search.reset();
    net.update_count = NewUpdateCount();
}

namespace {

// The value of a constant node is a part of the tables of its children, whichever way it gets it.
void ConstantChanged(const Node& node) noexcept
{
    for (Node* child : node.children.nodes)
        if (child->kind != CONSTANT_NODE) TableChanged(*child);
}

}  // namespace

void TableChanged(Node& node) noexcept
{
    Net& net = *node.net;
    net.update_count = NewUpdateCount();
    if (net.queries && IsInTree(node)) {
        const int variable = net.queries->model.variable_of[size_t(node.index)];
        net.queries->model.made_tables.erase(variable);
        net.queries->query->TableChanged(variable);
    }
    const int variable = VariableOf(node);
    if (node.kind == CONSTANT_NODE) ConstantChanged(node);
    if (variable < 0) return;
    net.compiled->made_tables.erase(variable);
    if (net.compiled->propagation) net.compiled->propagation->TableChanged(variable);
    if (net.compiled->case_propagation) net.compiled->case_propagation->TableChanged(variable);
}

void FindingChanged(Node& node) noexcept
{
    Net& net = *node.net;
    net.update_count = NewUpdateCount();
    if (node.kind == CONSTANT_NODE) ConstantChanged(node);
    const int variable = VariableOf(node);
    if (variable < 0 || !net.compiled->propagation || net.compiled->finding_is_stale[variable]) return;
    net.compiled->finding_is_stale[variable] = 1;
    net.compiled->stale_findings.push_back(variable);  // reserved for all variables
}

void ModeChanged(Net& net) noexcept
{
    net.update_count = NewUpdateCount();
    if (net.compiled && net.compiled->propagation) net.compiled->propagation->SetMaximise(net.most_probable);
}

std::unique_ptr<CompiledNet, CompiledNetDeleter> TakeTree(Net& net) noexcept
{
    if (net.compiled) {
        CompiledNet& compiled = *net.compiled;
        compiled.propagation.reset();
        compiled.case_propagation.reset();
        compiled.made_tables.clear();
        compiled.clique_lists = std::vector<OwnedList>();
        compiled.stale_findings.clear();
        std::fill(compiled.finding_is_stale.begin(), compiled.finding_is_stale.end(), 0);
    }
    return std::move(net.compiled);
}

namespace {

size_t HeapBytes(const NumberLists& lists) noexcept
{
    return talora::HeapBytes(lists.start) + talora::HeapBytes(lists.items);
}

size_t HeapBytes(const ModelGraph& graph) noexcept
{
    size_t total =
        graph.variables.capacity() * sizeof(ModelGraph::Variable) + talora::HeapBytes(graph.utility_parents);
    for (const ModelGraph::Variable& variable : graph.variables) total += talora::HeapBytes(variable.parents);
    return total;
}

}  // namespace

size_t TreeBytes(const CompiledNet& compiled) noexcept
{
    const JunctionTree& tree = compiled.tree;
    return sizeof compiled + HeapBytes(compiled.nodes) + HeapBytes(compiled.variable_of) +
           HeapBytes(compiled.utilities) + HeapBytes(compiled.graph) + HeapBytes(compiled.propagation_graph) +
           HeapBytes(tree.members) + HeapBytes(tree.separators) + HeapBytes(tree.mate) +
           HeapBytes(tree.children) + HeapBytes(tree.clique_sizes) + HeapBytes(tree.separator_sizes) +
           HeapBytes(tree.home) + HeapBytes(tree.homed) + HeapBytes(tree.utility_home) +
           HeapBytes(compiled.stale_findings) + HeapBytes(compiled.finding_is_stale);
}

// ---- Updating ----

bool AreBeliefsUpdated(const Net& net)
{
    return net.compiled && net.compiled->propagation && net.compiled->stale_findings.empty() &&
           net.compiled->propagation->IsUpdated();
}

Propagation& CasePropagation(Net& net)
{
    CompiledNet& compiled = *net.compiled;
    CheckConstants(net);
    if (!compiled.case_propagation) {
        CheckTablesForUpdate(net);
        compiled.case_propagation =
            std::make_unique<Propagation>(compiled.propagation_graph, compiled.tree, TablesOf(compiled));
    }
    return *compiled.case_propagation;
}

// 1. A tree, and propagation on it. 2. New findings, which may have made tables larger. 3. The update, which
// goes on where a halted one stopped.
void UpdateBeliefs(Net& net)
{
    if (AreBeliefsUpdated(net)) return;
    if (!net.compiled) CompileOnDemand(net);
    CheckConstants(net);
    if (!net.compiled->propagation) {
        MakePropagation(net);
    } else if (!net.compiled->stale_findings.empty()) {
        SyncFindings(*net.compiled);
        if (!net.compiled->propagation->HoldsAllTables()) CheckTablesForUpdate(net);
    }
    Progress progress(kUpdateTitle);
    CheckUpdated(net, net.compiled->propagation->Update(&progress));
}

void CheckUpdated(const Net& net, UpdateStatus status)
{
    switch (status) {
        case UpdateStatus::kUpdated:
            return;
        case UpdateStatus::kInconsistent:
            if (net.compiled)
                ReportImpossibleCondition(net,
                                          [&](int variable) { return TableOf(*net.compiled, variable); });
            FailWith<3305>(INCONSISTENT_FINDING_CND, "");
        case UpdateStatus::kHalted:
            FailHalted(net);
    }
}

bool TryState(Node& node, int state)
{
    Net& net = *node.net;
    CompiledNet& compiled = *net.compiled;
    const int variable = VariableOf(node);
    if (!compiled.finding_is_stale[variable]) {
        compiled.finding_is_stale[variable] = 1;
        compiled.stale_findings.push_back(variable);  // reserved for all variables
    }
    compiled.propagation->SetPositive(variable, state);
    const UpdateStatus status = compiled.propagation->Update();
    if (status == UpdateStatus::kHalted) FailHalted(net);
    return status == UpdateStatus::kUpdated;
}

bool BeliefOf(const Node& node, float* beliefs)
{
    const int variable = VariableOf(node);
    if (variable < 0) return false;
    node.net->compiled->propagation->Belief(variable, beliefs);
    return true;
}

void AutoUpdate(Net& net, FailedUpdate failed)
{
    if (net.auto_update == 0 || !net.compiled) return;
    if (failed == FailedUpdate::kKeepsFindings) net.undo->Commit();
    UpdateBeliefs(net);
}

const float* GetBeliefs(Node& node)
{
    if (node.kind != NATURE_NODE && node.kind != DECISION_NODE && node.kind != DISCONNECTED_NODE)
        Fail<2364>(node.name.c_str(), KindTerm(node.kind));
    const int num_states = NumStates(node);
    if (num_states == 0) return nullptr;
    UpdateBeliefs(*node.net);
    node.beliefs.resize(num_states);
    const int variable = VariableOf(node);
    if (variable >= 0) {
        node.net->compiled->propagation->Belief(variable, node.beliefs.data());
        return node.beliefs.data();
    }
    // A disconnected node depends on nothing: its own finding, else all states alike.
    CombinedLikelihood(node, node.beliefs.data());
    double sum = 0;
    for (float weight : node.beliefs) sum += weight;
    for (float& weight : node.beliefs) weight = float(weight / sum);
    return node.beliefs.data();
}

// Mean and deviation of the state values under the beliefs; a node without states has the value entered.
double ExpectedValue(Node& node, double* std_dev)
{
    if (std_dev) *std_dev = UndefDbl();
    if (node.kind != NATURE_NODE) Fail<6014>(KindTerm(node.kind));
    const float* beliefs = GetBeliefs(node);
    if (beliefs == nullptr) {
        if (std_dev && !IsUndef(node.finding.value)) *std_dev = 0;
        return node.finding.value;
    }
    const int num_states = NumStates(node);
    double mean = 0;
    for (int state = 0; state < num_states; ++state) {
        const double value = StateValue(node, state);
        if (IsUndef(value)) return UndefDbl();
        mean += beliefs[state] * value;
    }
    double variance = 0;
    for (int state = 0; state < num_states; ++state) {
        const double deviation = StateValue(node, state) - mean;
        variance += beliefs[state] * deviation * deviation;
    }
    if (std_dev) *std_dev = std::sqrt(variance);
    return mean;
}

bool HasFindings(const Net& net)
{
    return std::any_of(net.nodes.nodes.begin(), net.nodes.nodes.end(),
                       [](const Node* node) { return !node->finding.IsEmpty(); });
}

double LogFindingsProbability(Net& net)
{
    if (!HasFindings(net)) return 0;
    try {
        UpdateBeliefs(net);
    } catch (const Unwind& unwind) {
        if (!HasCondition(*unwind.record, INCONSISTENT_FINDING_CND)) throw;
        // Probability 0 is the answer, not a failure of the question; the record stays.
        ThisThread().failed = false;
        return -InfinityDbl();
    }
    return net.compiled->propagation->LogProbability() + LogLikelihoodScale(net);
}

}  // namespace talora
