// Tables of a node: probabilities, deterministic functions, experience.
//
// Layout: one row per configuration of the parents, the last parent varying fastest; within a row of
// the probability table the node's own states.
#pragma once

#include <cstdint>
#include <string>

#include "BN/Model/Bnet.h"
#include "BN/Model/TableSize.h"

namespace talora {

constexpr double kMaxTableEntries = 400000000;

enum ProbsProblem : uint32_t {
    PROBS_IMPOSSIBLE = 0x02,
    PROBS_MISSING_ONE = 0x04,
    PROBS_MISSING_SOME = 0x08,
    PROBS_SUM = 0x10,
    PROBS_ABOVE_ONE = 0x80,
    PROBS_ALL_ZERO = 0x100,
    PROBS_MIXED = 0x200,
    PROBS_NEGATIVE = 0x400,
    PROBS_TOO_MANY = 0x1000,
    PROBS_TOO_FEW = 0x2000
};

// Problem flags of a probability vector, 0 if it is in order.
uint32_t CheckProbs(const float* probs, int count);
// The flags in words; "okay" for none.  brief: the first phrase only.
std::string DescribeProbs(uint32_t problems, bool brief);
// Flags that a row may have when it is stored.
constexpr uint32_t kAcceptedProbs = PROBS_MISSING_ONE | PROBS_MISSING_SOME | PROBS_ALL_ZERO;

double NumRows(const Node& node);       // product of the parents' state counts, saturating
double TableEntries(const Node& node);  // times the node's own

// Fails with 3081, 3082 or 3615 and the like when the node cannot have a CPT.
void CheckCanHaveTable(const Node& node);
// The row of parent states.  Checks NULL, indicators and bounds; EVERY_STATE only where every is set.
int64_t RowOf(const Node& node, const int* parent_states);
void SetProbs(Node& node, const int* parent_states, const float* probs);
void SetTable(Node& node, TableVector<float> probs);                // whole table, checked row by row
const float* GetProbs(const Node& node, const int* parent_states);  // null if no table
void SetFuncState(Node& node, const int* parent_states, int state);
int GetFuncState(const Node& node, const int* parent_states);
void SetFuncReal(Node& node, const int* parent_states, double value);
double GetFuncReal(const Node& node, const int* parent_states);
void SetExperience(Node& node, const int* parent_states, double experience);
double GetExperience(const Node& node, const int* parent_states);
void DeleteTables(Node& node);

bool HasTable(const Node& node, bool* complete);
bool IsDeterministic(const Node& node);

// The CPT as inference reads it: the stored one, one made from the function table, or null for none.
// scratch holds it when it has to be made.
const float* EffectiveProbs(const Node& node, TableVector<float>& scratch);

}  // namespace talora
