// Distributions of the equation language: density or probability, and probability of an interval.
#include "Misc/Equations/ProbFuncs.h"

#include <algorithm>
#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/expint.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <numbers>
#include <utility>

#include "Misc/Equations/QuietMath.h"

namespace talora::dist {

namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kRootTwoPi = 2.5066282746310002;
// Sums of probabilities given as text may be this far from 1.
constexpr double kSumTolerance = 1e-5;

double LnGamma(double x)
{
    return boost::math::lgamma(x, QuietPolicy());
}
// The regularised incomplete gamma functions P (a, x) and Q (a, x).
double LowerGamma(double a, double x)
{
    return boost::math::gamma_p(a, x, QuietPolicy());
}
double UpperGamma(double a, double x)
{
    return boost::math::gamma_q(a, x, QuietPolicy());
}
// The regularised incomplete beta function and its complement, each computed by itself for its small values.
double LowerBeta(double a, double b, double x)
{
    return boost::math::ibeta(a, b, x, QuietPolicy());
}
double UpperBeta(double a, double b, double x)
{
    return boost::math::ibetac(a, b, x, QuietPolicy());
}
double LnBeta(double a, double b)
{
    return LnGamma(a) + LnGamma(b) - LnGamma(a + b);
}
double LnChoose(double n, double k)
{
    return LnGamma(n + 1) - LnGamma(k + 1) - LnGamma(n - k + 1);
}
// By erfc, which keeps its digits far down the tail.
double NormalBelow(double z)
{
    return 0.5 * std::erfc(-z / std::numbers::sqrt2);
}
// x ln y with the limit 0 for x of 0, as logarithms of densities need it at the ends of their support.
double XLogY(double x, double y)
{
    return x == 0 ? 0.0 : x * std::log(y);
}

// ---- Continuous distributions: parameters, support, density, the two tails ----

// Where the density is not 0, and whether the parameters are ones that the distribution has.
struct Support {
    double low = -kInfinite, high = kInfinite;
    bool valid = true;
};

// Normal (x, mean, sd): exp (-z^2 / 2) / (sd sqrt (2 pi)), z = (x - mean) / sd.
struct NormalDef : Support {
    double mean, sd;
    explicit NormalDef(const double* a) : mean(a[1]), sd(a[2]) { valid = sd > 0 && std::isfinite(mean); }
    double Density(double x) const
    {
        const double z = (x - mean) / sd;
        return std::exp(-0.5 * z * z) / (sd * kRootTwoPi);
    }
    double Below(double x) const { return NormalBelow((x - mean) / sd); }
    double Above(double x) const { return NormalBelow((mean - x) / sd); }
};

// Lognormal (x, mu, sigma): ln x is normal with mean mu and deviation sigma.
struct LognormalDef : Support {
    double mu, sigma;
    explicit LognormalDef(const double* a) : mu(a[1]), sigma(a[2])
    {
        low = 0;
        valid = sigma > 0 && std::isfinite(mu);
    }
    double Density(double x) const
    {
        if (x == 0) return 0;
        const double z = (std::log(x) - mu) / sigma;
        return std::exp(-0.5 * z * z) / (x * sigma * kRootTwoPi);
    }
    double Below(double x) const { return NormalBelow((std::log(x) - mu) / sigma); }
    double Above(double x) const { return NormalBelow((mu - std::log(x)) / sigma); }
};

// Uniform (x, low, high).
struct UniformDef : Support {
    explicit UniformDef(const double* a)
    {
        low = a[1], high = a[2];
        valid = low < high && std::isfinite(high - low);
    }
    double Density(double) const { return 1 / (high - low); }
    double Below(double x) const { return (x - low) / (high - low); }
    double Above(double x) const { return (high - x) / (high - low); }
};

// Triangular: rises from `low` to the mode and falls to `high`; either side may have no width.
struct TriangularDef : Support {
    double mode;
    TriangularDef(double from, double top, double to) : mode(top)
    {
        low = from, high = to;
        valid = low <= mode && mode <= high && low < high && std::isfinite(high - low);
    }
    double Density(double x) const
    {
        const double width = high - low;
        if (x < mode) return 2 * (x - low) / (width * (mode - low));
        if (x > mode) return 2 * (high - x) / (width * (high - mode));
        return 2 / width;
    }
    double Below(double x) const
    {
        return x <= mode ? (x - low) * (x - low) / ((high - low) * std::max(mode - low, 1e-300))
                         : 1 - Above(x);
    }
    double Above(double x) const
    {
        return x >= mode ? (high - x) * (high - x) / ((high - low) * std::max(high - mode, 1e-300))
                         : 1 - Below(x);
    }
};
struct SymmetricTriangularDef : TriangularDef {
    explicit SymmetricTriangularDef(const double* a) : TriangularDef(a[1] - a[2], a[1], a[1] + a[2]) {}
};
struct WidthsTriangularDef : TriangularDef {
    explicit WidthsTriangularDef(const double* a) : TriangularDef(a[1] - a[2], a[1], a[1] + a[3]) {}
};
struct EndsTriangularDef : TriangularDef {
    explicit EndsTriangularDef(const double* a) : TriangularDef(a[1], a[2], a[3]) {}
};

// Weibull (x, shape, scale): P (X > x) = exp (-(x / scale)^shape).
struct WeibullDef : Support {
    double shape, scale;
    explicit WeibullDef(const double* a) : shape(a[1]), scale(a[2])
    {
        low = 0;
        valid = shape > 0 && scale > 0;
    }
    double Density(double x) const
    {
        return shape / scale * std::pow(x / scale, shape - 1) * std::exp(-std::pow(x / scale, shape));
    }
    double Below(double x) const { return -std::expm1(-std::pow(x / scale, shape)); }
    double Above(double x) const { return std::exp(-std::pow(x / scale, shape)); }
};

// Gamma (x, shape, scale), with mean shape x scale.
struct GammaDef : Support {
    double shape, scale;
    GammaDef(double shape_given, double scale_given) : shape(shape_given), scale(scale_given)
    {
        low = 0;
        valid = shape > 0 && scale > 0 && std::isfinite(shape) && std::isfinite(scale);
    }
    explicit GammaDef(const double* a) : GammaDef(a[1], a[2]) {}
    double Density(double x) const
    {
        if (x == 0) return shape > 1 ? 0 : shape == 1 ? 1 / scale : kInfinite;
        return boost::math::gamma_p_derivative(shape, x / scale, QuietPolicy()) / scale;
    }
    double Below(double x) const { return LowerGamma(shape, x / scale); }
    double Above(double x) const { return UpperGamma(shape, x / scale); }
};
// Chi-square (x, df): the gamma distribution with shape df / 2 and scale 2.
struct ChiSquareDef : GammaDef {
    explicit ChiSquareDef(const double* a) : GammaDef(a[1] / 2, 2) {}
};

// Beta (x, a, b) between two ends.
struct BetaDef : Support {
    double a, b, width;
    BetaDef(double a_given, double b_given, double from, double to) : a(a_given), b(b_given), width(to - from)
    {
        low = from, high = to;
        valid = a > 0 && b > 0 && width > 0 && std::isfinite(width) && std::isfinite(a) && std::isfinite(b);
    }
    // Both from the nearer end, so that neither loses digits.
    double Density(double x) const
    {
        const double lower = (x - low) / width, upper = (high - x) / width;
        return std::exp(XLogY(a - 1, lower) + XLogY(b - 1, upper) - LnBeta(a, b)) / width;
    }
    double Below(double x) const { return LowerBeta(a, b, std::min((x - low) / width, 1.0)); }
    double Above(double x) const { return UpperBeta(a, b, std::min((x - low) / width, 1.0)); }
};
struct UnitBetaDef : BetaDef {
    explicit UnitBetaDef(const double* p) : BetaDef(p[1], p[2], 0, 1) {}
};
struct EndsBetaDef : BetaDef {
    explicit EndsBetaDef(const double* p) : BetaDef(p[1], p[2], p[3], p[4]) {}
};
// Beta-PERT (x, low, mode, high): the beta distribution with a + b = 6 and this mode.
struct PertDef : BetaDef {
    explicit PertDef(const double* p)
        : BetaDef(1 + 4 * (p[2] - p[1]) / (p[3] - p[1]), 1 + 4 * (p[3] - p[2]) / (p[3] - p[1]), p[1], p[3])
    {
        valid = valid && p[1] <= p[2] && p[2] <= p[3];
    }
};

// Exponential (x, rate), with mean 1 / rate.
struct ExponentialDef : Support {
    double rate;
    explicit ExponentialDef(const double* a) : rate(a[1])
    {
        low = 0;
        valid = rate > 0 && std::isfinite(rate);
    }
    double Density(double x) const { return rate * std::exp(-rate * x); }
    double Below(double x) const { return -std::expm1(-rate * x); }
    double Above(double x) const { return std::exp(-rate * x); }
};

// Distributions of z = (x - location) / scale.
struct LocationScale : Support {
    double location, scale;
    explicit LocationScale(const double* a) : location(a[1]), scale(a[2])
    {
        valid = scale > 0 && std::isfinite(location) && std::isfinite(scale);
    }
    double Standard(double x) const { return (x - location) / scale; }
};

// Logistic: P (X < x) = 1 / (1 + exp (-z)).
struct LogisticDef : LocationScale {
    using LocationScale::LocationScale;
    double Density(double x) const
    {
        const double tail = std::exp(-std::fabs(Standard(x)));
        return tail / (scale * (1 + tail) * (1 + tail));
    }
    double Below(double x) const { return 1 / (1 + std::exp(-Standard(x))); }
    double Above(double x) const { return 1 / (1 + std::exp(Standard(x))); }
};

// Laplace: exp (-|z|) / (2 scale).
struct LaplaceDef : LocationScale {
    using LocationScale::LocationScale;
    double Density(double x) const { return std::exp(-std::fabs(Standard(x))) / (2 * scale); }
    double Below(double x) const
    {
        const double z = Standard(x);
        return z < 0 ? 0.5 * std::exp(z) : 1 - 0.5 * std::exp(-z);
    }
    double Above(double x) const
    {
        const double z = Standard(x);
        return z > 0 ? 0.5 * std::exp(-z) : 1 - 0.5 * std::exp(z);
    }
};

// Extreme value (Gumbel): P (X < x) = exp (-exp (-z)).
struct ExtremeValueDef : LocationScale {
    using LocationScale::LocationScale;
    double Density(double x) const
    {
        const double z = Standard(x);
        return z < -700 ? 0.0 : std::exp(-z - std::exp(-z)) / scale;
    }
    double Below(double x) const { return std::exp(-std::exp(-Standard(x))); }
    double Above(double x) const { return -std::expm1(-std::exp(-Standard(x))); }
};

// Cauchy: 1 / (pi scale (1 + z^2)).
struct CauchyDef : LocationScale {
    using LocationScale::LocationScale;
    double Density(double x) const
    {
        const double z = Standard(x);
        return 1 / (std::numbers::pi * scale * (1 + z * z));
    }
    // atan2 keeps its digits far out, where 1/2 + atan/pi has none left.
    double Below(double x) const { return std::atan2(1, -Standard(x)) / std::numbers::pi; }
    double Above(double x) const { return std::atan2(1, Standard(x)) / std::numbers::pi; }
};

// Levy: above its location only, with P (X < x) = erfc (sqrt (1 / (2 z))).
struct LevyDef : LocationScale {
    explicit LevyDef(const double* a) : LocationScale(a) { low = location; }
    double Density(double x) const
    {
        const double z = x - location;
        if (z == 0) return 0;
        return std::sqrt(scale / (2 * std::numbers::pi)) * std::exp(-scale / (2 * z)) / (z * std::sqrt(z));
    }
    double Below(double x) const { return std::erfc(std::sqrt(scale / (2 * (x - location)))); }
    double Above(double x) const { return std::erf(std::sqrt(scale / (2 * (x - location)))); }
};

// Pareto (x, shape, low): P (X > x) = (low / x)^shape.
struct ParetoDef : Support {
    double shape;
    explicit ParetoDef(const double* a) : shape(a[1])
    {
        low = a[2];
        valid = shape > 0 && low > 0 && std::isfinite(low);
    }
    double Density(double x) const { return shape / x * std::pow(low / x, shape); }
    double Below(double x) const { return -std::expm1(shape * std::log(low / x)); }
    double Above(double x) const { return std::pow(low / x, shape); }
};

// Student's t (x, df). The tail is an incomplete beta function, in the form that does not cancel.
struct StudentTDef : Support {
    double df;
    explicit StudentTDef(const double* a) : df(a[1]) { valid = df > 0 && std::isfinite(df); }
    double Density(double x) const
    {
        return std::exp(-0.5 * (df + 1) * std::log1p(x * x / df) - LnBeta(0.5, df / 2)) / std::sqrt(df);
    }
    double Above(double x) const
    {
        const double t = x * x;
        const double half =
            t < df ? 0.5 * UpperBeta(0.5, df / 2, t / (df + t)) : 0.5 * LowerBeta(df / 2, 0.5, df / (df + t));
        return x >= 0 ? half : 1 - half;
    }
    double Below(double x) const { return Above(-x); }
};

// F (x, m, n), with m and n degrees of freedom. Tails as for Student's t.
struct FDef : Support {
    double m, n;
    explicit FDef(const double* a) : m(a[1]), n(a[2])
    {
        low = 0;
        valid = m > 0 && n > 0 && std::isfinite(m) && std::isfinite(n);
    }
    double Density(double x) const
    {
        if (x == 0) return m > 2 ? 0 : m == 2 ? 1 : kInfinite;
        return std::exp(0.5 * m * std::log(m / n) + (0.5 * m - 1) * std::log(x) -
                        0.5 * (m + n) * std::log1p(m / n * x) - LnBeta(0.5 * m, 0.5 * n));
    }
    double Below(double x) const
    {
        const double y = m * x;
        return y < n ? LowerBeta(m / 2, n / 2, y / (y + n)) : UpperBeta(n / 2, m / 2, n / (y + n));
    }
    double Above(double x) const
    {
        const double y = m * x;
        return y < n ? UpperBeta(m / 2, n / 2, y / (y + n)) : LowerBeta(n / 2, m / 2, n / (y + n));
    }
};

// a[0] is the value, the parameters follow.
template <class Def>
double ContinuousDensity(const double* a)
{
    const Def def(a);
    if (!def.valid) return kUndefinedEqn;
    return a[0] < def.low || a[0] > def.high || std::isinf(a[0]) ? 0.0 : def.Density(a[0]);
}

// Differences are taken of whichever tails are small.
template <class Def>
double ContinuousInterval(const double* a, double low, double high)
{
    const Def def(a);
    if (!def.valid) return kUndefinedEqn;
    low = std::max(low, def.low);
    high = std::min(high, def.high);
    if (!(low < high)) return 0.0;
    const double below = low == def.low ? 0.0 : def.Below(low);
    if (below > 0.5) return std::max(0.0, def.Above(low) - (high == def.high ? 0.0 : def.Above(high)));
    return std::max(0.0, (high == def.high ? 1.0 : def.Below(high)) - below);
}

// ---- Discrete distributions: probability of k, of at most k, of more than k ----

// Bernoulli (k, p): 1 with probability p, else 0.
struct BernoulliDef : Support {
    double p;
    explicit BernoulliDef(const double* a) : p(a[1])
    {
        low = 0, high = 1;
        valid = p >= 0 && p <= 1;
    }
    double Prob(double k) const { return k == 1 ? p : 1 - p; }
    double UpTo(double) const { return 1 - p; }
    double Beyond(double) const { return p; }
};

// Binomial (k, n, p): successes in n trials. Its tails are incomplete beta functions.
struct BinomialDef : Support {
    double n, p;
    explicit BinomialDef(const double* a) : n(a[1]), p(a[2])
    {
        low = 0, high = n;
        valid = builtin::IsWhole(n) && n >= 0 && p >= 0 && p <= 1;
    }
    double Prob(double k) const
    {
        if (p == 0 || p == 1) return k == (p == 0 ? 0 : n) ? 1.0 : 0.0;
        return std::exp(LnChoose(n, k) + k * std::log(p) + (n - k) * std::log1p(-p));
    }
    double UpTo(double k) const { return UpperBeta(k + 1, n - k, p); }
    double Beyond(double k) const { return LowerBeta(k + 1, n - k, p); }
};

// Discrete uniform (k, low, high): every whole number from low to high.
struct DiscUniformDef : Support {
    explicit DiscUniformDef(const double* a)
    {
        low = a[1], high = a[2];
        valid = builtin::IsWhole(low) && builtin::IsWhole(high) && low <= high;
    }
    double Prob(double) const { return 1 / (high - low + 1); }
    double UpTo(double k) const { return (k - low + 1) / (high - low + 1); }
    double Beyond(double k) const { return (high - k) / (high - low + 1); }
};

// Hypergeometric (k, draws, successes, population): successes in draws without replacement.
struct HypergeometricDef : Support {
    double draws, successes, population;
    explicit HypergeometricDef(const double* a) : draws(a[1]), successes(a[2]), population(a[3])
    {
        low = std::max(0.0, draws + successes - population), high = std::min(draws, successes);
        valid = builtin::IsWhole(draws) && builtin::IsWhole(successes) && builtin::IsWhole(population) &&
                draws >= 0 && successes >= 0 && draws <= population && successes <= population &&
                population <= builtin::kMaxExact;
    }
    double Prob(double k) const
    {
        return std::exp(LnChoose(successes, k) + LnChoose(population - successes, draws - k) -
                        LnChoose(population, draws));
    }
    double UpTo(double k) const { return k - low > high - k ? 1 - Sum(k + 1, high) : Sum(low, k); }
    double Beyond(double k) const { return k - low > high - k ? Sum(k + 1, high) : 1 - Sum(low, k); }
    // Terms follow from one another.  From the largest one they fall to both sides, where those of no weight
    // are left out; from an end the first ones of many would be 0.
    double Sum(double from, double to) const
    {
        if (from > to) return 0;
        const double top = std::clamp(std::floor(Mode()), from, to), most = Prob(top);
        double sum = most, term = most, k = top;
        while (k < to && term > 1e-18 * sum) {
            term *= Ratio(k++);
            sum += term;
        }
        term = most, k = top;
        while (k > from && term > 1e-18 * sum) {
            term /= Ratio(--k);
            sum += term;
        }
        return sum;
    }
    // Of the term at k + 1 to the one at k.
    double Ratio(double k) const
    {
        return (successes - k) * (draws - k) / ((k + 1) * (population - successes - draws + k + 1));
    }
    double Mode() const { return (draws + 1) * (successes + 1) / (population + 2); }
};

// Poisson (k, mean). Its tails are incomplete gamma functions.
struct PoissonDef : Support {
    double mean;
    explicit PoissonDef(const double* a) : mean(a[1])
    {
        low = 0;
        valid = mean >= 0 && std::isfinite(mean);
    }
    double Prob(double k) const { return std::exp(XLogY(k, mean) - mean - LnGamma(k + 1)); }
    double UpTo(double k) const { return UpperGamma(k + 1, mean); }
    double Beyond(double k) const { return LowerGamma(k + 1, mean); }
};

// Negative binomial (k, r, p): failures before the r-th success; r need not be whole.
struct NegBinomialDef : Support {
    double r, p;
    NegBinomialDef(double r_given, double p_given) : r(r_given), p(p_given)
    {
        low = 0;
        valid = r > 0 && std::isfinite(r) && p > 0 && p <= 1;
    }
    explicit NegBinomialDef(const double* a) : NegBinomialDef(a[1], a[2]) {}
    double Prob(double k) const
    {
        if (p == 1) return k == 0 ? 1.0 : 0.0;
        return std::exp(LnGamma(k + r) - LnGamma(k + 1) - LnGamma(r) + r * std::log(p) + k * std::log1p(-p));
    }
    double UpTo(double k) const { return LowerBeta(r, k + 1, p); }
    double Beyond(double k) const { return UpperBeta(r, k + 1, p); }
};
// Geometric (k, p): failures before the first success.
struct GeometricDef : NegBinomialDef {
    explicit GeometricDef(const double* a) : NegBinomialDef(1, a[1]) {}
    double Prob(double k) const { return p * std::pow(1 - p, k); }
};

// Logarithmic (k, p): -p^k / (k ln (1 - p)), k from 1.
struct LogarithmicDef : Support {
    double p;
    explicit LogarithmicDef(const double* a) : p(a[1])
    {
        low = 1;
        valid = p > 0 && p < 1;
    }
    double Prob(double k) const { return -std::exp(k * std::log(p)) / (k * std::log1p(-p)); }
    // The tail is an incomplete beta function with a second parameter of 0, which is summed: all terms have
    // one sign and shrink at least as p^k.  Those that shrink slowly are summed together.
    double Beyond(double k) const
    {
        constexpr double kFar = 100;
        const bool slow = p > 0.99;
        double j = k + 1, term = std::pow(p, j), sum = 0;
        while (term > 1e-18 * sum * (1 - p) && !(slow && j >= kFar)) {
            sum += term / j++;
            term *= p;
        }
        return -(slow ? sum + TailFrom(j) : sum) / std::log1p(-p);
    }
    // The sum of f(x) = p^x / x over x = j, j + 1, ... by the Euler-Maclaurin formula.  With the magnitude of
    // its nth derivative goes x f_n = rate^n p^x + n f_n-1.
    double TailFrom(double j) const
    {
        const double rate = -std::log(p), first = std::pow(p, j) / j;
        double derivative[6] = {first}, power = first;
        for (int n = 1; n < 6; ++n) {
            power *= rate;
            derivative[n] = power + n / j * derivative[n - 1];
        }
        return boost::math::expint(1, rate * j, QuietPolicy()) + first / 2 + derivative[1] / 12 -
               derivative[3] / 720 + derivative[5] / 30240;
    }
    double UpTo(double k) const { return 1 - Beyond(k); }
};

template <class Def>
double DiscreteProb(const double* a)
{
    const Def def(a);
    if (!def.valid) return kUndefinedEqn;
    return builtin::IsWhole(a[0]) && a[0] >= def.low && a[0] <= def.high ? def.Prob(a[0]) : 0.0;
}

// The whole numbers from `low` up to, but without, `high`.
template <class Def>
double DiscreteInterval(const double* a, double low, double high)
{
    const Def def(a);
    if (!def.valid) return kUndefinedEqn;
    const double before = std::ceil(low) - 1, last = std::min(std::ceil(high) - 1, def.high);
    if (last < def.low || before >= last) return 0.0;
    const double below = before < def.low ? 0.0 : def.UpTo(before);
    if (below > 0.5) return std::max(0.0, def.Beyond(before) - (last == def.high ? 0.0 : def.Beyond(last)));
    return std::max(0.0, (last == def.high ? 1.0 : def.UpTo(last)) - below);
}

}  // namespace

