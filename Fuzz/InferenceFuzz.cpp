// A small net and what is entered into it from bytes: up to 6 nodes of up to 4 states whose rows may hold
// zeros, ones, missing and impossible entries; positive, negative and likelihood findings, some taken back.
// Beliefs, the probability of findings and the most probable configurations equal going through all
// configurations in double, and findings are called inconsistent exactly when none is possible.
#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "Fuzz/Harness.h"
#include "Tests/Support/RandomNet.h"

namespace {

using talora::RandomModel;

constexpr double kTolerance = 1e-5;
// Factors are at most 1, so an intermediate result is never below the total: where that is above this,
// nothing that matters is too small for single precision.
constexpr double kLeastTotal = 1e-30;
constexpr int kMostNodes = 6;
constexpr int kMostStates = 4;
constexpr int kMostParents = 3;
constexpr int kMostSteps = 12;

using Weights = std::vector<std::vector<double>>;  // by node and state, 1 without findings

// What a halt stopped says nothing.
void Check(bool condition, const char* promise)
{
    fuzz::Check(condition || fuzz::Input::WasHalted(), promise);
}

// ---- The model ----

void TakeRow(fuzz::Bytes& bytes, float* row, int n)
{
    const uint8_t kind = bytes.Byte();
    const int chosen = kind / 16 % n;
    float sum = 0;
    switch (kind % 16) {
        case 0:
            std::fill_n(row, n, 1.0f / float(n));
            return;
        case 1:
            std::fill_n(row, n, 0.0f);
            row[chosen] = 1;
            return;
        case 2:
            std::fill_n(row, n, talora::ImpossibleProb());
            return;
        case 3:
            std::fill_n(row, n, talora::MissingProb());
            return;
        case 4:
            std::fill_n(row, n, 0.0f);
            return;  // is impossible too
        case 5:      // nearly certain
            std::fill_n(row, n, n > 1 ? 1e-6f : 1.0f);
            if (n > 1) row[chosen] = 1 - 1e-6f * float(n - 1);
            return;
        default:
            break;
    }
    for (int s = 0; s < n; ++s) sum += row[s] = bytes.Byte();
    if (sum == 0) sum = row[chosen] = 1;
    for (int s = 0; s < n; ++s) row[s] /= sum;
    if (kind % 16 == 6) row[chosen] = talora::MissingProb();
}

RandomModel TakeModel(fuzz::Bytes& bytes)
{
    RandomModel model;
    const size_t size = 1 + bytes.Number(kMostNodes);
    model.graph.variables.resize(size);
    model.tables.resize(size);
    const bool is_reversed = bytes.Byte() % 2;  // parents come after their children
    for (size_t k = 0; k < size; ++k) {
        const size_t v = is_reversed ? size - 1 - k : k;
        auto& variable = model.graph.variables[v];
        variable.num_states = 1 + bytes.Byte() % kMostStates;
        const uint8_t parents = bytes.Byte();
        for (size_t p = 0; p < k && variable.parents.size() < kMostParents; ++p)
            if (parents >> p & 1) variable.parents.push_back(int(is_reversed ? size - 1 - p : p));
        if (parents & 64) continue;  // without a table: uniform
        size_t count = size_t(variable.num_states);
        for (int p : variable.parents) count *= size_t(model.NumStates(p));
        model.tables[v].resize(count);
        for (size_t row = 0; row < count; row += size_t(variable.num_states))
            TakeRow(bytes, model.tables[v].data() + row, variable.num_states);
    }
    return model;
}

// ---- Enumeration ----

struct Answers {
    double total = 0;
    Weights beliefs;                     // times the total
    std::vector<double> configurations;  // those that are possible, the most probable first
};

talora::Findings FindingsOf(const Weights& weights)
{
    talora::Findings findings(int(weights.size()));
    for (size_t v = 0; v < weights.size(); ++v)
        findings.likelihood[v].assign(weights[v].begin(), weights[v].end());
    return findings;
}

Answers Enumerate(const RandomModel& model, const Weights& weights)
{
    Answers answers;
    for (const auto& node : weights) answers.beliefs.emplace_back(node.size());
    talora::ForEachConfiguration(model, FindingsOf(weights),
                                 [&](const std::vector<int>& state, double product) {
                                     answers.total += product;
                                     answers.configurations.push_back(product);
                                     for (size_t v = 0; v < state.size(); ++v)
                                         answers.beliefs[v][size_t(state[v])] += product;
                                 });
    std::sort(answers.configurations.begin(), answers.configurations.end(), std::greater<>());
    return answers;
}

bool IsContradiction(int error)
{
    return (error >= 3302 && error <= 3319) || error == 3382 || error == 2102 || error == 2489;
}

bool IsLogOf(double found, double expected)
{
    const double log_expected = std::log(expected);
    return std::fabs(found - log_expected) <= kTolerance * std::max(1.0, std::fabs(log_expected));
}

// ---- The comparison ----

struct Case {
    RandomModel model;
    net_bn* net = nullptr;
    std::vector<node_bn*> nodes;
    Weights weights;

