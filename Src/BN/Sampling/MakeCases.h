// Random cases from the distribution of a net, given its findings.
//
// A CaseSampler is prepared once for a list of nodes and then draws any number of cases.  It works in one
// of two ways.
//
// Forward: nodes are drawn parents first, each from its table's row for what its parents drew, or from its
// equation; a case that contradicts the findings is rejected and drawn again.  Only the listed nodes, those
// with findings, and their ancestors are drawn, those that findings depend on first, so that a case is
// rejected early.  Likelihood findings reject with a probability.
//
// Down the junction tree: after one propagation each clique has its distribution given what its separator
// towards the root drew; a case takes one draw per clique, from the root outwards.  Nothing is ever
// rejected, however improbable the findings are.
//
// The sampler keeps tables of its own for the second way and looks into the net for the first: the net stays
// as it is while the sampler is in use.
//
// Henrion (1988), Propagating uncertainty in Bayesian networks by probabilistic logic sampling; Dawid
// (1992), Applications of a general propagation algorithm for probabilistic expert systems.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/RandomNum.h"
#include "Basic/Stream.h"

namespace talora {

// A generator with the lock that it is used under, if it has one.
struct RandomSource {
    RandomState* state = nullptr;
    RecursiveLock* lock = nullptr;  // null for a net's own generator
};
RandomSource RandomSourceOf(const Net& net);

struct SamplingOptions {
    int method = AUTO_SAMPLING;
    double max_tries = 1;      // per case, of FORWARD_SAMPLING
    bool for_one_case = true;  // not worth preparing much
};

class CaseSampler {
public:
    // @param nodes  of one net, each once
    CaseSampler(std::span<Node* const> nodes, const SamplingOptions& options);
    ~CaseSampler();
    CaseSampler(const CaseSampler&) = delete;
    CaseSampler& operator=(const CaseSampler&) = delete;

    // Draws the next case.  Fails when max_tries were all rejected, or the user stops it.
    void Draw(const RandomSource& random);

    // What the i-th listed node drew: a state or UNDEF_STATE, and a real value or the undefined number.
    int State(size_t i) const;
    double Value(size_t i) const;

    int64_t NumTries() const;  // cases drawn so far, rejected ones included
    int64_t NumRejected() const;

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

// Draws one case and enters it as findings of the nodes; those they had stay and are agreed with.
void GenerateRandomCase(std::span<Node* const> nodes, int method, double max_tries);

// Writes random cases to a stream, replacing its contents.  Entries go missing at random.
// @return how many were written: fewer than asked for when halted
int64_t WriteRandomCases(std::span<Node* const> nodes, Stream& file, int64_t num_cases, int method,
                         double max_tries, double percent_missing);

// How many lines WriteEveryCase makes.
double NumPossibleCases(std::span<Node* const> nodes);
// Writes every combination of the nodes' states with its probability given the findings as frequency.
// @return how many were written: fewer than there are when halted
int64_t WriteEveryCase(std::span<Node* const> nodes, Stream& file);

}  // namespace talora