#undef EQN_ROUTINE
#undef EQN_INTERVAL
#define EQN_ROUTINE(name)                                                     \
    double name([[maybe_unused]] const double* a, [[maybe_unused]] int count, \
                [[maybe_unused]] EqnReason& reason)
#define EQN_INTERVAL(name)                                                                          \
    double name##Interval([[maybe_unused]] const double* a, [[maybe_unused]] int count, double low, \
                          double high, [[maybe_unused]] EqnReason& reason)
#define CONTINUOUS(name, def)                         \
    EQN_ROUTINE(name)                                 \
    {                                                 \
        return ContinuousDensity<def>(a);             \
    }                                                 \
    EQN_INTERVAL(name)                                \
    {                                                 \
        return ContinuousInterval<def>(a, low, high); \
    }
#define DISCRETE(name, def)                         \
    EQN_ROUTINE(name)                               \
    {                                               \
        return DiscreteProb<def>(a);                \
    }                                               \
    EQN_INTERVAL(name)                              \
    {                                               \
        return DiscreteInterval<def>(a, low, high); \
    }

CONTINUOUS(Triangular, SymmetricTriangularDef)
CONTINUOUS(Uniform, UniformDef)
CONTINUOUS(TriangularEnd3, EndsTriangularDef)
CONTINUOUS(Triangular3, WidthsTriangularDef)
CONTINUOUS(Lognormal, LognormalDef)
CONTINUOUS(Normal, NormalDef)
CONTINUOUS(Weibull, WeibullDef)
CONTINUOUS(GammaDist, GammaDef)
CONTINUOUS(Beta4, EndsBetaDef)
CONTINUOUS(BetaDist, UnitBetaDef)
CONTINUOUS(Exponential, ExponentialDef)
CONTINUOUS(BetaPert, PertDef)
CONTINUOUS(LogisticDist, LogisticDef)
CONTINUOUS(Laplace, LaplaceDef)
CONTINUOUS(Pareto, ParetoDef)
CONTINUOUS(ExtremeValue, ExtremeValueDef)
CONTINUOUS(Cauchy, CauchyDef)
CONTINUOUS(Levy, LevyDef)
CONTINUOUS(StudentT, StudentTDef)
CONTINUOUS(ChiSquare, ChiSquareDef)
CONTINUOUS(FDist, FDef)
DISCRETE(Bernoulli, BernoulliDef)
DISCRETE(BinomialDist, BinomialDef)
DISCRETE(DiscUniform, DiscUniformDef)
DISCRETE(Hypergeometric, HypergeometricDef)
DISCRETE(Poisson, PoissonDef)
DISCRETE(Geometric, GeometricDef)
DISCRETE(NegBinomial, NegBinomialDef)
DISCRETE(Logarithmic, LogarithmicDef)

