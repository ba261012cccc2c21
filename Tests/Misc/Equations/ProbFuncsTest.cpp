#include "Misc/Equations/ProbFuncs.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace talora {
namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kNone = kUndefinedEqn;  // moment that does not exist

// Density and interval routine of a distribution with parameters (behind the value).
struct Law {
    const FunctionDef* def;
    std::vector<double> args;

    Law(const char* name, const std::vector<double>& parameters) : def(FindFunction(name)), args{0}
    {
        args.insert(args.end(), parameters.begin(), parameters.end());
    }
    double Density(double x)
    {
        EqnReason reason;
        args[0] = x;
        return def->routine(args.data(), static_cast<int>(args.size()), reason);
    }
    double Between(double low, double high)
    {
        EqnReason reason;
        return def->interval(args.data(), static_cast<int>(args.size()), low, high, reason);
    }
};

// Integral of f over (low, high) by the tanh-sinh rule, which takes singular ends and, after a change
// of variable, infinite ones (Takahasi & Mori 1974).
double Integrate(const std::function<double(double)>& f, double low, double high)
{
    if (std::isinf(low) && std::isinf(high)) return Integrate(f, low, 0) + Integrate(f, 0, high);
    if (std::isinf(high))
        return Integrate([&](double t) { return f(low + t / (1 - t)) / ((1 - t) * (1 - t)); }, 0, 1);
    if (std::isinf(low))
        return Integrate([&](double t) { return f(high - t / (1 - t)) / ((1 - t) * (1 - t)); }, 0, 1);
    double sum = 0;
    constexpr double kStep = 1.0 / 64;
    for (int i = -64 * 4; i <= 64 * 4; ++i) {
        const double t = i * kStep, s = 0.5 * M_PI * std::sinh(t);
        const double x = 1 / (1 + std::exp(-2 * s));  // in (0, 1)
        const double weight = 0.5 * M_PI * std::cosh(t) / (std::cosh(s) * std::cosh(s)) / 2;
        const double at = low + x * (high - low);
        if (at <= low || at >= high || weight == 0) continue;
        const double value = f(at);
        if (std::isfinite(value)) sum += weight * value;
    }
    return sum * kStep * (high - low);
}

