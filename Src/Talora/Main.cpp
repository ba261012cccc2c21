#include "Talora/Main.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "BN/Bnet.h"
#include "BN/Learner.h"
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
            Fail(5630, "%s environment already initialized", kProduct);
        case CLOSED_ENV:  // only for the moment in which it is closed
        case PARTIAL_ENV:
            Fail(5660, "Attempt to initialize %s environment which is already partially initialized",
                 kProduct);
    }
    // Made first: should memory run out, the environment can still be initialised.
    std::string banner = VersionText() + ".  Bayesian belief networks and decision networks.\n";
    TALORA_CHECK(banner.size() < MESG_LEN_vx);
    env.state = READY_ENV;
    return banner;
}

void CloseEnviron(environ_vx* env) noexcept
{
    env->state = PARTIAL_ENV;
    while (!env->nets.empty()) {
        net_bn* net = env->nets.back();
        const NetLockScope lock(net->header.Lock());  // another thread may be at work on it
        DeleteNet(net);
    }
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
