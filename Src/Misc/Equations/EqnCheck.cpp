// The types of an equation: what names mean where they stand, how variables are read, whether arguments fit.
#include "Misc/Equations/EqnCheck.h"

#include <algorithm>
#include <unordered_map>

#include "Basic/Memory.h"
#include "Misc/Equations/ProbFuncs.h"

namespace talora {

namespace {

constexpr const char* kTruthNames[][2] = {
    {"true", "false"},        {"yes", "no"},  {"on", "off"}, {"present", "absent"},
    {"positive", "negative"}, {"pos", "neg"}, {"t", "f"},    {"y", "n"},
};

// Purposes of maps, besides the index of the variable whose state numbering is wanted.
constexpr int kLevelsMap = -1, kTruthMap = -2, kCauseMap = -3;
constexpr int kNobody = -1;
constexpr double kSumTolerance = 1e-5;

struct Checker {
    Equation& eqn;
    int* place;
    // By expression: the variable whose states names beside it would mean; -1 if none.
    std::vector<int> meanings = {};

    Expr& At(int node) const { return eqn.exprs[node]; }
    Expr& Child(int node, int i) const { return At(eqn.children[At(node).first_child + i]); }
    int ChildIndex(int node, int i) const { return eqn.children[At(node).first_child + i]; }
    const EqnVariable& Variable(const Expr& expr) const { return eqn.variables[expr.variable]; }
};

std::string Word(const Checker& c, Slice slice)
{
    return std::string(c.eqn.Text({slice.at, std::min(slice.length, 200)}));
}

bool HasNames(const EqnVariable& variable)
{
    return !variable.state_names.empty();
}

int FindState(const EqnVariable& variable, std::string_view name)
{
    const auto& names = variable.state_names;
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

bool IsNumber(EqnType type)
{
    return type == INTEGER_EQN || type == REAL_EQN || type == NUMERIC_EQN;
}

// Discrete variables count by their levels, else by their state names, else by their state numbers.
EqnType TypeOfVariable(const EqnVariable& variable)
{
    if (!variable.discrete) return REAL_EQN;
    if (variable.levels.empty()) return HasNames(variable) ? STATE_EQN : INTEGER_EQN;
    const bool whole = std::all_of(variable.levels.begin(), variable.levels.end(),
                                   [](double x) { return x == std::floor(x); });
    return whole ? INTEGER_EQN : REAL_EQN;
}

// ---- Readings of variables ----

// The list with an entry per state for this purpose, made once for each variable.
template <class Make>
int FindMap(const Checker& c, int variable_index, int purpose, Make make)
{
    const std::pair<int, int> key(variable_index, purpose);
    auto& keys = c.eqn.map_keys;
    const auto found = std::find(keys.begin(), keys.end(), key);
    const int map_index = static_cast<int>(found - keys.begin());
    if (found != keys.end()) return map_index;
    const EqnVariable& variable = c.eqn.variables[variable_index];
    CheckMemory(variable.num_states * double(sizeof(double)),
                "for the equation's states of '%s' (see >-LimitMemoryUsage_vx)", variable.name.c_str());
    std::vector<double> map(variable.num_states);
    for (int state = 0; state < variable.num_states; ++state) map[state] = make(state);
    keys.push_back(key);
    c.eqn.maps.push_back(std::move(map));
    return map_index;
}

// The value is looked up in a list by the state, instead of being the state itself.
template <class Make>
void ReadThrough(const Checker& c, Expr& expr, int purpose, Make make)
{
    expr.reading = Reading::MAPPED;
    expr.map = FindMap(c, expr.variable, purpose, make);
}

// As the level of the state; continuous variables are numbers as they are.
void ReadAsNumber(const Checker& c, Expr& expr)
{
    const EqnVariable& variable = c.Variable(expr);
    if (variable.discrete && !variable.levels.empty())
        ReadThrough(c, expr, kLevelsMap, [&](int state) {
            return state < static_cast<int>(variable.levels.size()) ? variable.levels[state] : kUndefinedEqn;
        });
    else
        expr.reading = Reading::AS_IS;
}

void ReadAsIndex(const Checker& c, Expr& expr)
{
    expr.reading = c.Variable(expr).discrete ? Reading::AS_IS : Reading::THRESHOLDS;
}

void ReadAsTruth(const Checker& c, Expr& expr)
{
    const EqnVariable& variable = c.Variable(expr);
    ReadThrough(c, expr, kTruthMap, [&](int state) { return state == StateOfTruth(variable, true); });
    expr.type = BOOLEAN_EQN;
}

std::string_view NameOf(const EqnVariable& variable, int state)
{
    return state < static_cast<int>(variable.state_names.size())
               ? std::string_view(variable.state_names[state])
               : std::string_view();
}

// A number for a state that the variable compared with does not have: equal names stay equal, and one
// without a name is like no other.
double ForeignState(const Checker& c, std::string_view name, int state)
{
    if (name.empty()) return -1e10 - state;
    auto& known = c.eqn.foreign_states;
    return -1.0 - known.emplace(name, static_cast<int>(known.size())).first->second;
}

// The numbers of a variable's states in the numbering of another one.
class StateTranslation {
public:
    StateTranslation(const Checker& c, const EqnVariable& from, const EqnVariable& to)
        : c_(c),
          from_(from),
          to_(to),
          same_(&from == &to || !HasNames(from) || !HasNames(to)),
          from_true_(TrueState(from)),
          to_true_(TrueState(to))
    {}
    double operator()(int state)
    {
        if (same_) return state;
        if (index_.empty())
            for (size_t i = 0; i < to_.state_names.size(); ++i)
                index_.emplace(to_.state_names[i], static_cast<int>(i));
        const std::string_view name = NameOf(from_, state);
        const auto found = name.empty() ? index_.end() : index_.find(name);
        if (found != index_.end()) return found->second;
        if (from_true_ >= 0 && to_true_ >= 0) return state == from_true_ ? to_true_ : 1 - to_true_;
        return ForeignState(c_, name, state);
    }

private:
    const Checker& c_;
    const EqnVariable &from_, &to_;
    bool same_;
    int from_true_, to_true_;
    std::unordered_map<std::string_view, int> index_;
};

bool IsChoice(const Expr& expr)
{
    if (expr.kind != ExprKind::CALL) return false;
    const SpecialForm form = expr.function->form;
    return form == IF_FORM || form == SELECT0_FORM || form == SELECT1_FORM;
}

// Makes an expression yield a state in the numbering of a variable.
void ReadAsStateOf(const Checker& c, int node, int reference)
{
    const EqnVariable& to = c.eqn.variables[reference];
    std::vector<int> open = {node};
    while (!open.empty()) {
        Expr& expr = c.At(open.back());
        const int here = open.back();
        open.pop_back();
        if (expr.kind == ExprKind::STATE) {
            const EqnVariable& from = c.Variable(expr);
            expr.value = &from == &to ? expr.state
                                      : c.eqn.maps[FindMap(c, expr.variable, reference,
                                                           StateTranslation(c, from, to))][expr.state];
        } else if (expr.kind == ExprKind::VARIABLE) {
            const EqnVariable& from = c.Variable(expr);
            if (!from.discrete || expr.sharp || expr.variable == reference || !HasNames(from) ||
                !HasNames(to))
                ReadAsIndex(c, expr);
            else
                ReadThrough(c, expr, reference, StateTranslation(c, from, to));
        } else if (IsChoice(expr)) {
            for (int i = expr.num_children - 1; i > 0; --i) open.push_back(c.ChildIndex(here, i));
        }
    }
}

// ---- Names ----

[[noreturn]] void FailUnknown(const Checker& c, const Expr& expr)
{
    *c.place = expr.position;
    Fail<2091>(Word(c, expr.name).c_str(),
               expr.sharp ? " (was trying to interpret it as a state name, since it is preceeded by #)" : "");
}

int FindVariable(const Checker& c, std::string_view name)
{
    for (size_t i = 0; i < c.eqn.variables.size(); ++i)
        if (c.eqn.variables[i].name == name) return static_cast<int>(i);
    return -1;
}

void BecomeState(Expr& expr, int variable, int state)
{
    expr.kind = ExprKind::STATE;
    expr.type = STATE_EQN;
    expr.variable = variable;
    expr.state = state;
    expr.value = state;
}

// state--variable, or #number--variable
void ResolveOwned(const Checker& c, Expr& expr)
{
    const std::string state = Word(c, expr.name), owner = Word(c, expr.owner);
    *c.place = expr.position;
    const int variable = FindVariable(c, c.eqn.Text(expr.owner));
    if (variable < 0) Fail<2356>(state.c_str(), owner.c_str(), owner.c_str());
    const EqnVariable& of = c.eqn.variables[variable];
    const int index = expr.value == 1 ? expr.state : FindState(of, c.eqn.Text(expr.name));
    if (index < 0 || index >= of.num_states)
        Fail<2464>(state.c_str(), owner.c_str(), state.c_str(), owner.c_str());
    BecomeState(expr, variable, index);
}

void ResolveVariable(const Checker& c, Expr& expr, int variable)
{
    const EqnVariable& of = c.eqn.variables[variable];
    *c.place = expr.position;
    if (variable == 0 && c.eqn.has_output && !c.eqn.probabilistic) Fail<2439>(of.name.c_str());
    expr.kind = ExprKind::VARIABLE;
    expr.variable = variable;
    if (!expr.sharp) {
        expr.type = TypeOfVariable(of);
        ReadAsNumber(c, expr);
        return;
    }
    if (!of.discrete && of.num_states == 0) Fail<2480>(of.name.c_str());
    expr.type = INTEGER_EQN;
    ReadAsIndex(c, expr);
}

void Resolve(const Checker& c, Expr& expr, int context)
{
    if (expr.owner.length > 0) return ResolveOwned(c, expr);
    const bool is_number = expr.sharp && expr.value == 1;
    const std::string_view name = c.eqn.Text(expr.name);
    if (!is_number)
        if (const int variable = FindVariable(c, name); variable >= 0)
            return ResolveVariable(c, expr, variable);
    if (context >= 0) {
        const EqnVariable& of = c.eqn.variables[context];
        const int state = is_number ? expr.state : FindState(of, name);
        if (state >= 0 && state < of.num_states) return BecomeState(expr, context, state);
    }
    const ConstantDef* constant = expr.sharp ? nullptr : FindConstant(name);
    if (constant == nullptr) FailUnknown(c, expr);
    expr.kind = ExprKind::CONSTANT;
    expr.constant = constant;
    expr.type = constant->type;
    expr.value = constant->value;
}

// See Checker::meanings; those of an expression's arguments are known.
int MeaningOf(const Checker& c, int node)
{
    const Expr& expr = c.At(node);
    if (expr.kind == ExprKind::NAME)
        return FindVariable(c, c.eqn.Text(expr.owner.length > 0 ? expr.owner : expr.name));
    if (!IsChoice(expr)) return kNobody;
    for (int i = 1; i < expr.num_children; ++i)
        if (const int found = c.meanings[c.ChildIndex(node, i)]; found >= 0) return found;
    return kNobody;
}

// ---- Types of arguments ----

[[noreturn]] void FailType(const Checker& c, int node, int argument, EqnType wanted, EqnType given)
{
    const Expr& call = c.At(node);
    const FunctionDef& def = *call.function;
    const char* const ordinal = OrdinalWord(argument + 1);
    *c.place = c.Child(node, argument).position;
    if (!call.infix) Fail<2326>(ordinal, def.name, TypeName(wanted), TypeName(given));
    if (def.arity == 1) Fail<2322>(def.symbol, TypeName(wanted), TypeName(given));
    if (argument == 0) Fail<2323>(def.symbol, TypeName(wanted), TypeName(given));
    Fail<2324>(ordinal, def.symbol, TypeName(wanted), TypeName(given));
}

[[noreturn]] void FailMixed(const Checker& c, int node, int argument, EqnType given, EqnType others)
{
    const FunctionDef& def = *c.At(node).function;
    const char* const ordinal = OrdinalWord(argument + 1);
    *c.place = c.Child(node, argument).position;
    if (c.At(node).infix) Fail<2036>(ordinal, def.symbol, TypeName(given), TypeName(others));
    Fail<2467>(ordinal, def.name, TypeName(given), TypeName(others));
}

bool IsConditional(const Expr& expr)
{
    return expr.kind == ExprKind::CALL && expr.function->form == IF_FORM;
}

// A truth value, a constant like `true` read as a state, a choice of two such, or a discrete variable.
bool CanBeTruth(const Checker& c, int node)
{
    std::vector<int> open = {node};
    while (!open.empty()) {
        const int here = open.back();
        const Expr& expr = c.At(here);
        open.pop_back();
        if (expr.type == BOOLEAN_EQN) continue;
        if (IsConditional(expr)) {
            open.push_back(c.ChildIndex(here, 1));
            open.push_back(c.ChildIndex(here, 2));
            continue;
        }
        const bool can = expr.kind == ExprKind::STATE
                             ? FindConstant(c.eqn.Text(expr.name)) != nullptr && !expr.sharp
                             : expr.kind == ExprKind::VARIABLE && !expr.sharp && c.Variable(expr).discrete;
        if (!can) return false;
    }
    return true;
}

// Makes one argument boolean: a variable by its state names; `true` and `false` where the context made
// states of them.
void BecomeTruth(const Checker& c, Expr& expr, const FunctionDef& def)
{
    if (expr.kind == ExprKind::STATE) {
        expr.constant = FindConstant(c.eqn.Text(expr.name));
        expr.kind = ExprKind::CONSTANT;
        expr.type = expr.constant->type;
        expr.value = expr.constant->value;
    }
    if (expr.type == BOOLEAN_EQN) return;
    const EqnVariable& variable = c.Variable(expr);
    *c.place = expr.position;
    if (variable.num_states != 2) Fail<2465>(variable.name.c_str(), def.name, variable.num_states);
    if (TrueState(variable) < 0 && c.eqn.warns) Warn<2466>(variable.name.c_str(), def.name);
    ReadAsTruth(c, expr);
}

// The same for an argument that may be a conditional: then for both of its parts.
void WantTruth(const Checker& c, int node, int argument)
{
    if (!CanBeTruth(c, c.ChildIndex(node, argument)))
        FailType(c, node, argument, BOOLEAN_EQN, c.Child(node, argument).type);
    struct Place {
        int call, argument;
    };
    std::vector<Place> open = {{node, argument}};
    while (!open.empty()) {
        const Place place = open.back();
        open.pop_back();
        const int here = c.ChildIndex(place.call, place.argument);
        Expr& expr = c.At(here);
        if (IsConditional(expr) && expr.type != BOOLEAN_EQN) {
            expr.type = BOOLEAN_EQN;
            open.push_back({here, 2});
            open.push_back({here, 1});
        } else {
            BecomeTruth(c, expr, *c.At(place.call).function);
        }
    }
}

// Fails unless the argument is, or can be read as, a value of the type.
void Want(const Checker& c, int node, int argument, EqnType wanted)
{
    const Expr& expr = c.Child(node, argument);
    if (wanted == ANY_EQN) return;
    if (wanted == BOOLEAN_EQN) return WantTruth(c, node, argument);
    if (wanted == STATE_EQN ? expr.type == BOOLEAN_EQN : !IsNumber(expr.type))
        FailType(c, node, argument, wanted, expr.type);
}

bool CanBeState(const Checker& c, const Expr& expr)
{
    if (expr.type == STATE_EQN) return true;
    return expr.kind == ExprKind::VARIABLE && (expr.sharp || c.Variable(expr).discrete);
}

// The variable in whose numbering the arguments from `first` on are compared as states.
int ReferenceOf(const Checker& c, int node, int first, int context)
{
    for (int i = first; i < c.At(node).num_children; ++i) {
        const Expr& expr = c.Child(node, i);
        if (expr.kind == ExprKind::VARIABLE && !expr.sharp) return expr.variable;
    }
    for (int i = first; i < c.At(node).num_children; ++i) {
        const int found = c.meanings[c.ChildIndex(node, i)];
        if (found >= 0) return found;
        if (c.Child(node, i).kind == ExprKind::STATE) return c.Child(node, i).variable;
    }
    return std::max(context, 0);
}

// A variable with state names against one without: they have no states in common.
void CheckEquality(const Checker& c, int node)
{
    const Expr &a = c.Child(node, 0), &b = c.Child(node, 1);
    const auto is_plain = [](const Expr& expr) { return expr.kind == ExprKind::VARIABLE && !expr.sharp; };
    if (!is_plain(a) || !is_plain(b)) return;
    const EqnVariable &x = c.Variable(a), &y = c.Variable(b);
    const bool both_numbers = (!x.discrete || !x.levels.empty()) && (!y.discrete || !y.levels.empty());
    if (HasNames(x) == HasNames(y) || (both_numbers && x.discrete != y.discrete)) return;
    *c.place = c.At(node).position;
    Fail<2463>(x.name.c_str(), y.name.c_str());
}

// Arguments from `first` on must be of one kind: truth values, states or numbers.  @return their type
// 1. What kinds there are among the arguments.
EqnType Unify(const Checker& c, int node, int first, int context)
{
    const int count = c.At(node).num_children;
    bool truth = false, state = false, whole = true;
    EqnType sample = NONE_EQN;
    int names = 0, variables = 0;
    for (int i = first; i < count; ++i) {
        const Expr& expr = c.Child(node, i);
        truth |= expr.type == BOOLEAN_EQN;
        state |= expr.type == STATE_EQN;
        whole &= expr.type == INTEGER_EQN;
        if (expr.kind == ExprKind::VARIABLE && !expr.sharp && c.Variable(expr).discrete) {
            ++variables;
            names += HasNames(c.Variable(expr));
        }
    }
    // Named states are compared by name even where they have levels.
    if (c.At(node).function->form == EQUALITY_FORM && variables == 2 && names == 2) state = true;
    for (int i = first; i < count; ++i) {
        const Expr& expr = c.Child(node, i);
        // 2. Truth wins over states, states over numbers; what cannot be read so does not fit.
        const bool fits = truth ? CanBeTruth(c, c.ChildIndex(node, i)) : !state || CanBeState(c, expr);
        if (!fits) FailMixed(c, node, i, expr.type, truth ? BOOLEAN_EQN : STATE_EQN);
        if (sample == NONE_EQN) sample = expr.type;
    }
    if (truth) {
        for (int i = first; i < count; ++i) WantTruth(c, node, i);
        return BOOLEAN_EQN;
    }
    if (!state) return whole ? INTEGER_EQN : REAL_EQN;
    // 3. States are all brought into the numbering of one variable.
    const int reference = ReferenceOf(c, node, first, context);
    for (int i = first; i < count; ++i) ReadAsStateOf(c, c.ChildIndex(node, i), reference);
    return STATE_EQN;
}

// ---- Noisy tables ----

struct NoisyTable {
    const Checker& c;
    int node;
    const FunctionDef& def;
    int next = 2;

    Expr& Argument(int i) const
    {
        if (i >= c.At(node).num_children) Fail<2512>(def.name);
        *c.place = c.Child(node, i).position;
        return c.Child(node, i);
    }
};

bool IsSum(const FunctionDef& def)
{
    return def.interval != nullptr;
}

void CheckNoisyVariable(const NoisyTable& t, int i, bool needs_states)
{
    const Expr& expr = t.Argument(i);
    const char* const ordinal = OrdinalWord(i + 1);
    if (expr.kind != ExprKind::VARIABLE) Fail<2502>(ordinal, t.def.name);
    const EqnVariable& variable = t.c.Variable(expr);
    if (needs_states && variable.num_states == 0) Fail<2503>(variable.name.c_str(), ordinal, t.def.name);
    if (i == 0 && IsSum(t.def) && (variable.discrete || variable.num_states == 0))
        Fail<2535>(variable.name.c_str(), ordinal, t.def.name);
}

// The second argument: number of states of the output, or of pairs for each condition.
int CheckNoisyCount(const NoisyTable& t)
{
    const Expr& expr = t.Argument(1);
    if (expr.kind != ExprKind::NUMBER || expr.type != INTEGER_EQN) Fail<2504>(OrdinalWord(2), t.def.name);
    const EqnVariable& output = t.c.Variable(t.c.Child(t.node, 0));
    if (!IsSum(t.def) && expr.value != output.num_states)
        Fail<2505>(OrdinalWord(2), t.def.name, expr.value, output.num_states);
    if (expr.value < 1 || expr.value > t.c.At(t.node).num_children) Fail<2512>(t.def.name);
    return static_cast<int>(expr.value);
}

// One list of probabilities (or of pairs of probability and amount).
void CheckNoisyList(NoisyTable& t, int count)
{
    const int stride = IsSum(t.def) ? 2 : 1;
    double sum = 0;
    bool all_known = true;
    for (int k = 0; k < count * stride; ++k, ++t.next) {
        const Expr& expr = t.Argument(t.next);
        const char* const ordinal = OrdinalWord(t.next + 1);
        if (!IsNumber(expr.type)) {
            const bool is_amount = k % stride != 0;
            if (is_amount && expr.kind == ExprKind::STATE) Fail<2508>(ordinal, t.def.name);
            if (IsSum(t.def)) Fail<2537>(ordinal, t.def.name, TypeName(REAL_EQN), TypeName(expr.type));
            Fail<2506>(ordinal, t.def.name, TypeName(REAL_EQN), TypeName(expr.type));
        }
        if (k % stride != 0) continue;
        all_known &= expr.kind == ExprKind::NUMBER;
        if (expr.kind != ExprKind::NUMBER) continue;
        const double prob = expr.value * (expr.unit ? expr.unit->factor : 1);
        if (!(prob >= 0 && prob <= 1)) Fail<2507>(ordinal, t.def.name, prob);
        sum += prob;
    }
    if (!all_known) return;
    if (IsSum(t.def) && sum > 1 + kSumTolerance) Fail<2543>(t.def.name, sum);
    if (!IsSum(t.def) && std::fabs(sum - 1) > kSumTolerance) Fail<2509>(t.def.name, sum);
}

// 1. The output and the number of its states (or of pairs). 2. The list of the leak. 3. For each cause the
// variable and a list for each of its states.
void CheckNoisyTable(const Checker& c, int node)
{
    NoisyTable t{c, node, *c.At(node).function};
    CheckNoisyVariable(t, 0, !IsSum(t.def));
    const int count = CheckNoisyCount(t);
    if (IsSum(t.def))
        ReadAsNumber(c, c.Child(node, 0));
    else
        ReadAsIndex(c, c.Child(node, 0));
    CheckNoisyList(t, count);
    while (t.next < c.At(node).num_children) {
        CheckNoisyVariable(t, t.next, true);
        Expr& cause = t.Argument(t.next++);
        const EqnVariable& variable = c.Variable(cause);
        cause.reading = variable.discrete ? Reading::MAPPED : Reading::THRESHOLDS;
        cause.map = FindMap(c, cause.variable, kCauseMap,
                            [&](int state) { return dist::PackCause(state, variable.num_states); });
        for (int state = 0; state < variable.num_states; ++state) CheckNoisyList(t, count);
    }
}

// ---- Calls ----

// A distribution's value may be a variable with state names: its states are then counted from 0.
void WantOutcome(const Checker& c, int node, EqnType wanted)
{
    Expr& expr = c.Child(node, 0);
    const bool counts =
        IsDistribution(*c.At(node).function) && expr.kind == ExprKind::VARIABLE && wanted != BOOLEAN_EQN;
    if (!counts || expr.type != STATE_EQN) return Want(c, node, 0, wanted);
    ReadAsIndex(c, expr);
    expr.type = INTEGER_EQN;
}

EqnType WantedType(const FunctionDef& def, int argument)
{
    if (argument == 0) return def.first;
    if (def.form == NOISY_OR_FORM) return argument % 2 == 0 ? BOOLEAN_EQN : REAL_EQN;
    if (def.form != NOISY_MULTI_FORM) return def.rest;
    if (argument % 3 == 1) return argument == 1 ? INTEGER_EQN : STATE_EQN;
    return argument % 3 == 0 ? BOOLEAN_EQN : REAL_EQN;
}

// Functions whose arguments are of one kind are unified; the others have a type for each argument.
void CheckArguments(const Checker& c, int node, int context)
{
    const FunctionDef& def = *c.At(node).function;
    const int count = c.At(node).num_children;
    const bool is_choice = def.form == IF_FORM || def.form == SELECT0_FORM || def.form == SELECT1_FORM;
    if (def.form == EQUALITY_FORM) CheckEquality(c, node);
    if (def.form == NOISY_TABLE_FORM) return CheckNoisyTable(c, node);
    const bool of_one_kind = is_choice || def.form == EQUALITY_FORM || def.form == MEMBER_FORM;
    for (int i = 0; i < (of_one_kind ? std::min(count, is_choice ? 1 : 0) : count); ++i) {
        if (i == 0)
            WantOutcome(c, node, def.first);
        else
            Want(c, node, i, WantedType(def, i));
        Expr& expr = c.Child(node, i);
        if (def.form == NOISY_MULTI_FORM && i % 3 != 2 && expr.type == STATE_EQN)
            ReadAsStateOf(c, c.ChildIndex(node, i), ReferenceOf(c, node, 0, context));
    }
    EqnType unified = NONE_EQN;
    if (of_one_kind) unified = Unify(c, node, is_choice ? 1 : 0, context);
    Expr& call = c.At(node);
    call.type = def.result;
    if (is_choice) call.type = unified;
    if (def.result != NUMERIC_EQN) return;
    call.type = INTEGER_EQN;
    for (int i = 0; i < count; ++i)
        if (c.Child(node, i).type != INTEGER_EQN) call.type = REAL_EQN;
}

// The contexts in which the state names of a call's arguments are looked up.
void FindContexts(const Checker& c, int node, std::vector<int>& contexts)
{
    const Expr& call = c.At(node);
    const SpecialForm form = call.function->form;
    const auto meaning = [&](int i) { return c.meanings[c.ChildIndex(node, i)]; };
    // Of arguments that are compared, what the first other one means.
    int first = 0, second = 0;
    if (form == EQUALITY_FORM || form == MEMBER_FORM) {
        while (first < call.num_children && meaning(first) < 0) ++first;
        for (second = first + 1; second < call.num_children && meaning(second) < 0;) ++second;
    }
    for (int i = 0; i < call.num_children; ++i) {
        int& context = contexts[c.ChildIndex(node, i)];
        context = kNobody;
        if (IsChoice(call)) {
            if (i > 0) context = contexts[node];
        } else if (form == NOISY_MULTI_FORM) {
            if (i % 3 == 1) context = meaning(0);
        } else if (form == EQUALITY_FORM || form == MEMBER_FORM) {
            const int other = i == first ? second : first;
            if (other < call.num_children) context = meaning(other);
        }
    }
}

// Arguments first, as a call's type follows from theirs.
void CheckNode(const Checker& c, int node, int context)
{
    Expr& expr = c.At(node);
    if (expr.kind == ExprKind::NAME) return Resolve(c, expr, context);
    if (expr.kind == ExprKind::NUMBER) {
        const double value = expr.value * (expr.unit ? expr.unit->factor : 1);
        expr.type = value == std::floor(value) ? INTEGER_EQN : REAL_EQN;
    }
    if (expr.kind == ExprKind::CALL) CheckArguments(c, node, context);
}

// Arguments come before their calls, so one pass up and one down and one up again do it all.
void CheckTree(Checker& c, int root_context)
{
    const auto size = static_cast<int>(c.eqn.exprs.size());
    c.meanings.assign(size, kNobody);
    for (int node = 0; node < size; ++node) c.meanings[node] = MeaningOf(c, node);
    std::vector<int> contexts(size, kNobody);
    std::vector<char> belongs(size, 0);  // to the tree: calls that gave way to their arguments do not
    contexts[c.eqn.root] = root_context;
    belongs[c.eqn.root] = 1;
    for (int node = c.eqn.root; node >= 0; --node) {
        if (!belongs[node] || c.At(node).kind != ExprKind::CALL) continue;
        FindContexts(c, node, contexts);
        for (int i = 0; i < c.At(node).num_children; ++i) belongs[c.ChildIndex(node, i)] = 1;
    }
    for (int node = 0; node < size; ++node)
        if (belongs[node]) CheckNode(c, node, contexts[node]);
}

// ---- The right-hand side as a whole ----

void CheckTruthOutput(const EqnVariable& output, bool warns)
{
    if (!output.discrete || output.num_states != 2) Fail<2461>(output.name.c_str(), output.num_states);
    if (TrueState(output) < 0 && warns) Warn<2462>(output.name.c_str());
}

// What the value of a deterministic equation stands for in its output.
void CheckResult(const Checker& c)
{
    Equation& eqn = c.eqn;
    const Expr& root = eqn.Root();
    *c.place = root.position;
    if (!eqn.has_output) return;
    const EqnVariable& output = eqn.variables[0];
    if (root.type == STATE_EQN && (eqn.probabilistic || !output.discrete))
        Fail<2324>(OrdinalWord(2), "=", TypeName(REAL_EQN), TypeName(STATE_EQN));
    if (eqn.probabilistic) return;
    if (root.kind == ExprKind::CALL && root.function->form == AS_STATE_FORM && !output.levels.empty()) {
        eqn.result = EqnResult::AS_STATE;
    } else if (root.type == STATE_EQN) {
        eqn.result = EqnResult::STATE;
        ReadAsStateOf(c, eqn.root, 0);
    } else if (root.type == BOOLEAN_EQN) {
        eqn.result = EqnResult::TRUTH;
        CheckTruthOutput(output, eqn.warns);
    }
}

}  // namespace

// By well-known pairs of names, in either order and case.
int TrueState(const EqnVariable& variable)
{
    if (!variable.discrete || variable.num_states != 2 || variable.state_names.size() != 2) return -1;
    for (const auto& pair : kTruthNames)
        for (int i = 0; i < 2; ++i)
            if (EqualNoCase(variable.state_names[i], pair[0]) &&
                EqualNoCase(variable.state_names[1 - i], pair[1]))
                return i;
    return -1;
}

// Without such names state 1 is true, as the numbers 0 and 1 have it.
int StateOfTruth(const EqnVariable& variable, bool truth)
{
    const int true_state = TrueState(variable);
    const int yes = true_state >= 0 ? true_state : 1;
    return truth ? yes : 1 - yes;
}

void CheckEquation(Equation& eqn, int* place)
{
    Checker c{eqn, place};
    CheckTree(c, eqn.has_output && !eqn.probabilistic ? 0 : kNobody);
    CheckResult(c);
}

}  // namespace talora
