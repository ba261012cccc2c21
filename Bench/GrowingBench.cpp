// Edits one after another, of which none should get dearer: read each pair of sizes as time per edit.
#include <benchmark/benchmark.h>

#include "GrowingJobs.h"

namespace {

void BM_Growing(benchmark::State& state)
{
    const growing::Job& job = growing::kJobs[state.range(0)];
    const int n = int(state.range(1));
    for (auto _ : state) {
        state.PauseTiming();
        growing::Ground ground = growing::Prepared(job, n);
        state.ResumeTiming();
        job.run(ground, n);
        state.PauseTiming();
        CloseTalora_bn(ground.env, nullptr);
        state.ResumeTiming();
    }
    state.SetLabel(job.label);
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_Growing)
    ->ArgNames({"job", "n"})
    ->ArgsProduct({benchmark::CreateDenseRange(0, int(std::size(growing::kJobs)) - 1, 1), {1000, 8000}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
