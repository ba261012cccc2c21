// Learning tables by expectation maximisation, from cases that need not be complete.
//
// Each iteration finds how often every configuration of every learned family is to be expected in the
// cases under the present tables, and makes the next tables from these counts.  The likelihood of the cases
// never goes down, apart from rounding.  Experience that a node had counts as cases seen before; then it is
// likelihood and prior together that never go down.  A row that no case is expected in keeps its
// probabilities.  The experience of the learned tables is the expected number of cases of each row.
//
// The net is changed at the end, all tables at once.  A halt keeps the tables of the last iteration that was
// complete; anything that fails leaves the net as it was.
//
// Dempster, Laird & Rubin (1977), Maximum likelihood from incomplete data via the EM algorithm; Lauritzen
// (1995), The EM algorithm for graphical association models with missing data.
#pragma once

#include <span>

#include "BN/Learning/Learner.h"
#include "BN/Model/Bnet.h"
#include "VarVal/Caseset.h"

namespace talora {

void LearnByExpectation(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree);

}  // namespace talora
