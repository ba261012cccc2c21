#include <algorithm>
#include <string>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"

namespace talora {

namespace {

using Sets = std::vector<NodeSet>;

Sets::iterator Find(Sets& sets, std::string_view name)
{
    return std::find_if(sets.begin(), sets.end(), [&](const NodeSet& set) { return set.name == name; });
}

Sets::iterator Need(Sets& sets, const Net& net, std::string_view name)
{
    const auto found = Find(sets, name);
    if (found == sets.end()) Fail<6170>(std::string(name).c_str(), net.name.c_str());
    return found;
}

void CheckUnused(Sets& sets, const Net& net, std::string_view name)
{
    if (Find(sets, name) != sets.end()) Fail<6171>(std::string(name).c_str(), net.name.c_str());
}

}  // namespace

void AddToNodeSet(Node& node, std::string_view name)
{
    Sets sets = node.net->node_sets;
    auto set = Find(sets, name);
    if (set == sets.end()) set = sets.insert(sets.end(), {std::string(name), {}});
    if (std::find(set->nodes.begin(), set->nodes.end(), &node) == set->nodes.end())
        set->nodes.push_back(&node);
    DescribeStep(*node.net, "add %s to node set %s", node.name.c_str(), set->name.c_str());
    Change(*node.net, node.net->node_sets, std::move(sets), NO_EFFECT, "add node to node set");
}

void RemoveFromNodeSet(Node& node, std::string_view name)
{
    Sets sets = node.net->node_sets;
    std::vector<Node*>& nodes = Need(sets, *node.net, name)->nodes;
    nodes.erase(std::remove(nodes.begin(), nodes.end(), &node), nodes.end());
    DescribeStep(*node.net, "remove %s from node set %.*s", node.name.c_str(), int(name.size()), name.data());
    Change(*node.net, node.net->node_sets, std::move(sets), NO_EFFECT, "remove node from node set");
}

void NewNodeSet(Net& net, std::string_view name)
{
    Sets sets = net.node_sets;
    CheckUnused(sets, net, name);
    sets.push_back({std::string(name), {}});
    DescribeStep(net, "add node set %.*s", int(name.size()), name.data());
    Change(net, net.node_sets, std::move(sets), NO_EFFECT, "add node set");
}

void DeleteNodeSet(Net& net, std::string_view name)
{
    Sets sets = net.node_sets;
    sets.erase(Need(sets, net, name));
    DescribeStep(net, "delete node set %.*s", int(name.size()), name.data());
    Change(net, net.node_sets, std::move(sets), NO_EFFECT, "delete node set");
}

void RenameNodeSet(Net& net, std::string_view name, std::string_view new_name)
{
    if (name == new_name) return;
    Sets sets = net.node_sets;
    CheckUnused(sets, net, new_name);
    Need(sets, net, name)->name = new_name;
    DescribeStep(net, "rename node set %.*s to %.*s", int(name.size()), name.data(), int(new_name.size()),
                 new_name.data());
    Change(net, net.node_sets, std::move(sets), NO_EFFECT, "rename node set");
}

}  // namespace talora
