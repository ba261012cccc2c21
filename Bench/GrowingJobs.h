// Jobs made of n equal edits, each of which should cost the same whatever n is.
//
// The benchmark times them; a test counts the bytes that they take at n and at 2n.
#pragma once

#include <iterator>
#include <string>
#include <vector>

#include "Talora.h"

namespace growing {

struct Ground {
    environ_vx* env = nullptr;
    net_bn* net = nullptr;
    node_bn* node = nullptr;
    std::vector<node_bn*> nodes;
    nodelist_bn* list = nullptr;
};

struct Job {
    const char* label;
    void (*prepare)(Ground& ground, int n);
    void (*run)(Ground& ground, int n);
    bool with_undo;
};

inline std::string Numbered(const char* stem, int i)
{
    return stem + std::to_string(i);
}

inline void MakeNodes(Ground& ground, int n)
{
    for (int i = 0; i < n; ++i) ground.nodes.push_back(NewNode_bn(Numbered("n", i).c_str(), 2, ground.net));
}

inline void ChainNodes(Ground& ground, int n)
{
    MakeNodes(ground, n);
    for (int i = 1; i < n; ++i) AddLink_bn(ground.nodes[size_t(i - 1)], ground.nodes[size_t(i)]);
}

// As ChainNodes, the nodes made in the opposite order.
inline void ChainBackwards(Ground& ground, int n)
{
    MakeNodes(ground, n);
    for (int i = 1; i < n; ++i) AddLink_bn(ground.nodes[size_t(i)], ground.nodes[size_t(i - 1)]);
}

inline const Job kJobs[] = {
    {"name states", [](Ground& g, int n) { g.node = NewNode_bn("many", n, g.net); },
     [](Ground& g, int n) {
         for (int i = 0; i < n; ++i) SetNodeStateName_bn(g.node, i, Numbered("s", i).c_str());
     },
     true},
    {"add nodes to a set", MakeNodes,
     [](Ground& g, int) {
         for (node_bn* node : g.nodes) AddNodeToNodeset_bn(node, "all");
     },
     true},
    {"delete nodes in sets",
     [](Ground& g, int n) {
         MakeNodes(g, n);
         for (node_bn* node : g.nodes) AddNodeToNodeset_bn(node, "all");
     },
     [](Ground& g, int) {
         for (node_bn* node : g.nodes) DeleteNode_bn(node);
     },
     true},
    {"link parents",
     [](Ground& g, int n) {
         MakeNodes(g, n);
         g.node = NewNode_bn("child", 2, g.net);
     },
     [](Ground& g, int) {
         for (node_bn* node : g.nodes) AddLink_bn(node, g.node);
     },
     true},
    {"set user fields", [](Ground& g, int) { g.node = NewNode_bn("noted", 2, g.net); },
     [](Ground& g, int n) {
         for (int i = 0; i < n; ++i) SetNodeUserField_bn(g.node, Numbered("f", i).c_str(), "x", -1, 0);
     },
     true},
    {"copy a node",
     [](Ground& g, int) {
         g.node = NewNode_bn("copied", 2, g.net);
         g.list = NewNodeList2_bn(1, g.net);
         SetNthNode_bn(g.list, 0, g.node);
     },
     [](Ground& g, int n) {
         for (int i = 0; i < n; ++i) CopyNodes_bn(g.list, g.net, "dont_return_list");
     },
     false},
    {"link to the node before last", ChainNodes,
     [](Ground& g, int n) {
         for (int i = 2; i < n; ++i) AddLink_bn(g.nodes[size_t(i - 2)], g.nodes[size_t(i)]);
     },
     false},
    {"the same, made backwards", ChainBackwards,
     [](Ground& g, int n) {
         for (int i = 2; i < n; ++i) AddLink_bn(g.nodes[size_t(i)], g.nodes[size_t(i - 2)]);
     },
     false},
    {"revise by findings",
     [](Ground& g, int n) {
         node_bn* const parent = NewNode_bn("parent", n, g.net);
         g.node = NewNode_bn("learned", 2, g.net);
         AddLink_bn(parent, g.node);
         const state_bn every[] = {EVERY_STATE};
         const prob_bn even[] = {0.5f, 0.5f};
         SetNodeProbs_bn(g.node, every, even);
         SetNodeExperience_bn(g.node, every, 2);
         EnterFinding_bn(parent, n / 2);
         EnterFinding_bn(g.node, 1);
         g.list = NewNodeList2_bn(1, g.net);
         SetNthNode_bn(g.list, 0, g.node);
     },
     [](Ground& g, int n) {
         for (int i = 0; i < n; ++i) ReviseCPTsByFindings_bn(g.list, 1);
     },
     true},
};

inline Ground Prepared(const Job& job, int n)
{
    Ground ground;
    ground.env = NewTaloraEnviron_vx("growing", nullptr);
    InitTalora2_bn(ground.env, nullptr);
    ground.net = NewNet_bn("growing", ground.env);
    job.prepare(ground, n);
    if (job.with_undo) SetNetNumUndos_bn(ground.net, 10 * n, 0, nullptr);
    return ground;
}

}  // namespace growing
