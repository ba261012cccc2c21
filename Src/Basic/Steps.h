// Steps of work that reading takes, counted where it goes over its input or over what the input made.
//
// Tests and fuzzers hold them against the size of the input: unlike time they are the same on every machine and
// on every run.  One step is about a byte looked at.
#pragma once

#include <cstdint>

namespace talora {

inline constinit thread_local uint64_t steps_taken = 0;

inline void CountSteps(uint64_t count)
{
    steps_taken += count;
}

// More steps than that for an input of so many bytes are a fault: something is gone through again and again.
constexpr uint64_t MostSteps(uint64_t bytes)
{
    constexpr uint64_t kFree = 64 << 20, kPerByte = 64;
    return kFree + kPerByte * bytes;
}

}  // namespace talora
