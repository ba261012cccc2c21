// Probability distributions of equations: densities, interval probabilities, noisy tables.
//
// The first argument is the value, the others are the parameters, in the order of the function
// table.  A density is that of the value for continuous distributions and the probability of the
// value for discrete ones; outside of the support it is 0.  Parameters out of their range give
// the undefined value, with a reason for those that check their arguments.
//
// Special functions and cumulative functions are those of Boost.Math with errors turned into NaN.
// Johnson, Kotz, Balakrishnan (1994), Continuous Univariate Distributions; Johnson, Kemp, Kotz
// (2005), Univariate Discrete Distributions; Pearl (1988) and Diez (1993) on noisy gates.
#pragma once

#include <vector>

#include "Misc/Equations/EqnBuiltin.h"

namespace talora::dist {

#define EQN_INTERVAL(name) \
    double name##Interval(const double* a, int count, double low, double high, EqnReason& reason)
#define EQN_DISTRIBUTION(name) \
    EQN_ROUTINE(name);         \
    EQN_INTERVAL(name)

EQN_DISTRIBUTION(Triangular);
EQN_DISTRIBUTION(Uniform);
EQN_DISTRIBUTION(TriangularEnd3);
EQN_DISTRIBUTION(Triangular3);
EQN_DISTRIBUTION(Lognormal);
EQN_DISTRIBUTION(Normal);
EQN_DISTRIBUTION(Weibull);
EQN_DISTRIBUTION(GammaDist);
EQN_DISTRIBUTION(Beta4);
EQN_DISTRIBUTION(BetaDist);
EQN_DISTRIBUTION(Exponential);
EQN_DISTRIBUTION(BetaPert);
EQN_DISTRIBUTION(LogisticDist);
EQN_DISTRIBUTION(Laplace);
EQN_DISTRIBUTION(Pareto);
EQN_DISTRIBUTION(ExtremeValue);
EQN_DISTRIBUTION(Cauchy);
EQN_DISTRIBUTION(Levy);
EQN_DISTRIBUTION(StudentT);
EQN_DISTRIBUTION(ChiSquare);
EQN_DISTRIBUTION(Single);
EQN_DISTRIBUTION(FDist);

EQN_DISTRIBUTION(Bernoulli);
EQN_DISTRIBUTION(BinomialDist);
EQN_DISTRIBUTION(DiscUniform);
EQN_DISTRIBUTION(Hypergeometric);
EQN_DISTRIBUTION(Poisson);
EQN_DISTRIBUTION(Geometric);
EQN_DISTRIBUTION(NegBinomial);
EQN_DISTRIBUTION(Logarithmic);
EQN_ROUTINE(MultinomialDist);

EQN_ROUTINE(NoisyOr);
EQN_ROUTINE(NoisyAnd);
EQN_ROUTINE(NoisyOrMulti);
EQN_ROUTINE(NoisyMaxTable);
EQN_ROUTINE(NoisySumTable);
EQN_INTERVAL(NoisySumTable);

// A cause of a noisy table reaches its routine as one number that also holds the number of states, and so of
// the lists of probabilities that follow.
constexpr int kCauseStates = 65536;
inline double PackCause(int state, int num_states)
{
    return double(num_states) * kCauseStates + state;
}

}  // namespace talora::dist