// All of the mass at one value.
EQN_ROUTINE(Single)
{
    return a[0] == a[1] ? 1.0 : 0.0;
}
EQN_INTERVAL(Single)
{
    return low <= a[1] && a[1] < high ? 1.0 : 0.0;
}

// n, then count and probability of each outcome but the last, then the last one's probability.
EQN_ROUTINE(MultinomialDist)
{
    if (count < 4) return reason.Set("less than 4 arguments to MultinomialDist");
    if (!builtin::IsWhole(a[0]))
        return reason.Set("n of MultinomialDist must be an integer, but it is %g", a[0]);
    if (count % 2 != 0) return reason.Set("odd number of arguments to MultinomialDist");
    double total = a[count - 1];
    bool negative = total < 0;
    for (int i = 2; i < count - 1; i += 2) {
        total += a[i];
        negative |= a[i] < 0;
    }
    if (total == 0) return reason.Set("sum of probability arguments passed to MultinomialDist is 0");
    if (negative || !std::isfinite(total) || a[0] < 0) return kUndefinedEqn;
    // n! / (k1! k2! ...) x p1^k1 p2^k2 ..., in logarithms; the last count is what the others leave.
    double left = a[0], log_prob = LnGamma(a[0] + 1);
    for (int i = 1; i < count - 1; i += 2) {
        if (!builtin::IsWhole(a[i]))
            return reason.Set("k[%d] of MultinomialDist must be an integer, but it is %g", i / 2, a[i]);
        if (a[i] < 0 || a[i] > left) return 0.0;
        left -= a[i];
        log_prob += XLogY(a[i], a[i + 1] / total) - LnGamma(a[i] + 1);
    }
    return std::exp(log_prob + XLogY(left, a[count - 1] / total) - LnGamma(left + 1));
}

