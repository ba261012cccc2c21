#include "BN/Propagate.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "BN/PotTable0.h"
#include "BN/PropagateParts.h"
#include "BN/Sweep.h"
#include "BN/TableSize.h"
#include "BN/TreeHubs.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/Memory.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

constexpr int64_t kSmallTable = 1024;      // entries; smaller ones lie in one arena at their full size
constexpr double kAlwaysMerged = 4096;     // entries up to which potentials of a clique become one
constexpr int64_t kPollEntries = 1 << 20;  // between two looks at the halt flag
constexpr int kWeakExponent = -60;         // a largest entry below 2 to this: products may have underflowed
constexpr int kBoostExponent = 80;         // then they are formed again, larger by 2 to this

// Scales are added up as whole numbers, so that sums do not depend on the order of changes.
constexpr int kLogUnitsExponent = 36;
constexpr int64_t kLogUnits = int64_t{1} << kLogUnitsExponent;

struct Table {
    float* entries = nullptr;
    int64_t count = 0;
    int64_t capacity = 0;
    int64_t log_scale = 0;  // what the last scaling took out: its logarithm to base 2, x kLogUnits
    int large = -1;         // own storage, for tables not in the arena
};

struct Message : Table {
    int64_t computed = -1;  // when
};

struct ModelPotential : Table {
    bool needs_fill = true;
    int clique = 0;
    // Small potentials whose variables always stay also keep their entries without findings.
    float* base = nullptr;
    int64_t base_log_scale = 0;
    bool base_is_stale = true;
};

NumberLists CliquesOf(const NumberLists& members, int num_variables)
{
    NumberLists lists;
    lists.start.assign(size_t(num_variables) + 1, 0);
    for (int v : members.items) ++lists.start[size_t(v) + 1];
    for (int v = 0; v < num_variables; ++v) lists.start[size_t(v) + 1] += lists.start[size_t(v)];
    lists.items.resize(members.items.size());
    std::vector<int64_t> next(lists.start.begin(), lists.start.end() - 1);
    for (int i = 0; i < members.size(); ++i)
        for (int v : members[i]) lists.items[size_t(next[size_t(v)]++)] = i;
    return lists;
}

}  // namespace

struct Propagation::Engine {
    const ModelGraph* graph;
    HubTree hubs;
    const JunctionTree* tree;  // the caller's, or the one with hubs
    TableSource table;
    bool maximise = false;

    // What is known.
    std::vector<int> positive;                    // per variable
    std::vector<int> cut;                         // per variable: positive, or -1 if it always stays
    std::vector<std::vector<float>> likelihoods;  // per variable, empty: none

    // Fixed with the tree.
    std::vector<char> always_stays;     // per variable: its tables keep their form when it is observed
    NumberLists cliques_of;             // per variable
    NumberLists potentials_of;          // per clique
    NumberLists potential_scope;        // per potential: its variables in member order
    NumberLists families;               // per potential: the variables whose tables it takes
    NumberLists uses;                   // per variable: the potentials that hold it
    std::vector<int> belief_separator;  // per variable: the smallest separator that holds it, or -1
    NumberLists private_variables;      // per clique: those that are in no separator
    std::vector<int> decisions;

    // What is computed.
    std::vector<ModelPotential> potentials;
    std::vector<Message> up, down;          // per clique: to its mate (the root: the total), from its mate
    std::vector<Inputs> inputs;             // per clique
    std::vector<int64_t> private_computed;  // per clique
    std::vector<std::vector<float>> private_beliefs;  // per clique, one after another
    struct PrivateTotal {
        double mass = 1;
        int exponent = 0;
    };
    std::vector<PrivateTotal> private_total;  // per clique
    TableVector<float> arena;
    std::vector<TableVector<float>> large;
    bool stored = false;

    // Plans in use, null: to be looked up again.
    PlanStore plans;
    std::vector<const SweepPlan*> up_plans, down_plans, private_plans;

    // The state of updating.
    std::vector<char> is_scalar;  // per clique: no free variable in the separator towards its mate

    CliqueSet pending;  // cliques whose inputs changed and that may have stale messages
    int64_t now = 0;
    bool updated = false;
    int vanished_at = -1;
    double log_prob = 0;
    int64_t total_log_scale = 0;  // of all potentials and all messages towards the root
    int64_t unpolled = 0;
    Counters counts;

    // Working memory.
    SweepScratch scratch;
    std::vector<int> exponents;
    std::vector<float> weak_results;
    std::vector<const float*> factor_entries;
    std::vector<SweepScope> factor_scopes, output_scopes;
    std::vector<int> sizes, axis_of;
    std::vector<char> wanted;
    std::vector<float> weights;  // of a variable's states
    std::vector<double> sums;    // of a variable's states
    std::vector<int> way;        // from a target to the root
    TableVector<float> family_tables;
    std::vector<int64_t> family_starts;
    std::vector<int> own_sizes;  // of a potential's axes

