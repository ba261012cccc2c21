// Elimination orders that are proven to be best, for graphs whose hard core is small.
//
// Variables whose neighbours are all joined are eliminated at once, which is safe.  What remains is searched
// by sets of eliminated variables: which of them went first does not matter for what is left, so each set is
// looked at once, with the least sum of cliques that leads to it.  Sets that cannot lead below the bound are
// dropped, by what they cost and by a lower bound of what remains.
//
// Ottosen & Vomlel (2012), All roads lead to Rome: new search methods for the optimal triangulation problem.
// Bodlaender, Koster & van den Eijkhof (2005), Preprocessing rules for triangulation of probabilistic
// networks.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "BN/Order/Graph_Triangulate.h"

namespace talora {

struct ExactSearchResult {
    bool is_complete = false;  // all orders were looked at, one way or another
    std::vector<int> order;    // the best one below the bound; none: there is none, or it is not complete
};

// @param bound       sum of clique sizes that an order must stay below
// @param max_states  sets to look at before giving up
// @param may_go_on   asked now and then
// Gives up at once where a variable has fewer than two states or the core is too large.
ExactSearchResult SearchExactOrder(const ModelGraph& graph, const Adjacency& moral_graph, double bound,
                                   size_t max_states, const std::function<bool()>& may_go_on);

}  // namespace talora
