// Cases run together against the same findings entered in the net, one case at a time.
#include "BN/CaseRuns/CaseInference.h"

#include <cmath>
#include <random>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnFindings.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnProbs.h"
#include "BN/Propagation/Propagate.h"
#include "Support/TestNet.h"

namespace talora {
namespace {

class CaseInferenceTest : public ModelTest {
protected:
    void FillTable(Node& node)
    {
        std::uniform_real_distribution<float> uniform(0.05f, 1.0f);
        TableVector<float> probs(size_t(TableEntries(node)));
        for (size_t row = 0; row < probs.size(); row += NumStates(node)) {
            float sum = 0;
            for (int s = 0; s < NumStates(node); ++s) sum += probs[row + s] = uniform(random_);
            for (int s = 0; s < NumStates(node); ++s) probs[row + s] /= sum;
        }
        SetTable(node, std::move(probs));
    }
    void FillTables(Net& net)
    {
        for (Node* node : net.nodes.nodes) FillTable(*node);
    }
    // The net's own answer to one case, added up over the family of every node.
    void Reference(Net& net, const std::vector<int32_t>& states, double weight,
                   std::vector<std::vector<double>>& counts)
    {
        const CompiledNet& compiled = *net.compiled;
        for (int v = 0; v < int(counts.size()); ++v) {
            std::vector<int> family = compiled.graph.variables[v].parents;
            family.push_back(v);
            std::vector<float> joint(counts[v].size());
            ASSERT_TRUE(compiled.propagation->JointBelief(family, joint.data()));
            for (size_t at = 0; at < joint.size(); ++at) counts[v][at] += weight * double(joint[at]);
        }
        for (int v = 0; v < int(states.size()); ++v) RetractFindings(*compiled.nodes[v]);
    }
    std::mt19937 random_{7};
};

TEST_F(CaseInferenceTest, AsTheNetWithTheSameFindings)
{
    const struct {
        const char* label;
        const char* net;
        bool has_decision;
    } rows[] = {{"by the sixteen", "A B:3 C:4 D E:3; A B -> C; B C -> D; C D -> E", false},
                {"one by one", "A B:3 C:4 D E:3; A B -> C; B C -> D; C D -> E", true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        Net& net = Make(row.net);
        FillTables(net);
        if (row.has_decision) {
            DeleteTables((*this)["A"]);
            (*this)["A"].kind = DECISION_NODE;
        }
        CompileNet(net);
        const CompiledNet& compiled = *net.compiled;
        const int n = int(compiled.nodes.size());
        CaseResults wanted;
        std::vector<std::vector<double>> counts, expected;
        for (int v = 0; v < n; ++v) {
            wanted.beliefs.push_back(v);
            wanted.families.push_back(v);
            counts.emplace_back(size_t(TableEntries(*compiled.nodes[v])), 0);
        }
        expected = counts;
        CaseInference inference(net, wanted);
        EXPECT_EQ(inference.Width() > 1, !row.has_decision);
        const float weights[] = {0.5f, 0.1f, 1};
        const CaseFindings::Weights soft{compiled.variable_of[FindNode(net, "B")->index], weights};
        for (int round = 0; round < 20; ++round) {
            std::vector<std::vector<int32_t>> states(size_t(inference.Width()));
            std::vector<CaseFindings> cases(states.size());
            std::vector<double> case_weights(states.size());
            for (size_t k = 0; k < states.size(); ++k) {
                for (int v = 0; v < n; ++v)
                    states[k].push_back(random_() % 2 ? int(random_() % NumStates(*compiled.nodes[v])) : -1);
                cases[k].states = states[k].data();
                if (k % 3 == 0 && states[k][soft.variable] < 0) cases[k].likelihoods = {&soft, 1};
                case_weights[k] = double(random_() % 4);
            }
            inference.Run(cases);
            for (int v = 0; v < n; ++v) inference.AddFamilyCounts(v, case_weights, counts[v].data());
            for (size_t k = 0; k < states.size(); ++k) {
                for (int v = 0; v < n; ++v)
                    if (states[k][v] >= 0)
                        EnterFinding(*compiled.nodes[v], states[k][v], FindingMode::STRICT);
                if (!cases[k].likelihoods.empty()) EnterLikelihood(*FindNode(net, "B"), weights);
                EXPECT_NEAR(inference.LogProbability(int(k)), LogFindingsProbability(net), 1e-5);
                UpdateBeliefs(net);
                for (int v = 0; v < n; ++v) {
                    std::vector<float> belief(size_t(NumStates(*compiled.nodes[v])));
                    inference.Belief(int(k), v, belief.data());
                    const float* own = GetBeliefs(*compiled.nodes[v]);
                    for (size_t s = 0; s < belief.size(); ++s) EXPECT_NEAR(belief[s], own[s], 1e-5);
                }
                Reference(net, states[k], case_weights[k], expected);
            }
        }
        for (int v = 0; v < n; ++v)
            for (size_t at = 0; at < counts[v].size(); ++at)
                EXPECT_NEAR(counts[v][at], expected[v][at], 1e-3) << v << " " << at;
    }
}

// Trees too large to go by the sixteen: the whole tree and parts of the model take turns, as cases set
// more or fewer variables and of the same as before.
TEST_F(CaseInferenceTest, PartsOfLargeNets)
{
    const struct {
        const char* label;
        const char* net;
    } rows[] = {{"large", "A:20 B:20 C:20 D:20 E F G; A B C -> D; D -> E; A E -> F; G -> A"},
                {"huge", "A:50 B:50 C:50 D:50 E F G; A B C -> E; B C D -> F; E F -> G"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        Net& net = Make(row.net);
        FillTables(net);
        CompileNet(net);
        const CompiledNet& compiled = *net.compiled;
        const int n = int(compiled.nodes.size());
        const CaseResults wanted = {{compiled.variable_of[FindNode(net, "A")->index],
                                     compiled.variable_of[FindNode(net, "G")->index]},
                                    {}};
        const std::vector<int> families = {wanted.beliefs[1],
                                           compiled.variable_of[FindNode(net, "F")->index]};
        CaseInference inference(net, wanted), counting(net, {wanted.beliefs, families});
        ASSERT_EQ(inference.Width(), 1);
        const float weights[] = {0.5f, 0.1f};
        const CaseFindings::Weights soft{compiled.variable_of[FindNode(net, "E")->index], weights};
        std::vector<int32_t> states(size_t(n), -1);
        for (int round = 0; round < 40; ++round) {
            const int kind = int(random_() % 4);  // all known, none, as before, any
            for (int v = 0; v < n; ++v) {
                const int state = int(random_() % NumStates(*compiled.nodes[v]));
                const bool as_before = kind == 2 ? states[v] >= 0 : kind == 0 || (kind == 3 && random_() % 2);
                states[v] = as_before ? state : -1;
            }
            CaseFindings one{states.data(), {}};
            if (round % 5 == 0 && states[soft.variable] < 0) one.likelihoods = {&soft, 1};
            if (round % 7 == 0) {
                FillTable(*FindNode(net, "E"));
                inference.TableChanged(soft.variable);
                counting.TableChanged(soft.variable);
            }
            inference.Run({&one, 1});
            for (int v = 0; v < n; ++v)
                if (states[v] >= 0) EnterFinding(*compiled.nodes[v], states[v], FindingMode::STRICT);
            if (!one.likelihoods.empty()) EnterLikelihood(*FindNode(net, "E"), weights);
            EXPECT_NEAR(inference.LogProbability(0), LogFindingsProbability(net), 2e-5);
            UpdateBeliefs(net);
            for (int v : wanted.beliefs) {
                std::vector<float> belief(size_t(NumStates(*compiled.nodes[v])));
                inference.Belief(0, v, belief.data());
                const float* own = GetBeliefs(*compiled.nodes[v]);
                for (size_t s = 0; s < belief.size(); ++s) EXPECT_NEAR(belief[s], own[s], 1e-5);
            }
            counting.Run({&one, 1});
            EXPECT_NEAR(counting.LogProbability(0), inference.LogProbability(0), 2e-5);
            for (int v : families) {
                std::vector<int> members = compiled.graph.variables[size_t(v)].parents;
                members.push_back(v);
                const size_t size = size_t(TableEntries(*compiled.nodes[size_t(v)]));
                std::vector<double> counts(size);
                std::vector<float> joint(size);
                const double weight = 3;
                counting.AddFamilyCounts(v, {&weight, 1}, counts.data());
                ASSERT_TRUE(compiled.propagation->JointBelief(members, joint.data()));
                double error = 0;
                for (size_t at = 0; at < size; ++at)
                    error = std::max(error, std::abs(counts[at] - weight * double(joint[at])));
                EXPECT_LT(error, 1e-5) << "family of " << v;
            }
            for (int v = 0; v < n; ++v) RetractFindings(*compiled.nodes[v]);
        }
    }
}

TEST_F(CaseInferenceTest, FamiliesOfConstantParentsStandInTheirPlaceInTheTable)
{
    Net& net = Make("A K:3 B; A K -> B");
    FillTables(net);
    Node& constant = (*this)["K"];
    DeleteTables(constant);
    constant.kind = CONSTANT_NODE;
    EnterFinding(constant, 2, FindingMode::STRICT);
    CompileNet(net);
    const int b = net.compiled->variable_of[FindNode(net, "B")->index];
    CaseInference inference(net, {{}, {b}});
    const int32_t states[] = {1, 0};  // of A and B
    const CaseFindings one{states, {}};
    inference.Run({&one, 1});
    const double weight = 2;
    double counts[12] = {};
    inference.AddFamilyCounts(b, {&weight, 1}, counts);
    for (int at = 0; at < 12; ++at) EXPECT_NEAR(counts[at], at == (1 * 3 + 2) * 2 ? 2 : 0, 1e-6) << at;

    float other[12] = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0.25f, 0.75f};
    inference.UseTable(b, other);
    inference.Run({&one, 1});
    const float* const probs = GetProbs((*this)["A"], nullptr);
    EXPECT_NEAR(inference.LogProbability(0), std::log(probs[1] * 0.25), 1e-6);
    inference.TableChanged(b);  // the net's own again
    inference.Run({&one, 1});
    const int row[] = {1, 2};
    EXPECT_NEAR(inference.LogProbability(0), std::log(probs[1] * GetProbs((*this)["B"], row)[0]), 1e-6);
}

TEST_F(CaseInferenceTest, AnImpossibleCaseCountsNothing)
{
    Net& net = Make("A B; A -> B");
    FillTables(net);
    SetTable((*this)["B"], TableVector<float>{1, 0, 0.5f, 0.5f});
    CaseInference inference(net, {{}, {1}});
    const int32_t impossible[] = {0, 1};
    const int32_t possible[] = {1, 1};
    const CaseFindings cases[] = {{impossible, {}}, {possible, {}}};
    inference.Run(cases);
    EXPECT_EQ(inference.LogProbability(0), -INFINITY);
    EXPECT_GT(inference.LogProbability(1), -10);
    const double weights[] = {5, 3};
    double counts[4] = {};
    inference.AddFamilyCounts(1, weights, counts);
    EXPECT_EQ(counts[0] + counts[1] + counts[2], 0);
    EXPECT_NEAR(counts[3], 3, 1e-6);
}

}  // namespace
}  // namespace talora
