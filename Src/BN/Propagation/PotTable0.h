// Potential tables: single-precision entries with one double scale factor.
//
// The true value of an entry is the stored float times the scale factor, so that a product of many
// small probabilities does not underflow.  Entries are one per configuration of the variables'
// states, the last variable varying fastest.  The two marker values (missing, impossible) are no
// numbers: they are never rescaled or combined.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BN/Order/Triangulation.h"
#include "Basic/Memory.h"

namespace talora {

struct Potential {
    std::vector<int> variables;
    std::vector<int> num_states;  // per variable
    TableVector<float> entries;
    double scale = 1;  // > 0
};

// A table of ones.
Potential MakePotential(std::span<const int> variables, std::span<const int> num_states);

// Stores the entries for another scale factor, which must be greater than 0.
void SetScale(Potential& potential, double scale);

// Brings the largest entry to between 0.5 and 1 when it has left the comfortable range of floats.
void FixUnderflow(Potential& potential);

// The sum of the entries times the scale factor; if it is not 0 the true values then sum to 1, by
// the scale factor alone.  Returns the sum.
double Normalize(Potential& potential);

// Entry by entry; the divisor spans the same variables in the same order, or none.  Dividing by 0
// gives 0, by the impossible marker that marker; an impossible dividend stays so.  A single number
// divides all entries unless it is 0.
void Divide(Potential& dividend, const Potential& divisor);

// Multiplies by a potential over a subset of the variables (any order), or sums onto a subset.
void MultiplyBy(Potential& potential, const Potential& factor);
Potential SumOnto(const Potential& potential, std::span<const int> variables);

// ---- The model's tables as inference reads them. ----

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
