// Propagation over the nets of the folder named by TALORA_CORPUS: joining the tree, all beliefs anew,
// all beliefs after other findings on a tenth of the variables, after one finding more, and one belief
// after one finding more; and cases by the sixteen.  "BestOrder" is the same with an order that was searched
// for.
//
// "U" is the time of a run in units of the time that this machine, in the same run, needs to sum once
// an array of as many floats as the tree has entries.  "per" is the time per message and belief.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <random>

#include "../Tests/Corpus/NetScan.h"
#include "BN/Graph_Triangulate.h"
#include "BN/Junction.h"
#include "BN/OptimizeOrder.h"
#include "BN/Propagate.h"
#include "BN/PropagateBatch.h"
#include "Basic/FloatMode.h"

namespace {

using namespace talora;
using Clock = std::chrono::steady_clock;

struct Net {
    ModelGraph graph;
    std::vector<std::vector<float>> tables;
    Triangulation triangulation;
    JunctionTree tree;
    std::unique_ptr<Propagation> propagation;
    std::vector<float> belief;
    double sum_seconds = 0;
};

// The numbers of all "probs = ... ;" statements, comments left out.
std::vector<std::vector<float>> ScanTables(const std::string& path)
{
    std::vector<std::vector<float>> tables;
    std::ifstream file(path);
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        line.resize(std::min(line.size(), line.find("//")));
        if (line.rfind("\tnode ", 0) == 0) tables.emplace_back();
        inside |= line.find("probs =") != std::string::npos;
        for (const char* at = line.c_str(); inside && *at != 0;) {
            char* end = nullptr;
            const float number = std::strtof(at, &end);
            const bool is_number = end != at && *at != 'p';
            if (is_number) tables.back().push_back(number);
            inside = *at != ';';
            at = is_number ? end : at + 1;
        }
    }
    return tables;
}

