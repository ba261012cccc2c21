// The language of equations as one table: operators, functions, distributions, constants, units.
//
// Parser, checker, evaluators, printer and the reference page all work from these rows.  They are
// constant data; a descriptor is known by its address.
//
// Numbers in equations are doubles; true is 1, a state is its index.  The undefined value is NaN,
// so that it passes through arithmetic by itself; a routine that has a reason to give (a wrong
// argument of a distribution) writes it besides returning NaN.  Unless a row is lenient, a call
// with an undefined argument is undefined without its routine being asked.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>

#include "Basic/Error.h"

namespace talora {

enum EqnType : uint8_t { NONE_EQN, BOOLEAN_EQN, STATE_EQN, INTEGER_EQN, REAL_EQN, NUMERIC_EQN, ANY_EQN };

const char* TypeName(EqnType type);   // "boolean", ...
const char* OrdinalWord(int number);  // "first", ... for messages; counted from 1

constexpr double kUndefinedEqn = std::numeric_limits<double>::quiet_NaN();
constexpr int kMaxEqnText = 65536;
constexpr int kMaxEqnDepth = 250;  // of parentheses, calls and prefixes in one another; chains are none

// What went wrong in an evaluation; empty for nothing.  A fixed buffer, so that nothing is
// allocated while evaluating.
struct EqnReason {
    char text[320] = "";
    bool IsSet() const { return text[0] != '\0'; }
    void Clear() { text[0] = '\0'; }
    // Writes the reason and returns the undefined value.
    double Set(const char* format, ...) TALORA_PRINTF(2, 3);
};

using EqnRoutine = double (*)(const double* args, int count, EqnReason& reason);
// Probability that the first argument of a distribution lies in [low, high); args[0] is not read.
using IntervalRoutine = double (*)(const double* args, int count, double low, double high, EqnReason& reason);

// How the parser and checker treat a call besides what its types say.
enum SpecialForm : uint8_t {
    PLAIN_FORM = 0,
    AND_FORM = 1,
    OR_FORM = 2,
    IF_FORM = 3,
    SELECT0_FORM = 4,
    SELECT1_FORM = 5,
    NEAREST0_FORM = 6,
    NEAREST1_FORM = 7,
    DISCRETIZE_FORM = 8,
    MEMBER_FORM = 9,
    INCREASING_FORM = 10,
    NONDECREASING_FORM = 11,
    // Beyond the operators and functions:
    EQUALITY_FORM,     // arguments of one kind, states compared by name
    AS_STATE_FORM,     // only outermost
    NOISY_OR_FORM,     // boolean, real, then boolean and real in turns
    NOISY_MULTI_FORM,  // state, integer, real, then clauses of boolean, integer and real
    NOISY_TABLE_FORM   // tables of probabilities, checked by their own routine
};

// Instructions that the stack machine carries out itself.
enum EqnOp : uint8_t {
    CALL_OP,
    NEG_OP,
    NOT_OP,
    POWER_OP,
    MULT_OP,
    DIV_OP,
    MOD_OP,
    PLUS_OP,
    MINUS_OP,
    LESS_OP,
    GREATER_OP,
    LESS_EQ_OP,
    GREATER_EQ_OP,
    EQUAL_OP,
    NOT_EQUAL_OP,
    AND_OP,
    OR_OP,
    MIN_OP,
    MAX_OP,
    ABS_OP,
    SQRT_OP,
    EXP_OP,
    IF_OP
};

enum EqnFlag : uint8_t {
    LEFT_EQN = 1,         // a repeat of the operator ends the operand: groups to the left
    ASSOCIATIVE_EQN = 2,  // an argument that is a call of the same function is taken apart
    COMMUTATIVE_EQN = 4,  // the order of the arguments does not matter
    LENIENT_EQN = 8       // the routine takes undefined arguments itself
};

enum EqnSection : uint8_t {
    OPERATORS,
    FUNCTIONS,
    CONTINUOUS_DISTS,
    DISCRETE_DISTS,
    NOISY_DISTS,
    NUM_SECTIONS
};

struct FunctionDef {
    const char* name;
    const char* symbol;  // "" for plain functions
    const char* second;  // second symbol, only of the conditional
    int arity;           // 0: any number
    EqnRoutine routine;
    EqnType result;  // NUMERIC: integer if all arguments are, else real
    EqnType first;
    EqnType rest;
    int strength;  // 0 for plain functions
    uint8_t flags;
    SpecialForm form;
    EqnOp op;
    IntervalRoutine interval;  // distributions with a cumulative function
    EqnSection section;
    const char* parameters;  // for messages and the docs: "x, mean, sd"
    const char* meaning;
    const char* example;   // an expression without variables
    double example_value;  // what it gives
};

struct ConstantDef {
    const char* name;
    EqnType type;
    double value;
    const char* meaning;
};

struct UnitDef {
    const char* name;
    double factor;
    const char* meaning;
};

std::span<const FunctionDef> FunctionTable();
std::span<const ConstantDef> ConstantTable();
std::span<const UnitDef> UnitTable();  // Units.cpp

// Each null if there is none of that name.
const FunctionDef* FindFunction(std::string_view name);
const ConstantDef* FindConstant(std::string_view name);
const UnitDef* FindUnit(std::string_view name);

// The longest operator symbol that the text begins with, prefix or binary; null if none.
const FunctionDef* FindPrefixOperator(std::string_view text);
const FunctionDef* FindBinaryOperator(std::string_view text);

inline bool IsDistribution(const FunctionDef& def)
{
    return def.section >= CONTINUOUS_DISTS;
}
// Least number of arguments of a function, before its own checks.
int LeastArguments(const FunctionDef& def);

// The reference page in Markdown, made from the tables.
const char* EquationReference();

}  // namespace talora