TEST(ProbFuncs, ContinuousDistributionsAgreeWithQuadrature)
{
    const double g = 0.57721566490153286;
    const struct {
        const char* name;
        std::vector<double> parameters;
        std::vector<double> cuts;  // support with its corners; first and last are its ends
        double mean, variance;     // closed forms
        double tolerance = 1e-9;
    } cases[] = {
        {"TriangularDist", {1, 2}, {-1, 1, 3}, 1, 2.0 / 3},
        {"UniformDist", {2, 6}, {2, 6}, 4, 4.0 / 3},
        {"TriangularEnd3Dist", {0, 1, 4}, {0, 1, 4}, 5.0 / 3, 13.0 / 18},
        {"TriangularEnd3Dist", {0, 0, 4}, {0, 4}, 4.0 / 3, 16.0 / 18},
        {"Triangular3Dist", {1, 1, 3}, {0, 1, 4}, 5.0 / 3, 13.0 / 18},
        {"LognormalDist",
         {0.5, 0.4},
         {0, 1, 3, kInfinite},
         std::exp(0.58),
         (std::exp(0.16) - 1) * std::exp(1.16)},
        {"NormalDist", {3, 2}, {-kInfinite, 1, 3, 5, kInfinite}, 3, 4},
        {"WeibullDist",
         {1.5, 2},
         {0, 1, 3, kInfinite},
         2 * std::tgamma(1 + 1 / 1.5),
         4 * (std::tgamma(1 + 2 / 1.5) - std::pow(std::tgamma(1 + 1 / 1.5), 2))},
        {"GammaDist", {2.5, 1.5}, {0, 2, 5, kInfinite}, 3.75, 5.625},
        {"GammaDist", {0.5, 2}, {0, 1, kInfinite}, 1, 2, 1e-7},
        {"BetaDist", {2, 3}, {0, 0.4, 1}, 0.4, 0.04},
        {"BetaDist", {0.5, 0.7}, {0, 0.5, 1}, 5.0 / 12, 0.35 / (1.44 * 2.2), 1e-5},
        {"Beta4Dist", {2, 3, -1, 4}, {-1, 1, 4}, 1, 1},
        {"ExponentialDist", {0.5}, {0, 2, kInfinite}, 2, 4},
        {"BetaPertDist", {0, 1, 4}, {0, 1, 4}, 4.0 / 3, (4.0 / 3) * (4 - 4.0 / 3) / 7},
        {"LogisticDist", {1, 2}, {-kInfinite, 1, kInfinite}, 1, 4 * M_PI * M_PI / 3},
        {"LaplaceDist", {1, 2}, {-kInfinite, 1, kInfinite}, 1, 8},
        {"ParetoDist", {4, 2}, {2, 3, kInfinite}, 8.0 / 3, 8.0 / 9, 1e-7},
        {"ExtremeValueDist", {1, 2}, {-kInfinite, 1, 5, kInfinite}, 1 + 2 * g, 4 * M_PI * M_PI / 6},
        {"CauchyDist", {1, 2}, {-kInfinite, 1, kInfinite}, kNone, kNone},
        {"LevyDist", {1, 2}, {1, 3, kInfinite}, kNone, kNone, 1e-6},
        {"StudentTDist", {6}, {-kInfinite, 0, kInfinite}, 0, 1.5, 1e-7},
        {"StudentTDist", {0.8}, {-kInfinite, 0, kInfinite}, kNone, kNone, 1e-5},
        {"ChiSquareDist", {3}, {0, 2, 6, kInfinite}, 3, 6},
        {"FDist", {5, 12}, {0, 1, 3, kInfinite}, 1.2, 2.0 * 144 * 15 / (5 * 100 * 8), 1e-7},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Law law(c.name, c.parameters);
        double mass = 0, mean = 0, square = 0;
        for (size_t i = 0; i + 1 < c.cuts.size(); ++i) {
            const double low = c.cuts[i], high = c.cuts[i + 1];
            const double part = Integrate([&](double x) { return law.Density(x); }, low, high);
            EXPECT_NEAR(law.Between(low, high), part, c.tolerance) << low << " to " << high;
            mass += part;
            mean += Integrate([&](double x) { return x * law.Density(x); }, low, high);
            square += Integrate([&](double x) { return x * x * law.Density(x); }, low, high);
        }
        EXPECT_NEAR(mass, 1, c.tolerance);
        EXPECT_NEAR(law.Between(-kInfinite, kInfinite), 1, 1e-15);
        if (!std::isnan(c.mean)) {
            EXPECT_NEAR(mean, c.mean, 1e3 * c.tolerance);
            EXPECT_NEAR(square - mean * mean, c.variance, 1e4 * c.tolerance);
        }
        if (std::isfinite(c.cuts.front())) {
            EXPECT_EQ(law.Density(c.cuts.front() - 0.1), 0);
        }
        if (std::isfinite(c.cuts.back())) {
            EXPECT_EQ(law.Density(c.cuts.back() + 0.1), 0);
        }
    }
}

