#include "Talora/Main.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "BN/Bnet.h"
#include "Basic/Error.h"
#include "Basic/Stream.h"

namespace talora {

std::string VersionText()
{
    char text[MESG_LEN_vx];
    snprintf(text, sizeof text, "%s %s, %s (%s)", kProduct, kVersionText, "C++20 engine", "GCC or Clang, " __VERSION__);
    return text;
}

std::string InitEnviron(environ_vx& env)
{
    switch (env.state) {
        case CREATED_ENV: break;
        case READY_ENV: Fail(5630, "%s environment already initialized", kProduct);
        case CLOSED_ENV: Fail(5631, "Attempt to initialize %s environment (which was closed), without first calling NewTaloraEnviron_vx", kProduct);
        case PARTIAL_ENV: Fail(5632, "Attempt to initialize %s environment which is already partially initialized", kProduct);
    }
    env.state = PARTIAL_ENV;
    std::string banner = VersionText() + ".  Bayesian belief networks and decision networks.\n";
    TALORA_CHECK(banner.size() < MESG_LEN_vx);
    env.state = READY_ENV;
    return banner;
}

void CloseEnviron(environ_vx* env) noexcept
{
    env->state = PARTIAL_ENV;
    for (net_bn* net : std::vector<net_bn*>(env->nets)) DeleteNet(net);
    for (nodelist_bn* list : std::vector<nodelist_bn*>(env->lists)) DeleteNodeList(list);
    DeleteStreams(*env);
    while (!env->random_gens.empty()) DeleteRandomGen(env->random_gens.back());
    ClearReportsOf(env);
    env->state = CLOSED_ENV;
    ReleaseEnviron(env);
}

}  // namespace talora
