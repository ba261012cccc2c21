// The kernels of small trees for the instruction set of this file's flags.
#include "BN/Propagation/SmallKernels.h"

// Vectors are only passed to functions that are compiled into their caller.
#pragma GCC diagnostic ignored "-Wpsabi"

#if defined(__x86_64__)
namespace talora {

namespace {
namespace avx2 {
#include "BN/Propagation/SmallKernels.inc"
}
}  // namespace

constexpr SmallKernels kAvx2SmallKernels = {avx2::Multiply, avx2::SumOnto, avx2::SumRows, avx2::Divide};

}  // namespace talora
#endif
