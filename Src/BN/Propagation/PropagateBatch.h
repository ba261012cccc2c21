// Exact propagation of many sets of findings at once through one small junction tree.
//
// Sixteen cases go together.  Every table of the tree has the case as its last and fastest axis, so one
// instruction serves all of them, and what a tree of some hundred entries costs in bookkeeping is paid once
// for sixteen.  The places where the tables of a clique meet are worked out when the tree is taken.
//
// Up: the product of a clique's potential (the same for all cases), of the findings entered there and of the
// messages from its children is written and summed onto the separator towards its mate.  Down: that product
// is multiplied by what the mate knows in addition, the quotient of the sum from the mate's side and the sum
// that was sent up.  Each run starts from the potentials, so the division does not drift.  Only the cliques
// that what is wanted needs are visited on the way down.
//
// Messages are scaled by powers of two per case.  A case in which a product of factors that are not 0 was
// flushed to 0, or in which everything vanishes, is reported as weak: its results must be had from
// Propagation. Whether something was flushed the processor notes by itself; only then the run is repeated to
// find the cases.
//
// Cases do not influence each other: a case gets the same bits whichever others run with it.
// Run with denormals off (Basic/FloatMode.h).
//
// Jensen, Lauritzen & Olesen (1990), Bayesian updating in causal probabilistic networks by local
// computations.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "BN/Order/Junction.h"
#include "BN/Order/Triangulation.h"
#include "BN/Propagation/Propagate.h"

namespace talora {

// What is known of one case, by variable.
struct CaseFindings {
    const int32_t* states = nullptr;  // per variable: a state, or negative for not known
    // Further weights, each num_states long; usually none.
    struct Weights {
        int variable;
        const float* weights;
    };
    std::span<const Weights> likelihoods;
};

// What is going to be asked of cases; asking for less is faster.
struct CaseResults {
    std::vector<int> beliefs;   // variables
    std::vector<int> families;  // variables, each with its parents
};

class BatchPropagation {
public:
    static constexpr int kCases = 16;

    // Whether the tree is small enough, and without decisions.
    static bool Suits(const ModelGraph& graph, const JunctionTree& tree);

    // The graph and the tree must outlive it.
    BatchPropagation(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                     const CaseResults& wanted);
    ~BatchPropagation();
    BatchPropagation(const BatchPropagation&) = delete;
    BatchPropagation& operator=(const BatchPropagation&) = delete;

    void TableChanged(int variable);

    // At most kCases.
    void Run(std::span<const CaseFindings> cases);

    // ---- Results of the last run.  Those of weak cases mean nothing. ----
    bool IsWeak(int k) const;
    double LogProbability(int k) const;
    void Belief(int k, int variable, float* belief) const;  // of a variable wanted
    // counts += weights[k] * P(family | case k), summed over the cases that are not weak, for a family
    // wanted; parents first, own states last.
    void AddFamilyCounts(int variable, std::span<const double> weights, double* counts) const;

private:
    struct Program;
    std::unique_ptr<Program> program_;
};

}  // namespace talora
