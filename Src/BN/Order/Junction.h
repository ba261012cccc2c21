// Junction tree: the cliques of a triangulated graph, joined so that every variable is found in a
// connected part of the tree.
//
// Cliques are listed so that each comes after the one it is joined to (its mate); clique 0 is the
// root.  Members stand in elimination order, so the separator towards the mate is normally the
// tail of the clique.  Parts of the graph that are not connected are joined through empty
// separators, whose size is 1.
//
// The tree holds numbers only and never changes once built; what propagates over it keeps its own
// tables.  All lists are stored end to end, so a tree of a million cliques costs a few allocations.
//
// Jensen & Jensen (1994), Optimal junction trees.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BN/Order/Triangulation.h"

namespace talora {

// Many short lists in two arrays.
struct NumberLists {
    std::vector<int64_t> start = {0};  // list i is items[start[i] .. start[i + 1])
    std::vector<int> items;

    int size() const { return int(start.size()) - 1; }
    std::span<const int> operator[](int i) const
    {
        return {items.data() + start[i], size_t(start[i + 1] - start[i])};
    }
    void EndList() { start.push_back(int64_t(items.size())); }
};

struct JunctionTree {
    NumberLists members;                  // per clique: its variables, ascending elimination index
    NumberLists separators;               // per clique: the members it shares with its mate, same order
    std::vector<int> mate;                // per clique: the earlier clique it is joined to, -1 for the root
    NumberLists children;                 // per clique: the cliques whose mate it is, ascending
    std::vector<double> clique_sizes;     // table entries without findings, saturating
    std::vector<double> separator_sizes;  // of the separator towards the mate; 0 for the root

    std::vector<int> home;          // per variable: clique that takes its table, -1 for decisions
    NumberLists homed;              // per clique: the variables whose home it is, in member order
    std::vector<int> utility_home;  // per utility node (of ModelGraph::utility_parents)

    double total_size = 0;  // cliques plus separators, without findings

    int num_cliques() const { return int(mate.size()); }
};

// Joins the cliques of a triangulation, the clique formed last first.  With decisions (the net has
// a decision or utility node) a clique joins the earliest clique that holds what it shares with
// those before it, otherwise the nearest preceding one.  Near linear in the sum of clique lengths.
JunctionTree JoinTree(const ModelGraph& graph, const Triangulation& triangulation, bool has_decisions);

// Entries of a table over the variables when those with a state >= 0 in `positive` count as 1; 0 if
// one has no states.  An empty `positive` means no findings.
double SizeUnderFindings(const ModelGraph& graph, std::span<const int> variables,
                         std::span<const int> positive);

// Entries of all cliques and separators with the positive findings (per variable a state or -1).
double TotalSize(const ModelGraph& graph, const JunctionTree& tree, std::span<const int> positive);

// For reports: the cliques joined to this one, ascending (mate first, then children).
std::vector<int> JoinedTo(const JunctionTree& tree, int clique);

}  // namespace talora
