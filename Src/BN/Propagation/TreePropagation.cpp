// The two passes of messages over a junction tree, and beliefs from them.
#include "BN/Propagation/TreePropagation.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

constexpr int64_t kPollEntries = 1 << 20;  // between two looks at the halt flag
constexpr int kWeakExponent = -60;        // a largest entry below 2 to this, where products were flushed to 0
constexpr int kBoostExponent = 80;        // then they are formed again, larger by 2 to this
constexpr double kLeastFloat = 0x1p-126;  // smaller results are flushed to 0
constexpr double kSafeDistance =
    0x1p30;                           // beside an entry that times larger than its terms, they are nothing
constexpr int kLeastExponent = -125;  // of a float that is not flushed, as std::frexp has it

}  // namespace

// ---- Sweeps. ----

void TreePropagation::AddFactor(const Table& t)
{
    factor_entries.push_back(t.entries);
    factor_tables.push_back(&t);
    has_wide_factor |= !t.wide.empty();
}

void TreePropagation::CollectFactors(int clique, bool with_mate)
{
    factor_entries.clear();
    factor_tables.clear();
    has_wide_factor = false;
    for (int p : potentials_of[clique])
        if (potentials[size_t(p)].count > 1) AddFactor(potentials[size_t(p)]);
    if (with_mate && !is_scalar[size_t(clique)]) AddFactor(down[size_t(clique)]);
    for (int child : tree->children[clique])
        if (!is_scalar[size_t(child)]) AddFactor(up[size_t(child)]);
}

bool TreePropagation::IsHaltedNow(const SweepPlan& plan)
{
    const int64_t entries = plan.block * plan.num_steps;
    counts.entries += entries;
    unpolled += entries + 256;
    if (unpolled < kPollEntries) return false;
    unpolled = 0;
    return !GoesOn(0);
}

bool TreePropagation::GoesOn(double share)
{
    if (progress == nullptr) return !IsHalted();
    return progress->Step(progress->IsDue() ? FractionDone(share) : 0);
}

// By the sizes of cliques; up and down again count the same.  All cliques are looked at, ten times a second.
double TreePropagation::FractionDone(double share) const
{
    double total = 0, before = 0;
    for (int i = 0; i < tree->num_cliques(); ++i) {
        const double size = std::min(tree->clique_sizes[size_t(i)], 1e100);
        if (i < clique_at) before += size;
        if (i == clique_at) before += (is_rising ? 1 - share : share) * size;
        total += size;
    }
    return std::clamp((is_rising ? total - before : total + before) / (2 * total), 0.0, 1.0);
}

bool TreePropagation::RunScaled(const SweepPlan& plan, SweepKind kind, int clique, bool all_wanted,
                                std::span<const int> variables)
{
    if (IsHaltedNow(plan)) return false;
    exponents.resize(size_t(plan.num_outputs));
    wide_results.clear();
    kept_from.clear();
    if (!RunInFloats(plan, all_wanted)) return false;
    if (kept_from.empty()) return true;
    return RunBoosted(plan) && RunWide(plan, kind, clique, variables);
}

// Outputs in which what was flushed may matter get a limit in kept_from.
bool TreePropagation::RunInFloats(const SweepPlan& plan, bool all_wanted)
{
    const std::span<const char> asked = all_wanted ? std::span<const char>() : std::span<const char>(wanted);
    UnderflowWatch::Seen();  // what came before is of no concern
    if (!RunSweep(plan, factor_entries, asked, 1, scratch, maximise)) return false;
    for (size_t o = 0; o < exponents.size(); ++o)
        if (IsWanted(o, all_wanted)) exponents[o] = ScaleByExponent(scratch.output[o], plan.outputs[o].size);
    const bool may_have_lost = UnderflowWatch::Seen() && !ProductsFitFloats();
    if (!may_have_lost && !has_wide_factor) return true;
    kept_from.assign(size_t(plan.num_outputs), 0);
    for (size_t o = 0; o < exponents.size(); ++o)
        if (IsWanted(o, all_wanted)) kept_from[o] = kLeastFloat;
    return true;
}

// The processor's flag also tells of entries that stand behind those of a table.
bool TreePropagation::ProductsFitFloats() const
{
    double least = 1;
    for (size_t f = 0; f < factor_entries.size(); ++f) {
        float least_here = 1;
        for (int64_t i = 0; i < factor_tables[f]->count; ++i) {
            const float entry = factor_entries[f][i];
            least_here = std::min(least_here, entry > 0 ? entry : 1.0f);
        }
        least *= double(least_here);
    }
    return least > 2 * kLeastFloat;
}

