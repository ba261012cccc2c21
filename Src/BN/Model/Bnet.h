// The network model: nets, nodes, states, links and tables, as plain records.
//
// An environment owns its nets, a net its nodes, a node its states, tables and finding.  Nodes and
// nets live in handle pools (Basic/Handle.h): a deleted node keeps its header with the deleted flag.
// Whoever changes a record does so through BnEdit.h; everybody may read.
//
// Invariants: node names are unique within the net and indexed by it; children lists are the exact
// inverse of the parents' lists (one entry per link); a node is never twice in one parent list;
// links without delay form no directed cycle; a table, where there is one, has exactly the size that
// the states of the node and its parents give.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Basic/Environ.h"
#include "Basic/Handle.h"
#include "Basic/Memory.h"
#include "Basic/MultiThread.h"
#include "Basic/Secret.h"
#include "Basic/Undo.h"
#include "Talora.h"

struct nodelist_bn {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    std::vector<node_bn*> nodes;  // entries may be null in lists that a caller made
    bool owned = false;           // part of a net or node: not the caller's to change or delete
};

namespace talora {

using Net = net_bn;
using Node = node_bn;
using NodeList = nodelist_bn;

// A kind of 0 marks a documentation node: a note in the drawing that takes no part in inference.
constexpr int UNKNOWN_KIND = 0;
constexpr int NUM_NODE_KINDS = 7;

enum class VarType : uint8_t { UNKNOWN = 0, CONTINUOUS = 1, DISCRETE = 2 };
enum class Measure : uint8_t { UNKNOWN, NOMINAL, PROXIMAL, ORDINAL, INTERVAL, RATIO };
enum class Relation : uint8_t { INVERTABLE, DETERMIN, CHANCE, UNKNOWN_CHANCE };
enum class EqnDirty : uint8_t { CLEAN, DIRTY, MAYBE };

struct StateText {
    std::string name, title, comment;
    bool operator==(const StateText&) const = default;
};

struct Link {
    Node* parent = nullptr;
    std::string input_name;  // "" if none
    std::string delay;       // as written, one number per time dimension; "" if none
    bool operator==(const Link&) const = default;
};

struct UserField {
    std::string name;
    std::string value;  // any bytes
    bool operator==(const UserField&) const = default;
};

struct NodeSet {
    std::string name;
    std::vector<Node*> nodes;
    // The same nodes once `is_indexed`, see IsInSet; made when first asked for and kept by the edits.
    std::unordered_set<const Node*> members;
    bool is_indexed = false;
    bool operator==(const NodeSet& other) const { return name == other.name && nodes == other.nodes; }
};

// The tables of a node; an empty vector means that there is none.  Parents first, own states
// innermost and fastest; the function and experience tables have one entry per row.
struct NodeTables {
    TableVector<float> probs;
    TableVector<int32_t> func_states;  // states of a discrete or discretised node, or indicators
    TableVector<double> func_reals;    // values of a continuous or utility node
    TableVector<double> experience;
    // Counts that were learned, where probability x experience would not give them back exactly (Learning). A
    // row of them counts only as long as it explains the row of the tables.
    TableVector<double> counts;
    bool operator==(const NodeTables&) const = default;
};

// A weight of any size: fraction x 2^exponent, the fraction in [0.5, 1), or 0 for none.
struct WideWeight {
    double fraction = 0;
    int64_t exponent = 0;
    bool operator==(const WideWeight&) const = default;
};

struct NodeFinding {
    int state = -1;             // -1 for none
    double value = UndefDbl();  // real value entered
    // Empty for none.  A product of several that single precision cannot hold is given but for a factor.
    TableVector<float> likelihood;
    TableVector<WideWeight> product;  // the product of several likelihoods as it is; empty for a single one
    bool IsEmpty() const { return state < 0 && IsUndef(value) && likelihood.empty(); }
    bool operator==(const NodeFinding&) const = default;
};

struct NodeStates {
    VarType type = VarType::DISCRETE;
    int num_states = 0;
    std::vector<StateText> texts;  // may be shorter than num_states: the others have none
    std::vector<double> levels;    // discrete: one per state; continuous: thresholds; empty for none
    bool operator==(const NodeStates&) const = default;
};

// Texts that describe a net or a node; kept in its files.
struct Description {
    std::string title, comment, author, who_changed;
    uint32_t when_changed = 0;
    std::vector<UserField> user_fields;
    std::string user_section;    // body of a `user` section that is not ours to interpret
    std::string user_name;       // its name
    std::string visual_section;  // body of the `visual` section
    std::string visual_name;
    bool operator==(const Description&) const = default;
};

struct CompiledNet;  // junction tree and what belongs to it, BnUpdating.h
struct CompiledNetDeleter {
    void operator()(CompiledNet* compiled) const noexcept;
};

struct NetQueries;  // what questions about a few nodes keep, BnQuery.h
struct NetQueriesDeleter {
    void operator()(NetQueries* queries) const noexcept;
};

struct ConfigSearch;  // what a search for most probable configurations keeps, MostProbable.h
struct ConfigSearchDeleter {
    void operator()(ConfigSearch* search) const noexcept;
};

// An object made for callers that ends with its net at the latest, such as a net tester.  It enlists when it
// is made and withdraws when it is deleted.
struct NetDependent {
    void* object = nullptr;
    void (*delete_object)(void* object) noexcept = nullptr;  // withdraws it, too
    // The record of a node is about to be given back; null for an object that keeps no nodes.
    void (*forget_node)(void* object, const Node* node) noexcept = nullptr;
};

}  // namespace talora

