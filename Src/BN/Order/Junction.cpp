// Joins the cliques of a triangulation to a tree.
#include "BN/Order/Junction.h"

#include <algorithm>

#include "BN/Model/TableSize.h"
#include "BN/Order/Graph_Triangulate.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// Groups keys: list k holds the indexes i, ascending, with keys[i] == k; negative keys are left out.
NumberLists GroupBy(const std::vector<int>& keys, int num_groups)
{
    NumberLists groups;
    groups.start.assign(size_t(num_groups) + 1, 0);
    for (int key : keys)
        if (key >= 0) ++groups.start[size_t(key) + 1];
    for (int k = 0; k < num_groups; ++k) groups.start[size_t(k) + 1] += groups.start[size_t(k)];
    groups.items.resize(size_t(groups.start.back()));
    std::vector<int64_t> next(groups.start.begin(), groups.start.end() - 1);
    for (size_t i = 0; i < keys.size(); ++i)
        if (keys[i] >= 0) groups.items[size_t(next[size_t(keys[i])]++)] = int(i);
    return groups;
}

// The same lists seen from the items: for each variable the cliques that hold it, ascending.
NumberLists Inverse(const NumberLists& lists, int num_items)
{
    NumberLists inverse;
    inverse.start.assign(size_t(num_items) + 1, 0);
    for (int item : lists.items) ++inverse.start[size_t(item) + 1];
    for (int k = 0; k < num_items; ++k) inverse.start[size_t(k) + 1] += inverse.start[size_t(k)];
    inverse.items.resize(lists.items.size());
    std::vector<int64_t> next(inverse.start.begin(), inverse.start.end() - 1);
    for (int i = 0; i < lists.size(); ++i)
        for (int item : lists[i]) inverse.items[size_t(next[size_t(item)]++)] = i;
    return inverse;
}

// The last clique before `end` that holds all of `shared`, or the first of all; -1 if there is none.
// Steps through the ascending lists of cliques of the variables together: each variable moves the
// candidate on to the next clique that holds it, until all agree.
int FindNearestMate(const NumberLists& cliques_of, std::span<const int> shared, int end)
{
    int candidate = end - 1;
    for (size_t agreed = 0, k = 0; agreed < shared.size(); k = (k + 1) % shared.size()) {
        std::span<const int> list = cliques_of[shared[k]];
        auto after = std::upper_bound(list.begin(), list.end(), candidate);
        if (after == list.begin()) return -1;
        agreed = after[-1] == candidate ? agreed + 1 : 1;
        candidate = after[-1];
    }
    return candidate;
}

int FindEarliestMate(const NumberLists& cliques_of, std::span<const int> shared, int end)
{
    int candidate = 0;
    for (size_t agreed = 0, k = 0; agreed < shared.size(); k = (k + 1) % shared.size()) {
        std::span<const int> list = cliques_of[shared[k]];
        auto found = std::lower_bound(list.begin(), list.end(), candidate);
        if (found == list.end() || *found >= end) return -1;
        agreed = *found == candidate ? agreed + 1 : 1;
        candidate = *found;
    }
    return candidate;
}

// Joins each clique to an earlier one that holds every member seen before.
void JoinCliques(const ModelGraph& graph, JunctionTree& tree, bool has_decisions)
{
    const int num_cliques = tree.members.size();
    const NumberLists cliques_of = Inverse(tree.members, int(graph.variables.size()));
    std::vector<bool> seen(graph.variables.size());
    CliqueWatch watch;
    for (int i = 0; i < num_cliques; ++i) {
        watch.Formed(tree.members[i].size());
        const size_t first = tree.separators.items.size();
        for (int variable : tree.members[i]) {
            if (seen[size_t(variable)]) tree.separators.items.push_back(variable);
            seen[size_t(variable)] = true;
        }
        std::span<const int> shared(tree.separators.items.data() + first,
                                    tree.separators.items.size() - first);
        int mate = -1;
        if (i > 0) {
            mate = has_decisions ? FindEarliestMate(cliques_of, shared, i)
                                 : FindNearestMate(cliques_of, shared, i);
            TALORA_CHECK(mate >= 0);
        }
        tree.mate.push_back(mate);
        tree.separators.EndList();
    }
    tree.children = GroupBy(tree.mate, num_cliques);
}

