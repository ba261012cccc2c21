// Sequences of interface calls from bytes (Support/RandomCalls.h), within the limit of memory.
#include "Basic/Memory.h"
#include "Fuzz/Harness.h"
#include "Support/RandomCalls.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int64_t tables_before = talora::MemoryInUse();
    fuzz::ResetPeak();
    talora::MakeRandomCalls(data, size, {fuzz::Check});
    fuzz::Check(fuzz::HeapPeak() <= talora::kCallsMemoryLimit + fuzz::kMemoryAllowance,
                "memory stays within the limit");
    fuzz::Check(talora::MemoryInUse() == tables_before, "no table is left behind");
    return 0;
}