struct node_bn {
    talora::HandleHeader header;
    net_bn* net = nullptr;
    int kind = NATURE_NODE;
    talora::Measure measure = talora::Measure::UNKNOWN;
    talora::Relation relation = talora::Relation::UNKNOWN_CHANCE;
    std::string name;
    talora::Description text;
    std::string units;
    talora::NodeStates states;

    std::vector<talora::Link> links;  // to the parents, in order
    nodelist_bn parents;              // links[i].parent, for callers
    nodelist_bn children;             // one entry per link, in the order of linking

    talora::NodeTables tables;
    double exper_base = 0;
    std::string equation;
    talora::EqnDirty eqn_dirty = talora::EqnDirty::CLEAN;
    std::string persist;              // persistence over time, as written
    std::string position;             // position in time, as written
    std::string disconnected_from;    // of a disconnected node: the name of the parent it stands for
    uint64_t disconnected_id = 0;     // and its id; 0 if only the name is known
    std::vector<float> saved_belief;  // `belief` statement of a file, empty for none

    talora::NodeFinding finding;

    void* user_data = nullptr;
    uint64_t id = 0;                        // of this node only, as long as the library runs
    int index = -1;                         // position in net->nodes
    int most_probable_state = UNDEF_STATE;  // in the configuration that was reported last
    uint64_t stamp = 0;                     // last unique label of a graph walk
    int64_t rank = 0;                       // parents first, see net_bn::has_ranks
    talora::TableVector<float> beliefs;     // given out by GetNodeBeliefs_bn
    talora::TableVector<float> likelihood;  // given out by GetNodeLikelihood_bn
};

struct net_bn {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    std::string name;
    talora::Description text;
    nodelist_bn nodes;  // in the order in which they were made
    using NodeIndex = std::unordered_map<std::string_view, node_bn*>;
    NodeIndex node_index;             // keys look into the nodes' names
    NodeIndex::node_type index_slot;  // of a node that is just being renamed
    std::vector<talora::NodeSet> node_sets;
    int auto_update = 0;  // 0 or BELIEF_UPDATE
    bool auto_compile = false;
    bool most_probable = false;  // updating finds the most probable configuration (MostProbable.h)
    int num_dimensions = 0;
    bool has_elim_order = false;
    bool elim_order_found = false;  // by the compiler, so a change of structure may drop it silently
    nodelist_bn elim_order;

    std::unique_ptr<talora::CompiledNet, talora::CompiledNetDeleter> compiled;
    std::unique_ptr<talora::NetQueries, talora::NetQueriesDeleter> queries;
    std::unique_ptr<talora::ConfigSearch, talora::ConfigSearchDeleter> config_search;
    uint64_t update_count = 0;     // fresh number whenever cached results become stale
    uint64_t label_counter = 100;  // unique labels of graph walks
    // While has_ranks, each node has a greater rank than its parents by links without delay, so most new
    // links are known to close no cycle.  Ranks are made again when looking for cycles has cost as much.
    bool has_ranks = true;
    int64_t last_rank = 0;
    size_t cycle_work = 0;                           // steps of walks since the ranks were lost
    std::unordered_map<std::string, int> next_copy;  // by name: the first number that may be unused
    std::unique_ptr<talora::UndoList> undo;          // never null while the net lives
    bool changed = false;                            // since it was read or written
    talora::Secret password;                         // for writing it encrypted
    std::atomic<randgen_vx*> random_gen{nullptr};    // the caller's, or null for the environment's
    void* user_data = nullptr;
    std::string report;                            // text given out last
    std::vector<talora::NetDependent> dependents;  // deleted with the net
};

