// Elimination orders: greedy search, cliques, and what the optimising search gains in a second.
// Generated nets always; those of the folder named by TALORA_CORPUS as well.
#include <benchmark/benchmark.h>

#include <random>

#include "BenchTree.h"

namespace {

using namespace talora;
using namespace talora::bench;

ModelGraph Polytree(int n)
{
    std::mt19937 random(5);
    ModelGraph graph;
    graph.variables.resize(n);
    for (int v = 0; v < n; ++v) {
        graph.variables[v].num_states = 2 + static_cast<int>(random() % 4);
        if (v == 0) continue;
        int other = static_cast<int>(random() % v);
        bool is_child = graph.variables[other].parents.size() >= 3 || random() % 2;
        graph.variables[is_child ? v : other].parents.push_back(is_child ? other : v);
    }
    return graph;
}

// Up to three parents among the twenty variables before: loops, but cliques of moderate size.
ModelGraph LocalNet(int n)
{
    std::mt19937 random(6);
    ModelGraph graph;
    graph.variables.resize(n);
    for (int v = 0; v < n; ++v) {
        graph.variables[v].num_states = 2 + static_cast<int>(random() % 3);
        std::vector<int>& parents = graph.variables[v].parents;
        for (int i = static_cast<int>(random() % 4); i > 0 && v > 0; --i) {
            int parent = v - 1 - static_cast<int>(random() % std::min(v, 20));
            if (std::find(parents.begin(), parents.end(), parent) == parents.end()) parents.push_back(parent);
        }
    }
    return graph;
}

void Greedy(benchmark::State& state, const ModelGraph& graph)
{
    std::vector<int> nodes = NetOrder(graph);
    for (auto _ : state) benchmark::DoNotOptimize(FindGreedyOrder(graph, nodes, nullptr));
}

void Cliques(benchmark::State& state, const ModelGraph& graph)
{
    std::vector<int> order = FindGreedyOrder(graph, NetOrder(graph), nullptr).order;
    for (auto _ : state) benchmark::DoNotOptimize(Triangulate(graph, order));
}

void Optimize(benchmark::State& state, const ModelGraph& graph)
{
    OptimizeLimits limits;
    limits.seconds = 1;
    OptimizeResult result;
    for (auto _ : state) result = FindOptimizedOrder(graph, nullptr, limits, nullptr);
    state.counters["first"] = result.first_size;
    state.counters["best"] = result.total_size;
    state.counters["trials"] = static_cast<double>(result.num_trials);
}

void RegisterNet(const std::string& name, const ModelGraph& graph, bool with_optimize)
{
    benchmark::RegisterBenchmark(("greedy/" + name).c_str(), [graph](auto& state) {
        Greedy(state, graph);
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("cliques/" + name).c_str(), [graph](auto& state) {
        Cliques(state, graph);
    })->Unit(benchmark::kMillisecond);
    if (!with_optimize) return;
    benchmark::RegisterBenchmark(("optimize/" + name).c_str(),
                                 [graph](auto& state) { Optimize(state, graph); })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
}

const bool kRegistered = [] {
    RegisterNet("polytree_100000", Polytree(100000), false);
    RegisterNet("local_1000", LocalNet(1000), true);
    for (const NetSource& source : AllNets()) RegisterNet(source.name, source.load().graph, true);
    return true;
}();

}  // namespace
