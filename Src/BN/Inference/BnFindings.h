// Entering and retracting findings, with every check against what is entered and the model.
//
// A positive finding is a state; a negative or soft one is a likelihood vector, into which further
// ones multiply.  Both may stand together: the likelihood of the entered state then still counts.
#pragma once

#include "BN/Model/Bnet.h"

namespace talora {

enum class FindingMode {
    STRICT,  // must agree with what the node holds and is combined with it
    REPLACE  // overwrites what is there; UNDEF_STATE retracts the positive finding
};

void EnterFinding(Node& node, int state, FindingMode mode);
void EnterFindingNot(Node& node, int state);
void EnterLikelihood(Node& node, const float* likelihood);
void EnterValue(Node& node, double value);
void EnterCalibration(Node& node, const float* beliefs);
void EnterGaussian(Node& node, double mean, double std_dev);
void EnterInterval(Node& node, double low, double high);
void RetractFindings(Node& node);
void RetractFindings(Net& net);

// What the finding of a node amounts to, per state: the likelihood, cut to the state entered.  Written
// to num_states floats.
void CombinedLikelihood(const Node& node, float* likelihood);

// The state that findings at its parents force on a node with a deterministic table, or -1.
int StateFromParents(const Node& node);

}  // namespace talora
