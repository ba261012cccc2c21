// The best configurations against going through all of them.
#include "BN/Propagation/KBest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <random>

#include "Basic/FloatMode.h"
#include "Support/RandomModel.h"

namespace talora {
namespace {

// Values of all settings of the ranked variables (the others as is best), best first.
std::vector<double> RankedValues(const RandomModel& model, const Findings& findings,
                                 const std::vector<int>& ranked)
{
    std::map<std::vector<int>, double> best;
    ForEachConfiguration(model, findings, [&](const std::vector<int>& state, double product) {
        std::vector<int> setting;
        for (int v : ranked) setting.push_back(state[size_t(v)]);
        double& value = best[setting];
        value = std::max(value, product);
    });
    std::vector<double> values;
    for (const auto& [setting, value] : best) values.push_back(value);
    std::sort(values.rbegin(), values.rend());
    return values;
}

void ExpectRanking(const RandomModel& model, const Findings& findings, const std::vector<int>& ranked)
{
    const JunctionTree tree = TreeOf(model.graph);
    ModelFindings known{findings.positive, {}, {}};
    for (const auto& likelihood : findings.likelihood)
        known.likelihoods.push_back(likelihood.empty() ? nullptr : likelihood.data());
    const std::vector<double> expected = RankedValues(model, findings, ranked);
    KBestSearch search(model.graph, tree, model.Source(), known, ranked);
    std::vector<std::vector<int>> seen;
    for (size_t k = 0; k < std::min<size_t>(expected.size(), 60); ++k) {
        const auto found = search.Next();
        ASSERT_TRUE(found) << k << " of " << expected.size();
        EXPECT_NEAR(found->log_value, std::log(expected[k]), 4e-6) << k;
        EXPECT_NEAR(found->log_value, std::log(JointProb(model, findings, found->states)), 1e-6) << k;
        std::vector<int> setting;
        for (int v : ranked) setting.push_back(found->states[size_t(v)]);
        seen.push_back(setting);
    }
    if (expected.size() <= 60) {
        EXPECT_FALSE(search.Next());
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end()) << "a setting came twice";
}

TEST(KBestTest, RanksLikeEnumeration)
{
    const DenormalsOff mode;
    std::mt19937 random(12);
    for (int trial = 0; trial < 1000; ++trial) {
        SCOPED_TRACE(trial);
        const RandomModel model = MakeModel(random, 1 + int(random() % 6), 3, 3, trial % 2 == 0);
        Findings findings(model.size());
        for (int v = 0; v < model.size(); ++v) {
            if (random() % 4 == 0)
                findings.positive[size_t(v)] = int(random() % unsigned(model.NumStates(v)));
            if (random() % 8 != 0) continue;
            for (int s = 0; s < model.NumStates(v); ++s)
                findings.likelihood[size_t(v)].push_back(float(random() % 4) / 2);
        }
        std::vector<int> ranked;
        for (int v = 0; v < model.size(); ++v)
            if (trial % 3 != 0 || random() % 2 == 0) ranked.push_back(v);
        ExpectRanking(model, findings, ranked);
    }
}

RandomModel StarOrChain(bool is_star, int size, int num_states, std::vector<float> first,
                        std::vector<float> others)
{
    RandomModel model;
    model.graph.variables.resize(size_t(size));
    for (int v = 0; v < size; ++v) {
        model.graph.variables[size_t(v)].num_states = v > 0 && is_star ? 2 : num_states;
        if (v > 0) model.graph.variables[size_t(v)].parents = {is_star ? 0 : v - 1};
        model.tables.push_back(v > 0 ? others : first);
    }
    return model;
}

// The classes differ by factors that no single-precision table holds; none may be lost, whether the features
// are free or observed.
TEST(KBestTest, FindsWhatIsFarWorseThanTheBest)
{
    const DenormalsOff mode;
    for (int num_features : {30, 3000})
        for (int observed : {-1, 0}) {
            SCOPED_TRACE(num_features);
            const RandomModel model = StarOrChain(true, num_features + 1, 3, {0.5f, 0.3f, 0.2f},
                                                  {0.9f, 0.1f, 0.01f, 0.99f, 0.02f, 0.98f});
            const JunctionTree tree = TreeOf(model.graph);
            ModelFindings known{std::vector<int>(size_t(model.size()), observed),
                                std::vector<const float*>(size_t(model.size())),
                                {}};
            known.positive[0] = -1;
            const double best[2][3] = {{0.9, 0.99, 0.98}, {0.9, 0.01, 0.02}};
            const int order[2][3] = {{1, 2, 0}, {0, 2, 1}};
            const int ranked[] = {0};
            KBestSearch search(model.graph, tree, model.Source(), known, ranked);
            for (int c : order[observed + 1]) {
                const auto found = search.Next();
                ASSERT_TRUE(found);
                EXPECT_EQ(found->states[0], c);
                const double expected = std::log(double(model.tables[0][size_t(c)])) +
                                        num_features * std::log(best[observed + 1][c]);
                EXPECT_NEAR(found->log_value, expected, 1e-6 * std::abs(expected) + 1e-6);
            }
            EXPECT_FALSE(search.Next());
        }
}

// All configurations are equally good: each comes once, and takes no longer for the others.
TEST(KBestTest, ListsTiesOneByOne)
{
    const DenormalsOff mode;
    const RandomModel model = StarOrChain(false, 400, 2, {0.5f, 0.5f}, {0.5f, 0.5f, 0.5f, 0.5f});
    const JunctionTree tree = TreeOf(model.graph);
    const ModelFindings known{std::vector<int>(400, -1), std::vector<const float*>(400), {}};
    std::vector<int> all(400);
    std::iota(all.begin(), all.end(), 0);
    KBestSearch search(model.graph, tree, model.Source(), known, all);
    std::vector<std::vector<int>> seen;
    for (int k = 0; k < 20; ++k) {
        const auto found = search.Next();
        ASSERT_TRUE(found);
        EXPECT_NEAR(found->log_value, 400 * std::log(0.5), 1e-9);
        EXPECT_EQ(std::count(seen.begin(), seen.end(), found->states), 0);
        seen.push_back(found->states);
    }
}

}  // namespace
}  // namespace talora
