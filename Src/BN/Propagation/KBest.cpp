// Most probable configurations, best first: subproblems in order, each divided when its turn comes.
#include "BN/Propagation/KBest.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>
#include <utility>

#include "BN/Propagation/PotTable0.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// A state whose best configuration is this much worse than the best of all may have come out as 0, since
// products below 1.2e-38 do.  (Belief.)
constexpr float kWeakBelief = 1e-18f;

// Sums of the same logarithms differ by less, whatever their order.
constexpr double kSameLog = 1e-9;

// The ranked variables before `depth` as in `origin`, and the one at `depth` in one given state or in none of
// the excluded states.
struct Subproblem {
    double key = 0;    // log value of its best configuration, or not less than that
    int64_t turn = 0;  // when it was made, to order equal ones
    size_t depth = 0;
    int state = -1;                               // of the variable at depth; -1: see excluded
    std::vector<char> excluded;                   // per state of that variable; empty: none
    std::shared_ptr<const Configuration> origin;  // null where depth is 0
    std::shared_ptr<const Configuration> best;    // null until it has been gone into

    bool operator<(const Subproblem& other) const
    {
        if (key != other.key) return key < other.key;
        return bool(best) != bool(other.best) ? bool(other.best) : turn > other.turn;
    }
};

}  // namespace

struct KBestSearch::Search {
    const ModelGraph* graph;
    TableSource table;
    const ModelFindings* findings;
    Propagation propagation;
    double margin;            // more than single precision can be wrong about the log of a value
    std::vector<int> tour;    // all variables, neighbours in the tree close together
    std::vector<int> ranked;  // not observed, in the order of the tour
    std::priority_queue<Subproblem> open;
    int64_t turns = 0;
    std::vector<float> belief, weights;
    std::vector<int> fixed;  // per variable the state in the propagation, or -1
    int masked = -1;         // variable with excluded states

    // Fixed variables leave the tables also of small trees: with zeros in their place, messages in which all
    // other states are far better would come out as 0.
    Search(const ModelGraph& g, const JunctionTree& tree, TableSource source, const ModelFindings& known,
           std::span<const int> asked)
        : graph(&g),
          table(std::move(source)),
          findings(&known),
          propagation(g, tree, table, 0),
          margin(std::max(1e-3, 4e-7 * double(g.variables.size()))),
          tour(TourOf(tree, g.variables.size())),
          fixed(known.positive)
    {
        propagation.SetMaximise(true);
        std::vector<char> is_asked(fixed.size());
        for (int v : asked) is_asked[size_t(v)] = 1;
        for (int v : tour)
            if (is_asked[size_t(v)] && fixed[size_t(v)] < 0) ranked.push_back(v);
        open.push({std::numeric_limits<double>::infinity(), 0, 0, -1, {}, nullptr, nullptr});
        for (int v = 0; v < int(g.variables.size()); ++v) {
            propagation.SetPositive(v, known.positive[size_t(v)]);
            propagation.SetLikelihood(v, known.likelihoods[size_t(v)]);
        }
    }

    // Depth first, so that fixing one variable after another in this order changes few messages each time.
    static std::vector<int> TourOf(const JunctionTree& tree, size_t num_variables)
    {
        std::vector<int> tour, cliques;
        std::vector<char> is_met(num_variables);
        if (tree.num_cliques() > 0) cliques.push_back(0);
        while (!cliques.empty()) {
            const int clique = cliques.back();
            cliques.pop_back();
            for (int v : tree.members[clique])
                if (!std::exchange(is_met[size_t(v)], char(1))) tour.push_back(v);
            const std::span<const int> children = tree.children[clique];
            cliques.insert(cliques.end(), children.rbegin(), children.rend());
        }
        return tour;
    }

    int NumStates(int v) const { return std::max(1, graph->variables[size_t(v)].num_states); }

    void Fix(int v, int state)
    {
        fixed[size_t(v)] = state;
        propagation.SetPositive(v, state);
    }

    // Sets up a subproblem, or with `with_excluded` false the larger one that has the excluded states too.
    void Enter(const Subproblem& problem, bool with_excluded = true)
    {
        if (masked >= 0) propagation.SetLikelihood(masked, findings->likelihoods[size_t(masked)]);
        masked = -1;
        for (size_t v = 0; v < fixed.size(); ++v)
            if (fixed[v] >= 0 && findings->positive[v] < 0) Fix(int(v), -1);
        for (size_t k = 0; k < problem.depth; ++k) Fix(ranked[k], problem.origin->states[size_t(ranked[k])]);
        if (problem.state >= 0) Fix(ranked[problem.depth], problem.state);
        if (!with_excluded || problem.excluded.empty()) return;
        masked = ranked[problem.depth];
        const float* likelihood = findings->likelihoods[size_t(masked)];
        weights.resize(problem.excluded.size());
        for (size_t s = 0; s < weights.size(); ++s)
            weights[s] = problem.excluded[s] ? 0 : likelihood ? likelihood[s] : 1;
        propagation.SetLikelihood(masked, weights.data());
    }

    static bool IsDone(UpdateStatus status)
    {
        if (status == UpdateStatus::kHalted) FailWith<6800>(ABORTED_CND);
        return status == UpdateStatus::kUpdated;
    }

