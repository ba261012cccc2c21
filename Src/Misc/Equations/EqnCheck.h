// Equations: what the names mean, and whether the types fit.
//
// Works on a tree fresh from the parser, once.  A name is a variable of the head, else a state of
// the variable it is compared with, else a constant.  A variable is read as the context wants it:
//
//   number   level, or state index where there are neither levels nor state names
//   boolean  truth of its state, by the state's name
//   state    index in the numbering of the variable that it is compared with, matched by name
#pragma once

#include "Misc/Equations/EqnParse.h"

namespace talora {

// Resolves and types the tree; fails at the first mistake.  Two messages are only warnings.
void CheckEquation(Equation& eqn, int* place);

// The state that means true: 0 or 1, by recognised names (either case): true/false, yes/no, on/off,
// present/absent, positive/negative, t/f, y/n.  -1 if the variable has no such pair of names.
int TrueState(const EqnVariable& variable);

// The state of a truth value: that of TrueState, else state 1 for true.
int StateOfTruth(const EqnVariable& variable, bool truth);

}  // namespace talora
