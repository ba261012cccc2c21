// Copies of nodes and nets.
#include <algorithm>
#include <unordered_map>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnCarry.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// Everything of a node but its links, tables, finding and caller's data.
void CopyProperties(const Node& from, Node& to)
{
    to.kind = from.kind;
    to.measure = from.measure;
    to.relation = from.relation;
    to.text = from.text;
    to.units = from.units;
    to.states = from.states;
    to.exper_base = from.exper_base;
    to.equation = from.equation;
    to.eqn_dirty = from.eqn_dirty;
    to.persist = from.persist;
    to.position = from.position;
    to.disconnected_from = from.disconnected_from;
    to.saved_belief = from.saved_belief;
}

void CopyVisual(const Description& from, Description& to, bool keep)
{
    to = from;
    if (!keep) to.visual_section = to.visual_name = std::string();
}

using NodeMap = std::unordered_map<const Node*, Node*>;

// The parent that a copied link leads to: the copy of the original's parent if it was copied too, the parent
// itself within one net, else a disconnected node that stands for it.
Node* ParentForCopy(Node& parent, Net& net, NodeMap& copies)
{
    const auto found = copies.find(&parent);
    if (found != copies.end()) return found->second;
    if (parent.net == &net) return &parent;
    Node* stand_in = InsertNode(net, UnusedName(net, parent.name), "copy nodes");
    stand_in->kind = DISCONNECTED_NODE;
    stand_in->states = parent.states;
    stand_in->disconnected_from = parent.disconnected_from.empty() ? parent.name : parent.disconnected_from;
    copies.emplace(&parent, stand_in);
    return stand_in;
}

void LinkCopy(const Node& from, Node& to, NodeMap& copies)
{
    std::vector<Link> links = from.links;
    for (Link& link : links) link.parent = ParentForCopy(*link.parent, *to.net, copies);
    ReserveLinks(to, links);
    Change(to, to.links, std::move(links), RELINKS | RESTRUCTURES, "copy nodes");
}

// A copied stand-in stands for the copy of the original's parent if that was copied too, within one net for
// the parent itself, and else for a node of its name.
void CopyDisconnected(const std::vector<Node*>& nodes, const std::vector<Node*>& made)
{
    std::unordered_map<uint64_t, uint64_t> copy_of;
    for (size_t i = 0; i < nodes.size(); ++i) copy_of.emplace(nodes[i]->id, made[i]->id);
    for (size_t i = 0; i < nodes.size(); ++i) {
        const uint64_t original = nodes[i]->disconnected_id;
        if (original == 0) continue;
        const auto found = copy_of.find(original);
        made[i]->disconnected_id = found != copy_of.end()          ? found->second
                                   : nodes[i]->net == made[i]->net ? original
                                                                   : 0;
    }
}

// Tables of a copy: as they are with all links, the slice for the parents' first states without.
NodeTables TablesForCopy(const Node& from, bool with_links)
{
    if (with_links) return from.tables;
    TableCarry carry = IdentityCarry(from);
    carry.parents.clear();
    return CarryTables(from, carry);
}

void CheckMemoryForCopy(const std::vector<Node*>& nodes)
{
    double bytes = 0;
    for (const Node* node : nodes) {
        const NodeTables& tables = node->tables;
        bytes += double(sizeof(Node)) + 4.0 * tables.probs.size() + 4.0 * tables.func_states.size() +
                 8.0 * tables.func_reals.size() + 8.0 * tables.experience.size();
    }
    CheckMemory(bytes, "to duplicate >-Bnodes of length %d", int(nodes.size()));
}

}  // namespace

std::vector<Node*> CopyNodes(const std::vector<Node*>& nodes, Net& net, const CopyNodesOptions& options)
{
    // 1. All copies first, as any of them may be the parent of another.
    CheckMemoryForCopy(nodes);
    if (nodes.size() == 1)
        DescribeStep(net, "copy node %s", nodes[0]->name.c_str());
    else
        DescribeStep(net, "copy %d nodes", int(nodes.size()));
    NodeMap copies;
    std::vector<Node*> made;
    for (const Node* node : nodes) {
        if (copies.count(node)) Fail<6180>(node->name.c_str());
        Node* copy = InsertNode(net, UnusedName(net, node->name), "copy nodes");
        CopyProperties(*node, *copy);
        copies.emplace(node, copy);
        made.push_back(copy);
    }
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (!options.no_links) LinkCopy(*nodes[i], *made[i], copies);
        if (!options.no_tables) made[i]->tables = TablesForCopy(*nodes[i], !options.no_links);
        made[i]->finding = nodes[i]->finding;
    }
    CopyDisconnected(nodes, made);
    return made;
}

Net* CopyNet(const Net& net, std::string_view new_name, environ_vx& env, const CopyNetOptions& options)
{
    Net* copy = NewNet(env, new_name);
    try {
        CopyVisual(net.text, copy->text, !options.no_visual);
        copy->auto_compile = net.auto_compile;
        copy->password = net.password;
        copy->num_dimensions = net.num_dimensions;
        if (!options.no_nodes) {
            const std::vector<Node*> made =
                CopyNodes(net.nodes.nodes, *copy, {options.no_links, options.no_tables});
            for (Node* node : made)
                if (options.no_visual) node->text.visual_section = node->text.visual_name = std::string();
            // Sets and elimination order name the copies: a copy has its original's place in the net.
            const auto copied = [&](const std::vector<Node*>& nodes) {
                std::vector<Node*> result;
                for (const Node* node : nodes) result.push_back(made[node->index]);
                return result;
            };
            for (const NodeSet& set : net.node_sets) copy->node_sets.push_back({set.name, copied(set.nodes)});
            copy->has_elim_order = net.has_elim_order;
            copy->elim_order_found = net.elim_order_found;
            copy->elim_order.nodes = copied(net.elim_order.nodes);
        }
        // Only now, so that no finding that is copied sets off an update.
        copy->auto_update = net.auto_update;
        copy->most_probable = net.most_probable;
        copy->changed = false;
    } catch (...) {
        DeleteNet(copy);
        throw;
    }
    return copy;
}

}  // namespace talora
