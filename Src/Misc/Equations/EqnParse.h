// Equations: from text to a tree of typed expressions.
//
//   x (a, b) = expression          the value of x, given its parents
//   P (x | a, b) = expression      the probability of each value of x
//
// An equation is self-contained: it knows its variables by the caller's description of them (this folder
// knows no nodes) and keeps a copy of its text.  Expressions are records in one vector,
// arguments of a call are a run of indices in another.  An expression comes behind its arguments, and the
// root is the last one, so what goes through a tree goes through the vector: chains of operators make trees
// as deep as they are long, and nothing may recurse.
//
// Parsing settles the syntax, checking (EqnCheck.h) then finds what the names mean and gives types.
// Each fails with a record that gives the place in the text.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Misc/Equations/EqnTable.h"

namespace talora {

// What an equation has to know of a node: the output or one of its parents.
struct EqnVariable {
    std::string name;  // as it is called in the equation: name of the link if it has one
    bool discrete = false;
    int num_states = 0;
    std::vector<std::string> state_names;  // may be shorter than num_states: the others have none
    std::vector<double> levels;            // one per state; of a continuous one the thresholds; or empty
};

enum class ExprKind : uint8_t {
    NUMBER,
    VARIABLE,
    CONSTANT,
    STATE,
    CALL,
    NAME  // not looked up yet; none is left after checking
};

// How a variable's entry in the assignment becomes its value.  Discrete variables are assigned by
// state index, continuous ones by number.
enum class Reading : uint8_t {
    AS_IS,
    MAPPED,     // through a list with an entry per state: levels, truth values, states of another
    THRESHOLDS  // the state whose interval holds the number, or its entry of a list
};

struct Slice {
    int at = 0, length = 0;
};

struct Expr {
    ExprKind kind = ExprKind::NUMBER;
    EqnType type = NONE_EQN;
    Reading reading = Reading::AS_IS;
    bool sharp = false;  // written with the state indicator #
    bool infix = false;  // call written with its operator
    int position = 0;    // in the text
    int variable = -1;   // VARIABLE, and STATE: whose state
    int state = -1;      // STATE
    int map = -1;        // of a mapped reading
    double value = 0;    // NUMBER (in its unit), CONSTANT, and STATE as it is compared
    const UnitDef* unit = nullptr;
    const ConstantDef* constant = nullptr;
    const FunctionDef* function = nullptr;
    int first_child = 0, num_children = 0;
    Slice name, owner;  // NAME and STATE as written: state--variable
};

// What the value of the right-hand side of a deterministic equation is.
enum class EqnResult : uint8_t {
    NUMBER,   // a number: level or state index of a discrete node, value of a continuous one
    TRUTH,    // 0 or 1
    STATE,    // a state index of the output
    AS_STATE  // root is AsState: the number that it converts
};

struct Equation {
    std::string text;
    std::vector<EqnVariable> variables;  // of the head: output first, then parents in its order
    std::vector<int> sources;            // index of each in the list that the caller gave
    bool has_output = true;              // false for a formula without a head: all variables are inputs
    bool probabilistic = false;
    EqnResult result = EqnResult::NUMBER;
    std::vector<Expr> exprs;
    std::vector<int> children;
    std::vector<std::vector<double>> maps;
    std::vector<std::pair<int, int>> map_keys;  // variable and purpose of each map
    // Names of states that the variable compared with lacks, numbered.
    std::unordered_map<std::string, int> foreign_states;
    int root = -1;
    bool warns = true;

    const Expr& Root() const { return exprs[root]; }
    std::string_view Text(Slice slice) const { return std::string_view(text).substr(slice.at, slice.length); }
};

// Parses and checks an equation.  candidates: the output, then its parents.
// @param place  receives the position in the text that a failure is about; may be null
// @param warns  false to leave out warnings
Equation ParseEquation(std::string_view text, const std::vector<EqnVariable>& candidates, int* place,
                       bool warns = true);

// The same for an expression without a head, over the given variables.
Equation ParseFormula(std::string_view text, const std::vector<EqnVariable>& variables, int* place);

}  // namespace talora
