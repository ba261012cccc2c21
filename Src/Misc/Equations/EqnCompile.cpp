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

// What is still to be compiled: a value, an operand on the right of an operator, or what follows them.
enum class TaskKind : uint8_t { VALUE, RIGHT, EMIT, JUMP_PAST_YES, JUMP_PAST_NO };
struct Task {
    TaskKind kind;
    int node = 0;
    EqnOp op = CALL_OP;
    EqnInstruction instruction = {};
    size_t branch = 0, jump = 0;  // places in the code that are completed
};

struct Compiler {
    const Equation& eqn;
    EqnProgram& program;
    EqnScratch scratch;
    std::vector<double> no_values;
    std::vector<char> has_variables;  // by expression
    std::vector<Task> open;           // the next one last

    void Emit(EqnInstruction instruction) { program.code.push_back(instruction); }
};

EqnInstruction Make(uint16_t op, int index = 0)
{
    EqnInstruction instruction;
    instruction.op = op;
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
    if (c.has_variables[size_t(node)]) return false;
    value = EvaluatePart(c.eqn, node, c.no_values.data(), c.scratch);
    return !c.scratch.failure.IsSet();
}

void CompileVariable(Compiler& c, const Expr& expr)
{
    if (expr.reading == Reading::AS_IS) return c.Emit(Make(PUSH_VARIABLE, expr.variable));
    EqnInstruction push = Make(expr.reading == Reading::MAPPED ? PUSH_MAPPED : PUSH_INTERVAL, expr.variable);
    push.target = expr.map;
    c.Emit(push);
}

// Does tasks in order, before those that are open already.
void DoNext(Compiler& c, std::initializer_list<Task> tasks)
{
    c.open.insert(c.open.end(), std::rbegin(tasks), std::rend(tasks));
}

Task Emitting(EqnInstruction instruction)
{
    return {.kind = TaskKind::EMIT, .instruction = instruction};
}

// An operand on the right of an operator: folded into the instruction where that is possible.
void CompileRight(Compiler& c, EqnOp op, int node)
{
    const Expr& expr = c.eqn.exprs[node];
    double value;
    if (expr.kind == ExprKind::VARIABLE && expr.reading == Reading::AS_IS)
        return c.Emit(Make(Code(op, FROM_VARIABLE), expr.variable));
    if (Fold(c, node, value)) return c.Emit(MakeConstant(Code(op, FROM_CONSTANT), value));
    DoNext(c, {{.kind = TaskKind::VALUE, .node = node}, Emitting(Make(Code(op)))});
}

// Behind the condition: the jumps around the parts are completed when their ends are known.
void CompileChoice(Compiler& c, const Task& task)
{
    const int* const children = c.eqn.children.data() + c.eqn.exprs[task.node].first_child;
    const auto here = [&] { return c.program.code.size(); };
    if (task.kind == TaskKind::JUMP_PAST_YES) {
        const size_t jump = here();
        c.Emit(Make(JUMP));
        c.program.code[task.branch].index = static_cast<int32_t>(here());
        return DoNext(c, {{.kind = TaskKind::VALUE, .node = children[2]},
                          {.kind = TaskKind::JUMP_PAST_NO, .branch = task.branch, .jump = jump}});
    }
    c.program.code[task.branch].target = static_cast<int64_t>(here());
    c.program.code[task.jump].index = static_cast<int32_t>(here());
}

// Operators with an instruction of their own take their operands one by one from the left; all else is
// called.
void CompileCall(Compiler& c, int node)
{
    const Expr& call = c.eqn.exprs[node];
    const EqnOp op = call.function->op;
    const int* const children = c.eqn.children.data() + call.first_child;
    std::vector<Task> tasks;
    if (op == IF_OP) {
        tasks = {{.kind = TaskKind::VALUE, .node = children[0]},
                 {.kind = TaskKind::EMIT, .node = node, .op = IF_OP, .instruction = Make(BRANCH)}};
    } else if (op != CALL_OP && call.num_children > 0 && (IsUnary(op) || IsBinary(op))) {
        tasks.push_back({.kind = TaskKind::VALUE, .node = children[0]});
        if (IsUnary(op)) tasks.push_back(Emitting(Make(Code(op))));
        for (int i = 1; i < call.num_children; ++i)
            if (!IsUnary(op)) tasks.push_back({.kind = TaskKind::RIGHT, .node = children[i], .op = op});
    } else {
        for (int i = 0; i < call.num_children; ++i)
            tasks.push_back({.kind = TaskKind::VALUE, .node = children[i]});
        EqnInstruction instruction = Make(CALL, call.num_children);
        instruction.function = call.function;
        tasks.push_back(Emitting(instruction));
    }
    c.open.insert(c.open.end(), tasks.rbegin(), tasks.rend());
}

void CompileValue(Compiler& c, int node)
{
    const Expr& expr = c.eqn.exprs[node];
    double value;
    if (expr.kind == ExprKind::VARIABLE) return CompileVariable(c, expr);
    if (Fold(c, node, value)) return c.Emit(MakeConstant(PUSH_CONSTANT, value));
    CompileCall(c, node);
}

void CompileAll(Compiler& c, int root)
{
    c.open = {{.kind = TaskKind::VALUE, .node = root}};
    while (!c.open.empty()) {
        const Task task = c.open.back();
        c.open.pop_back();
        switch (task.kind) {
            case TaskKind::VALUE:
                CompileValue(c, task.node);
                break;
            case TaskKind::RIGHT:
                CompileRight(c, task.op, task.node);
                break;
            case TaskKind::EMIT:
                c.Emit(task.instruction);
                if (task.op == IF_OP) {
                    const int yes = c.eqn.children[c.eqn.exprs[task.node].first_child + 1];
                    DoNext(c, {{.kind = TaskKind::VALUE, .node = yes},
                               {.kind = TaskKind::JUMP_PAST_YES,
                                .node = task.node,
                                .branch = c.program.code.size() - 1}});
                }
                break;
            case TaskKind::JUMP_PAST_YES:
            case TaskKind::JUMP_PAST_NO:
                CompileChoice(c, task);
                break;
        }
    }
}

}  // namespace

// The program is self-contained: lists and thresholds are copied.
EqnProgram CompileEquation(const Equation& eqn)
{
    EqnProgram program;
    program.maps = eqn.maps;
    for (const EqnVariable& variable : eqn.variables)
        program.thresholds.push_back(variable.discrete ? std::vector<double>() : variable.levels);
    Compiler c{eqn,
               program,
               EqnScratch(eqn),
               std::vector<double>(eqn.variables.size(), kUndefinedEqn),
               FindMentions(eqn, -1),
               {}};
    program.stack_size = c.scratch.stack.size() + 2;
    CompileAll(c, ValueNode(eqn));
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
                top = EntryOf(program.maps[at->target], values[at->index]);
                break;
            case PUSH_INTERVAL: {
                *sp++ = top;
                const int interval = FindInterval(program.thresholds[at->index], values[at->index]);
                top = interval < 0     ? kUndefinedEqn
                      : at->target < 0 ? interval
                                       : EntryOf(program.maps[at->target], interval);
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
                sp -= at->index;
                top = CallRoutine(*at->function, sp, at->index, reason);
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
