// Products and sums of the tables of a small tree (SmallTree.h), for each instruction set.
#pragma once

#include <cstdint>

namespace talora {

// How the entries of a table stand in one over more variables.
enum class SmallShape : uint8_t {
    kTail,     // it is the last axes: the same run of entries again and again
    kRuns,     // runs of entries, each from its own place
    kRepeats,  // runs of one and the same entry, each from its own place
    kEntries   // every entry from its own place
};

struct SmallSpread {
    SmallShape shape = SmallShape::kTail;
    int size = 1;  // entries of the smaller table
    int run = 1;
    int places = 0;  // per run, or per entry, its place in the smaller table
    int from = 0;    // per entry of the smaller table those that add up to it; not of kTail
};

struct SmallKernels {
    void (*multiply)(float* out, const float* in, int n, const SmallSpread& spread, const uint16_t* places,
                     const float* other);
    void (*sum_onto)(float* out, const float* in, int n, const SmallSpread& spread, const uint16_t* places);
    void (*sum_rows)(float* out, const float* in, int rows, int run, const float* other);
    void (*divide)(float* out, const float* above, const float* sent, int n);
};

extern const SmallKernels kPlainSmallKernels;
#if defined(__x86_64__)
extern const SmallKernels kAvx2SmallKernels, kAvx512SmallKernels;
#endif

}  // namespace talora
