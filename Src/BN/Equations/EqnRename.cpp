// Writing equations anew when nodes, links or states get other names.
#include "BN/Equations/EqnRename.h"

#include <algorithm>
#include <optional>
#include <string>

#include "BN/Equations/EqnToTable.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// A name in the text of an equation, and what stands there now.
struct Replacement {
    Slice slice;
    std::string text;
};

// The equation of a text; nothing, and no record, if it cannot be read.
std::optional<Equation> TryParse(const std::string& text, const std::vector<EqnVariable>& candidates)
{
    const bool had_failed = ThisThread().failed;
    try {
        return ParseEquation(text, candidates, nullptr, false);
    } catch (const Unwind& failure) {
        if (failure.record != nullptr) ClearReport(failure.record);
        ThisThread().failed = had_failed;
        return std::nullopt;
    }
}

// The names of the head in their order: the function's, then those between its parentheses.
std::vector<Slice> HeadNames(const std::string& text)
{
    const auto is_name = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    };
    const size_t end = std::min(text.find(')'), text.size());
    std::vector<Slice> names;
    for (size_t at = 0; at < end; ++at) {
        if (!is_name(text[at])) continue;
        const size_t first = at;
        while (at < end && is_name(text[at])) ++at;
        names.push_back({static_cast<int>(first), static_cast<int>(at - first)});
    }
    return names;
}

// What stands for a state: its name, else its number.
std::string StateAsWritten(const EqnVariable& variable, const Expr& expr)
{
    const auto state = static_cast<size_t>(expr.state);
    if (state < variable.state_names.size() && !variable.state_names[state].empty())
        return variable.state_names[state];
    return (expr.sharp ? "" : "#") + std::to_string(expr.state);
}

std::vector<Replacement> FindReplacements(const Equation& eqn, const std::vector<EqnVariable>& now)
{
    std::vector<Replacement> found;
    const auto name_of = [&](int variable) -> const std::string& { return now[eqn.sources[variable]].name; };
    const auto add_variable = [&](Slice slice, int variable) {
        if (eqn.Text(slice) == eqn.variables[variable].name) found.push_back({slice, name_of(variable)});
    };
    // 1. The head: "P (x | a, b)" or "x (a, b)".
    const std::vector<Slice> head = HeadNames(eqn.text);
    const size_t first = eqn.probabilistic ? 1 : 0;
    for (size_t i = first; i < head.size() && i - first < eqn.variables.size(); ++i)
        add_variable(head[i], static_cast<int>(i - first));
    // 2. The body.
    for (const Expr& expr : eqn.exprs) {
        if (expr.kind == ExprKind::VARIABLE) add_variable(expr.name, expr.variable);
        if (expr.kind != ExprKind::STATE) continue;
        const EqnVariable& before = eqn.variables[expr.variable];
        const auto state = static_cast<size_t>(expr.state);
        if (state < before.state_names.size() && eqn.Text(expr.name) == before.state_names[state])
            found.push_back({expr.name, StateAsWritten(now[eqn.sources[expr.variable]], expr)});
        if (expr.owner.length > 0) add_variable(expr.owner, expr.variable);
    }
    std::sort(found.begin(), found.end(),
              [](const Replacement& a, const Replacement& b) { return a.slice.at < b.slice.at; });
    return found;
}

std::string Replaced(const Equation& eqn, const std::vector<Replacement>& replacements)
{
    std::string text;
    int at = 0;
    for (const Replacement& replacement : replacements) {
        text += eqn.Text({at, replacement.slice.at - at});
        text += replacement.text;
        at = replacement.slice.at + replacement.slice.length;
    }
    return text + std::string(eqn.Text({at, static_cast<int>(eqn.text.size()) - at}));
}

// Whether two readings say the same, whatever they call it.
bool MeansTheSame(const Equation& a, const Equation& b)
{
    return a.probabilistic == b.probabilistic && a.sources == b.sources && a.children == b.children &&
           std::equal(a.exprs.begin(), a.exprs.end(), b.exprs.begin(), b.exprs.end(),
                      [](const Expr& e, const Expr& f) {
                          return e.kind == f.kind && e.function == f.function && e.variable == f.variable &&
                                 e.state == f.state && e.value == f.value && e.reading == f.reading &&
                                 e.constant == f.constant && e.unit == f.unit;
                      });
}

}  // namespace

EquationsWithNames::EquationsWithNames(Node& node, bool with_children)
{
    std::vector<Node*> owners = {&node};
    if (with_children) owners.insert(owners.end(), node.children.nodes.begin(), node.children.nodes.end());
    for (Node* owner : owners) {
        if (owner->equation.empty()) continue;
        std::optional<Equation> eqn = TryParse(owner->equation, EquationVariables(*owner));
        if (eqn) readings_.push_back({owner, std::move(*eqn)});
    }
}

void EquationsWithNames::Follow(const char* new_name) const
{
    for (const Reading& reading : readings_) {
        Node& node = *reading.node;
        const std::vector<EqnVariable> now = EquationVariables(node);
        std::string text = Replaced(reading.eqn, FindReplacements(reading.eqn, now));
        if (text == node.equation) continue;
        const std::optional<Equation> after = TryParse(text, now);
        if (after && MeansTheSame(reading.eqn, *after))
            Change(node, node.equation, std::move(text), NO_EFFECT, "rename in equation");
        else
            Warn<7202>(node.name.c_str(), new_name);
    }
}

}  // namespace talora
