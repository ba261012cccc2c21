// Propagation by messages over a junction tree of any size: what it keeps, and the steps of an update.
//
// TreePotentials.cpp holds what belongs to single cliques: their potentials, the memory of tables, the
// plans of sweeps, and what a change of findings touches.  TreePropagation.cpp sends messages over the tree
// and reads beliefs from them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "BN/Propagation/PotTable0.h"
#include "BN/Propagation/Propagate.h"
#include "BN/Propagation/PropagateParts.h"
#include "BN/Propagation/Sweep.h"
#include "BN/Propagation/TreeHubs.h"
#include "BN/Propagation/WideSweep.h"
#include "Basic/Memory.h"

namespace talora {

// Weights of states as they were given, and scaled so that the largest is in [0.5, 1).
struct Likelihood {
    std::vector<float> given, scaled;  // empty: none
    int exponent = 0;                  // given = scaled x 2^exponent
    bool is_lossy = false;             // but for some that floats cannot hold

    bool Take(const float* weights, int num_states);  // null: none.  Whether they are others than before
};

struct TreePropagation {
    // Scales are added up as whole numbers, so that sums do not depend on the order of changes.
    static constexpr int kLogUnitsExponent = 36;
    static constexpr int64_t kLogUnits = int64_t{1} << kLogUnitsExponent;

    struct Table {
        float* entries = nullptr;
        int64_t count = 0;
        int64_t capacity = 0;
        int64_t log_scale = 0;  // what the last scaling took out: its logarithm to base 2, x kLogUnits
        int large = -1;         // own storage, for tables not in the arena
        // All entries, where some are not 0 but beyond the range of floats; otherwise empty.
        std::vector<WideNumber> wide;
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
        bool base_is_lossy = false;  // a product may have been flushed to 0
    };

    // What a sweep over a clique is for.
    enum class SweepKind { kUp, kDown, kScaleDown, kPrivate, kJoint };

    const ModelGraph* graph;
    HubTree hubs;
    const JunctionTree* tree;  // the caller's, or the one with hubs
    TableSource table;
    bool maximise = false;

    // What is known.
    std::vector<int> positive;            // per variable
    std::vector<int> cut;                 // per variable: positive, or -1 if it always stays
    std::vector<Likelihood> likelihoods;  // per variable

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
    Progress* progress = nullptr;  // of the update under way
    int clique_at = 0;             // how far that is
    bool is_rising = true;         // the first half: messages go up
    Propagation::Counters counts;

    // Working memory.
    SweepScratch scratch;
    std::vector<int> exponents;
    std::vector<const float*> factor_entries;
    std::vector<const Table*> factor_tables;
    bool has_wide_factor = false;
    std::vector<std::vector<WideNumber>> wide_results;  // per output, empty where floats do
    // Per output of a sweep: smaller products may have been flushed; 0: none.  Empty: in no output.
    std::vector<double> kept_from;
    WideSums wide_sums;
    std::vector<SweepScope> factor_scopes, output_scopes;
    std::vector<int> sizes, axis_of;
    std::vector<char> wanted;
    std::vector<float> weights;  // of a variable's states
    std::vector<double> sums;    // of a variable's states
    std::vector<int> way;        // from a target to the root
    TableVector<float> family_tables;
    std::vector<int64_t> family_starts;
    std::vector<int> own_sizes;  // of a potential's axes

    TreePropagation(const ModelGraph& g, const JunctionTree& t, TableSource source, double small);
    int NumStates(int variable) const { return graph->variables[size_t(variable)].num_states; }
    bool IsFree(int variable) const { return NumStates(variable) > 1 && cut[size_t(variable)] < 0; }

    bool HasFree(std::span<const int> variables) const
    {
        return std::any_of(variables.begin(), variables.end(), [&](int v) { return IsFree(v); });
    }

    // ---- Structure. ----

    void ChooseStaying(bool is_small);
    bool HasBase(int potential) const;

    // A clique's tables are multiplied together where the product is small or not much larger than they.
    void GroupPotentials();
    void AddToGroups(int variable, std::vector<std::vector<int>>& scopes,
                     std::vector<std::vector<int>>& members) const;
    void SortLikeMembers(int clique, std::vector<int>& variables);
    void ChooseBeliefSources();

    // ---- Storage. ----

    double FullSize(std::span<const int> variables) const { return TableSize(*graph, variables); }

    template <class Visit>
    void ForEachTable(Visit visit);

    // Small tables have their place for good; large ones get memory when their size is known.
    void PlaceTables();
    void Resize(Table& t, int64_t count);

    // ---- Changes. ----

    void Touch(int clique, int from);
    void ChangeTable(int variable);
    void TouchPotentials(int variable, bool only_own);
    bool TakesFamily(int potential, int variable) const;
    void SetPositive(int variable, int state);
    void Forget();
    void SetMaximise(bool maximises);
    double Bytes() const;

    // ---- Plans. ----

    // Lays the free members of a clique out as axes.
    void DescribeClique(int clique);
    SweepScope ScopeOf(std::span<const int> variables) const;

    // Tables of a single entry are left out: that entry is always 1.
    void DescribeFactors(int clique, bool with_mate);
    // The joint is over `variables`.
    void DescribeSweep(SweepKind kind, int clique, std::span<const int> variables = {});
    void DescribeDownOutputs(int clique);
    const SweepPlan& UpPlan(int clique);
    const SweepPlan& DownPlan(int clique);
    const SweepPlan& PrivatePlan(int clique);