namespace {

bool IsProb(double p)
{
    return p >= 0 && p <= 1;
}

}  // namespace

// e, leak, then cause and probability in turns: each true cause alone makes e true so often.
EQN_ROUTINE(NoisyOr)
{
    if (count < 2) return reason.Set("less than 2 arguments to NoisyOrDist");
    if (count % 2 != 0) return reason.Set("odd number of arguments to NoisyOrDist");
    double none = 1 - a[1];
    bool valid = IsProb(a[1]);
    for (int i = 2; i < count; i += 2) {
        valid &= IsProb(a[i + 1]);
        if (a[i] != 0) none *= 1 - a[i + 1];
    }
    return !valid ? kUndefinedEqn : a[0] != 0 ? 1 - none : none;
}

// e, inhibition, then condition and probability in turns: each false condition alone keeps e from
// being true so often, and so does something unknown when all are true.
EQN_ROUTINE(NoisyAnd)
{
    if (count < 2) return reason.Set("less than 2 arguments to NoisyAndDist");
    if (count % 2 != 0) return reason.Set("odd number of arguments to NoisyAndDist");
    double all = 1 - a[1];
    bool valid = IsProb(a[1]);
    for (int i = 2; i < count; i += 2) {
        valid &= IsProb(a[i + 1]);
        if (a[i] == 0) all *= 1 - a[i + 1];
    }
    return !valid ? kUndefinedEqn : a[0] != 0 ? all : 1 - all;
}