    Weights NoFindings() const
    {
        Weights none;
        for (int v = 0; v < model.size(); ++v) none.emplace_back(size_t(model.NumStates(v)), 1.0);
        return none;
    }
};

void CompareConfiguration(const Case& c, const Answers& answers, int nth)
{
    std::vector<state_bn> setting(c.nodes.size(), UNDEF_STATE);
    const double log_prob = MostProbableConfig_bn(c.net, setting.data(), nth);
    const int error = fuzz::TakenError();
    if (fuzz::Input::WasHalted()) return;
    if (answers.total == 0) {
        Check(IsContradiction(error), "nothing possible has no most probable configuration");
        return;
    }
    if (size_t(nth) >= answers.configurations.size()) {
        Check(error == 6803, "there are as many configurations as are possible");
        return;
    }
    const double expected = answers.configurations[size_t(nth)];
    if (expected < kLeastTotal) return;
    Check(error == 0, "there is a most probable configuration");
    Check(IsLogOf(log_prob, expected), "a most probable configuration is as probable as enumeration says");
    for (size_t v = 0; v < setting.size(); ++v)
        Check(setting[v] >= 0 && setting[v] < c.model.NumStates(int(v)), "a configuration has states");
    Check(IsLogOf(log_prob, talora::JointProb(c.model, FindingsOf(c.weights), setting)),
          "a configuration has the probability given");
}

void Compare(const Case& c)
{
    const Answers answers = Enumerate(c.model, c.weights);
    if (answers.total > 0 && answers.total < kLeastTotal) return;
    const bool is_asked = std::any_of(c.nodes.begin(), c.nodes.end(), HasNodeFinding_bn);
    const double log_prob = LogFindingsProbability_bn(c.net);
    const int error = fuzz::TakenError();
    if (answers.total == 0) {
        Check(!is_asked || IsContradiction(error), "what is impossible is called inconsistent");
        Check(GetNodeBeliefs_bn(c.nodes[0]) == nullptr, "there are no beliefs given the impossible");
        Check(IsContradiction(fuzz::TakenError()), "what is impossible is called inconsistent");
        return;
    }
    Check(error == 0, "what is possible is not called inconsistent");
    Check(IsLogOf(log_prob, is_asked ? answers.total : 1), "the probability of findings equals enumeration");
    for (size_t v = 0; v < c.nodes.size(); ++v) {
        const prob_bn* const found = GetNodeBeliefs_bn(c.nodes[v]);
        Check(found != nullptr, "there are beliefs");
        if (found == nullptr) return;
        for (size_t s = 0; s < answers.beliefs[v].size(); ++s) {
            const double expected = answers.beliefs[v][s] / answers.total;
            Check(std::fabs(double(found[s]) - expected) <= kTolerance, "beliefs equal enumeration");
        }
    }
    Check(fuzz::TakenError() == 0, "what is possible is not called inconsistent");
}

// ---- Findings ----

// Enters one and says what weight each state has by it.
std::vector<double> EnterTaken(fuzz::Bytes& bytes, node_bn* node, uint8_t kind)
{
    const int n = GetNodeNumberStates_bn(node);
    const int state = bytes.Byte() % n;
    std::vector<double> weights(size_t(n), kind == 1 ? 1 : 0);
    weights[size_t(state)] = kind == 1 ? 0 : 1;
    if (kind == 0) EnterFinding_bn(node, state);
    if (kind == 1) EnterFindingNot_bn(node, state);
    if (kind != 2) return weights;
    std::vector<prob_bn> likelihood;
    for (int s = 0; s < n; ++s) likelihood.push_back(float(bytes.Byte() & ~3) / 252);
    likelihood[size_t(state)] = 1;
    EnterNodeLikelihood_bn(node, likelihood.data());
    return {likelihood.begin(), likelihood.end()};
}

void Enter(Case& c, fuzz::Bytes& bytes, size_t v, uint8_t kind)
{
    const std::vector<double> entered = EnterTaken(bytes, c.nodes[v], kind);
    Weights product = c.weights;
    for (size_t s = 0; s < entered.size(); ++s) product[v][s] *= entered[s];
    const int error = fuzz::TakenError();
    if (error == 6035) {
        Check(kind == 1 && product[v].size() == 1, "only the one state a node has cannot be ruled out");
        return;
    }
    const bool fits_node = std::any_of(product[v].begin(), product[v].end(), [](double w) { return w > 0; });
    if (error == 0) {
        Check(fits_node, "what contradicts the node itself is refused");
        c.weights = product;
        return;
    }
    Check(IsContradiction(error), "a finding is refused for a contradiction");
    // By the node itself, or because it has a state already; otherwise by the other nodes.
    const bool is_by_others = error < 3310 || (error > 3313 && error != 3382);
    if (is_by_others)
        Check(Enumerate(c.model, product).total < kLeastTotal, "only the impossible is refused");
    if (!is_by_others && fits_node) {
        const auto possible =
            std::count_if(c.weights[v].begin(), c.weights[v].end(), [](double w) { return w > 0; });
        Check(possible == 1, "only what contradicts the node itself is refused by it");
    }
}

void Prepare(Case& c, fuzz::Bytes& bytes)
{
    const uint8_t way = bytes.Byte();
    c.weights = c.NoFindings();
    if (way & 1) SetNetAutoUpdate_bn(c.net, BELIEF_UPDATE);
    if (way & 2) {  // another elimination order
        nodelist_bn* const order = NewNodeList2_bn(0, c.net);
        for (size_t k = 0; k < c.nodes.size(); ++k)
            AddNodeToList_bn(c.nodes[(k + way / 16) % c.nodes.size()], order, way & 4 ? 0 : -1);
        SetNetElimOrder_bn(c.net, order);
        DeleteNodeList_bn(order);
    }
    Check(fuzz::TakenError() == 0, "a net can be made");
    CompileNet_bn(c.net);
    // Auto-updating reports at once a net in which nothing is possible.
    const int error = fuzz::TakenError();
    if (error != 0) {
        Check(IsContradiction(error), "a net can be compiled");
        Check(Enumerate(c.model, c.weights).total == 0, "what is possible is not called inconsistent");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::Input input;
    fuzz::Bytes bytes(data, size);
    Case c;
    c.model = TakeModel(bytes);
    c.net = NewNet_bn("net", fuzz::Environ());
    c.nodes = BuildNet(c.net, c.model);
    Prepare(c, bytes);
    for (int step = 0; step < kMostSteps && !bytes.AtEnd(); ++step) {
        const uint8_t kind = bytes.Byte();
        const size_t v = bytes.Byte() % c.nodes.size();
        switch (kind % 6) {
            case 3:
                RetractNodeFindings_bn(c.nodes[v]);
                c.weights[v].assign(c.weights[v].size(), 1.0);
                fuzz::TakenError();
                break;
            case 4:
                Compare(c);
                break;
            case 5:
                CompareConfiguration(c, Enumerate(c.model, c.weights), kind / 6 % 5);
                break;
            default:
                Enter(c, bytes, v, kind % 6);
                break;
        }
    }
    Compare(c);
    CompareConfiguration(c, Enumerate(c.model, c.weights), 0);
    DeleteNet_bn(c.net);
    return 0;
}
