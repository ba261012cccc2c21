// The part of a model that matters for some variables, given the findings.
//
// Variables that are neither asked for nor observed, nor have such a descendant, sum out to 1 (barren
// nodes), unless a condition in their table is impossible; variables with a positive finding are fixed in the
// tables that mention them, and what they separate from the targets is left out.  What remains is a model of
// its own, usually far smaller.
//
// Shachter (1998), Bayes-Ball; Lin & Druzdzel (1997), Computational advantages of relevance reasoning in
// Bayesian belief networks.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BN/Order/Triangulation.h"

namespace talora {

// What is known of a model, by variable.
struct ModelFindings {
    std::vector<int> positive;              // state, or -1
    std::vector<const float*> likelihoods;  // weights per state, or null
    std::vector<char> constrained;          // whether some row of the table does not sum to 1
};

// Whether that is so for a table with rows of num_states, as inference reads it.
bool HasImpossibleRow(const float* table, int64_t rows, int num_states);

struct RelevantPart {
    // The variables that are not observed; and for each observed one whose table still tells something of
    // them a variable of one state, which takes that table.
    ModelGraph graph;
    std::vector<int> original;  // per variable of `graph`: the variable of the whole model
    std::vector<int> targets;   // per target the variable of `graph`, -1 for one that is observed
    std::vector<int> fixed;     // of the whole model: observed with all parents, a factor of the probability
};

// @param whole  keep all that the probability of the findings depends on, not only what the targets do; else
//               nothing is `fixed`
// O(variables and links that matter, times their logarithm).
RelevantPart FindRelevantPart(const ModelGraph& graph, std::span<const int> targets,
                              const ModelFindings& findings, bool whole);

// The table of variable v of the part, cut down to the positive findings: its parents in part.graph first,
// own states last.  Weights are not in it.  `table` is that of the whole model, null for uniform.
void CutTable(const ModelGraph& graph, const RelevantPart& part, int v, const ModelFindings& findings,
              const float* table, std::vector<float>& cut);

// How probable the state of an observed variable is given its parents, which are observed too, times the
// weight that it has.
double FixedFactor(const ModelGraph& graph, int v, const ModelFindings& findings, const float* table,
                   std::vector<float>& scratch);

}  // namespace talora
