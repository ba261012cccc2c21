#include "BN/Order/Graph_Triangulate.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>
#include <utility>

#include "BN/Order/Triangulation.h"
#include "Basic/Environ.h"
#include "Basic/Memory.h"
#include "Basic/MultiThread.h"
#include "Corpus/NetScan.h"

namespace talora {
namespace {

std::vector<int> NetOrder(const ModelGraph& graph)
{
    std::vector<int> nodes(graph.variables.size());
    std::iota(nodes.begin(), nodes.end(), 0);
    return nodes;
}

using SetGraph = std::vector<std::set<int>>;

SetGraph PlainMoralGraph(const ModelGraph& graph)
{
    SetGraph neighbours(graph.variables.size());
    auto join = [&](std::vector<int> family) {
        for (int a : family)
            for (int b : family)
                if (a != b) neighbours[a].insert(b);
    };
    for (size_t v = 0; v < graph.variables.size(); ++v) {
        std::vector<int> family = graph.variables[v].parents;
        family.push_back(static_cast<int>(v));
        join(family);
    }
    for (const auto& parents : graph.utility_parents) join(parents);
    return neighbours;
}

double SizeWith(const ModelGraph& graph, int v, const std::set<int>& neighbours)
{
    std::vector<int> clique(neighbours.begin(), neighbours.end());
    clique.push_back(v);
    return TableSize(graph, clique);
}

void PlainEliminate(SetGraph& neighbours, int v)
{
    for (int a : neighbours[v]) {
        for (int b : neighbours[v])
            if (a != b) neighbours[a].insert(b);
        neighbours[a].erase(v);
    }
}

double PlainCost(const ModelGraph& graph, const SetGraph& neighbours,
                 const std::vector<std::set<int>>& recorded, int v)
{
    const std::set<int>& around = neighbours[v];
    for (const std::set<int>& set : recorded)
        if (!around.empty() && set.count(v) && set.size() > around.size()) return 0;
    return SizeWith(graph, v, around);
}

// The rules word for word: every step scans all that is left.
GreedySearchResult PlainGreedyOrder(const ModelGraph& graph, std::vector<int> remaining)
{
    GreedySearchResult result;
    SetGraph neighbours = PlainMoralGraph(graph);
    std::vector<std::set<int>> recorded;
    std::vector<uint32_t> groups = EliminationGroups(graph, remaining);
    while (!remaining.empty()) {
        uint32_t group = UINT32_MAX;
        for (int v : remaining) group = std::min(group, groups[v]);
        int chosen = -1;
        double best = std::numeric_limits<double>::max();
        for (int v : remaining) {
            if (groups[v] != group) continue;
            double cost = PlainCost(graph, neighbours, recorded, v);
            if (cost < best) {
                best = cost;
                chosen = v;
            }
            if (cost == 0) break;
        }
        result.order.push_back(chosen);
        result.cost += best;
        std::erase(remaining, chosen);
        std::erase_if(recorded, [&](const std::set<int>& set) { return set.count(chosen) > 0; });
        if (!neighbours[chosen].empty()) recorded.push_back(neighbours[chosen]);
        PlainEliminate(neighbours, chosen);
    }
    return result;
}

struct PlainTriangulation {
    double cost = 0;
    std::vector<std::set<int>> cliques;  // maximal, in the order in which they were formed
};

PlainTriangulation PlainTriangulate(const ModelGraph& graph, const std::vector<int>& order)
{
    PlainTriangulation result;
    SetGraph neighbours = PlainMoralGraph(graph);
    for (int v : order) {
        std::set<int> clique = neighbours[v];
        result.cost += SizeWith(graph, v, clique);
        clique.insert(v);
        bool is_contained = std::any_of(result.cliques.begin(), result.cliques.end(), [&](const auto& other) {
            return std::includes(other.begin(), other.end(), clique.begin(), clique.end());
        });
        if (!is_contained) result.cliques.push_back(clique);
        PlainEliminate(neighbours, v);
    }
    return result;
}

ModelGraph RandomGraph(std::mt19937& random, bool with_decisions)
{
    // Rows of state counts to draw from: the narrow ones make ties, the wide ones saturate.
    static const std::vector<std::vector<int>> kStateCounts = {
        {2}, {2, 3}, {1, 2, 4}, {0, 1, 2, 3}, {2, 3, 4, 5, 6, 7}, {1 << 30, 1 << 20, 2}};
    auto below = [&](int n) { return static_cast<int>(random() % n); };
    const std::vector<int>& counts = kStateCounts[below(kStateCounts.size())];
    ModelGraph graph;
    int n = 1 + below(40), most_parents = 1 + below(5);
    for (int v = 0; v < n; ++v) {
        ModelGraph::Variable variable;
        variable.num_states = counts[below(counts.size())];
        variable.is_decision = with_decisions && below(5) == 0;
        for (int i = below(most_parents + 1); i > 0 && v > 0; --i) variable.parents.push_back(below(v));
        std::sort(variable.parents.begin(), variable.parents.end());
        variable.parents.erase(std::unique(variable.parents.begin(), variable.parents.end()),
                               variable.parents.end());
        graph.variables.push_back(variable);
    }
    if (below(3) == 0) graph.utility_parents = {{below(n), below(n), below(n)}};
    return graph;
}

// Every variable has a random share of parents among the few before it; undirected, no cycle.
ModelGraph Polytree(int n, int most_states)
{
    std::mt19937 random(5);
    ModelGraph graph;
    graph.variables.resize(n);
    for (int v = 0; v < n; ++v) {
        graph.variables[v].num_states = 2 + static_cast<int>(random() % (most_states - 1));
        if (v == 0) continue;
        int other = static_cast<int>(random() % v);
        bool is_child = graph.variables[other].parents.size() >= 3 || random() % 2;
        graph.variables[is_child ? v : other].parents.push_back(is_child ? other : v);
    }
    return graph;
}

TEST(TableSizeTest, SaturatesAndEmpties)
{
    struct Row {
        const char* label;
        std::vector<int> counts;
        double expected;
    };
    const Row rows[] = {
        {"no variables", {}, 1.0},
        {"product", {2, 3, 4}, 24.0},
        {"a variable without states", {2, 0, 4}, 0.0},
        {"many saturate", std::vector<int>(40, 1 << 30), kMaxTableSize},
        {"one state keeps the maximum", {std::vector<int>(1100, 2)}, kMaxTableSize},
    };
    for (const Row& row : rows) {
        double size = 1.0;
        for (int count : row.counts) size = MultiplySize(size, count);
        EXPECT_EQ(size, row.expected) << row.label;
    }
    EXPECT_EQ(MultiplySize(kMaxTableSize, 1), kMaxTableSize);
    EXPECT_EQ(MultiplySize(kMaxTableSize, 0), 0.0);
    EXPECT_EQ(MultiplySize(0.0, 7), 0.0);
}

TEST(EliminationGroupsTest, LaterDecisionsComeFirst)
{
    // c0 -> d1, c2 -> d3, c0 -> d3, d1 -> d3: the last assignment of a parent stands.
    ModelGraph graph;
    graph.variables = {
        {2, false, {}, 0}, {2, true, {0}, 1}, {2, false, {}, 2}, {2, true, {0, 1, 2}, 3}, {2, false, {3}, 4}};
    EXPECT_EQ(EliminationGroups(graph, {0, 1, 2, 3, 4}), (std::vector<uint32_t>{4, 3, 2, 1, 0}));
    EXPECT_EQ(EliminationGroups(graph, {3, 1, 0, 2, 4}), (std::vector<uint32_t>{4, 4, 4, 3, 0}));
    EXPECT_EQ(FindGreedyOrder(graph, {0, 1, 2, 3, 4}, nullptr).order, (std::vector<int>{4, 3, 2, 1, 0}));
}

TEST(FindGreedyOrderTest, FollowsTheRulesOnRandomGraphs)
{
    std::mt19937 random(1);
    for (int round = 0; round < 4000; ++round) {
        ModelGraph graph = RandomGraph(random, round % 2 == 1);
        std::vector<int> nodes = NetOrder(graph);
        if (round % 3 == 0) std::shuffle(nodes.begin(), nodes.end(), random);
        GreedySearchResult expected = PlainGreedyOrder(graph, nodes);
        GreedySearchResult found = FindGreedyOrder(graph, nodes, nullptr);
        ASSERT_EQ(found.order, expected.order) << "round " << round;
        ASSERT_EQ(found.cost, expected.cost) << "round " << round;
        ASSERT_FALSE(found.halted);
    }
}

TEST(FindGreedyOrderTest, HubsAndEmptyGraphs)
{
    EXPECT_TRUE(FindGreedyOrder({}, {}, nullptr).order.empty());
    // Two hubs over many children: the hubs' lists are compacted, their sizes saturate.
    ModelGraph graph;
    graph.variables.resize(602, {2, false, {}, 0});
    for (int v = 2; v < 602; ++v) graph.variables[v].parents = {0, 1};
    for (int v = 2; v < 602; v += 7) graph.variables[v].num_states = 3;
    std::vector<int> nodes = NetOrder(graph);
    EXPECT_EQ(FindGreedyOrder(graph, nodes, nullptr).order, PlainGreedyOrder(graph, nodes).order);
}

// The person stops the search at its first report.
bool_vx StopAtOnce(environ_vx*, const char*, double, void*)
{
    return 0;
}

TEST(FindGreedyOrderTest, HaltedSearchesEndInNetOrder)
{
    environ_vx env;
    environ_vx* outer = std::exchange(ThisThread().env, &env);
    ModelGraph graph;
    graph.variables.resize(4, {2, false, {}, 0});
    graph.variables[1].parents = {0, 2, 3};

    env.halt = true;
    GreedySearchResult before = FindGreedyOrder(graph, NetOrder(graph), nullptr);
    EXPECT_TRUE(before.halted);
    EXPECT_TRUE(before.order.empty());
    env.halt = false;

    env.progress_handler.Set(StopAtOnce, nullptr);
    Progress progress("finding elimination order");
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // so that the first step reports
    GreedySearchResult during = FindGreedyOrder(graph, {3, 1, 0, 2}, &progress);
    EXPECT_TRUE(during.halted);
    EXPECT_EQ(during.num_found, 1);
    EXPECT_EQ(during.order, (std::vector<int>{3, 1, 0, 2}));
    EXPECT_EQ(during.cost, 16 + 8 + 4 + 2);
    ThisThread().env = outer;
}

// Large families are joined by bits, small ones by lists.
TEST(FindGreedyOrderTest, MoralGraphsOfAllDensities)
{
    for (const int num_parents : {0, 1, 3, 20, 129}) {
        ModelGraph graph;
        for (int v = 0; v < 130; ++v) {
            std::vector<int> parents;
            for (int p = std::max(0, v - num_parents); p < v; ++p) parents.push_back((p * 7) % v);
            std::sort(parents.begin(), parents.end());
            parents.erase(std::unique(parents.begin(), parents.end()), parents.end());
            graph.variables.push_back({2, false, parents, v});
        }
        const SetGraph expected = PlainMoralGraph(graph);
        const Adjacency found = MoralGraph(graph);
        for (size_t v = 0; v < found.size(); ++v)
            EXPECT_TRUE(std::equal(found[v].begin(), found[v].end(), expected[v].begin(), expected[v].end()))
                << num_parents << " parents, variable " << v;
    }
}

// The search of a graph whose cliques are far too large ends long before it is through.
TEST(FindGreedyOrderTest, EndsAtAGreatestCost)
{
    std::mt19937 random(1);
    ModelGraph graph;
    for (int v = 0; v < 400; ++v) {
        std::vector<int> parents;
        for (int i = 0; i < std::min(v, 4); ++i) parents.push_back(int(random() % unsigned(v)));
        std::sort(parents.begin(), parents.end());
        parents.erase(std::unique(parents.begin(), parents.end()), parents.end());
        graph.variables.push_back({2, false, parents, v});
    }
    const GreedySearchResult whole = FindGreedyOrder(graph, NetOrder(graph), nullptr);
    ASSERT_GT(whole.cost, 1e9);
    const GreedySearchResult cut = FindGreedyOrder(graph, NetOrder(graph), nullptr, 1e9);
    EXPECT_TRUE(cut.is_too_costly);
    EXPECT_TRUE(cut.order.empty());
    EXPECT_GT(cut.cost, 1e9);
    EXPECT_LT(cut.cost, whole.cost);
    EXPECT_FALSE(FindGreedyOrder(graph, NetOrder(graph), nullptr, whole.cost).is_too_costly);
}

TEST(FindGreedyOrderTest, RefusesFamiliesTooLargeToJoin)
{
    ModelGraph graph;
    graph.variables.resize(2000, {2, false, {}, 0});
    graph.utility_parents = {NetOrder(graph)};
    double limit = MemoryLimit();
    SetMemoryLimit(static_cast<double>(MemoryInUse()) + 1e6);
    EXPECT_THROW(FindGreedyOrder(graph, NetOrder(graph), nullptr), OutOfMemory);
    SetMemoryLimit(limit);
    EXPECT_EQ(FindGreedyOrder(graph, NetOrder(graph), nullptr).num_found, 2000);
}

TEST(TriangulateTest, KeepsTheMaximalCliquesOfRandomOrders)
{
    std::mt19937 random(2);
    for (int round = 0; round < 2000; ++round) {
        ModelGraph graph = RandomGraph(random, false);
        std::vector<int> order = NetOrder(graph);
        std::shuffle(order.begin(), order.end(), random);
        if (round % 2) order = FindGreedyOrder(graph, order, nullptr).order;

        PlainTriangulation expected = PlainTriangulate(graph, order);
        Triangulation found = Triangulate(graph, order);
        ASSERT_DOUBLE_EQ(found.cost, expected.cost);
        ASSERT_EQ(CostOfOrder(graph, order), found.cost);

        std::set<std::set<int>> cliques;
        std::set<int> seen;
        for (size_t i = found.cliques.size(); i-- > 0;) {
            const std::vector<int>& clique = found.cliques[i];
            ASSERT_TRUE(std::is_sorted(clique.begin(), clique.end(), [&](int a, int b) {
                return found.elimination_index[a] < found.elimination_index[b];
            }));
            // Running intersection: what a clique shares with the later ones, one of these holds.
            std::set<int> shared;
            for (int v : clique)
                if (seen.count(v)) shared.insert(v);
            bool has_mate = i + 1 == found.cliques.size();
            for (size_t j = i + 1; j < found.cliques.size() && !has_mate; ++j) {
                std::set<int> mate(found.cliques[j].begin(), found.cliques[j].end());
                has_mate = std::includes(mate.begin(), mate.end(), shared.begin(), shared.end());
            }
            ASSERT_TRUE(has_mate) << "round " << round << " clique " << i;
            seen.insert(clique.begin(), clique.end());
            cliques.insert(std::set<int>(clique.begin(), clique.end()));
        }
        ASSERT_EQ(cliques, std::set<std::set<int>>(expected.cliques.begin(), expected.cliques.end()));
        ASSERT_EQ(found.cliques.size(), expected.cliques.size());
    }
}

TEST(TriangulateTest, LongChainsAndStarsStayLinear)
{
    const int n = 200000;
    for (bool is_star : {false, true}) {
        ModelGraph graph;
        graph.variables.resize(n, {2, false, {}, 0});
        for (int v = 1; v < n; ++v) graph.variables[v].parents = {is_star ? 0 : v - 1};
        GreedySearchResult greedy = FindGreedyOrder(graph, NetOrder(graph), nullptr);
        Triangulation result = Triangulate(graph, greedy.order);
        EXPECT_EQ(result.cliques.size(), size_t{n - 1});
        EXPECT_EQ(result.cost, 4.0 * (n - 1) + 2.0);
    }
    ModelGraph tree = Polytree(50000, 5);
    EXPECT_EQ(FindGreedyOrder(tree, NetOrder(tree), nullptr).num_found, 50000);
}

// Order, cost and cliques of the published nets against results computed independently.
TEST(FindGreedyOrderTest, MatchesIndependentResultsOnPublishedNets)
{
    if (test::CorpusFolder().empty()) GTEST_SKIP() << "TALORA_CORPUS is not set";
    for (const char* name :
         {"alarm", "andes", "asia", "cancer", "child", "earthquake", "hailfinder", "hepar2", "insurance",
          "munin1", "pathfinder", "pigs", "sachs", "survey", "water", "win95pts"}) {
        SCOPED_TRACE(name);
        test::ScannedNet net = test::ScanNet(test::CorpusFolder() + "/nets/" + name + ".dne");
        std::ifstream file(test::CorpusFolder() + "/oracles/" + name + ".elimination.json");
        nlohmann::json oracle = nlohmann::json::parse(file);

        GreedySearchResult greedy = FindGreedyOrder(net.graph, NetOrder(net.graph), nullptr);
        std::vector<std::string> order;
        for (int v : greedy.order) order.push_back(net.names[v]);
        EXPECT_EQ(order, oracle["order"].get<std::vector<std::string>>());
        EXPECT_EQ(greedy.cost, oracle["total_cost"].get<double>());

        Triangulation triangulation = Triangulate(net.graph, greedy.order);
        std::reverse(triangulation.cliques.begin(), triangulation.cliques.end());
        double sum = 0;
        for (const auto& clique : triangulation.cliques) sum += TableSize(net.graph, clique);
        EXPECT_EQ(sum, oracle["sum_clique_sizes"].get<double>());
        ASSERT_EQ(triangulation.cliques.size(), oracle["cliques"].size());
        for (size_t i = 0; i < triangulation.cliques.size(); ++i) {
            std::vector<std::string> members;
            for (int v : triangulation.cliques[i]) members.push_back(net.names[v]);
            EXPECT_EQ(members, oracle["cliques"][i]["members"].get<std::vector<std::string>>()) << i;
        }
    }
}

}  // namespace
}  // namespace talora
