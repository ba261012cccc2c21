// Potentials of cliques, the memory of tables, plans of sweeps, and what a change of findings touches.
#include <bit>
#include <new>

#include "BN/Propagation/TreePropagation.h"
#include "Basic/FloatMode.h"

namespace talora {

namespace {

constexpr int64_t kSmallTable = 1024;   // entries; smaller ones lie in one arena at their full size
constexpr double kAlwaysMerged = 4096;  // entries up to which potentials of a clique become one

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

TreePropagation::TreePropagation(const ModelGraph& g, const JunctionTree& t, TableSource source, double small)
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
    scratch.go_on = [this](double share) { return GoesOn(share); };
}

// ---- Structure. ----

void TreePropagation::ChooseStaying(bool is_small)
{
    for (const ModelGraph::Variable& variable : graph->variables)
        always_stays.push_back(is_small && !variable.is_decision);
}

bool TreePropagation::HasBase(int potential) const
{
    std::span<const int> scope = potential_scope[potential];
    return FullSize(scope) <= kSmallTable &&
           std::all_of(scope.begin(), scope.end(), [&](int v) { return always_stays[size_t(v)]; });
}

void TreePropagation::GroupPotentials()
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

void TreePropagation::AddToGroups(int variable, std::vector<std::vector<int>>& scopes,
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

void TreePropagation::SortLikeMembers(int clique, std::vector<int>& variables)
{
    std::span<const int> order = tree->members[clique];
    for (size_t k = 0; k < order.size(); ++k) axis_of[size_t(order[k])] = int(k);
    std::sort(variables.begin(), variables.end(),
              [&](int a, int b) { return axis_of[size_t(a)] < axis_of[size_t(b)]; });
}

void TreePropagation::ChooseBeliefSources()
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

template <class Visit>
void TreePropagation::ForEachTable(Visit visit)
{
    for (int i = 0; i < tree->num_cliques(); ++i) {
        visit(up[size_t(i)], FullSize(tree->separators[i]));
        if (i > 0) visit(down[size_t(i)], FullSize(tree->separators[i]));
    }
    for (size_t p = 0; p < potentials.size(); ++p) visit(potentials[p], FullSize(potential_scope[int(p)]));
}

void TreePropagation::PlaceTables()
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

void TreePropagation::Resize(Table& t, int64_t count)
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

void TreePropagation::Touch(int clique, int from)
{
    inputs[size_t(clique)].Change(from, ++now);
    pending.Insert(clique);
    updated = false;
}

void TreePropagation::ChangeTable(int variable)
{
    for (int p : uses[variable])
        if (TakesFamily(p, variable)) potentials[size_t(p)].base_is_stale = true;
    TouchPotentials(variable, true);
}

void TreePropagation::TouchPotentials(int variable, bool only_own)
{
    for (int p : uses[variable]) {
        if (only_own && !TakesFamily(p, variable)) continue;
        potentials[size_t(p)].needs_fill = true;
        Touch(potentials[size_t(p)].clique, kFromModel);
    }
    updated = false;
}

bool TreePropagation::TakesFamily(int potential, int variable) const
{
    std::span<const int> taken = families[potential];
    return std::find(taken.begin(), taken.end(), variable) != taken.end();
}

void TreePropagation::SetPositive(int variable, int state)
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

void TreePropagation::Forget()
{
    for (size_t i = 0; i < inputs.size(); ++i) Touch(int(i), kFromModel);
    for (size_t i = 0; i < inputs.size(); ++i) {
        up[i].computed = down[i].computed = private_computed[i] = -1;
        inputs[i] = {now, -1, kFromModel};
    }
}

// ---- Plans. ----

void TreePropagation::DescribeClique(int clique)
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

SweepScope TreePropagation::ScopeOf(std::span<const int> variables) const
{
    SweepScope scope;
    for (int v : variables)
        if (axis_of[size_t(v)] >= 0) scope.axes |= uint64_t{1} << axis_of[size_t(v)];
    return scope;
}

void TreePropagation::DescribeFactors(int clique, bool with_mate)
{
    auto add = [&](std::span<const int> variables) {
        factor_scopes.push_back(ScopeOf(variables));
        if (factor_scopes.back().axes == 0) factor_scopes.pop_back();
    };
    for (int p : potentials_of[clique]) add(potential_scope[p]);
    if (with_mate && clique > 0) add(tree->separators[clique]);
    for (int child : tree->children[clique]) add(tree->separators[child]);
}

void TreePropagation::DescribeDownOutputs(int clique)
{
    for (int child : tree->children[clique]) {
        output_scopes.push_back(ScopeOf(tree->separators[child]));
        if (output_scopes.back().axes == 0) output_scopes.pop_back();
    }
    const int first = int(factor_scopes.size() - output_scopes.size());
    for (size_t o = 0; o < output_scopes.size(); ++o) output_scopes[o].excluded = first + int(o);
}

void TreePropagation::DescribeSweep(SweepKind kind, int clique, std::span<const int> variables)
{
    DescribeClique(clique);
    DescribeFactors(clique, kind != SweepKind::kUp);
    switch (kind) {
        case SweepKind::kUp:
            output_scopes.push_back(ScopeOf(tree->separators[clique]));
            break;
        case SweepKind::kDown:
            DescribeDownOutputs(clique);
            break;
        case SweepKind::kScaleDown:
            output_scopes.emplace_back();
            break;
        case SweepKind::kPrivate:
            for (int v : private_variables[clique])
                if (IsFree(v)) output_scopes.push_back(ScopeOf({&v, 1}));
            output_scopes.emplace_back();  // the total
            break;
        case SweepKind::kJoint:
            output_scopes.push_back(ScopeOf(variables));
            break;
    }
}

const SweepPlan& TreePropagation::UpPlan(int clique)
{
    const SweepPlan*& plan = up_plans[size_t(clique)];
    if (plan == nullptr) {
        DescribeSweep(SweepKind::kUp, clique);
        plan = plans.Find(sizes, factor_scopes, output_scopes);
    }
    return *plan;
}

const SweepPlan& TreePropagation::DownPlan(int clique)
{
    const SweepPlan*& plan = down_plans[size_t(clique)];
    if (plan == nullptr) {
        DescribeSweep(SweepKind::kDown, clique);
        plan = plans.Find(sizes, factor_scopes, output_scopes);
    }
    return *plan;
}

const SweepPlan& TreePropagation::PrivatePlan(int clique)
{
    const SweepPlan*& plan = private_plans[size_t(clique)];
    if (plan == nullptr) {
        DescribeSweep(SweepKind::kPrivate, clique);
        plan = plans.Find(sizes, factor_scopes, output_scopes);
    }
    return *plan;
}

// ---- Potentials. ----

UpdateStatus TreePropagation::FillPotentials(int clique)
{
    for (int p : potentials_of[clique]) {
        if (!potentials[size_t(p)].needs_fill) continue;
        if (!Fill(p)) return UpdateStatus::kHalted;
        if (potentials[size_t(p)].entries[0] == 0 && potentials[size_t(p)].count == 1) return Vanish(clique);
        potentials[size_t(p)].needs_fill = false;
        ++counts.fills;
    }
    return UpdateStatus::kUpdated;
}

std::span<const float> TreePropagation::WeightsOf(int variable)
{
    const std::vector<float>& likelihood = likelihoods[size_t(variable)].scaled;
    const int state = positive[size_t(variable)];
    if (state < 0 || !always_stays[size_t(variable)]) return likelihood;
    weights.assign(size_t(NumStates(variable)), 0);
    weights[size_t(state)] = likelihood.empty() ? 1 : likelihood[size_t(state)];
    return weights;
}

int64_t TreePropagation::LogScaleOfWeights(int variable) const
{
    return likelihoods[size_t(variable)].exponent * kLogUnits;
}

void TreePropagation::SetLikelihood(int variable, const float* likelihood)
{
    if (likelihoods[size_t(variable)].Take(likelihood, NumStates(variable))) TouchPotentials(variable, true);
}

bool Likelihood::Take(const float* weights, int num_states)
{
    if (weights == nullptr && given.empty()) return false;
    Likelihood next;
    if (weights != nullptr) {
        next.given.assign(weights, weights + num_states);
        if (next.given == given) return false;
        next.scaled = next.given;
        next.scaled.resize(next.given.size() + kSweepPadding);
        const int power = ScaleByExponent(next.scaled.data(), num_states);
        next.scaled.resize(next.given.size());
        next.exponent = power == kVanished ? 0 : power;
        for (size_t s = 0; s < next.given.size(); ++s)
            next.is_lossy |= next.scaled[s] == 0 && next.given[s] != 0;
    }
    *this = std::move(next);
    return true;
}

FamilyRequest TreePropagation::RequestFor(int variable, bool with_findings)
{
    const std::span<const float> own = with_findings ? WeightsOf(variable) : std::span<const float>();
    return {graph, variable, table(variable), own.empty() ? nullptr : own.data(), cut, axis_of};
}

bool TreePropagation::Fill(int p)
{
    ModelPotential& potential = potentials[size_t(p)];
    int64_t count = 1;
    for (int v : potential_scope[p])
        if (IsFree(v)) count *= NumStates(v);
    Resize(potential, count);
    potential.wide.clear();
    bool is_lossy = false;
    UnderflowWatch::Seen();  // what came before is of no concern
    int64_t log_scale = 0;
    if (potential.base != nullptr) {
        if (!FillBase(p)) return false;
        std::copy_n(potential.base, count, potential.entries);
        log_scale = potential.base_log_scale;
        is_lossy = potential.base_is_lossy;
        for (int variable : families[p]) MultiplyWeights(p, variable);
    } else if (!FillFromModel(p, true, potential.entries)) {
        return false;
    }
    const int exponent = ScaleByExponent(potential.entries, count);
    is_lossy |= UnderflowWatch::Seen();
    for (int variable : families[p]) is_lossy |= likelihoods[size_t(variable)].is_lossy;
    log_scale += TakeScale(potential.entries, count, exponent, false);
    for (int variable : families[p]) log_scale += LogScaleOfWeights(variable);
    if (is_lossy && !RepairRange(p, &log_scale)) return false;
    total_log_scale += log_scale - potential.log_scale;
    potential.log_scale = log_scale;
    return true;
}

bool TreePropagation::FillBase(int p)
{
    ModelPotential& potential = potentials[size_t(p)];
    if (!potential.base_is_stale) return true;
    if (!FillFromModel(p, false, potential.base)) return false;
    const int exponent = ScaleByExponent(potential.base, potential.count);
    potential.base_log_scale = exponent == kVanished ? 0 : exponent * kLogUnits;
    potential.base_is_lossy = UnderflowWatch::Seen();
    potential.base_is_stale = false;
    return true;
}

std::vector<WideNumber> TreePropagation::WideWeights(int variable) const
{
    const Likelihood& likelihood = likelihoods[size_t(variable)];
    const int state = positive[size_t(variable)];
    std::vector<WideNumber> numbers;
    if (likelihood.given.empty() && state < 0) return numbers;
    for (int s = 0; s < NumStates(variable); ++s) {
        if (!IsFree(variable) && NumStates(variable) > 1 && s != state) continue;  // cut down to its state
        WideNumber number =
            likelihood.given.empty() ? MakeWide(1) : MakeWide(double(likelihood.given[size_t(s)]));
        if (state >= 0 && s != state) number = {};
        numbers.push_back(number);
    }
    return numbers;
}

bool TreePropagation::RepairRange(int p, int64_t* log_scale)
{
    // 1. The tables of the families without findings, and the weights of the states beside them.
    DescribeClique(potentials[size_t(p)].clique);
    const uint64_t axes = ScopeOf(potential_scope[p]).axes;
    std::vector<int> axis_sizes;
    for (uint64_t rest = axes; rest != 0; rest &= rest - 1)
        axis_sizes.push_back(sizes[size_t(std::countr_zero(rest))]);
    std::vector<std::vector<float>> tables;
    std::vector<std::vector<WideNumber>> weight_tables;
    std::vector<WideFactor> factors;
    for (int variable : families[p]) {
        const FamilyRequest request = RequestFor(variable, false);
        int64_t count = 1;
        for (int v : FamilyScope(request)) count *= NumStates(v);
        WriteFamily(request, tables.emplace_back(size_t(count)).data());
        const uint64_t own = ScopeOf({&variable, 1}).axes;
        const uint64_t scope = own | ScopeOf(graph->variables[size_t(variable)].parents).axes;
        factors.push_back({Compress(scope, axes), tables.back().data(), nullptr});
        weight_tables.push_back(WideWeights(variable));
        if (!weight_tables.back().empty())
            factors.push_back({Compress(own, axes), nullptr, weight_tables.back().data()});
    }
    // 2. Their product, entry by entry.
    const WideOutput output = {axis_sizes.empty() ? 0 : (uint64_t{2} << (axis_sizes.size() - 1)) - 1, -1, 0};
    if (!RunWideSweep(
            axis_sizes, factors, output, false, [this] { return GoesOn(0); }, wide_sums))
        return false;
    // 3. Floats either kept an entry or made 0 of it.
    ModelPotential& potential = potentials[size_t(p)];
    bool is_lost = false;
    for (int64_t i = 0; i < potential.count; ++i)
        is_lost |= potential.entries[i] == 0 && !wide_sums.entries[size_t(i)].IsZero();
    if (!is_lost) return true;
    const int exponent = TakeWide(wide_sums.entries, potential.entries, potential.wide);
    *log_scale = TakeScale(potential.entries, potential.count, exponent, !potential.wide.empty());
    return true;
}

void TreePropagation::MultiplyWeights(int p, int variable)
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

bool TreePropagation::FillFromModel(int p, bool with_findings, float* entries)
{
    DescribeClique(potentials[size_t(p)].clique);
    std::span<const int> taken = families[p];
    if (taken.size() == 1) {
        WriteFamily(RequestFor(taken[0], with_findings), entries);
        return true;
    }
    return MultiplyFamilies(p, with_findings, entries);
}

uint64_t TreePropagation::Compress(uint64_t bits, uint64_t mask)
{
    uint64_t compressed = 0;
    for (int k = 0; mask != 0; mask &= mask - 1, ++k) compressed |= (bits >> std::countr_zero(mask) & 1) << k;
    return compressed;
}

bool TreePropagation::MultiplyFamilies(int p, bool with_findings, float* entries)
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
    output_scopes.push_back({own_sizes.empty() ? 0 : (uint64_t{2} << (own_sizes.size() - 1)) - 1, -1});
    for (SweepScope& scope : factor_scopes) scope.axes = Compress(scope.axes, axes);
    const SweepPlan& plan = *plans.Find(own_sizes, factor_scopes, output_scopes);
    if (!RunSweep(plan, factor_entries, {}, 1, scratch)) return false;
    std::copy_n(scratch.output[0], plan.outputs[0].size, entries);
    return true;
}

}  // namespace talora
