// Equations from bytes: what is accepted prints to the same tree, and the tree and its program give
// the same bits.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Basic/Error.h"
#include "Misc/EqnCompile.h"
#include "Misc/EqnPrint.h"

namespace {

using namespace talora;

EqnVariable Variable(const char* name, bool discrete, std::vector<std::string> states,
                     std::vector<double> levels)
{
    EqnVariable variable;
    variable.name = name;
    variable.discrete = discrete;
    variable.num_states = static_cast<int>(discrete         ? std::max(states.size(), levels.size())
                                           : levels.empty() ? 0
                                                            : levels.size() - 1);
    variable.state_names = std::move(states);
    variable.levels = std::move(levels);
    return variable;
}

void Check(bool condition)
{
    if (!condition) abort();
}

void TryEquation(const Equation& eqn, const std::vector<EqnVariable>& variables)
{
    Check(SameTree(eqn, ParseEquation(PrintEquation(eqn), variables, nullptr)));
    EqnScratch scratch(eqn);
    const EqnProgram program = CompileEquation(eqn);
    std::vector<double> stack(program.stack_size), values;
    for (const double discrete : {0.0, 1.0}) {
        values.clear();
        for (const EqnVariable& variable : eqn.variables)
            values.push_back(variable.discrete ? discrete : discrete * 1.25);
        EqnReason failure;
        const double tree = Evaluate(eqn, values.data(), scratch);
        const double flat = Run(program, values.data(), stack.data(), failure);
        Check((tree != tree && flat != flat) || memcmp(&tree, &flat, sizeof tree) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::vector<EqnVariable> variables = {
        Variable("x", true, {"low", "high"}, {}), Variable("a", true, {}, {1, 2, 5}),
        Variable("b", true, {"no", "yes"}, {}),   Variable("c", false, {}, {}),
        Variable("d", false, {}, {0, 1, 2}),      Variable("s", true, {"red", "high"}, {10, 20}),
    };
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const char* head : {"", "x (a, b, c, d, s) = ", "P (x | a, b, c, d, s) = "}) {
        try {
            TryEquation(ParseEquation(head + text, variables, nullptr), variables);
        } catch (const Unwind& failure) {
            ClearReport(failure.record);
        }
    }
    return 0;
}
