// Sixteen cases at a time through a small tree: layout, both passes, cases that floats do not do for.
#include "BN/Propagation/PropagateBatch.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>

#include "BN/Propagation/PotTable0.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/KernelSet.h"
#include "Basic/Memory.h"

// Vectors are only passed to functions that are compiled into their caller.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace talora {

namespace {

constexpr int kGroup = BatchPropagation::kCases;
constexpr int kLongSum = 256;             // entries that are summed in single precision
constexpr int kWeakest = -60;             // exponent of the largest entry
constexpr double kMostEntries = 1 << 16;  // of cliques and separators; places fit 16 bits

using Group = float __attribute__((vector_size(4 * kGroup)));
using GroupBits = int32_t __attribute__((vector_size(4 * kGroup)));

struct GroupFactor {
    const Group* table;
    const uint16_t* at;  // per entry of the clique
};

namespace plain {
#include "BN/Propagation/BatchKernels.inc"
}
#if defined(__x86_64__) && !defined(__clang__)  // which has no such pragmas
#define TALORA_BATCH_SETS 1
#pragma GCC push_options
#pragma GCC target("avx2,prefer-vector-width=256")
namespace avx2 {
#include "BN/Propagation/BatchKernels.inc"
}
#pragma GCC pop_options
#pragma GCC push_options
#pragma GCC target("avx512f,avx512vl,avx512bw,avx512dq,prefer-vector-width=512")
namespace avx512 {
#include "BN/Propagation/BatchKernels.inc"
}
#pragma GCC pop_options
#endif

struct Kernels {
    decltype(&plain::Product) product;
    decltype(&plain::Multiply) multiply;
    decltype(&plain::SumOnto) sum_onto;
    decltype(&plain::ScaleCases) scale_cases;
    decltype(&plain::Quotients) quotients;
    decltype(&plain::WriteEvidence) write_evidence;
    decltype(&plain::AddWeighted) add_weighted;
};

Kernels ChooseKernels()
{
#define TALORA_KERNELS(set)                                                                             \
    Kernels                                                                                             \
    {                                                                                                   \
        set::Product, set::Multiply, set::SumOnto, set::ScaleCases, set::Quotients, set::WriteEvidence, \
            set::AddWeighted                                                                            \
    }
#ifdef TALORA_BATCH_SETS
    if (ChosenKernelSet() == KernelSet::kAvx512) return TALORA_KERNELS(avx512);
    if (ChosenKernelSet() == KernelSet::kAvx2) return TALORA_KERNELS(avx2);
#endif
    return TALORA_KERNELS(plain);
#undef TALORA_KERNELS
}

// Groups on boundaries of their own size.
class GroupStore {
public:
    // A table of so many groups; its place.
    int64_t Add(int64_t size)
    {
        const int64_t place = size_;
        size_ += size;
        return place;
    }
    void Allocate()
    {
        bytes_ = TableVector<float>(size_t(size_ + 1) * kGroup);
        void* start = bytes_.data();
        size_t room = bytes_.size() * sizeof(float);
        first_ = static_cast<Group*>(std::align(sizeof(Group), size_t(size_) * sizeof(Group), start, room));
    }
    Group* operator[](int64_t place) const { return first_ + place; }

private:
    TableVector<float> bytes_;
    Group* first_ = nullptr;
    int64_t size_ = 0;
};

// A table over some variables of a clique: how they meet, and how the clique is summed onto it.
struct Scope {
    int size = 1;
    int64_t at = 0;    // per entry of the clique its place in the table
    int64_t from = 0;  // per entry of the table the places in the clique that add up to it
};

struct Input {
    int variable;   // whose findings, or -1
    int64_t table;  // groups
    int64_t at;     // in maps
};

struct Clique {
    int size = 1;
    int64_t potential = 0;  // in potentials_
    int64_t entries = 0;    // groups
    Scope separator;        // towards the mate, seen from this clique
    Scope mates_separator;  // the same, seen from the mate
    int64_t up = 0, above = 0, quotient = 0;
    std::vector<Input> inputs;
    bool needs_entries = false;  // the final ones, on the way down
    bool needs_above = false;    // the sum onto the separator with all that is known
    bool is_stale = true;        // the potential
    bool is_lossy = false;       // a product in it was flushed to 0
};

struct BeliefSource {
    int variable;
    bool from_separator;  // that of the clique towards its mate, else the clique
    int clique;
    Scope scope;    // of the separator or clique
    int64_t table;  // groups: the belief, not normalised
};

struct FamilySource {
    int variable;
    int clique;
    Scope scope;
};

}  // namespace

