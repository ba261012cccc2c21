// Sensitivity of one node to all others in a net of 1,000 nodes, as a ratio to updates of the same net in the
// same run: "updates" counts updates of all beliefs after one finding has changed, with the beliefs read. The
// promise is the number of states and two more.
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "Talora.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNumNodes = 1000;

class Fixture {
public:
    // Each node has two parents among the four before it; the query node, in the middle, has so many states.
    explicit Fixture(int query_states)
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(env_, nullptr);
        net = NewNet_bn("Bench", env_);
        std::mt19937 random(1);
        for (int i = 0; i < kNumNodes; ++i) {
            const int num_states = i == kNumNodes / 2 ? query_states : 2 + int(random() % 3);
            nodes.push_back(NewNode_bn(("N" + std::to_string(i)).c_str(), num_states, net));
            int rows = 1;
            for (const int back : {1 + int(random() % 2), 3 + int(random() % 2)}) {
                if (back > i) continue;
                AddLink_bn(nodes[size_t(i - back)], nodes[size_t(i)]);
                rows *= GetNodeNumberStates_bn(nodes[size_t(i - back)]);
            }
            SetNodeTable_bn(nodes[size_t(i)], Table(random, rows, num_states).data(), rows * num_states);
        }
        query = nodes[kNumNodes / 2];
        CompileNet_bn(net);
        UpdateNetBeliefs_bn(net);
    }
    ~Fixture() { CloseTalora_bn(env_, nullptr); }

    double SecondsToUpdate(int turn)
    {
        const auto start = Clock::now();
        RetractNodeFindings_bn(query);
        EnterFinding_bn(query, turn % 2);
        UpdateNetBeliefs_bn(net);
        for (node_bn* node : nodes) benchmark::DoNotOptimize(GetNodeBeliefs_bn(node)[0]);
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    net_bn* net;
    std::vector<node_bn*> nodes;
    node_bn* query;

private:
    static std::vector<prob_bn> Table(std::mt19937& random, int rows, int num_states)
    {
        std::exponential_distribution<float> weight;
        std::vector<prob_bn> table;
        for (int row = 0; row < rows; ++row) {
            std::vector<prob_bn> entries;
            float sum = 0;
            for (int s = 0; s < num_states; ++s) sum += entries.emplace_back(weight(random) + 0.01f);
            for (const prob_bn entry : entries) table.push_back(entry / sum);
        }
        return table;
    }

    environ_vx* env_;
};

void BM_SensitivityToAll(benchmark::State& state)
{
    Fixture fixture(int(state.range(0)));
    double update = 0;
    constexpr int kUpdates = 20;
    for (int turn = 0; turn < kUpdates; ++turn) update += fixture.SecondsToUpdate(turn) / kUpdates;
    RetractNetFindings_bn(fixture.net);
    UpdateNetBeliefs_bn(fixture.net);
    double seconds = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        sensv_bn* sensv =
            NewSensvToFinding_bn(fixture.query, GetNetNodes2_bn(fixture.net, nullptr), ENTROPY_SENSV);
        for (const node_bn* node : fixture.nodes) benchmark::DoNotOptimize(GetMutualInfo_bn(sensv, node));
        DeleteSensvToFinding_bn(sensv);
        seconds += std::chrono::duration<double>(Clock::now() - start).count();
    }
    state.counters["updates"] = seconds / double(state.iterations()) / update;
    state.counters["update_ms"] = update * 1e3;
}
BENCHMARK(BM_SensitivityToAll)->ArgName("states")->Arg(2)->Arg(4)->Arg(8);

}  // namespace
