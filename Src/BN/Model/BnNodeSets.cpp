// Node sets: named lists of nodes that belong to a net.
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
    Net& net = *node.net;
    DescribeStep(net, "add %s to node set %.*s", node.name.c_str(), int(name.size()), name.data());
    size_t set = Find(net.node_sets, name) - net.node_sets.begin();
    if (set == net.node_sets.size())
        ChangeElement(net, nullptr, net.node_sets, ListEdit::kInsert, set, {std::string(name), {}, {}},
                      "add node set");
    JoinSet(net, set, node, "add node to node set");
}

void RemoveFromNodeSet(Node& node, std::string_view name)
{
    Net& net = *node.net;
    const size_t set = Need(net.node_sets, net, name) - net.node_sets.begin();
    DescribeStep(net, "remove %s from node set %.*s", node.name.c_str(), int(name.size()), name.data());
    LeaveSet(net, set, node, "remove node from node set");
}

void NewNodeSet(Net& net, std::string_view name)
{
    CheckUnused(net.node_sets, net, name);
    DescribeStep(net, "add node set %.*s", int(name.size()), name.data());
    ChangeElement(net, nullptr, net.node_sets, ListEdit::kInsert, net.node_sets.size(),
                  {std::string(name), {}, {}}, "add node set");
}

void DeleteNodeSet(Net& net, std::string_view name)
{
    const size_t set = Need(net.node_sets, net, name) - net.node_sets.begin();
    DescribeStep(net, "delete node set %.*s", int(name.size()), name.data());
    ChangeElement(net, nullptr, net.node_sets, ListEdit::kErase, set, {}, "delete node set");
}

void RenameNodeSet(Net& net, std::string_view name, std::string_view new_name)
{
    if (name == new_name) return;
    CheckUnused(net.node_sets, net, new_name);
    NodeSet& set = *Need(net.node_sets, net, name);
    DescribeStep(net, "rename node set %.*s to %.*s", int(name.size()), name.data(), int(new_name.size()),
                 new_name.data());
    NodeSet renamed = set;
    renamed.name = new_name;
    ChangeElement(net, nullptr, net.node_sets, ListEdit::kReplace, size_t(&set - net.node_sets.data()),
                  std::move(renamed), "rename node set");
}

}  // namespace talora