namespace {

// Probability that a graded effect is at most `level`: the product over the leak, which spreads
// evenly over the states above 0, and the clauses (cause, state, probability) whose cause holds.
double GradedUpTo(const double* a, int count, double level)
{
    const double top = a[1] - 1;
    if (level < 0) return 0;
    double product = top > 0 && level < top ? 1 - a[2] * (top - level) / top : 1.0;
    for (int i = 3; i < count; i += 3)
        if (a[i] != 0 && a[i + 1] > level) product *= 1 - a[i + 2];
    return product;
}

}  // namespace

// e, number of states, leak, then cause, state and probability in turns: each true cause raises e to its
// state.
EQN_ROUTINE(NoisyOrMulti)
{
    if (count < 3) return reason.Set("less than 3 arguments to NoisyOrMultiDist");
    if (count % 3 != 0)
        return reason.Set("missing final %s of last clause in NoisyOrMultiDist",
                          count % 3 == 1 ? "state and probability" : "probability");
    if (!(a[1] >= 1))
        return reason.Set("second argument (num_states) to NoisyOrMultiDist must be at least 1, but it is %g",
                          a[1]);
    for (int i = 2; i < count; i += 3)
        if (!IsProb(a[i]))
            return reason.Set(
                "%s argument is %g, but it should be in [0,1] range since it is a probability for NoisyOrMultiDist",
                OrdinalWord(i + 1), a[i]);
    if (!builtin::IsWhole(a[1])) return kUndefinedEqn;
    for (int i = 4; i < count; i += 3)
        if (!(a[i] >= 0 && a[i] < a[1])) return kUndefinedEqn;
    if (!builtin::IsWhole(a[0]) || a[0] < 0 || a[0] >= a[1]) return 0.0;
    return std::max(0.0, GradedUpTo(a, count, a[0]) - GradedUpTo(a, count, a[0] - 1));
}

