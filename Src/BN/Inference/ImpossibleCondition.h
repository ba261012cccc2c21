// Parent conditions that tables declare impossible, when findings bring them about.
//
// A row of a table may say that its parent condition cannot occur: a row of impossible entries or of zeros,
// or an impossible state of a function table.  Inference takes such a row as probability 0.  When the
// findings leave no probability at all, this finds out whether that is why: whether the findings would be
// possible if those rows were ordinary ones.
#pragma once

#include "BN/Model/Bnet.h"
#include "BN/Propagation/Propagate.h"

namespace talora {

// Called when the findings of a compiled net have probability 0.  Fails, naming node and condition, if
// impossible conditions are the cause: 2102 where the findings settle the condition, else 2487 or 2489 for
// the node whose impossible conditions would be the most probable.  Otherwise returns.
// May propagate once through tables of its own; returns as well when there is no memory for them.
void ReportImpossibleCondition(const Net& net, const TableSource& table);

}  // namespace talora
