// Sampling down the compiled junction tree: exact under any findings, nothing rejected (Dawid 1992).
#include "BN/Sampling/SampleTree.h"

#include <algorithm>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnUpdating.h"
#include "Basic/Environ.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// Which cliques lie on the way from the root to one that holds a listed variable.
std::vector<char> CliquesNeeded(const CompiledNet& compiled, const std::vector<char>& wanted)
{
    const JunctionTree& tree = compiled.tree;
    std::vector<char> needed(tree.num_cliques());
    for (int clique = tree.num_cliques(); clique-- > 0;) {
        const std::span<const int> shared = tree.separators[clique];
        for (const int variable : tree.members[clique])
            if (wanted[variable] && std::find(shared.begin(), shared.end(), variable) == shared.end())
                needed[clique] = 1;
        if (needed[clique] && tree.mate[clique] >= 0) needed[tree.mate[clique]] = 1;
    }
    return needed;
}

// Turns each row into cumulative sums that end in exactly 1; rows that cannot be reached stay 0.
void SumRows(const TableVector<float>& joint, int64_t row_size, TableVector<double>& sums)
{
    for (size_t first = 0; first < joint.size(); first += row_size) {
        double sum = 0;
        int64_t last = -1;
        for (int64_t i = 0; i < row_size; ++i) {
            if (joint[first + i] > 0) last = i;
            sums[first + i] = sum += joint[first + i];
        }
        for (int64_t i = 0; i < row_size; ++i)
            sums[first + i] = last < 0 ? 0 : i >= last ? 1 : sums[first + i] / sum;
    }
}

}  // namespace

// Sampling needs the tree: the user is asked before a net that is not compiled is compiled.
void PrepareTree(Net& net)
{
    if (!net.compiled) {
        const std::string question = ExpandMarkup("Compile >-net first?");
        if (AskQuestion(question.c_str(), "Yes,No", "Yes") != 0) Fail<6667>();
        CompileNet(net);
    }
    UpdateBeliefs(net);
}

// 1. Members already drawn in cliques nearer the root, and those drawn here.
void TreeSampler::AddClique(const Net& net, int clique, std::vector<char>& known)
{
    const CompiledNet& compiled = *net.compiled;
    CliqueDraw draw;
    for (const int variable : compiled.tree.members[clique]) {
        if (states_[variable] >= 0) continue;  // a finding
        const int num_states = compiled.propagation_graph.variables[variable].num_states;
        (known[variable] ? draw.given : draw.fresh).push_back({variable, num_states, 0});
        known[variable] = 1;
    }
    if (draw.fresh.empty()) return;
    // 2. Strides: the drawn members are the row, the known ones select it.
    double size = 1;
    std::vector<int> variables;
    for (const auto* members : {&draw.given, &draw.fresh})
        for (const Member& member : *members) {
            variables.push_back(member.variable);
            size *= member.num_states;
        }
    int64_t stride = 1;
    for (size_t i = draw.fresh.size(); i-- > 0; stride *= draw.fresh[i].num_states)
        draw.fresh[i].stride = stride;
    draw.row_size = stride;
    stride = 1;
    for (size_t i = draw.given.size(); i-- > 0; stride *= draw.given[i].num_states)
        draw.given[i].stride = stride;
    // 3. The clique's joint probabilities, as cumulative sums per row.
    CheckMemory(size * (sizeof(double) + sizeof(float)), "to draw cases from >-net '%s'", net.name.c_str());
    TableVector<float> joint(static_cast<size_t>(size));
    draw.cumulative.resize(joint.size());
    TALORA_CHECK(compiled.propagation->JointBelief(variables, joint.data()));
    SumRows(joint, draw.row_size, draw.cumulative);
    cliques_.push_back(std::move(draw));
}

// Nodes outside of the tree get a place behind its variables, with a state that is fixed.
TreeSampler::TreeSampler(std::span<Node* const> nodes)
{
    if (nodes.empty()) return;
    Net& net = *nodes[0]->net;
    PrepareTree(net);
    const CompiledNet& compiled = *net.compiled;
    const size_t num_variables = compiled.nodes.size();
    std::vector<char> wanted(num_variables), known(num_variables);
    for (size_t v = 0; v < num_variables; ++v) states_.push_back(compiled.nodes[v]->finding.state);
    for (const Node* node : nodes) {
        const int variable = compiled.variable_of[node->index];
        listed_.push_back(variable < 0 ? static_cast<int>(states_.size()) : variable);
        if (variable >= 0)
            wanted[variable] = 1;
        else
            states_.push_back(node->kind == CONSTANT_NODE ? ConstantState(*node) : -1);
        if (!HasStates(*node) && node->kind == NATURE_NODE) Fail<6668>(node->name.c_str());
    }
    const std::vector<char> needed = CliquesNeeded(compiled, wanted);
    for (int clique = 0; clique < compiled.tree.num_cliques(); ++clique)
        if (needed[clique]) AddClique(net, clique, known);
}

// From the root outwards: each clique draws its new members given those of the cliques before it.
void TreeSampler::Draw(RandomState& random)
{
    for (const CliqueDraw& clique : cliques_) {
        int64_t row = 0;
        for (const Member& member : clique.given) row += member.stride * states_[member.variable];
        const double* sums = clique.cumulative.data() + row * clique.row_size;
        const double u = NextUniform(random);
        int64_t entry = 0;
        if (clique.row_size > 16)
            entry = std::upper_bound(sums, sums + clique.row_size - 1, u) - sums;
        else
            while (entry + 1 < clique.row_size && u >= sums[entry]) ++entry;
        for (const Member& member : clique.fresh) {
            states_[member.variable] = static_cast<int>(entry / member.stride);
            entry %= member.stride;
        }
    }
}

}  // namespace talora