// The least of several runs over an array of this length, which stays in the cache if it fits.
double SecondsToSum(size_t count)
{
    const std::vector<float> entries(count, 1.0f);
    double best = 1e9;
    for (int run = 0; run < 20; ++run) {
        const auto start = Clock::now();
        float lanes[64] = {};
        for (size_t i = 0; i + 64 <= count; i += 64)
            for (size_t k = 0; k < 64; ++k) lanes[k] += entries[i + k];
        benchmark::DoNotOptimize(lanes);
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return best;
}

// With the greedy order, or the best that two seconds of search find.
std::shared_ptr<Net> Load(const std::string& path, bool optimize)
{
    auto net = std::make_shared<Net>();
    net->graph = test::ScanNet(path).graph;
    net->tables = ScanTables(path);
    std::vector<int> nodes(net->graph.variables.size());
    std::iota(nodes.begin(), nodes.end(), 0);
    std::vector<int> order = FindGreedyOrder(net->graph, nodes, nullptr).order;
    if (optimize) {
        OptimizeLimits limits;
        limits.seconds = 2;
        order = FindOptimizedOrder(net->graph, &order, limits, nullptr).order;
    }
    net->triangulation = Triangulate(net->graph, order);
    net->tree = JoinTree(net->graph, net->triangulation, false);
    net->propagation = std::make_unique<Propagation>(
        net->graph, net->tree, [net = net.get()](int v) { return net->tables[size_t(v)].data(); });
    for (const auto& variable : net->graph.variables)
        net->belief.resize(std::max(net->belief.size(), size_t(variable.num_states)));
    net->sum_seconds = SecondsToSum(size_t(net->tree.total_size));
    return net;
}

void ReadAllBeliefs(Net& net)
{
    for (int v = 0; v < int(net.graph.variables.size()); ++v) net.propagation->Belief(v, net.belief.data());
}

// The most probable state now, so that findings can go on being entered.
int LikelyState(Net& net, int variable)
{
    net.propagation->Belief(variable, net.belief.data());
    const int n = net.graph.variables[size_t(variable)].num_states;
    return int(std::max_element(net.belief.begin(), net.belief.begin() + n) - net.belief.begin());
}

void Count(benchmark::State& state, const Net& net, double seconds)
{
    const double units = 2.0 * (net.tree.num_cliques() - 1) + double(net.graph.variables.size());
    state.counters["U"] = seconds / double(state.iterations()) / net.sum_seconds;
    state.counters["per_ns"] = 1e9 * seconds / double(state.iterations()) / units;
    state.counters["tree_MB"] = net.tree.total_size * 4e-6;
    state.counters["held_MB"] = net.propagation->Bytes() * 1e-6;
}

// Times `run` alone; `prepare` goes before each.
template <class Prepare, class Run>
void Measure(benchmark::State& state, Net& net, Prepare prepare, Run run)
{
    double seconds = 0;
    for (auto _ : state) {
        prepare();
        const auto start = Clock::now();
        run();
        const double taken = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(taken);
        seconds += taken;
    }
    Count(state, net, seconds);
}

void Join(benchmark::State& state, std::shared_ptr<Net> net)
{
    Measure(
        state, *net, [] {},
        [&] { benchmark::DoNotOptimize(JoinTree(net->graph, net->triangulation, false)); });
}

void First(benchmark::State& state, std::shared_ptr<Net> net)
{
    std::unique_ptr<Propagation> fresh;
    auto source = [&](int v) { return net->tables[size_t(v)].data(); };
    Measure(
        state, *net, [&] { fresh.reset(); },
        [&] {
            fresh = std::make_unique<Propagation>(net->graph, net->tree, source);
            fresh->Update();
        });
}

void Full(benchmark::State& state, std::shared_ptr<Net> net)
{
    net->propagation->ClearFindings();
    Measure(
        state, *net, [&] { net->propagation->Forget(); },
        [&] {
            net->propagation->Update();
            ReadAllBeliefs(*net);
        });
}

void FreshFindings(benchmark::State& state, std::shared_ptr<Net> net)
{
    std::mt19937 random(7);
    std::vector<std::pair<int, int>> findings;
    auto prepare = [&] {
        net->propagation->ClearFindings();
        findings.clear();
        for (int v = 0; v < int(net->graph.variables.size()); ++v) {
            if (random() % 10 != 0) continue;
            net->propagation->UpdateFor(v);
            findings.emplace_back(v, LikelyState(*net, v));
            net->propagation->SetPositive(v, findings.back().second);
        }
        net->propagation->ClearFindings();
        net->propagation->Update();
    };
    Measure(state, *net, prepare, [&] {
        for (auto [v, s] : findings) net->propagation->SetPositive(v, s);
        net->propagation->Update();
        ReadAllBeliefs(*net);
    });
    net->propagation->ClearFindings();
}

void OneMore(benchmark::State& state, std::shared_ptr<Net> net, bool all)
{
    std::mt19937 random(8);
    const unsigned size = unsigned(net->graph.variables.size());
    int changed = -1, likely = 0, asked = 0;
    auto prepare = [&] {
        if (changed >= 0) net->propagation->SetPositive(changed, -1);
        net->propagation->Update();
        changed = int(random() % size);
        asked = int(random() % size);
        likely = LikelyState(*net, changed);
    };
    Measure(state, *net, prepare, [&] {
        net->propagation->SetPositive(changed, likely);
        if (all) {
            net->propagation->Update();
            ReadAllBeliefs(*net);
        } else {
            net->propagation->UpdateFor(asked);
            net->propagation->Belief(asked, net->belief.data());
        }
    });
    net->propagation->ClearFindings();
}

// Sixteen cases at once, each with its own findings on a tenth of the variables: the time of one case, with
// all beliefs; and of one case alone, each from what the case before it left.
void Batch(benchmark::State& state, std::shared_ptr<Net> net, bool together)
{
    constexpr int kCases = BatchPropagation::kCases;
    if (!BatchPropagation::Suits(net->graph, net->tree)) return state.SkipWithError("too large for batches");
    const DenormalsOff mode;
    CaseInference::Wanted wanted;
    for (int v = 0; v < int(net->graph.variables.size()); ++v) wanted.beliefs.push_back(v);
    BatchPropagation batch(
        net->graph, net->tree, [&](int v) { return net->tables[size_t(v)].data(); }, wanted);
    std::mt19937 random(9);
    std::vector<std::vector<int32_t>> states(kCases);
    std::vector<CaseFindings> cases(kCases);
    net->propagation->ClearFindings();
    net->propagation->Update();
    auto prepare = [&] {
        for (int k = 0; k < kCases; ++k) {
            states[size_t(k)].assign(wanted.beliefs.size(), -1);
            for (int v : wanted.beliefs)
                if (random() % 10 == 0) states[size_t(k)][size_t(v)] = LikelyState(*net, v);
            cases[size_t(k)].states = states[size_t(k)].data();
        }
    };
    Measure(state, *net, prepare, [&] {
        if (together) batch.Run(cases);
        for (int k = 0; k < kCases; ++k) {
            if (!together) {
                for (int v : wanted.beliefs) net->propagation->SetPositive(v, cases[size_t(k)].states[v]);
                net->propagation->Update();
                ReadAllBeliefs(*net);
                continue;
            }
            for (int v : wanted.beliefs) batch.Belief(k, v, net->belief.data());
        }
    });
    for (const char* name : {"U", "per_ns"}) state.counters[name] = state.counters[name] / kCases;
    net->propagation->ClearFindings();
    net->propagation->Update();
}

const bool registered = [] {
    const std::string folder = test::CorpusFolder();
    if (folder.empty()) return false;
    for (const auto& entry : std::filesystem::directory_iterator(folder + "/nets")) {
        const std::string name = entry.path().stem();
        if (entry.path().extension() != ".dne" || name == "mushroom_empty") continue;
        for (const bool optimize : {false, true}) {
            // Nets are read when they are first measured.
            auto shared = std::make_shared<std::shared_ptr<Net>>();
            auto add = [&](const char* what, auto run) {
                auto with_net = [=, path = entry.path().string()](benchmark::State& state) {
                    if (*shared == nullptr) *shared = Load(path, optimize);
                    run(state, *shared);
                };
                const std::string full_name =
                    std::string(optimize ? "BestOrder/" : "Propagate/") + name + "/" + what;
                benchmark::RegisterBenchmark(full_name.c_str(), with_net)
                    ->UseManualTime()
                    ->Unit(benchmark::kMicrosecond);
            };
            add("join", Join);
            add("first", First);
            add("full", Full);
            add("findings", FreshFindings);
            add("one_more", [](auto& state, auto net) { OneMore(state, net, true); });
            add("one_belief", [](auto& state, auto net) { OneMore(state, net, false); });
            add("cases_one_by_one", [](auto& state, auto net) { Batch(state, net, false); });
            add("cases_together", [](auto& state, auto net) { Batch(state, net, true); });
        }
    }
    return true;
}();

}  // namespace
