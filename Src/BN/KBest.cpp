#include "BN/KBest.h"

#include <algorithm>
#include <cmath>
#include <queue>

#include "BN/PotTable0.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// More than single precision can be wrong about the logarithm of a value.
constexpr double kMargin = 1e-3;

// The ranked variables before `depth` as in `best`, the one at `depth` in none of the excluded states.
struct Subproblem {
    double key = 0;    // the value of its best configuration, or not less than that
    int64_t turn = 0;  // when it was made, to order equal ones
    size_t depth = 0;
    std::vector<char> excluded;           // per state of that variable; empty at first
    std::vector<int> prefix;              // states of the ranked variables before depth
    std::shared_ptr<Configuration> best;  // null until it has been gone into

    bool operator<(const Subproblem& other) const
    {
        return key != other.key ? key < other.key : turn > other.turn;
    }
};

}  // namespace

struct KBestSearch::Engine {
    const ModelGraph* graph;
    TableSource table;
    const ModelFindings* findings;
    Propagation propagation;
    std::vector<int> ranked;  // not observed
    std::priority_queue<Subproblem> open;
    int64_t turns = 0;
    std::vector<float> belief, weights;
    std::vector<int> fixed;  // per variable the state in the propagation, or -1
    int masked = -1;         // variable with excluded states

    Engine(const ModelGraph& g, const JunctionTree& tree, TableSource source, const ModelFindings& known)
        : graph(&g),
          table(std::move(source)),
          findings(&known),
          propagation(g, tree, table),
          fixed(known.positive)
    {
        propagation.SetMaximise(true);
        for (int v = 0; v < int(g.variables.size()); ++v) {
            propagation.SetPositive(v, known.positive[size_t(v)]);
            propagation.SetLikelihood(v, known.likelihoods[size_t(v)]);
        }
    }

    int NumStates(int v) const { return std::max(1, graph->variables[size_t(v)].num_states); }

    void Fix(int v, int state)
    {
        fixed[size_t(v)] = state;
        propagation.SetPositive(v, state);
    }

    // Sets up a subproblem.
    void Enter(const Subproblem& problem)
    {
        if (masked >= 0) propagation.SetLikelihood(masked, findings->likelihoods[size_t(masked)]);
        masked = -1;
        for (size_t v = 0; v < fixed.size(); ++v)
            if (fixed[v] >= 0 && findings->positive[v] < 0) Fix(int(v), -1);
        for (size_t k = 0; k < problem.depth; ++k) Fix(ranked[k], problem.prefix[k]);
        if (problem.excluded.empty()) return;
        masked = ranked[problem.depth];
        const float* likelihood = findings->likelihoods[size_t(masked)];
        weights.resize(problem.excluded.size());
        for (size_t s = 0; s < weights.size(); ++s)
            weights[s] = problem.excluded[s] ? 0 : likelihood ? likelihood[s] : 1;
        propagation.SetLikelihood(masked, weights.data());
    }

    bool Update()
    {
        const UpdateStatus status = propagation.Update();
        CheckHalted(status);
        return status == UpdateStatus::kUpdated;
    }

    static void CheckHalted(UpdateStatus status)
    {
        if (status == UpdateStatus::kHalted)
            FailWith(ABORTED_CND, 6800, "the search for most probable configurations was halted");
    }

    // The first state of a variable in a best configuration; how many states are.
    int BestState(int v, int* count)
    {
        belief.resize(size_t(NumStates(v)));
        propagation.Belief(v, belief.data());
        int best = -1;
        *count = 0;
        for (int s = 0; s < NumStates(v); ++s) {
            if (belief[size_t(s)] < kCertainBelief) continue;
            if (best < 0) best = s;
            ++*count;
        }
        return best;
    }

    // The best configuration of a subproblem; false if it has none.  Ties are broken one variable at a
    // time, as they may depend on one another.
    bool GoInto(Subproblem& problem)
    {
        Enter(problem);
        auto found = std::make_shared<Configuration>();
        found->states = fixed;
        int v = 0;
        while (v < int(fixed.size())) {
            if (!Update()) return false;
            int tied = -1;
            for (; v < int(fixed.size()) && tied < 0; ++v) {
                if (fixed[size_t(v)] >= 0) continue;
                int count = 0;
                found->states[size_t(v)] = BestState(v, &count);
                if (count > 1) tied = v;
            }
            if (tied >= 0) Fix(tied, found->states[size_t(tied)]);
        }
        if (fixed.empty() && !Update()) return false;
        found->log_value = LogValue(found->states);
        problem.best = std::move(found);
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
        const Configuration& best = *problem.best;
        Subproblem outer = problem;
        outer.excluded.clear();
        Enter(outer);
        std::vector<int> prefix = problem.prefix;
        for (size_t depth = problem.depth; depth < ranked.size(); ++depth) {
            const int v = ranked[depth];
            Subproblem part;
            part.depth = depth;
            part.prefix = prefix;
            if (depth == problem.depth) part.excluded = problem.excluded;
            part.excluded.resize(size_t(NumStates(v)));
            part.excluded[size_t(best.states[size_t(v)])] = 1;
            const UpdateStatus status = propagation.UpdateFor(v);
            CheckHalted(status);
            if (status != UpdateStatus::kUpdated) return;
            belief.resize(size_t(NumStates(v)));
            propagation.Belief(v, belief.data());
            double most = 0;
            for (size_t s = 0; s < belief.size(); ++s)
                if (!part.excluded[s]) most = std::max(most, double(belief[s]));
            if (most > 0) {
                part.key = propagation.LogProbability() + std::log(most) + kMargin;
                part.turn = turns++;
                open.push(std::move(part));
            }
            Fix(v, best.states[size_t(v)]);
            prefix.push_back(best.states[size_t(v)]);
        }
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
            problem.key = problem.best->log_value;
            open.push(std::move(problem));
        }
        return std::nullopt;
    }
};

KBestSearch::KBestSearch(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                         const ModelFindings& findings, std::span<const int> ranked)
    : engine_(std::make_unique<Engine>(graph, tree, std::move(table), findings))
{
    for (int v = 0; ranked.empty() && v < int(graph.variables.size()); ++v)
        if (findings.positive[size_t(v)] < 0) engine_->ranked.push_back(v);
    for (int v : ranked)
        if (findings.positive[size_t(v)] < 0) engine_->ranked.push_back(v);
    engine_->open.push({});
}

KBestSearch::~KBestSearch() = default;

std::optional<Configuration> KBestSearch::Next()
{
    return engine_->Next();
}

}  // namespace talora
