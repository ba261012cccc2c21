// Exact propagation through a small junction tree, without messages to be planned or scaled.
//
// All tables lie at fixed places in one arena, and how they meet is worked out once, when the tree is taken.
// An observed variable stays in the tables; its weights (ones and zeros for a state) are multiplied into the
// smallest clique that holds it.
//
// Towards the root: the potential of a clique times the sums that its children send, times the weights, is
// summed onto the separator towards its mate.  Only cliques between a changed finding and the root are done
// again; where nothing is observed below, the tables made without findings serve.  Outwards: what the mate
// knows, divided by what it was sent, is multiplied in.  That is done when a belief asks for it, and once.
// Every table depends on the model and the findings alone, so results have the same bits whatever went
// before.
//
// Nothing is scaled.  As all numbers are sums of products of conditional probabilities, none exceeds 1, and
// what is flushed to 0 is less than 2^-126 wherever it would be added.  So as long as the findings are not
// very improbable (kLeastMass), all that was lost is nothing beside them.  Otherwise the answer is "too
// improbable", and Propagation takes its other way.
//
// Jensen, Lauritzen & Olesen (1990), Bayesian updating in causal probabilistic networks by local
// computations.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BN/Order/Junction.h"
#include "BN/Order/Triangulation.h"
#include "BN/Propagation/Propagate.h"
#include "BN/Propagation/SmallKernels.h"
#include "Basic/Memory.h"

namespace talora {

class SmallTree {
public:
    static constexpr double kMostEntries = 50000;  // of cliques and separators; places fit 16 bits

    static bool Suits(const JunctionTree& tree, double most_entries);

    // The graph and the tree must outlive it.
    SmallTree(const ModelGraph& graph, const JunctionTree& tree, TableSource table);

    // ---- What is known.  Weights per state, at most 1, copied; null: none. ----
    void SetWeights(int variable, const float* weights);
    void TableChanged(int variable);
    void Forget();  // the next update does everything anew

    enum class Status { kUpdated, kImpossible, kTooImprobable };
    // Towards the root; after it beliefs can be read.
    Status Update();

    // ---- Results of the last update, if it came out well. ----
    double Mass() const { return mass_; }  // the product of all potentials and weights, summed up
    void Belief(int variable, float* belief);
    // The joint distribution of variables of one clique, last fastest.
    void JointBelief(int clique, std::span<const int> variables, float* joint);

    double Bytes() const { return double(arena_.size()) * sizeof(float) + double(places_.size()) * 2; }
    const Propagation::Counters& counters() const { return counters_; }

private:
    struct Factor {
        int table;  // of a child's sum: the child; of weights: the variable
        SmallSpread spread;
    };
    struct Clique {
        int size = 1, num_rows = 1, run = 1;          // rows of the own members, each over the separator
        float* potential = nullptr;                   // in the arena, as all tables
        float *prior = nullptr, *prior_up = nullptr;  // without findings
        float *product = nullptr, *up = nullptr;      // potential x sums of the children x weights
        float *above = nullptr, *quotient = nullptr;  // of the separator, with all that is known
        float *entries = nullptr, *rows = nullptr;    // with all that is known; summed onto the own members
        SmallSpread in_mate;                          // of the separator
        std::vector<Factor> children, weights;
        double excess = 0;  // by how much the rows of its tables may sum to more than 1, as a logarithm
        bool potential_is_stale = true, prior_is_stale = true, is_stale = true;
        bool has_findings = false;                            // in it or below
        bool prior_has_flushed = false, has_flushed = false;  // a product may have become 0 that is not
        int64_t above_at = -1, quotient_at = -1, entries_at = -1, rows_at = -1;  // the update they are of
    };
    enum class Source : uint8_t { kSeparator, kEntries, kRows };
    struct BeliefSource {
        Source source;
        int clique;
        SmallSpread spread;
    };

    int StatesOf(int variable) const;
    int SizeOf(std::span<const int> variables) const;
    void LayOut();
    SmallSpread SpreadOf(std::span<const int> variables, std::span<const int> within);
    void PlaceWeights();
    void PlaceBeliefs();
    void PlaceTables();

    void FillPotential(int clique);
    void FillPrior(int clique);
    void Collect(int clique);
    const float* SentBy(int clique) const;
    const float* ProductOf(int clique) const;

    const float* Above(int clique);
    const float* Quotient(int clique);
    const float* Entries(int clique);
    const float* Rows(int clique);

    const ModelGraph* graph_;
    const JunctionTree* tree_;
    TableSource table_;
    const SmallKernels* kernels_;
    std::vector<Clique> cliques_;
    std::vector<std::vector<int>> members_;     // per clique: its own, then the separator's as in its mate
    std::vector<std::vector<int>> separators_;  // per clique
    std::vector<float*> weights_;               // per variable
    std::vector<char> is_known_;                // per variable: its weights are not all 1
    std::vector<int> weights_clique_;           // per variable: where they are multiplied in
    std::vector<BeliefSource> beliefs_;         // per variable
    std::vector<uint16_t> places_;
    TableVector<float> arena_;
    int64_t update_ = 0;
    double mass_ = 0;
    double excess_of_decisions_ = 0;  // as of a clique
    Propagation::Counters counters_;
};

}  // namespace talora
