// Equations back to text, with the parentheses that they need and no others.
#include "Misc/Equations/EqnPrint.h"

#include <iterator>
#include <utility>

#include "Basic/Text.h"

namespace talora {

namespace {

// A call that is written with its symbol: an operator with the operands that it has there.
bool IsInfix(const Expr& expr)
{
    if (expr.kind != ExprKind::CALL || *expr.function->symbol == '\0') return false;
    return expr.function->arity > 0 || expr.num_children >= 2;
}

// A part of the text: an expression, or characters.
struct Piece {
    int node = -1;
    std::string text = {};
};

struct Printer {
    const Equation& eqn;
    std::string text;
    std::vector<Piece> open;  // what is still to be written, the next piece last

    int ChildIndex(const Expr& call, int i) const { return eqn.children[call.first_child + i]; }
    const Expr& Child(const Expr& call, int i) const { return eqn.exprs[ChildIndex(call, i)]; }
};

using Pieces = std::vector<Piece>;

void AddOperand(Pieces& pieces, int node, bool parentheses)
{
    if (parentheses) pieces.push_back({-1, "("});
    pieces.push_back({node});
    if (parentheses) pieces.push_back({-1, ")"});
}

// A minus directly before a digit would become part of the number, and two in a row the sign of a
// state's variable.
void PrintPrefix(const Printer& p, const Expr& call, Pieces& pieces)
{
    const Expr& operand = p.Child(call, 0);
    pieces.push_back({-1, call.function->symbol});
    AddOperand(pieces, p.ChildIndex(call, 0), operand.kind == ExprKind::NUMBER || IsInfix(operand));
}

void PrintConditional(const Printer& p, const Expr& call, Pieces& pieces)
{
    const Expr& condition = p.Child(call, 0);
    AddOperand(pieces, p.ChildIndex(call, 0),
               IsInfix(condition) && condition.function->strength <= call.function->strength);
    pieces.push_back({-1, std::string(" ") + call.function->symbol + " "});
    pieces.push_back({p.ChildIndex(call, 1)});
    pieces.push_back({-1, std::string(" ") + call.function->second + " "});
    pieces.push_back({p.ChildIndex(call, 2)});
}

// Operands of a left-grouping operator need parentheses on the right from its own strength on, those
// of a right-grouping one on the left.
void PrintInfix(const Printer& p, const Expr& call, Pieces& pieces)
{
    const FunctionDef& def = *call.function;
    const bool groups_left = def.flags & LEFT_EQN;
    for (int i = 0; i < call.num_children; ++i) {
        const Expr& operand = p.Child(call, i);
        const int strength = IsInfix(operand) ? operand.function->strength : def.strength + 1;
        const bool loose_side = groups_left ? i == 0 : i == call.num_children - 1;
        if (i > 0) pieces.push_back({-1, std::string(" ") + def.symbol + " "});
        AddOperand(pieces, p.ChildIndex(call, i),
                   strength < def.strength || (strength == def.strength && !loose_side));
    }
}

void PrintArguments(const Printer& p, const Expr& call, Pieces& pieces)
{
    pieces.push_back({-1, std::string(call.function->name) + "("});
    for (int i = 0; i < call.num_children; ++i) {
        if (i > 0) pieces.push_back({-1, ", "});
        pieces.push_back({p.ChildIndex(call, i)});
    }
    pieces.push_back({-1, ")"});
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

void PrintCall(Printer& p, const Expr& call)
{
    Pieces pieces;
    if (!IsInfix(call))
        PrintArguments(p, call, pieces);
    else if (call.function->arity == 1)
        PrintPrefix(p, call, pieces);
    else if (call.function->arity == 3)
        PrintConditional(p, call, pieces);
    else
        PrintInfix(p, call, pieces);
    p.open.insert(p.open.end(), std::make_move_iterator(pieces.rbegin()),
                  std::make_move_iterator(pieces.rend()));
}

void PrintExpr(Printer& p, const Expr& expr)
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
            return PrintCall(p, expr);
    }
}

void Print(Printer& p, int node)
{
    p.open = {{node}};
    while (!p.open.empty()) {
        const Piece piece = std::move(p.open.back());
        p.open.pop_back();
        if (piece.node < 0)
            p.text += piece.text;
        else
            PrintExpr(p, p.eqn.exprs[piece.node]);
    }
}

bool SameFields(const Expr& e, const Expr& f)
{
    return e.kind == f.kind && e.type == f.type && e.function == f.function &&
           e.num_children == f.num_children && e.sharp == f.sharp && e.variable == f.variable &&
           e.state == f.state && e.reading == f.reading && e.unit == f.unit && e.constant == f.constant &&
           e.value == f.value;
}

// Everything but the places in the text, for tests of printing and reading.
bool SameExpr(const Equation& a, int x, const Equation& b, int y)
{
    std::vector<std::pair<int, int>> open = {{x, y}};
    while (!open.empty()) {
        const auto [in_a, in_b] = open.back();
        open.pop_back();
        const Expr &e = a.exprs[in_a], &f = b.exprs[in_b];
        if (!SameFields(e, f)) return false;
        for (int i = 0; i < e.num_children; ++i)
            open.emplace_back(a.children[e.first_child + i], b.children[f.first_child + i]);
    }
    return true;
}

}  // namespace

std::string PrintExpression(const Equation& eqn, int node)
{
    Printer p{eqn, "", {}};
    Print(p, node);
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
