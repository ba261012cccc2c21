// What recording adds to an edit: read each pair with and without undo as a ratio.
#include <benchmark/benchmark.h>

#include <string>

#include "Talora.h"

namespace {

class Fixture {
public:
    explicit Fixture(bool undo)
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(env_, nullptr);
        net = NewNet_bn("Bench", env_);
        for (int i = 0; i < 8; ++i) nodes[i] = NewNode_bn(("N" + std::to_string(i)).c_str(), 3, net);
        for (int i = 0; i < 5; ++i) AddLink_bn(nodes[i], nodes[7]);
        const state_bn every[] = {EVERY_STATE, EVERY_STATE, EVERY_STATE, EVERY_STATE, EVERY_STATE};
        SetNodeProbs_bn(nodes[7], every, kRows[0]);
        if (undo) SetNetNumUndos_bn(net, 1000, 1e8, nullptr);
    }
    ~Fixture() { CloseTalora_bn(env_, nullptr); }

    static constexpr prob_bn kRows[2][3] = {{0.5f, 0.25f, 0.25f}, {0.25f, 0.25f, 0.5f}};
    net_bn* net;
    node_bn* nodes[8];

private:
    environ_vx* env_;
};

void BM_SetRow(benchmark::State& state)
{
    Fixture fixture(state.range(0) != 0);
    const state_bn row[] = {1, 2, 0, 1, 2};
    int turn = 0;
    for (auto _ : state) SetNodeProbs_bn(fixture.nodes[7], row, Fixture::kRows[++turn & 1]);
}
BENCHMARK(BM_SetRow)->ArgName("undo")->Arg(0)->Arg(1);

void BM_AddAndDeleteLink(benchmark::State& state)
{
    Fixture fixture(state.range(0) != 0);
    for (auto _ : state) {
        AddLink_bn(fixture.nodes[6], fixture.nodes[7]);
        DeleteLink_bn(5, fixture.nodes[7]);
    }
}
BENCHMARK(BM_AddAndDeleteLink)->ArgName("undo")->Arg(0)->Arg(1);

// An edit taken back and done again: no copying, so as cheap as the edit.
void BM_UndoRedoLink(benchmark::State& state)
{
    Fixture fixture(true);
    AddLink_bn(fixture.nodes[6], fixture.nodes[7]);
    for (auto _ : state) {
        UndoNetLastOper_vx(fixture.net, -1);
        RedoNetOper_vx(fixture.net, -1);
    }
}
BENCHMARK(BM_UndoRedoLink);

}  // namespace
