// What the operators and built-in functions compute.
//
// Each routine gets its arguments evaluated and returns the result, NaN for undefined.  The
// inline ones are also the instructions of the stack machine, so that both evaluators give the
// same bits.  Only lenient functions see undefined arguments.
#pragma once

#include <cmath>

#include "Misc/Equations/EqnTable.h"

namespace talora::builtin {

#define EQN_ROUTINE(name) double name(const double* a, int count, EqnReason& reason)

inline double Mult(double a, double b)
{
    return a == 0 || b == 0 ? 0.0 : a * b;
}
inline double Div(double a, double b)
{
    return b != 0 ? a / b : a == 0 ? 0.0 : kUndefinedEqn;
}
// The C library has NaN to the power 0 and 1 to the power NaN as 1.
inline double Power(double a, double b)
{
    if (a != a || b != b || (a == 0 && b == 0)) return kUndefinedEqn;
    return std::pow(a, b);
}
inline double Less(double a, double b)
{
    return a < b ? 1.0 : a >= b ? 0.0 : kUndefinedEqn;
}
inline double LessEq(double a, double b)
{
    return a <= b ? 1.0 : a > b ? 0.0 : kUndefinedEqn;
}
inline double Equal(double a, double b)
{
    return a == b ? 1.0 : a != a || b != b ? kUndefinedEqn : 0.0;
}
inline double NotEqual(double a, double b)
{
    return 1.0 - Equal(a, b);
}
inline double Not(double a)
{
    return a != a ? a : a == 0 ? 1.0 : 0.0;
}
// False wins over undefined in `and`, true in `or`.
inline double And(double a, double b)
{
    if (a == 0 || b == 0) return 0.0;
    return a != a || b != b ? kUndefinedEqn : 1.0;
}
inline double Or(double a, double b)
{
    if ((a == a && a != 0) || (b == b && b != 0)) return 1.0;
    return a != a || b != b ? kUndefinedEqn : 0.0;
}
inline double Min(double a, double b)
{
    return a != a ? a : b < a || b != b ? b : a;
}
inline double Max(double a, double b)
{
    return a != a ? a : b > a || b != b ? b : a;
}
// The remainder has the sign of the divisor; both must be whole.
double Mod(double a, double b);

// Whether two numbers agree within a ratio (same sign, smaller to larger magnitude at least that).
bool AgreesWithin(double a, double b, double ratio);
// Largest whole number such that it and its neighbours are doubles.
inline constexpr double kMaxExact = 9007199254740992.0;
inline bool IsWhole(double x)
{
    return std::floor(x) == x && std::isfinite(x);
}

// Operators as calls of any number of arguments.
EQN_ROUTINE(NegCall);
EQN_ROUTINE(NotCall);
EQN_ROUTINE(PowerCall);
EQN_ROUTINE(MultCall);
EQN_ROUTINE(DivCall);
EQN_ROUTINE(ModCall);
EQN_ROUTINE(PlusCall);
EQN_ROUTINE(MinusCall);
EQN_ROUTINE(LessCall);
EQN_ROUTINE(GreaterCall);
EQN_ROUTINE(LessEqCall);
EQN_ROUTINE(GreaterEqCall);
EQN_ROUTINE(EqualCall);
EQN_ROUTINE(NotEqualCall);
EQN_ROUTINE(ApproxEqCall);
EQN_ROUTINE(AndCall);
EQN_ROUTINE(OrCall);
EQN_ROUTINE(IfCall);

EQN_ROUTINE(Sqrt);
EQN_ROUTINE(Exp);
EQN_ROUTINE(Log);
EQN_ROUTINE(Log2);
EQN_ROUTINE(Log10);
EQN_ROUTINE(Sin);
EQN_ROUTINE(Cos);
EQN_ROUTINE(Tan);
EQN_ROUTINE(Asin);
EQN_ROUTINE(Acos);
EQN_ROUTINE(Atan);
EQN_ROUTINE(Atan2);
EQN_ROUTINE(Sinh);
EQN_ROUTINE(Cosh);
EQN_ROUTINE(Tanh);
EQN_ROUTINE(Ceil);
EQN_ROUTINE(Floor);
EQN_ROUTINE(Frac);
EQN_ROUTINE(Integer);
EQN_ROUTINE(MinCall);
EQN_ROUTINE(MaxCall);
EQN_ROUTINE(Argmin0);
EQN_ROUTINE(Argmin1);
EQN_ROUTINE(Argmax0);
EQN_ROUTINE(Argmax1);
EQN_ROUTINE(Nearest0);
EQN_ROUTINE(Nearest1);
EQN_ROUTINE(Find0);
EQN_ROUTINE(Member);
EQN_ROUTINE(Discretize);
EQN_ROUTINE(Select0);
EQN_ROUTINE(Select1);
EQN_ROUTINE(Avg);
EQN_ROUTINE(Mag);
EQN_ROUTINE(Clip);
EQN_ROUTINE(Rect);
EQN_ROUTINE(AsState);
EQN_ROUTINE(Increasing);
EQN_ROUTINE(Nondecreasing);
EQN_ROUTINE(EqNear);
EQN_ROUTINE(RoundTo);
EQN_ROUTINE(Round);
EQN_ROUTINE(Sign);
EQN_ROUTINE(Abs);
EQN_ROUTINE(Xor);
EQN_ROUTINE(Factorial);
EQN_ROUTINE(LogFactorial);
EQN_ROUTINE(Gamma);
EQN_ROUTINE(LogGamma);
EQN_ROUTINE(Beta);
EQN_ROUTINE(Erf);
EQN_ROUTINE(Erfc);
EQN_ROUTINE(Logit);
EQN_ROUTINE(Logistic);
EQN_ROUTINE(Binomial);
EQN_ROUTINE(Multinomial);
EQN_ROUTINE(ExactlyOneTrue);
EQN_ROUTINE(NumberTrue);
EQN_ROUTINE(AllUnique);

}  // namespace talora::builtin