TEST(ProbFuncs, DiscreteDistributionsAgreeWithSums)
{
    const double p = 0.3, log_mean = -0.3 / (0.7 * std::log(0.7));
    const struct {
        const char* name;
        std::vector<double> parameters;
        int last;  // beyond, there is next to nothing
        double mean, variance;
    } cases[] = {
        {"_BernoulliDist", {p}, 1, p, 0.21},
        {"BernoulliDist", {p}, 1, p, 0.21},
        {"BinomialDist", {12, p}, 12, 3.6, 2.52},
        {"BinomialDist", {5, 0}, 5, 0, 0},
        {"BinomialDist", {5, 1}, 5, 5, 0},
        {"DiscUniformDist", {2, 9}, 10, 5.5, 63.0 / 12},
        {"HypergeometricDist", {6, 7, 20}, 7, 2.1, 6 * 0.35 * 0.65 * 14 / 19},
        {"HypergeometricDist", {15, 12, 20}, 13, 9, 15 * 0.6 * 0.4 * 5 / 19},
        {"PoissonDist", {4.5}, 80, 4.5, 4.5},
        {"PoissonDist", {0}, 3, 0, 0},
        {"GeometricDist", {p}, 200, 0.7 / p, 0.7 / (p * p)},
        {"NegBinomialDist", {2.5, p}, 300, 2.5 * 0.7 / p, 2.5 * 0.7 / (p * p)},
        {"LogarithmicDist",
         {p},
         80,
         log_mean,
         -p * (p + std::log1p(-p)) / (0.49 * std::log1p(-p) * std::log1p(-p))},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Law law(c.name, c.parameters);
        double mass = 0, mean = 0, square = 0, below = 0;
        for (int k = -2; k <= c.last; ++k) {
            const double prob = law.Density(k);
            if (k <= 20) {
                EXPECT_NEAR(law.Between(-kInfinite, k), below, 1e-13) << k;
                EXPECT_NEAR(law.Between(k, kInfinite), 1 - below, 1e-13) << k;
                EXPECT_NEAR(law.Between(k, k + 1), prob, 1e-13) << k;
                EXPECT_EQ(law.Between(k + 0.25, k + 0.75), 0) << k;
            }
            below += prob;
            mass += prob;
            mean += k * prob;
            square += 1.0 * k * k * prob;
        }
        EXPECT_NEAR(mass, 1, 1e-13);
        EXPECT_NEAR(mean, c.mean, 1e-11);
        EXPECT_NEAR(square - mean * mean, c.variance, 1e-9);
        EXPECT_EQ(law.Density(1.5), 0);
    }
}

// Where a sum has very many terms, of which the first may be too small for a double.
TEST(ProbFuncs, LongSumsAreExact)
{
    const struct {
        const char* name;
        std::vector<double> parameters;
        int low, high;
    } cases[] = {
        {"HypergeometricDist", {5e4, 5e4, 1e5}, 24000, 25001},
        {"HypergeometricDist", {5e4, 5e4, 1e5}, 25000, 25001},
        {"HypergeometricDist", {5e4, 5e4, 1e5}, 25001, 26001},
        {"LogarithmicDist", {0.9999}, 1, 50},
        {"LogarithmicDist", {0.9999}, 50, 150},
        {"LogarithmicDist", {0.9999}, 150, 40000},
        {"LogarithmicDist", {0.9901}, 99, 3000},
        {"LogarithmicDist", {1 - 1e-15}, 100, 10000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.name << " from " << c.low);
        Law law(c.name, c.parameters);
        double sum = 0;
        for (int k = c.low; k < c.high; ++k) sum += law.Density(k);
        EXPECT_NEAR(law.Between(c.low, c.high) / sum, 1, c.name[0] == 'H' ? 1e-7 : 1e-11);
    }
}

// Where a difference of two numbers near 1 would have no digits left.
TEST(ProbFuncs, TailsKeepTheirDigits)
{
    const struct {
        const char* name;
        std::vector<double> parameters;
        double low, high, prob;
    } cases[] = {
        {"NormalDist", {0, 1}, 10, kInfinite, 7.6198530241605e-24},
        {"NormalDist", {0, 1}, -kInfinite, -10, 7.6198530241605e-24},
        {"ExponentialDist", {1}, 100, kInfinite, 3.720075976020836e-44},
        {"CauchyDist", {0, 1}, 1e12, kInfinite, 3.183098861837907e-13},
        {"LogisticDist", {0, 1}, 80, kInfinite, 1.8048513878454153e-35},
        {"PoissonDist", {1}, 30, kInfinite, 1.4330814167223182e-33},
        {"LogarithmicDist", {0.5}, 60, kInfinite, 4.1048559518044281e-20},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_NEAR(Law(c.name, c.parameters).Between(c.low, c.high) / c.prob, 1, 1e-9);
    }
}

