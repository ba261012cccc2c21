// Likelihood findings and their products.
//
// A node may get any number of readings.  Their product leaves the range of single precision soon, and states
// that it makes improbable must be able to recover, so from the second reading on it is kept with exponents
// of its own (NodeFinding::product); the vector of floats beside it is what callers and files get.
#pragma once

#include "BN/Model/Bnet.h"

namespace talora {

// Whether a likelihood is exactly 0 at a state.
bool IsRuledOut(const NodeFinding& finding, int state);

// Multiplies one more likelihood into a finding.  @return whether a state is left that is not ruled out
bool MultiplyIn(NodeFinding& finding, const float* likelihood, int num_states);

// A likelihood as inference takes it: in the middle of the range of single precision.
struct InferenceWeights {
    TableVector<float> weights;  // empty for none
    double log_scale = 0;        // natural log of the factor that was taken out
};
InferenceWeights WeightsForInference(const NodeFinding& finding);

// The sum of log_scale over all nodes of a net.
double LogLikelihoodScale(const Net& net);

}  // namespace talora
