// Batches against going through all configurations, and against propagation of each case alone.
#include "BN/Propagation/PropagateBatch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <random>

#include "Basic/FloatMode.h"
#include "Support/RandomModel.h"

namespace talora {
namespace {

constexpr int kCases = BatchPropagation::kCases;

// Random findings of up to sixteen cases, in the form in which each side takes them.
struct Cases {
    std::vector<Findings> findings;
    std::vector<std::vector<int32_t>> states;
    std::deque<std::vector<CaseFindings::Weights>> weights;
    std::vector<CaseFindings> cases;

    Cases(const RandomModel& model, std::mt19937& random)
    {
        for (int k = 0, count = 1 + int(random() % kCases); k < count; ++k) {
            Findings& own = findings.emplace_back(model.size());
            for (int v = 0; v < model.size(); ++v) {
                if (random() % 3 == 0) own.positive[size_t(v)] = int(random() % unsigned(model.NumStates(v)));
                if (random() % 9 != 0) continue;
                for (int s = 0; s < model.NumStates(v); ++s)
                    own.likelihood[size_t(v)].push_back(float(random() % 4) / 2);
            }
        }
        for (const Findings& own : findings) {
            states.emplace_back(own.positive.begin(), own.positive.end());
            weights.emplace_back();
            for (int v = 0; v < model.size(); ++v)
                if (!own.likelihood[size_t(v)].empty())
                    weights.back().push_back({v, own.likelihood[size_t(v)].data()});
        }
        for (size_t k = 0; k < findings.size(); ++k) cases.push_back({states[k].data(), weights[k]});
    }
};

CaseResults Everything(const RandomModel& model)
{
    CaseResults wanted;
    for (int v = 0; v < model.size(); ++v) {
        wanted.beliefs.push_back(v);
        wanted.families.push_back(v);
    }
    return wanted;
}

void ExpectRight(const RandomModel& model, const BatchPropagation& batch, const Cases& cases)
{
    std::vector<float> belief(16);
    for (int k = 0; k < int(cases.cases.size()); ++k) {
        const Enumeration truth = Enumerate(model, cases.findings[size_t(k)]);
        ASSERT_EQ(batch.IsWeak(k), truth.total == 0) << "case " << k;
        if (truth.total == 0) continue;
        EXPECT_NEAR(batch.LogProbability(k), std::log(truth.total), 2e-6);
        for (int v = 0; v < model.size(); ++v) {
            batch.Belief(k, v, belief.data());
            for (int s = 0; s < model.NumStates(v); ++s)
                ASSERT_NEAR(double(belief[size_t(s)]), truth.beliefs[size_t(v)][size_t(s)], 2e-6)
                    << "case " << k << " variable " << v;
        }
    }
}

TEST(PropagateBatchTest, AgreesWithEnumeration)
{
    const DenormalsOff mode;
    std::mt19937 random(7);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        // Some with cliques of which long sums are taken.
        RandomModel model = trial % 10 == 9 ? MakeModel(random, 5, 6, 4, false)
                                            : MakeModel(random, 1 + int(random() % 8), 4, 3, trial % 2 == 0);
        const JunctionTree tree = TreeOf(model.graph);
        ASSERT_TRUE(BatchPropagation::Suits(model.graph, tree));
        BatchPropagation batch(model.graph, tree, model.Source(), Everything(model));
        for (int round = 0; round < 3; ++round) {
            const Cases cases(model, random);
            batch.Run(cases.cases);
            ExpectRight(model, batch, cases);
            const int changed = int(random() % unsigned(model.size()));
            FillTable(model, random, changed, false);
            batch.TableChanged(changed);
        }
    }
}

TEST(PropagateBatchTest, CountsOfFamiliesAreWeightedSumsOfTheirJoints)
{
    const DenormalsOff mode;
    std::mt19937 random(8);
    for (int trial = 0; trial < 100; ++trial) {
        SCOPED_TRACE(trial);
        const RandomModel model = MakeModel(random, 6, 3, 2, false);
        const JunctionTree tree = TreeOf(model.graph);
        BatchPropagation batch(model.graph, tree, model.Source(), Everything(model));
        Propagation alone(model.graph, tree, model.Source());
        const Cases cases(model, random);
        batch.Run(cases.cases);
        for (int v = 0; v < model.size(); ++v) {
            std::vector<int> family = model.graph.variables[size_t(v)].parents;
            family.push_back(v);
            std::vector<float> joint(model.tables[size_t(v)].size());
            std::vector<double> expected(joint.size(), 0.25), counts(joint.size(), 0.25), weights;
            for (size_t k = 0; k < cases.cases.size(); ++k) {
                weights.push_back(double(k) - 3.5);
                for (int u = 0; u < model.size(); ++u) {
                    alone.SetPositive(u, cases.findings[k].positive[size_t(u)]);
                    const auto& likelihood = cases.findings[k].likelihood[size_t(u)];
                    alone.SetLikelihood(u, likelihood.empty() ? nullptr : likelihood.data());
                }
                if (alone.Update() != UpdateStatus::kUpdated) continue;
                ASSERT_TRUE(alone.JointBelief(family, joint.data()));
                for (size_t f = 0; f < joint.size(); ++f) expected[f] += weights.back() * double(joint[f]);
            }
            batch.AddFamilyCounts(v, weights, counts.data());
            for (size_t f = 0; f < joint.size(); ++f) EXPECT_NEAR(counts[f], expected[f], 1e-4);
        }
    }
}

// A case has the same bits alone, among others, and when less is asked for.
TEST(PropagateBatchTest, CasesDoNotInfluenceEachOther)
{
    const DenormalsOff mode;
    std::mt19937 random(9);
    const RandomModel model = MakeModel(random, 12, 3, 3, false);
    const JunctionTree tree = TreeOf(model.graph);
    const int last = model.size() - 1;
    BatchPropagation all(model.graph, tree, model.Source(), Everything(model));
    BatchPropagation few(model.graph, tree, model.Source(), {{last}, {}});
    std::vector<float> expected(8), belief(8);
    for (int trial = 0; trial < 50; ++trial) {
        const Cases cases(model, random);
        for (size_t k = 0; k < cases.cases.size(); ++k) {
            all.Run(cases.cases);
            if (all.IsWeak(int(k))) continue;
            const double log_probability = all.LogProbability(int(k));
            all.Belief(int(k), last, expected.data());
            for (BatchPropagation* batch : {&all, &few}) {
                batch->Run(std::span(&cases.cases[k], 1));
                batch->Belief(0, last, belief.data());
                EXPECT_EQ(belief, expected);
                EXPECT_EQ(batch->LogProbability(0), log_probability);
            }
        }
    }
}

}  // namespace
}  // namespace talora