struct BatchPropagation::Program {
    const ModelGraph* graph;
    const JunctionTree* tree;
    TableSource table;
    Kernels kernels = ChooseKernels();

    std::vector<Clique> cliques;
    std::vector<BeliefSource> beliefs;
    std::vector<int> belief_of;  // per variable its place in beliefs, or -1
    std::vector<FamilySource> families;
    std::vector<int> family_of;
    std::vector<int64_t> evidence;  // per variable
    std::vector<uint16_t> maps;
    std::vector<float> potentials;
    GroupStore groups;
    int64_t scratch = 0;  // as large as the largest clique
    int64_t total = 0;

    // Of the last run.
    int num_cases = 0;
    GroupBits exponents{}, weak{};
    bool is_checking = false;           // each product is looked at, by case
    std::vector<Group> before_scaling;  // only then
    std::vector<char> is_known;         // per variable: in some case
    std::vector<double> belief_totals;  // per belief and case
    std::vector<GroupFactor> factors;
    std::vector<double> case_weights;
    TableVector<float> family_table;

    Program(const ModelGraph& g, const JunctionTree& t, TableSource source, const CaseResults& wanted)
        : graph(&g), tree(&t), table(std::move(source))
    {
        cliques.resize(size_t(t.num_cliques()));
        is_known.assign(g.variables.size(), 0);
        int largest = 1;
        for (int i = 0; i < t.num_cliques(); ++i) {
            Clique& clique = cliques[size_t(i)];
            clique.size = SizeOf(t.members[i]);
            clique.potential = int64_t(potentials.size());
            potentials.resize(potentials.size() + size_t(clique.size));
            largest = std::max(largest, clique.size);
        }
        PlaceEvidence();
        for (int i = 1; i < t.num_cliques(); ++i) PlaceSeparator(i);
        PlaceBeliefs(wanted.beliefs);
        PlaceFamilies(wanted.families);
        for (size_t i = cliques.size(); i-- > 1;)
            if (cliques[i].needs_entries || cliques[i].needs_above) {
                cliques[i].needs_above = true;
                cliques[size_t(t.mate[i])].needs_entries = true;
            }
        scratch = groups.Add(largest);
        total = groups.Add(1);
        for (Clique& clique : cliques)
            clique.entries = clique.needs_entries ? groups.Add(clique.size) : scratch;
        groups.Allocate();
        belief_totals.resize(beliefs.size() * kGroup);
        case_weights.resize(kGroup);
    }

    int StatesOf(int variable) const { return std::max(1, graph->variables[size_t(variable)].num_states); }
    int SizeOf(std::span<const int> variables) const
    {
        int64_t size = 1;
        for (int v : variables) size *= StatesOf(v);
        TALORA_CHECK(size <= int64_t(kMostEntries));
        return int(size);
    }

    // ---- What is worked out with the tree. ----

    // Per entry of a table over `variables`, last fastest, the entry of one over `onto`.
    std::vector<uint16_t> PlacesIn(std::span<const int> variables, std::span<const int> onto) const
    {
        std::vector<int> stride(variables.size(), 0), state(variables.size(), 0);
        for (size_t k = 0; k < variables.size(); ++k) {
            const auto found = std::find(onto.begin(), onto.end(), variables[k]);
            if (found != onto.end()) stride[k] = SizeOf(onto.subspan(size_t(found - onto.begin()) + 1));
        }
        std::vector<uint16_t> places(size_t(SizeOf(variables)));
        int place = 0;
        for (uint16_t& entry : places) {
            entry = uint16_t(place);
            for (size_t k = variables.size(); k-- > 0;) {
                place += stride[k];
                if (++state[k] < StatesOf(variables[k])) break;
                place -= stride[k] * state[k];
                state[k] = 0;
            }
        }
        return places;
    }

    Scope ScopeOf(std::span<const int> variables, std::span<const int> onto)
    {
        Scope scope;
        scope.size = SizeOf(onto);
        const std::vector<uint16_t> places = PlacesIn(variables, onto);
        scope.at = int64_t(maps.size());
        maps.insert(maps.end(), places.begin(), places.end());
        scope.from = int64_t(maps.size());
        std::vector<uint16_t> entries(places.size());
        std::iota(entries.begin(), entries.end(), uint16_t(0));
        std::stable_sort(entries.begin(), entries.end(),
                         [&](uint16_t a, uint16_t b) { return places[a] < places[b]; });
        maps.insert(maps.end(), entries.begin(), entries.end());
        return scope;
    }

