// Random numbers: generators whose sequence is fixed by their seed.
//
// xorshift1024*, its sixteen words filled from the seed by SplitMix64.  The environment has one that
// starts from seed 0, so that a program that does nothing about it gets the same numbers every time;
// draws from it are made under its lock.  A generator of a net or learner is not locked: it belongs
// to the thread that uses that net.
//
// Vigna (2016), An experimental exploration of Marsaglia's xorshift generators, scrambled; Steele,
// Lea, Flood (2014), Fast splittable pseudorandom number generators.
#pragma once

#include <bit>
#include <cstdint>
#include <string>

#include "Basic/Handle.h"

struct environ_vx;

namespace talora {

struct RandomState {
    uint64_t words[16];
    int index;
};

constexpr int64_t kClockSeed = -1;

constexpr RandomState SeededState(uint64_t seed)
{
    RandomState state{};
    for (uint64_t& word : state.words) {
        seed += 0x9E3779B97F4A7C15u;
        uint64_t z = seed;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        word = z ^ (z >> 31);
    }
    return state;
}

inline uint64_t NextWord(RandomState& state)
{
    const uint64_t s0 = state.words[state.index];
    state.index = (state.index + 1) & 15;
    uint64_t s1 = state.words[state.index];
    s1 ^= s1 << 31;
    s1 = s1 ^ s0 ^ (s1 >> 11) ^ (s0 >> 30);
    state.words[state.index] = s1;
    return s1 * 0x106689D45497FDB5u;
}

inline uint32_t NextInteger(RandomState& state)
{
    return static_cast<uint32_t>(NextWord(state) >> 32);
}

// Uniform in [0, 1): the upper 52 bits as the mantissa of a number in [1, 2), less 1.
inline double NextUniform(RandomState& state)
{
    return std::bit_cast<double>((NextWord(state) >> 12) | 0x3FF0000000000000u) - 1.0;
}

// Uniform in (0, 1]: 1 in place of 0, so that it has a logarithm.
inline double NextPositive(RandomState& state)
{
    const double u = NextUniform(state);
    return u == 0 ? 1.0 : u;
}

// The seed that a text of decimal digits stands for; "-1" asks for the clock.
int64_t ParseSeed(const char* text);

// kClockSeed becomes the time in seconds (0 in the environment's reproducible mode) plus a count of
// such seedings, so that two generators made in one second differ.
RandomState NewState(int64_t seed, bool reproducible);

// The state as text: the index, then sixteen words in hexadecimal, blanks between.
std::string DescribeState(const RandomState& state);

// The lock of the environments' own generators; taken last, and for short.
RecursiveLock& RandomLock();

// Holds that lock while it lives; null for a generator that no other thread can use.
class RandomScope {
public:
    explicit RandomScope(RecursiveLock* lock);
    ~RandomScope();
    RandomScope(const RandomScope&) = delete;
    RandomScope& operator=(const RandomScope&) = delete;

private:
    RecursiveLock* lock_;
};

}  // namespace talora

struct randgen_vx {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    talora::RandomState state{};
    std::string text;  // given out last
};

namespace talora {

// Owned by the environment, which frees those that are left when it closes.
randgen_vx* NewRandomGen(environ_vx& env, int64_t seed);
void DeleteRandomGen(randgen_vx* generator) noexcept;

}  // namespace talora
