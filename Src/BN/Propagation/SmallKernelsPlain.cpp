// The kernels of small trees for the instruction set of this file's flags.
#include "BN/Propagation/SmallKernels.h"

// Vectors are only passed to functions that are compiled into their caller.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace talora {

namespace {
namespace plain {
#include "BN/Propagation/SmallKernels.inc"
}
}  // namespace

constexpr SmallKernels kPlainSmallKernels = {plain::Multiply, plain::SumOnto, plain::SumRows, plain::Divide};

}  // namespace talora
