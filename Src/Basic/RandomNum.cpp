// Random generators as objects: seeds, their state as text, their lock.
#include "Basic/RandomNum.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <ctime>

#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/MultiThread.h"

namespace talora {

namespace {

std::atomic<int64_t> clock_seedings{0};

// Never destroyed: stale handles may be looked at until the process ends.
HandlePool<randgen_vx, RANDGEN_TYPE>& Generators()
{
    static auto* pool = new HandlePool<randgen_vx, RANDGEN_TYPE>;
    return *pool;
}

}  // namespace

int64_t ParseSeed(const char* text)
{
    int64_t seed = 0;
    const char* const end = text + strlen(text);
    const auto [stop, problem] = std::from_chars(text, end, seed);
    if (problem != std::errc() || stop != end) Fail<6404>();
    if (seed < 0 && seed != kClockSeed) Fail<6405>(static_cast<long long>(seed));
    return seed;
}

// Seeds from the clock are counted on top of it, so that two in the same second differ.
RandomState NewState(int64_t seed, bool reproducible)
{
    if (seed == kClockSeed)
        seed = (reproducible ? 0 : static_cast<int64_t>(time(nullptr))) + ++clock_seedings;
    return SeededState(static_cast<uint64_t>(seed));
}

std::string DescribeState(const RandomState& state)
{
    std::string text = std::to_string(state.index);
    for (const uint64_t word : state.words) {
        char digits[16];
        const auto [end, problem] = std::to_chars(digits, digits + sizeof digits, word, 16);
        text += ' ' + std::string(digits, end);
    }
    return text;
}

RecursiveLock& RandomLock()
{
    static auto* lock = new RecursiveLock;
    return *lock;
}

// A handler may be called while an equation draws; hence the refusal, as for the locks of a call.
RandomScope::RandomScope(RecursiveLock* lock) : lock_(lock)
{
    if (lock_ != nullptr && !lock_->Enter()) Fail<5683>();
}

RandomScope::~RandomScope()
{
    if (lock_ != nullptr) lock_->Leave();
}

randgen_vx* NewRandomGen(environ_vx& env, int64_t seed)
{
    const std::lock_guard guard(env.mutex);
    env.random_gens.reserve(env.random_gens.size() + 1);
    randgen_vx* generator = Generators().NewWithLock();
    generator->env = &env;
    generator->state = NewState(seed, env.reproducible);
    env.random_gens.push_back(generator);
    return generator;
}

void DeleteRandomGen(randgen_vx* generator) noexcept
{
    const std::lock_guard guard(generator->env->mutex);
    auto& all = generator->env->random_gens;
    all.erase(std::remove(all.begin(), all.end(), generator), all.end());
    Generators().ReleaseWithLock(generator);
}

}  // namespace talora
