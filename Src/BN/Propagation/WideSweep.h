// Sweeps beyond the range of floats: the product of tables over the variables of a clique summed onto a
// subset, in doubles, and where their range does not do either in numbers with exponents of their own.
//
// They are for the few sweeps in which Sweep.h has flushed a product of factors that are not 0, or that have
// a factor with entries beyond the range of floats.  One configuration after another, leaving out all that
// begin with a product of 0; some thirty times slower than a sweep of floats.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "BN/Propagation/WideNumber.h"

namespace talora {

// A table whose axes are the bits of `axes`, last fastest.  Entries are at most 1.
struct WideFactor {
    uint64_t axes = 0;
    const float* entries = nullptr;
    const WideNumber* wide = nullptr;  // in place of them where floats cannot hold them
};

struct WideOutput {
    uint64_t axes = 0;
    int excluded = -1;            // factor left out of the product
    double kept_from = 0;         // products below this were lost in the sweep of floats
    std::span<const char> asked;  // the entries that are wanted, the others stay 0; empty: all
};

struct WideSums {
    std::vector<WideNumber> entries;
    // Whether what was lost makes a difference: more than a thousand-millionth of some entry.
    bool lost = false;
};

// With `maximise` an entry is the largest product in place of the sum.  `go_on` is asked now and then.
// False: halted.
bool RunWideSweep(std::span<const int> sizes, std::span<const WideFactor> factors, const WideOutput& output,
                  bool maximise, const std::function<bool()>& go_on, WideSums& sums);

}  // namespace talora
