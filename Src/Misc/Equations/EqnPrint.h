// Equations as text.  What is printed parses to the same tree.
#pragma once

#include <string>

#include "Misc/Equations/EqnParse.h"

namespace talora {

// Head and right-hand side.
std::string PrintEquation(const Equation& eqn);
// An expression alone: operators in infix form, parentheses only where they matter.
std::string PrintExpression(const Equation& eqn, int node);

// Whether two equations have the same tree, whatever their texts look like.
bool SameTree(const Equation& a, const Equation& b);

}  // namespace talora