bool TreePropagation::RunBoosted(const SweepPlan& plan)
{
    std::vector<char> weak(size_t(plan.num_outputs));
    for (size_t o = 0; o < weak.size(); ++o) weak[o] = kept_from[o] > 0 && exponents[o] < kWeakExponent;
    if (plan.num_factors < 2 || has_wide_factor || std::find(weak.begin(), weak.end(), 1) == weak.end())
        return true;
    if (!RunSweep(plan, factor_entries, weak, std::ldexp(1.0f, kBoostExponent), scratch, maximise))
        return false;
    for (size_t o = 0; o < weak.size(); ++o) {
        if (!weak[o]) continue;
        exponents[o] = ScaleByExponent(scratch.output[o], plan.outputs[o].size);
        if (exponents[o] != kVanished) exponents[o] -= kBoostExponent;
    }
    const bool has_lost = UnderflowWatch::Seen();
    for (size_t o = 0; o < weak.size(); ++o)
        if (weak[o]) kept_from[o] = has_lost ? std::ldexp(kLeastFloat, -kBoostExponent) : 0;
    return true;
}

bool TreePropagation::RunWide(const SweepPlan& plan, SweepKind kind, int clique,
                              std::span<const int> variables)
{
    DescribeSweep(kind, clique, variables);
    std::vector<WideFactor> factors;
    for (size_t f = 0; f < factor_scopes.size(); ++f)
        factors.push_back({factor_scopes[f].axes, factor_entries[f],
                           factor_tables[f]->wide.empty() ? nullptr : factor_tables[f]->wide.data()});
    wide_results.resize(output_scopes.size());
    std::vector<std::vector<char>> possible;
    if (!FindPossible(plan, possible)) return false;
    double num_entries = 1;
    for (int size : sizes) num_entries *= size;
    for (size_t o = 0; o < output_scopes.size(); ++o) {
        if (kept_from[o] == 0) continue;
        // 1. The entries that what was lost may be more than a thousand-millionth of.
        const std::span<float> entries(scratch.output[o], size_t(plan.outputs[o].size));
        const int exponent = exponents[o] == kVanished ? 0 : exponents[o];
        const double terms = num_entries / double(entries.size());
        const double safe = std::ldexp(kept_from[o] * terms * kSafeDistance, -exponent);
        std::vector<char>& asked = possible[o];
        for (size_t i = 0; i < entries.size(); ++i) asked[i] = asked[i] && !(double(entries[i]) > safe);
        if (std::find(asked.begin(), asked.end(), 1) == asked.end()) continue;
        // 2. What they really are.
        const WideOutput output = {output_scopes[o].axes, output_scopes[o].excluded, kept_from[o], asked};
        if (!RunWideSweep(
                sizes, factors, output, maximise, [this] { return GoesOn(0); }, wide_sums))
            return false;
        for (size_t i = 0; i < entries.size(); ++i)
            if (!asked[i]) wide_sums.entries[i] = MakeWide(double(entries[i]), exponent);
        // 3. Whether the floats stay depends on these numbers alone, so the results do too.
        if (wide_sums.lost || !FitFloats(wide_sums.entries))
            exponents[o] = TakeWide(wide_sums.entries, entries.data(), wide_results[o]);
    }
    return true;
}

// An entry is possible if some product in it is not 0.  The largest product of sixteenth roots tells, which
// leaves the range of floats only where sixteen times as many factors do.
bool TreePropagation::FindPossible(const SweepPlan& plan, std::vector<std::vector<char>>& possible)
{
    std::vector<char> concerned;
    possible.clear();
    for (size_t o = 0; o < kept_from.size(); ++o) {
        concerned.push_back(kept_from[o] > 0);
        possible.emplace_back(size_t(concerned[o] ? plan.outputs[o].size : 0), char(1));
    }
    std::vector<TableVector<float>> roots;
    std::vector<const float*> root_entries;
    int64_t least_exponent = 0;  // of a product
    for (const Table* t : factor_tables) {
        TableVector<float>& root = roots.emplace_back(size_t(t->count) + kSweepPadding);
        int64_t least_here = 0;
        for (int64_t i = 0; i < t->count; ++i) {
            if (t->wide.empty()) {
                root[size_t(i)] = std::sqrt(std::sqrt(std::sqrt(std::sqrt(t->entries[i]))));
                continue;
            }
            const WideNumber& entry = t->wide[size_t(i)];
            if (!entry.IsZero()) root[size_t(i)] = float(std::exp2(double(entry.exponent) / 16));
            least_here = std::min(least_here, entry.exponent);
        }
        least_exponent += std::min(least_here, int64_t{kLeastExponent});
        root_entries.push_back(root.data());
    }
    if (least_exponent < 16 * kLeastExponent) return true;
    SweepScratch own;
    own.go_on = scratch.go_on;
    if (!RunSweep(plan, root_entries, concerned, 1, own, true)) return false;
    for (size_t o = 0; o < possible.size(); ++o)
        for (size_t i = 0; i < possible[o].size(); ++i) possible[o][i] = own.output[o][i] > 0;
    return true;
}

