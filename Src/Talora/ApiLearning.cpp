// Interface functions: learning tables from cases.
#include <cmath>
#include <utility>

#include "BN/Learning/Learner.h"
#include "BN/Learning/LrnCPTs.h"
#include "Basic/Stream.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// The nodes of a list, live and of one net.
const std::vector<node_bn*>& NodesToLearn(const nodelist_bn& list)
{
    for (const node_bn* node : list.nodes)
        if (node->net != list.nodes[0]->net) Fail<6601>(list.nodes[0]->name.c_str(), node->name.c_str());
    return list.nodes;
}

void CheckIsNumber(double degree)
{
    if (!std::isfinite(degree)) Fail<6602>(degree);
}

}  // namespace

learner_bn* NewLearner_bn(int method, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<learner_bn*>(nullptr), [&](environ_vx& owner) {
        if (method < COUNTING_METHOD || method > GRADIENT_METHOD) Fail<5632>(method);
        return NewLearner(owner, method);
    });
}

void DeleteLearner_bn(learner_bn* learner)
{
    if (learner == nullptr) return;
    CallApi(__func__, learner, [&] { DeleteLearner(learner); });
}

int SetLearnerMaxIters_bn(learner_bn* learner, int max_iters)
{
    return CallApi(__func__, learner, -1, [&] {
        if (max_iters < 0) Fail<6596>(max_iters);
        return std::exchange(learner->max_iters, max_iters);
    });
}

int GetLearnerMaxIters_bn(const learner_bn* learner)
{
    return CallApi(__func__, learner, -1, [&] { return learner->max_iters; });
}

double SetLearnerMaxTol_bn(learner_bn* learner, double tol)
{
    return CallApi(__func__, learner, -1.0, [&] {
        if (!(tol >= 0)) Fail<6597>(tol);
        return std::exchange(learner->tolerance, tol);
    });
}

double GetLearnerMaxTol_bn(const learner_bn* learner)
{
    return CallApi(__func__, learner, -1.0, [&] { return learner->tolerance; });
}

void SetLearnerRandomGen_bn(learner_bn* learner, randgen_vx* generator)
{
    CallApi(__func__, With(learner, Read(generator)), [&] {
        if (generator != nullptr) {
            CheckHandle(generator);
            if (generator->env != learner->env) Fail<6598>();
        }
        learner->random_gen = generator;
    });
}

randgen_vx* GetLearnerRandomGen_bn(const learner_bn* learner)
{
    return CallApi(__func__, learner, static_cast<randgen_vx*>(nullptr),
                   [&] { return learner->random_gen.load(); });
}

void LearnCPTs_bn(learner_bn* learner, const nodelist_bn* nodes, const caseset_cs* cases, double degree)
{
    // Learning takes long: it holds the lock of the net, not the one for what has no net.
    if (!CallApi(__func__, learner, false, [] { return true; })) return;
    CallApi2(__func__, With(nodes, EntriesOf(nodes), cases), learner, [&] {
        CheckHandle(cases);
        if (cases == nullptr) return;
        if (!(degree >= 0)) Fail<6599>(degree);
        CheckIsNumber(degree);
        LearnTables(*learner, NodesToLearn(*nodes), *cases, degree);
    });
}

int64_t GetLearnerNumCases_bn(const learner_bn* learner)
{
    return CallApi(__func__, learner, int64_t{-1}, [&] { return learner->num_cases; });
}

int GetLearnerNumIterations_bn(const learner_bn* learner)
{
    return CallApi(__func__, learner, -1, [&] { return int(learner->history.size()); });
}

double GetLearnerIteration_bn(const learner_bn* learner, int iteration, double* change)
{
    return CallApi(__func__, learner, UndefDbl(), [&] {
        const int num = int(learner->history.size());
        if (iteration < 0 || iteration >= num) Fail<6600>(iteration, num);
        const LearnIteration& known = learner->history[size_t(iteration)];
        if (change != nullptr) *change = known.change;
        return known.minus_log_likelihood;
    });
}

void ReviseCPTsByFindings_bn(const nodelist_bn* nodes, double degree)
{
    CallApi(__func__, With(nodes, EntriesOf(nodes)), [&] {
        CheckIsNumber(degree);
        ReviseByFindings(NodesToLearn(*nodes), degree);
    });
}

// A case set of its own, on the stack, lets the file go the way of every other.
void ReviseCPTsByCaseFile_bn(const nodelist_bn* nodes, const stream_vx* file, double degree)
{
    CallApi2(__func__, With(nodes, EntriesOf(nodes)), file, [&] {
        CheckIsNumber(degree);
        Caseset cases;
        cases.env = file->env;
        AddFileToCaseset(cases, *file, 1, false);
        LearnByCounting(NodesToLearn(*nodes), cases, degree, false);
    });
}
