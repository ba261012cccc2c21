// A net with its tree and its propagation, and the unit in which benchmarks state their times.
//
// "U" is the time that this machine, in the same run, needs to sum once an array of as many floats as the
// tree has entries.
#pragma once

#include <benchmark/benchmark.h>

#include <time.h>

#include <chrono>
#include <memory>
#include <numeric>
#include <random>

#include "BN/Order/Graph_Triangulate.h"
#include "BN/Order/Junction.h"
#include "BN/Order/OptimizeOrder.h"
#include "BN/Propagation/Propagate.h"
#include "BenchNets.h"

namespace talora::bench {

// The time that this thread has computed since it began, so that other programs disturb little; runs of less
// than a tenth of a millisecond by the wall clock, which takes less time to read.
class Stopwatch {
public:
    double Seconds() const
    {
        const double passed = std::chrono::duration<double>(Clock::now() - start_).count();
        return passed < 1e-4 ? passed : Computed() - computed_;
    }

private:
    using Clock = std::chrono::steady_clock;
    static double Computed()
    {
        timespec time;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
    }
    double computed_ = Computed();
    Clock::time_point start_ = Clock::now();
};

// Trees beyond this many entries take too long and too much memory.
constexpr double kMaxBenchTree = 4e8;

struct BenchTree {
    ModelGraph graph;
    std::vector<std::vector<float>> tables;
    Triangulation triangulation;
    JunctionTree tree;
    std::unique_ptr<Propagation> propagation;  // null where the tree is too large
    std::vector<float> belief;
    double sum_seconds = 0;

    int Size() const { return int(graph.variables.size()); }
    int NumStates(int v) const { return graph.variables[size_t(v)].num_states; }
    TableSource Source()
    {
        return [this](int v) { return tables[size_t(v)].data(); };
    }
};

inline std::vector<int> NetOrder(const ModelGraph& graph)
{
    std::vector<int> nodes(graph.variables.size());
    std::iota(nodes.begin(), nodes.end(), 0);
    return nodes;
}

// The least of several runs over an array of this length, which stays in the cache if it fits.
inline double SecondsToSum(size_t count)
{
    const std::vector<float> entries(count, 1.0f);
    double best = 1e9;
    for (int run = 0; run < 20; ++run) {
        const Stopwatch watch;
        float lanes[64] = {};
        for (size_t i = 0; i + 64 <= count; i += 64)
            for (size_t k = 0; k < 64; ++k) lanes[k] += entries[i + k];
        benchmark::DoNotOptimize(lanes);
        best = std::min(best, watch.Seconds());
    }
    return best;
}

inline void TakeNet(BenchTree& net, PlainNet plain)
{
    net.graph = std::move(plain.graph);
    net.tables = std::move(plain.tables);
    for (int v = 0; v < net.Size(); ++v)
        net.belief.resize(std::max(net.belief.size(), size_t(net.NumStates(v))));
}

// Makes the tree of the triangulation.
inline void JoinBenchTree(BenchTree& net)
{
    net.tree = JoinTree(net.graph, net.triangulation, false);
    if (net.tree.total_size > kMaxBenchTree) return;
    net.propagation = std::make_unique<Propagation>(net.graph, net.tree, net.Source());
    net.sum_seconds = SecondsToSum(size_t(net.tree.total_size));
}

// With the greedy order, or the best that so many seconds of search find.
inline std::shared_ptr<BenchTree> MakeBenchTree(PlainNet plain, double search_seconds)
{
    auto net = std::make_shared<BenchTree>();
    TakeNet(*net, std::move(plain));
    std::vector<int> order = FindGreedyOrder(net->graph, NetOrder(net->graph), nullptr).order;
    if (search_seconds > 0) {
        OptimizeLimits limits;
        limits.seconds = search_seconds;
        order = FindOptimizedOrder(net->graph, &order, limits, nullptr).order;
    }
    net->triangulation = Triangulate(net->graph, order);
    JoinBenchTree(*net);
    return net;
}

inline void ReadAllBeliefs(BenchTree& net)
{
    for (int v = 0; v < net.Size(); ++v) net.propagation->Belief(v, net.belief.data());
}

// The most probable state now, so that findings can go on being entered.
inline int LikelyState(BenchTree& net, int variable)
{
    net.propagation->Belief(variable, net.belief.data());
    return int(std::max_element(net.belief.begin(), net.belief.begin() + net.NumStates(variable)) -
               net.belief.begin());
}

// Findings that are possible together, on a tenth of the variables; none is entered afterwards.
inline std::vector<std::pair<int, int>> FindingsOnATenth(BenchTree& net, std::mt19937& random)
{
    std::vector<std::pair<int, int>> findings;
    net.propagation->ClearFindings();
    for (int v = 0; v < net.Size(); ++v) {
        if (random() % 10 != 0) continue;
        net.propagation->UpdateFor(v);
        findings.emplace_back(v, LikelyState(net, v));
        net.propagation->SetPositive(v, findings.back().second);
    }
    net.propagation->ClearFindings();
    return findings;
}

}  // namespace talora::bench
