// Equations of nodes, and tables made from them.
//
// This is where nodes and equations meet: it describes the node and its parents to the equation
// (Misc/Equations/EqnParse.h).  Among the rooms of nets only this one includes Misc/Equations, which knows
// nothing of nodes.
//
// A table is built beside the node and put in its place when it is done, so a failure changes
// nothing.  Where the node and all parents that the equation names are discrete, or the equation is
// a distribution that can be integrated, the table is exact; otherwise values are drawn inside the
// intervals: uniformly where both ends are finite, else exponentially with the width of the
// neighbouring interval as scale.
#pragma once

#include <string_view>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Misc/Equations/EqnParse.h"

namespace talora {

// What an equation has to know: the node, then its parents in order.
std::vector<EqnVariable> EquationVariables(const Node& node);

// The node's equation, parsed.  Fails with the mistake's own number and a text that names the node.
Equation NodeEquation(const Node& node);

// Gives a node an equation, which must be in order ("" takes it away).  The table stays, marked as
// possibly out of date.
// @param place  receives where in the text a mistake is; may be null
void SetEquation(Node& node, std::string_view text, int* place);

// Fills the node's table from its equation; does nothing for a node without one.
// @param num_samples  per row, where values have to be drawn; 1 or more
// @param keep_counts  a sampled table gets the number of samples as its experience
// @param add          samples are added to what the table holds, weighted by its experience (by 1 where
//                     there is none); function tables keep entries that are not reached
void EquationToTable(Node& node, int num_samples, bool keep_counts, bool add);

// A value drawn inside a state's interval of a discretised node, as tables are made from equations.
double DrawInInterval(const Node& node, int state, RandomState& random);

// Adds an increment to a single-precision cell such that the expected value of the sum is right even
// where the increment is too small for the cell.  False if the cell would overflow.
bool AddToCell(float& cell, double increment, RandomState& random);

}  // namespace talora