    const std::vector<float>& BeliefOf(int v)
    {
        belief.resize(size_t(NumStates(v)));
        propagation.Belief(v, belief.data());
        return belief;
    }

    // The first state of a variable in a best configuration; whether another is as good.
    int BestState(int v, bool* is_tied)
    {
        const auto is_best = [](float b) { return b >= kCertainBelief; };
        const std::vector<float>& b = BeliefOf(v);
        const auto first = std::find_if(b.begin(), b.end(), is_best);
        *is_tied = first == b.end() || std::find_if(first + 1, b.end(), is_best) != b.end();
        return first == b.end() ? 0 : int(first - b.begin());  // none only where all have underflowed
    }

    // The best configuration of a subproblem; false if it has none.
    bool GoInto(Subproblem& problem)
    {
        Enter(problem);
        if (!IsDone(propagation.Update())) return false;
        auto found = std::make_shared<Configuration>();
        found->states = fixed;
        bool has_ties = false;
        for (int v : tour) {
            if (fixed[size_t(v)] >= 0) continue;
            bool is_tied = false;
            found->states[size_t(v)] = BestState(v, &is_tied);
            has_ties |= is_tied;
        }
        found->log_value = LogValue(found->states);
        // States chosen one by one need not fit together where there are ties, or where rounding hid one.
        if (has_ties || !(std::abs(found->log_value - propagation.LogProbability()) < margin)) {
            if (!FixAll()) return false;
            found->states = fixed;
            found->log_value = LogValue(found->states);
        }
        problem.best = std::move(found);
        return true;
    }

    // Fixes each variable in its best state, given those before it.
    bool FixAll()
    {
        for (int v : tour) {
            if (fixed[size_t(v)] >= 0) continue;
            if (!IsDone(propagation.UpdateFor(v))) return false;
            bool is_tied = false;
            Fix(v, BestState(v, &is_tied));
        }
        return true;
    }

    double LogValue(const std::vector<int>& states) const
    {
        double log_value = 0;
        std::vector<float> probs;
        for (int v = 0; v < int(states.size()); ++v) {
            const ModelGraph::Variable& variable = graph->variables[size_t(v)];
            const int n = NumStates(v);
            int64_t row = 0;
            for (int parent : variable.parents) row = row * NumStates(parent) + states[size_t(parent)];
            const float* entries = table(v);
            probs.resize(size_t(n));
            ReadRow(entries == nullptr ? nullptr : entries + row * n, n, probs.data());
            double value = double(probs[size_t(states[size_t(v)])]);
            if (const float* likelihood = findings->likelihoods[size_t(v)])
                value *= double(likelihood[states[size_t(v)]]);
            log_value += std::log(value);
        }
        return log_value;
    }

    // All configurations of the subproblem but its best one.
    void Divide(const Subproblem& problem)
    {
        Enter(problem, false);
        for (size_t depth = problem.depth + (problem.state >= 0); depth < ranked.size(); ++depth) {
            const int v = ranked[depth], best = problem.best->states[size_t(v)];
            if (!IsDone(propagation.UpdateFor(v))) return;
            std::vector<char> excluded(size_t(NumStates(v)));
            if (depth == problem.depth && !problem.excluded.empty()) excluded = problem.excluded;
            excluded[size_t(best)] = 1;
            Open(problem.best, depth, std::move(excluded));
            Fix(v, best);
        }
    }

    // Subproblems for the states of the variable at depth that are not excluded: a weak state has one of its
    // own, where it is fixed and so cannot come out as 0 beside better ones.
    void Open(const std::shared_ptr<const Configuration>& origin, size_t depth, std::vector<char> excluded)
    {
        const std::vector<float>& b = BeliefOf(ranked[depth]);
        // Nothing that is left is better than what it is left from.
        const auto bound = [&](float belief_of_best) {
            const double log_value = propagation.LogProbability() + std::log(double(belief_of_best)) + margin;
            return std::min(log_value, origin->log_value);
        };
        float most = 0;
        for (size_t s = 0; s < b.size(); ++s) {
            if (excluded[s]) continue;
            most = std::max(most, b[s]);
            if (b[s] >= kWeakBelief) continue;
            open.push({bound(kWeakBelief), turns++, depth, int(s), {}, origin, nullptr});
            excluded[s] = 1;
        }
        if (most >= kWeakBelief)
            open.push({bound(most), turns++, depth, -1, std::move(excluded), origin, nullptr});
    }

    std::optional<Configuration> Next()
    {
        while (!open.empty()) {
            Subproblem problem = open.top();
            open.pop();
            if (problem.best) {
                Divide(problem);
                return *problem.best;
            }
            if (!GoInto(problem)) continue;
            // As good as it can be: then it comes before all that have not been gone into, however many.
            if (problem.best->log_value < problem.key - kSameLog) problem.key = problem.best->log_value;
            open.push(std::move(problem));
        }
        return std::nullopt;
    }
};

KBestSearch::KBestSearch(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                         const ModelFindings& findings, std::span<const int> ranked)
    : search_(std::make_unique<Search>(graph, tree, std::move(table), findings, ranked))
{}

KBestSearch::~KBestSearch() = default;

std::optional<Configuration> KBestSearch::Next()
{
    return search_->Next();
}

}  // namespace talora