bool IsBetterHome(const JunctionTree& tree, int home, int clique)
{
    return home < 0 || tree.clique_sizes[size_t(home)] > tree.clique_sizes[size_t(clique)];
}

// A variable's home is the smallest clique that holds it and its parents, the first of equal ones.
void AssignHomes(const ModelGraph& graph, JunctionTree& tree)
{
    std::vector<int> marked(graph.variables.size(), -1);  // the last clique that held the variable
    auto holds = [&](const std::vector<int>& parents, int clique) {
        return std::all_of(parents.begin(), parents.end(),
                           [&](int p) { return marked[size_t(p)] == clique; });
    };
    // A utility node is looked at where its first parent is; without parents it fits everywhere.
    std::vector<int> first_parent;
    for (const std::vector<int>& parents : graph.utility_parents)
        first_parent.push_back(parents.empty() ? -1 : parents[0]);
    const NumberLists utilities_of = GroupBy(first_parent, int(graph.variables.size()));

    tree.home.assign(graph.variables.size(), -1);
    tree.utility_home.assign(graph.utility_parents.size(), -1);
    int smallest = -1;
    for (int i = 0; i < tree.num_cliques(); ++i) {
        for (int variable : tree.members[i]) marked[size_t(variable)] = i;
        for (int variable : tree.members[i]) {
            const ModelGraph::Variable& v = graph.variables[size_t(variable)];
            int& home = tree.home[size_t(variable)];
            if (!v.is_decision && IsBetterHome(tree, home, i) && holds(v.parents, i)) home = i;
            for (int u : utilities_of[variable]) {
                int& utility_home = tree.utility_home[size_t(u)];
                if (IsBetterHome(tree, utility_home, i) && holds(graph.utility_parents[size_t(u)], i))
                    utility_home = i;
            }
        }
        if (IsBetterHome(tree, smallest, i)) smallest = i;
    }
    for (size_t u = 0; u < first_parent.size(); ++u)
        if (first_parent[u] < 0) tree.utility_home[u] = smallest;
    tree.homed = GroupBy(tree.home, tree.num_cliques());
}

}  // namespace

JunctionTree JoinTree(const ModelGraph& graph, const Triangulation& triangulation, bool has_decisions)
{
    JunctionTree tree;
    size_t total = 0;
    for (const std::vector<int>& clique : triangulation.cliques) total += clique.size();
    tree.members.items.reserve(total);
    tree.separators.items.reserve(total);
    for (auto clique = triangulation.cliques.rbegin(); clique != triangulation.cliques.rend(); ++clique) {
        tree.members.items.insert(tree.members.items.end(), clique->begin(), clique->end());
        tree.members.EndList();
    }
    JoinCliques(graph, tree, has_decisions);
    for (int i = 0; i < tree.num_cliques(); ++i) {
        tree.clique_sizes.push_back(TableSize(graph, tree.members[i]));
        tree.separator_sizes.push_back(i == 0 ? 0 : TableSize(graph, tree.separators[i]));
    }
    tree.total_size = TotalSize(graph, tree, {});
    AssignHomes(graph, tree);
    return tree;
}

double SizeUnderFindings(const ModelGraph& graph, std::span<const int> variables,
                         std::span<const int> positive)
{
    double size = 1;
    for (int variable : variables) {
        const int num_states = graph.variables[size_t(variable)].num_states;
        const bool observed = num_states > 0 && !positive.empty() && positive[size_t(variable)] >= 0;
        size = MultiplySize(size, observed ? 1 : num_states);
    }
    return size;
}

double TotalSize(const ModelGraph& graph, const JunctionTree& tree, std::span<const int> positive)
{
    double total = 0;
    for (int i = 0; i < tree.num_cliques(); ++i) {
        total += SizeUnderFindings(graph, tree.members[i], positive);
        if (i > 0) total += SizeUnderFindings(graph, tree.separators[i], positive);
    }
    return std::min(total, kMaxTableSize);
}

std::vector<int> JoinedTo(const JunctionTree& tree, int clique)
{
    std::vector<int> joined;
    if (tree.mate[size_t(clique)] >= 0) joined.push_back(tree.mate[size_t(clique)]);
    for (int child : tree.children[clique]) joined.push_back(child);
    return joined;
}

}  // namespace talora
