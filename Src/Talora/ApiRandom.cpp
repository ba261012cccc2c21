// Interface functions: random generators.
#include <cmath>
#include <mutex>
#include <span>

#include "BN/Learning/Learner.h"
#include "BN/Model/Bnet.h"
#include "BN/Sampling/MakeCases.h"
#include "Basic/RandomNum.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// A draw from a generator, or from the default environment's under its lock.
template <class Result, Result (*Next)(RandomState&)>
Result DrawFrom(const char* function, randgen_vx* generator)
{
    if (generator != nullptr)
        return CallApi(function, generator, Result(), [&] { return Next(generator->state); });
    return CallEnviron(function, nullptr, Result(), [&](environ_vx& env) {
        const RandomScope guard(&RandomLock());
        return Next(env.random);
    });
}

// Nets and learners that use a generator go back to the environment's.  False, and nothing done, if a call in
// whose handler this one is made may be drawing from it.
bool DetachGenerator(const randgen_vx& generator)
{
    const std::lock_guard guard(generator.env->mutex);
    for (const net_bn* net : generator.env->nets)
        if (net->random_gen == &generator && IsAtWork(*net)) return false;
    for (net_bn* net : generator.env->nets)
        if (net->random_gen == &generator) net->random_gen = nullptr;
    for (learner_bn* learner : generator.env->learners)
        if (learner->random_gen == &generator) learner->random_gen = nullptr;
    return true;
}

}  // namespace

randgen_vx* NewRandomGenerator_vx(const char* seed, environ_vx* env, const char* options)
{
    return CallEnviron(__func__, env, static_cast<randgen_vx*>(nullptr), [&](environ_vx& owner) {
        CheckNoOptions(options);
        return NewRandomGen(owner, ParseSeed(TextArgument(seed).c_str()));
    });
}

void DeleteRandomGen_vx(randgen_vx* generator)
{
    if (generator == nullptr) return;
    CallApi(__func__, generator, [&] {
        if (!DetachGenerator(*generator)) FailAtWork();
        DeleteRandomGen(generator);
    });
}

const char* GetRandomGenState_vx(randgen_vx* generator)
{
    return CallApi(__func__, generator, static_cast<const char*>(nullptr), [&] {
        generator->text = DescribeState(generator->state);
        return generator->text.c_str();
    });
}

uint32_t DrawRandomInteger_vx(randgen_vx* generator)
{
    return DrawFrom<uint32_t, NextInteger>(__func__, generator);
}

double DrawRandomUniform_vx(randgen_vx* generator)
{
    return DrawFrom<double, NextUniform>(__func__, generator);
}

void SetReproducibleRandom_vx(environ_vx* env, bool_vx reproducible)
{
    CallEnviron(__func__, env, [&](environ_vx& owner) { owner.reproducible = reproducible != 0; });
}

bool_vx GetReproducibleRandom_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, bool_vx(0),
                       [&](environ_vx& owner) { return owner.reproducible.load(); });
}

void SetNetRandomGen_bn(net_bn* net, randgen_vx* generator)
{
    CallApi(__func__, With(net, Read(generator)), [&] {
        if (generator != nullptr) {
            CheckHandle(generator);
            if (generator->env != net->env) Fail<6421>(net->name.c_str());
        }
        net->random_gen = generator;
    });
}

randgen_vx* GetNetRandomGen_bn(const net_bn* net)
{
    return CallApi(__func__, net, static_cast<randgen_vx*>(nullptr), [&] { return net->random_gen.load(); });
}

int GenerateRandomCase_bn(const nodelist_bn* nodes, int method, double maxtries)
{
    return CallApi(__func__, With(nodes, EntriesOf(nodes)), -1, [&] {
        GenerateRandomCase(nodes->nodes, method, maxtries);
        return 0;
    });
}

double WriteRandomCases_bn(const nodelist_bn* nodes, stream_vx* file, double num_cases, int method,
                           double maxtries, double percent_missing)
{
    return CallApi2(__func__, With(nodes, EntriesOf(nodes)), file, -1.0, [&] {
        if (!(num_cases >= 0 && num_cases <= 9e15)) Fail<6679>(num_cases);
        return static_cast<double>(WriteRandomCases(nodes->nodes, *file, static_cast<int64_t>(num_cases),
                                                    method, maxtries, percent_missing));
    });
}

double WriteEveryCase_bn(const nodelist_bn* nodes, stream_vx* file)
{
    return CallApi2(__func__, With(nodes, EntriesOf(nodes)), file, -1.0,
                    [&] { return static_cast<double>(WriteEveryCase(nodes->nodes, *file)); });
}
