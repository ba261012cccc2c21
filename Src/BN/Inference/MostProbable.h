// The most probable configuration of a net: the mode of a net in which updating finds it, the report on it,
// and the configurations that come next.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/Bnet.h"
#include "BN/Propagation/KBest.h"

namespace talora {

// Switches the mode; the mode that the net is in changes nothing.  With it on, a belief is the probability of
// the best configuration that has the node in that state, divided by that of the best of all.  Refused for
// nets with decision nodes and with nodes that have no states.
void SetMostProbable(Net& net, bool most_probable);
// Fails as switching it on does.
void CheckMostProbable(const Net& net);

// Stores in each node its state in the most probable configuration, or UNDEF_STATE, and returns a line on how
// probable the configuration is, empty where some node has no such state.  For a net in that mode.
std::string ReportMostProbable(Net& net);

// What a net keeps of the last search, so that asking for the next best goes on from there.
struct ConfigSearch {
    uint64_t update_count = 0;  // of the net when the search began
    std::vector<Node*> nodes;   // whose settings make configurations different, empty for all
    CompiledNet model;          // numbers and tables
    JunctionTree tree;
    std::vector<TableVector<float>> weights;  // of the likelihoods in findings
    ModelFindings findings;
    std::unique_ptr<KBestSearch> search;
    std::vector<Configuration> found;
};

// Writes the states of the nodes (null: all of the net) in the nth most probable configuration, 0 the most
// probable.  Of the configurations that agree on the nodes only the most probable counts.  The net's
// findings, mode and beliefs stay as they are.  @return the natural log of the configuration's probability,
// weights of likelihood findings included
double FindConfiguration(Net& net, const std::vector<Node*>* nodes, int nth, state_bn* setting);

}  // namespace talora