bool TreePropagation::FitFloats(std::span<const WideNumber> numbers)
{
    const int64_t largest = std::max_element(numbers.begin(), numbers.end())->exponent;
    return std::all_of(numbers.begin(), numbers.end(), [&](const WideNumber& number) {
        return number.IsZero() || number.exponent - largest >= kLeastExponent;
    });
}

int TreePropagation::TakeWide(std::span<const WideNumber> numbers, float* entries,
                              std::vector<WideNumber>& wide)
{
    wide.clear();
    const WideNumber largest = *std::max_element(numbers.begin(), numbers.end());
    for (size_t i = 0; i < numbers.size(); ++i) entries[i] = float(ScaledDown(numbers[i], largest.exponent));
    if (largest.IsZero()) return kVanished;
    if (!FitFloats(numbers)) {
        wide.assign(numbers.begin(), numbers.end());
        for (WideNumber& number : wide)
            if (!number.IsZero()) number.exponent -= largest.exponent;
    }
    return int(largest.exponent);
}

int64_t TreePropagation::TakeScale(float* entries, int64_t count, int exponent, bool is_wide)
{
    if (exponent == kVanished) return 0;
    const int64_t log_scale = exponent * kLogUnits;
    if (is_wide) return log_scale;  // more than one entry
    int64_t last = count - 1;
    while (entries[last] == 0) --last;
    for (int64_t i = 0; i < last; ++i)
        if (entries[i] != 0) return log_scale;
    const double value = double(entries[last]);
    entries[last] = 1;
    return log_scale + std::llround(std::log2(value) * double(kLogUnits));
}

// ---- Messages. ----

bool TreePropagation::Store(Message& message, const SweepPlan& plan, int output)
{
    const int64_t count = plan.outputs[size_t(output)].size;
    float* entries = scratch.output[size_t(output)];
    const bool is_wide = !wide_results.empty() && !wide_results[size_t(output)].empty();
    const int64_t log_scale = TakeScale(entries, count, exponents[size_t(output)], is_wide);
    const bool same = message.computed >= 0 && message.count == count &&
                      (is_wide ? message.wide == wide_results[size_t(output)] : message.wide.empty()) &&
                      std::memcmp(message.entries, entries, size_t(count) * sizeof(float)) == 0;
    if (!same) {
        message.computed = -1;
        Resize(message, count);
        std::memcpy(message.entries, entries, size_t(count) * sizeof(float));
        message.wide.clear();
        if (is_wide) message.wide = std::move(wide_results[size_t(output)]);
    }
    message.log_scale = log_scale;
    message.computed = now;
    ++counts.messages;
    return !same;
}

UpdateStatus TreePropagation::Vanish(int clique)
{
    vanished_at = clique;
    return UpdateStatus::kInconsistent;
}

UpdateStatus TreePropagation::SendUp(int clique)
{
    const UpdateStatus filled = FillPotentials(clique);
    if (filled != UpdateStatus::kUpdated) return filled;
    const SweepPlan& plan = UpPlan(clique);
    CollectFactors(clique, false);
    if (!RunScaled(plan, SweepKind::kUp, clique, true)) return UpdateStatus::kHalted;
    if (exponents[0] == kVanished) return Vanish(clique);
    total_log_scale -= up[size_t(clique)].log_scale;
    const bool is_new = Store(up[size_t(clique)], plan, 0);
    total_log_scale += up[size_t(clique)].log_scale;
    if (is_new && clique > 0) Touch(tree->mate[size_t(clique)], clique);
    return UpdateStatus::kUpdated;
}

UpdateStatus TreePropagation::SendDown(int clique, int only)
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
    if (!RunScaled(plan, SweepKind::kDown, clique, num_wanted == wanted.size())) return UpdateStatus::kHalted;
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

