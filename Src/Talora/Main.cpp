// The life of an environment: made ready, locked as a whole, closed with all that is in it.
#include "Talora/Main.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "BN/Learning/Learner.h"
#include "BN/Model/Bnet.h"
#include "Basic/Error.h"
#include "Basic/Stream.h"
#include "Talora/APICheck.h"
#include "VarVal/Caseset.h"
#include "VarVal/DbManager.h"

namespace talora {

namespace {

#if defined(__clang__)
constexpr const char* kCompiler = __VERSION__;  // names itself
#else
constexpr const char* kCompiler = "GCC " __VERSION__;
#endif

template <class T>
void AddLocks(const std::vector<T*>& objects, std::vector<RecursiveLock*>& locks)
{
    for (const T* object : objects) locks.push_back(object->header.Lock());
}

// Lists have no locks of their own; testers and measurers have their net's.
std::vector<RecursiveLock*> LocksOf(environ_vx& env)
{
    std::vector<RecursiveLock*> locks;
    const std::lock_guard guard(env.mutex);
    AddLocks(env.nets, locks);
    AddLocks(env.streams, locks);
    AddLocks(env.random_gens, locks);
    AddLocks(env.casesets, locks);
    AddLocks(env.dbmgrs, locks);
    AddLocks(env.learners, locks);
    return locks;
}

}  // namespace

std::string VersionText()
{
    char text[MESG_LEN_vx];
    snprintf(text, sizeof text, "%s %s, %s (%s)", kProduct, kVersionText, "C++20 engine", kCompiler);
    return text;
}

std::string InitEnviron(environ_vx& env)
{
    switch (env.state) {
        case CREATED_ENV:
            break;
        case READY_ENV:
            Fail<5630>(kProduct);
        case CLOSED_ENV:  // only for the moment in which it is closed
        case PARTIAL_ENV:
            Fail<5660>(kProduct);
    }
    // Made first: should memory run out, the environment can still be initialised.
    std::string banner = VersionText() + ".  Bayesian belief networks and decision networks.\n";
    TALORA_CHECK(banner.size() < MESG_LEN_vx);
    env.state = READY_ENV;
    return banner;
}

// All or none: while it waits for one lock it holds no other, not even the process-wide one.
EnvironLocks::EnvironLocks(environ_vx* env)
{
    if (Concurrency() != LOCK_PER_NET) return;
    while (IsLive(env, ENVIRON_TYPE)) {
        const std::vector<RecursiveLock*> locks = LocksOf(*env);
        held_.reserve(locks.size());
        size_t taken = 0;
        while (taken < locks.size() && locks[taken]->TryEnter()) held_.push_back(locks[taken++]);
        if (taken == locks.size()) return;
        for (; !held_.empty(); held_.pop_back()) held_.back()->Leave();
        ProcessLock().Leave();
        if (locks[taken]->Enter()) locks[taken]->Leave();
        TALORA_CHECK(ProcessLock().Enter());
    }
}

EnvironLocks::~EnvironLocks()
{
    for (RecursiveLock* lock : held_) lock->Leave();
}

// What refers to others goes before them: nets and learners refer to generators.
void CloseEnviron(environ_vx* env) noexcept
{
    env->state = PARTIAL_ENV;
    while (!env->nets.empty()) DeleteNet(env->nets.back());
    while (!env->lists.empty()) DeleteNodeList(env->lists.back());
    DeleteLearners(*env);
    DeleteCasesets(*env);
    DeleteDbManagers(*env);
    DeleteStreams(*env);
    while (!env->random_gens.empty()) DeleteRandomGen(env->random_gens.back());
    ClearReportsOf(env);
    env->state = CLOSED_ENV;
    ReleaseEnviron(env);
}

}  // namespace talora
