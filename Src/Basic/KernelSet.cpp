// Chooses the instruction set of the kernels.
#include "Basic/KernelSet.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace talora {

namespace {

KernelSet BestOfProcessor()
{
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512dq"))
        return KernelSet::kAvx512;
    if (__builtin_cpu_supports("avx2")) return KernelSet::kAvx2;
#endif
    return KernelSet::kPlain;
}

KernelSet Choose()
{
    const char* asked = std::getenv("TALORA_KERNELS");
    const std::string_view name = asked == nullptr ? "" : asked;
    const KernelSet most = name == "plain"  ? KernelSet::kPlain
                           : name == "avx2" ? KernelSet::kAvx2
                                            : KernelSet::kAvx512;
    return std::min(most, BestOfProcessor());
}

}  // namespace

KernelSet ChosenKernelSet()
{
    static const KernelSet set = Choose();
    return set;
}

}  // namespace talora