    Engine(const ModelGraph& g, const JunctionTree& t, TableSource source, double small)
        : graph(&g),
          hubs(AddHubs(g, t)),
          tree(hubs.origin.empty() ? &t : &hubs.tree),
          table(std::move(source)),
          pending(tree->num_cliques())
    {
        const size_t num_variables = g.variables.size(), num_cliques = size_t(tree->num_cliques());
        positive.assign(num_variables, -1);
        likelihoods.resize(num_variables);
        cut.assign(num_variables, -1);
        axis_of.assign(num_variables, -1);
        cliques_of = CliquesOf(tree->members, int(num_variables));
        ChooseStaying(t.total_size <= small);
        GroupPotentials();
        ChooseBeliefSources();
        up.resize(num_cliques);
        down.resize(num_cliques);
        inputs.resize(num_cliques);
        private_computed.assign(num_cliques, -1);
        private_beliefs.resize(num_cliques);
        private_total.resize(num_cliques);
        for (int i = 0; i < tree->num_cliques(); ++i) is_scalar.push_back(!HasFree(tree->separators[i]));
        up_plans.assign(num_cliques, nullptr);
        down_plans.assign(num_cliques, nullptr);
        private_plans.assign(num_cliques, nullptr);
        for (int i = 0; i < tree->num_cliques(); ++i) pending.Insert(i);
        for (size_t v = 0; v < num_variables; ++v)
            if (g.variables[v].is_decision) decisions.push_back(int(v));
    }

    int NumStates(int variable) const { return graph->variables[size_t(variable)].num_states; }
    bool IsFree(int variable) const { return NumStates(variable) > 1 && cut[size_t(variable)] < 0; }

    bool HasFree(std::span<const int> variables) const
    {
        return std::any_of(variables.begin(), variables.end(), [&](int v) { return IsFree(v); });
    }

    // ---- Structure. ----

    void ChooseStaying(bool is_small)
    {
        for (const ModelGraph::Variable& variable : graph->variables)
            always_stays.push_back(is_small && !variable.is_decision);
    }

    bool HasBase(int potential) const
    {
        std::span<const int> scope = potential_scope[potential];
        return FullSize(scope) <= kSmallTable &&
               std::all_of(scope.begin(), scope.end(), [&](int v) { return always_stays[size_t(v)]; });
    }

    // A clique's tables are multiplied together where the product is small or not much larger than they.
    void GroupPotentials()
    {
        std::vector<std::vector<int>> scopes, members;
        for (int i = 0; i < tree->num_cliques(); ++i) {
            scopes.clear();
            members.clear();
            for (int variable : tree->homed[i]) AddToGroups(variable, scopes, members);
            for (size_t g = 0; g < scopes.size(); ++g) {
                SortLikeMembers(i, scopes[g]);
                for (int v : scopes[g]) potential_scope.items.push_back(v);
                potential_scope.EndList();
                for (int v : members[g]) families.items.push_back(v);
                families.EndList();
                potentials_of.items.push_back(int(potentials.size()));
                potentials.emplace_back();
                potentials.back().clique = i;
            }
            potentials_of.EndList();
        }
        uses = CliquesOf(potential_scope, int(graph->variables.size()));
    }

    void AddToGroups(int variable, std::vector<std::vector<int>>& scopes,
                     std::vector<std::vector<int>>& members) const
    {
        std::vector<int> family = graph->variables[size_t(variable)].parents;
        family.push_back(variable);
        const double size = TableSize(*graph, family);
        for (size_t g = 0; g < scopes.size(); ++g) {
            std::vector<int> both = scopes[g];
            for (int v : family)
                if (std::find(both.begin(), both.end(), v) == both.end()) both.push_back(v);
            const double apart = TableSize(*graph, scopes[g]) + size;
            if (TableSize(*graph, both) > std::max(kAlwaysMerged, apart)) continue;
            scopes[g] = both;
            members[g].push_back(variable);
            return;
        }
        scopes.push_back(family);
        members.push_back({variable});
    }

    void SortLikeMembers(int clique, std::vector<int>& variables)
    {
        std::span<const int> order = tree->members[clique];
        for (size_t k = 0; k < order.size(); ++k) axis_of[size_t(order[k])] = int(k);
        std::sort(variables.begin(), variables.end(),
                  [&](int a, int b) { return axis_of[size_t(a)] < axis_of[size_t(b)]; });
    }

    void ChooseBeliefSources()
    {
        belief_separator.assign(graph->variables.size(), -1);
        for (int i = 1; i < tree->num_cliques(); ++i) {
            const double size = tree->separator_sizes[size_t(i)];
            for (int v : tree->separators[i]) {
                int& best = belief_separator[size_t(v)];
                if (best < 0 || size < tree->separator_sizes[size_t(best)]) best = i;
            }
        }
        for (int i = 0; i < tree->num_cliques(); ++i) {
            for (int v : tree->members[i])
                if (belief_separator[size_t(v)] < 0) private_variables.items.push_back(v);
            private_variables.EndList();
        }
    }

    // ---- Storage. ----

    double FullSize(std::span<const int> variables) const { return TableSize(*graph, variables); }

    template <class Visit>
    void ForEachTable(Visit visit)
    {
        for (int i = 0; i < tree->num_cliques(); ++i) {
            visit(up[size_t(i)], FullSize(tree->separators[i]));
            if (i > 0) visit(down[size_t(i)], FullSize(tree->separators[i]));
        }
        for (size_t p = 0; p < potentials.size(); ++p)
            visit(potentials[p], FullSize(potential_scope[int(p)]));
    }

