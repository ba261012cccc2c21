// The elimination order stored with a net.
//
// It is data of the model: files keep it, undo brings it back, and a change of structure that makes it
// invalid drops it.  Finding one is for the compiler (BnCompile.h).
#pragma once

#include <string>
#include <vector>

#include "BN/Model/Bnet.h"

namespace talora {

// What is wrong with a list as an elimination order: 0 and no text if nothing, else the error number
// (3556 for a NULL entry, 3277) and a phrase such as "is missing a >-node (named 'x')", markup expanded.
int ElimOrderProblem(Net& net, const std::vector<Node*>& order, std::string* phrase);
// Stores an order, or removes it (null).  The order that is stored already changes nothing.
void SetElimOrder(Net& net, const std::vector<Node*>* order);
// Stores an order after checking it; is_found: by the compiler, so that a change of structure may drop it.
// `what` names the step for undo.
void StoreElimOrder(Net& net, const std::vector<Node*>& order, bool is_found, const char* what);
// Drops a stored order that is no longer valid, with a warning.
void CheckElimOrder(Net& net);
}  // namespace talora
