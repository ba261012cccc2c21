#include <algorithm>

#include "BN/Sweep.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

constexpr int64_t kPollEntries = 1 << 20;  // between two looks at the halt flag

namespace plain {
#include "BN/SweepKernels.inc"
}

#if defined(__x86_64__)
#define TALORA_SWEEP_SETS 1
#pragma GCC push_options
#pragma GCC target("avx2")
namespace avx2 {
#include "BN/SweepKernels.inc"
}
#pragma GCC pop_options
#pragma GCC push_options
#pragma GCC target("avx512f,avx512vl,avx512bw,avx512dq,prefer-vector-width=512")
namespace avx512 {
#include "BN/SweepKernels.inc"
}
#pragma GCC pop_options
#endif

using RunFunction = decltype(&plain::Run);

RunFunction ChooseRun()
{
#ifdef TALORA_SWEEP_SETS
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512dq"))
        return avx512::Run;
    if (__builtin_cpu_supports("avx2")) return avx2::Run;
#endif
    return plain::Run;
}

// What was in it is lost.
template <class Vector>
void GrowTo(Vector& vector, size_t size)
{
    if (vector.size() >= size) return;
    Vector().swap(vector);
    vector = Vector(size);
}

// Places of the outputs; those that are summed in doubles get zeroed doubles beside.
void PlaceOutputs(const SweepPlan& plan, SweepScratch& scratch)
{
    size_t entries = 0, wide = 0;
    for (int o = 0; o < plan.num_outputs; ++o) {
        entries += size_t(plan.output_size[size_t(o)]);
        if (plan.flush_steps[size_t(o)] != 0) wide += size_t(plan.output_size[size_t(o)]);
    }
    GrowTo(scratch.results, entries);
    GrowTo(scratch.wide, wide);
    std::fill_n(scratch.wide.begin(), wide, 0.0);
    GrowTo(scratch.output, size_t(plan.num_outputs));
    GrowTo(scratch.wide_output, size_t(plan.num_outputs));
    float* place = scratch.results.data();
    double* wide_place = scratch.wide.data();
    for (size_t o = 0; o < size_t(plan.num_outputs); ++o) {
        scratch.output[o] = place;
        scratch.wide_output[o] = wide_place;
        place += plan.output_size[o];
        if (plan.flush_steps[o] != 0) wide_place += plan.output_size[o];
    }
}

}  // namespace

bool RunSweep(const SweepPlan& plan, std::span<const float* const> factors, std::span<const char> wanted,
              float boost, SweepScratch& scratch)
{
    static const RunFunction run = ChooseRun();
    PlaceOutputs(plan, scratch);
    GrowTo(scratch.buffers, size_t(plan.num_buffers + plan.num_outputs) * size_t(plan.block));
    GrowTo(scratch.views, size_t(plan.num_buffers));
    scratch.offsets.assign(size_t(plan.num_factors + plan.num_outputs), 0);
    scratch.indexes.assign(plan.loop_sizes.size(), 0);
    scratch.sums.assign(size_t(plan.num_outputs), {});
    if (!run(plan, factors.data(), wanted.empty() ? nullptr : wanted.data(), boost, scratch)) return false;
    for (size_t o = 0; o < size_t(plan.num_outputs); ++o)
        if (plan.flush_steps[o] != 0 && (wanted.empty() || wanted[o]))
            std::copy_n(scratch.wide_output[o], plan.output_size[o], scratch.output[o]);
    return true;
}

}  // namespace talora
