// Random cases: their frequencies against the exact joint distribution, what rejects them, and how they are
// written.
#include "BN/Sampling/MakeCases.h"

#include <cmath>
#include <map>
#include <random>
#include <sstream>

#include "BN/Equations/EqnToTable.h"
#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnFindings.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnProbs.h"
#include "Support/RandomModel.h"
#include "Support/TestNet.h"

namespace talora {

namespace {

class MakeCasesTest : public ModelTest {
protected:
    // A net with a loop, random tables, one of them with zeros.
    Net& MakeLoop()
    {
        Net& net = Make("A B:3 C; A B -> D:3; D C -> E; D -> F; E F -> G:4");
        std::mt19937 random(7);
        for (Node* node : net.nodes.nodes) FillWith(*node, random);
        return net;
    }
    void FillWith(Node& node, std::mt19937& random)
    {
        TableVector<float> probs(static_cast<size_t>(TableEntries(node)));
        for (size_t at = 0; at < probs.size(); at += NumStates(node))
            FillRow(random, probs.data() + at, NumStates(node), false);
        SetTable(node, std::move(probs));
    }

    // The probability of each configuration that agrees with the findings, summing to 1.
    std::map<std::vector<int>, double> Joint(const Net& net)
    {
        std::map<std::vector<int>, double> joint;
        const auto& nodes = net.nodes.nodes;
        std::vector<int> states(nodes.size());
        double total = 0;
        for (size_t i = 0; i < nodes.size();) {
            const double p = ProbOf(nodes, states);
            if (p > 0) total += joint[states] = p;
            for (i = 0; i < nodes.size() && ++states[i] == NumStates(*nodes[i]); ++i) states[i] = 0;
        }
        for (auto& [key, p] : joint) p /= total;
        return joint;
    }
    double ProbOf(const std::vector<Node*>& nodes, const std::vector<int>& states)
    {
        double p = 1;
        for (const Node* node : nodes) {
            int64_t row = 0;
            for (const Link& link : node->links)
                row = row * NumStates(*link.parent) + states[link.parent->index];
            const int state = states[node->index];
            p *= double(node->tables.probs[row * NumStates(*node) + state]);
            if (node->finding.state >= 0 && node->finding.state != state) p = 0;
            if (!node->finding.likelihood.empty()) p *= double(node->finding.likelihood[state]);
        }
        return p;
    }

    std::map<std::vector<int>, int> Sample(Net& net, int method, int num_cases)
    {
        const std::vector<Node*>& nodes = net.nodes.nodes;
        CaseSampler sampler(nodes, {method, 1e6, false});
        RandomState random = SeededState(2024);
        std::map<std::vector<int>, int> counts;
        std::vector<int> states(nodes.size());
        for (int n = 0; n < num_cases; ++n) {
            sampler.Draw({&random, nullptr});
            for (size_t i = 0; i < nodes.size(); ++i) states[i] = sampler.State(i);
            ++counts[states];
        }
        return counts;
    }

