// Elimination orders: the moral graph, the greedy order, what an order costs, and the cliques that
// it makes.
//
// Eliminating a variable joins its remaining neighbours with each other and takes it out of the
// graph; the variable with those neighbours is its candidate clique.  Whatever the order, the
// candidates cover a triangulated graph, and the tables of a junction tree are as big as the
// candidates.  Everything here works on plain integer graphs and takes an order to hold every
// variable of the graph exactly once.
//
// Kjaerulff (1990), Triangulation of graphs: algorithms giving small total state space.
// Liu (1990), The role of elimination trees in sparse factorization.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "BN/Order/Triangulation.h"
#include "Basic/Progress.h"

namespace talora {

using Adjacency = std::vector<std::vector<int>>;  // by variable: neighbours in ascending order

// Joins each variable with its parents, and the parents of a common child (or of a common utility
// node) with each other.
Adjacency MoralGraph(const ModelGraph& graph);

// Groups of a decision net by variable, all 0 without decisions: group g is wholly eliminated
// before group g+1.  The decision that stands last in `nodes` gets group 1 and its parents group 2,
// the one before it 3 and 4, and so on; a parent of several keeps its last group.
std::vector<uint32_t> EliminationGroups(const ModelGraph& graph, const std::vector<int>& nodes);

struct GreedySearchResult {
    std::vector<int> order;
    // Sum of the candidates' table sizes; a candidate that lies within an earlier one counts 0 if
    // the search saw that.  After a halt: CostOfOrder.
    double cost = 0;
    int num_found = 0;           // chosen by the search; after a halt the rest follow in the given order
    bool halted = false;         // with num_found 0 and no order: halted before it began
    bool is_too_costly = false;  // and has no order
};

// Eliminates, group by group, the variable whose candidate clique has the smallest table, and at
// once one whose candidate makes no new clique; among equals the first in `nodes`.  With a progress
// meter, a search that is halted warns that its order will be poor, unless the call failed already.
//
// A search given a greatest cost ends as soon as it exceeds that: what will not be used need not be found.
//
// Costs are kept up to date rather than searched for: about O(f log n), f being the size of the
// triangulated graph.
GreedySearchResult FindGreedyOrder(const ModelGraph& graph, const std::vector<int>& nodes, Progress* progress,
                                   double most_cost = std::numeric_limits<double>::infinity());

// Sum over all variables of the table size of the variable with its remaining neighbours.
double CostOfOrder(const ModelGraph& graph, const std::vector<int>& order);

// Watches over cliques while they are formed, which a poor order may make far larger than its graph: looks at
// the halt flag every few milliseconds, and fails when it is set.
class CliqueWatch {
public:
    void Formed(size_t num_members);
    int64_t NumMembers() const { return num_members_; }

private:
    static constexpr int64_t kBetweenLooks = 1 << 16;
    int64_t num_members_ = 0, next_look_ = kBetweenLooks;
};
[[noreturn]] void FailCliquesHalted();

// The maximal cliques that an order gives, with its CostOfOrder.  Linear in the size of the
// triangulated graph.  Fails when it is halted, or when there is no memory for a tree of these cliques.
Triangulation Triangulate(const ModelGraph& graph, const std::vector<int>& order);

// Steps through an order without simulating fill-in: the remaining neighbours of a variable are its
// later neighbours in the moral graph and those of its children in the elimination tree, where the
// parent of a variable is the neighbour eliminated next.
class SymbolicElimination {
public:
    SymbolicElimination(const Adjacency& moral_graph, const std::vector<int>& order);

    // Eliminates the next variable of the order.  False: none is left.
    bool Step();

    int Variable() const { return variable_; }
    // The remaining neighbours of the variable just eliminated, by ascending elimination index.
    const std::vector<int>& Neighbours() const { return remaining_[variable_]; }
    // The variable whose candidate clique holds that of the variable just eliminated (the last such
    // child in the elimination tree), or -1 when that clique is new.
    int Container() const { return container_; }
    const std::vector<int>& EliminationIndex() const { return index_; }

private:
    const Adjacency& moral_graph_;
    const std::vector<int>& order_;
    std::vector<int> index_;
    Adjacency remaining_;  // kept from the step of a variable to the step of its tree parent
    std::vector<int> first_child_, next_sibling_;
    std::vector<int> stamp_;
    int step_ = -1;
    int variable_ = -1;
    int container_ = -1;
};

}  // namespace talora
