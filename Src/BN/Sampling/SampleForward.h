// Drawing cases parents first: one way in which a CaseSampler (BN/Sampling/MakeCases.h) works.
#pragma once

#include <memory>
#include <span>

#include "BN/Model/Bnet.h"
#include "Basic/RandomNum.h"

namespace talora {

class ForwardSampler {
public:
    // Fails with the reason when a case cannot be drawn: a cycle, a delay, a missing table or equation.
    // @param prepare_tables  sum up the tables beforehand, for many cases
    ForwardSampler(std::span<Node* const> nodes, bool prepare_tables);
    ~ForwardSampler();

    // Draws a case; false if it contradicts the findings.
    bool Try(RandomState& random);

    int State(size_t i) const;     // of the i-th listed node in the last case
    double Value(size_t i) const;  // the undefined number where there is none

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace talora
