#include "BN/Order/OptimizeOrder.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "BN/Order/Graph_Triangulate.h"
#include "BN/Order/OptimizeOrderExact.h"
#include "BN/Order/Triangulation.h"
#include "Basic/Environ.h"
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

double TotalCliqueSize(const ModelGraph& graph, const std::vector<int>& order)
{
    double total = 0;
    for (const auto& clique : Triangulate(graph, order).cliques) total += TableSize(graph, clique);
    return total;
}

// Links given as child and parent; state counts of all variables.
ModelGraph MakeGraph(const std::vector<int>& num_states, const std::vector<std::pair<int, int>>& links)
{
    ModelGraph graph;
    for (int count : num_states) graph.variables.push_back({count, false, {}, 0});
    for (auto [child, parent] : links) graph.variables[child].parents.push_back(parent);
    return graph;
}

ModelGraph RandomGraph(std::mt19937& random, int n, const std::vector<int>& counts)
{
    std::vector<int> num_states;
    std::vector<std::pair<int, int>> links;
    for (int v = 0; v < n; ++v) {
        num_states.push_back(counts[random() % counts.size()]);
        for (int parent = 0; parent < v; ++parent)
            if (random() % n < 3) links.push_back({v, parent});
    }
    return MakeGraph(num_states, links);
}

double BestOfAllOrders(const ModelGraph& graph)
{
    std::vector<int> order = NetOrder(graph);
    double best = TotalCliqueSize(graph, order);
    while (std::next_permutation(order.begin(), order.end()))
        best = std::min(best, TotalCliqueSize(graph, order));
    return best;
}

OptimizeLimits Trials(uint64_t trials, uint64_t seed = 1)
{
    return {.seconds = 0, .trials = trials, .seed = seed};
}

TEST(FindOptimizedOrderTest, FindsTheBestOrderOfSmallGraphs)
{
    std::mt19937 random(3);
    for (int round = 0; round < 40; ++round) {
        ModelGraph graph = RandomGraph(random, 6 + round % 2, {2, 3, 5});
        OptimizeResult result = FindOptimizedOrder(graph, nullptr, Trials(200), nullptr);
        EXPECT_EQ(result.total_size, BestOfAllOrders(graph)) << "round " << round;
    }
}

TEST(SearchExactOrderTest, FindsTheBestOrderOrThatThereIsNone)
{
    const auto go_on = [] { return true; };
    std::mt19937 random(8);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        const ModelGraph graph = RandomGraph(random, 6 + round % 2, {2, 3, 5});
        const double best = BestOfAllOrders(graph);
        const Adjacency moral_graph = MoralGraph(graph);
        const ExactSearchResult found = SearchExactOrder(graph, moral_graph, best + 1, 10000, go_on);
        ASSERT_TRUE(found.is_complete);
        ASSERT_EQ(found.order.size(), graph.variables.size());
        EXPECT_EQ(TotalCliqueSize(graph, found.order), best);
        const ExactSearchResult none = SearchExactOrder(graph, moral_graph, best, 10000, go_on);
        EXPECT_TRUE(none.is_complete);
        EXPECT_TRUE(none.order.empty());
    }
    // A state less than two lets larger cliques be better; a core beyond a machine word; and too many sets.
    std::vector<std::pair<int, int>> ring;
    for (int v = 1; v < 70; ++v) ring.push_back({v, v - 1});
    ring.push_back({69, 0});
    const ModelGraph loop = MakeGraph(std::vector<int>(70, 2), ring);
    EXPECT_FALSE(SearchExactOrder(loop, MoralGraph(loop), 1e9, 100, go_on).is_complete);
    const ModelGraph single = MakeGraph({1, 2, 2}, {{1, 0}});
    EXPECT_FALSE(SearchExactOrder(single, MoralGraph(single), 1e9, 100, go_on).is_complete);
    const ModelGraph dense = RandomGraph(random, 40, {2});
    EXPECT_FALSE(SearchExactOrder(dense, MoralGraph(dense), 1e12, 3, go_on).is_complete);
}

// What the trials find is what the exact search proves, or it is better.
TEST(SearchExactOrderTest, IsNeverWorseThanTheTrials)
{
    std::mt19937 random(9);
    int num_complete = 0;
    for (int round = 0; round < 20; ++round) {
        const ModelGraph graph = RandomGraph(random, 24, {2, 3});
        const OptimizeResult trials = FindOptimizedOrder(graph, nullptr, Trials(200), nullptr);
        const ExactSearchResult found =
            SearchExactOrder(graph, MoralGraph(graph), trials.total_size, 20000, [] { return true; });
        num_complete += found.is_complete;
        if (!found.order.empty()) {
            EXPECT_LT(TotalCliqueSize(graph, found.order), trials.total_size) << "round " << round;
        }
    }
    EXPECT_GT(num_complete, 15);
}

