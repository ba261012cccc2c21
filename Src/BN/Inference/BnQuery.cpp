// Beliefs of a few nodes from the part of the net that matters, kept for the next query.
#include "BN/Inference/BnQuery.h"

#include <cmath>

#include "BN/Inference/BnCompile.h"
#include "BN/Model/Likelihood.h"
#include "Basic/Error.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

NetQueries& QueriesOf(Net& net)
{
    if (net.queries) return *net.queries;
    std::unique_ptr<NetQueries, NetQueriesDeleter> queries(new NetQueries);
    DescribeModel(net, queries->model);
    CompiledNet& model = queries->model;
    queries->query = std::make_unique<TargetedQuery>(model.propagation_graph,
                                                     [&model](int v) { return TableOf(model, v); });
    net.queries = std::move(queries);
    return *net.queries;
}

// In the mode for most probable configurations no part of the net is without influence.
const float* ReadBeliefs(NetQueries& queries, Net& net, std::span<Node* const> nodes, size_t count,
                         double* log_probability)
{
    queries.beliefs.clear();
    queries.beliefs.reserve(count);
    for (Node* node : nodes) {
        const float* beliefs = GetBeliefs(*node);
        queries.beliefs.insert(queries.beliefs.end(), beliefs, beliefs + NumStates(*node));
    }
    if (log_probability != nullptr) *log_probability = LogFindingsProbability(net);
    return queries.beliefs.data();
}

}  // namespace

ModelFindings FindingsOf(const CompiledNet& model, std::vector<TableVector<float>>& weights)
{
    ModelFindings findings;
    weights.resize(model.nodes.size());
    for (size_t v = 0; v < model.nodes.size(); ++v) {
        const NodeFinding& finding = model.nodes[v]->finding;
        findings.positive.push_back(finding.state);
        weights[v] = WeightsForInference(finding).weights;
        findings.likelihoods.push_back(weights[v].empty() ? nullptr : weights[v].data());
    }
    return findings;
}

void NetQueriesDeleter::operator()(NetQueries* queries) const noexcept
{
    delete queries;
}

// 1. The targets as variables of the model.
const float* QueryBeliefs(Net& net, std::span<Node* const> nodes, double* log_probability)
{
    // Beliefs of most probable configurations come from the junction tree.  Compiling it discards what the
    // net keeps for queries, so it comes first.
    if (net.most_probable) UpdateBeliefs(net);
    NetQueries& queries = QueriesOf(net);
    for (const Node* node : queries.model.below_constants) CheckConstantParents(*node);
    std::vector<int> targets;
    size_t count = 0;
    for (const Node* node : nodes) {
        const int variable = queries.model.variable_of[size_t(node->index)];
        if (variable < 0 || !HasStates(*node)) Fail<6880>(node->name.c_str());
        targets.push_back(variable);
        count += size_t(NumStates(*node));
    }
    // 2. Beliefs of the most probable configuration need the whole tree.
    if (net.most_probable) return ReadBeliefs(queries, net, nodes, count, log_probability);
    std::vector<TableVector<float>> weights;
    ModelFindings findings = FindingsOf(queries.model, weights);
    Progress progress(kUpdateTitle);
    CheckUpdated(net, queries.query->Ask(targets, findings, log_probability != nullptr, &progress));
    queries.beliefs.resize(count);
    float* place = queries.beliefs.data();
    for (size_t t = 0; t < nodes.size(); ++t) {
        queries.query->Belief(int(t), place);
        place += NumStates(*nodes[t]);
    }
    if (log_probability != nullptr)
        *log_probability = HasFindings(net) ? queries.query->LogProbability() + LogLikelihoodScale(net) : 0;
    return queries.beliefs.data();
}

}  // namespace talora
