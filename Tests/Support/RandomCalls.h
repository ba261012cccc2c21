// Sequences of calls made from bytes: any interface functions on a net that is at hand, about one argument in
// ten a handle that is NULL, deleted or foreign, indices and texts of the hostile kind among the others.
//
// After each call every net is valid, and a call that failed has left everything as it was.  In the end
// beliefs equal enumeration, and undoing goes back through the very nets that there were, and redoing forth
// again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace talora {

constexpr int64_t kCallsMemoryLimit = 64 << 20;  // of the library, while calls are made

struct CallsOptions {
    void (*check)(bool holds, const char* promise);  // does not return when the promise is broken
    bool (*is_wanted)(const char* function) =
        nullptr;  // which functions are called; nullptr: all that can be
};

// Makes up to 200 calls, in an environment of its own.  @return whether they came to their end: what takes
// long is halted
bool MakeRandomCalls(const uint8_t* data, size_t size, const CallsOptions& options);

}  // namespace talora
