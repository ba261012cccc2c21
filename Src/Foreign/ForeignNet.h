// A net as plain data, between the files of other tools and the engine's own nets.
//
// Readers of formats fill it and writers print it; neither knows a net of the engine, so that each can be
// read, tested and fuzzed alone.  Names are those of the file, whatever letters they have.  Tables have one
// order everywhere: the first parent slowest, the last parent faster, the node's own states fastest; the
// utilities of a utility node have no axis of their own.
//
// Beside the net stands the account of what a format could not carry: one loss per kind, with the nodes that
// it concerns and what was done instead.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Basic/Loss.h"
#include "Basic/Memory.h"

namespace talora {

enum class ForeignKind : uint8_t { CHANCE, DECISION, UTILITY };

constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();  // an entry or position not given

using ForeignField = std::pair<std::string, std::string>;

// A node whose states are the largest of independent contributions, one from each parent and a leak.
// rows: for each parent, for each of its states, a distribution over the own states; then that of the leak.
struct NoisyMax {
    bool first_is_strongest = false;  // else the last state is
    std::vector<double> rows;         // empty for none
};

struct ForeignNode {
    std::string name, title, comment;
    ForeignKind kind = ForeignKind::CHANCE;
    bool is_deterministic = false;
    std::vector<std::string> states;
    std::vector<std::string> state_titles, state_comments;  // empty, or one per state
    std::vector<double> levels;                             // one per state, or one more: limits of intervals
    std::vector<int> parents;                               // nodes of the net by number
    std::vector<std::string> delays;                        // empty, or one per parent, "" for none
    TableVector<double> table;                              // empty for none
    TableVector<double> experience;                         // one per row, empty for none
    NoisyMax noisy;
    std::string equation;
    double x = kNoNumber, y = kNoNumber;  // centre, y downward
    int group = -1;
    std::string cost;  // of observing it, as written; "" for none
    int finding = -1;
    std::vector<double> likelihood;    // empty for none
    std::vector<ForeignField> fields;  // whatever else the file says about it

    // Where it stands in the text, for messages.
    size_t at = 0;
    size_t table_at = std::string_view::npos;  // where the numbers of the table begin
    std::vector<size_t> rows_at;               // where each row stands, for formats that label them

    bool HasPosition() const { return std::isfinite(x) && std::isfinite(y); }
    bool HasLimits() const { return !levels.empty() && levels.size() == states.size() + 1; }
    // Entries of one row of the table.
    size_t Width() const { return kind == ForeignKind::UTILITY ? 1 : states.size(); }
};

// Nodes that belong together: a submodel.  A group may lie in another that stands before it.
struct ForeignGroup {
    std::string name, title;
    int parent = -1;
};

struct ForeignNet {
    std::string format;  // and its version, as people say it: "XMLBIF 0.3"
    std::string name, title, comment;
    std::vector<ForeignNode> nodes;
    std::vector<ForeignGroup> groups;
    std::vector<ForeignField> fields;
    bool scales_rows = false;  // the format's tables may hold weights that are no probabilities
    // Where a number of a table stands, by its count; null where rows_at says it.
    size_t (*find_entry)(std::string_view text, size_t table_at, size_t entry) = nullptr;
    // What the file only declares has a limit, see ReserveTable and NumberStates.
    double entries_made = 0, states_made = 0;
    std::vector<Loss> losses;
};

// Product of the numbers of states of the parents; saturates.
double NumRows(const ForeignNet& net, const ForeignNode& node);

// Adds nodes to a loss of this kind, or begins one.
void AddLoss(std::vector<Loss>& losses, LossSeverity severity, std::string_view what, std::string_view node,
             std::string_view instead);

// The table that contributions make; they have the right number.
TableVector<double> ExpandNoisyMax(const ForeignNet& net, const ForeignNode& node);
// How many numbers its rows hold when they fit the node.
size_t NoisyMaxSize(const ForeignNet& net, const ForeignNode& node);

// A table whose own states, or whose first parents, vary in another order, brought into ours.
//   OWN_SLOWEST   own state slowest, then the first parent, the last parent fastest
//   FIRST_FASTEST own state fastest, then the first parent, the last parent slowest
enum class EntryOrder { OWN_SLOWEST, FIRST_FASTEST };
TableVector<double> InOurOrder(const ForeignNet& net, const ForeignNode& node, TableVector<double> table,
                               EntryOrder order);
// The opposite, for writing: a table of ours in another order.
TableVector<double> InOrder(const ForeignNet& net, const ForeignNode& node, EntryOrder order);

}  // namespace talora