namespace talora {

// ---- Questions about a node ----
inline int NumStates(const Node& node)
{
    return node.states.num_states;
}
inline bool IsDiscrete(const Node& node)
{
    return node.states.type == VarType::DISCRETE;
}
inline bool IsDiscretized(const Node& node)
{
    return !IsDiscrete(node) && NumStates(node) > 0;
}
inline bool HasStates(const Node& node)
{
    return NumStates(node) > 0;
}
inline bool IsDocumentation(const Node& node)
{
    return node.kind == UNKNOWN_KIND;
}
// Whether the junction tree holds the node: every nature and decision node.
inline bool IsInTree(const Node& node)
{
    return node.kind == NATURE_NODE || node.kind == DECISION_NODE;
}
bool IsDelayed(const Link& link);                           // has a delay that is not zero
const std::string& StateName(const Node& node, int state);  // "" if unnamed
const std::string& StateTitle(const Node& node, int state);
const std::string& StateComment(const Node& node, int state);
bool HasStateNames(const Node& node);
int FindState(const Node& node, std::string_view name);  // UNDEF_STATE if none
// How the state is written in messages and listings: its name, or "#" and its number.
std::string StateWord(const Node& node, int state);
// The number that a state stands for: level, midpoint of its interval (an infinite end: the finite
// one), or undefined.
double StateValue(const Node& node, int state);
// The state whose interval or level holds a value; UNDEF_STATE if none does.
int StateOfValue(const Node& node, double value);
// Whether a node without states may have the value: between its two levels, if it has them.
bool IsInRange(const Node& node, double value);
// Whether the state's interval or level holds the value; several states may have one level.
bool HoldsValue(const Node& node, int state, double value);

const char* KindTerm(int kind);  // for messages: "nature", "decision", ...

Node* FindNode(const Net& net, std::string_view name);  // null if none
const NodeSet* FindNodeSet(const Net& net, std::string_view name);
int FindParent(const Node& child, const Node* parent);  // index of the link, -1 if none

// A fresh label for a graph walk; see the recycling rule at the definition.
uint64_t NewLabel(Net& net);

// Whether b can be reached from a along links without delay.  O(1) where the ranks decide, at most O(links).
bool IsAncestor(Net& net, const Node& a, const Node& b);
// A link without delay was made: ranks that it contradicts are no longer used.
void CheckRanks(const Node& parent, const Node& child) noexcept;

bool IsInSet(NodeSet& set, const Node& node);

// Nodes of the net parents first; nodes of one cycle come in net order at the end.
std::vector<Node*> TopologicalOrder(const Net& net);

// Full consistency of a net; raises an internal error at the first violation.  Drops a stored
// elimination order that is no longer valid, with a warning.
void ValidateNet(Net& net);

// ---- Making and deleting records ----
// @param is_listed  among the nets of the environment; the others are seen by their maker alone
Net* NewNet(environ_vx& env, std::string_view name, bool is_listed = true);
void DeleteNet(Net* net) noexcept;
Node* NewNodeRecord(Net& net);          // belongs to no list yet
void ReleaseNode(Node* node) noexcept;  // the record alone
void Enlist(Net& net, const NetDependent& dependent);
void Withdraw(Net& net, const void* object) noexcept;
NodeList* NewNodeList(environ_vx& env, size_t length);
void DeleteNodeList(NodeList* list) noexcept;

// A list that belongs to something of a net which ends before the net does: callers' handles of it are
// recognised as deleted then.
struct OwnedListDeleter {
    void operator()(NodeList* list) const noexcept;
};
using OwnedList = std::unique_ptr<NodeList, OwnedListDeleter>;
OwnedList NewOwnedList(Net& net);

}  // namespace talora
