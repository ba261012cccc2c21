// The parser of equations: by precedence climbing, with the operators' strengths from the table of
// functions.
#include "Misc/Equations/EqnParse.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "Basic/Names.h"
#include "Misc/Equations/EqnCheck.h"

namespace talora {

namespace {

struct Parser {
    Equation& eqn;
    std::string_view text;
    int at = 0;
    int depth = 0;
    int* place;  // receives the place of a failure

    bool AtEnd() const { return at >= static_cast<int>(text.size()); }
    char Peek(int ahead = 0) const
    {
        return at + ahead < static_cast<int>(text.size()) ? text[at + ahead] : '\0';
    }
    std::string_view Rest() const { return text.substr(at); }
};

// What an operand is read for, should there be none.
struct Need {
    const FunctionDef* def = nullptr;
    int argument = 0;
};

bool IsNameStart(char c)
{
    return IsLetter(c) || c == '_';
}

void SkipBlanks(Parser& p)
{
    while (!p.AtEnd() && (p.Peek() == ' ' || (p.Peek() >= '\t' && p.Peek() <= '\r'))) ++p.at;
}

// Moves past blanks and stores the place where a failure would be.
void Stand(Parser& p)
{
    SkipBlanks(p);
    *p.place = p.at;
}

bool Take(Parser& p, char c)
{
    SkipBlanks(p);
    if (p.Peek() != c || p.AtEnd()) return false;
    ++p.at;
    return true;
}

// A name at this place, empty if there is none.  One that is too long is read whole: nothing has that name.
Slice ReadName(Parser& p)
{
    SkipBlanks(p);
    Slice name{p.at, 0};
    if (!IsNameStart(p.Peek())) return name;
    while (IsNameChar(p.Peek())) ++p.at;
    name.length = p.at - name.at;
    return name;
}

// The character at this place as text, whole if it takes several bytes.
std::string CharHere(const Parser& p)
{
    size_t length = 1;
    const std::string_view rest = p.Rest();
    while (length < rest.size() && (static_cast<unsigned char>(rest[length]) & 0xC0) == 0x80) ++length;
    return std::string(rest.substr(0, length));
}

std::string Copy(const Parser& p, Slice slice)
{
    return std::string(p.text.substr(slice.at, std::min(slice.length, 200)));
}

// ---- Making expressions ----

void CheckDepth(int depth)
{
    if (depth > kMaxEqnDepth) Fail<6401>(kMaxEqnDepth);
}

int AddExpr(Parser& p, Expr expr)
{
    p.eqn.exprs.push_back(expr);
    return static_cast<int>(p.eqn.exprs.size()) - 1;
}

// Arguments that are calls of the same associative function give way to their own arguments.
// a + (b + c) becomes one sum of three, so that long sums make flat trees.
std::vector<int> Gather(const Equation& eqn, const FunctionDef& def, std::vector<int> args)
{
    if (!(def.flags & ASSOCIATIVE_EQN)) return args;
    std::vector<int> gathered;
    for (const int arg : args) {
        const Expr& expr = eqn.exprs[arg];
        if (expr.kind == ExprKind::CALL && expr.function == &def && expr.num_children > 0) {
            const auto first = eqn.children.begin() + expr.first_child;
            gathered.insert(gathered.end(), first, first + expr.num_children);
        } else {
            gathered.push_back(arg);
        }
    }
    return gathered;
}

// The depth is that of the deepest argument and one; walking a tree may recurse because it is bounded.
int AddCall(Parser& p, const FunctionDef& def, const std::vector<int>& written, int position, bool infix)
{
    const std::vector<int> args = Gather(p.eqn, def, written);
    Expr call;
    call.kind = ExprKind::CALL;
    call.function = &def;
    call.position = position;
    call.infix = infix;
    call.first_child = static_cast<int>(p.eqn.children.size());
    call.num_children = static_cast<int>(args.size());
    p.eqn.children.insert(p.eqn.children.end(), args.begin(), args.end());
    return AddExpr(p, call);
}

// ---- Operands ----

int ParseExpr(Parser& p, const FunctionDef* building, Need need);

// Counts the nesting of the parser itself, which may be deeper than the tree that comes of it.
void EnterLevel(Parser& p)
{
    *p.place = p.at;
    CheckDepth(++p.depth);
}

// A minus directly before a digit belongs to the number.
bool StartsNumber(const Parser& p)
{
    const int sign = p.Peek() == '-' ? 1 : 0;
    return IsDigit(p.Peek(sign)) || (p.Peek(sign) == '.' && IsDigit(p.Peek(sign + 1)));
}

double ReadNumber(Parser& p)
{
    double value = 0;
    const char* const first = p.text.data() + p.at;
    const auto [end, problem] = std::from_chars(first, p.text.data() + p.text.size(), value);
    if (problem != std::errc()) Fail<6403>(std::string(first, std::min<ptrdiff_t>(end - first, 40)).c_str());
    p.at += static_cast<int>(end - first);
    return value;
}

// A unit behind a number, or null; any other name there is left for the caller to stumble over.
const UnitDef* ReadUnit(Parser& p)
{
    const int before = p.at;
    const Slice name = ReadName(p);
    const UnitDef* unit = FindUnit(p.text.substr(name.at, name.length));
    if (unit == nullptr) p.at = before;
    return unit;
}

int ParseNumber(Parser& p)
{
    Expr number;
    number.position = p.at;
    number.value = ReadNumber(p);
    number.unit = ReadUnit(p);
    return AddExpr(p, number);
}

// `state--variable`: the name behind the hyphens.  An empty one if there are none.
Slice ReadOwner(Parser& p)
{
    if (p.Peek() != '-' || p.Peek(1) != '-' || !IsNameStart(p.Peek(2))) return {};
    p.at += 2;
    return ReadName(p);
}

// Behind "#": a state's number or name, or a variable.
// 1. A number, which must be whole and without a unit. 2. Else a name, which is no call. 3. In either case
// the variable that it is a state of.
int ParseSharp(Parser& p)
{
    Expr expr;
    expr.kind = ExprKind::NAME;
    expr.sharp = true;
    expr.position = p.at++;
    Stand(p);
    if (StartsNumber(p)) {
        const int first = p.at;
        const double index = ReadNumber(p);
        expr.name = {first, p.at - first};
        if (index != std::floor(index)) Fail<2477>(index);
        if (const UnitDef* unit = ReadUnit(p)) Fail<2478>(index, unit->name);
        expr.state = index >= 0 && index < 2147483647 ? static_cast<int>(index) : -1;
        expr.value = 1;  // a number, not a name
    } else {
        expr.name = ReadName(p);
        if (expr.name.length == 0) {
            if (p.AtEnd()) Fail<2492>();
            Fail<2033>(CharHere(p).c_str());
        }
        const int behind = p.at;
        if (Take(p, '(')) Fail<2479>(Copy(p, expr.name).c_str());
        p.at = behind;
    }
    expr.owner = ReadOwner(p);
    return AddExpr(p, expr);
}

bool IsNoisyTable(const FunctionDef& def)
{
    return def.form == NOISY_TABLE_FORM;
}

// Too many arguments are reported before too few, each with what the function takes.
void CheckCount(Parser& p, const FunctionDef& def, int count, int position)
{
    *p.place = position;
    if (def.arity > 0 && count > def.arity) Fail<2325>(def.name, def.arity);
    if (IsNoisyTable(def) && count < 2) Fail<2501>(OrdinalWord(count + 1), def.name);
    const int least = LeastArguments(def);
    if (count < least) Fail<2038>(def.name, least, count);
}

// Behind the opening parenthesis of a call, up to its end.
std::vector<int> ParseArguments(Parser& p, const FunctionDef& def)
{
    std::vector<int> args;
    if (Take(p, ')')) return args;
    while (true) {
        const int number = static_cast<int>(args.size()) + 1;
        Stand(p);
        if (p.Peek() == ',' || p.Peek() == ')') Fail<2497>(OrdinalWord(number), def.name);
        args.push_back(ParseExpr(p, nullptr, {}));
        Stand(p);
        if (Take(p, ')')) return args;
        if (!Take(p, ',')) {
            if (IsNoisyTable(def)) Fail<2511>(def.name);
            Fail<2369>(def.name);
        }
    }
}

// A name with an owner behind it, or without a parenthesis, is no call.
int ParseNameOrCall(Parser& p)
{
    Expr expr;
    expr.kind = ExprKind::NAME;
    expr.position = p.at;
    expr.name = ReadName(p);
    expr.owner = ReadOwner(p);
    const int behind = p.at;
    if (expr.owner.length > 0 || !Take(p, '(')) {
        p.at = behind;
        return AddExpr(p, expr);
    }
    *p.place = expr.position;
    const FunctionDef* def = FindFunction(p.text.substr(expr.name.at, expr.name.length));
    if (def == nullptr) Fail<2355>(Copy(p, expr.name).c_str());
    EnterLevel(p);
    const std::vector<int> args = ParseArguments(p, *def);
    --p.depth;
    CheckCount(p, *def, static_cast<int>(args.size()), expr.position);
    return AddCall(p, *def, args, expr.position, false);
}

// Names what is missing: the argument of an operator where one waits for it, else an operand as such.
[[noreturn]] void FailNoOperand(Parser& p, Need need)
{
    const FunctionDef* here = FindBinaryOperator(p.Rest());
    if (need.def == nullptr && here != nullptr) need = {here, 1};
    if (need.def != nullptr && (here != nullptr || p.AtEnd() || strchr("),;:", p.Peek()) != nullptr)) {
        if (need.def->arity == 1) Fail<2495>(need.def->symbol);
        Fail<2496>(OrdinalWord(need.argument), need.def->symbol);
    }
    if (p.AtEnd()) Fail<2492>();
    if (p.Peek() == ')') Fail<2032>();
    Fail<2033>(CharHere(p).c_str());
}

int ParseOperand(Parser& p, Need need);

int ParsePrefix(Parser& p, const FunctionDef& def)
{
    const int position = p.at;
    p.at += static_cast<int>(strlen(def.symbol));
    const int operand = ParseOperand(p, {&def, 1});
    return AddCall(p, def, {operand}, position, true);
}

int ParseParenthesis(Parser& p)
{
    ++p.at;
    const int inner = ParseExpr(p, nullptr, {});
    Stand(p);
    if (!Take(p, ')')) Fail<2034>();
    return inner;
}

int ParseOperand(Parser& p, Need need)
{
    Stand(p);
    if (StartsNumber(p)) return ParseNumber(p);
    if (IsNameStart(p.Peek())) return ParseNameOrCall(p);
    if (p.Peek() == '#') return ParseSharp(p);
    const FunctionDef* prefix = FindPrefixOperator(p.Rest());
    const bool is_binary = p.Rest().starts_with("!=");
    if (p.Peek() != '(' && (prefix == nullptr || is_binary)) FailNoOperand(p, need);
    EnterLevel(p);
    const int expr = p.Peek() == '(' ? ParseParenthesis(p) : ParsePrefix(p, *prefix);
    --p.depth;
    return expr;
}

// Past the operator, if it is the next one.
bool TakeOperator(Parser& p, const FunctionDef& op, int* position)
{
    SkipBlanks(p);
    if (FindBinaryOperator(p.Rest()) != &op) return false;
    *position = p.at;
    p.at += static_cast<int>(strlen(op.symbol));
    return true;
}

// c1 ? x : c2 ? y : z, behind c1: read as a list and put together from its end.
int ParseConditionals(Parser& p, const FunctionDef& op, int condition)
{
    struct Part {
        int condition, yes, position;
    };
    std::vector<Part> parts;
    int last = condition;
    for (int position; TakeOperator(p, op, &position);) {
        EnterLevel(p);
        const int yes = ParseExpr(p, nullptr, {&op, 2});
        --p.depth;
        Stand(p);
        if (!Take(p, op.second[0])) Fail<2035>(op.second, op.symbol);
        parts.push_back({last, yes, position});
        last = ParseExpr(p, &op, {&op, 3});
    }
    for (auto part = parts.rbegin(); part != parts.rend(); ++part)
        last = AddCall(p, op, {part->condition, part->yes, last}, part->position, true);
    return last;
}

// a op b op c, behind a.  An associative operator takes all operands; one that groups to the right is put
// together from the end, any other from the start.
int ParseChain(Parser& p, const FunctionDef& op, int first)
{
    std::vector<int> operands = {first}, positions;
    for (int position; TakeOperator(p, op, &position);) {
        positions.push_back(position);
        operands.push_back(ParseExpr(p, &op, {&op, 2}));
    }
    if (op.flags & ASSOCIATIVE_EQN) return AddCall(p, op, operands, positions.back(), true);
    if (op.flags & LEFT_EQN) {
        for (size_t i = 0; i < positions.size(); ++i)
            first = AddCall(p, op, {first, operands[i + 1]}, positions[i], true);
        return first;
    }
    int last = operands.back();
    for (size_t i = positions.size(); i-- > 0;)
        last = AddCall(p, op, {operands[i], last}, positions[i], true);
    return last;
}

// An operand and the operators behind it that bind more strongly than the one being built.
int ParseExpr(Parser& p, const FunctionDef* building, Need need)
{
    int left = ParseOperand(p, need);
    while (true) {
        SkipBlanks(p);
        const FunctionDef* op = FindBinaryOperator(p.Rest());
        if (op == nullptr || (building != nullptr && op->strength <= building->strength)) return left;
        left = op->form == IF_FORM ? ParseConditionals(p, *op, left) : ParseChain(p, *op, left);
    }
}

// ---- The head ----

[[noreturn]] void FailPunctuation(const Parser& p)
{
    if (p.AtEnd()) Fail<2492>();
    Fail<2029>(p.Peek());
}

// One name between the parentheses of the head.
void AddHeadVariable(Parser& p, const std::vector<EqnVariable>& candidates, Slice name)
{
    *p.place = name.at;
    const std::string_view word = p.text.substr(name.at, name.length);
    for (const EqnVariable& known : p.eqn.variables)
        if (known.name == word) Fail<2030>();
    for (size_t i = 1; i < candidates.size(); ++i) {
        if (candidates[i].name != word) continue;
        p.eqn.variables.push_back(candidates[i]);
        p.eqn.sources.push_back(static_cast<int>(i));
        return;
    }
    Fail<2459>(Copy(p, name).c_str());
}

// The parameters up to and with ")".  `pending`: a name has been read and a separator must follow.
void ParseParameters(Parser& p, const std::vector<EqnVariable>& candidates, bool pending)
{
    const char* separators = p.eqn.probabilistic && pending ? "|," : ",";
    while (true) {
        Stand(p);
        if (Take(p, ')')) return;
        if (pending) {
            if (IsNameStart(p.Peek())) Fail<2027>();
            if (p.AtEnd()) FailPunctuation(p);
            if (strchr(separators, p.Peek()) == nullptr) Fail<2028>(p.Peek());
            const bool bar = p.Peek() == '|';
            ++p.at;
            separators = ",";
            Stand(p);
            if (bar && Take(p, ')')) return;
        }
        const Slice name = ReadName(p);
        if (name.length == 0) FailPunctuation(p);
        AddHeadVariable(p, candidates, name);
        pending = true;
    }
}

// A node may itself be called P: then the text is probabilistic if it is named again inside.
bool IsProbabilisticHead(const Parser& start, const std::string& output)
{
    Parser p = start;
    const Slice name = ReadName(p);
    if (p.text.substr(name.at, name.length) != "P") return false;
    if (output != "P") return true;
    if (!Take(p, '(')) return false;
    const Slice inner = ReadName(p);
    return p.text.substr(inner.at, inner.length) == "P";
}

// 1. "P (" or not, which decides how the rest is read. 2. The output, by its own name (or f). 3. The
// parameters, each once, each one of the candidates. 4. The equals sign and something behind it.
void ParseHead(Parser& p, const std::vector<EqnVariable>& candidates)
{
    const EqnVariable& output = candidates.front();
    p.eqn.probabilistic = IsProbabilisticHead(p, output.name);
    p.eqn.variables.push_back(output);
    p.eqn.sources.push_back(0);
    const auto check_output = [&](Slice name) {
        *p.place = name.at;
        const std::string_view word = p.text.substr(name.at, name.length);
        if (word != output.name && (p.eqn.probabilistic || word != "f")) Fail<2460>(Copy(p, name).c_str());
    };
    Slice name = ReadName(p);
    if (!p.eqn.probabilistic) check_output(name);
    Stand(p);
    if (!Take(p, '(')) Fail<2026>();
    if (p.eqn.probabilistic) {
        name = ReadName(p);
        check_output(name);
    }
    ParseParameters(p, candidates, p.eqn.probabilistic);
    Stand(p);
    if (!Take(p, '=')) Fail<2031>();
    Stand(p);
    if (p.AtEnd()) Fail<2494>();
}

void CheckSize(std::string_view text, int* place)
{
    *place = 0;
    if (text.size() > kMaxEqnText) Fail<6402>(static_cast<long long>(text.size()), kMaxEqnText);
}

// All of the text must be used up before types are checked.
void ParseBody(Parser& p)
{
    p.eqn.root = ParseExpr(p, nullptr, {});
    Stand(p);
    if (!p.AtEnd()) Fail<2033>(CharHere(p).c_str());
    CheckEquation(p.eqn, p.place);
}

}  // namespace

Equation ParseEquation(std::string_view text, const std::vector<EqnVariable>& candidates, int* place,
                       bool warns)
{
    int unused;
    if (place == nullptr) place = &unused;
    CheckSize(text, place);
    Equation eqn;
    eqn.text = text;
    eqn.warns = warns;
    Parser p{eqn, eqn.text, 0, 0, place};
    ParseHead(p, candidates);
    ParseBody(p);
    return eqn;
}

Equation ParseFormula(std::string_view text, const std::vector<EqnVariable>& variables, int* place)
{
    int unused;
    if (place == nullptr) place = &unused;
    CheckSize(text, place);
    Equation eqn;
    eqn.text = text;
    eqn.has_output = false;
    eqn.variables = variables;
    for (size_t i = 0; i < variables.size(); ++i) eqn.sources.push_back(static_cast<int>(i));
    Parser p{eqn, eqn.text, 0, 0, place};
    ParseBody(p);
    return eqn;
}

}  // namespace talora
