// Belief updating of a net: what is kept while a net is compiled, and the results read from it.
//
// A net owns one CompiledNet while it is compiled.  A change of structure, states or kinds discards
// it; a change of a table only has that potential filled again, and a change of findings only marks
// what has to be propagated.  The tables of the junction tree are taken when beliefs are first needed,
// under the findings of that moment.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "BN/Model/BnNotices.h"
#include "BN/Model/Bnet.h"
#include "BN/Order/Junction.h"
#include "BN/Order/Triangulation.h"
#include "BN/Propagation/Propagate.h"

namespace talora {

// Tables of more bytes than this are refused unless findings shrink them.
constexpr double kMaxTableBytes = 2e9;

// The title that a progress handler gets for a long update.
constexpr const char* kUpdateTitle = "Operation in progress ...";

// Tables that are not stored in the form in which propagation reads them, by variable.
using MadeTables = std::unordered_map<int, TableVector<float>>;

struct CompiledNet {
    std::vector<Node*> nodes;            // by variable: nature and decision nodes in net order
    std::vector<int> variable_of;        // by node index, -1 for nodes outside the tree
    std::vector<Node*> utilities;        // in the order of graph.utility_parents
    std::vector<Node*> below_constants;  // nodes with constant parents
    double bytes_agreed = 0;             // of tables: the user has been asked up to here
    bool has_told_full_need = false;
    ModelGraph graph;
    JunctionTree tree;
    bool has_decisions = false;  // or utility nodes

    // The graph as propagation takes it: a node without states counts as having one.
    ModelGraph propagation_graph;
    std::unique_ptr<Propagation> propagation;       // null until beliefs are first needed
    std::unique_ptr<Propagation> case_propagation;  // of CasePropagation
    MadeTables made_tables;

    std::vector<int> stale_findings;      // variables whose finding the propagation does not know yet
    std::vector<char> finding_is_stale;   // by variable
    std::vector<OwnedList> clique_lists;  // for callers, each made when it is asked for
};

// Fails unless an update came to its end.
void CheckUpdated(const Net& net, UpdateStatus status);

// The state of a constant node: its finding, else the state to which its table gives probability 1; -1 if
// there is neither.
int ConstantState(const Node& node);

[[noreturn]] void FailWithoutValue(const Node& constant, const Node& child);
// Every constant parent of a node that has a table has a value, or this fails.
void CheckConstantParents(const Node& node);

// The CPT of a variable in the form in which propagation reads it: parents in the tree only.  Constant
// parents are fixed at their state, function tables become zeros and ones.  Null for none.  What has to be
// made is kept with the compiled net, or in made_tables.  Valid until the table changes.
const float* TableOf(CompiledNet& compiled, int variable);
const float* TreeTable(const CompiledNet& compiled, int variable, MadeTables& made_tables);

// ---- Updating ----

// Brings all beliefs up to date, compiling first if the net auto-updates.  Fails when the net is not
// compiled, the tables are too large, or the findings contradict one another.
void UpdateBeliefs(Net& net);
// After a change of findings: updates at once if the net is compiled and auto-updates.  When that fails, the
// findings stay, as the beliefs are another matter; or they go with the rest of the call.
enum class FailedUpdate { kKeepsFindings, kTakesAllBack };
void AutoUpdate(Net& net, FailedUpdate failed = FailedUpdate::kKeepsFindings);
bool AreBeliefsUpdated(const Net& net);

// A propagation of the net's tables that knows nothing of its findings; whoever uses it sets all findings
// anew.  It is kept as long as the tree.
Propagation& CasePropagation(Net& net);

// Tries a state of a node of the tree: afterwards BeliefOf gives the beliefs there would be with that
// finding instead of the node's own.  Findings and update count stay, and the net counts as not updated until
// its next update takes the state back.  Needs an updated net, or one where states have been tried since.
// False if the state contradicts the findings, and there are no beliefs.
bool TryState(Node& node, int state);
// Whether the tree holds the node; if so, writes its beliefs as they are after the last update or trial.
bool BeliefOf(const Node& node, float* beliefs);

// ---- Results; each brings beliefs up to date first ----

// num_states entries, kept in the node; null for a node without states.
const float* GetBeliefs(Node& node);
double ExpectedValue(Node& node, double* std_dev);
// Natural log of the probability of findings; 0 without findings, minus infinity if they conflict.
// The failed update that finds the conflict leaves its error on record.
double LogFindingsProbability(Net& net);

bool HasFindings(const Net& net);

}  // namespace talora
