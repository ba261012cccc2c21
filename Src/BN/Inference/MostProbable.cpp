// Most probable configurations: the mode, its report, and the search for the nth best.
#include "BN/Inference/MostProbable.h"

#include <algorithm>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnQuery.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "BN/Model/Likelihood.h"
#include "BN/Propagation/TreeTables.h"
#include "Basic/Error.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"

namespace talora {

namespace {

// The first state of a node in a most probable configuration, UNDEF_STATE if there is none; whether a second
// one is as good.
int CertainState(Node& node, bool* is_tied)
{
    *is_tied = false;
    if (node.kind == CONSTANT_NODE) {
        const int state = ConstantState(node);
        return state < 0 ? UNDEF_STATE : state;
    }
    const float* beliefs = GetBeliefs(node);
    int first = UNDEF_STATE;
    for (int state = 0; state < NumStates(node); ++state) {
        if (beliefs[state] < kCertainBelief) continue;
        if (first >= 0) {
            *is_tied = true;
            break;
        }
        first = state;
    }
    return first;
}

// The configuration's probability by the tables, or a marker where an entry is one.
struct TableProduct {
    double probability = 1;
    bool has_impossible = false, has_missing = false;
};

TableProduct ProductOfTables(const Net& net)
{
    TableProduct product;
    TableVector<float> scratch;
    for (const Node* node : net.nodes.nodes) {
        if (!IsInTree(*node)) continue;
        int64_t row = 0;
        for (const Link& link : node->links)
            row = row * NumStates(*link.parent) + link.parent->most_probable_state;
        scratch.clear();
        const float* probs = EffectiveProbs(*node, scratch);
        const float entry =
            probs == nullptr ? MissingProb() : probs[row * NumStates(*node) + node->most_probable_state];
        product.has_impossible |= entry == ImpossibleProb();
        product.has_missing |= entry == MissingProb();
        product.probability *= double(entry);
    }
    return product;
}

void CheckNoDecision(const Node& node)
{
    if (node.kind == DECISION_NODE) Fail<3465>(node.net->name.c_str());
}

// The search that the net keeps, or a new one where something has changed.
ConfigSearch& SearchOf(Net& net, const std::vector<Node*>* nodes)
{
    const std::vector<Node*> wanted = nodes ? *nodes : std::vector<Node*>();
    ConfigSearch* kept = net.config_search.get();
    if (kept && kept->update_count == net.update_count && kept->nodes == wanted) return *kept;
    net.config_search.reset();
    CompileNet(net);
    CheckTreeTables(SizesOf(net).under_findings, net.name);
    std::unique_ptr<ConfigSearch, ConfigSearchDeleter> search(new ConfigSearch);
    DescribeModel(net, search->model);
    search->tree = net.compiled->tree;
    search->findings = FindingsOf(search->model, search->weights);
    search->nodes = wanted;
    std::vector<int> ranked;
    for (const Node* node : nodes ? *nodes : net.nodes.nodes) {
        const int variable = search->model.variable_of[size_t(node->index)];
        if (variable >= 0) ranked.push_back(variable);
    }
    CompiledNet& model = search->model;
    search->search = std::make_unique<KBestSearch>(
        model.propagation_graph, search->tree,
        [&model](int v) { return TreeTable(model, v, model.made_tables); }, search->findings, ranked);
    search->update_count = net.update_count;
    net.config_search = std::move(search);
    return *net.config_search;
}

// Adds the next best configuration to those found; false if there is none.  A search that was broken off has
// lost a part of what it still had to look through, so the net does not keep it.
bool FindNext(Net& net)
{
    ConfigSearch& search = *net.config_search;
    try {
        std::optional<Configuration> next = search.search->Next();
        if (next) search.found.push_back(std::move(*next));
        return next.has_value();
    } catch (...) {
        net.config_search.reset();
        throw;
    }
}

}  // namespace

void ConfigSearchDeleter::operator()(ConfigSearch* search) const noexcept
{
    delete search;
}

void CheckMostProbable(const Net& net)
{
    for (const Node* node : net.nodes.nodes) {
        CheckNoDecision(*node);
        if (!HasStates(*node) && !IsDocumentation(*node)) Fail<3051>(net.name.c_str(), node->name.c_str());
    }
}

void SetMostProbable(Net& net, bool most_probable)
{
    if (net.most_probable == most_probable) return;
    if (most_probable) CheckMostProbable(net);
    Change(net, net.most_probable, most_probable, REMODES, "change net MPE");
}

// 1. Each node's state in a best configuration.
std::string ReportMostProbable(Net& net)
{
    if (!net.most_probable) Fail<6801>(net.name.c_str());
    for (const Node* node : net.nodes.nodes) CheckNoDecision(*node);  // one may have come since
    UpdateBeliefs(net);
    int num_tied = 0;
    bool is_complete = true;
    for (Node* node : net.nodes.nodes) {
        if (IsDocumentation(*node) || node->kind == DISCONNECTED_NODE) continue;
        bool is_tied = false;
        node->most_probable_state = CertainState(*node, &is_tied);
        num_tied += is_tied;
        is_complete &= node->most_probable_state >= 0;
    }
    // 2. The line of text: ties, entries that are no probabilities, or the product of the table entries.
    if (!is_complete) return "";
    if (num_tied > 1)
        return "Multiple configurations are possible (add artificial \"findings\" to break ties).\n";
    const TableProduct product = ProductOfTables(net);
    if (product.has_impossible)
        return "The most probable configuration is one for which an \"impossible\" (x) probability was declared.\n";
    if (product.has_missing)
        return "The most probable configuration is one for which not all probabilities were defined.\n";
    return Format("The probability of the most probable configuration is %g %%.\n",
                  product.probability * 100);
}

// 1. Search on from what was found before.
double FindConfiguration(Net& net, const std::vector<Node*>* nodes, int nth, state_bn* setting)
{
    if (nth < 0) Fail<6802>(nth);
    CheckMostProbable(net);
    ConfigSearch& search = SearchOf(net, nodes);
    Progress progress("finding most probable configurations");
    while (int(search.found.size()) <= nth) {
        const bool is_found = FindNext(net);
        if (!is_found && search.found.empty()) FailWith<3305>(INCONSISTENT_FINDING_CND, "");
        if (!is_found) Fail<6803>(int(search.found.size()), nth);
        if (!progress.Step(double(search.found.size()) / (nth + 1.0))) FailWith<6800>(ABORTED_CND);
    }
    // 2. The states of the nodes asked for; constants have theirs, notes none.
    const Configuration& found = search.found[size_t(nth)];
    const std::vector<Node*>& listed = nodes ? *nodes : net.nodes.nodes;
    for (size_t i = 0; i < listed.size(); ++i) {
        const int variable = search.model.variable_of[size_t(listed[i]->index)];
        const int constant = listed[i]->kind == CONSTANT_NODE ? ConstantState(*listed[i]) : -1;
        setting[i] = variable >= 0 ? found.states[size_t(variable)] : constant >= 0 ? constant : UNDEF_STATE;
    }
    return found.log_value + LogLikelihoodScale(net);
}

}  // namespace talora