    // Small tables have their place for good; large ones get memory when their size is known.
    void PlaceTables()
    {
        if (stored) return;
        size_t total = 0;
        int num_large = 0;
        ForEachTable([&](Table&, double size) {
            size <= kSmallTable ? void(total += size_t(std::max(size, 1.0))) : void(++num_large);
        });
        for (size_t p = 0; p < potentials.size(); ++p)
            if (HasBase(int(p))) total += size_t(std::max(FullSize(potential_scope[int(p)]), 1.0));
        arena = TableVector<float>(total + kSweepPadding);
        large.resize(size_t(num_large));
        float* place = arena.data();
        num_large = 0;
        ForEachTable([&](Table& t, double size) {
            if (size > kSmallTable) {
                t.large = num_large++;
                return;
            }
            t.entries = place;
            t.capacity = int64_t(std::max(size, 1.0));
            place += t.capacity;
        });
        for (size_t p = 0; p < potentials.size(); ++p) {
            if (!HasBase(int(p))) continue;
            potentials[p].base = place;
            place += potentials[p].capacity;
        }
        stored = true;
    }

    void Resize(Table& t, int64_t count)
    {
        if (t.large >= 0 && (count > t.capacity || count < t.capacity / 2)) {
            TableVector<float>& own = large[size_t(t.large)];
            t.entries = nullptr;
            t.count = t.capacity = 0;
            TableVector<float>().swap(own);
            own = TableVector<float>(size_t(count) + kSweepPadding);
            t.entries = own.data();
            t.capacity = count;
        }
        t.count = count;
    }

    // ---- Changes. ----

    void Touch(int clique, int from)
    {
        inputs[size_t(clique)].Change(from, ++now);
        pending.Insert(clique);
        updated = false;
    }

    void ChangeTable(int variable)
    {
        for (int p : uses[variable])
            if (TakesFamily(p, variable)) potentials[size_t(p)].base_is_stale = true;
        TouchPotentials(variable, true);
    }

    void TouchPotentials(int variable, bool only_own)
    {
        for (int p : uses[variable]) {
            if (only_own && !TakesFamily(p, variable)) continue;
            potentials[size_t(p)].needs_fill = true;
            Touch(potentials[size_t(p)].clique, kFromModel);
        }
        updated = false;
    }

    bool TakesFamily(int potential, int variable) const
    {
        std::span<const int> taken = families[potential];
        return std::find(taken.begin(), taken.end(), variable) != taken.end();
    }

    void SetPositive(int variable, int state)
    {
        int& current = positive[size_t(variable)];
        if (state == current) return;
        const bool reshapes =
            !always_stays[size_t(variable)] && (state >= 0) != (current >= 0) && NumStates(variable) > 1;
        current = state;
        if (!always_stays[size_t(variable)]) cut[size_t(variable)] = state;
        TouchPotentials(variable, always_stays[size_t(variable)]);
        if (reshapes) {
            for (int i : cliques_of[variable]) {
                up_plans[size_t(i)] = down_plans[size_t(i)] = private_plans[size_t(i)] = nullptr;
                is_scalar[size_t(i)] = !HasFree(tree->separators[i]);
                Touch(i, kFromModel);
            }
        }
    }

    void Forget()
    {
        for (size_t i = 0; i < inputs.size(); ++i) Touch(int(i), kFromModel);
        for (size_t i = 0; i < inputs.size(); ++i) {
            up[i].computed = down[i].computed = private_computed[i] = -1;
            inputs[i] = {now, -1, kFromModel};
        }
    }

    // ---- Plans. ----

    // Lays the free members of a clique out as axes.
    void DescribeClique(int clique)
    {
        if (plans.IsFull()) {
            std::fill(up_plans.begin(), up_plans.end(), nullptr);
            std::fill(down_plans.begin(), down_plans.end(), nullptr);
            std::fill(private_plans.begin(), private_plans.end(), nullptr);
            plans.Clear();
        }
        sizes.clear();
        for (int v : tree->members[clique]) {
            axis_of[size_t(v)] = IsFree(v) ? int(sizes.size()) : -1;
            if (IsFree(v)) sizes.push_back(NumStates(v));
        }
        if (sizes.size() > kMostSweepAxes) throw std::bad_alloc();  // a table that no machine can sweep
        factor_scopes.clear();
        output_scopes.clear();
    }

    SweepScope ScopeOf(std::span<const int> variables) const
    {
        SweepScope scope;
        for (int v : variables)
            if (axis_of[size_t(v)] >= 0) scope.axes |= uint64_t{1} << axis_of[size_t(v)];
        return scope;
    }

    // Tables of a single entry are left out: that entry is always 1.
    void DescribeFactors(int clique, bool with_mate)
    {
        auto add = [&](std::span<const int> variables) {
            factor_scopes.push_back(ScopeOf(variables));
            if (factor_scopes.back().axes == 0) factor_scopes.pop_back();
        };
        for (int p : potentials_of[clique]) add(potential_scope[p]);
        if (with_mate && clique > 0) add(tree->separators[clique]);
        for (int child : tree->children[clique]) add(tree->separators[child]);
    }

    const SweepPlan& UpPlan(int clique)
    {
        const SweepPlan*& plan = up_plans[size_t(clique)];
        if (plan == nullptr) {
            DescribeClique(clique);
            DescribeFactors(clique, false);
            output_scopes.push_back(ScopeOf(tree->separators[clique]));
            plan = plans.Find(sizes, factor_scopes, output_scopes);
        }
        return *plan;
    }

