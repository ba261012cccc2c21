// Equations back to text, with the parentheses that they need and no others.
#include "Misc/Equations/EqnPrint.h"

#include "Basic/Text.h"

namespace talora {

namespace {

// A call that is written with its symbol: an operator with the operands that it has there.
bool IsInfix(const Expr& expr)
{
    if (expr.kind != ExprKind::CALL || *expr.function->symbol == '\0') return false;
    return expr.function->arity > 0 || expr.num_children >= 2;
}

struct Printer {
    const Equation& eqn;
    std::string text;

    const Expr& Child(const Expr& call, int i) const { return eqn.exprs[eqn.children[call.first_child + i]]; }
};

void Print(Printer& p, const Expr& expr);

void PrintIn(Printer& p, const Expr& expr, bool parentheses)
{
    if (parentheses) p.text += '(';
    Print(p, expr);
    if (parentheses) p.text += ')';
}

// A minus directly before a digit would become part of the number, and two in a row the sign of a
// state's variable.
void PrintPrefix(Printer& p, const Expr& call)
{
    const Expr& operand = p.Child(call, 0);
    p.text += call.function->symbol;
    PrintIn(p, operand, operand.kind == ExprKind::NUMBER || IsInfix(operand));
}

// Only the condition can need parentheses: the other parts reach as far as they can.
void PrintConditional(Printer& p, const Expr& call)
{
    const int strength = call.function->strength;
    const Expr& condition = p.Child(call, 0);
    PrintIn(p, condition, IsInfix(condition) && condition.function->strength <= strength);
    p.text += std::string(" ") + call.function->symbol + " ";
    Print(p, p.Child(call, 1));
    p.text += std::string(" ") + call.function->second + " ";
    Print(p, p.Child(call, 2));
}

// Operands of a left-grouping operator need parentheses on the right from its own strength on, those
// of a right-grouping one on the left.
void PrintInfix(Printer& p, const Expr& call)
{
    const FunctionDef& def = *call.function;
    const bool groups_left = def.flags & LEFT_EQN;
    for (int i = 0; i < call.num_children; ++i) {
        const Expr& operand = p.Child(call, i);
        const int strength = IsInfix(operand) ? operand.function->strength : def.strength + 1;
        const bool loose_side = groups_left ? i == 0 : i == call.num_children - 1;
        // A sum of the most terms that one may have keeps its own: it was not taken apart.
        const bool full =
            (def.flags & ASSOCIATIVE_EQN) && operand.kind == ExprKind::CALL && operand.function == &def;
        if (i > 0) p.text += std::string(" ") + def.symbol + " ";
        PrintIn(p, operand, strength < def.strength || (strength == def.strength && !loose_side) || full);
    }
}

void PrintArguments(Printer& p, const Expr& call)
{
    p.text += std::string(call.function->name) + "(";
    for (int i = 0; i < call.num_children; ++i) {
        if (i > 0) p.text += ", ";
        Print(p, p.Child(call, i));
    }
    p.text += ')';
}

void PrintState(Printer& p, const Expr& expr)
{
    if (expr.sharp) p.text += '#';
    p.text += p.eqn.Text(expr.name);
    if (expr.owner.length > 0) p.text += "--" + std::string(p.eqn.Text(expr.owner));
}

void PrintNumber(Printer& p, const Expr& expr)
{
    p.text += FormatShortest(expr.value);
    if (expr.unit) p.text += std::string(" ") + expr.unit->name;
}

void Print(Printer& p, const Expr& expr)
{
    switch (expr.kind) {
        case ExprKind::NUMBER:
            return PrintNumber(p, expr);
        case ExprKind::VARIABLE:
            p.text += (expr.sharp ? "#" : "") + p.eqn.variables[expr.variable].name;
            return;
        case ExprKind::CONSTANT:
            p.text += expr.constant->name;
            return;
        case ExprKind::STATE:
            return PrintState(p, expr);
        case ExprKind::NAME:
            p.text += p.eqn.Text(expr.name);
            return;
        case ExprKind::CALL:
            break;
    }
    if (!IsInfix(expr)) return PrintArguments(p, expr);
    if (expr.function->arity == 1) return PrintPrefix(p, expr);
    if (expr.function->arity == 3) return PrintConditional(p, expr);
    PrintInfix(p, expr);
}

// Everything but the places in the text, for tests of printing and reading.
bool SameExpr(const Equation& a, int x, const Equation& b, int y)
{
    const Expr &e = a.exprs[x], &f = b.exprs[y];
    if (e.kind != f.kind || e.type != f.type || e.function != f.function || e.num_children != f.num_children)
        return false;
    if (e.sharp != f.sharp || e.variable != f.variable || e.state != f.state || e.reading != f.reading)
        return false;
    if (e.unit != f.unit || e.constant != f.constant || e.value != f.value) return false;
    for (int i = 0; i < e.num_children; ++i)
        if (!SameExpr(a, a.children[e.first_child + i], b, b.children[f.first_child + i])) return false;
    return true;
}

}  // namespace

std::string PrintExpression(const Equation& eqn, int node)
{
    Printer p{eqn, ""};
    Print(p, eqn.exprs[node]);
    return p.text;
}

std::string PrintEquation(const Equation& eqn)
{
    if (!eqn.has_output) return PrintExpression(eqn, eqn.root);
    std::string text = eqn.probabilistic ? "P (" + eqn.variables[0].name : eqn.variables[0].name + " (";
    for (size_t i = 1; i < eqn.variables.size(); ++i)
        text += (i > 1 ? ", " : eqn.probabilistic ? " | " : "") + eqn.variables[i].name;
    return text + ") = " + PrintExpression(eqn, eqn.root);
}

bool SameTree(const Equation& a, const Equation& b)
{
    return a.probabilistic == b.probabilistic && a.variables.size() == b.variables.size() &&
           SameExpr(a, a.root, b, b.root);
}

}  // namespace talora
