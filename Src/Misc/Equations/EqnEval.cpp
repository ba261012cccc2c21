// Evaluation of an expression tree as it stands, and questions about trees and intervals.
#include "Misc/Equations/EqnEval.h"

#include <algorithm>
#include <functional>

namespace talora {

namespace {

// Places that evaluating an expression takes: its arguments, each on top of those before.
int StackNeed(const Equation& eqn, int node)
{
    const Expr& expr = eqn.exprs[node];
    int need = std::max(1, expr.num_children);
    for (int i = 0; i < expr.num_children; ++i)
        need = std::max(need, i + StackNeed(eqn, eqn.children[expr.first_child + i]));
    return need;
}

struct Evaluation {
    const Equation& eqn;
    const double* values;
    EqnScratch& scratch;
};

double EvaluateNode(const Evaluation& e, int node, double* stack);

// Of a choice only the branch taken is evaluated. Other arguments all are, side by side on the stack.
double EvaluateCall(const Evaluation& e, const Expr& call, double* stack)
{
    const FunctionDef& def = *call.function;
    const int* const children = e.eqn.children.data() + call.first_child;
    if (def.form == IF_FORM) {
        const double condition = EvaluateNode(e, children[0], stack);
        if (condition != condition || e.scratch.failure.IsSet()) return kUndefinedEqn;
        return EvaluateNode(e, children[condition != 0 ? 1 : 2], stack);
    }
    for (int i = 0; i < call.num_children; ++i) {
        stack[i] = EvaluateNode(e, children[i], stack + i);
        if (e.scratch.failure.IsSet()) return kUndefinedEqn;
    }
    const double result = CallRoutine(def, stack, call.num_children, e.scratch.reason);
    if (e.scratch.reason.IsSet())
        return e.scratch.failure.Set("error evaluating function:  %s (%s)", def.name, e.scratch.reason.text);
    return result;
}

double EvaluateNode(const Evaluation& e, int node, double* stack)
{
    const Expr& expr = e.eqn.exprs[node];
    switch (expr.kind) {
        case ExprKind::NUMBER:
            return expr.unit ? expr.value * expr.unit->factor : expr.value;
        case ExprKind::VARIABLE:
            if (std::isnan(e.values[expr.variable]))
                return e.scratch.failure.Set("undefined value '%s'",
                                             e.eqn.variables[expr.variable].name.c_str());
            return ReadVariable(e.eqn, expr, e.values);
        case ExprKind::CALL:
            return EvaluateCall(e, expr, stack);
        default:
            return expr.value;
    }
}

}  // namespace

EqnScratch::EqnScratch(const Equation& eqn) : stack(StackNeed(eqn, eqn.root) + 2) {}

double Evaluate(const Equation& eqn, const double* values, EqnScratch& scratch)
{
    return EvaluatePart(eqn, ValueNode(eqn), values, scratch);
}

double EvaluatePart(const Equation& eqn, int node, const double* values, EqnScratch& scratch)
{
    scratch.reason.Clear();
    scratch.failure.Clear();
    return EvaluateNode({eqn, values, scratch}, node, scratch.stack.data());
}

bool EvaluateParameters(const Equation& eqn, const double* values, double* args, EqnScratch& scratch)
{
    scratch.reason.Clear();
    scratch.failure.Clear();
    const Expr& call = eqn.Root();
    for (int i = 1; i < call.num_children; ++i) {
        args[i] =
            EvaluateNode({eqn, values, scratch}, eqn.children[call.first_child + i], scratch.stack.data());
        if (scratch.failure.IsSet()) return false;
    }
    return true;
}

int ValueNode(const Equation& eqn)
{
    return eqn.result == EqnResult::AS_STATE ? eqn.children[eqn.Root().first_child] : eqn.root;
}

bool Mentions(const Equation& eqn, int node, int variable)
{
    const Expr& expr = eqn.exprs[node];
    if (expr.kind == ExprKind::VARIABLE) return variable < 0 || expr.variable == variable;
    for (int i = 0; i < expr.num_children; ++i)
        if (Mentions(eqn, eqn.children[expr.first_child + i], variable)) return true;
    return false;
}

// P (x | ...) = Distribution (x, ...) with x in no other place: its integral over an interval is known.
bool IsIntegrable(const Equation& eqn)
{
    const Expr& root = eqn.Root();
    if (!eqn.probabilistic || root.kind != ExprKind::CALL || root.function->interval == nullptr) return false;
    if (root.num_children < 1) return false;
    const Expr& first = eqn.exprs[eqn.children[root.first_child]];
    if (first.kind != ExprKind::VARIABLE || first.variable != 0 || first.reading != Reading::AS_IS)
        return false;
    for (int i = 1; i < root.num_children; ++i)
        if (Mentions(eqn, eqn.children[root.first_child + i], 0)) return false;
    return true;
}

int FindInterval(const std::vector<double>& thresholds, double value)
{
    if (thresholds.size() < 2 || std::isnan(value)) return -1;
    const bool rising = thresholds.front() <= thresholds.back();
    const double lowest = rising ? thresholds.front() : thresholds.back();
    const double highest = rising ? thresholds.back() : thresholds.front();
    if (value < lowest || value > highest) return -1;
    // The first threshold that the value has not reached, seen from the side that holds its end.
    const auto beyond = rising
                            ? std::upper_bound(thresholds.begin(), thresholds.end(), value)
                            : std::upper_bound(thresholds.begin(), thresholds.end(), value, std::greater<>());
    const auto interval = beyond - thresholds.begin() - 1;
    return static_cast<int>(std::min<ptrdiff_t>(interval, static_cast<ptrdiff_t>(thresholds.size()) - 2));
}

// Of two at the same distance the lower one.
int NearestLevel(const EqnVariable& variable, double value)
{
    int best = -1;
    if (std::isnan(value)) return best;
    for (int state = 0; state < static_cast<int>(variable.levels.size()); ++state) {
        const double distance = std::fabs(variable.levels[state] - value);
        const double nearest = best < 0 ? 0 : std::fabs(variable.levels[best] - value);
        if (best < 0 || distance < nearest ||
            (distance == nearest && variable.levels[state] < variable.levels[best]))
            best = state;
    }
    return best;
}

// As it is, through its list, or as the number of the interval that holds it.
double ReadVariable(const Equation& eqn, const Expr& expr, const double* values)
{
    const double value = values[expr.variable];
    if (expr.reading == Reading::AS_IS || value != value) return value;
    if (expr.reading == Reading::MAPPED) {
        const std::vector<double>& map = eqn.maps[expr.map];
        return value >= 0 && value < static_cast<double>(map.size()) ? map[static_cast<size_t>(value)]
                                                                     : kUndefinedEqn;
    }
    const int interval = FindInterval(eqn.variables[expr.variable].levels, value);
    return interval < 0 ? kUndefinedEqn : interval;
}

}  // namespace talora
