// Links: adding, removing, switching and reconnecting parents, with the tables carried along.
#include <algorithm>
#include <atomic>
#include <string>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnCarry.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"

namespace talora {

namespace {

void CheckNewParent(Node& parent, Node& child, const Link& link)
{
    if (parent.net != child.net)
        Fail<3213>(parent.name.c_str(), child.name.c_str(), parent.net->name.c_str(),
                   child.net->name.c_str());
    if (IsDelayed(link)) return;
    if (&parent == &child || IsAncestor(*child.net, child, parent))
        Fail<6101>(parent.name.c_str(), child.name.c_str());
}

bool HasAnyTable(const Node& node)
{
    const NodeTables& tables = node.tables;
    return !tables.probs.empty() || !tables.func_states.empty() || !tables.func_reals.empty() ||
           !tables.experience.empty();
}

// Looks in the shorter one of the two lists.
bool IsLinked(const Node& parent, const Node& child)
{
    const std::vector<Node*>& children = parent.children.nodes;
    if (children.size() > child.links.size()) return FindParent(child, &parent) >= 0;
    return std::find(children.begin(), children.end(), &child) != children.end();
}

void CheckNoRepeats(const Node& child, const std::vector<Link>& links)
{
    std::vector<const Node*> parents;
    for (const Link& link : links) parents.push_back(link.parent);
    std::sort(parents.begin(), parents.end());
    const auto repeated = std::adjacent_find(parents.begin(), parents.end());
    if (repeated != parents.end()) Fail<6102>((*repeated)->name.c_str(), child.name.c_str());
}

// Where the dimensions of the new table come from.  A link goes on if it leads to as many states as before.
TableCarry CarryForLinks(const Node& child, const std::vector<Link>& links, const std::vector<int>& old_index)
{
    const TableCarry before = IdentityCarry(child);
    TableCarry carry = before;
    carry.parents.clear();
    for (size_t i = 0; i < links.size(); ++i) {
        CarriedDim dim = {NumStates(*links[i].parent), 0, {}};
        const int old = old_index[i];
        if (old >= 0 && before.parents[old].count == dim.count) dim = before.parents[old];
        carry.parents.push_back(dim);
    }
    return carry;
}

// Tables that the new parents do not allow: one of them has no states.
void NoticeLostTables(const Node& child, const NodeTables& carried)
{
    if ((!child.tables.probs.empty() && carried.probs.empty()) ||
        (!child.tables.func_states.empty() && carried.func_states.empty()) ||
        (!child.tables.func_reals.empty() && carried.func_reals.empty()))
        Notice<6103>(child.name.c_str());
}

// Whether there has been a stand-in yet, so that renaming nodes need not look for them.
std::atomic<bool> has_stand_ins{false};

// A node of kind DISCONNECTED_NODE in the place of a parent that is cut away.
Node* NewStandIn(Node& parent)
{
    Net& net = *parent.net;
    const std::string name = UnusedName(net, parent.name);
    NodeStates states = parent.states;
    const bool is_stand_in = !parent.disconnected_from.empty();
    std::string from = is_stand_in ? parent.disconnected_from : parent.name;
    Node* stand_in = InsertNode(net, name, "disconnect link");
    stand_in->kind = DISCONNECTED_NODE;
    stand_in->states = std::move(states);
    stand_in->disconnected_from = std::move(from);
    has_stand_ins = true;
    stand_in->disconnected_id = is_stand_in ? parent.disconnected_id : parent.id;
    return stand_in;
}

// The node that a disconnected one stands for, whatever it is called now; null if it has left the net.  Where
// a file gives only the name, the node of that name.
Node* OriginalParent(const Node& stand_in)
{
    const Net& net = *stand_in.net;
    Node* named = FindNode(net, stand_in.disconnected_from);
    if (stand_in.disconnected_id == 0) return named == &stand_in ? nullptr : named;
    if (named != nullptr && named->id == stand_in.disconnected_id) return named;
    const auto found = std::find_if(net.nodes.nodes.begin(), net.nodes.nodes.end(),
                                    [&](const Node* node) { return node->id == stand_in.disconnected_id; });
    return found == net.nodes.nodes.end() ? nullptr : *found;
}

}  // namespace

void RemoveStandInIfUnused(Node& node)
{
    if (node.kind == DISCONNECTED_NODE && !node.disconnected_from.empty() && node.children.nodes.empty())
        DeleteNode(node);
}

void RenameInStandIns(const Node& parent, std::string_view name)
{
    if (!has_stand_ins) return;
    for (Node* node : parent.net->nodes.nodes)
        if (node->disconnected_id == parent.id)
            Change(*node, node->disconnected_from, std::string(name), NO_EFFECT, "rename node");
}

void CheckParentIndex(const Node& child, int index)
{
    const int num_parents = int(child.links.size());
    if (index < 0 || index >= num_parents)
        Fail<6104>(index, child.name.c_str(), num_parents, num_parents - 1);
}

void ReplaceParents(Node& child, std::vector<Link> links, const std::vector<int>& old_index, const char* what)
{
    for (size_t i = 0; i < links.size(); ++i) {
        const bool is_old = old_index[i] >= 0 && child.links[old_index[i]].parent == links[i].parent &&
                            IsDelayed(child.links[old_index[i]]) == IsDelayed(links[i]);
        if (!is_old) CheckNewParent(*links[i].parent, child, links[i]);
    }
    CheckNoRepeats(child, links);
    NodeTables carried = CarryTables(child, CarryForLinks(child, links, old_index));
    NoticeLostTables(child, carried);
    ReserveLinks(child, links);
    Change(child, child.links, std::move(links), RELINKS | RESTRUCTURES, what);
    Change(child, child.tables, std::move(carried), RETABLES, what);
}

// A node with tables goes through ReplaceParents, which costs as much as its tables; one without only gets
// the link.
int AddLink(Node& parent, Node& child)
{
    if (parent.kind == DISCONNECTED_NODE) Fail<6105>(parent.name.c_str());
    if (child.kind == DISCONNECTED_NODE) Fail<6106>(child.name.c_str());
    DescribeStep(*child.net, "add link %s -> %s", parent.name.c_str(), child.name.c_str());
    if (!HasAnyTable(child)) {
        const Link link = {&parent, "", ""};
        CheckNewParent(parent, child, link);
        if (IsLinked(parent, child)) Fail<6102>(parent.name.c_str(), child.name.c_str());
        AddLinkAtEnd(child, link, "add link");
        return int(child.links.size()) - 1;
    }
    std::vector<Link> links = child.links;
    std::vector<int> old_index;
    for (size_t i = 0; i < links.size(); ++i) old_index.push_back(int(i));
    links.push_back({&parent, "", ""});
    old_index.push_back(-1);
    ReplaceParents(child, std::move(links), old_index, "add link");
    return int(child.links.size()) - 1;
}

void DeleteLink(Node& child, int index)
{
    CheckParentIndex(child, index);
    Node& parent = *child.links[index].parent;
    DescribeStep(*child.net, "remove link %s -> %s", parent.name.c_str(), child.name.c_str());
    if (HasAnyTable(child)) {
        std::vector<Link> links = child.links;
        links.erase(links.begin() + index);
        std::vector<int> old_index;
        for (int i = 0; i < int(child.links.size()); ++i)
            if (i != index) old_index.push_back(i);
        ReplaceParents(child, std::move(links), old_index, "remove link");
    } else {
        RemoveLinkAt(child, size_t(index), "remove link");
    }
    RemoveStandInIfUnused(parent);
}

void SwitchParent(Node& child, int index, Node* new_parent)
{
    CheckParentIndex(child, index);
    if (new_parent != nullptr && new_parent->kind == DISCONNECTED_NODE) Fail<6107>(new_parent->name.c_str());
    Node& old_parent = *child.links[index].parent;
    if (new_parent == &old_parent || (new_parent == nullptr && old_parent.kind == DISCONNECTED_NODE)) return;
    if (new_parent == nullptr)
        DescribeStep(*child.net, "disconnect link %s -> %s", old_parent.name.c_str(), child.name.c_str());
    else
        DescribeStep(*child.net, "switch parent of %s from %s to %s", child.name.c_str(),
                     old_parent.name.c_str(), new_parent->name.c_str());
    Node* stand_in = new_parent == nullptr ? NewStandIn(old_parent) : nullptr;
    std::vector<Link> links = child.links;
    links[index].parent = stand_in ? stand_in : new_parent;
    std::vector<int> old_index;
    for (int i = 0; i < int(links.size()); ++i) old_index.push_back(i);
    ReplaceParents(child, std::move(links), old_index, stand_in ? "disconnect link" : "switch parent");
    RemoveStandInIfUnused(old_parent);
}

int ReconnectLinks(Node& child)
{
    std::vector<Link> links = child.links;
    std::vector<int> old_index;
    std::vector<Node*> stand_ins;
    for (int i = 0; i < int(links.size()); ++i) {
        old_index.push_back(i);
        Node& parent = *links[i].parent;
        if (parent.kind != DISCONNECTED_NODE) continue;
        Node* original = OriginalParent(parent);
        if (original == nullptr) Fail<6108>(i, child.name.c_str(), parent.disconnected_from.c_str());
        links[i].parent = original;
        stand_ins.push_back(&parent);
    }
    if (stand_ins.empty()) return 0;
    ReplaceParents(child, std::move(links), old_index, "re-connect links");
    for (Node* stand_in : stand_ins) RemoveStandInIfUnused(*stand_in);
    return int(stand_ins.size());
}

}  // namespace talora
