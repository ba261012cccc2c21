// Random models as nets of the interface: nodes v0, v1 ... in the order of the variables.
#pragma once

#include <string>
#include <vector>

#include "Support/RandomModel.h"
#include "Talora.h"

inline std::vector<node_bn*> BuildNet(net_bn* net, const talora::RandomModel& model)
{
    std::vector<node_bn*> nodes;
    for (int v = 0; v < model.size(); ++v)
        nodes.push_back(NewNode_bn(("v" + std::to_string(v)).c_str(), model.NumStates(v), net));
    for (int v = 0; v < model.size(); ++v) {
        for (int parent : model.graph.variables[size_t(v)].parents)
            AddLink_bn(nodes[size_t(parent)], nodes[size_t(v)]);
        const std::vector<float>& table = model.tables[size_t(v)];
        if (!table.empty()) SetNodeTable_bn(nodes[size_t(v)], table.data(), int64_t(table.size()));
    }
    return nodes;
}
