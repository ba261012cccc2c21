// Operators and functions of the equation language, a routine each; undefined results are NaN.
#include "Misc/Equations/EqnBuiltin.h"

#include <algorithm>
#include <boost/math/special_functions/gamma.hpp>
#include <cstdarg>

#include "Basic/Text.h"
#include "Misc/Equations/QuietMath.h"

namespace talora {

// Returns the undefined value, so that a routine can fail in one line.
double EqnReason::Set(const char* format, ...)
{
    const std::string plain = ExpandMarkup(format);
    va_list values;
    va_start(values, format);
    FormatInto(text, sizeof text, plain.c_str(), values);
    va_end(values);
    return kUndefinedEqn;
}

namespace builtin {

#undef EQN_ROUTINE
#define EQN_ROUTINE(name)                                                     \
    double name([[maybe_unused]] const double* a, [[maybe_unused]] int count, \
                [[maybe_unused]] EqnReason& reason)

namespace {

constexpr double kApproxRatio = 0.99998;
constexpr double kFindRatio = 0.99999;
constexpr double kMemberRatio = 0.99999999;

double Truth(bool value)
{
    return value ? 1.0 : 0.0;
}

template <class Better>
int Best(const double* a, int count, Better better)
{
    int best = 0;
    for (int i = 1; i < count; ++i)
        if (better(a[i], a[best])) best = i;
    return best;
}

// Index of the value among a[1..] nearest to a[0], the earliest of equals; -1 if none are listed.
int NearestIndex(const double* a, int count)
{
    int best = -1;
    for (int i = 1; i < count; ++i)
        if (best < 0 || std::fabs(a[i] - a[0]) < std::fabs(a[best + 1] - a[0])) best = i - 1;
    return best;
}

// The argument at an index that counts from `base`.
double Select(const double* a, int count, int base)
{
    if (count < 2 || std::isnan(a[0])) return kUndefinedEqn;
    const double index = std::trunc(a[0]) - base;
    return index >= 0 && index < count - 1 ? a[1 + static_cast<int>(index)] : kUndefinedEqn;
}

int CountTrue(const double* a, int count)
{
    return static_cast<int>(std::count_if(a, a + count, [](double x) { return x != 0; }));
}

// ln of the gamma function for x >= 0, without the sign variable that the C library's writes.
double LnGamma(double x)
{
    if (x == 0 || std::isinf(x)) return std::numeric_limits<double>::infinity();
    return boost::math::lgamma(x, QuietPolicy());
}

// Exact while the result is: each step's division leaves no remainder.  Each step at least doubles it.
double Choose(double n, double k)
{
    k = std::min(k, n - k);
    double result = 1;
    for (int i = 1; i <= k; ++i) {
        const double next = result * (n - k + i);
        if (next > kMaxExact) {
            const double rest = LnGamma(n + 1) - LnGamma(k + 1) - LnGamma(n - k + 1);
            return rest < 36 ? std::round(std::exp(rest)) : std::exp(rest);
        }
        result = next / i;
    }
    return result;
}

}  // namespace

// Of whole numbers, with the sign of the divisor.
double Mod(double a, double b)
{
    if (!IsWhole(a) || !IsWhole(b) || b == 0) return kUndefinedEqn;
    const double rest = std::fmod(a, b);
    return rest != 0 && (rest < 0) != (b < 0) ? rest + b : rest + 0.0;
}

// By the ratio of the smaller to the larger; 0 agrees with 0 alone.
bool AgreesWithin(double a, double b, double ratio)
{
    if (a == 0 || b == 0) return a == b;
    if ((a < 0) != (b < 0)) return false;
    if (a == b) return true;
    const double x = std::fabs(a), y = std::fabs(b);
    return std::min(x, y) / std::max(x, y) >= ratio;
}

EQN_ROUTINE(NegCall)
{
    return -a[0];
}
EQN_ROUTINE(NotCall)
{
    return Not(a[0]);
}
EQN_ROUTINE(PowerCall)
{
    return Power(a[0], a[1]);
}
EQN_ROUTINE(DivCall)
{
    return Div(a[0], a[1]);
}
EQN_ROUTINE(ModCall)
{
    return Mod(a[0], a[1]);
}
EQN_ROUTINE(MinusCall)
{
    return a[0] - a[1];
}
EQN_ROUTINE(LessCall)
{
    return Less(a[0], a[1]);
}
EQN_ROUTINE(GreaterCall)
{
    return Less(a[1], a[0]);
}
EQN_ROUTINE(LessEqCall)
{
    return LessEq(a[0], a[1]);
}
EQN_ROUTINE(GreaterEqCall)
{
    return LessEq(a[1], a[0]);
}
EQN_ROUTINE(EqualCall)
{
    return Equal(a[0], a[1]);
}
EQN_ROUTINE(NotEqualCall)
{
    return NotEqual(a[0], a[1]);
}
EQN_ROUTINE(ApproxEqCall)
{
    return Truth(AgreesWithin(a[0], a[1], kApproxRatio));
}
EQN_ROUTINE(IfCall)
{
    return std::isnan(a[0]) ? a[0] : a[0] != 0 ? a[1] : a[2];
}

EQN_ROUTINE(MultCall)
{
    double product = count > 0 ? a[0] : 1.0;
    for (int i = 1; i < count; ++i) product = Mult(product, a[i]);
    return product;
}

EQN_ROUTINE(PlusCall)
{
    double sum = count > 0 ? a[0] : 0.0;
    for (int i = 1; i < count; ++i) sum += a[i];
    return sum;
}

EQN_ROUTINE(AndCall)
{
    double all = 1.0;
    for (int i = 0; i < count; ++i) all = And(all, a[i]);
    return all;
}

EQN_ROUTINE(OrCall)
{
    double any = 0.0;
    for (int i = 0; i < count; ++i) any = Or(any, a[i]);
    return any;
}

EQN_ROUTINE(Sqrt)
{
    return std::sqrt(a[0]);
}
EQN_ROUTINE(Exp)
{
    return std::exp(a[0]);
}
EQN_ROUTINE(Log)
{
    return a[0] > 0 ? std::log(a[0]) : kUndefinedEqn;
}
EQN_ROUTINE(Log2)
{
    return a[0] > 0 ? std::log2(a[0]) : kUndefinedEqn;
}
EQN_ROUTINE(Log10)
{
    return a[0] > 0 ? std::log10(a[0]) : kUndefinedEqn;
}
EQN_ROUTINE(Sin)
{
    return std::sin(a[0]);
}
EQN_ROUTINE(Cos)
{
    return std::cos(a[0]);
}
EQN_ROUTINE(Tan)
{
    return std::tan(a[0]);
}
EQN_ROUTINE(Asin)
{
    return std::asin(a[0]);
}
EQN_ROUTINE(Acos)
{
    return std::acos(a[0]);
}
EQN_ROUTINE(Atan)
{
    return std::atan(a[0]);
}
EQN_ROUTINE(Atan2)
{
    return std::atan2(a[0], a[1]);
}
EQN_ROUTINE(Sinh)
{
    return std::sinh(a[0]);
}
EQN_ROUTINE(Cosh)
{
    return std::cosh(a[0]);
}
EQN_ROUTINE(Tanh)
{
    return std::tanh(a[0]);
}
EQN_ROUTINE(Ceil)
{
    return std::ceil(a[0]);
}
EQN_ROUTINE(Floor)
{
    return std::floor(a[0]);
}
EQN_ROUTINE(Frac)
{
    return std::isinf(a[0]) ? 0.0 : a[0] - std::trunc(a[0]);
}
EQN_ROUTINE(Integer)
{
    return std::trunc(a[0]);
}

EQN_ROUTINE(MinCall)
{
    double least = count > 0 ? a[0] : kUndefinedEqn;
    for (int i = 1; i < count; ++i) least = Min(least, a[i]);
    return least;
}

EQN_ROUTINE(MaxCall)
{
    double most = count > 0 ? a[0] : kUndefinedEqn;
    for (int i = 1; i < count; ++i) most = Max(most, a[i]);
    return most;
}

EQN_ROUTINE(Argmin0)
{
    return count > 0 ? Best(a, count, std::less<>()) : kUndefinedEqn;
}
EQN_ROUTINE(Argmin1)
{
    return Argmin0(a, count, reason) + 1;
}
EQN_ROUTINE(Argmax0)
{
    return count > 0 ? Best(a, count, std::greater<>()) : kUndefinedEqn;
}
EQN_ROUTINE(Argmax1)
{
    return Argmax0(a, count, reason) + 1;
}
EQN_ROUTINE(Nearest0)
{
    return count < 2 ? kUndefinedEqn : NearestIndex(a, count);
}
EQN_ROUTINE(Nearest1)
{
    return Nearest0(a, count, reason) + 1;
}

EQN_ROUTINE(Find0)
{
    const int at = NearestIndex(a, count);
    return at >= 0 && AgreesWithin(a[0], a[at + 1], kFindRatio) ? at : kUndefinedEqn;
}

EQN_ROUTINE(Member)
{
    for (int i = 1; i < count; ++i)
        if (AgreesWithin(a[0], a[i], kMemberRatio)) return 1.0;
    return 0.0;
}

EQN_ROUTINE(Discretize)
{
    int passed = 0;
    while (passed + 1 < count && a[passed + 1] <= a[0]) ++passed;
    return passed;
}

EQN_ROUTINE(Select0)
{
    return Select(a, count, 0);
}
EQN_ROUTINE(Select1)
{
    return Select(a, count, 1);
}
EQN_ROUTINE(Avg)
{
    return count > 0 ? PlusCall(a, count, reason) / count : kUndefinedEqn;
}

// Scaled by the largest, so that squares neither overflow nor vanish.
EQN_ROUTINE(Mag)
{
    double largest = 0, sum = 0;
    for (int i = 0; i < count; ++i) largest = std::max(largest, std::fabs(a[i]));
    if (largest == 0 || std::isinf(largest)) return largest;
    for (int i = 0; i < count; ++i) sum += (a[i] / largest) * (a[i] / largest);
    return largest * std::sqrt(sum);
}

EQN_ROUTINE(Clip)
{
    return a[1] > a[2] ? kUndefinedEqn : std::min(std::max(a[0], a[1]), a[2]);
}
EQN_ROUTINE(Rect)
{
    return Truth(a[1] <= a[0] && a[0] < a[2]);
}

EQN_ROUTINE(AsState)
{
    return reason.Set(
        "attempt to evaluate 'AsState' function.  It should only be used as the first part of a deterministic function equation for a discrete >-node with levels");
}

EQN_ROUTINE(Increasing)
{
    for (int i = 1; i < count; ++i)
        if (a[i] <= a[i - 1]) return 0.0;
    return 1.0;
}

EQN_ROUTINE(Nondecreasing)
{
    for (int i = 1; i < count; ++i)
        if (a[i] < a[i - 1]) return 0.0;
    return 1.0;
}

EQN_ROUTINE(EqNear)
{
    return Truth(AgreesWithin(a[1], a[2], 1 - a[0]));
}

EQN_ROUTINE(RoundTo)
{
    return a[0] > 0 ? std::floor((a[1] + a[0] / 2) / a[0]) * a[0] : kUndefinedEqn;
}

EQN_ROUTINE(Round)
{
    return std::floor(a[0] + 0.5);
}
EQN_ROUTINE(Sign)
{
    return (a[0] > 0) - (a[0] < 0);
}
EQN_ROUTINE(Abs)
{
    return std::fabs(a[0]);
}
EQN_ROUTINE(Xor)
{
    return CountTrue(a, count) % 2;
}

EQN_ROUTINE(Factorial)
{
    if (!IsWhole(a[0]) || a[0] < 0) return kUndefinedEqn;
    double product = 1;
    for (int i = 2; i <= a[0] && std::isfinite(product); ++i) product *= i;
    return product;
}

EQN_ROUTINE(LogFactorial)
{
    return IsWhole(a[0]) && a[0] >= 0 ? LnGamma(a[0] + 1) : kUndefinedEqn;
}
EQN_ROUTINE(LogGamma)
{
    return a[0] >= 0 ? LnGamma(a[0]) : kUndefinedEqn;
}
EQN_ROUTINE(Gamma)
{
    return a[0] >= 0 ? std::exp(LnGamma(a[0])) : kUndefinedEqn;
}

EQN_ROUTINE(Beta)
{
    if (!(a[0] > 0 && a[1] > 0)) return kUndefinedEqn;
    return std::exp(LnGamma(a[0]) + LnGamma(a[1]) - LnGamma(a[0] + a[1]));
}

// P(1/2, x^2) is the error function of |x|; the C library's is as exact and far quicker.
EQN_ROUTINE(Erf)
{
    return std::erf(a[0]);
}
EQN_ROUTINE(Erfc)
{
    return std::erfc(a[0]);
}
EQN_ROUTINE(Logit)
{
    return a[0] > 0 && a[0] < 1 ? std::log(a[0] / (1 - a[0])) : kUndefinedEqn;
}
EQN_ROUTINE(Logistic)
{
    return a[0] < -700 ? 0.0 : 1 / (1 + std::exp(-a[0]));
}

EQN_ROUTINE(Binomial)
{
    const double n = a[0], k = a[1];
    if (!IsWhole(n) || !IsWhole(k) || k < 0 || k > n) return kUndefinedEqn;
    return Choose(n, k);
}

EQN_ROUTINE(Multinomial)
{
    double total = 0, result = 1;
    for (int i = 0; i < count; ++i) {
        if (!IsWhole(a[i]) || a[i] < 0) return kUndefinedEqn;
        total += a[i];
        result *= Choose(total, a[i]);
    }
    return result;
}

EQN_ROUTINE(ExactlyOneTrue)
{
    return Truth(CountTrue(a, count) == 1);
}
EQN_ROUTINE(NumberTrue)
{
    return CountTrue(a, count);
}

EQN_ROUTINE(AllUnique)
{
    for (int i = 1; i < count; ++i)
        if (std::find(a, a + i, a[i]) != a + i) return 0.0;
    return 1.0;
}

}  // namespace builtin

}  // namespace talora
