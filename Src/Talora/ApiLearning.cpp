// Interface functions: learning tables from cases.
#include "BN/Learner.h"
#include "Talora/APICheck.h"

using namespace talora;

learner_bn* NewLearner_bn(int method, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<learner_bn*>(nullptr), [&](environ_vx& owner) {
        if (method < COUNTING_METHOD || method > GRADIENT_METHOD)
            Fail(5632, "argument 'method' is out-of-range (%d)", method);
        return NewLearner(owner, method);
    });
}

void DeleteLearner_bn(learner_bn* learner)
{
    if (learner == nullptr) return;
    CallApi(__func__, learner, [&] { DeleteLearner(learner); });
}
