// Case sets: lists of sources, files or contents of streams.
#include "VarVal/Caseset.h"

#include <unistd.h>

#include <algorithm>

#include "Basic/Environ.h"
#include "Basic/Stream.h"

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
    Caseset* cases = Casesets().NewWithLock();
    cases->env = &env;
    cases->name = std::move(copy);
    env.casesets.push_back(cases);
    return cases;
}

// Files that the set has made itself go with it.
void DeleteCaseset(Caseset* cases) noexcept
{
    environ_vx& env = *cases->env;
    const std::lock_guard guard(env.mutex);
    for (const CaseSource& source : cases->sources)
        if (source.is_temporary) unlink(source.name.c_str());
    env.casesets.erase(std::remove(env.casesets.begin(), env.casesets.end(), cases), env.casesets.end());
    Casesets().ReleaseWithLock(cases);
}

void DeleteCasesets(environ_vx& env) noexcept
{
    while (!env.casesets.empty()) DeleteCaseset(env.casesets.back());
}

// A file is kept by name, the contents of a memory stream as a copy.
void AddFileToCaseset(Caseset& cases, const stream_vx& file, double degree, bool skips_misfits)
{
    CaseSource source;
    source.name = file.name;
    source.in_memory = file.in_memory;
    source.degree = degree;
    source.skips_misfits = skips_misfits;
    if (file.in_memory) {
        CheckMemory(double(file.contents.size()), "to add the cases of >-FileSpec %s to a >-caseset_cs",
                    file.name.c_str());
        source.contents = file.contents;
    }
    cases.sources.push_back(std::move(source));
}

}  // namespace talora
