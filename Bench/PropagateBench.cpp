// Propagation over generated nets and those of the folder named by TALORA_CORPUS: joining the tree, all
// beliefs anew, all beliefs after other findings on a tenth of the variables, after one finding more, and one
// belief after one finding more; and cases by the sixteen.  "BestOrder" is the same with an order that was
// searched for.
//
// "U" is the time of a run in units of the time that this machine, in the same run, needs to sum once
// an array of as many floats as the tree has entries.  "per" is the time per message and belief.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>

#include "BN/Propagation/PropagateBatch.h"
#include "Basic/FloatMode.h"
#include "BenchTree.h"

namespace {

using namespace talora;
using namespace talora::bench;
using Net = BenchTree;

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
        const Stopwatch watch;
        run();
        const double taken = watch.Seconds();
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
    Measure(
        state, *net, [&] { fresh.reset(); },
        [&] {
            fresh = std::make_unique<Propagation>(net->graph, net->tree, net->Source());
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
        findings = FindingsOnATenth(*net, random);
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
    CaseResults wanted;
    for (int v = 0; v < int(net->graph.variables.size()); ++v) wanted.beliefs.push_back(v);
    BatchPropagation batch(net->graph, net->tree, net->Source(), wanted);
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
    for (const NetSource& source : AllNets()) {
        for (const bool optimize : {false, true}) {
            auto shared = std::make_shared<std::shared_ptr<Net>>();
            auto add = [&](const char* what, auto run) {
                auto with_net = [=](benchmark::State& state) {
                    if (*shared == nullptr) *shared = MakeBenchTree(source.load(), optimize ? 2 : 0);
                    if ((*shared)->propagation == nullptr) return state.SkipWithError("too large a tree");
                    run(state, *shared);
                };
                const std::string name = (optimize ? "BestOrder/" : "Propagate/") + source.name + "/" + what;
                benchmark::RegisterBenchmark(name.c_str(), with_net)
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
