// Reading case files of state names: bytes per second through a reader, the file in memory.
#include <benchmark/benchmark.h>

#include <string>

#include "BN/Model/BnBasicOps1.h"
#include "Talora.h"
#include "VarVal/Caseset.h"

namespace talora {
namespace {

// A net of so many nodes, each with the states low, normal, high and very_high.
Net& MakeNet(environ_vx& env, int num_nodes)
{
    Net& net = *NewNet(env, "Bench");
    for (int i = 0; i < num_nodes; ++i)
        SetStateNames(*AddNode(net, "Node" + std::to_string(i), 4), {"low", "normal", "high", "very_high"});
    return net;
}

std::string MakeCases(const Net& net, char delimiter, size_t bytes)
{
    std::string text;
    for (const Node* node : net.nodes.nodes) text += node->name + delimiter;
    text.back() = '\n';
    uint64_t random = 1;
    while (text.size() < bytes) {
        for (const Node* node : net.nodes.nodes) {
            random = random * UINT64_C(6364136223846793005) + 1442695040888963407;
            text += StateName(*node, int(random >> 62)) + delimiter;
        }
        text.back() = '\n';
    }
    return text;
}

void ReadNames(benchmark::State& state, char delimiter, int num_nodes)
{
    environ_vx* env = NewTaloraEnviron_vx("bench", nullptr);
    InitTalora2_bn(env, nullptr);
    const Net& net = MakeNet(*env, num_nodes);
    Caseset* cases = NewCaseset(*env, "");
    CaseSource source;
    source.name = "bench.cas";
    source.in_memory = true;
    source.contents = MakeCases(net, delimiter, 32 << 20);
    const size_t bytes = source.contents.size();
    cases->sources.push_back(std::move(source));
    CaseReader reader(*cases, net.nodes.nodes);
    CaseBlock block;
    int64_t num_cases = 0;
    for (auto _ : state) {
        reader.Rewind();
        while (reader.Next(block)) num_cases += block.num_cases;
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.SetItemsProcessed(num_cases);
    CloseTalora_bn(env, nullptr);
}

BENCHMARK_CAPTURE(ReadNames, tabs_8_columns, '\t', 8);
BENCHMARK_CAPTURE(ReadNames, tabs_37_columns, '\t', 37);
BENCHMARK_CAPTURE(ReadNames, commas_37_columns, ',', 37);
BENCHMARK_CAPTURE(ReadNames, blanks_37_columns, ' ', 37);
BENCHMARK_CAPTURE(ReadNames, tabs_400_columns, '\t', 400);

}  // namespace
}  // namespace talora