    // ---- Sweeps. ----

    // The tables in the order of DescribeFactors.
    void CollectFactors(int clique, bool with_mate);
    void AddFactor(const Table& t);
    bool IsHaltedNow(const SweepPlan& plan);
    bool GoesOn(double share);  // within the clique
    double FractionDone(double share) const;

    // Runs a plan and scales what comes out.  1: in floats.  2: where products were flushed and all of an
    // output is tiny, again with all products larger.  3: the entries so small that what was flushed may
    // matter, in doubles or wide numbers; what floats cannot hold then stands in wide_results.
    // False: halted.
    bool RunScaled(const SweepPlan& plan, SweepKind kind, int clique, bool all_wanted,
                   std::span<const int> variables = {});
    bool RunInFloats(const SweepPlan& plan, bool all_wanted);
    bool RunBoosted(const SweepPlan& plan);
    bool RunWide(const SweepPlan& plan, SweepKind kind, int clique, std::span<const int> variables);
    bool IsWanted(size_t output, bool all_wanted) const { return all_wanted || wanted[output] != 0; }
    bool ProductsFitFloats() const;
    bool FindPossible(const SweepPlan& plan, std::vector<std::vector<char>>& possible);
    static bool FitFloats(std::span<const WideNumber> numbers);

    // Takes wide numbers in place of the floats of a table; what floats cannot hold stays in `wide`.  Returns
    // the exponent as ScaleByExponent does.
    static int TakeWide(std::span<const WideNumber> numbers, float* entries, std::vector<WideNumber>& wide);
    static WideNumber EntryOf(const Table& t, int64_t i)
    {
        return t.wide.empty() ? MakeWide(double(t.entries[i])) : t.wide[size_t(i)];
    }

    // Where all lies in a single entry, that becomes 1, and its value goes into the scale with the
    // exponent: a message that only tells how probable something is then always looks the same.
    static int64_t TakeScale(float* entries, int64_t count, int exponent, bool is_wide);

    // ---- Potentials. ----

    UpdateStatus FillPotentials(int clique);

    // Weights of a variable's states from its findings, empty if there are none.
    std::span<const float> WeightsOf(int variable);
    // What its findings multiply all entries by, as a logarithm.
    int64_t LogScaleOfWeights(int variable) const;
    FamilyRequest RequestFor(int variable, bool with_findings);
    void SetLikelihood(int variable, const float* likelihood);

    // False: halted.
    bool Fill(int p);
    bool FillBase(int p);
    void MultiplyWeights(int p, int variable);
    // Fills it anew in wide numbers if the floats lost what is not 0; the exponent of the entries.  False:
    // halted.
    bool RepairRange(int p, int64_t* log_scale);
    std::vector<WideNumber> WideWeights(int variable) const;

    // The product of the families' tables as the findings leave them, or without findings.
    bool FillFromModel(int p, bool with_findings, float* entries);

    // The bits at the places that the mask has.
    static uint64_t Compress(uint64_t bits, uint64_t mask);
    bool MultiplyFamilies(int p, bool with_findings, float* entries);

    // ---- Messages. ----

    // Stores a result; true if it is not what stood there.  Another scale is no news to the neighbour:
    // scales are added up beside the messages.
    bool Store(Message& message, const SweepPlan& plan, int output);
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

    UpdateStatus Vanish(int clique);
    UpdateStatus SendUp(int clique);

    // Sends to the children whose messages are stale, or only to one of them.  A message of a single
    // entry says nothing.
    UpdateStatus SendDown(int clique, int only = -1);

    // The message to a child over a separator without free variables: all that it tells is a scale.
    UpdateStatus SendScaleDown(int child);

    // ---- Updates. ----

    // The natural logarithm of a total mass, given the scales of all that was multiplied for it.
    double LogOf(double mass, int64_t log_scale) const;

    // A decision without a choice counts as drawn uniformly.
    double LogOfDecisions() const;
    UpdateStatus Update();

    // Sends what leads to one clique: upwards outside the way from it to the root, downwards on it.
    UpdateStatus CollectTo(int target);
    UpdateStatus UpdateFor(int variable);

    // The scales of all that came to the target: on the way, messages down stand in for those up.
    int64_t LogScaleAtTarget() const;

    // What is known of two parts together: the sum of both, or when maximising the larger.
    double Join(double a, double b) const { return maximise ? std::max(a, b) : a + b; }

    // The probability of findings from the two messages of a separator.
    UpdateStatus MeasureSeparator(int separator);

    // ---- Beliefs. ----

    // Beliefs of the variables that no separator holds, all in one sweep.
    UpdateStatus UpdatePrivate(int clique);
    void ReadPrivate(int variable, float* belief);
    void ReadFromSeparator(int variable, int separator, float* belief);
    int64_t StrideIn(int variable, int separator) const;
    void ReadWide(int variable, int separator, float* belief);
    void Normalize(float* entries, int64_t count) const;
    void Belief(int variable, float* belief);
    int SmallestCliqueWith(std::span<const int> variables) const;
    bool JointBelief(std::span<const int> variables, float* joint);

    // Puts a joint table over free variables in axis order into the caller's order of all variables.
    void SpreadJoint(std::span<const int> variables, uint64_t axes, float* joint);
};

}  // namespace talora
