// Interface functions: findings, beliefs and the probability of findings.
#include <cmath>

#include "BN/CaseRuns/BeliefsOfCases.h"
#include "BN/Inference/BnFindings.h"
#include "BN/Inference/BnQuery.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Talora/APICheck.h"

using namespace talora;

void EnterFinding_bn(node_bn* node, state_bn state)
{
    CallApi(__func__, node, [&] {
        CheckState(*node, state);
        EnterFinding(*node, state, FindingMode::STRICT);
    });
}

void EnterFindingNot_bn(node_bn* node, state_bn state)
{
    CallApi(__func__, node, [&] {
        CheckState(*node, state);
        EnterFindingNot(*node, state);
    });
}

void EnterNodeLikelihood_bn(node_bn* node, const prob_bn* likelihood)
{
    CallApi(__func__, node, [&] {
        if (likelihood == nullptr) Fail<6054>(node->name.c_str());
        EnterLikelihood(*node, likelihood);
    });
}

void EnterNodeValue_bn(node_bn* node, double value)
{
    CallApi(__func__, node, [&] { EnterValue(*node, value); });
}

void EnterNodeCalibration_bn(node_bn* node, const prob_bn* calibration)
{
    CallApi(__func__, node, [&] {
        if (calibration == nullptr) Fail<6055>(node->name.c_str());
        EnterCalibration(*node, calibration);
    });
}

void EnterGaussianFinding_bn(node_bn* node, double mean, double std_dev)
{
    CallApi(__func__, node, [&] { EnterGaussian(*node, mean, std_dev); });
}

void EnterIntervalFinding_bn(node_bn* node, double low, double high)
{
    CallApi(__func__, node, [&] { EnterInterval(*node, low, high); });
}

void RetractNodeFindings_bn(node_bn* node)
{
    CallApi(__func__, node, [&] { RetractFindings(*node); });
}

void RetractNetFindings_bn(net_bn* net)
{
    CallApi(__func__, net, [&] { RetractFindings(*net); });
}

state_bn GetNodeFinding_bn(const node_bn* node)
{
    return CallApi(__func__, node, int(UNDEF_STATE),
                   [&] { return node->finding.state < 0 ? int(UNDEF_STATE) : node->finding.state; });
}

// Computed into room that the node keeps, so that the pointer stays valid.
const prob_bn* GetNodeLikelihood_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const prob_bn*>(nullptr), [&]() -> const prob_bn* {
        TableVector<float>& likelihood = const_cast<Node*>(node)->likelihood;
        if (!HasStates(*node)) return nullptr;
        likelihood.resize(NumStates(*node));
        CombinedLikelihood(*node, likelihood.data());
        return likelihood.data();
    });
}

double GetNodeValueEntered_bn(const node_bn* node)
{
    return CallApi(__func__, node, UndefDbl(), [&] { return node->finding.value; });
}

bool_vx HasNodeFinding_bn(const node_bn* node)
{
    return CallApi(__func__, node, 0, [&] { return !node->finding.IsEmpty(); });
}

const prob_bn* GetNodeBeliefs_bn(node_bn* node)
{
    return CallApi(__func__, node, static_cast<const prob_bn*>(nullptr), [&] { return GetBeliefs(*node); });
}

const prob_bn* QueryBeliefs_bn(const nodelist_bn* nodes, double* log_probability)
{
    if (log_probability) *log_probability = UndefDbl();
    return CallApi(__func__, With(nodes, EntriesOf(nodes)), static_cast<const prob_bn*>(nullptr),
                   [&]() -> const prob_bn* {
                       if (nodes->nodes.empty()) return nullptr;
                       Net& net = NetOfAll(nodes);
                       return QueryBeliefs(net, nodes->nodes, log_probability);
                   });
}

int GetBeliefsOfCases_bn(const nodelist_bn* known, const state_bn* states, int num_cases,
                         const nodelist_bn* asked, prob_bn* beliefs, double* log_probabilities)
{
    return CallApi2(__func__, With(asked, EntriesOf(asked), EntriesOf(known)), known, -1, [&] {
        if (num_cases < 0) Fail<7401>(num_cases);
        if (num_cases == 0 || asked->nodes.empty()) return num_cases;
        if (states == nullptr && !known->nodes.empty()) Fail<7402>("states");
        if (beliefs == nullptr) Fail<7402>("beliefs");
        Net& net = NetOfAll(asked);
        if (!known->nodes.empty() && &NetOfAll(known) != &net)
            Fail<6881>(known->nodes[0]->name.c_str(), asked->nodes[0]->name.c_str());
        BeliefsOfCases(net, known->nodes, states, num_cases, asked->nodes, beliefs, log_probabilities);
        return num_cases;
    });
}

double GetNodeExpectedValue_bn(node_bn* node, double* std_dev)
{
    if (std_dev) *std_dev = UndefDbl();
    return CallApi(__func__, node, UndefDbl(), [&] { return ExpectedValue(*node, std_dev); });
}

double GetNodeStateValue_bn(const node_bn* node, state_bn state)
{
    return CallApi(__func__, node, UndefDbl(), [&] {
        CheckState(*node, state);
        return StateValue(*node, state);
    });
}

// An impossible set of findings has left its record; as a probability it is 0, no failure value.
double FindingsProbability_bn(net_bn* net)
{
    return CallApi(__func__, net, -1.0, [&] {
        const double log_probability = LogFindingsProbability(*net);
        return log_probability == -InfinityDbl() ? 0.0 : std::exp(log_probability);
    });
}

double LogFindingsProbability_bn(net_bn* net)
{
    return CallApi(__func__, net, UndefDbl(), [&] { return LogFindingsProbability(*net); });
}

bool_vx IsBeliefUpdated_bn(const node_bn* node)
{
    return CallApi(__func__, node, 0, [&] { return AreBeliefsUpdated(*node->net); });
}

void UpdateNetBeliefs_bn(net_bn* net)
{
    CallApi(__func__, net, [&] { UpdateBeliefs(*net); });
}

// A value between is reported and taken by its bit, as the interface defines.
int SetNetAutoUpdate_bn(net_bn* net, int auto_update)
{
    return CallApi(__func__, net, -1, [&] {
        const int before = net->auto_update;
        if (auto_update != 0 && auto_update != 1 && auto_update != BELIEF_UPDATE)
            Raise<5241>(auto_update, BELIEF_UPDATE);
        const int wanted = auto_update == 1 ? BELIEF_UPDATE : auto_update & BELIEF_UPDATE;
        Change(*net, net->auto_update, wanted, NO_EFFECT, "change automatic updating");
        if (wanted != before) net->update_count = NewUpdateCount();
        AutoUpdate(*net);
        return before;
    });
}

int GetNetAutoUpdate_bn(const net_bn* net)
{
    return CallApi(__func__, net, -1, [&] { return net->auto_update; });
}
