// Sensitivity to findings: how much a finding at each of some nodes is expected to change beliefs in a query
// node.
//
// A measurer belongs to its net and is deleted with it.  The first question computes, for each state of the
// query node that is possible, the beliefs of all varying nodes under that state: one propagation per state
// however many nodes vary.  By Bayes' rule they give what a finding at a varying node would make of the
// query node.  The results stay until something changes the beliefs of the net.  The findings of the net are
// never touched: the state is tried in the propagation alone (TryState, BnUpdating.h).
//
// In the definitions s is a state of the query node, t a state of the varying node that is possible,
// probabilities are given the findings of the net, and x (s) is the real value of a state.
//
// Pearl (1988), Probabilistic Reasoning in Intelligent Systems, section 6.4 on the value of evidence;
// Cover & Thomas (2006), Elements of Information Theory, chapter 2.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Handle.h"
#include "Basic/Memory.h"

struct sensv_bn {
    talora::HandleHeader header;
    net_bn* net = nullptr;
    node_bn* query = nullptr;  // null when it was deleted and cannot come back
    nodelist_bn varying;       // the caller's list as it was, null for nodes that cannot come back
    int what_find = 0;         // flags BELIEF_SENSV ...
    // What stands for infinite ends of the query node's intervals; undefined for nothing.
    double lower_bound = talora::UndefDbl(), upper_bound = talora::UndefDbl();

    bool is_computed = false;
    uint64_t computed_at = 0;     // the net's update count
    std::vector<double> beliefs;  // of the query node
    double entropy = talora::UndefDbl();
    double belief_variance = talora::UndefDbl();
    // Of each varying node, P (t | s), one row per state of the query node (not used where that state is
    // impossible); empty for a node whose findings change no belief.
    std::vector<talora::TableVector<float>> given;
    std::unordered_map<const node_bn*, int> place;  // in varying

    std::string report;  // text given out last
};

namespace talora {

using Sensv = sensv_bn;

Sensv* NewSensv(Node& query, const std::vector<Node*>& varying, int what_find);
void DeleteSensv(Sensv* sensv) noexcept;
// What stands for the ends of the query node's intervals that are infinite.
void SetRealBounds(Sensv& sensv, double lower, double upper);

// ---- Measures.  Each computes first what has become stale, and fails when its flag was not given at the
// creation.  The varying node is one of the list, or the query node itself.  Undefined for a node without
// states.

// Of the query node alone: minus the sum of P(s) log2 P(s), and the sum of P(s) (1 - P(s))^2.
double QueryEntropy(Sensv& sensv);
double QueryBeliefVariance(Sensv& sensv);

// Sum of P(s, t) log2 (P(t | s) / P(t)), in bits.
double MutualInfo(Sensv& sensv, const Node& varying);
// Sum of P(s, t) (P(s | t) - P(s))^2.
double BeliefVarianceReduction(Sensv& sensv, const Node& varying);
// Largest P(s | t) divided by the smallest; 1 if no finding changes it, infinite if one rules s out.
double SensitivityRatio(Sensv& sensv, const Node& varying, int state);

// How a figure of the query node changes with the findings at the varying node.
struct FindingEffect {
    double amount = 0;               // expected size: sum of P(t) |change (t)|
    double variance = 0;             // sum of P(t) change (t)^2; the expected change is 0
    double least = 0, greatest = 0;  // of change (t), with their signs
};
enum EffectPart : unsigned { AMOUNT_PART = 1, VARIANCE_PART = 2, RANGE_PART = 4 };  // what is asked for
// Of P(s): change (t) is P(s | t) - P(s).
FindingEffect BeliefChange(Sensv& sensv, const Node& varying, int state, unsigned parts);
// Of the mean of the real value: change (t) is the sum of x (s) P(s | t), less the mean.
FindingEffect RealChange(Sensv& sensv, const Node& varying, unsigned parts);
// The variance part of that, which is the expected reduction of the variance of the real value.
double RealVarianceReduction(Sensv& sensv, const Node& varying);

// ---- For reports ----
void BringUpToDate(Sensv& sensv);
bool HasRealValues(const Node& node);  // every state has one, if infinite ends are given a bound
double QueryMean(Sensv& sensv);

}  // namespace talora
