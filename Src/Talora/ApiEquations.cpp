// Interface functions: equations of nodes, formulas, tables from equations.
#include "BN/Equations/EqnToTable.h"
#include "Misc/Equations/EqnEval.h"
#include "Misc/Equations/EqnPrint.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

double CalcFormula(const std::string& formula, const char* const* names, const double* values, int count,
                   int* place)
{
    if (count < 0 || (count > 0 && (names == nullptr || values == nullptr))) Fail<6422>(count);
    std::vector<EqnVariable> variables(count);
    std::vector<double> assignment(count + 1, kUndefinedEqn);
    for (int i = 0; i < count; ++i) {
        variables[i].name = NameArgument(names[i], "names");
        if (!IsUndef(values[i])) assignment[i] = values[i];
    }
    const Equation eqn = ParseFormula(formula, variables, place);
    EqnScratch scratch(eqn);
    const double value = Evaluate(eqn, assignment.data(), scratch);
    if (place) *place = eqn.Root().position;
    if (scratch.failure.IsSet()) Fail<6423>(scratch.failure.text);
    if (std::isinf(value)) return value > 0 ? InfinityDbl() : -InfinityDbl();
    return std::isnan(value) ? UndefDbl() : value;
}

}  // namespace

void SetNodeEquation_bn(node_bn* node, const char* equation)
{
    CallApi(__func__, node, [&] { SetEquation(*node, TextArgument(equation), nullptr); });
}

bool_vx CheckNodeEquation_bn(const node_bn* node, const char* equation, int* place)
{
    if (place) *place = -1;
    return CallApi(__func__, node, bool_vx(0), [&] {
        const std::string text = equation ? TextArgument(equation) : node->equation;
        if (text.empty()) Fail<6417>(node->name.c_str());
        ParseEquation(text, EquationVariables(*node), place);
        return 1;
    });
}

void EquationToTable_bn(node_bn* node, int num_samples, int samp_unc, bool_vx add_exist)
{
    CallApi(__func__, node, [&] {
        if (num_samples < 1) Fail<5572>(num_samples);
        if (samp_unc != 0 && samp_unc != 1) Fail<5573>(samp_unc);
        EquationToTable(*node, num_samples, samp_unc != 0, add_exist != 0);
    });
}

double CalcFormula_bn(environ_vx* env, const char* formula, const char* const* names, const double* values,
                      int count, int* place)
{
    if (place) *place = -1;
    return CallEnviron(__func__, env, UndefDbl(), [&](environ_vx&) {
        return CalcFormula(TextArgument(formula), names, values, count, place);
    });
}

const char* GetEquationReference_bn(environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<const char*>(nullptr),
                       [&](environ_vx&) { return EquationReference(); });
}
