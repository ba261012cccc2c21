// Beliefs of some nodes for every case of a block, as testing and scoring need them.
//
// Cases with equal findings are propagated once: within a block always, across blocks as long as the
// cache has room.  Memory does not grow with the number of cases.
//
// The net must not be changed while one of these lives.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "BN/Model/Bnet.h"
#include "VarVal/Caseset.h"

namespace talora {

class CaseBeliefs {
public:
    // @param asked   nodes with states, in the junction tree; their findings enter like others'
    // @param read    the nodes of the reader whose blocks will come
    // @param enters  by position in read: whether what a case says of that node is entered
    CaseBeliefs(Net& net, std::span<Node* const> asked, std::span<Node* const> read,
                std::vector<char> enters);
    ~CaseBeliefs();
    CaseBeliefs(const CaseBeliefs&) = delete;
    CaseBeliefs& operator=(const CaseBeliefs&) = delete;

    // Beliefs for every case of the block.  False if halted meanwhile.
    bool Compute(const CaseBlock& block);

    // ---- For the cases of the last block ----
    bool IsPossible(int row) const;        // the findings have a probability above 0
    double LogProbability(int row) const;  // natural log; minus the number for infinity if impossible
    std::span<const float> Belief(int row, int asked) const;  // not of an impossible case

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace talora
