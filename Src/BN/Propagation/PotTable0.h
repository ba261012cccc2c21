// The tables of a model as inference reads them.
//
// Entries are one per configuration of the variables' states, the last variable varying fastest.  The two
// marker values (missing, impossible) are no numbers; what they mean in a row is settled here.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BN/Order/Triangulation.h"
#include "Basic/Memory.h"

namespace talora {

// What a row of a conditional probability table means: missing entries share equally what the
// others leave over, an impossible row is zeros.  A null row is uniform.
void ReadRow(const float* row, int num_states, float* probs);

// A variable's table, cut down to what the findings leave and laid out for a clique.
struct FamilyRequest {
    const ModelGraph* graph = nullptr;
    int variable = 0;
    const float* table = nullptr;       // null: uniform
    const float* likelihood = nullptr;  // weights per own state, or null
    std::span<const int> cut;           // per variable of the graph the state it is cut down to, or -1
    std::span<const int> rank;          // per variable: those of the family are laid out by this
};

// The family's variables that are not cut and have more than one state, by rank, last fastest.
std::vector<int> FamilyScope(const FamilyRequest& request);
void WriteFamily(const FamilyRequest& request, float* entries);

}  // namespace talora
