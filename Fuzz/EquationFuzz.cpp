// Equations from bytes: what is accepted prints to the same tree, and the tree and its program give the same
// bits, for values of the variables that the first two bytes choose.
#include <cstring>

#include "Basic/Error.h"
#include "Fuzz/Harness.h"
#include "Misc/Equations/EqnCompile.h"
#include "Misc/Equations/EqnPrint.h"
#include "Talora/APICheck.h"

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

// Of continuous variables; discrete ones take a state by the same byte.
constexpr double kValues[] = {0,      1,     -1,     0.5,      1.25,         2,
                              3,      1e-3,  100,    -7.75,    1e9,          1e18,
                              1e-40,  1e308, 0.1,    12345,    17,           1 / 3.0,
                              -2e-16, 4.5,   1e-300, 999999.5, 2147483648.0, 9007199254740993.0};

std::vector<double> ValuesOf(const Equation& eqn, size_t choice)
{
    std::vector<double> values;
    for (size_t i = 0; i < eqn.variables.size(); ++i) {
        const EqnVariable& variable = eqn.variables[i];
        const size_t chosen = choice * (i + 1) + i;
        values.push_back(variable.discrete
                             ? static_cast<double>(chosen % static_cast<size_t>(variable.num_states))
                             : kValues[chosen % std::size(kValues)]);
    }
    return values;
}

void TryEquation(const Equation& eqn, const std::vector<EqnVariable>& variables, size_t choice)
{
    const std::string printed = PrintEquation(eqn);
    if (printed.size() <= kMaxEqnText)
        fuzz::Check(SameTree(eqn, ParseEquation(printed, variables, nullptr)), "prints to the same tree");
    EqnScratch scratch(eqn);
    const EqnProgram program = CompileEquation(eqn);
    std::vector<double> stack(program.stack_size);
    for (const size_t each : {choice, size_t{0}, size_t{1}}) {
        const std::vector<double> values = ValuesOf(eqn, each);
        EqnReason failure;
        const double tree = Evaluate(eqn, values.data(), scratch);
        const double flat = Run(program, values.data(), stack.data(), failure);
        fuzz::Check((tree != tree && flat != flat) || memcmp(&tree, &flat, sizeof tree) == 0,
                    "tree and program give the same bits");
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
    const fuzz::Input input;
    fuzz::Bytes bytes(data, size);
    const size_t choice = bytes.Number(65536);
    const std::string text(bytes.Rest());
    for (const char* head : {"", "x (a, b, c, d, s) = ", "P (x | a, b, c, d, s) = "}) {
        bool accepted = false;
        CallEnviron(__func__, fuzz::Environ(), [&](environ_vx&) {
            const Equation eqn = ParseEquation(head + text, variables, nullptr);
            accepted = true;
            TryEquation(eqn, variables, choice);
        });
        const int number = fuzz::TakenError();
        fuzz::Check(number == 0 || !accepted, "an accepted equation can be printed and evaluated");
    }
    return 0;
}