    const SweepPlan& DownPlan(int clique)
    {
        const SweepPlan*& plan = down_plans[size_t(clique)];
        if (plan == nullptr) {
            DescribeClique(clique);
            DescribeFactors(clique, true);
            std::span<const int> children = tree->children[clique];
            for (size_t k = 0; k < children.size(); ++k) {
                output_scopes.push_back(ScopeOf(tree->separators[children[k]]));
                if (output_scopes.back().axes == 0) output_scopes.pop_back();
            }
            const int first = int(factor_scopes.size() - output_scopes.size());
            for (size_t o = 0; o < output_scopes.size(); ++o) output_scopes[o].excluded = first + int(o);
            plan = plans.Find(sizes, factor_scopes, output_scopes);
        }
        return *plan;
    }

    const SweepPlan& PrivatePlan(int clique)
    {
        const SweepPlan*& plan = private_plans[size_t(clique)];
        if (plan == nullptr) {
            DescribeClique(clique);
            DescribeFactors(clique, true);
            for (int v : private_variables[clique])
                if (IsFree(v)) output_scopes.push_back(ScopeOf({&v, 1}));
            output_scopes.emplace_back();  // the total
            plan = plans.Find(sizes, factor_scopes, output_scopes);
        }
        return *plan;
    }

    // ---- Sweeps. ----

    // The tables in the order of DescribeFactors.
    void CollectFactors(int clique, bool with_mate)
    {
        factor_entries.clear();
        for (int p : potentials_of[clique])
            if (potentials[size_t(p)].count > 1) factor_entries.push_back(potentials[size_t(p)].entries);
        if (with_mate && !is_scalar[size_t(clique)]) factor_entries.push_back(down[size_t(clique)].entries);
        for (int child : tree->children[clique])
            if (!is_scalar[size_t(child)]) factor_entries.push_back(up[size_t(child)].entries);
    }

    bool IsHaltedNow(const SweepPlan& plan)
    {
        const int64_t entries = plan.block * plan.num_steps;
        counts.entries += entries;
        unpolled += entries + 256;
        if (unpolled < kPollEntries) return false;
        unpolled = 0;
        return IsHalted();
    }

    // Runs a plan and scales what comes out.  Where all of an output is tiny, products may have
    // underflowed on the way: it is formed again with all of them larger.  False: halted.
    bool RunScaled(const SweepPlan& plan, bool all_wanted)
    {
        if (IsHaltedNow(plan)) return false;
        const std::span<const char> asked =
            all_wanted ? std::span<const char>() : std::span<const char>(wanted);
        if (!RunSweep(plan, factor_entries, asked, 1, scratch, maximise)) return false;
        exponents.resize(size_t(plan.num_outputs));
        bool weak = false;
        for (size_t o = 0; o < exponents.size(); ++o) {
            if (!all_wanted && !wanted[o]) continue;
            exponents[o] = ScaleByExponent(scratch.output[o], plan.outputs[o].size);
            weak |= exponents[o] < kWeakExponent;
        }
        return !weak || plan.num_factors < 2 || RunBoosted(plan, all_wanted);
    }

    bool RunBoosted(const SweepPlan& plan, bool all_wanted)
    {
        std::vector<char> weak(size_t(plan.num_outputs));
        for (size_t o = 0; o < weak.size(); ++o)
            weak[o] = (all_wanted || wanted[o]) && exponents[o] < kWeakExponent;
        if (!RunSweep(plan, factor_entries, weak, std::ldexp(1.0f, kBoostExponent), scratch, maximise))
            return false;
        for (size_t o = 0; o < weak.size(); ++o) {
            if (!weak[o]) continue;
            exponents[o] = ScaleByExponent(scratch.output[o], plan.outputs[o].size);
            if (exponents[o] != kVanished) exponents[o] -= kBoostExponent;
        }
        return true;
    }

    // Where all lies in a single entry, that becomes 1, and its value goes into the scale with the
    // exponent: a message that only tells how probable something is then always looks the same.
    static int64_t TakeScale(float* entries, int64_t count, int exponent)
    {
        if (exponent == kVanished) return 0;
        const int64_t log_scale = exponent * kLogUnits;
        int64_t last = count - 1;
        while (entries[last] == 0) --last;
        for (int64_t i = 0; i < last; ++i)
            if (entries[i] != 0) return log_scale;
        const double value = double(entries[last]);
        entries[last] = 1;
        return log_scale + std::llround(std::log2(value) * double(kLogUnits));
    }

    // ---- Potentials. ----

    UpdateStatus FillPotentials(int clique)
    {
        for (int p : potentials_of[clique]) {
            if (!potentials[size_t(p)].needs_fill) continue;
            if (!Fill(p)) return UpdateStatus::kHalted;
            if (potentials[size_t(p)].entries[0] == 0 && potentials[size_t(p)].count == 1)
                return Vanish(clique);
            potentials[size_t(p)].needs_fill = false;
            ++counts.fills;
        }
        return UpdateStatus::kUpdated;
    }

    // Weights of a variable's states from its findings, empty if there are none.
    std::span<const float> WeightsOf(int variable)
    {
        const std::vector<float>& likelihood = likelihoods[size_t(variable)];
        const int state = positive[size_t(variable)];
        if (state < 0 || !always_stays[size_t(variable)]) return likelihood;
        weights.assign(size_t(NumStates(variable)), 0);
        weights[size_t(state)] = likelihood.empty() ? 1 : likelihood[size_t(state)];
        return weights;
    }

    FamilyRequest RequestFor(int variable, bool with_findings)
    {
        const std::span<const float> own = with_findings ? WeightsOf(variable) : std::span<const float>();
        return {graph, variable, table(variable), own.empty() ? nullptr : own.data(), cut, axis_of};
    }

