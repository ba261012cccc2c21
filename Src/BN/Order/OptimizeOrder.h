// Optimising search for an elimination order: minimises the sum of the table sizes of the maximal
// cliques (separators are not counted).
//
// An anytime search that keeps the best order found, starting from a stored order or the greedy
// one.  Two kinds of trial take turns, in shares of counted work so that the course depends on the
// seed alone: whole greedy eliminations with various scores, blurred and with random ties; and
// pieces of the elimination tree done anew.  Eliminating a set of variables leaves the same graph
// in whatever order it is done, so a connected piece of the tree can be rearranged on its own, at
// the cost of the piece and with an exact account of the gain.  Where the core of the graph is small, an
// exact search (OptimizeOrderExact.h) finds the best order or proves that there is no better one, and all
// ends.
//
// Kjaerulff (1990), Triangulation of graphs: algorithms giving small total state space.
// Tarjan & Yannakakis (1984), Simple linear-time algorithms to test chordality of graphs.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "BN/Order/Triangulation.h"
#include "Basic/Progress.h"

namespace talora {

// The search ends at the first limit reached; 0 means no such limit.  Time counts from the end of
// the first trial.
struct OptimizeLimits {
    double seconds = 10;
    uint64_t trials = 0;
    uint64_t seed = 1;
};

struct OptimizeResult {
    std::vector<int> order;
    double total_size = 0;  // of its maximal cliques
    double first_size = 0;  // of the first trial's; total_size is never more
    uint64_t num_trials = 0;
    bool is_proven = false;  // there is nothing better
    bool halted = false;     // with no order: halted before it began
};

// Told the new total size whenever a better order is found.
using ImprovementHandler = std::function<void(double total_size)>;

// For nets without decisions.  The same seed and number of trials give the same order.
OptimizeResult FindOptimizedOrder(const ModelGraph& graph, const std::vector<int>* stored_order,
                                  const OptimizeLimits& limits, Progress* progress,
                                  const ImprovementHandler& on_improvement = nullptr);

}  // namespace talora
