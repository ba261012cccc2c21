// Operations on the structure of a net: copying, nodes, states, levels, links, node sets.
//
// Each checks its arguments, computes what will change (tables included), and then applies it through
// BnEdit.h; after an error the net is as it was.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "BN/Model/Bnet.h"

namespace talora {

// ---- Nets ----
struct CopyNetOptions {
    bool no_nodes = false, no_links = false, no_tables = false, no_visual = false, no_window = false;
};
Net* CopyNet(const Net& net, std::string_view new_name, environ_vx& env, const CopyNetOptions& options);

// ---- Nodes ----
Node* AddNode(Net& net, std::string_view name, int num_states);  // checks name and count
void DeleteNode(Node& node);
struct CopyNodesOptions {
    bool no_links = false, no_tables = false;
};
// The new nodes in the order of the list.
std::vector<Node*> CopyNodes(const std::vector<Node*>& nodes, Net& net, const CopyNodesOptions& options);
void RenameNode(Node& node, std::string_view name);
void SetKind(Node& node, int kind);

// A name made from this one that no node of the net has.
std::string UnusedName(Net& net, std::string_view name);

// ---- States ----
void CheckState(const Node& node, int state);  // the bounds errors
void SetStateName(Node& node, int state, std::string_view name);
// Name, title or comment of a state; the caller has checked a name.
void SetStateText(Node& node, int state, std::string StateText::*member, std::string text, const char* what);
void SetStateNames(Node& node, const std::vector<std::string>& names);  // empty removes all
void AddStates(Node& node, int first, const std::vector<std::string>& names, int count, double cpt_fill);
void RemoveState(Node& node, int state);
void ReorderStates(Node& node, const std::vector<int>& new_order);
void SetLevels(Node& node, int num_states, const double* levels);

// ---- Links ----
// The one operation for all link changes: gives the node a new list of links.  old_index[i] says which
// old link the new link i continues (-1: a new parent, its states repeat the rows).  A parent that goes
// leaves the slice for its first state.  A link continued with another parent node keeps its dimension if
// the state counts agree; otherwise it counts as removed and added.
void ReplaceParents(Node& child, std::vector<Link> links, const std::vector<int>& old_index,
                    const char* what);
int AddLink(Node& parent, Node& child);
void DeleteLink(Node& child, int index);
void SwitchParent(Node& child, int index, Node* new_parent);
int ReconnectLinks(Node& child);
void RenameInStandIns(const Node& parent,
                      std::string_view name);  // before the parent of cut links is renamed
void CheckParentIndex(const Node& child, int index);
// Deletes a node that stood for a parent that was cut away, once its last child is gone.
void RemoveStandInIfUnused(Node& node);

// ---- Node sets ----
void AddToNodeSet(Node& node, std::string_view set);
void RemoveFromNodeSet(Node& node, std::string_view set);
void NewNodeSet(Net& net, std::string_view set);
void DeleteNodeSet(Net& net, std::string_view set);
void RenameNodeSet(Net& net, std::string_view set, std::string_view new_name);

}  // namespace talora