namespace {

struct Cause {
    int state, num_states;
};

Cause UnpackCause(double packed)
{
    const int64_t both = std::isfinite(packed) ? static_cast<int64_t>(packed) : 0;
    return {static_cast<int>(both % kCauseStates), static_cast<int>(both / kCauseStates)};
}

// Calls visit (first argument) for the list of `width` arguments that holds in the present states of
// the causes: the leak's, then one per cause.  False if the lists do not fit the arguments.
template <class Visit>
bool ForEachHoldingList(const double* a, int count, int width, Visit visit)
{
    int at = 2;
    if (count < at + width) return false;
    visit(at);
    for (at += width; at < count;) {
        const Cause cause = UnpackCause(a[at]);
        if (cause.num_states < 1) return false;
        if (count - at - 1 < int64_t{cause.num_states} * width) return false;
        visit(at + 1 + cause.state * width);
        at += 1 + cause.num_states * width;
    }
    return true;
}

}  // namespace

// x, number of states, distribution of the leak, then for each cause the variable and a distribution
// for each of its states: x is the largest of what leak and causes contribute.
EQN_ROUTINE(NoisyMaxTable)
{
    if (count < 2 || !(std::fabs(a[1]) < kCauseStates))
        return reason.Set("wrong number of arguments to NoisyMaxTableDist");
    const int num_states = static_cast<int>(a[1]);
    if (num_states < 1)
        return reason.Set(
            "number of states for output >-node in NoisyMaxTableDist is declared %d, but it must be 1 or more",
            num_states);
    double up_to = 1, up_to_before = 1;
    bool whole = true;
    const bool fits = ForEachHoldingList(a, count, num_states, [&](int first) {
        double sum = 0, here = 0, before = 0;
        for (int i = 0; i < num_states; ++i) {
            if (i == a[0]) before = sum;
            sum += a[first + i];
            if (i == a[0]) here = sum;
        }
        whole &= std::fabs(sum - 1) <= kSumTolerance;
        up_to *= here / sum;
        up_to_before *= before / sum;
    });
    if (!fits) return reason.Set("wrong number of arguments to NoisyMaxTableDist");
    if (!whole) return reason.Set("a probability vector in NoisyMaxDist doesn't sum to 1");
    if (!builtin::IsWhole(a[0]) || a[0] < 0 || a[0] >= num_states) return 0.0;
    return std::max(0.0, up_to - up_to_before);
}

