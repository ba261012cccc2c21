// Learners: their settings, and their place in the environment.
#include "BN/Learning/Learner.h"

#include <algorithm>

namespace talora {

namespace {

HandlePool<learner_bn, LEARNER_TYPE>& Learners()
{
    static auto* pool = new HandlePool<learner_bn, LEARNER_TYPE>;
    return *pool;
}

}  // namespace

Learner* NewLearner(environ_vx& env, int method)
{
    const std::lock_guard guard(env.mutex);
    env.learners.reserve(env.learners.size() + 1);
    Learner* learner = Learners().NewWithLock();
    learner->env = &env;
    learner->method = method;
    env.learners.push_back(learner);
    return learner;
}

void DeleteLearner(Learner* learner) noexcept
{
    environ_vx& env = *learner->env;
    const std::lock_guard guard(env.mutex);
    env.learners.erase(std::remove(env.learners.begin(), env.learners.end(), learner), env.learners.end());
    Learners().ReleaseWithLock(learner);
}

void DeleteLearners(environ_vx& env) noexcept
{
    while (!env.learners.empty()) DeleteLearner(env.learners.back());
}

}  // namespace talora
