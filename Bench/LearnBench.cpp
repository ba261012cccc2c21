// Learning the tables of the net `alarm` in the folder named by TALORA_CORPUS from cases drawn from it:
// counting blocks in memory, counting a file in memory, an iteration of expectation maximisation with a tenth
// of the entries missing, and how the divergence from the true tables falls with the number of cases.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "BN/Learning/LearnData.h"
#include "BN/Learning/LrnCPTs.h"
#include "Talora.h"

namespace {

using namespace talora;

environ_vx* Environ()
{
    static environ_vx* env = [] {
        environ_vx* made = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(made, nullptr);
        return made;
    }();
    return env;
}

net_bn* ReadAlarm()
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    if (corpus == nullptr) return nullptr;
    stream_vx* file = NewFileStream_vx((std::string(corpus) + "/nets/alarm.dne").c_str(), Environ(), nullptr);
    net_bn* net = ReadNet_bn(file, NO_VISUAL_INFO);
    SetNetAutoUpdate_bn(net, 0);
    DeleteStream_vx(file);
    return net;
}

caseset_cs* DrawCases(net_bn* net, int count, double percent_missing)
{
    stream_vx* file = NewMemoryStream_vx("drawn.cas", Environ(), nullptr);
    WriteRandomCases_bn(GetNetNodes2_bn(net, nullptr), file, count, FORWARD_SAMPLING, 1000, percent_missing);
    caseset_cs* cases = NewCaseset_cs("", Environ());
    AddFileToCaseset_cs(cases, file, 1, nullptr);
    DeleteStream_vx(file);
    return cases;
}

void ForgetTables(net_bn* net)
{
    for (node_bn* node : GetNetNodes2_bn(net, nullptr)->nodes) DeleteNodeTables_bn(node);
}

void CountBlocks(benchmark::State& state)
{
    net_bn* net = ReadAlarm();
    if (net == nullptr) return state.SkipWithError("TALORA_CORPUS is not set");
    const caseset_cs* cases = DrawCases(net, 100000, 0);
    const auto& nodes = GetNetNodes2_bn(net, nullptr)->nodes;
    CaseReader reader(*cases, nodes);
    std::vector<CaseBlock> blocks(1);
    int64_t rows = 0;
    while (reader.Next(blocks.back())) {
        rows += blocks.back().num_cases;
        blocks.emplace_back();
    }
    blocks.pop_back();
    std::vector<FamilyCounter> counters;
    for (Node* node : nodes) counters.emplace_back(FamilyIn(*node, nodes));
    for (auto _ : state)
        for (const CaseBlock& block : blocks)
            for (FamilyCounter& counter : counters) counter.Add(block, nullptr, nullptr);
    state.counters["cases/s"] =
        benchmark::Counter(double(rows) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["families/s"] = benchmark::Counter(
        double(rows) * double(counters.size()) * double(state.iterations()), benchmark::Counter::kIsRate);
    DeleteNet_bn(net);
}
BENCHMARK(CountBlocks)->Unit(benchmark::kMillisecond);

void CountFile(benchmark::State& state)
{
    net_bn* net = ReadAlarm();
    if (net == nullptr) return state.SkipWithError("TALORA_CORPUS is not set");
    const int count = int(state.range(0));
    const caseset_cs* cases = DrawCases(net, count, 0);
    learner_bn* learner = NewLearner_bn(1, Environ());
    for (auto _ : state) {
        ForgetTables(net);
        LearnCPTs_bn(learner, GetNetNodes2_bn(net, nullptr), cases, 1);
    }
    state.counters["cases/s"] =
        benchmark::Counter(double(count) * double(state.iterations()), benchmark::Counter::kIsRate);
    DeleteNet_bn(net);
}
BENCHMARK(CountFile)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(2);

void ExpectationIteration(benchmark::State& state)
{
    net_bn* net = ReadAlarm();
    if (net == nullptr) return state.SkipWithError("TALORA_CORPUS is not set");
    const int count = 20000;
    const caseset_cs* cases = DrawCases(net, count, double(state.range(0)));
    LearnData data(*net, GetNetNodes2_bn(net, nullptr)->nodes, *cases, 1);
    const TableSet tables = data.StartTables(nullptr);
    std::vector<Counts> counts;
    Progress progress("bench");
    double likelihood = 0;
    for (auto _ : state) data.Evaluate(tables, &counts, &likelihood, progress, 0);
    state.counters["s/case"] = benchmark::Counter(double(count) * double(state.iterations()),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    DeleteNet_bn(net);
}
BENCHMARK(ExpectationIteration)->Arg(10)->Arg(30)->Unit(benchmark::kMillisecond);

// n x divergence from the true tables stays about constant.
void LearningCurve(benchmark::State& state)
{
    net_bn* net = ReadAlarm();
    if (net == nullptr) return state.SkipWithError("TALORA_CORPUS is not set");
    const auto& nodes = GetNetNodes2_bn(net, nullptr)->nodes;
    const int count = int(state.range(0));
    const caseset_cs* cases = DrawCases(net, count, 0);
    std::vector<TableVector<float>> truth;
    for (const Node* node : nodes) truth.push_back(node->tables.probs);
    const LearnData data(*net, nodes, *cases, 1);
    double divergence = 0;
    for (auto _ : state) {
        ForgetTables(net);
        for (Node* node : nodes) {  // every row is seen at least as a prior of one case
            std::vector<state_bn> every(node->links.size() + 1, EVERY_STATE);
            SetNodeExperience_bn(node, every.data(), 1);
        }
        LearnCPTs_bn(NewLearner_bn(1, Environ()), GetNetNodes2_bn(net, nullptr), cases, 1);
        divergence = 0;
        for (size_t i = 0; i < nodes.size(); ++i) {
            const NodeTables& learned = nodes[i]->tables;
            const size_t n = size_t(NumStates(*nodes[i]));
            for (size_t at = 0; at < truth[i].size(); ++at)
                if (truth[i][at] > 0)
                    divergence += (learned.experience[at / n] - 1) / count * double(truth[i][at]) *
                                  std::log(double(truth[i][at]) / double(learned.probs[at]));
        }
    }
    state.counters["divergence"] = divergence;
    state.counters["times_n"] = divergence * count;
    DeleteNet_bn(net);
}
BENCHMARK(LearningCurve)->RangeMultiplier(10)->Range(100, 1000000)->Iterations(1);

}  // namespace