EQN_ROUTINE(NoisySumTable)
{
    return reason.Set(
        "convert this equation to >-CPTable before using, since it contains the NoisySumTableDist function");
}

namespace {

struct Atom {
    double value, prob;
};

constexpr size_t kMaxAtoms = 200000;

// The distribution of the sum of two independent amounts; equal sums become one atom.
void AddAmount(std::vector<Atom>& sums, const std::vector<Atom>& amount)
{
    std::vector<Atom> all;
    all.reserve(sums.size() * amount.size());
    for (const Atom& sum : sums)
        for (const Atom& part : amount) all.push_back({sum.value + part.value, sum.prob * part.prob});
    std::sort(all.begin(), all.end(), [](const Atom& x, const Atom& y) { return x.value < y.value; });
    sums.clear();
    for (const Atom& atom : all) {
        if (!sums.empty() && atom.value - sums.back().value <= 1e-12 * std::fabs(atom.value))
            sums.back().prob += atom.prob;
        else
            sums.push_back(atom);
    }
}

}  // namespace

// x, pairs per condition, pairs (probability, amount) of the base, then for each cause the variable
// and the pairs for each of its states; what the probabilities leave is an amount of 0.  x is the sum.
EQN_INTERVAL(NoisySumTable)
{
    if (count < 2 || !(a[1] >= 1 && a[1] <= count)) return kUndefinedEqn;
    const int pairs = static_cast<int>(a[1]);
    std::vector<Atom> sums = {{0.0, 1.0}};
    bool valid = true;
    const bool fits = ForEachHoldingList(a, count, 2 * pairs, [&](int first) {
        std::vector<Atom> amount;
        double left = 1;
        for (int i = first; i < first + 2 * pairs; i += 2) {
            valid &= IsProb(a[i]) && std::isfinite(a[i + 1]);
            if (a[i] > 0) amount.push_back({a[i + 1], a[i]});
            left -= a[i];
        }
        valid &= left >= -kSumTolerance;
        if (left > 0) amount.push_back({0.0, left});
        valid &= sums.size() * amount.size() <= kMaxAtoms;
        if (valid) AddAmount(sums, amount);
    });
    if (!fits || !valid) return kUndefinedEqn;
    double prob = 0;
    for (const Atom& atom : sums)
        if (low <= atom.value && atom.value < high) prob += atom.prob;
    return prob;
}

}  // namespace talora::dist
