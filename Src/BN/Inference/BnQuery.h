// Beliefs of a few nodes of a net, found without its junction tree, from the part that matters for them.
//
// A net that has been asked so keeps its NetQueries: the model by numbers, and the small trees of the last
// questions.  A change of structure, states or kinds discards it, like the junction tree.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/Bnet.h"
#include "BN/Propagation/TargetedQuery.h"

namespace talora {

struct NetQueries {
    CompiledNet model;  // the graph and the tables alone
    std::unique_ptr<TargetedQuery> query;
    std::vector<float> beliefs;  // given out last
};

// The findings entered, by variable of a model; likelihoods are put into weights, one for each variable.
ModelFindings FindingsOf(const CompiledNet& model, std::vector<TableVector<float>>& weights);

// The beliefs of the nodes under the findings entered, one node after another; valid until asked again.
// Fails for nodes without beliefs, and where the findings that matter contradict one another.
// @param log_probability  receives that of all findings, which takes longer; may be null
const float* QueryBeliefs(Net& net, std::span<Node* const> nodes, double* log_probability);

}  // namespace talora
