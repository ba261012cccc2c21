#include "BN/Order/Junction.h"

#include <gtest/gtest.h>

#include <numeric>
#include <set>

#include "Support/RandomModel.h"

namespace talora {

namespace {

std::set<int> Set(std::span<const int> list)
{
    return {list.begin(), list.end()};
}

bool Holds(const JunctionTree& tree, int clique, std::span<const int> variables)
{
    const std::set<int> members = Set(tree.members[clique]);
    return std::all_of(variables.begin(), variables.end(), [&](int v) { return members.count(v) > 0; });
}

// The rule as it is stated, without hurry.
int MateByRule(const JunctionTree& tree, int clique, bool has_decisions)
{
    for (int k = 0; k < clique; ++k) {
        const int candidate = has_decisions ? k : clique - 1 - k;
        if (Holds(tree, candidate, tree.separators[clique])) return candidate;
    }
    return -1;
}

int HomeByRule(const JunctionTree& tree, const std::vector<int>& family)
{
    int home = -1;
    for (int i = 0; i < tree.num_cliques(); ++i)
        if (Holds(tree, i, family) &&
            (home < 0 || tree.clique_sizes[size_t(home)] > tree.clique_sizes[size_t(i)]))
            home = i;
    return home;
}

void ExpectTreeByRule(const ModelGraph& graph, const JunctionTree& tree, bool has_decisions)
{
    std::set<int> seen;
    for (int i = 0; i < tree.num_cliques(); ++i) {
        std::vector<int> shared;
        for (int v : tree.members[i])
            if (seen.count(v)) shared.push_back(v);
        EXPECT_EQ(std::vector<int>(tree.separators[i].begin(), tree.separators[i].end()), shared);
        EXPECT_EQ(tree.mate[size_t(i)], i == 0 ? -1 : MateByRule(tree, i, has_decisions));
        for (int v : tree.members[i]) seen.insert(v);
        for (int child : tree.children[i]) EXPECT_EQ(tree.mate[size_t(child)], i);
    }
    EXPECT_EQ(tree.children.items.size() + 1, size_t(tree.num_cliques()));
    for (size_t v = 0; v < graph.variables.size(); ++v) {
        std::vector<int> family = graph.variables[v].parents;
        family.push_back(int(v));
        EXPECT_EQ(tree.home[v], graph.variables[v].is_decision ? -1 : HomeByRule(tree, family));
    }
    for (size_t u = 0; u < graph.utility_parents.size(); ++u)
        EXPECT_EQ(tree.utility_home[u], HomeByRule(tree, graph.utility_parents[u]));
}

TEST(Junction, RandomTreesFollowTheRules)
{
    std::mt19937 random(3);
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        RandomModel model = MakeModel(random, 1 + int(random() % 30), 3, 3, false);
        const bool has_decisions = round % 3 == 0;
        if (has_decisions) {
            model.graph.variables[random() % model.graph.variables.size()].is_decision = true;
            model.graph.utility_parents = {{}, {int(random() % unsigned(model.size()))}};
        }
        ExpectTreeByRule(model.graph, TreeOf(model.graph, has_decisions), has_decisions);
    }
}

ModelGraph BinaryGraph(std::vector<std::vector<int>> parents)
{
    ModelGraph graph;
    for (auto& list : parents) graph.variables.push_back({2, false, list, 0});
    return graph;
}

TEST(Junction, SizesUnderFindings)
{
    ModelGraph graph = BinaryGraph({{}, {0}, {0, 1}, {2}, {}});
    graph.variables[2].num_states = 3;
    const JunctionTree tree = TreeOf(graph);
    struct Row {
        const char* label;
        std::vector<int> positive;
        double size;
    };
    // Cliques {0 1 2}, {2 3}, {4} with separators {2} and {}.
    for (const Row& row : {Row{"none", {-1, -1, -1, -1, -1}, 12 + 6 + 2 + 3 + 1},
                           Row{"shared", {-1, -1, 1, -1, -1}, 4 + 2 + 2 + 1 + 1},
                           Row{"all", {0, 0, 0, 0, 0}, 1 + 1 + 1 + 1 + 1}})
        EXPECT_EQ(TotalSize(graph, tree, row.positive), row.size) << row.label;
    EXPECT_EQ(tree.total_size, 24);
    graph.variables[3].num_states = 0;
    EXPECT_EQ(TotalSize(graph, tree, {}), 12 + 0 + 2 + 3 + 1);
}

TEST(Junction, SizesSaturate)
{
    ModelGraph graph;
    graph.variables.resize(40, {2000000000, false, {}, 0});
    for (int p = 0; p < 39; ++p) graph.variables[39].parents.push_back(p);
    const JunctionTree tree = TreeOf(graph);
    EXPECT_EQ(tree.num_cliques(), 1);
    EXPECT_EQ(tree.total_size, 1.7976931348623156e305);
}

// Long chains, wide stars and many loose parts are joined in near-linear time.
TEST(Junction, LargeGraphs)
{
    constexpr int kSize = 300000;
    for (const char* shape : {"chain", "star", "loose"}) {
        ModelGraph graph;
        graph.variables.resize(kSize, {2, false, {}, 0});
        for (int v = 1; v < kSize && shape[0] != 'l'; ++v)
            graph.variables[size_t(v)].parents = {shape[0] == 'c' ? v - 1 : 0};
        std::vector<int> order(kSize);
        std::iota(order.rbegin(), order.rend(), 0);
        const JunctionTree tree = JoinTree(graph, Triangulate(graph, order), false);
        EXPECT_EQ(tree.num_cliques(), shape[0] == 'l' ? kSize : kSize - 1);
        for (int i = 1; i < tree.num_cliques(); ++i) ASSERT_EQ(tree.mate[size_t(i)], i - 1) << shape;
    }
}

}  // namespace

}  // namespace talora
