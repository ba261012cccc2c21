// Drawing cases down the junction tree: the other way in which a CaseSampler (BN/Sampling/MakeCases.h) works.
#pragma once

#include <span>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Memory.h"
#include "Basic/RandomNum.h"

namespace talora {

// Compiles the net if it is not compiled and the user agrees, and brings its beliefs up to date.
void PrepareTree(Net& net);

// Holds, for each clique, the distribution of the members that the cliques nearer to the root do not have,
// for each configuration of those that they do have.  Only cliques on the way to a listed node are kept.
class TreeSampler {
public:
    // Compiles the net if it is not compiled, and propagates.  Fails as these do.
    explicit TreeSampler(std::span<Node* const> nodes);

    void Draw(RandomState& random);  // always agrees with the findings
    int State(size_t i) const { return states_[listed_[i]]; }

private:
    struct Member {
        int variable;
        int num_states;
        int64_t stride;
    };
    struct CliqueDraw {
        std::vector<Member> given;  // stride in rows
        std::vector<Member> fresh;  // stride in the entries of a row
        int64_t row_size = 1;
        TableVector<double> cumulative;
    };

    void AddClique(const Net& net, int clique, std::vector<char>& known);

    std::vector<CliqueDraw> cliques_;  // each after the one it is joined to
    std::vector<int> states_;          // by variable, then listed nodes that are outside the tree
    std::vector<int> listed_;
};

}  // namespace talora
