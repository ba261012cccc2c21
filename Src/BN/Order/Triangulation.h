// What the elimination-order search, the junction tree and the net hand to one another: plain
// graphs over numbered variables, without a net.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BN/Model/TableSize.h"

namespace talora {

// The variables of a net that take part in inference, numbered in net order, and who is whose
// parent.  Constant, utility and documentation nodes are left out or flagged by the maker.
struct ModelGraph {
    struct Variable {
        int num_states = 0;
        bool is_decision = false;
        std::vector<int> parents;  // variable numbers, in the order of the node's parent list
        int name_rank = 0;         // place of the variable's name in byte order among all names
    };
    std::vector<Variable> variables;
    // Parents of each utility node: they are joined like the parents of any child.
    std::vector<std::vector<int>> utility_parents;
};

// Entries of a table over the given variables; 1 for none.
inline double TableSize(const ModelGraph& graph, std::span<const int> variables)
{
    double size = 1.0;
    for (int v : variables) size = MultiplySize(size, graph.variables[v].num_states);
    return size;
}

// An order with the candidate cliques it gives.
struct Triangulation {
    std::vector<int> order;              // variable numbers, first eliminated first
    std::vector<int> elimination_index;  // inverse of order
    // Maximal cliques in the order in which they were formed, members by ascending elimination
    // index.  A kept clique stands at the place of the last candidate it absorbs.
    std::vector<std::vector<int>> cliques;
    double cost = 0;  // as the search counts it
};

}  // namespace talora