    std::string Written(Stream& stream, int method, int64_t count, double missing, uint64_t seed)
    {
        randgen_vx* generator = NewRandomGen(*env_, static_cast<int64_t>(seed));
        net_->random_gen = generator;
        WriteRandomCases(net_->nodes.nodes, stream, count, method, 1e6, missing);
        net_->random_gen = nullptr;
        DeleteRandomGen(generator);
        return stream.contents;
    }
};

// Pearson's statistic in standard deviations from its mean, cells of small expectation put together.
double ChiSquareExcess(const std::map<std::vector<int>, double>& joint,
                       const std::map<std::vector<int>, int>& counts, int num_cases)
{
    double chi2 = 0, rest_expected = 0, rest_seen = 0;
    int cells = 0;
    for (const auto& [key, p] : joint) {
        const auto found = counts.find(key);
        const double seen = found == counts.end() ? 0 : found->second;
        const double expected = p * num_cases;
        if (expected < 5) {
            rest_expected += expected;
            rest_seen += seen;
            continue;
        }
        chi2 += (seen - expected) * (seen - expected) / expected;
        ++cells;
    }
    if (rest_expected > 5) {
        chi2 += (rest_seen - rest_expected) * (rest_seen - rest_expected) / rest_expected;
        ++cells;
    }
    const double freedom = std::max(1, cells - 1);
    return (chi2 - freedom) / std::sqrt(2 * freedom);
}

TEST_F(MakeCasesTest, FrequenciesAreThoseOfTheDistribution)
{
    constexpr int kCases = 100000;
    const struct {
        const char* label;
        const char* found;
        int state;
        const char* soft;
    } kRows[] = {
        {"no findings", nullptr, 0, nullptr},   {"finding at a root", "B", 1, nullptr},
        {"finding at a leaf", "G", 2, nullptr}, {"finding and likelihood", "E", 1, "F"},
        {"likelihood", nullptr, 0, "D"},
    };
    Net& net = MakeLoop();
    for (const auto& row : kRows) {
        RetractFindings(net);
        if (row.found) EnterFinding((*this)[row.found], row.state, FindingMode::STRICT);
        const float weights[] = {0.1f, 0.8f, 0.0f};
        if (row.soft) EnterLikelihood((*this)[row.soft], weights);
        const auto joint = Joint(net);
        for (const int method : {FORWARD_SAMPLING, TREE_SAMPLING}) {
            SCOPED_TRACE(std::string(row.label) + ", method " + std::to_string(method));
            const auto counts = Sample(net, method, kCases);
            for (const auto& [key, count] : counts) EXPECT_TRUE(joint.contains(key));
            const double excess = ChiSquareExcess(joint, counts, kCases);
            EXPECT_LT(excess, 4);
            EXPECT_GT(excess, -4);
        }
    }
}

TEST_F(MakeCasesTest, ListedNodesAloneAreDrawnLikeTheirMarginals)
{
    Net& net = MakeLoop();
    EnterFinding((*this)["G"], 1, FindingMode::STRICT);
    CompileNet(net);
    const std::vector<Node*> nodes = {&(*this)["C"], &(*this)["A"]};
    for (const int method : {FORWARD_SAMPLING, TREE_SAMPLING, AUTO_SAMPLING}) {
        CaseSampler sampler(nodes, {method, 1e6, false});
        RandomState random = SeededState(5);
        std::vector<double> ones(2);
        for (int n = 0; n < 50000; ++n) {
            sampler.Draw({&random, nullptr});
            for (size_t i = 0; i < 2; ++i) ones[i] += sampler.State(i);
        }
        for (size_t i = 0; i < 2; ++i) EXPECT_NEAR(ones[i] / 50000, GetBeliefs(*nodes[i])[1], 0.01) << method;
        EXPECT_EQ(sampler.NumRejected() > 0, method == FORWARD_SAMPLING);
    }
}

TEST_F(MakeCasesTest, OneCaseBecomesFindings)
{
    Net& net = MakeLoop();
    EnterFinding((*this)["F"], 1, FindingMode::STRICT);
    GenerateRandomCase(net.nodes.nodes, AUTO_SAMPLING, 0);
    for (const Node* node : net.nodes.nodes) EXPECT_GE(node->finding.state, 0) << node->name;
    EXPECT_EQ((*this)["F"].finding.state, 1);
    EXPECT_GT(LogFindingsProbability(net), -InfinityDbl());
}

TEST_F(MakeCasesTest, RefusesWhatCannotBeDrawn)
{
    const struct {
        const char* label;
        const char* node;
        const char* parent;
        double tries;
        int method, error;
    } kRows[] = {
        {"no tries", nullptr, nullptr, 0, FORWARD_SAMPLING, 6673},
        {"too many tries", nullptr, nullptr, 3e9, FORWARD_SAMPLING, 6673},
        {"tries do not matter", nullptr, nullptr, -1, TREE_SAMPLING, 0},
        {"no such method", nullptr, nullptr, 1, 77, 6672},
        {"delay", "A", "B", 1, FORWARD_SAMPLING, 6660},
        {"no table", "A", nullptr, 1, FORWARD_SAMPLING, 6660},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        Net& net = MakeLoop();
        if (row.parent) {
            AddLink((*this)[row.parent], (*this)[row.node]);
            (*this)[row.node].links.back().delay = "1";
        } else if (row.node) {
            DeleteTables((*this)[row.node]);
        }
        EXPECT_EQ(ErrorOf([&] { GenerateRandomCase(net.nodes.nodes, row.method, row.tries); }), row.error);
    }
    Net& net = MakeLoop();
    Node& a = (*this)["A"];
    EXPECT_EQ(ErrorOf([&] {
                  Node* const twice[] = {&a, &a};
                  GenerateRandomCase(twice, AUTO_SAMPLING, 1);
              }),
              6676);
    // A finding with probability 0 in its own table is never drawn.
    SetTable(a, TableVector<float>{1, 0});
    EnterFinding(a, 1, FindingMode::STRICT);
    EXPECT_EQ(ErrorOf([&] { GenerateRandomCase(net.nodes.nodes, FORWARD_SAMPLING, 100); }), 6660);
    EXPECT_EQ(ErrorOf([&] { GenerateRandomCase(net.nodes.nodes, TREE_SAMPLING, 1); }), 6660);
}

TEST_F(MakeCasesTest, ContinuousNodesDrawFromTheirEquations)
{
    Make("S X:0 Y:0; S -> X; X -> Y");
    Node &s = (*this)["S"], &x = (*this)["X"], &y = (*this)["Y"];
    SetTable(s, TableVector<float>{0.25f, 0.75f});
    SetEquation(x, "P (X | S) = NormalDist (X, 10 * S, 2)", nullptr);
    SetEquation(y, "Y (X) = X * X", nullptr);
    const std::vector<Node*> nodes = {&s, &x, &y};
    CaseSampler sampler(nodes, {AUTO_SAMPLING, 1, false});
    RandomState random = SeededState(11);
    double sum = 0, squares = 0;
    constexpr int kCases = 20000;
    for (int n = 0; n < kCases; ++n) {
        sampler.Draw({&random, nullptr});
        const double value = sampler.Value(1);
        EXPECT_DOUBLE_EQ(sampler.Value(2), value * value);
        const double deviation = value - 10 * sampler.State(0);
        sum += deviation;
        squares += deviation * deviation;
    }
    EXPECT_NEAR(sum / kCases, 0, 0.06);
    EXPECT_NEAR(squares / kCases, 4, 0.2);

    const double thresholds[] = {0, 1, 4};
    SetLevels(y, 2, thresholds);  // most squares lie outside
    EXPECT_EQ(ErrorOf([&] {
                  CaseSampler outside(nodes, {FORWARD_SAMPLING, 1, false});
                  for (int n = 0; n < 100; ++n) outside.Draw({&random, nullptr});
              }),
              6660);
}

TEST_F(MakeCasesTest, DecisionsConstantsAndTablesOfNumbers)
{
    Make("D:3 K X:0; D K -> X");
    Node &d = (*this)["D"], &k = (*this)["K"], &x = (*this)["X"];
    SetNodeKind_bn(&d, DECISION_NODE);
    SetNodeKind_bn(&k, CONSTANT_NODE);
    EnterFinding_bn(&k, 1);
    for (int row = 0; row < 6; ++row) {
        const state_bn states[] = {row / 2, row % 2};
        SetNodeFuncReal_bn(&x, states, 10 * row);
    }
    CaseSampler sampler(net_->nodes.nodes, {FORWARD_SAMPLING, 1, false});
    RandomState random = SeededState(5);
    double drawn[3] = {};
    for (int n = 0; n < 3000; ++n) {
        sampler.Draw({&random, nullptr});
        EXPECT_EQ(sampler.State(1), 1);
        EXPECT_EQ(sampler.Value(2), 20 * sampler.State(0) + 10);
        ++drawn[sampler.State(0)];
    }
    for (const double count : drawn) EXPECT_NEAR(count / 3000, 1.0 / 3, 0.05);
}

TEST_F(MakeCasesTest, SeedFixesWhatIsWritten)
{
    MakeLoop();
    Stream& stream = *NewMemoryStream(*env_, "cases");
    for (const int method : {FORWARD_SAMPLING, TREE_SAMPLING}) {
        const std::string once = Written(stream, method, 200, 30, 9);
        EXPECT_EQ(once, Written(stream, method, 200, 30, 9));
        EXPECT_NE(once, Written(stream, method, 200, 30, 10));
        const auto missing = std::count(once.begin(), once.end(), '*');
        EXPECT_NEAR(double(missing) / (200 * 7), 0.3, 0.05);
    }
    const std::string all = Written(stream, AUTO_SAMPLING, 50, 100, 1);
    EXPECT_EQ(std::count(all.begin(), all.end(), '*'), 50 * 7);
    const std::string none = Written(stream, AUTO_SAMPLING, 0, 0, 1);
    EXPECT_NE(none.find("A\tB\tC\tD\tE\tF\tG\n"), std::string::npos);
    EXPECT_EQ(ErrorOf([&] { Written(stream, AUTO_SAMPLING, 1, 101, 1); }), 6680);
}

TEST_F(MakeCasesTest, EveryCaseHasItsProbability)
{
    Net& net = MakeLoop();
    Stream& stream = *NewMemoryStream(*env_, "cases");
    for (const bool with_finding : {false, true}) {
        SCOPED_TRACE(with_finding);
        if (with_finding) EnterFinding((*this)["F"], 1, FindingMode::STRICT);
        const auto joint = Joint(net);
        const double lines = NumPossibleCases(net.nodes.nodes);
        EXPECT_EQ(lines, with_finding ? 2 * 3 * 2 * 3 * 2 * 4 : 2 * 3 * 2 * 3 * 2 * 2 * 4);
        EXPECT_EQ(double(WriteEveryCase(net.nodes.nodes, stream)), lines);
        std::istringstream text(stream.contents.substr(stream.contents.find("NumCases")));
        std::string line;
        std::getline(text, line);
        double total = 0, num_lines = 0;
        while (std::getline(text, line)) {
            std::istringstream entries(line);
            double frequency = 0;
            std::string word;
            entries >> frequency;
            std::vector<int> states;
            while (entries >> word) states.push_back(std::stoi(word.substr(word[0] == '#')));
            const auto found = joint.find(states);
            EXPECT_NEAR(frequency, found == joint.end() ? 0 : found->second, 1e-6);
            total += frequency;
            ++num_lines;
        }
        EXPECT_EQ(num_lines, lines);
        EXPECT_NEAR(total, 1, 1e-12);
    }
    // The net's own findings are back in place.
    const std::vector<float> beliefs(GetBeliefs((*this)["D"]), GetBeliefs((*this)["D"]) + 3);
    double expected = 0;
    for (const auto& [states, p] : Joint(net)) expected += states[3] == 1 ? p : 0;
    EXPECT_NEAR(beliefs[1], expected, 1e-6);
}

}  // namespace

}  // namespace talora
