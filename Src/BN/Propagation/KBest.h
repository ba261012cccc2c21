// The most probable configurations of a model under findings, best first.
//
// The best one is read from max-marginals.  The configurations other than it are divided among subproblems:
// the first few variables as in it, the next one different.  The max-marginal of that one variable, with the
// ones before it fixed, gives the value of the best configuration of each subproblem, so a subproblem is only
// gone into when its turn comes; then it is divided in the same way.
//
// Values are compared as products of table entries in double precision; where two states of a variable differ
// by less than single precision can tell (two parts in a million), the first one is taken to be the better.
// Equal values come in an order that is always the same.  States far worse than the best of a variable, which
// single precision would round to 0 beside it, are looked at by themselves, so they are not lost.
//
// Nilsson (1998), An efficient algorithm for finding the M most probable configurations in probabilistic
// expert systems; Lawler (1972), A procedure for computing the K best solutions to discrete optimization
// problems.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "BN/Order/Junction.h"
#include "BN/Order/Triangulation.h"
#include "BN/Propagation/Propagate.h"
#include "BN/Propagation/RelevantPart.h"

namespace talora {

// From here on a belief counts as that of a state of a most probable configuration: the value in single
// precision just below 1 that rounding reaches.
constexpr float kCertainBelief = 0.99999905f;

struct Configuration {
    std::vector<int> states;  // per variable
    double log_value = 0;     // of the product of all table entries and of the weights of likelihood findings
};

class KBestSearch {
public:
    // @param ranked  the variables whose settings are told apart: of the configurations that agree on them
    //                only the best counts
    // The graph, the tree and the findings must outlive it.  The graph has no decisions.
    KBestSearch(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                const ModelFindings& findings, std::span<const int> ranked);
    ~KBestSearch();
    KBestSearch(const KBestSearch&) = delete;
    KBestSearch& operator=(const KBestSearch&) = delete;

    // The next best; none when all that are left have probability 0.  Fails with an abort when halted.
    // One update and one small update per ranked variable for each configuration found.
    std::optional<Configuration> Next();

private:
    struct Search;
    std::unique_ptr<Search> search_;
};

}  // namespace talora
