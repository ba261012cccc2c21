// Many cases through one compiled net: the findings of each case in, beliefs, probabilities and expected
// counts out.  Learning, testing and scoring work through this.
//
// It has tables of its own, so the findings and beliefs of the net are neither used nor changed.  The net
// must stay compiled and keep its structure meanwhile; its tables may change if the run is notified.
// One thread at a time.  Results are those of exact propagation of each case alone, to the bit the same on
// every run.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "BN/Model/Bnet.h"
#include "BN/Propagation/PropagateBatch.h"

namespace talora {

// Small trees take sixteen cases at a time (PropagateBatch.h).  In other trees, where just beliefs are
// wanted, a case is answered from the part of the model that matters (TargetedQuery.h) if it leaves little
// open, if it sets the same variables as the one before, or if the tree is huge.  Otherwise, and for
// cases that are too improbable to go by the sixteen, each case goes on from the findings of the one before,
// so that only what differs is propagated.
class CaseInference {
public:
    // Compiles the net if it is not compiled.  Fails as compiling and updating do.
    CaseInference(Net& net, const CaseResults& wanted);
    ~CaseInference();
    CaseInference(const CaseInference&) = delete;
    CaseInference& operator=(const CaseInference&) = delete;

    // How many cases one run takes; a run with fewer costs nearly as much.
    int Width() const;

    // Propagates up to Width() cases.  Those with equal findings should be handed over once.  Fails with
    // the condition ABORTED_CND when the halt flag is set.
    void Run(std::span<const CaseFindings> cases);

    // ---- Results of the last run; k counts its cases ----
    double LogProbability(int k) const;  // natural log of the probability of the findings; -infinity for 0
    void Belief(int k, int variable, float* belief) const;  // not of an impossible case
    // Adds the sum over all cases that are not impossible of weights[k] * P(family of variable | case k) to
    // counts, which has the shape of the node's table.  Weights may be negative.
    void AddFamilyCounts(int variable, std::span<const double> weights, double* counts) const;

    void TableChanged(int variable);  // the net's table has other numbers

    // Takes this in place of the net's table: of its shape, complete, and there until it is replaced.  After
    // changes to its numbers it must be handed over again.
    void UseTable(int variable, const float* probs);

private:
    struct Runs;
    std::unique_ptr<Runs> runs_;
};

}  // namespace talora
