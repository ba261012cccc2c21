// Equations compiled to instructions for a stack machine, and the machine.
#include "Misc/Equations/EqnCompile.h"

#include "Misc/Equations/EqnBuiltin.h"

namespace talora {

namespace {

// Where an instruction of two operands has its right one.
enum Source : uint16_t { FROM_STACK, FROM_VARIABLE, FROM_CONSTANT, NUM_SOURCES };

enum Instruction : uint16_t {
    PUSH_CONSTANT,
    PUSH_VARIABLE,
    PUSH_MAPPED,
    PUSH_INTERVAL,
    JUMP,
    BRANCH,
    CALL,
    FIRST_OP
};

constexpr uint16_t Code(EqnOp op, Source source = FROM_STACK)
{
    return static_cast<uint16_t>(int{FIRST_OP} + int{op} * NUM_SOURCES + int{source});
}

struct Compiler {
    const Equation& eqn;
    EqnProgram& program;
    EqnScratch scratch;
    std::vector<double> no_values;

    void Emit(EqnInstruction instruction) { program.code.push_back(instruction); }
};

EqnInstruction Make(uint16_t op, int count = 0, int index = 0)
{
    EqnInstruction instruction;
    instruction.op = op;
    instruction.count = static_cast<uint16_t>(count);
    instruction.index = index;
    instruction.constant = 0;
    return instruction;
}

EqnInstruction MakeConstant(uint16_t op, double value)
{
    EqnInstruction instruction = Make(op);
    instruction.constant = value;
    return instruction;
}

bool IsUnary(EqnOp op)
{
    return op == NEG_OP || op == NOT_OP || op == ABS_OP || op == SQRT_OP || op == EXP_OP;
}

bool IsBinary(EqnOp op)
{
    return op != CALL_OP && op != IF_OP && !IsUnary(op);
}

// The value of an expression without variables; false if it has some, or cannot be evaluated.
bool Fold(Compiler& c, int node, double& value)
{
    if (Mentions(c.eqn, node, -1)) return false;
    value = EvaluatePart(c.eqn, node, c.no_values.data(), c.scratch);
    return !c.scratch.failure.IsSet();
}

void CompileNode(Compiler& c, int node);

// As it is, through a list by state, or as the number of its interval.
void CompileVariable(Compiler& c, const Expr& expr)
{
    if (expr.reading == Reading::AS_IS) return c.Emit(Make(PUSH_VARIABLE, 0, expr.variable));
    EqnInstruction push =
        Make(expr.reading == Reading::MAPPED ? PUSH_MAPPED : PUSH_INTERVAL, 0, expr.variable);
    push.target = expr.map;
    c.Emit(push);
}

// An operand on the right of an operator: folded into the instruction where that is possible.
void CompileRight(Compiler& c, EqnOp op, int node)
{
    const Expr& expr = c.eqn.exprs[node];
    double value;
    if (expr.kind == ExprKind::VARIABLE && expr.reading == Reading::AS_IS)
        return c.Emit(Make(Code(op, FROM_VARIABLE), 0, expr.variable));
    if (Fold(c, node, value)) return c.Emit(MakeConstant(Code(op, FROM_CONSTANT), value));
    CompileNode(c, node);
    c.Emit(Make(Code(op)));
}

// BRANCH: condition false goes to the third argument, undefined to the end; JUMP: over the third argument.
void CompileConditional(Compiler& c, const Expr& call)
{
    const int* const children = c.eqn.children.data() + call.first_child;
    CompileNode(c, children[0]);
    const size_t branch = c.program.code.size();
    c.Emit(Make(BRANCH));
    CompileNode(c, children[1]);
    const size_t jump = c.program.code.size();
    c.Emit(Make(JUMP));
    c.program.code[branch].index = static_cast<int32_t>(c.program.code.size());
    CompileNode(c, children[2]);
    c.program.code[branch].target = static_cast<int64_t>(c.program.code.size());
    c.program.code[jump].index = static_cast<int32_t>(c.program.code.size());
}

// Operators with an instruction of their own take their operands one by one from the left; all else is
// called.
void CompileCall(Compiler& c, const Expr& call)
{
    const EqnOp op = call.function->op;
    const int* const children = c.eqn.children.data() + call.first_child;
    if (op == IF_OP) return CompileConditional(c, call);
    if (op != CALL_OP && call.num_children > 0 && (IsUnary(op) || IsBinary(op))) {
        CompileNode(c, children[0]);
        if (IsUnary(op)) return c.Emit(Make(Code(op)));
        for (int i = 1; i < call.num_children; ++i) CompileRight(c, op, children[i]);
        return;
    }
    for (int i = 0; i < call.num_children; ++i) CompileNode(c, children[i]);
    EqnInstruction instruction = Make(CALL, call.num_children);
    instruction.function = call.function;
    c.Emit(instruction);
}

void CompileNode(Compiler& c, int node)
{
    const Expr& expr = c.eqn.exprs[node];
    double value;
    if (expr.kind == ExprKind::VARIABLE) return CompileVariable(c, expr);
    if (Fold(c, node, value)) return c.Emit(MakeConstant(PUSH_CONSTANT, value));
    CompileCall(c, expr);
}

// A state that the list has no entry for is undefined.
double Lookup(const std::vector<double>& map, double state)
{
    return state >= 0 && state < static_cast<double>(map.size()) ? map[static_cast<size_t>(state)]
                                                                 : kUndefinedEqn;
}

}  // namespace

// The program is self-contained: lists and thresholds are copied.
EqnProgram CompileEquation(const Equation& eqn)
{
    EqnProgram program;
    program.maps = eqn.maps;
    for (const EqnVariable& variable : eqn.variables)
        program.thresholds.push_back(variable.discrete ? std::vector<double>() : variable.levels);
    Compiler c{eqn, program, EqnScratch(eqn), std::vector<double>(eqn.variables.size(), kUndefinedEqn)};
    program.stack_size = c.scratch.stack.size() + 2;
    CompileNode(c, ValueNode(eqn));
    return program;
}

// The three instructions of an operator: left operand on top of the stack or below it.
#define TWO_OPERANDS(op, expression)                 \
    case Code(op, FROM_STACK): {                     \
        const double a = *--sp, b = top;             \
        top = expression;                            \
        break;                                       \
    }                                                \
    case Code(op, FROM_VARIABLE): {                  \
        const double a = top, b = values[at->index]; \
        top = expression;                            \
        break;                                       \
    }                                                \
    case Code(op, FROM_CONSTANT): {                  \
        const double a = top, b = at->constant;      \
        top = expression;                            \
        break;                                       \
    }

#define ONE_OPERAND(op, expression) \
    case Code(op): {                \
        const double a = top;       \
        top = expression;           \
        break;                      \
    }

// The top of the stack is kept in a variable, not in memory.
double Run(const EqnProgram& program, const double* values, double* stack, EqnReason& failure)
{
    using namespace builtin;
    const EqnInstruction* const code = program.code.data();
    const EqnInstruction* const end = code + program.code.size();
    double* sp = stack;
    double top = 0;
    for (const EqnInstruction* at = code; at != end; ++at) {
        switch (at->op) {
            case PUSH_CONSTANT:
                *sp++ = top;
                top = at->constant;
                break;
            case PUSH_VARIABLE:
                *sp++ = top;
                top = values[at->index];
                break;
            case PUSH_MAPPED:
                *sp++ = top;
                top = Lookup(program.maps[at->target], values[at->index]);
                break;
            case PUSH_INTERVAL: {
                *sp++ = top;
                const int interval = FindInterval(program.thresholds[at->index], values[at->index]);
                top = interval < 0 ? kUndefinedEqn : interval;
                break;
            }
            case JUMP:
                at = code + at->index - 1;
                break;
            case BRANCH: {
                const double condition = top;
                if (condition != condition) {  // stays, as the result
                    at = code + at->target - 1;
                    break;
                }
                top = *--sp;
                if (condition == 0) at = code + at->index - 1;
                break;
            }
            case CALL: {
                EqnReason reason;
                *sp++ = top;
                sp -= at->count;
                top = CallRoutine(*at->function, sp, at->count, reason);
                if (top != top && reason.IsSet())
                    return failure.Set("error evaluating function:  %s (%s)", at->function->name,
                                       reason.text);
                break;
            }
                ONE_OPERAND(NEG_OP, -a)
                ONE_OPERAND(NOT_OP, Not(a))
                ONE_OPERAND(ABS_OP, std::fabs(a))
                ONE_OPERAND(SQRT_OP, std::sqrt(a))
                ONE_OPERAND(EXP_OP, std::exp(a))
                TWO_OPERANDS(POWER_OP, Power(a, b))
                TWO_OPERANDS(MULT_OP, Mult(a, b))
                TWO_OPERANDS(DIV_OP, Div(a, b))
                TWO_OPERANDS(MOD_OP, Mod(a, b))
                TWO_OPERANDS(PLUS_OP, a + b)
                TWO_OPERANDS(MINUS_OP, a - b)
                TWO_OPERANDS(LESS_OP, Less(a, b))
                TWO_OPERANDS(GREATER_OP, Less(b, a))
                TWO_OPERANDS(LESS_EQ_OP, LessEq(a, b))
                TWO_OPERANDS(GREATER_EQ_OP, LessEq(b, a))
                TWO_OPERANDS(EQUAL_OP, Equal(a, b))
                TWO_OPERANDS(NOT_EQUAL_OP, NotEqual(a, b))
                TWO_OPERANDS(AND_OP, And(a, b))
                TWO_OPERANDS(OR_OP, Or(a, b))
                TWO_OPERANDS(MIN_OP, Min(a, b))
                TWO_OPERANDS(MAX_OP, Max(a, b))
            default:
                break;
        }
    }
    return top;
}

}  // namespace talora
