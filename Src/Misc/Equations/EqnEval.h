// Evaluating the tree of an equation for one assignment of values to its variables.
//
// A discrete variable is assigned the index of its state, a continuous one a number; NaN stands for
// a value that is not known.  The plain evaluator: EqnCompile.h has the one for large tables, which
// gives the same bits.  Nothing is allocated by a call.
#pragma once

#include <vector>

#include "Misc/Equations/EqnParse.h"

namespace talora {

// Working space for evaluations of one equation, and what went wrong in the last one.
struct OpenCall {
    int node, num_known;  // arguments that have their values
    double* place;        // where they stand
};
struct EqnScratch {
    std::vector<double> stack;
    std::vector<OpenCall> open;
    EqnReason reason;
    EqnReason failure;  // "undefined value '...'", "error evaluating function:  ... (...)"

    explicit EqnScratch(const Equation& eqn);
};

// The value of the right-hand side (of the argument of an outermost AsState); NaN is undefined, and
// scratch.failure says why if there is more to say.
double Evaluate(const Equation& eqn, const double* values, EqnScratch& scratch);

// The same for one expression of the tree.
double EvaluatePart(const Equation& eqn, int node, const double* values, EqnScratch& scratch);

// The arguments of the outermost call but the first, into args[1] ...; false if one failed.
bool EvaluateParameters(const Equation& eqn, const double* values, double* args, EqnScratch& scratch);

// The outermost expression that has a value by itself: the root, or the argument of its AsState.
int ValueNode(const Equation& eqn);

// Whether the right-hand side is a distribution of the output variable that can be integrated over an
// interval: the output is its first argument, and appears nowhere else.
bool IsIntegrable(const Equation& eqn);

// By expression: whether it mentions a variable (any variable for -1).
std::vector<char> FindMentions(const Equation& eqn, int variable);

// The interval of a list of rising or falling thresholds that holds a value: each holds its first
// threshold, the last one both; -1 if none does.
int FindInterval(const std::vector<double>& thresholds, double value);

// The state of a discrete variable whose level is nearest, the lower of equals; -1 without levels.
int NearestLevel(const EqnVariable& variable, double value);

// The entry of a list for a state; undefined if it has none.
inline double EntryOf(const std::vector<double>& map, double state)
{
    return state >= 0 && state < static_cast<double>(map.size()) ? map[static_cast<size_t>(state)]
                                                                 : kUndefinedEqn;
}

double ReadVariable(const Equation& eqn, const Expr& expr, const double* values);

// Calls a routine unless an argument is undefined and it does not take that.
inline double CallRoutine(const FunctionDef& def, const double* args, int count, EqnReason& reason)
{
    if (!(def.flags & LENIENT_EQN))
        for (int i = 0; i < count; ++i)
            if (args[i] != args[i]) return kUndefinedEqn;
    return def.routine(args, count, reason);
}

}  // namespace talora
