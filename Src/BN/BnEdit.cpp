#include "BN/BnEdit.h"

#include <algorithm>

#include "BN/BnUpdating.h"
#include "Basic/Error.h"

namespace talora {

namespace {

void ForgetFoundOrder(Net& net) noexcept
{
    if (!net.elim_order_found) return;
    net.has_elim_order = false;
    net.elim_order_found = false;
    net.elim_order.nodes.clear();
}

// Takes one entry of a child out of the list of a parent; the last of them, as links are mostly undone soon
// after they were made.
void RemoveChild(Node& parent, const Node* child) noexcept
{
    std::vector<Node*>& children = parent.children.nodes;
    const auto found = std::find(children.rbegin(), children.rend(), child);
    if (found != children.rend()) children.erase(std::next(found).base());
}

}  // namespace

void BeforeChange(Net& net, Node* node, unsigned effects) noexcept
{
    if (effects & RENAMES_NODE) net.index_slot = net.node_index.extract(node->name);
    if (effects & RELINKS)
        for (const Link& link : node->links) RemoveChild(*link.parent, node);
}

// Room in the index, the children lists and the parents list was made before (see ReserveLinks), so nothing
// here needs memory.
void AfterChange(Net& net, Node* node, unsigned effects) noexcept
{
    if (effects & RENAMES_NODE) {
        net.index_slot.key() = node->name;
        net.node_index.insert(std::move(net.index_slot));
    }
    if (effects & RELINKS) {
        node->parents.nodes.clear();
        for (const Link& link : node->links) {
            node->parents.nodes.push_back(link.parent);
            link.parent->children.nodes.push_back(node);
        }
    }
    if (effects & (RESTRUCTURES | UNCOMPILES)) DiscardTree(net);
    if (effects & RESTRUCTURES) ForgetFoundOrder(net);
    if (effects & RETABLES) TableChanged(*node);
    if (effects & REFINDS) FindingChanged(*node);
    net.changed = true;
}

void ReserveLinks(Node& node, const std::vector<Link>& links)
{
    const auto grow = [](std::vector<Node*>& list, size_t size) {
        if (list.capacity() < size) list.reserve(std::max(size, 2 * list.capacity()));
    };
    grow(node.parents.nodes, links.size());
    for (const Link& link : links) grow(link.parent->children.nodes, link.parent->children.nodes.size() + 1);
}

void ChangeProbs(Node& node, int64_t first, const float* values, int64_t count, const char* what)
{
    (void)what;
    float* entries = node.tables.probs.data() + first;
    if (std::equal(values, values + count, entries)) return;
    std::copy(values, values + count, entries);
    AfterChange(*node.net, &node, RETABLES);
}

void ChangeExperience(Node& node, int64_t row, double value, const char* what)
{
    (void)what;
    if (node.tables.experience[row] == value) return;
    node.tables.experience[row] = value;
    AfterChange(*node.net, &node, NO_EFFECT);
}

void ChangeFuncState(Node& node, int64_t row, int32_t state, const char* what)
{
    (void)what;
    if (node.tables.func_states[row] == state) return;
    node.tables.func_states[row] = state;
    AfterChange(*node.net, &node, RETABLES);
}

void ChangeFuncReal(Node& node, int64_t row, double value, const char* what)
{
    (void)what;
    if (node.tables.func_reals[row] == value) return;
    node.tables.func_reals[row] = value;
    AfterChange(*node.net, &node, RETABLES);
}

Node* InsertNode(Net& net, std::string_view name, const char* what)
{
    (void)what;
    std::vector<Node*>& nodes = net.nodes.nodes;
    if (nodes.capacity() == nodes.size()) nodes.reserve(2 * nodes.size() + 16);
    net.node_index.reserve(nodes.size() + 1);
    Node* node = NewNodeRecord(net);
    try {
        node->name = name;
        net.node_index.emplace(node->name, node);
    } catch (...) {
        ReleaseNode(node);
        throw;
    }
    node->index = int(nodes.size());
    nodes.push_back(node);
    AfterChange(net, node, RESTRUCTURES);
    return node;
}

void RemoveNode(Node& node, const char* what) noexcept
{
    (void)what;
    Net& net = *node.net;
    std::vector<Node*>& nodes = net.nodes.nodes;
    net.node_index.erase(node.name);
    nodes.erase(nodes.begin() + node.index);
    for (size_t i = node.index; i < nodes.size(); ++i) nodes[i]->index = int(i);
    AfterChange(net, nullptr, RESTRUCTURES);
    ReleaseNode(&node);
}

}  // namespace talora
