// Exact belief propagation over a junction tree of numbered variables.
//
// A Propagation keeps, per clique, the potentials that are homed there (products of conditional
// probability tables and likelihood findings) and, per separator, one message in each direction.
// The message from clique A to clique B is the product of A's potentials and of the messages that
// A has from its other neighbours, summed onto the separator.  A product of the size of a clique
// is never written: it is formed a block at a time and summed at once (Sweep.h), so the messages
// and the potentials are all the memory there is.  Nothing is ever divided, so taking a finding
// back is exact, and each message depends only on the model and the findings, not on the history:
// after any sequence of changes all results have the same bits as after a fresh start.
//
// Messages are scaled by a power of two so that their largest entry is in [0.5, 1); the exponents
// add up beside them, so thousands of findings do not underflow, and a finding that only changes
// how probable all findings are sends nothing.
//
// The fast sweeps are in single precision.  Where one flushes a product to 0 that is not 0, the processor
// notes it; the entries for which that may matter are formed again in doubles or wide numbers (WideSweep.h),
// and what floats cannot hold is kept so.  No findings that are possible come out as impossible.
//
// A variable with a positive finding is left out of every potential and message: the tables shrink,
// and nothing passes it.  In small trees zeros take its place, which is quicker there.
//
// Changes of findings are cheap and only note which cliques are touched.  Update sends messages
// from the touched cliques towards the root and outwards again, and stops wherever a message comes
// out as it was before; UpdateFor sends only those that lead to the clique of one variable.
//
// The graph and the tree must outlive the Propagation.  One thread at a time.  Memory is counted;
// std::bad_alloc or a halt leaves the object as valid as before: the next update goes on from there.
// Entries of the model below 1.2e-38 count as 0, because updates run with denormals off.
//
// Shafer & Shenoy (1990), Probability propagation; Jensen, Lauritzen & Olesen (1990), Bayesian
// updating in causal probabilistic networks by local computations.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "BN/Order/Junction.h"
#include "BN/Order/Triangulation.h"

namespace talora {

// The conditional probability table of a variable: parents first in parent order, own states last
// and fastest; null when there is none (uniform).  A missing entry gets an equal share of what the
// row leaves over; an impossible row counts as zeros.  Must stay valid during the call that asks.
using TableSource = std::function<const float*(int variable)>;

enum class UpdateStatus {
    kUpdated,
    kInconsistent,  // the findings have probability exactly 0: no beliefs
    kHalted         // the halt flag was set, or the progress handler says stop; call again to go on
};

class Progress;

class Propagation {
public:
    // Trees of at most small_tree entries are propagated as a whole (SmallTree.h).
    Propagation(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                double small_tree = 50000);
    ~Propagation();
    Propagation(Propagation&&) noexcept;
    Propagation& operator=(Propagation&&) noexcept;

    // ---- What is known.  Cheap; beliefs are stale until the next update. ----

    void SetPositive(int variable, int state);  // -1: none; a decision's choice is set so too
    // Weights per state, each >= 0, copied; null: none.  Not for decisions.  A positive finding hides it
    // meanwhile, but the weight of the positive state still counts towards the probability of findings.
    void SetLikelihood(int variable, const float* likelihood);
    void TableChanged(int variable);  // the model's table has other numbers (same shape)
    void ClearFindings();
    // Maximising, every marginal keeps the largest entry in place of the sum.  A belief is then the value of
    // the best configuration that has the variable in that state, divided by the value of the best of all
    // (so the largest is 1), and the probability is the value of the best configuration.
    void SetMaximise(bool maximise);
    void Forget();  // the next update computes every message anew (findings stay)

    // ---- Updating; `progress`, where given, is told of it and may halt it. ----

    UpdateStatus Update(Progress* progress = nullptr);  // everything
    // What Belief of this variable and the probability need.
    UpdateStatus UpdateFor(int variable, Progress* progress = nullptr);
    bool IsUpdated() const;  // nothing changed since the last successful Update

    // ---- Results; of the last successful update. ----

    double LogProbability() const;  // natural log of the probability of findings; -infinity for 0
    double Probability() const;     // may underflow to 0 where the log does not

    // Writes the num_states beliefs of a variable, which sum to 1.  With a positive finding 1 and 0s.
    void Belief(int variable, float* belief) const;

    // Writes the joint distribution of variables that share a clique, given the findings, the last
    // varying fastest, summing to 1; false if no clique holds them all.  Tables of families for
    // learning come from here: a family is always in its home clique.
    bool JointBelief(std::span<const int> variables, float* joint) const;

    // ---- Measures. ----

    double Bytes() const;         // held now in potentials and messages
    bool HoldsAllTables() const;  // whatever is found out, it needs no more memory

    struct Counters {
        int64_t messages = 0;  // computed since the start
        int64_t entries = 0;   // clique entries swept for them
        int64_t fills = 0;     // potentials filled from the model
    };
    Counters counters() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace talora