UpdateStatus TreePropagation::SendScaleDown(int child)
{
    const int clique = tree->mate[size_t(child)];
    const UpdateStatus filled = FillPotentials(clique);
    if (filled != UpdateStatus::kUpdated) return filled;
    DescribeSweep(SweepKind::kScaleDown, clique);
    const SweepPlan& plan = *plans.Find(sizes, factor_scopes, output_scopes);
    CollectFactors(clique, true);
    if (!RunScaled(plan, SweepKind::kScaleDown, clique, true)) return UpdateStatus::kHalted;
    if (exponents[0] == kVanished) return Vanish(clique);
    Store(down[size_t(child)], plan, 0);
    return UpdateStatus::kUpdated;
}

// ---- Updates. ----

double TreePropagation::LogOf(double mass, int64_t log_scale) const
{
    return std::log(mass) + std::ldexp(double(log_scale), -kLogUnitsExponent) * std::log(2.0) -
           LogOfDecisions();
}

double TreePropagation::LogOfDecisions() const
{
    double log_choices = 0;
    for (int v : decisions)
        if (positive[size_t(v)] < 0) log_choices += std::log(double(std::max(1, NumStates(v))));
    return log_choices;
}

UpdateStatus TreePropagation::Update()
{
    const DenormalsOff mode;
    PlaceTables();
    vanished_at = -1;
    // 1. Towards the root.  Every clique comes after its mate, so from the last to the first each has what
    // its children send before it sends; one whose message comes out as it was before stirs nothing further
    // on.
    for (int i = pending.Below(tree->num_cliques()); i >= 0; i = pending.Below(i)) {
        clique_at = i;
        const UpdateStatus status = IsUpStale(i) ? SendUp(i) : UpdateStatus::kUpdated;
        if (status != UpdateStatus::kUpdated) return status;
    }
    // 2. Outwards, in the other order, and the beliefs that no separator holds.
    is_rising = false;
    for (int i = pending.From(0); i >= 0; i = pending.From(i + 1)) {
        clique_at = i;
        UpdateStatus status = SendDown(i);
        if (status == UpdateStatus::kUpdated) status = UpdatePrivate(i);
        if (status != UpdateStatus::kUpdated) return status;
        pending.Erase(i);
    }
    // 3. What scaling took out of potentials and messages on the way to the root is the probability.
    log_prob = tree->num_cliques() == 0 ? 0 : LogOf(1, total_log_scale);
    updated = true;
    return UpdateStatus::kUpdated;
}

