// Compiling a net: elimination order, junction tree, sizes and the report on them.
#pragma once

#include <string>

#include "BN/BnUpdating.h"
#include "BN/Bnet.h"

namespace talora {

// ---- Elimination order ----

// What is wrong with a list as an elimination order: 0 and no text if nothing, else the error number
// (3556 for a NULL entry, 3277) and a phrase such as "is missing a >-node (named 'x')", markup expanded.
int ElimOrderProblem(Net& net, const std::vector<Node*>& order, std::string* phrase);
// Stores an order, or removes it (null).  The order that is stored already changes nothing.
void SetElimOrder(Net& net, const std::vector<Node*>* order);
// Drops a stored order that is no longer valid, with a warning.
void CheckElimOrder(Net& net);
// What the stored order costs, as the greedy search counts when it is halted.
double ElimOrderCost(Net& net);

// ---- Compiling ----

// Numbers the nodes that take part and tells who is whose parent, after checking that this can be done.
void DescribeModel(const Net& net, CompiledNet& compiled);

void CompileNet(Net& net);
// Searches for a better order for at most so many seconds, stores it and compiles.
void OptimizeElimOrder(Net& net, double seconds);

// ---- Sizes, in table entries ----
struct TreeSizes {
    double cliques = 0, with_separators = 0, under_findings = 0;
};
TreeSizes SizesOf(const Net& net);                // of a compiled net
const CompiledNet& NeedCompiled(const Net& net);  // fails unless the net is compiled

std::string JunctionTreeReport(const Net& net);

}  // namespace talora
