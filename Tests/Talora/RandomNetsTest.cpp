// Random nets through the interface: beliefs and probabilities equal enumeration, and are the same whatever
// the way by which a net came to where it is.
//
// TALORA_RANDOM_NETS says how many nets are enumerated, TALORA_RANDOM_STEPS how many steps of entering and
// retracting are taken.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "Support/RandomNet.h"
#include "Support/TestEnviron.h"

namespace {

using talora::RandomModel;

constexpr double kTolerance = 1e-5;
constexpr double kSameTolerance = 1e-6;
constexpr double kMostCells = 1 << 20;

int CountFromEnviron(const char* name, int deflt)
{
    const char* const value = getenv(name);
    return value ? atoi(value) : deflt;
}

// The findings contradict one another, or what the tables call impossible.
bool IsContradiction(int error)
{
    return (error >= 3300 && error <= 3319) || error == 2102 || error == 2487 || error == 2489;
}

// ---- Findings ----

// One thing that is entered at a node.
struct Finding {
    enum Kind { kPositive, kNegative, kLikelihood } kind;
    int node;
    int state;
    std::vector<float> weights;
};

void Enter(node_bn* node, const Finding& finding)
{
    if (finding.kind == Finding::kPositive) EnterFinding_bn(node, finding.state);
    if (finding.kind == Finding::kNegative) EnterFindingNot_bn(node, finding.state);
    if (finding.kind == Finding::kLikelihood) EnterNodeLikelihood_bn(node, finding.weights.data());
}

Finding DrawFinding(std::mt19937& random, const RandomModel& model, int node)
{
    const int n = model.NumStates(node);
    Finding finding{Finding::Kind(random() % 3), node, int(random() % unsigned(n)), {}};
    for (int s = 0; s < n; ++s)
        finding.weights.push_back(random() % 4 ? 0.01f * float(1 + random() % 100) : 0);
    if (std::count(finding.weights.begin(), finding.weights.end(), 0) == n) finding.weights[0] = 1;
    return finding;
}

std::vector<float> WeightsOf(const Finding& finding, int num_states)
{
    if (finding.kind == Finding::kLikelihood) return finding.weights;
    std::vector<float> weights(size_t(num_states), finding.kind == Finding::kNegative ? 1 : 0);
    weights[size_t(finding.state)] = finding.kind == Finding::kPositive ? 1 : 0;
    return weights;
}

// ---- Enumeration ----

struct Largest {
    double belief = 0, log_prob = 0;
    int sets = 0, contradictions = 0;
};

// Enters findings into random nodes; what contradicts the node itself is refused and changes nothing.
talora::Findings EnterRandom(std::mt19937& random, const RandomModel& model,
                             const std::vector<node_bn*>& nodes, TestEnviron& env)
{
    talora::Findings entered(model.size());
    for (int left = int(random() % unsigned(model.size() + 1)); left > 0; --left) {
        const Finding finding = DrawFinding(random, model, int(random() % unsigned(model.size())));
        std::vector<float> product = WeightsOf(finding, model.NumStates(finding.node));
        std::vector<float>& before = entered.likelihood[size_t(finding.node)];
        for (size_t s = 0; s < before.size(); ++s) product[s] *= before[s];
        Enter(nodes[size_t(finding.node)], finding);
        if (env.Taken() == 0) before = product;
        // else refused: the two do not go together, or one was entered already
    }
    return entered;
}

void ExpectEnumerated(const RandomModel& model, const talora::Findings& findings,
                      const std::vector<node_bn*>& nodes, TestEnviron& env, Largest& largest)
{
    const auto [total, beliefs] = talora::Enumerate(model, findings);
    const double log_prob = LogFindingsProbability_bn(GetNodeNet_bn(nodes[0]));
    // Without findings nothing is asked, whatever configurations are impossible.
    const bool is_asked = std::any_of(nodes.begin(), nodes.end(), HasNodeFinding_bn);
    ++largest.sets;
    if (total == 0) {
        ++largest.contradictions;
        EXPECT_EQ(IsContradiction(env.Taken()), is_asked) << env.Message();
        EXPECT_EQ(GetNodeBeliefs_bn(nodes[0]), nullptr);
        EXPECT_TRUE(IsContradiction(env.Taken())) << env.Message();
        return;
    }
    const double log_total = is_asked ? std::log(total) : 0;
    const double log_error = std::fabs(log_prob - log_total) / std::max(1.0, std::fabs(log_total));
    largest.log_prob = std::max(largest.log_prob, log_error);
    EXPECT_LT(log_error, kTolerance) << log_prob << " " << log_total;
    for (int v = 0; v < model.size(); ++v) {
        const float* const found = GetNodeBeliefs_bn(nodes[size_t(v)]);
        ASSERT_NE(found, nullptr) << env.Taken() << " " << env.Message();
        for (int s = 0; s < model.NumStates(v); ++s) {
            const double error = std::fabs(double(found[s]) - beliefs[size_t(v)][size_t(s)]);
            largest.belief = std::max(largest.belief, error);
            EXPECT_LT(error, kTolerance) << "node " << v << " state " << s;
        }
    }
}

RandomModel DrawModel(std::mt19937& random, int most_nodes, bool odd_rows)
{
    for (;;) {
        RandomModel model = talora::MakeModel(random, 1 + int(random() % unsigned(most_nodes)),
                                              1 + int(random() % 6), 3, odd_rows);
        double cells = 1;
        for (int v = 0; v < model.size(); ++v) cells *= model.NumStates(v);
        if (cells <= kMostCells) return model;
    }
}

TEST(RandomNetsTest, EqualEnumeration)
{
    TestEnviron env;
    const int num_nets = CountFromEnviron("TALORA_RANDOM_NETS", 2000);
    Largest largest;
    for (int round = 0; round < num_nets && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::mt19937 random{unsigned(round)};
        const RandomModel model = DrawModel(random, 10, round % 3 == 0);
        net_bn* const net = NewNet_bn("net", env);
        const std::vector<node_bn*> nodes = BuildNet(net, model);
        CompileNet_bn(net);
        ASSERT_EQ(env.Taken(), 0) << env.Message();
        for (int set = 0; set < 6; ++set) {
            SCOPED_TRACE(set);
            RetractNetFindings_bn(net);
            talora::Findings findings(model.size());
            if (set > 0) findings = EnterRandom(random, model, nodes, env);
            ExpectEnumerated(model, findings, nodes, env, largest);
        }
        DeleteNet_bn(net);
    }
    printf(
        "%d nets, %d sets of findings, %d of them contradictory; largest error: beliefs %.2g, "
        "log-probabilities %.2g relative\n",
        num_nets, largest.sets, largest.contradictions, largest.belief, largest.log_prob);
}

// ---- The same answer by every way ----

struct Way {
    const char* label;
    bool auto_update = false;
    bool shuffled_findings = false;
    bool shuffled_nodes = false;
    bool shuffled_states = false;
    bool given_order = false;
    bool update_between = false;  // after each finding, and some are entered that are taken back
    bool compiled_last = false;
};

const Way kWays[] = {
    {"plain"},
    {"auto-update", true},
    {"findings in another order", false, true},
    {"nodes in another order", false, false, true},
    {"states in another order", false, false, false, true},
    {"nodes and states in another order", true, true, true, true},
    {"another elimination order", false, false, false, false, true},
    {"updated after each finding", false, false, false, false, false, true},
    {"auto-update and updated after each finding", true, true, false, false, true, true},
    {"compiled after the findings", false, false, false, false, false, false, true},
};

std::vector<int> Shuffled(std::mt19937& random, int size, bool is_shuffled)
{
    std::vector<int> order(static_cast<size_t>(size));
    std::iota(order.begin(), order.end(), 0);
    if (is_shuffled) std::shuffle(order.begin(), order.end(), random);
    return order;
}

// Nodes come in the order given, and stand at their variable's place in what is returned.
std::vector<node_bn*> BuildShuffled(net_bn* net, const RandomModel& model, const std::vector<int>& order)
{
    std::vector<node_bn*> nodes(order.size());
    for (int v : order)
        nodes[size_t(v)] = NewNode_bn(("v" + std::to_string(v)).c_str(), model.NumStates(v), net);
    for (int v : order) {
        for (int parent : model.graph.variables[size_t(v)].parents)
            AddLink_bn(nodes[size_t(parent)], nodes[size_t(v)]);
        const std::vector<float>& table = model.tables[size_t(v)];
        if (!table.empty()) SetNodeTable_bn(nodes[size_t(v)], table.data(), int64_t(table.size()));
    }
    return nodes;
}

void SetRandomElimOrder(std::mt19937& random, net_bn* net, const std::vector<node_bn*>& nodes)
{
    nodelist_bn* const list = NewNodeList2_bn(0, net);
    for (int v : Shuffled(random, int(nodes.size()), true)) AddNodeToList_bn(nodes[size_t(v)], list, -1);
    SetNetElimOrder_bn(net, list);
    DeleteNodeList_bn(list);
}

// Beliefs of all nodes in the model's order, and the log-probability; empty when the findings contradict.
std::vector<double> Answer(const RandomModel& model, const std::vector<Finding>& findings, const Way& way,
                           std::mt19937& random, TestEnviron& env)
{
    net_bn* const net = NewNet_bn("net", env);
    const std::vector<node_bn*> nodes =
        BuildShuffled(net, model, Shuffled(random, model.size(), way.shuffled_nodes));
    std::vector<std::vector<int>> old_states;  // by node and new state
    for (int v = 0; v < model.size(); ++v) {
        old_states.push_back(Shuffled(random, model.NumStates(v), way.shuffled_states));
        if (way.shuffled_states) ReorderNodeStates_bn(nodes[size_t(v)], old_states.back().data());
    }
    if (way.given_order) SetRandomElimOrder(random, net, nodes);
    if (way.auto_update) SetNetAutoUpdate_bn(net, BELIEF_UPDATE);
    if (!way.compiled_last) CompileNet_bn(net);
    // Auto-updating reports at once a net in which nothing is possible.
    bool has_contradiction = false;
    if (const int error = env.Taken()) {
        EXPECT_TRUE(IsContradiction(error)) << env.Message();
        has_contradiction = true;
    }
    for (int f : Shuffled(random, int(findings.size()), way.shuffled_findings)) {
        Finding finding = findings[size_t(f)];
        const std::vector<int>& old_state = old_states[size_t(finding.node)];
        for (size_t s = 0; s < old_state.size(); ++s) {
            finding.weights[s] = findings[size_t(f)].weights[size_t(old_state[s])];
            if (old_state[s] == findings[size_t(f)].state) finding.state = int(s);
        }
        node_bn* const node = nodes[size_t(finding.node)];
        if (way.update_between) {
            EnterFinding_bn(node, int(random() % old_state.size()));
            UpdateNetBeliefs_bn(net);
            RetractNodeFindings_bn(node);
            env.Taken();
        }
        Enter(node, finding);
        // Auto-updating refuses the finding that contradicts the others, so there is no answer to compare.
        has_contradiction |= IsContradiction(env.Taken()) && way.auto_update;
        if (way.update_between) UpdateNetBeliefs_bn(net);
        env.Taken();
    }
    if (way.compiled_last) CompileNet_bn(net);
    std::vector<double> answer = {LogFindingsProbability_bn(net)};
    for (int v = 0; v < model.size() && !std::isinf(answer[0]); ++v) {
        const float* const beliefs = GetNodeBeliefs_bn(nodes[size_t(v)]);
        if (beliefs == nullptr) break;
        answer.resize(answer.size() + old_states[size_t(v)].size());
        for (size_t s = 0; s < old_states[size_t(v)].size(); ++s)
            answer[answer.size() - old_states[size_t(v)].size() + size_t(old_states[size_t(v)][s])] =
                double(beliefs[s]);
    }
    if (const int error = env.Taken()) {
        EXPECT_TRUE(IsContradiction(error)) << env.Message();
        answer.clear();
    }
    if (has_contradiction) answer.clear();
    DeleteNet_bn(net);
    return answer;
}

TEST(RandomNetsTest, TheWayDoesNotMatter)
{
    TestEnviron env;
    double largest = 0;
    for (unsigned round = 0; round < 300 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::mt19937 random(round);
        const RandomModel model = talora::MakeModel(random, 2 + int(random() % 20), 4, 3, round % 3 == 0);
        std::vector<Finding> findings;  // one per node, so that their order can be any
        for (int v = 0; v < model.size(); ++v)
            if (random() % 3 == 0) findings.push_back(DrawFinding(random, model, v));
        std::vector<double> expected;
        for (const Way& way : kWays) {
            SCOPED_TRACE(way.label);
            const std::vector<double> answer = Answer(model, findings, way, random, env);
            if (&way == &kWays[0]) expected = answer;
            ASSERT_EQ(answer.size(), expected.size());
            for (size_t i = 0; i < answer.size(); ++i) {
                const double scale = i == 0 ? std::max(1.0, std::fabs(expected[0])) : 1;
                largest = std::max(largest, std::fabs(answer[i] - expected[i]) / scale);
                EXPECT_LT(std::fabs(answer[i] - expected[i]) / scale, kSameTolerance) << i;
            }
        }
    }
    printf("largest difference between two ways: %.2g\n", largest);
}

TEST(RandomNetsTest, ManyStepsLeaveNoTrace)
{
    TestEnviron env;
    const int num_steps = CountFromEnviron("TALORA_RANDOM_STEPS", 10000);
    std::mt19937 random(3);
    const RandomModel model = talora::MakeModel(random, 25, 4, 3, false);
    net_bn* const net = NewNet_bn("net", env);
    const std::vector<node_bn*> nodes = BuildNet(net, model);
    SetNetAutoUpdate_bn(net, BELIEF_UPDATE);
    CompileNet_bn(net);
    for (int step = 0; step < num_steps; ++step) {
        const int v = int(random() % unsigned(model.size()));
        RetractNodeFindings_bn(nodes[size_t(v)]);
        if (random() % 3 != 0) Enter(nodes[size_t(v)], DrawFinding(random, model, v));
        if (env.Taken() != 0) RetractNodeFindings_bn(nodes[size_t(v)]);  // a contradiction
        env.Taken();
    }
    std::vector<std::vector<float>> stepped;
    const double log_prob = LogFindingsProbability_bn(net);
    ASSERT_EQ(env.Taken(), 0) << "the last findings agree";
    for (int v = 0; v < model.size(); ++v) {
        const float* const beliefs = GetNodeBeliefs_bn(nodes[size_t(v)]);
        stepped.emplace_back(beliefs, beliefs + model.NumStates(v));
    }
    UncompileNet_bn(net);
    CompileNet_bn(net);
    EXPECT_NEAR(LogFindingsProbability_bn(net), log_prob,
                kSameTolerance * std::max(1.0, std::fabs(log_prob)));
    double largest = 0;
    for (int v = 0; v < model.size(); ++v) {
        const float* const beliefs = GetNodeBeliefs_bn(nodes[size_t(v)]);
        for (int s = 0; s < model.NumStates(v); ++s)
            largest = std::max(largest, double(std::fabs(beliefs[s] - stepped[size_t(v)][size_t(s)])));
    }
    EXPECT_LT(largest, kSameTolerance);
    printf("largest difference after %d steps: %.2g\n", num_steps, largest);
    DeleteNet_bn(net);
}

}  // namespace