    // False: halted.
    bool Fill(int p)
    {
        ModelPotential& potential = potentials[size_t(p)];
        int64_t count = 1;
        for (int v : potential_scope[p])
            if (IsFree(v)) count *= NumStates(v);
        Resize(potential, count);
        int64_t log_scale = 0;
        if (potential.base != nullptr) {
            if (!FillBase(p)) return false;
            std::copy_n(potential.base, count, potential.entries);
            log_scale = potential.base_log_scale;
            for (int variable : families[p]) MultiplyWeights(p, variable);
        } else if (!FillFromModel(p, true, potential.entries)) {
            return false;
        }
        const int exponent = ScaleByExponent(potential.entries, count);
        total_log_scale -= potential.log_scale;
        potential.log_scale = log_scale + TakeScale(potential.entries, count, exponent);
        total_log_scale += potential.log_scale;
        return true;
    }

    bool FillBase(int p)
    {
        ModelPotential& potential = potentials[size_t(p)];
        if (!potential.base_is_stale) return true;
        if (!FillFromModel(p, false, potential.base)) return false;
        const int exponent = ScaleByExponent(potential.base, potential.count);
        potential.base_log_scale = exponent == kVanished ? 0 : exponent * kLogUnits;
        potential.base_is_stale = false;
        return true;
    }

    void MultiplyWeights(int p, int variable)
    {
        const std::span<const float> own = WeightsOf(variable);
        if (own.empty()) return;
        ModelPotential& potential = potentials[size_t(p)];
        int64_t stride = 1;  // of the variable
        for (int v : potential_scope[p]) stride = v == variable ? 1 : stride * std::max(1, NumStates(v));
        float* entry = potential.entries;
        for (const float* end = entry + potential.count; entry < end;)
            for (float weight : own)
                for (int64_t i = 0; i < stride; ++i) *entry++ *= weight;
    }

    // The product of the families' tables as the findings leave them, or without findings.
    bool FillFromModel(int p, bool with_findings, float* entries)
    {
        DescribeClique(potentials[size_t(p)].clique);
        std::span<const int> taken = families[p];
        if (taken.size() == 1) {
            WriteFamily(RequestFor(taken[0], with_findings), entries);
            return true;
        }
        return MultiplyFamilies(p, with_findings, entries);
    }

    // The bits at the places that the mask has.
    static uint64_t Compress(uint64_t bits, uint64_t mask)
    {
        uint64_t compressed = 0;
        for (int k = 0; mask != 0; mask &= mask - 1, ++k)
            compressed |= (bits >> std::countr_zero(mask) & 1) << k;
        return compressed;
    }

    bool MultiplyFamilies(int p, bool with_findings, float* entries)
    {
        family_starts.clear();
        int64_t total = 0;
        for (int variable : families[p]) {
            SweepScope scope = ScopeOf(graph->variables[size_t(variable)].parents);
            scope.axes |= ScopeOf({&variable, 1}).axes;
            factor_scopes.push_back(scope);
            family_starts.push_back(total);
            int64_t count = 1;
            for (uint64_t rest = scope.axes; rest != 0; rest &= rest - 1)
                count *= sizes[size_t(std::countr_zero(rest))];
            total += count;
        }
        if (int64_t(family_tables.size()) < total + kSweepPadding)
            family_tables = TableVector<float>(size_t(total) + kSweepPadding);
        factor_entries.clear();
        for (size_t k = 0; k < family_starts.size(); ++k) {
            WriteFamily(RequestFor(families[p][k], with_findings), family_tables.data() + family_starts[k]);
            factor_entries.push_back(family_tables.data() + family_starts[k]);
        }
        // Only the axes of the potential, so that every block is written once.
        const uint64_t axes = ScopeOf(potential_scope[p]).axes;
        own_sizes.clear();
        for (uint64_t rest = axes; rest != 0; rest &= rest - 1)
            own_sizes.push_back(sizes[size_t(std::countr_zero(rest))]);
        output_scopes.push_back({(uint64_t{2} << (own_sizes.size() - 1)) - 1, -1});
        if (own_sizes.empty()) output_scopes.back().axes = 0;
        for (SweepScope& scope : factor_scopes) scope.axes = Compress(scope.axes, axes);
        const SweepPlan& plan = *plans.Find(own_sizes, factor_scopes, output_scopes);
        if (!RunSweep(plan, factor_entries, {}, 1, scratch)) return false;
        std::copy_n(scratch.output[0], plan.outputs[0].size, entries);
        return true;
    }

    // ---- Messages. ----

    // Stores a result; true if it is not what stood there.  Another scale is no news to the neighbour:
    // scales are added up beside the messages.
    bool Store(Message& message, const SweepPlan& plan, int output)
    {
        const int64_t count = plan.outputs[size_t(output)].size;
        float* entries = scratch.output[size_t(output)];
        const int64_t log_scale = TakeScale(entries, count, exponents[size_t(output)]);
        const bool same = message.computed >= 0 && message.count == count &&
                          std::memcmp(message.entries, entries, size_t(count) * sizeof(float)) == 0;
        if (!same) {
            message.computed = -1;
            Resize(message, count);
            std::memcpy(message.entries, entries, size_t(count) * sizeof(float));
        }
        message.log_scale = log_scale;
        message.computed = now;
        ++counts.messages;
        return !same;
    }