TEST(FindOptimizedOrderTest, ReportsWhatItFoundAndIsNeverWorseThanItsStart)
{
    std::mt19937 random(4);
    const std::vector<std::vector<int>> kCounts = {{2}, {2, 3, 4}, {1, 2, 7}, {0, 2, 3}, {1 << 30}};
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        ModelGraph graph = RandomGraph(random, 2 + static_cast<int>(random() % 60), kCounts[round % 5]);
        std::vector<int> stored = NetOrder(graph);
        std::shuffle(stored.begin(), stored.end(), random);
        const std::vector<int>* first = round % 2 ? &stored : nullptr;
        std::vector<double> improvements;
        OptimizeResult result = FindOptimizedOrder(graph, first, Trials(150, round), nullptr,
                                                   [&](double size) { improvements.push_back(size); });

        std::vector<int> start = first ? stored : FindGreedyOrder(graph, NetOrder(graph), nullptr).order;
        EXPECT_DOUBLE_EQ(result.first_size, TotalCliqueSize(graph, start));
        EXPECT_LE(result.total_size, result.first_size);
        EXPECT_DOUBLE_EQ(result.total_size, TotalCliqueSize(graph, result.order));
        EXPECT_TRUE(
            std::is_permutation(result.order.begin(), result.order.end(), stored.begin(), stored.end()));
        EXPECT_TRUE(std::is_sorted(improvements.rbegin(), improvements.rend()));
        EXPECT_EQ(improvements.back(), result.total_size);
        EXPECT_EQ(FindOptimizedOrder(graph, first, Trials(150, round), nullptr).order, result.order);
    }
}

TEST(FindOptimizedOrderTest, StopsWhereNothingCanBeBetter)
{
    // Stars, families and trees need no fill-in; a loop of four (0, 1, 2, 3) does.
    struct Row {
        const char* label;
        ModelGraph graph;
        bool is_proven;
        double best;
    };
    const Row rows[] = {
        {"nothing", {}, true, 0},
        {"one variable", MakeGraph({3}, {}), true, 3},
        {"two apart", MakeGraph({3, 2}, {}), true, 5},
        {"a family", MakeGraph({2, 3, 4}, {{2, 0}, {2, 1}}), true, 24},
        {"a star", MakeGraph({5, 2, 2, 2}, {{1, 0}, {2, 0}, {3, 0}}), true, 30},
        {"a loop", MakeGraph({2, 2, 2, 9, 2}, {{1, 0}, {2, 1}, {3, 0}, {4, 2}, {4, 3}}), false, 36 + 8 + 36},
    };
    for (const Row& row : rows) {
        OptimizeResult result = FindOptimizedOrder(row.graph, nullptr, Trials(50), nullptr);
        EXPECT_EQ(result.is_proven, row.is_proven) << row.label;
        EXPECT_EQ(result.num_trials, row.is_proven ? 0u : 50u) << row.label;
        EXPECT_EQ(result.total_size, row.best) << row.label;
        // Small ones are proven by looking at all orders, before long.
        result = FindOptimizedOrder(row.graph, nullptr, Trials(1000), nullptr);
        EXPECT_TRUE(result.is_proven) << row.label;
        EXPECT_LT(result.num_trials, 1000u) << row.label;
        EXPECT_EQ(result.total_size, row.best) << row.label;
    }
}

TEST(FindOptimizedOrderTest, HaltedSearchesKeepTheBestSoFar)
{
    environ_vx env;
    environ_vx* outer = std::exchange(ThisThread().env, &env);
    std::mt19937 random(7);
    ModelGraph graph = RandomGraph(random, 60, {2, 3, 4});
    int num_better = 0;
    OptimizeLimits no_limits = {.seconds = 0, .trials = 0, .seed = 1};
    OptimizeResult result =
        FindOptimizedOrder(graph, nullptr, no_limits, nullptr, [&](double) { env.halt = ++num_better >= 3; });
    EXPECT_TRUE(result.halted);
    EXPECT_LT(result.total_size, result.first_size);
    EXPECT_EQ(result.total_size, TotalCliqueSize(graph, result.order));
    env.halt = true;
    EXPECT_TRUE(FindOptimizedOrder(graph, nullptr, no_limits, nullptr).order.empty());
    ThisThread().env = outer;
}

TEST(FindOptimizedOrderTest, ImprovesNetsTooLargeForWholeTrials)
{
    std::mt19937 random(6);
    ModelGraph graph;
    graph.variables.resize(6000, {2, false, {}, 0});
    for (int v = 10; v < 6000; ++v)
        graph.variables[v].parents = {v - 1, v - 2 - static_cast<int>(random() % 8)};
    OptimizeResult result = FindOptimizedOrder(graph, nullptr, Trials(2000), nullptr);
    EXPECT_LT(result.total_size, result.first_size);
    EXPECT_EQ(result.total_size, TotalCliqueSize(graph, result.order));
}

TEST(FindOptimizedOrderTest, ReachesKnownSizesOnPublishedNets)
{
    if (test::CorpusFolder().empty()) GTEST_SKIP() << "TALORA_CORPUS is not set";
    struct Row {
        const char* net;
        double largest;
    };
    const Row rows[] = {{"asia", 40},       {"insurance", 23880}, {"hailfinder", 9406}, {"win95pts", 2684},
                        {"water", 3360000}, {"andes", 264000},    {"pigs", 690000},     {"munin1", 129e6}};
    for (const Row& row : rows) {
        ModelGraph graph = test::ScanNet(test::CorpusFolder() + "/nets/" + row.net + ".dne").graph;
        EXPECT_LE(FindOptimizedOrder(graph, nullptr, Trials(2000), nullptr).total_size, row.largest)
            << row.net;
    }
}

}  // namespace
}  // namespace talora