    // The findings of a variable enter at the smallest clique that holds it.
    void PlaceEvidence()
    {
        std::vector<int> clique_of(graph->variables.size(), -1);
        for (int i = 0; i < tree->num_cliques(); ++i)
            for (int v : tree->members[i]) {
                int& best = clique_of[size_t(v)];
                if (best < 0 || cliques[size_t(i)].size < cliques[size_t(best)].size) best = i;
            }
        evidence.assign(graph->variables.size(), 0);
        for (int v = 0; v < int(graph->variables.size()); ++v) {
            evidence[size_t(v)] = groups.Add(StatesOf(v));
            const int i = clique_of[size_t(v)];
            const Scope scope = ScopeOf(tree->members[i], std::span(&v, 1));
            cliques[size_t(i)].inputs.push_back({v, evidence[size_t(v)], scope.at});
        }
    }

    void PlaceSeparator(int i)
    {
        Clique& clique = cliques[size_t(i)];
        Clique& mate = cliques[size_t(tree->mate[size_t(i)])];
        clique.separator = ScopeOf(tree->members[i], tree->separators[i]);
        clique.mates_separator = ScopeOf(tree->members[tree->mate[size_t(i)]], tree->separators[i]);
        clique.up = groups.Add(clique.separator.size);
        clique.above = groups.Add(clique.separator.size);
        clique.quotient = groups.Add(clique.separator.size);
        mate.inputs.push_back({-1, clique.up, clique.mates_separator.at});
    }

    // A belief comes from the smallest table that holds the variable.
    void PlaceBeliefs(const std::vector<int>& variables)
    {
        belief_of.assign(graph->variables.size(), -1);
        for (int v : variables) {
            if (belief_of[size_t(v)] >= 0) continue;
            BeliefSource best{v, false, -1, {}, 0};
            double best_size = std::numeric_limits<double>::infinity();
            const auto consider = [&](bool from_separator, int i, std::span<const int> members) {
                if (std::find(members.begin(), members.end(), v) == members.end()) return;
                const double size = SizeOf(members);
                if (size >= best_size) return;
                best_size = size;
                best.from_separator = from_separator;
                best.clique = i;
            };
            for (int i = 0; i < tree->num_cliques(); ++i) {
                consider(false, i, tree->members[i]);
                if (i > 0) consider(true, i, tree->separators[i]);
            }
            Clique& clique = cliques[size_t(best.clique)];
            (best.from_separator ? clique.needs_above : clique.needs_entries) = true;
            best.scope =
                ScopeOf(best.from_separator ? tree->separators[best.clique] : tree->members[best.clique],
                        std::span(&v, 1));
            best.table = groups.Add(StatesOf(v));
            belief_of[size_t(v)] = int(beliefs.size());
            beliefs.push_back(best);
        }
    }

    void PlaceFamilies(const std::vector<int>& variables)
    {
        family_of.assign(graph->variables.size(), -1);
        for (int v : variables) {
            if (family_of[size_t(v)] >= 0) continue;
            std::vector<int> family = graph->variables[size_t(v)].parents;
            family.push_back(v);
            const int home = tree->home[size_t(v)];
            cliques[size_t(home)].needs_entries = true;
            family_of[size_t(v)] = int(families.size());
            families.push_back({v, home, ScopeOf(tree->members[home], family)});
        }
    }

    // ---- Running. ----

    void FillPotential(int i)
    {
        Clique& clique = cliques[size_t(i)];
        float* entries = potentials.data() + clique.potential;
        std::fill_n(entries, clique.size, 1.0f);
        clique.is_lossy = false;
        const std::vector<int> cut(graph->variables.size(), -1);
        std::vector<int> rank(graph->variables.size(), 0);
        for (size_t k = 0; k < tree->members[i].size(); ++k) rank[size_t(tree->members[i][k])] = int(k);
        for (int v : tree->homed[i]) {
            const FamilyRequest request{graph, v, table(v), nullptr, cut, rank};
            const std::vector<int> scope = FamilyScope(request);
            std::vector<float> factor(size_t(SizeOf(scope)));
            WriteFamily(request, factor.data());
            const std::vector<uint16_t> places = PlacesIn(tree->members[i], scope);
            for (int e = 0; e < clique.size; ++e) {
                const float one = factor[places[size_t(e)]];
                clique.is_lossy |= entries[e] * one == 0 && entries[e] != 0 && one != 0;
                entries[e] *= one;
            }
        }
        clique.is_stale = false;
    }