    bool IsUpStale(int clique) const
    {
        return inputs[size_t(clique)].NewestExcept(clique == 0 ? kFromNone : kFromMate) >
               up[size_t(clique)].computed;
    }

    bool IsDownStale(int child) const
    {
        const int mate = tree->mate[size_t(child)];
        return inputs[size_t(mate)].NewestExcept(child) > down[size_t(child)].computed;
    }

    UpdateStatus Vanish(int clique)
    {
        vanished_at = clique;
        return UpdateStatus::kInconsistent;
    }

    UpdateStatus SendUp(int clique)
    {
        const UpdateStatus filled = FillPotentials(clique);
        if (filled != UpdateStatus::kUpdated) return filled;
        const SweepPlan& plan = UpPlan(clique);
        CollectFactors(clique, false);
        if (!RunScaled(plan, true)) return UpdateStatus::kHalted;
        if (exponents[0] == kVanished) return Vanish(clique);
        total_log_scale -= up[size_t(clique)].log_scale;
        const bool is_new = Store(up[size_t(clique)], plan, 0);
        total_log_scale += up[size_t(clique)].log_scale;
        if (is_new && clique > 0) Touch(tree->mate[size_t(clique)], clique);
        return UpdateStatus::kUpdated;
    }

    // Sends to the children whose messages are stale, or only to one of them.  A message of a single
    // entry says nothing.
    UpdateStatus SendDown(int clique, int only = -1)
    {
        wanted.clear();
        size_t num_wanted = 0;
        for (int child : tree->children[clique]) {
            if (is_scalar[size_t(child)]) continue;
            wanted.push_back((only < 0 || child == only) && IsDownStale(child));
            num_wanted += size_t(wanted.back());
        }
        if (num_wanted == 0) return UpdateStatus::kUpdated;
        const UpdateStatus filled = FillPotentials(clique);
        if (filled != UpdateStatus::kUpdated) return filled;
        const SweepPlan& plan = DownPlan(clique);
        CollectFactors(clique, true);
        if (!RunScaled(plan, num_wanted == wanted.size())) return UpdateStatus::kHalted;
        size_t k = 0;
        for (int child : tree->children[clique]) {
            if (is_scalar[size_t(child)]) continue;
            if (wanted[k]) {
                if (exponents[k] == kVanished) return Vanish(clique);
                if (Store(down[size_t(child)], plan, int(k))) Touch(child, kFromMate);
            }
            ++k;
        }
        return UpdateStatus::kUpdated;
    }

    // The message to a child over a separator without free variables: all that it tells is a scale.
    UpdateStatus SendScaleDown(int child)
    {
        const int clique = tree->mate[size_t(child)];
        const UpdateStatus filled = FillPotentials(clique);
        if (filled != UpdateStatus::kUpdated) return filled;
        DescribeClique(clique);
        DescribeFactors(clique, true);
        output_scopes.emplace_back();
        const SweepPlan& plan = *plans.Find(sizes, factor_scopes, output_scopes);
        CollectFactors(clique, true);
        if (!RunScaled(plan, true)) return UpdateStatus::kHalted;
        if (exponents[0] == kVanished) return Vanish(clique);
        Store(down[size_t(child)], plan, 0);
        return UpdateStatus::kUpdated;
    }

    // ---- Updates. ----

    // The natural logarithm of a total mass, given the scales of all that was multiplied for it.
    double LogOf(double mass, int64_t log_scale) const
    {
        return std::log(mass) + std::ldexp(double(log_scale), -kLogUnitsExponent) * std::log(2.0) -
               LogOfDecisions();
    }

    // A decision without a choice counts as drawn uniformly.
    double LogOfDecisions() const
    {
        double log_choices = 0;
        for (int v : decisions)
            if (positive[size_t(v)] < 0) log_choices += std::log(double(std::max(1, NumStates(v))));
        return log_choices;
    }

    UpdateStatus Update()
    {
        const DenormalsOff mode;
        PlaceTables();
        vanished_at = -1;
        for (int i = pending.Below(tree->num_cliques()); i >= 0; i = pending.Below(i)) {
            const UpdateStatus status = IsUpStale(i) ? SendUp(i) : UpdateStatus::kUpdated;
            if (status != UpdateStatus::kUpdated) return status;
        }
        for (int i = pending.From(0); i >= 0; i = pending.From(i + 1)) {
            UpdateStatus status = SendDown(i);
            if (status == UpdateStatus::kUpdated) status = UpdatePrivate(i);
            if (status != UpdateStatus::kUpdated) return status;
            pending.Erase(i);
        }
        log_prob = tree->num_cliques() == 0 ? 0 : LogOf(1, total_log_scale);
        updated = true;
        return UpdateStatus::kUpdated;
    }

    // Sends what leads to one clique: upwards outside the way from it to the root, downwards on it.
    UpdateStatus CollectTo(int target)
    {
        way.clear();
        for (int i = target; i >= 0; i = tree->mate[size_t(i)]) way.push_back(i);
        std::vector<bool> on_way(size_t(tree->num_cliques()));
        for (int i : way) on_way[size_t(i)] = true;
        for (int i = pending.Below(tree->num_cliques()); i >= 0; i = pending.Below(i)) {
            if (on_way[size_t(i)] || !IsUpStale(i)) continue;
            const UpdateStatus status = SendUp(i);
            if (status != UpdateStatus::kUpdated) return status;
        }
        for (size_t k = way.size(); k-- > 1;) {
            const int next = way[k - 1];
            UpdateStatus status = UpdateStatus::kUpdated;
            if (!is_scalar[size_t(next)]) {
                status = SendDown(way[k], next);
            } else if (IsDownStale(next)) {
                status = SendScaleDown(next);
            }
            if (status != UpdateStatus::kUpdated) return status;
        }
        return UpdateStatus::kUpdated;
    }