TEST(ProbFuncs, WrongParametersAreUndefined)
{
    const struct {
        const char* name;
        std::vector<double> parameters;
    } cases[] = {
        {"NormalDist", {0, 0}},
        {"NormalDist", {kInfinite, 1}},
        {"UniformDist", {2, 2}},
        {"TriangularEnd3Dist", {0, 5, 4}},
        {"TriangularDist", {0, 0}},
        {"GammaDist", {-1, 1}},
        {"BetaDist", {0, 1}},
        {"Beta4Dist", {1, 1, 2, 1}},
        {"BetaPertDist", {0, 5, 4}},
        {"BetaPertDist", {1, 1, 1}},
        {"ParetoDist", {1, 0}},
        {"StudentTDist", {0}},
        {"FDist", {1, -1}},
        {"BernoulliDist", {1.5}},
        {"BinomialDist", {2.5, 0.5}},
        {"DiscUniformDist", {3, 2}},
        {"HypergeometricDist", {5, 2, 4}},
        {"HypergeometricDist", {1, 1, 1e16}},
        {"PoissonDist", {-1}},
        {"GeometricDist", {0}},
        {"LogarithmicDist", {1}},
        {"NegBinomialDist", {0, 0.5}},
        {"WeibullDist", {0, 1}},
        {"LevyDist", {0, 0}},
        {"LognormalDist", {0, -1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Law law(c.name, c.parameters);
        EXPECT_TRUE(std::isnan(law.Density(1)));
        EXPECT_TRUE(std::isnan(law.Between(0, 1)));
    }
}

// Gates against the definition: every combination of what the causes contribute.
TEST(ProbFuncs, NoisyGatesAgreeWithEnumeration)
{
    const double leak = 0.1, probs[3] = {0.8, 0.3, 0.55};
    const int effects[3] = {2, 1, 3};
    for (int causes = 0; causes < 8; ++causes) {
        double any = 0, all = 0, graded[4] = {};
        for (int outcome = 0; outcome < 16; ++outcome) {
            double weight_or = outcome & 8 ? leak : 1 - leak, weight_and = weight_or;
            int highest = 0;
            bool blocked = outcome & 8;
            bool possible_or = true, possible_and = true;
            for (int i = 0; i < 3; ++i) {
                const bool holds = causes >> i & 1, happens = outcome >> i & 1;
                weight_or *= happens ? probs[i] : 1 - probs[i];
                weight_and *= happens ? probs[i] : 1 - probs[i];
                if (holds && happens) highest = std::max(highest, effects[i]), possible_or = false;
                if (!holds && happens) blocked = true, possible_and = false;
            }
            if (!possible_or || (outcome & 8)) any += weight_or;
            if (!blocked && possible_and) all += weight_and;
            for (int state = 1; state < 4; ++state)
                graded[std::max(highest, outcome & 8 ? state : 0)] += weight_or / 3;
        }
        EqnReason reason;
        const double b[3] = {1.0 * (causes & 1), 1.0 * (causes >> 1 & 1), 1.0 * (causes >> 2 & 1)};
        const double gate[] = {1, leak, b[0], probs[0], b[1], probs[1], b[2], probs[2]};
        EXPECT_NEAR(dist::NoisyOr(gate, 8, reason), any, 1e-15);
        EXPECT_NEAR(dist::NoisyAnd(gate, 8, reason), all, 1e-15);
        for (int state = 0; state < 4; ++state) {
            const double multi[] = {1.0 * state, 4, leak,     b[0], 2, probs[0],
                                    b[1],        1, probs[1], b[2], 3, probs[2]};
            EXPECT_NEAR(dist::NoisyOrMulti(multi, 12, reason), graded[state], 1e-15);
        }
    }
}

}  // namespace
}  // namespace talora
