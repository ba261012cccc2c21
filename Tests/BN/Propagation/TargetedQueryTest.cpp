// Questions about a few variables against going through all configurations.
#include "BN/Propagation/TargetedQuery.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "Basic/FloatMode.h"
#include "Support/RandomModel.h"

namespace talora {
namespace {

void RandomFindings(const RandomModel& model, std::mt19937& random, Findings& findings)
{
    for (int v = 0; v < model.size(); ++v) {
        if (random() % 3 == 0) findings.positive[size_t(v)] = int(random() % unsigned(model.NumStates(v)));
        if (random() % 8 != 0) continue;
        for (int s = 0; s < model.NumStates(v); ++s)
            findings.likelihood[size_t(v)].push_back(float(random() % 4) / 2);
    }
}

ModelFindings AsModelFindings(const Findings& findings)
{
    ModelFindings result{findings.positive, {}, {}};
    for (const auto& likelihood : findings.likelihood)
        result.likelihoods.push_back(likelihood.empty() ? nullptr : likelihood.data());
    return result;
}

// States of findings change between questions, so that trees are used again; and tables change.
TEST(TargetedQueryTest, AgreesWithEnumeration)
{
    const DenormalsOff mode;
    std::mt19937 random(11);
    std::vector<float> belief(8);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        RandomModel model = MakeModel(random, 1 + int(random() % 8), 3, 3, trial % 2 == 0);
        TargetedQuery query(model.graph, model.Source());
        Findings findings(model.size());
        RandomFindings(model, random, findings);
        for (int round = 0; round < 6; ++round) {
            for (int v = 0; v < model.size(); ++v)
                if (findings.positive[size_t(v)] >= 0)
                    findings.positive[size_t(v)] = int(random() % unsigned(model.NumStates(v)));
            std::vector<int> targets;
            for (unsigned k = 0, count = 1 + random() % 2; k < count; ++k)
                targets.push_back(int(random() % unsigned(model.size())));
            const bool whole = random() % 2 == 0;
            const Enumeration truth = Enumerate(model, findings);
            ModelFindings known = AsModelFindings(findings);
            const UpdateStatus status = query.Ask(targets, known, whole);
            if (truth.total > 0) {
                ASSERT_EQ(status, UpdateStatus::kUpdated);
                if (whole) {
                    EXPECT_NEAR(query.LogProbability(), std::log(truth.total), 2e-6);
                }
                for (size_t t = 0; t < targets.size(); ++t) {
                    query.Belief(int(t), belief.data());
                    const auto& expected = truth.beliefs[size_t(targets[t])];
                    for (size_t s = 0; s < expected.size(); ++s)
                        ASSERT_NEAR(double(belief[s]), expected[s], 2e-6) << "target " << t;
                }
            } else if (whole) {
                ASSERT_EQ(status, UpdateStatus::kInconsistent);
            }
            const int changed = int(random() % unsigned(model.size()));
            FillTable(model, random, changed, false);
            query.TableChanged(changed);
        }
    }
}

// x0 -> x1 -> ... -> x9: a finding cuts off what is before it, and what comes after the target is barren.
TEST(TargetedQueryTest, LeavesOutWhatDoesNotMatter)
{
    ModelGraph chain;
    for (int v = 0; v < 10; ++v) chain.variables.push_back({2, false, {}, v});
    for (int v = 1; v < 10; ++v) chain.variables[size_t(v)].parents = {v - 1};
    struct Row {
        const char* what;
        int target, observed;
        bool whole;
        std::vector<int> kept;
    };
    const Row rows[] = {
        {"ancestors only", 3, -1, false, {0, 1, 2, 3}},
        {"from the finding on", 5, 2, false, {3, 4, 5}},
        {"back from a finding below", 1, 3, false, {0, 1, 2, 3}},
        {"the target itself is observed", 4, 4, false, {}},
        {"all that the finding depends on", 4, 4, true, {0, 1, 2, 3, 4}},
    };
    for (const Row& row : rows) {
        ModelFindings findings{std::vector<int>(10, -1), std::vector<const float*>(10, nullptr),
                               std::vector<char>(10)};
        if (row.observed >= 0) findings.positive[size_t(row.observed)] = 1;
        const RelevantPart part = FindRelevantPart(chain, std::span(&row.target, 1), findings, row.whole);
        EXPECT_EQ(part.original, row.kept) << row.what;
    }
}

}  // namespace
}  // namespace talora