    UpdateStatus UpdateFor(int variable)
    {
        const DenormalsOff mode;
        PlaceTables();
        vanished_at = -1;
        if (updated) return UpdateStatus::kUpdated;
        const int separator = belief_separator[size_t(variable)];
        const int target = separator >= 0 ? separator : cliques_of[variable][0];
        UpdateStatus status = CollectTo(target);
        if (status != UpdateStatus::kUpdated) return status;
        if (separator >= 0) {
            if (IsUpStale(separator)) status = SendUp(separator);
            if (status == UpdateStatus::kUpdated) status = MeasureSeparator(separator);
        } else {
            status = UpdatePrivate(target);
            if (status == UpdateStatus::kUpdated) {
                const PrivateTotal& total = private_total[size_t(target)];
                log_prob = LogOf(total.mass, LogScaleAtTarget() + total.exponent * kLogUnits);
            }
        }
        return status;
    }

    // The scales of all that came to the target: on the way, messages down stand in for those up.
    int64_t LogScaleAtTarget() const
    {
        int64_t log_scale = total_log_scale;
        for (int i : way) log_scale += down[size_t(i)].log_scale - up[size_t(i)].log_scale;
        return log_scale;
    }

    // What is known of two parts together: the sum of both, or when maximising the larger.
    double Join(double a, double b) const { return maximise ? std::max(a, b) : a + b; }

    // The probability of findings from the two messages of a separator.
    UpdateStatus MeasureSeparator(int separator)
    {
        const Message &a = up[size_t(separator)], &b = down[size_t(separator)];
        double total = 0;
        for (int64_t i = 0; i < a.count; ++i)
            total = Join(total, double(a.entries[i]) * double(b.entries[i]));
        if (!(total > 0)) return Vanish(separator);
        log_prob = LogOf(total, LogScaleAtTarget() + a.log_scale);
        return UpdateStatus::kUpdated;
    }

    // ---- Beliefs. ----

    // Beliefs of the variables that no separator holds, all in one sweep.
    UpdateStatus UpdatePrivate(int clique)
    {
        if (private_variables[clique].empty() ||
            private_computed[size_t(clique)] >= inputs[size_t(clique)].NewestExcept(kFromNone))
            return UpdateStatus::kUpdated;
        const UpdateStatus filled = FillPotentials(clique);
        if (filled != UpdateStatus::kUpdated) return filled;
        const SweepPlan& plan = PrivatePlan(clique);
        CollectFactors(clique, true);
        if (!RunScaled(plan, true)) return UpdateStatus::kHalted;
        const int total = plan.num_outputs - 1;
        if (exponents[size_t(total)] == kVanished) return Vanish(clique);
        std::vector<float>& beliefs = private_beliefs[size_t(clique)];
        beliefs.clear();
        for (int o = 0; o < total; ++o)
            beliefs.insert(beliefs.end(), scratch.output[size_t(o)],
                           scratch.output[size_t(o)] + plan.outputs[size_t(o)].size);
        private_computed[size_t(clique)] = now;
        private_total[size_t(clique)] = {double(scratch.output[size_t(total)][0]), exponents[size_t(total)]};
        return UpdateStatus::kUpdated;
    }

    void ReadPrivate(int variable, float* belief)
    {
        const int clique = cliques_of[variable][0];
        const float* entries = private_beliefs[size_t(clique)].data();
        for (int v : private_variables[clique]) {
            if (v == variable) break;
            if (IsFree(v)) entries += NumStates(v);
        }
        std::copy_n(entries, NumStates(variable), belief);
        Normalize(belief, NumStates(variable));
    }

    void ReadFromSeparator(int variable, int separator, float* belief)
    {
        const Message &a = up[size_t(separator)], &b = down[size_t(separator)];
        int64_t stride = 0;
        for (int v : tree->separators[separator]) {
            if (v == variable) stride = 1;
            if (v != variable && IsFree(v)) stride *= NumStates(v);
        }
        const int num_states = NumStates(variable);
        sums.assign(size_t(num_states), 0);
        for (int64_t i = 0; i < a.count;)
            for (double& sum : sums)
                for (const int64_t end = i + stride; i < end; ++i)
                    sum = Join(sum, double(a.entries[i]) * double(b.entries[i]));
        double total = 0;
        for (double sum : sums) total = Join(total, sum);
        for (int s = 0; s < num_states; ++s) belief[s] = float(sums[size_t(s)] / total);
    }

    void Normalize(float* entries, int64_t count) const
    {
        double total = 0;
        for (int64_t i = 0; i < count; ++i) total = Join(total, double(entries[i]));
        for (int64_t i = 0; i < count; ++i) entries[i] = float(double(entries[i]) / total);
    }

    void Belief(int variable, float* belief)
    {
        const DenormalsOff mode;
        const int state = positive[size_t(variable)];
        if (state >= 0 || NumStates(variable) <= 1) {
            for (int s = 0; s < NumStates(variable); ++s) belief[s] = s == std::max(state, 0);
        } else if (belief_separator[size_t(variable)] >= 0) {
            ReadFromSeparator(variable, belief_separator[size_t(variable)], belief);
        } else {
            ReadPrivate(variable, belief);
        }
    }

