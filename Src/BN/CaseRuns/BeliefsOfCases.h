// Beliefs under findings that are handed over as numbers, for one case or many.
#pragma once

#include <span>

#include "BN/Model/Bnet.h"

namespace talora {

// `states` has a row per case with an entry per node of `known`, negative for not known.  A row of `beliefs`
// gets the entries of one node of `asked` after another, and `log_probabilities`, unless null, the natural
// logarithm of the probability of the case's findings; an impossible case has -infinity there and nan for
// beliefs.  Compiles the net if it is not compiled; its own findings are neither used nor changed.  Fails
// before anything is written if a node takes no part in inference or a state is too large.
//
// One case after another goes on from the one before, also of the last call; many cases of a small tree go
// sixteen at a time (CaseInference.h).
void BeliefsOfCases(Net& net, std::span<Node* const> known, const int* states, int num_cases,
                    std::span<Node* const> asked, float* beliefs, double* log_probabilities);

}  // namespace talora
