// Speed of equations: exact tables, sampled tables, single evaluations by tree and by program.
#include <benchmark/benchmark.h>

#include "BN/Model/Bnet.h"
#include "Misc/Equations/EqnCompile.h"
#include "Talora.h"

namespace {

using namespace talora;

constexpr const char* kFormula = "(a + 2 * b - c / 3) * (a - b) + max(a, c) - b * b + a / 7 - 1";

EqnVariable Real(const char* name)
{
    EqnVariable variable;
    variable.name = name;
    return variable;
}

void EvaluateTenOperators(benchmark::State& state)
{
    const Equation eqn = ParseFormula(kFormula, {Real("a"), Real("b"), Real("c")}, nullptr);
    const EqnProgram program = CompileEquation(eqn);
    EqnScratch scratch(eqn);
    std::vector<double> stack(program.stack_size);
    EqnReason failure;
    double values[] = {1, 2, 3};
    for (auto _ : state) {
        values[0] += 1e-9;
        benchmark::DoNotOptimize(state.range(0) ? Run(program, values, stack.data(), failure)
                                                : Evaluate(eqn, values, scratch));
    }
    state.SetLabel(state.range(0) ? "program" : "tree");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(EvaluateTenOperators)->Arg(0)->Arg(1);

struct Bed {
    environ_vx* env = NewTaloraEnviron_vx(nullptr, nullptr);
    net_bn* net = nullptr;
    Bed()
    {
        char mesg[MESG_LEN_vx];
        InitTalora2_bn(env, mesg);
        net = NewNet_bn("bench", env);
    }
    ~Bed() { CloseTalora_bn(env, nullptr); }
};

// A million cells: 250,000 configurations of three parents, four states.
void ExactTable(benchmark::State& state)
{
    Bed bed;
    node_bn* x = NewNode_bn("x", 4, bed.net);
    for (const auto& [name, states] : {std::pair("a", 50), std::pair("b", 50), std::pair("c", 100)})
        AddLink_bn(NewNode_bn(name, states, bed.net), x);
    SetNodeEquation_bn(
        x, "P (x | a, b, c) = x == 0 ? a + 1 : (a + 2 * b + c / 3) * (x + b) + max(a, c) + b * b + 1");
    for (auto _ : state) EquationToTable_bn(x, 1, 0, 0);
    state.SetItemsProcessed(state.iterations() * 1000000);
}
BENCHMARK(ExactTable)->Unit(benchmark::kMillisecond);

// Ten rows of a million draws from one continuous parent.
void SampledTable(benchmark::State& state)
{
    Bed bed;
    node_bn* a = NewNode_bn("a", 0, bed.net);
    node_bn* x = NewNode_bn("x", 2, bed.net);
    std::vector<double> thresholds;
    for (int i = 0; i <= 10; ++i) thresholds.push_back(i);
    SetNodeLevels_bn(a, 10, thresholds.data());
    AddLink_bn(a, x);
    SetNodeEquation_bn(x, "x (a) = (a + 2) * (a - 3) / 5 + a * a - 4 * a + 1 > 3 && a < 9");
    for (auto _ : state) EquationToTable_bn(x, 1000000, 0, 0);
    state.SetItemsProcessed(state.iterations() * 10000000);
}
BENCHMARK(SampledTable)->Unit(benchmark::kMillisecond);

}  // namespace