    int SmallestCliqueWith(std::span<const int> variables) const
    {
        int best = -1;
        if (variables.empty()) return best;
        for (int i : cliques_of[variables[0]]) {
            std::span<const int> members = tree->members[i];
            const bool holds = std::all_of(variables.begin(), variables.end(), [&](int v) {
                return std::find(members.begin(), members.end(), v) != members.end();
            });
            if (holds && (best < 0 || tree->clique_sizes[size_t(i)] < tree->clique_sizes[size_t(best)]))
                best = i;
        }
        return best;
    }

    bool JointBelief(std::span<const int> variables, float* joint)
    {
        const DenormalsOff mode;
        const int clique = SmallestCliqueWith(variables);
        if (clique < 0) return false;
        if (FillPotentials(clique) != UpdateStatus::kUpdated) return false;
        DescribeClique(clique);
        DescribeFactors(clique, true);
        output_scopes.push_back(ScopeOf(variables));
        const uint64_t axes = output_scopes[0].axes;
        const SweepPlan& plan = *plans.Find(sizes, factor_scopes, output_scopes);
        CollectFactors(clique, true);
        if (!RunScaled(plan, true) || exponents[0] == kVanished) return false;
        Normalize(scratch.output[0], plan.outputs[0].size);
        SpreadJoint(variables, axes, joint);
        return true;
    }

    // Puts a joint table over free variables in axis order into the caller's order of all variables.
    void SpreadJoint(std::span<const int> variables, uint64_t axes, float* joint)
    {
        std::vector<int64_t> strides(variables.size());
        int64_t count = 1, stride = 1;
        for (; axes != 0; axes &= ~std::bit_floor(axes)) {
            const int axis = std::bit_width(axes) - 1;
            for (size_t j = 0; j < variables.size(); ++j)
                if (axis_of[size_t(variables[j])] == axis) strides[j] = stride;
            stride *= sizes[size_t(axis)];
        }
        for (int v : variables) count *= std::max(1, NumStates(v));
        std::vector<int> state(variables.size());
        for (int64_t i = 0; i < count; ++i) {
            int64_t place = 0;
            bool possible = true;
            for (size_t j = 0; j < variables.size(); ++j) {
                const int observed = positive[size_t(variables[j])];
                possible &= observed < 0 || observed == state[j];
                place += strides[j] * state[j];
            }
            joint[i] = possible ? scratch.output[0][place] : 0;
            for (size_t j = variables.size(); j-- > 0;) {
                if (++state[j] < NumStates(variables[j])) break;
                state[j] = 0;
            }
        }
    }
};

// ---- The functions of the header. ----

Propagation::Propagation(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                         double small_tree)
    : engine_(std::make_unique<Engine>(graph, tree, std::move(table), small_tree))
{}

Propagation::~Propagation() = default;
Propagation::Propagation(Propagation&&) noexcept = default;
Propagation& Propagation::operator=(Propagation&&) noexcept = default;

void Propagation::SetPositive(int variable, int state)
{
    engine_->SetPositive(variable, state);
}

void Propagation::SetLikelihood(int variable, const float* likelihood)
{
    std::vector<float>& current = engine_->likelihoods[size_t(variable)];
    if (likelihood == nullptr && current.empty()) return;
    std::vector<float> weights;
    if (likelihood != nullptr) weights.assign(likelihood, likelihood + engine_->NumStates(variable));
    if (weights == current) return;
    current = std::move(weights);
    engine_->TouchPotentials(variable, true);
}

void Propagation::TableChanged(int variable)
{
    engine_->ChangeTable(variable);
}

void Propagation::ClearFindings()
{
    for (int v = 0; v < int(engine_->graph->variables.size()); ++v) {
        SetPositive(v, -1);
        SetLikelihood(v, nullptr);
    }
}

void Propagation::SetMaximise(bool maximise)
{
    if (engine_->maximise == maximise) return;
    engine_->maximise = maximise;
    engine_->Forget();
}

void Propagation::Forget()
{
    engine_->Forget();
}

UpdateStatus Propagation::Update()
{
    return engine_->Update();
}
UpdateStatus Propagation::UpdateFor(int variable)
{
    return engine_->UpdateFor(variable);
}
bool Propagation::IsUpdated() const
{
    return engine_->updated;
}
int Propagation::VanishedAt() const
{
    const int clique = engine_->vanished_at;
    return clique < 0 || engine_->hubs.origin.empty() ? clique : engine_->hubs.origin[size_t(clique)];
}

double Propagation::LogProbability() const
{
    return engine_->vanished_at >= 0 ? -std::numeric_limits<double>::infinity() : engine_->log_prob;
}

double Propagation::Probability() const
{
    return std::exp(LogProbability());
}
void Propagation::Belief(int variable, float* belief) const
{
    engine_->Belief(variable, belief);
}

bool Propagation::JointBelief(std::span<const int> variables, float* joint) const
{
    return engine_->JointBelief(variables, joint);
}

double Propagation::Bytes() const
{
    double entries = double(engine_->arena.size());
    for (const TableVector<float>& own : engine_->large) entries += double(own.size());
    return entries * sizeof(float);
}

Propagation::Counters Propagation::counters() const
{
    return engine_->counts;
}

}  // namespace talora
