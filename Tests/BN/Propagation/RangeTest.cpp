// Findings that are possible stay possible, and beliefs exact, however improbable all of it is.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "BN/Propagation/PropagateBatch.h"
#include "BN/Propagation/TargetedQuery.h"
#include "Basic/FloatMode.h"
#include "Support/RandomModel.h"

namespace talora {

namespace {

// Some hidden variables, and observed ones that depend on them: all configurations of the hidden ones can be
// gone through with logarithms.
struct Case {
    RandomModel model;
    Findings findings{0};
    std::vector<int> hidden;

    int Add(int num_states, std::vector<int> parents, std::vector<float> table, bool is_hidden)
    {
        const int v = model.size();
        model.graph.variables.push_back({num_states, false, std::move(parents)});
        model.tables.push_back(std::move(table));
        findings.positive.push_back(-1);
        findings.likelihood.emplace_back();
        if (is_hidden) hidden.push_back(v);
        return v;
    }
    void AddObserved(std::vector<int> parents, std::vector<float> table, int state)
    {
        const int v = Add(2, std::move(parents), std::move(table), false);
        findings.positive[size_t(v)] = state;
    }
};

struct Expected {
    long double log_probability = 0, log_of_best = 0;
    std::vector<std::vector<long double>> beliefs;  // of the hidden
};

Expected Reckon(const Case& c)
{
    std::vector<int> state = c.findings.positive;
    for (int v : c.hidden) state[size_t(v)] = 0;
    std::vector<std::pair<std::vector<int>, long double>> logs;
    long double most = -INFINITY;
    for (bool more = true; more;) {
        long double log = 0;
        for (int v = 0; v < c.model.size(); ++v) {
            int64_t row = 0;
            for (int p : c.model.graph.variables[size_t(v)].parents)
                row = row * c.model.NumStates(p) + state[size_t(p)];
            log += std::log(static_cast<long double>(
                c.model.tables[size_t(v)][size_t(row * c.model.NumStates(v) + state[size_t(v)])]));
            if (!c.findings.likelihood[size_t(v)].empty())
                log += std::log(
                    static_cast<long double>(c.findings.likelihood[size_t(v)][size_t(state[size_t(v)])]));
        }
        logs.emplace_back(state, log);
        most = std::max(most, log);
        more = false;
        for (int v : c.hidden) {
            if ((more = ++state[size_t(v)] < c.model.NumStates(v))) break;
            state[size_t(v)] = 0;
        }
    }
    Expected expected;
    long double total = 0;
    for (int v : c.hidden) expected.beliefs.emplace_back(size_t(c.model.NumStates(v)));
    for (const auto& [states, log] : logs) {
        const long double part = std::exp(log - most);
        total += part;
        for (size_t h = 0; h < c.hidden.size(); ++h)
            expected.beliefs[h][size_t(states[size_t(c.hidden[h])])] += part;
    }
    for (std::vector<long double>& belief : expected.beliefs)
        for (long double& b : belief) b /= total;
    expected.log_probability = most + std::log(total);
    expected.log_of_best = most;
    return expected;
}

using ReadBelief = std::function<void(size_t hidden, float* belief)>;

void ExpectReckoned(const Case& c, const Expected& expected, double log_probability, const ReadBelief& read)
{
    const double log = double(expected.log_probability);
    EXPECT_NEAR(log_probability, log, 1e-5 * std::max(1.0, std::abs(log)));
    for (size_t h = 0; h < c.hidden.size(); ++h) {
        std::vector<float> belief(expected.beliefs[h].size());
        read(h, belief.data());
        for (size_t s = 0; s < belief.size(); ++s)
            EXPECT_NEAR(belief[s], double(expected.beliefs[h][s]), 1e-5) << "hidden " << h;
    }
}

// By all that propagates: large and small trees, one variable alone, the relevant part, sixteen at a time.
void ExpectRight(const Case& c)
{
    const DenormalsOff mode;
    const Expected expected = Reckon(c);
    const JunctionTree tree = TreeOf(c.model.graph);
    const auto enter = [&](Propagation& propagation) {
        for (int v = 0; v < c.model.size(); ++v) {
            propagation.SetPositive(v, c.findings.positive[size_t(v)]);
            const std::vector<float>& weights = c.findings.likelihood[size_t(v)];
            propagation.SetLikelihood(v, weights.empty() ? nullptr : weights.data());
        }
    };
    for (const double small_tree : {0.0, 1e6}) {
        SCOPED_TRACE(small_tree);
        Propagation propagation(c.model.graph, tree, c.model.Source(), small_tree);
        enter(propagation);
        ASSERT_EQ(propagation.Update(), UpdateStatus::kUpdated);
        ExpectReckoned(c, expected, propagation.LogProbability(),
                       [&](size_t h, float* belief) { propagation.Belief(c.hidden[h], belief); });
        ExpectReckoned(c, expected, propagation.LogProbability(), [&](size_t h, float* belief) {
            ASSERT_TRUE(propagation.JointBelief(std::span(&c.hidden[h], 1), belief));
        });
        Propagation one(c.model.graph, tree, c.model.Source(), small_tree);
        enter(one);
        ASSERT_EQ(one.UpdateFor(c.hidden[0]), UpdateStatus::kUpdated);
        EXPECT_NEAR(one.LogProbability(), propagation.LogProbability(),
                    1e-6 * std::abs(propagation.LogProbability()));
        one.SetMaximise(true);
        ASSERT_EQ(one.Update(), UpdateStatus::kUpdated);
        const double best = double(expected.log_of_best);
        EXPECT_NEAR(one.LogProbability(), best, 1e-5 * std::max(1.0, std::abs(best)));
    }
    ModelFindings known;
    known.positive = c.findings.positive;
    std::vector<CaseFindings::Weights> weights;
    for (int v = 0; v < c.model.size(); ++v) {
        const std::vector<float>& likelihood = c.findings.likelihood[size_t(v)];
        known.likelihoods.push_back(likelihood.empty() ? nullptr : likelihood.data());
        if (!likelihood.empty()) weights.push_back({v, likelihood.data()});
    }
    TargetedQuery query(c.model.graph, c.model.Source());
    ASSERT_EQ(query.Ask(c.hidden, known, true), UpdateStatus::kUpdated);
    ExpectReckoned(c, expected, query.LogProbability(),
                   [&](size_t h, float* belief) { query.Belief(int(h), belief); });
    if (!BatchPropagation::Suits(c.model.graph, tree)) return;
    BatchPropagation batch(c.model.graph, tree, c.model.Source(), {c.hidden, {}});
    const std::vector<int32_t> states(c.findings.positive.begin(), c.findings.positive.end());
    const CaseFindings one_case = {states.data(), weights};
    batch.Run(std::span(&one_case, 1));
    if (batch.IsWeak(0)) return;  // says itself that it cannot
    ExpectReckoned(c, expected, batch.LogProbability(0),
                   [&](size_t h, float* belief) { batch.Belief(0, c.hidden[h], belief); });
}

// Children of one cause, the first half for one state and the others for the other.
Case Naive(int children, float strong, float weak)
{
    Case c;
    const int cause = c.Add(2, {}, {0.3f, 0.7f}, true);
    for (int i = 0; i < children; ++i) {
        const bool first = i < children / 2;
        c.AddObserved({cause},
                      {first ? strong : weak, 1 - (first ? strong : weak), first ? weak : strong,
                       1 - (first ? weak : strong)},
                      0);
    }
    return c;
}

// Parents of one node, each with the same likelihood.
Case SoftParents(int count, float a, float b)
{
    Case c;
    std::vector<int> parents;
    for (int i = 0; i < count; ++i) parents.push_back(c.Add(2, {}, {0.5f, 0.5f}, true));
    for (int v : parents) c.findings.likelihood[size_t(v)] = {a, b};
    c.Add(2, parents, std::vector<float>(size_t{2} << count, 0.5f), true);
    return c;
}

Case ChainOfTosses(int heads, int tails)
{
    Case c;
    int bias = c.Add(2, {}, {0.5f, 0.5f}, true);
    for (int i = 0; i < heads + tails; ++i) {
        c.AddObserved({bias}, {0.9f, 0.1f, 0.1f, 0.9f}, i >= heads);
    }
    return c;
}

TEST(Range, StrongFindingsAgainstEachOther)
{
    const struct {
        const char* label;
        Case c;
    } cases[] = {
        {"thousand to one, 15 each way", Naive(30, 0.999f, 0.001f)},
        {"four hundred children", Naive(400, 0.9f, 0.01f)},
        {"a thousand children at 1e-30", Naive(1000, 0.5f, 1e-30f)},
        {"likelihoods at ten parents", SoftParents(10, 1e-4f, 5e-5f)},
        {"stronger ones at six", SoftParents(6, 1e-6f, 5e-7f)},
        {"beyond the range of one float at three", SoftParents(3, 1e-38f, 3e38f)},
        {"four at 1e-10", SoftParents(4, 1e-10f, 2e-10f)},
        {"tosses", ChainOfTosses(42, 62)},
        {"many tosses", ChainOfTosses(700, 702)},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        ExpectRight(row.c);
    }
}

// Entries from 1e-37 to 1, hundreds of observed variables and likelihoods.
TEST(Range, RandomExtremes)
{
    std::mt19937 random(11);
    const auto entry = [&] {
        return random() % 3 == 0 ? 0.5f : std::pow(10.0f, -float(random() % 370) / 10);
    };
    const auto row = [&](int n) {
        std::vector<float> probs(static_cast<size_t>(n));
        for (float& p : probs) p = random() % 9 == 0 ? 0 : entry();
        probs[random() % unsigned(n)] = 1;
        return probs;
    };
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        Case c;
        const auto add = [&](int num_states, bool is_hidden) {
            std::vector<int> parents;
            int64_t rows = 1;
            for (int h : c.hidden)
                if (random() % unsigned(1 + c.hidden.size() / 2) == 0 && parents.size() < 3) {
                    parents.push_back(h);
                    rows *= c.model.NumStates(h);
                }
            std::vector<float> table;
            for (int64_t r = 0; r < rows; ++r)
                for (float p : row(num_states)) table.push_back(is_hidden || p > 0 ? p : entry());
            return c.Add(num_states, parents, table, is_hidden);
        };
        for (int h = 0; h < 6; ++h) add(2 + int(random() % 2), true);
        for (const int h : c.hidden)
            if (random() % 2 == 0) {
                std::vector<float>& weights = c.findings.likelihood[size_t(h)];
                for (int s = 0; s < c.model.NumStates(h); ++s) weights.push_back(entry() * 1e10f);
            }
        const int observed = round % 4 == 0 ? 300 : int(random() % 12);
        for (int i = 0; i < observed; ++i) {
            const int v = add(2, false);
            c.findings.positive[size_t(v)] = int(random() % 2);
        }
        ExpectRight(c);
        if (HasFailure()) return;
    }
}

}  // namespace

}  // namespace talora
