// The kernels of small trees for the instruction set of this file's flags.
#include "BN/Propagation/SmallKernels.h"

// Vectors are only passed to functions that are compiled into their caller.
#pragma GCC diagnostic ignored "-Wpsabi"

#if defined(__x86_64__)
namespace talora {

namespace {
namespace avx512 {
#include "BN/Propagation/SmallKernels.inc"
}
}  // namespace

constexpr SmallKernels kAvx512SmallKernels = {avx512::Multiply, avx512::SumOnto, avx512::SumRows,
                                              avx512::Divide};

}  // namespace talora
#endif
