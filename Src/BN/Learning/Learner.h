// Learners: which method learns tables from cases, and when it stops.
//
// A learner belongs to its environment.
#pragma once

#include <cstdint>
#include <vector>

#include "Basic/Environ.h"
#include "Basic/Handle.h"
#include "Basic/Memory.h"

namespace talora {

enum LearnMethod { COUNTING_METHOD = 1, MINDEP_METHOD = 2, EM_METHOD = 3, GRADIENT_METHOD = 4 };

// What an iterative method knew when an iteration began.
struct LearnIteration {
    double minus_log_likelihood = 0;
    double change = UndefDbl();  // relative, since the iteration before; undefined for the first
};

}  // namespace talora

struct learner_bn {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    int method = talora::COUNTING_METHOD;
    int max_iters = 1000;
    double tolerance = 1e-5;  // relative change of the negative log-likelihood
    // The caller's, breaks the symmetry of hidden nodes; null: nothing does.
    std::atomic<randgen_vx*> random_gen{nullptr};

    // Of the learning done last.
    std::vector<talora::LearnIteration> history;
    int64_t num_cases = 0;  // read
};

namespace talora {

using Learner = learner_bn;

Learner* NewLearner(environ_vx& env, int method);
void DeleteLearner(Learner* learner) noexcept;
void DeleteLearners(environ_vx& env) noexcept;  // all of an environment

}  // namespace talora
