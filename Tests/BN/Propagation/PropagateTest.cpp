#include "BN/Propagation/Propagate.h"

#include <gtest/gtest.h>

#include "Basic/FloatMode.h"
#include "Support/RandomModel.h"

namespace talora {

namespace {

void EnterAll(Propagation& propagation, const Findings& findings)
{
    for (size_t v = 0; v < findings.positive.size(); ++v) {
        propagation.SetPositive(int(v), findings.positive[v]);
        propagation.SetLikelihood(int(v),
                                  findings.likelihood[v].empty() ? nullptr : findings.likelihood[v].data());
    }
}

// Changes what is known of one variable: a state, ruled-out states, weights, or
// nothing.
void ChangeFinding(const RandomModel& model, std::mt19937& random, int v, Findings& findings)
{
    findings.positive[size_t(v)] = -1;
    findings.likelihood[size_t(v)].clear();
    const int n = model.NumStates(v), kind = int(random() % 5);
    if (kind <= 1) findings.positive[size_t(v)] = int(random() % unsigned(n));
    if (kind < 1 || kind > 3) return;
    for (int s = 0; s < n; ++s)
        findings.likelihood[size_t(v)].push_back(kind == 2 ? float(random() % 2)
                                                           : float(random() % 100) / 64);
}

Findings RandomFindings(const RandomModel& model, std::mt19937& random)
{
    Findings findings(model.size());
    for (int v = 0; v < model.size(); ++v)
        if (random() % 3 == 0) ChangeFinding(model, random, v, findings);
    return findings;
}

// Observed variables leave their tables, or stay in them.
double SmallTree(int round)
{
    return round % 2 == 0 ? 0 : 1e6;
}

void ExpectBelief(const Propagation& propagation, int v, const std::vector<double>& expected)
{
    std::vector<float> belief(expected.size());
    propagation.Belief(v, belief.data());
    for (size_t s = 0; s < expected.size(); ++s)
        EXPECT_NEAR(belief[s], expected[s], 1e-5) << "variable " << v;
}

void ExpectEnumerated(const RandomModel& model, const Findings& findings, Propagation& propagation)
{
    const Enumeration expected = Enumerate(model, findings);
    const UpdateStatus status = propagation.Update();
    if (expected.total == 0) {
        EXPECT_EQ(status, UpdateStatus::kInconsistent);
        EXPECT_EQ(propagation.Probability(), 0);
        return;
    }
    ASSERT_EQ(status, UpdateStatus::kUpdated);
    const double log_total = std::log(expected.total);
    EXPECT_NEAR(propagation.LogProbability(), log_total, 1e-5 * std::max(1.0, std::fabs(log_total)));
    for (int v = 0; v < model.size(); ++v) ExpectBelief(propagation, v, expected.beliefs[size_t(v)]);
}

std::vector<float> AllBeliefs(const RandomModel& model, const Propagation& propagation)
{
    std::vector<float> all;
    for (int v = 0; v < model.size(); ++v) {
        all.resize(all.size() + size_t(model.NumStates(v)));
        propagation.Belief(v, all.data() + all.size() - model.NumStates(v));
    }
    return all;
}

TEST(Propagate, RandomNetsMatchEnumeration)
{
    std::mt19937 random(1);
    for (int round = 0; round < 1500; ++round) {
        SCOPED_TRACE(round);
        const RandomModel model =
            MakeModel(random, 1 + int(random() % 7), 1 + int(random() % 5), 3, round % 3 == 0);
        const JunctionTree tree = TreeOf(model.graph, round % 5 == 0);
        Propagation propagation(model.graph, tree, model.Source(), SmallTree(round));
        ExpectEnumerated(model, Findings(model.size()), propagation);
        const Findings findings = RandomFindings(model, random);
        EnterAll(propagation, findings);
        ExpectEnumerated(model, findings, propagation);
        if (HasFailure()) return;
    }
}

// Whatever was entered and taken back before, results have the bits of a fresh
// start; so has an update for one variable only.
TEST(Propagate, HistoryLeavesNoTrace)
{
    std::mt19937 random(2);
    for (int net = 0; net < 60; ++net) {
        RandomModel model = MakeModel(random, 2 + int(random() % 40), 4, 3, net % 4 == 0);
        const JunctionTree tree = TreeOf(model.graph);
        Propagation used(model.graph, tree, model.Source(), SmallTree(net));
        Findings findings(model.size());
        for (int step = 0; step < 25; ++step) {
            SCOPED_TRACE(testing::Message() << "net " << net << " step " << step);
            const int v = int(random() % unsigned(model.size()));
            if (step % 6 == 5) {
                FillTable(model, random, v, false);
                used.TableChanged(v);
            } else {
                ChangeFinding(model, random, v, findings);
            }
            EnterAll(used, findings);
            Propagation fresh(model.graph, tree, model.Source(), SmallTree(net));
            EnterAll(fresh, findings);
            const UpdateStatus status = fresh.Update();
            const int asked = int(random() % unsigned(model.size()));
            EXPECT_EQ(used.UpdateFor(asked), status);
            if (status == UpdateStatus::kUpdated) {
                std::vector<float> a(size_t(model.NumStates(asked))), b(a);
                used.Belief(asked, a.data());
                fresh.Belief(asked, b.data());
                EXPECT_EQ(a, b);
                EXPECT_NEAR(used.LogProbability(), fresh.LogProbability(), 1e-5);
            }
            if (step % 3 != 0) continue;
            ASSERT_EQ(used.Update(), status);
            EXPECT_EQ(used.LogProbability(), fresh.LogProbability());
            if (status == UpdateStatus::kUpdated) {
                EXPECT_EQ(AllBeliefs(model, used), AllBeliefs(model, fresh));
            }
            if (HasFailure()) return;
        }
    }
}

// Cliques of many blocks: all shapes of factors and outputs, sums in doubles.
TEST(Propagate, LargeCliquesMatchEnumeration)
{
    struct Row {
        const char* label;
        int size, states, parents;
    };
    for (const Row& row :
         {Row{"binary", 17, 2, 9}, Row{"ternary", 10, 3, 6}, Row{"wide", 6, 9, 5}, Row{"mixed", 8, 6, 4}}) {
        SCOPED_TRACE(row.label);
        for (unsigned seed = 0; seed < 6; ++seed) {
            std::mt19937 random(seed);
            const RandomModel model = MakeModel(random, row.size, row.states, row.parents, false);
            const JunctionTree tree = TreeOf(model.graph);
            Propagation propagation(model.graph, tree, model.Source());
            Findings findings(model.size());
            ChangeFinding(model, random, int(random() % unsigned(row.size)), findings);
            EnterAll(propagation, findings);
            ExpectEnumerated(model, findings, propagation);
        }
    }
}

// One belief of a tree that was never updated: large messages that nobody needs are not there yet.
TEST(Propagate, OneBeliefFirst)
{
    constexpr int kCauses = 13, kEffects = 6;
    std::mt19937 random(3);
    RandomModel model;
    model.graph.variables.resize(kCauses + kEffects);
    model.tables.resize(kCauses + kEffects);
    for (int v = 0; v < model.size(); ++v) {
        model.graph.variables[size_t(v)].num_states = 2;
        for (int parent = 0; parent < std::min(v, kCauses); ++parent)
            if (v < kCauses || parent % kEffects != v - kCauses)
                model.graph.variables[size_t(v)].parents.push_back(parent);
        FillTable(model, random, v, false);
    }
    const JunctionTree tree = TreeOf(model.graph);
    Propagation whole(model.graph, tree, model.Source(), 0);
    ASSERT_EQ(whole.Update(), UpdateStatus::kUpdated);
    for (int v = 0; v < model.size(); ++v) {
        SCOPED_TRACE(v);
        Propagation one(model.graph, tree, model.Source(), 0);
        ASSERT_EQ(one.UpdateFor(v), UpdateStatus::kUpdated);
        std::vector<float> a(2), b(2);
        whole.Belief(v, a.data());
        one.Belief(v, b.data());
        EXPECT_EQ(a, b);
    }
}

// A chain of copies with noise, long enough for any recursion or underflow to
// show.
TEST(Propagate, LongChain)
{
    constexpr int kLength = 100000;
    RandomModel model;
    model.graph.variables.resize(kLength);
    model.tables.resize(kLength);
    for (int v = 0; v < kLength; ++v) {
        model.graph.variables[size_t(v)].num_states = 2;
        if (v > 0) model.graph.variables[size_t(v)].parents = {v - 1};
        model.tables[size_t(v)] =
            v > 0 ? std::vector<float>{0.75f, 0.25f, 0.25f, 0.75f} : std::vector<float>{0.5f, 0.5f};
    }
    const JunctionTree tree = TreeOf(model.graph);
    EXPECT_EQ(tree.num_cliques(), kLength - 1);
    Propagation propagation(model.graph, tree, model.Source());
    for (int v = 0; v < kLength; v += 2) propagation.SetPositive(v, 0);
    ASSERT_EQ(propagation.Update(), UpdateStatus::kUpdated);
    // Two steps of noise lead from 0 to 0 with 10/16.
    EXPECT_NEAR(propagation.LogProbability(), std::log(0.5) + (kLength / 2 - 1) * std::log(0.625), 0.01);
    ExpectBelief(propagation, 50001, {0.9, 0.1});
    const int64_t before = propagation.counters().messages;
    propagation.SetPositive(50000, 1);
    ASSERT_EQ(propagation.Update(), UpdateStatus::kUpdated);
    ExpectBelief(propagation, 50001, {0.5, 0.5});
    // The findings on both sides shield the rest of the chain.
    EXPECT_LT(propagation.counters().messages - before, 20);
}

// Hundreds of opposite findings on one cause: products far below the range of
// floats.
TEST(Propagate, OppositeFindingsDoNotUnderflow)
{
    constexpr int kEffects = 200;
    RandomModel model;
    model.graph.variables.resize(kEffects + 1);
    model.tables.resize(kEffects + 1);
    for (int v = 0; v <= kEffects; ++v) {
        model.graph.variables[size_t(v)].num_states = 2;
        if (v > 0) model.graph.variables[size_t(v)].parents = {0};
        model.tables[size_t(v)] =
            v > 0 ? std::vector<float>{0.9375f, 0.0625f, 0.0625f, 0.9375f} : std::vector<float>{0.25f, 0.75f};
    }
    const JunctionTree tree = TreeOf(model.graph);
    Propagation propagation(model.graph, tree, model.Source());
    for (int v = 1; v <= kEffects; ++v) propagation.SetPositive(v, v % 2);
    ASSERT_EQ(propagation.Update(), UpdateStatus::kUpdated);
    ExpectBelief(propagation, 0, {0.25, 0.75});
    EXPECT_NEAR(propagation.LogProbability(), kEffects / 2 * std::log(0.9375 * 0.0625), 1e-3);
}

TEST(Propagate, JointBeliefIsThatOfTheConfigurations)
{
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        const RandomModel model = MakeModel(random, 5, 4, 2, false);
        const JunctionTree tree = TreeOf(model.graph);
        Propagation propagation(model.graph, tree, model.Source());
        const Findings findings = RandomFindings(model, random);
        EnterAll(propagation, findings);
        if (propagation.Update() != UpdateStatus::kUpdated) continue;
        const int v = int(random() % 5);
        std::vector<int> family = model.graph.variables[size_t(v)].parents;
        family.push_back(v);
        int64_t count = 1;
        for (int f : family) count *= model.NumStates(f);
        std::vector<float> joint(static_cast<size_t>(count));
        ASSERT_TRUE(propagation.JointBelief(family, joint.data()));
        // Each entry is the probability of the findings together with that
        // configuration.
        const double total = Enumerate(model, findings).total;
        for (int64_t i = 0; i < count; ++i) {
            Findings fixed = findings;
            int64_t rest = i;
            bool agrees = true;
            for (size_t k = family.size(); k-- > 0; rest /= model.NumStates(family[k + 0])) {
                int& state = fixed.positive[size_t(family[k])];
                const int s = int(rest % model.NumStates(family[k]));
                agrees &= state < 0 || state == s;
                state = s;
            }
            EXPECT_NEAR(joint[size_t(i)], agrees ? Enumerate(model, fixed).total / total : 0, 1e-5);
        }
    }
}

}  // namespace

}  // namespace talora