    void EnterFindings(std::span<const CaseFindings> cases)
    {
        for (size_t v = 0; v < is_known.size(); ++v) {
            GroupBits states;
            bool known = false;
            for (int k = 0; k < kGroup; ++k) {
                const int state = cases[size_t(k < int(cases.size()) ? k : 0)].states[v];
                states[k] = state;
                known |= state >= 0;
            }
            is_known[v] = known;
            if (known) kernels.write_evidence(groups[evidence[v]], StatesOf(int(v)), &states);
        }
        for (size_t k = 0; k < cases.size(); ++k)
            for (const CaseFindings::Weights& weights : cases[k].likelihoods)
                MultiplyEvidence(weights.variable, int(k), weights.weights);
    }

    void MultiplyEvidence(int variable, int k, const float* weights)
    {
        Group* table_of = groups[evidence[size_t(variable)]];
        const int num_states = StatesOf(variable);
        if (!is_known[size_t(variable)]) std::fill_n(table_of, num_states, Group{} + 1.0f);
        is_known[size_t(variable)] = 1;
        const float largest = *std::max_element(weights, weights + num_states);
        int exponent = 0;
        std::frexp(largest, &exponent);
        exponents[k] += exponent;
        for (int s = 0; s < num_states; ++s) {
            const float before = table_of[s][k], weight = std::ldexp(weights[s], -exponent);
            table_of[s][k] = before * weight;
            if (before * weight == 0 && before != 0 && weights[s] != 0) weak[k] = -1;
        }
    }

    // ---- Looking for cases in which a product was flushed. ----

    static GroupBits IsPositive(const Group& group) { return group > 0; }

    void CheckProduct(const Clique& clique)
    {
        if (!is_checking) return;
        const Group* entries = groups[clique.entries];
        for (int e = 0; e < clique.size; ++e) {
            if (potentials[size_t(clique.potential + e)] == 0) continue;
            GroupBits is_lost = entries[e] == 0;
            for (const GroupFactor& factor : factors) is_lost &= IsPositive(factor.table[factor.at[e]]);
            weak |= is_lost;
        }
    }

    void ScaleCases(int64_t place, int size, GroupBits* scales, GroupBits* weak_cases)
    {
        Group* entries = groups[place];
        if (is_checking) before_scaling.assign(entries, entries + size);
        kernels.scale_cases(entries, size, scales, weak_cases);
        for (int e = 0; is_checking && e < size; ++e)
            weak |= (entries[e] == 0) & IsPositive(before_scaling[size_t(e)]);
    }

    // The entries times the quotients of what the mate knows and what it was sent.
    void MultiplyQuotients(const Clique& clique)
    {
        Group *quotient = groups[clique.quotient], *entries = groups[clique.entries];
        const Group *above = groups[clique.above], *sent = groups[clique.up];
        kernels.quotients(quotient, above, sent, clique.separator.size);
        const GroupFactor factor{quotient, maps.data() + clique.separator.at};
        if (is_checking) {
            for (int e = 0; e < clique.separator.size; ++e)
                weak |= (quotient[e] == 0) & IsPositive(above[e]) & IsPositive(sent[e]);
            for (int e = 0; e < clique.size; ++e) {
                const Group& other = quotient[factor.at[e]];
                weak |= (entries[e] * other == 0) & IsPositive(entries[e]) & IsPositive(other);
            }
        }
        kernels.multiply(entries, clique.size, factor);
    }

    void Run(std::span<const CaseFindings> cases)
    {
        num_cases = int(cases.size());
        UnderflowWatch::Seen();  // what came before is of no concern
        is_checking = false;
        RunOnce(cases);
        if (!UnderflowWatch::Seen()) return;
        is_checking = true;
        RunOnce(cases);
    }

    void RunOnce(std::span<const CaseFindings> cases)
    {
        exponents = weak = GroupBits{};
        EnterFindings(cases);
        for (size_t i = cliques.size(); i-- > 0;) Collect(int(i));
        // Every clique comes after its mate.
        for (size_t i = 0; i < cliques.size(); ++i) Distribute(int(i));
        for (size_t b = 0; b < beliefs.size(); ++b) ReadBelief(b);
    }

    void Collect(int i)
    {
        Clique& clique = cliques[size_t(i)];
        if (clique.is_stale) FillPotential(i);
        factors.clear();
        for (const Input& input : clique.inputs)
            if (input.variable < 0 || is_known[size_t(input.variable)])
                factors.push_back({groups[input.table], maps.data() + input.at});
        Group* entries = groups[clique.entries];
        kernels.product(entries, potentials.data() + clique.potential, clique.size, factors.data(),
                        int(factors.size()));
        CheckProduct(clique);
        if (clique.is_lossy) weak = ~GroupBits{};
        if (i == 0) {
            kernels.sum_onto(groups[total], 1, entries, Identity(clique.size), clique.size);
            ScaleCases(total, 1, &exponents, &weak);
            return;
        }
        Group* up = groups[clique.up];
        kernels.sum_onto(up, clique.separator.size, entries, maps.data() + clique.separator.from,
                         clique.size / clique.separator.size);
        ScaleCases(clique.up, clique.separator.size, &exponents, &weak);
    }

