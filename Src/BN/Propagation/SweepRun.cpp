// Runs plans of sweeps with the kernels of the chosen instruction set.
#include <algorithm>
#include <bit>

#include "BN/Propagation/Sweep.h"
#include "Basic/KernelSet.h"
#include "Basic/Progress.h"

#if defined(__x86_64__) && !defined(__clang__)
#include <immintrin.h>
#endif

// Vectors are only passed to functions that are compiled into their caller.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace talora {

namespace {

using Lanes = float __attribute__((vector_size(64)));
using EightLanes = float __attribute__((vector_size(32)));
using FourLanes = float __attribute__((vector_size(16)));
using LaneIndexes = int32_t __attribute__((vector_size(64)));
using Places = uint16_t __attribute__((vector_size(32)));

// Vectors at any place in memory.  As structures: clang takes a vector type of its own for aligned whatever
// it is said to be.
struct LanesInMemory {
    Lanes lanes;
} __attribute__((packed, may_alias));
struct PlacesInMemory {
    Places places;
} __attribute__((packed, may_alias));

constexpr int64_t kPollEntries = 1 << 20;  // between two looks at the halt flag

bool GoesOn(const SweepScratch& scratch, double share)
{
    return scratch.go_on ? scratch.go_on(share) : !IsHalted();
}

#define TALORA_SWEEP_PERMUTES 0
namespace plain {
#include "BN/Propagation/SweepKernels.inc"
}

#if defined(__x86_64__) && !defined(__clang__)  // which has no such pragmas
#define TALORA_SWEEP_SETS 1
#pragma GCC push_options
#pragma GCC target("avx2")
namespace avx2 {
#include "BN/Propagation/SweepKernels.inc"
}
#pragma GCC pop_options
#pragma GCC push_options
#pragma GCC target("avx512f,avx512vl,avx512bw,avx512dq,prefer-vector-width=512")
#undef TALORA_SWEEP_PERMUTES
#define TALORA_SWEEP_PERMUTES 1
namespace avx512 {
#include "BN/Propagation/SweepKernels.inc"
}
#pragma GCC pop_options
#endif

struct Kernels {
    decltype(&plain::Run) run;
    decltype(&plain::Largest) largest;
    decltype(&plain::Scale) scale;
};

Kernels ChooseKernels()
{
#ifdef TALORA_SWEEP_SETS
    if (ChosenKernelSet() == KernelSet::kAvx512) return {avx512::Run, avx512::Largest, avx512::Scale};
    if (ChosenKernelSet() == KernelSet::kAvx2) return {avx2::Run, avx2::Largest, avx2::Scale};
#endif
    return {plain::Run, plain::Largest, plain::Scale};
}

const Kernels& ChosenKernels()
{
    static const Kernels kernels = ChooseKernels();
    return kernels;
}

// What was in it is lost.
template <class Vector>
void GrowTo(Vector& vector, size_t size)
{
    if (vector.size() >= size) return;
    Vector().swap(vector);
    vector = Vector(size);
}

// Places of the outputs, each with room behind; those that are summed in doubles get zeroed doubles.
void PlaceOutputs(const SweepPlan& plan, SweepScratch& scratch)
{
    size_t entries = 0, wide = 0;
    for (const SweepOutput& output : plan.outputs) {
        entries += size_t(output.size) + kSweepPadding;
        if (output.wide) wide += size_t(output.size);
    }
    GrowTo(scratch.results, entries);
    GrowTo(scratch.wide, wide);
    std::fill_n(scratch.wide.begin(), wide, 0.0);
    GrowTo(scratch.output, plan.outputs.size());
    GrowTo(scratch.wide_output, plan.outputs.size());
    float* place = scratch.results.data();
    double* wide_place = scratch.wide.data();
    for (size_t o = 0; o < plan.outputs.size(); ++o) {
        scratch.output[o] = place;
        scratch.wide_output[o] = wide_place;
        place += plan.outputs[o].size + kSweepPadding;
        if (plan.outputs[o].wide) wide_place += plan.outputs[o].size;
    }
}

}  // namespace

bool RunSweep(const SweepPlan& plan, std::span<const float* const> factors, std::span<const char> wanted,
              float boost, SweepScratch& scratch, bool maximise)
{
    PlaceOutputs(plan, scratch);
    GrowTo(scratch.buffers, size_t(plan.num_buffers + plan.num_outputs + 3) * size_t(plan.Stride()));
    GrowTo(scratch.views, size_t(plan.num_buffers));
    scratch.offsets.assign(size_t(plan.num_factors + plan.num_outputs), 0);
    scratch.indexes.assign(plan.loop_sizes.size(), 0);
    scratch.sums.assign(size_t(plan.num_outputs), {});
    if (!ChosenKernels().run(plan, factors.data(), wanted.empty() ? nullptr : wanted.data(), boost, maximise,
                             scratch))
        return false;
    for (size_t o = 0; o < plan.outputs.size(); ++o)
        if (plan.outputs[o].wide && (wanted.empty() || wanted[o]))
            std::copy_n(scratch.wide_output[o], plan.outputs[o].size, scratch.output[o]);
    return true;
}

int ScaleByExponent(float* entries, int64_t count)
{
    constexpr int kLargeExponent = 120;  // beyond it the factor would be a denormal number
    constexpr int kBias = 126;           // of the exponent, for a fraction in [0.5, 1)
    const Kernels& kernels = ChosenKernels();
    const int exponent = int(kernels.largest(entries, count) >> 23) - kBias;
    if (exponent == -kBias) return kVanished;
    if (exponent > kLargeExponent) {
        kernels.scale(entries, count, 0x1p-64f);
        return 64 + ScaleByExponent(entries, count);
    }
    if (exponent != 0)
        kernels.scale(entries, count, std::bit_cast<float>(uint32_t(kBias + 1 - exponent) << 23));
    return exponent;
}

}  // namespace talora
