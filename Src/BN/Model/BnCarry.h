// Carrying tables along when parents or states change: each table is gathered anew from the old one.
#pragma once

#include <vector>

#include "BN/Model/Bnet.h"

namespace talora {

// One dimension of the new table and where its entries come from.
struct CarriedDim {
    int64_t count = 0;           // states in the new table
    int64_t old_row_stride = 0;  // of the dimension in the old table, in rows; 0: new, entries repeat
    std::vector<int> old_state;  // by new state: the old state, -1 for a new one; empty: the same
};

// What becomes of the tables of a node.
struct TableCarry {
    std::vector<CarriedDim> parents;  // by new parent
    CarriedDim own;                   // its stride is not used
    int old_num_states = 0;           // own states before
    float fill = MissingProb();       // probability entries that have no old ones
};

// Row strides of a node's present parents: how many rows apart two states of each are.
std::vector<int64_t> RowStrides(const Node& node);

// A description that keeps everything as it is, to be altered.
TableCarry IdentityCarry(const Node& node);

// The new tables; those that the node has.  Fails with 3615, or for lack of memory, before any is taken.
NodeTables CarryTables(const Node& node, const TableCarry& carry);

}  // namespace talora
