// Compiling a net: elimination order, junction tree, sizes and the report on them.
#pragma once

#include <string>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/Bnet.h"

namespace talora {

// What the stored order costs, as the greedy search counts when it is halted.
double ElimOrderCost(Net& net);

// ---- Compiling ----

// Numbers the nodes that take part and lists their parents, after checking that the net can be compiled.
void DescribeModel(const Net& net, CompiledNet& compiled);

void CompileNet(Net& net);
// Of a net just read from a file that asks for it.  One that cannot be compiled stays as it was read, and the
// message that says why becomes a warning.
void CompileAfterReading(Net& net);
// Searches for a better order for at most so many seconds, stores it and compiles.
void OptimizeElimOrder(Net& net, double seconds);

// ---- Sizes, in table entries ----
struct TreeSizes {
    double cliques = 0, with_separators = 0, under_findings = 0;
};
TreeSizes SizesOf(const Net& net);  // of a compiled net
// The tables under the current findings fit into the limit of memory, or this fails; asks the user about
// large ones.  @return whether they are wanted
bool CheckTableMemory(Net& net, const TreeSizes& sizes);
const CompiledNet& NeedCompiled(const Net& net);  // fails unless the net is compiled

std::string JunctionTreeReport(const Net& net);

}  // namespace talora
