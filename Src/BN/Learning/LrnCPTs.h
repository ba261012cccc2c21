// Learning tables by counting, and what the other ways of learning share: the families whose tables are
// learned, and counting complete cases of a family.
//
// The counts of a row of a table are its probabilities times its experience; a node without experience has
// none.  Counting adds to the counts the weight of each case with a state for the node and for each of
// its parents, and makes table and experience from them again: a row without counts is uniform with
// experience 0.  Counts that a table of single precision explains as whole numbers are taken as whole, and
// others, which fractional degrees leave, are kept beside the tables (NodeTables::counts).  So what was
// learned can be unlearned, and gives the table back.  A row that no case touches stays as it is.
//
// A case that has every member of a family, but some only by weights (a likelihood finding), counts for
// all configurations that it leaves possible, shared out in proportion to the products of the weights.  That
// does not depend on the table, so it can be unlearned too.
//
// Counting with minimum dependence takes num_states further cases for each row, spread like the marginal
// counts of the node, so rows with few cases lean towards the marginal and dependence has to be earned.
// The experience counts the cases alone.
//
// Nothing is changed before all counts are known: what fails leaves the net as it was.
//
// Spiegelhalter & Lauritzen (1990), Sequential updating of conditional probabilities on directed graphical
// structures.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "BN/Learning/Learner.h"
#include "BN/Model/Bnet.h"
#include "Basic/Memory.h"
#include "VarVal/Caseset.h"

namespace talora {

using Counts = TableVector<double>;

// A sum in two doubles, of which `low` is below the last digit of `high`: what is added and taken away again
// leaves no trace.
//
// Knuth (1969), The Art of Computer Programming, volume 2, section 4.2.2; Dekker (1971), A floating-point
// technique for extending the available precision.
struct ExactSum {
    double high = 0, low = 0;
    void Add(double value)
    {
        const double sum = high + value, added = sum - high;
        low += (high - (sum - added)) + (value - added);
        high = sum + low;
        low -= high - sum;
    }
};

// ---- Families ----

// A node whose table is learned, and its parents.  Columns are places in a list of nodes, that of a reader.
struct LearnedFamily {
    Node* node = nullptr;
    std::vector<int> columns;      // of the parents in the order of the links, then of the node
    std::vector<int64_t> strides;  // in the table, for each column
    int64_t base = 0;              // place in the table of what parents with a fixed state add
    int64_t num_rows = 1;
    int num_states = 0;
    int64_t Size() const { return num_rows * num_states; }
};

// The nodes among these whose tables can be learned: nature nodes with states whose parents all have
// states, each once.
std::vector<Node*> LearnableNodes(std::span<Node* const> nodes);
// The nodes that a case needs values for: these and their parents, each once.  A parent that is constant with
// a known state is left out: its state is part of the family's base.
std::vector<Node*> FamilyMembers(std::span<Node* const> learned);
// @param members  nodes with their columns: all that FamilyMembers gives
LearnedFamily FamilyIn(Node& node, std::span<Node* const> members);

// The counts kept, else probability x experience; zeros without experience.
Counts CountsOf(const Node& node, const LearnedFamily& family);

// What a case may count, and the cases of a node together: squares and sums of such numbers stay numbers.
constexpr double kMostCases = 1e100;
void CheckCaseWeight(double weight);
void CheckTotal(const Node& node, double total);

struct LearnedTables {
    Node* node;
    NodeTables tables;
};
// Changes all nodes, or none.
void StoreTables(std::vector<LearnedTables> learned, const char* what);

// ---- Counting complete cases ----

// Counts the cases of blocks that have all members of a family.
class FamilyCounter {
public:
    explicit FamilyCounter(const LearnedFamily& family);

    // @param weights  of the cases, null: 1 each
    // @param skip     cases with a negative entry are left out; null: none
    void Add(const CaseBlock& block, const double* weights, const int32_t* skip);

    const Counts& Total();  // so far
    int64_t NumCounted() const { return num_counted_; }

private:
    void Flush();

    LearnedFamily family_;
    Counts counts_;
    // Counts of weight 1 since the last flush; several tables side by side where they are small, so that
    // equal cases in succession need not wait for one another.  The last cell of each takes what does not
    // count.
    TableVector<uint32_t> whole_;
    int64_t in_whole_ = 0;
    int64_t num_counted_ = 0;
};

// ---- Learning ----

// The findings of the net as one case for these nodes of it.  A negative degree unlearns.
void ReviseByFindings(std::span<Node* const> nodes, double degree);

// All cases; a negative degree unlearns.
// @return the number of cases read
int64_t LearnByCounting(std::span<Node* const> nodes, const Caseset& cases, double degree, bool shrinks);

// By the learner's method, with its limits; leaves the history in the learner.
void LearnTables(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree);

}  // namespace talora
