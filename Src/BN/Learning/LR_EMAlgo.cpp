// Expectation-maximisation: expected counts under the tables, then tables from the counts.
#include "BN/Learning/LR_EMAlgo.h"

#include <algorithm>
#include <cfloat>
#include <numeric>

#include "BN/Learning/LearnData.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// The tables that expected counts give; what was before stays where there are none.  A probability never
// becomes too small for single precision, since no case may turn impossible.
TableSet TablesFromExpected(const LearnData& data, const TableSet& before, const std::vector<Counts>& counts)
{
    TableSet tables = before;
    for (size_t f = 0; f < tables.size(); ++f) {
        const LearnedFamily& family = data.Families()[f];
        for (int64_t row = 0; row < family.num_rows; ++row) {
            const double* const from = counts[f].data() + row * family.num_states;
            float* const to = tables[f].data() + row * family.num_states;
            const double sum = std::accumulate(from, from + family.num_states, 0.0);
            if (!(sum > 0)) continue;
            for (int s = 0; s < family.num_states; ++s)
                to[s] = from[s] > 0 ? std::max(float(from[s] / sum), FLT_MIN) : 0;
        }
    }
    return tables;
}

void AddPrior(std::vector<Counts>& counts, const std::vector<Counts>& prior)
{
    for (size_t f = 0; f < counts.size(); ++f)
        for (size_t at = 0; at < counts[f].size(); ++at) counts[f][at] += prior[f][at];
}

}  // namespace

void LearnByExpectation(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree)
{
    if (nodes.empty()) return;
    LearnData data(*nodes[0]->net, nodes, cases, degree);
    learner.num_cases = data.NumCases();
    TableSet tables = data.StartTables(learner.random_gen);
    const std::vector<Counts> prior = data.PriorCounts();
    std::vector<Counts> expected, used;  // counts under the tables, and those that the tables were made from
    Progress progress("doing EM learning");
    PrintIterationHeader("\nDoing EM Learning, hold down <ctrl> + <mouse button> to stop ...\n");

    const auto fraction = [&](int iteration) { return double(iteration) / std::max(1, learner.max_iters); };
    LearnIteration known;
    bool goes_on = data.Evaluate(tables, &expected, &known.minus_log_likelihood, progress, 0);
    if (goes_on) learner.history.push_back(known);
    for (int i = 0; goes_on && i < learner.max_iters; ++i) {
        // 1. Report; stop when little changes.
        PrintIteration(i, known);
        if (!IsUndef(known.change) && known.change < learner.tolerance) break;
        if (!progress.Step(fraction(i))) {
            goes_on = false;
            break;
        }
        // 2. New tables, and what they make of the cases.
        AddPrior(expected, prior);
        TableSet next = TablesFromExpected(data, tables, expected);
        std::vector<Counts> next_expected;
        const double before = known.minus_log_likelihood;
        goes_on = data.Evaluate(next, &next_expected, &known.minus_log_likelihood, progress, fraction(i));
        if (!goes_on) break;
        // 3. They take the place of the old ones.
        known.change = RelativeChange(before, known.minus_log_likelihood);
        learner.history.push_back(known);
        tables = std::move(next);
        used = std::move(expected);
        expected = std::move(next_expected);
    }
    if (!goes_on) Notice<6593>();
    if (!used.empty()) StoreLearned(data, std::move(tables), used);
}

}  // namespace talora
