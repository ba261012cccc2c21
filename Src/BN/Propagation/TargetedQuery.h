// Beliefs of a few variables under given findings, from the part of the model that matters for them.
//
// No junction tree of the whole model is needed.  The tree of the part is kept for the next question with
// the same targets and the same observed variables, whatever their states; then only the tables that mention
// a changed finding are filled anew.  A handful of such trees are kept, the oldest unused one goes first.
// What is observed together with all its parents takes no part in a tree: it is a factor of the probability.
//
// The graph must outlive it.  One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "BN/Propagation/Propagate.h"
#include "BN/Propagation/RelevantPart.h"

namespace talora {

class TargetedQuery {
public:
    // @param order  of the whole model; where a part is large and its own greedy order is worse, this is
    // taken
    TargetedQuery(const ModelGraph& graph, TableSource table, std::vector<int> order = {});
    ~TargetedQuery();
    TargetedQuery(const TargetedQuery&) = delete;
    TargetedQuery& operator=(const TargetedQuery&) = delete;

    // @param wants_probability  also that of all findings, which may need a larger part of the model
    // findings.constrained is filled in here.
    UpdateStatus Ask(std::span<const int> targets, ModelFindings& findings, bool wants_probability,
                     Progress* progress = nullptr);

    // ---- Of the last question, if it was answered. ----
    void Belief(int target, float* belief) const;  // `target` counts the targets asked for
    // The joint distribution of variables of the whole model that share a table there, the last varying
    // fastest.  Those that are not observed must be targets.
    void JointBelief(std::span<const int> variables, float* joint) const;
    double LogProbability() const;  // natural log; needs wants_probability

    void TableChanged(int variable);

private:
    struct Answers;
    std::unique_ptr<Answers> answers_;
};

}  // namespace talora