    void Distribute(int i)
    {
        Clique& clique = cliques[size_t(i)];
        if (i > 0) {
            if (!clique.needs_above) return;
            const Clique& mate = cliques[size_t(tree->mate[size_t(i)])];
            GroupBits ignored{}, ignored_weak{};
            kernels.sum_onto(groups[clique.above], clique.separator.size, groups[mate.entries],
                             maps.data() + clique.mates_separator.from, mate.size / clique.separator.size);
            ScaleCases(clique.above, clique.separator.size, &ignored, &ignored_weak);
            if (clique.needs_entries) MultiplyQuotients(clique);
        }
    }

    // Places 0, 1, 2 ...
    const uint16_t* Identity(int size)
    {
        while (int(identity.size()) < size) identity.push_back(uint16_t(identity.size()));
        return identity.data();
    }
    std::vector<uint16_t> identity;

    void ReadBelief(size_t b)
    {
        const BeliefSource& source = beliefs[b];
        const Clique& clique = cliques[size_t(source.clique)];
        const int size = source.from_separator ? clique.separator.size : clique.size;
        kernels.sum_onto(groups[source.table], source.scope.size,
                         groups[source.from_separator ? clique.above : clique.entries],
                         maps.data() + source.scope.from, size / source.scope.size);
        for (int k = 0; k < kGroup; ++k) {
            double sum = 0;
            for (int s = 0; s < source.scope.size; ++s) sum += double(groups[source.table][s][k]);
            belief_totals[b * kGroup + size_t(k)] = sum;
        }
    }

    void AddFamilyCounts(int variable, std::span<const double> weights, double* counts)
    {
        const FamilySource& source = families[size_t(family_of[size_t(variable)])];
        const Clique& clique = cliques[size_t(source.clique)];
        Group* sums = groups[scratch];
        kernels.sum_onto(sums, source.scope.size, groups[clique.entries], maps.data() + source.scope.from,
                         clique.size / source.scope.size);
        double totals[kGroup] = {};
        for (int f = 0; f < source.scope.size; ++f)
            for (int k = 0; k < kGroup; ++k) totals[k] += double(sums[f][k]);
        for (int k = 0; k < kGroup; ++k) {
            const bool counts_in = k < num_cases && !weak[k] && totals[k] > 0;
            case_weights[size_t(k)] = counts_in ? weights[size_t(k)] / totals[k] : 0;
        }
        kernels.add_weighted(counts, sums, source.scope.size, case_weights.data());
    }
};

bool BatchPropagation::Suits(const ModelGraph& graph, const JunctionTree& tree)
{
    const bool has_decisions = std::any_of(graph.variables.begin(), graph.variables.end(),
                                           [](const ModelGraph::Variable& v) { return v.is_decision; });
    return !has_decisions && tree.num_cliques() > 0 && tree.total_size <= kMostEntries;
}

BatchPropagation::BatchPropagation(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                                   const CaseResults& wanted)
    : program_(std::make_unique<Program>(graph, tree, std::move(table), wanted))
{}

BatchPropagation::~BatchPropagation() = default;

void BatchPropagation::TableChanged(int variable)
{
    program_->cliques[size_t(program_->tree->home[size_t(variable)])].is_stale = true;
}

void BatchPropagation::Run(std::span<const CaseFindings> cases)
{
    TALORA_CHECK(!cases.empty() && cases.size() <= size_t(kCases));
    program_->Run(cases);
}

bool BatchPropagation::IsWeak(int k) const
{
    return program_->weak[k] != 0;
}

double BatchPropagation::LogProbability(int k) const
{
    const float mantissa = (*program_->groups[program_->total])[k];
    return std::log(double(mantissa)) + double(program_->exponents[k]) * M_LN2;
}

void BatchPropagation::Belief(int k, int variable, float* belief) const
{
    const size_t b = size_t(program_->belief_of[size_t(variable)]);
    const BeliefSource& source = program_->beliefs[b];
    const double total = program_->belief_totals[b * kGroup + size_t(k)];
    for (int s = 0; s < source.scope.size; ++s)
        belief[s] = float(double(program_->groups[source.table][s][k]) / total);
}

void BatchPropagation::AddFamilyCounts(int variable, std::span<const double> weights, double* counts) const
{
    program_->AddFamilyCounts(variable, weights, counts);
}

}  // namespace talora
