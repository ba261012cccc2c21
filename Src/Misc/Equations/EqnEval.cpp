// Evaluation of an expression tree as it stands, and questions about trees and intervals.
#include "Misc/Equations/EqnEval.h"

#include <algorithm>
#include <functional>

namespace talora {

namespace {

// What evaluating an expression takes: places for values, its arguments each on top of those before, and
// calls that are open at a time.
struct Needs {
    size_t values = 1, calls = 1;
};

std::vector<Needs> FindNeeds(const Equation& eqn)
{
    std::vector<Needs> needs(eqn.exprs.size());
    for (size_t node = 0; node < needs.size(); ++node) {
        const Expr& expr = eqn.exprs[node];
        Needs& need = needs[node];
        need.values = std::max<size_t>(1, expr.num_children);
        for (size_t i = 0; i < size_t(expr.num_children); ++i) {
            const Needs& of_child = needs[size_t(eqn.children[expr.first_child + i])];
            need.values = std::max(need.values, i + of_child.values);
            need.calls = std::max(need.calls, 1 + of_child.calls);
        }
    }
    return needs;
}

struct Evaluation {
    const Equation& eqn;
    const double* values;
    EqnScratch& scratch;
};

// An expression without arguments.
double LeafValue(const Evaluation& e, const Expr& expr)
{
    if (expr.kind == ExprKind::NUMBER) return expr.unit ? expr.value * expr.unit->factor : expr.value;
    if (expr.kind != ExprKind::VARIABLE) return expr.value;
    if (std::isnan(e.values[expr.variable]))
        return e.scratch.failure.Set("undefined value '%s'", e.eqn.variables[expr.variable].name.c_str());
    return ReadVariable(e.eqn, expr, e.values);
}

double CallValue(const Evaluation& e, const Expr& call, const double* args)
{
    const FunctionDef& def = *call.function;
    const double result = CallRoutine(def, args, call.num_children, e.scratch.reason);
    if (e.scratch.reason.IsSet())
        return e.scratch.failure.Set("error evaluating function:  %s (%s)", def.name, e.scratch.reason.text);
    return result;
}

// From an explicit stack of open calls; a conditional gives way to the part that it chooses.
double EvaluateNode(const Evaluation& e, int node)
{
    std::vector<OpenCall>& open = e.scratch.open;
    const auto child = [&](const Expr& call, int i) { return e.eqn.children[call.first_child + i]; };
    open.clear();
    double* place = e.scratch.stack.data();  // where the value of `node` goes
    while (true) {
        // 1. Down to an expression that has its value.
        const Expr* expr = &e.eqn.exprs[node];
        if (expr->kind == ExprKind::CALL && expr->num_children > 0) {
            open.push_back({node, 0, place});
            node = child(*expr, 0);
            continue;
        }
        *place = expr->kind == ExprKind::CALL ? CallValue(e, *expr, place) : LeafValue(e, *expr);
        // 2. Up again, through the calls that are complete with it.
        bool goes_down = false;
        while (!open.empty() && !goes_down) {
            if (e.scratch.failure.IsSet()) return kUndefinedEqn;
            OpenCall& call = open.back();
            const Expr& of = e.eqn.exprs[call.node];
            const bool is_choice = of.function->form == IF_FORM;
            if (is_choice && *call.place == *call.place) {
                node = child(of, *call.place != 0 ? 1 : 2);
                place = call.place;
                open.pop_back();
                goes_down = true;
            } else if (!is_choice && ++call.num_known < of.num_children) {
                node = child(of, call.num_known);
                place = call.place + call.num_known;
                goes_down = true;
            } else {
                if (!is_choice) *call.place = CallValue(e, of, call.place);
                open.pop_back();
            }
        }
        if (!goes_down) return e.scratch.failure.IsSet() ? kUndefinedEqn : e.scratch.stack[0];
    }
}

}  // namespace

EqnScratch::EqnScratch(const Equation& eqn)
{
    const Needs need = FindNeeds(eqn)[size_t(eqn.root)];
    stack.resize(need.values + 2);
    open.reserve(need.calls);
}

double Evaluate(const Equation& eqn, const double* values, EqnScratch& scratch)
{
    return EvaluatePart(eqn, ValueNode(eqn), values, scratch);
}

double EvaluatePart(const Equation& eqn, int node, const double* values, EqnScratch& scratch)
{
    scratch.reason.Clear();
    scratch.failure.Clear();
    return EvaluateNode({eqn, values, scratch}, node);
}

bool EvaluateParameters(const Equation& eqn, const double* values, double* args, EqnScratch& scratch)
{
    scratch.reason.Clear();
    scratch.failure.Clear();
    const Expr& call = eqn.Root();
    for (int i = 1; i < call.num_children; ++i) {
        args[i] = EvaluateNode({eqn, values, scratch}, eqn.children[call.first_child + i]);
        if (scratch.failure.IsSet()) return false;
    }
    return true;
}

int ValueNode(const Equation& eqn)
{
    return eqn.result == EqnResult::AS_STATE ? eqn.children[eqn.Root().first_child] : eqn.root;
}

std::vector<char> FindMentions(const Equation& eqn, int variable)
{
    std::vector<char> mentions(eqn.exprs.size(), 0);
    for (size_t node = 0; node < mentions.size(); ++node) {
        const Expr& expr = eqn.exprs[node];
        bool found = expr.kind == ExprKind::VARIABLE && (variable < 0 || expr.variable == variable);
        for (int i = 0; i < expr.num_children; ++i)
            found = found || mentions[size_t(eqn.children[expr.first_child + i])];
        mentions[node] = found;
    }
    return mentions;
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
    const std::vector<char> mentions = FindMentions(eqn, 0);
    for (int i = 1; i < root.num_children; ++i)
        if (mentions[size_t(eqn.children[root.first_child + i])]) return false;
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
    if (expr.reading == Reading::MAPPED) return EntryOf(eqn.maps[expr.map], value);
    const int interval = FindInterval(eqn.variables[expr.variable].levels, value);
    if (interval < 0) return kUndefinedEqn;
    return expr.map < 0 ? interval : EntryOf(eqn.maps[expr.map], interval);
}

}  // namespace talora