UpdateStatus TreePropagation::CollectTo(int target)
{
    // 1. The way from the target to the root.
    way.clear();
    for (int i = target; i >= 0; i = tree->mate[size_t(i)]) way.push_back(i);
    std::vector<bool> on_way(size_t(tree->num_cliques()));
    for (int i : way) on_way[size_t(i)] = true;
    // 2. Upwards in all that hangs on the way.
    for (int i = pending.Below(tree->num_cliques()); i >= 0; i = pending.Below(i)) {
        if (on_way[size_t(i)] || !IsUpStale(i)) continue;
        clique_at = i;
        const UpdateStatus status = SendUp(i);
        if (status != UpdateStatus::kUpdated) return status;
    }
    // 3. Down the way, to one child at each step.
    is_rising = false;
    for (size_t k = way.size(); k-- > 1;) {
        clique_at = way[k];
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

UpdateStatus TreePropagation::UpdateFor(int variable)
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

int64_t TreePropagation::LogScaleAtTarget() const
{
    int64_t log_scale = total_log_scale;
    for (int i : way) log_scale += down[size_t(i)].log_scale - up[size_t(i)].log_scale;
    return log_scale;
}

UpdateStatus TreePropagation::MeasureSeparator(int separator)
{
    const Message &a = up[size_t(separator)], &b = down[size_t(separator)];
    double total = 0;
    int64_t log_scale = LogScaleAtTarget() + a.log_scale;
    if (a.wide.empty() && b.wide.empty()) {
        for (int64_t i = 0; i < a.count; ++i)
            total = Join(total, double(a.entries[i]) * double(b.entries[i]));
    } else {
        WideNumber wide_total;
        for (int64_t i = 0; i < a.count; ++i) {
            const WideNumber term = EntryOf(a, i) * EntryOf(b, i);
            wide_total = maximise ? std::max(wide_total, term) : wide_total + term;
        }
        total = wide_total.fraction;
        log_scale += wide_total.exponent * kLogUnits;
    }
    if (!(total > 0)) return Vanish(separator);
    log_prob = LogOf(total, log_scale);
    return UpdateStatus::kUpdated;
}

void TreePropagation::SetMaximise(bool maximises)
{
    if (maximise == maximises) return;
    maximise = maximises;
    Forget();
}

double TreePropagation::Bytes() const
{
    double entries = double(arena.size());
    for (const TableVector<float>& own : large) entries += double(own.size());
    return entries * sizeof(float);
}

// ---- Beliefs. ----

UpdateStatus TreePropagation::UpdatePrivate(int clique)
{
    if (private_variables[clique].empty() ||
        private_computed[size_t(clique)] >= inputs[size_t(clique)].NewestExcept(kFromNone))
        return UpdateStatus::kUpdated;
    const UpdateStatus filled = FillPotentials(clique);
    if (filled != UpdateStatus::kUpdated) return filled;
    const SweepPlan& plan = PrivatePlan(clique);
    CollectFactors(clique, true);
    if (!RunScaled(plan, SweepKind::kPrivate, clique, true)) return UpdateStatus::kHalted;
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

void TreePropagation::ReadPrivate(int variable, float* belief)
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

int64_t TreePropagation::StrideIn(int variable, int separator) const
{
    int64_t stride = 0;
    for (int v : tree->separators[separator]) {
        if (v == variable) stride = 1;
        if (v != variable && IsFree(v)) stride *= NumStates(v);
    }
    return stride;
}

void TreePropagation::ReadFromSeparator(int variable, int separator, float* belief)
{
    const Message &a = up[size_t(separator)], &b = down[size_t(separator)];
    if (!a.wide.empty() || !b.wide.empty()) return ReadWide(variable, separator, belief);
    const int64_t stride = StrideIn(variable, separator);
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

void TreePropagation::ReadWide(int variable, int separator, float* belief)
{
    const Message &a = up[size_t(separator)], &b = down[size_t(separator)];
    const int64_t stride = StrideIn(variable, separator);
    const int num_states = NumStates(variable);
    std::vector<WideNumber> wide_beliefs(static_cast<size_t>(num_states));
    for (int64_t i = 0; i < a.count; ++i) {
        const WideNumber term = EntryOf(a, i) * EntryOf(b, i);
        WideNumber& sum = wide_beliefs[size_t(i / stride % num_states)];
        sum = maximise ? std::max(sum, term) : sum + term;
    }
    std::vector<WideNumber> unused;
    TakeWide(wide_beliefs, belief, unused);
    Normalize(belief, num_states);
}

void TreePropagation::Normalize(float* entries, int64_t count) const
{
    double total = 0;
    for (int64_t i = 0; i < count; ++i) total = Join(total, double(entries[i]));
    for (int64_t i = 0; i < count; ++i) entries[i] = float(double(entries[i]) / total);
}

void TreePropagation::Belief(int variable, float* belief)
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

int TreePropagation::SmallestCliqueWith(std::span<const int> variables) const
{
    int best = -1;
    if (variables.empty()) return best;
    for (int i : cliques_of[variables[0]]) {
        std::span<const int> members = tree->members[i];
        const bool holds = std::all_of(variables.begin(), variables.end(), [&](int v) {
            return std::find(members.begin(), members.end(), v) != members.end();
        });
        if (holds && (best < 0 || tree->clique_sizes[size_t(i)] < tree->clique_sizes[size_t(best)])) best = i;
    }
    return best;
}

bool TreePropagation::JointBelief(std::span<const int> variables, float* joint)
{
    const DenormalsOff mode;
    const int clique = SmallestCliqueWith(variables);
    if (clique < 0) return false;
    if (FillPotentials(clique) != UpdateStatus::kUpdated) return false;
    DescribeSweep(SweepKind::kJoint, clique, variables);
    const uint64_t axes = output_scopes[0].axes;
    const SweepPlan& plan = *plans.Find(sizes, factor_scopes, output_scopes);
    CollectFactors(clique, true);
    if (!RunScaled(plan, SweepKind::kJoint, clique, true, variables) || exponents[0] == kVanished)
        return false;
    Normalize(scratch.output[0], plan.outputs[0].size);
    SpreadJoint(variables, axes, joint);
    return true;
}

void TreePropagation::SpreadJoint(std::span<const int> variables, uint64_t axes, float* joint)
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

}  // namespace talora
