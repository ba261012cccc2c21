#include "VarVal/Caseset.h"

#include <algorithm>

#include "Basic/Environ.h"

namespace talora {

namespace {

HandlePool<caseset_cs, CASESET_TYPE>& Casesets()
{
    static auto* pool = new HandlePool<caseset_cs, CASESET_TYPE>;
    return *pool;
}

}  // namespace

Caseset* NewCaseset(environ_vx& env, std::string_view name)
{
    std::string copy(name);
    const std::lock_guard guard(env.mutex);
    env.casesets.reserve(env.casesets.size() + 1);
    Caseset* cases = Casesets().New(nullptr);
    cases->env = &env;
    cases->name = std::move(copy);
    env.casesets.push_back(cases);
    return cases;
}

void DeleteCaseset(Caseset* cases) noexcept
{
    environ_vx& env = *cases->env;
    const std::lock_guard guard(env.mutex);
    env.casesets.erase(std::remove(env.casesets.begin(), env.casesets.end(), cases), env.casesets.end());
    Casesets().Release(cases);
}

void DeleteCasesets(environ_vx& env) noexcept
{
    while (!env.casesets.empty()) DeleteCaseset(env.casesets.back());
}

}  // namespace talora
