// Nodes: adding, deleting, renaming, and what deleting does to children, sets and the order.
#include <algorithm>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnCarry.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnElimOrder.h"
#include "Basic/Error.h"
#include "Basic/Names.h"

namespace talora {

namespace {

void CheckNameUnused(const Net& net, std::string_view name, const Node* except)
{
    const Node* other = FindNode(net, name);
    if (other != nullptr && other != except) Fail<6110>(std::string(name).c_str(), net.name.c_str());
}

// The links of a child without one of its parents, and what becomes of its tables.
struct Orphaned {
    Node* child;
    std::vector<Link> links;
    NodeTables tables;
};

Orphaned WithoutParent(Node& child, const Node& parent)
{
    TableCarry carry = IdentityCarry(child);
    Orphaned orphaned = {&child, child.links, {}};
    const int index = FindParent(child, &parent);
    orphaned.links.erase(orphaned.links.begin() + index);
    carry.parents.erase(carry.parents.begin() + index);
    orphaned.tables = CarryTables(child, carry);
    ReserveLinks(child, orphaned.links);
    return orphaned;
}

}  // namespace

// Copies of one node are numbered: the search goes on where the last one ended, as long as no name has been
// given up since.
std::string UnusedName(Net& net, std::string_view name)
{
    std::string stem(name == "*" ? "x" : name);  // a number may only follow a letter
    if (FindNode(net, stem) == nullptr) return stem;
    for (int& number = net.next_copy.try_emplace(stem, 1).first->second;; ++number) {
        const std::string ending = "_" + std::to_string(number);
        std::string candidate = stem.substr(0, kMaxNameLength - ending.size()) + ending;
        if (FindNode(net, candidate) == nullptr) return candidate;
    }
}

Node* AddNode(Net& net, std::string_view name, int num_states)
{
    if (num_states < 0) Fail<6111>(num_states, net.name.c_str());
    CheckNameUnused(net, name, nullptr);
    DescribeStep(net, "add node %.*s", int(name.size()), name.data());
    Node* node = InsertNode(net, name, "add node");
    node->states.type = num_states > 0 ? VarType::DISCRETE : VarType::CONTINUOUS;
    node->states.num_states = num_states;
    return node;
}

// All that may fail comes first: the new tables of the children.
void DeleteNode(Node& node)
{
    Net& net = *node.net;
    // The last child first, so that each is found at the end of the list that it leaves.
    std::vector<Orphaned> children;
    for (size_t i = node.children.nodes.size(); i-- > 0;)
        children.push_back(WithoutParent(*node.children.nodes[i], node));
    const bool is_ordered = std::find(net.elim_order.nodes.begin(), net.elim_order.nodes.end(), &node) !=
                            net.elim_order.nodes.end();
    DescribeStep(net, "delete node %s", node.name.c_str());
    if (is_ordered) SetElimOrder(net, nullptr);
    for (size_t set = 0; set < net.node_sets.size(); ++set)
        LeaveSet(net, set, node, "remove node from node sets");
    for (Orphaned& orphaned : children) {
        Change(*orphaned.child, orphaned.child->links, std::move(orphaned.links), RELINKS | RESTRUCTURES,
               "remove link");
        Change(*orphaned.child, orphaned.child->tables, std::move(orphaned.tables), RETABLES, "remove link");
    }
    std::vector<Node*> stand_ins;
    for (const Link& link : node.links)
        if (link.parent->kind == DISCONNECTED_NODE) stand_ins.push_back(link.parent);
    Change(node, node.links, std::vector<Link>(), RELINKS | RESTRUCTURES, "remove links");
    RemoveNode(node, "delete node");
    for (Node* stand_in : stand_ins) RemoveStandInIfUnused(*stand_in);
}

void RenameNode(Node& node, std::string_view name)
{
    CheckNameUnused(*node.net, name, &node);
    DescribeStep(*node.net, "rename node %s to %.*s", node.name.c_str(), int(name.size()), name.data());
    RenameInStandIns(node, name);
    Change(node, node.name, std::string(name), RENAMES_NODE, "rename node");
}

void SetKind(Node& node, int kind)
{
    if (kind < 0 || kind >= NUM_NODE_KINDS) Fail<6112>(node.name.c_str(), kind, NUM_NODE_KINDS - 1);
    if (kind == node.kind) return;
    if (kind == DISCONNECTED_NODE) Fail<6113>(node.name.c_str());
    if (kind == ADVERSARY_NODE) Fail<6114>(node.name.c_str());
    // Findings that the new kind cannot hold go.
    NodeFinding finding = node.finding;
    if (kind == UTILITY_NODE || kind == UNKNOWN_KIND) finding = NodeFinding();
    if (kind == DECISION_NODE || kind == CONSTANT_NODE) finding.likelihood = {}, finding.product = {};
    Change(node, node.finding, std::move(finding), REFINDS, "change kind");
    Change(node, node.kind, kind, RESTRUCTURES, "change kind");
}

}  // namespace talora
