// The table of functions, constants and operators, looking them up, and the reference page made from it.
#include "Misc/Equations/EqnTable.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "Basic/Text.h"
#include "Misc/Equations/ProbFuncs.h"

namespace talora {

namespace {

using namespace builtin;

constexpr auto BOO = BOOLEAN_EQN;
constexpr auto STA = STATE_EQN;
constexpr auto INT = INTEGER_EQN;
constexpr auto REA = REAL_EQN;
constexpr auto NUM = NUMERIC_EQN;
constexpr auto ANY = ANY_EQN;

constexpr uint8_t kLeft = LEFT_EQN;
constexpr uint8_t kGathers = LEFT_EQN | ASSOCIATIVE_EQN | COMMUTATIVE_EQN;
constexpr uint8_t kFolds = ASSOCIATIVE_EQN | COMMUTATIVE_EQN;
constexpr uint8_t kAnyOrder = COMMUTATIVE_EQN;
constexpr uint8_t kLenient = LENIENT_EQN;

constexpr FunctionDef Op(const char* name, const char* symbol, const char* second, int arity,
                         EqnRoutine routine, EqnType result, EqnType first, EqnType rest, int strength,
                         int flags, SpecialForm form, EqnOp op, const char* parameters, const char* meaning,
                         const char* example, double value)
{
    return {name,    symbol,  second,  arity,     routine,
            result,  first,   rest,    strength,  static_cast<uint8_t>(flags),
            form,    op,      nullptr, OPERATORS, parameters,
            meaning, example, value};
}

constexpr FunctionDef Fn(const char* name, int arity, EqnRoutine routine, EqnType result, EqnType first,
                         EqnType rest, int flags, SpecialForm form, const char* parameters,
                         const char* meaning, const char* example, double value, EqnOp op = CALL_OP)
{
    return {name, "", "",      arity,     routine,    result,  first,   rest, 0, static_cast<uint8_t>(flags),
            form, op, nullptr, FUNCTIONS, parameters, meaning, example, value};
}

constexpr FunctionDef Dist(const char* name, int arity, EqnRoutine density, IntervalRoutine interval,
                           EqnType first, EqnType rest, EqnSection section, SpecialForm form,
                           const char* parameters, const char* meaning, const char* example, double value)
{
    return {name, "",   "",      arity,    density, REA,        first,   rest,    0,
            0,    form, CALL_OP, interval, section, parameters, meaning, example, value};
}

constexpr FunctionDef Real(const char* name, int arity, EqnRoutine density, IntervalRoutine interval,
                           const char* parameters, const char* meaning, const char* example, double value)
{
    return Dist(name, arity, density, interval, REA, REA, CONTINUOUS_DISTS, PLAIN_FORM, parameters, meaning,
                example, value);
}

constexpr FunctionDef Whole(const char* name, int arity, EqnRoutine density, IntervalRoutine interval,
                            const char* parameters, const char* meaning, const char* example, double value)
{
    return Dist(name, arity, density, interval, INT, REA, DISCRETE_DISTS, PLAIN_FORM, parameters, meaning,
                example, value);
}

constexpr FunctionDef Noisy(const char* name, EqnRoutine density, IntervalRoutine interval, EqnType first,
                            EqnType rest, SpecialForm form, const char* parameters, const char* meaning,
                            const char* example, double value)
{
    return Dist(name, 0, density, interval, first, rest, NOISY_DISTS, form, parameters, meaning, example,
                value);
}

// clang-format off
constexpr FunctionDef kFunctions[] = {
    // name, symbol, second, arity, routine, result, first, rest, strength, flags, form, instruction, ...
    Op("neg", "-", "", 1, NegCall, NUM, NUM, NUM, 2000, kLeft, PLAIN_FORM, NEG_OP, "a", "the negative of a", "neg(3)", -3),
    Op("not", "!", "", 1, NotCall, BOO, BOO, BOO, 2000, kLeft, PLAIN_FORM, NOT_OP, "a", "true when a is false", "!true", 0),
    Op("equal", "==", "", 2, EqualCall, BOO, ANY, ANY, 1200, kLeft, EQUALITY_FORM, EQUAL_OP, "a, b", "true when a and b are the same number or truth value, or states of the same name", "2 == 3", 0),
    Op("not_equal", "!=", "", 2, NotEqualCall, BOO, ANY, ANY, 1200, kLeft, EQUALITY_FORM, NOT_EQUAL_OP, "a, b", "the opposite of equal", "2 != 3", 1),
    Op("less", "<", "", 2, LessCall, BOO, NUM, NUM, 1300, kLeft, PLAIN_FORM, LESS_OP, "a, b", "true when a is less than b", "2 < 3", 1),
    Op("greater", ">", "", 2, GreaterCall, BOO, NUM, NUM, 1300, kLeft, PLAIN_FORM, GREATER_OP, "a, b", "true when a is greater than b", "2 > 3", 0),
    Op("less_eq", "<=", "", 2, LessEqCall, BOO, NUM, NUM, 1300, kLeft, PLAIN_FORM, LESS_EQ_OP, "a, b", "true when a is at most b", "2 <= 2", 1),
    Op("greater_eq", ">=", "", 2, GreaterEqCall, BOO, NUM, NUM, 1300, kLeft, PLAIN_FORM, GREATER_EQ_OP, "a, b", "true when a is at least b", "2 >= 3", 0),
    Op("approx_eq", "~=", "", 2, ApproxEqCall, BOO, REA, REA, 1300, kLeft, PLAIN_FORM, CALL_OP, "a, b", "true when a and b have one sign and the smaller is at least 0.99998 of the larger; 0 agrees only with 0", "1 ~= 1.00001", 1),
    Op("plus", "+", "", 0, PlusCall, NUM, NUM, NUM, 1500, kGathers, PLAIN_FORM, PLUS_OP, "a, b, ...", "the sum; 0 without arguments", "1 + 2 + 3", 6),
    Op("minus", "-", "", 2, MinusCall, NUM, NUM, NUM, 1500, kLeft, PLAIN_FORM, MINUS_OP, "a, b", "a less b", "5 - 3", 2),
    Op("mult", "*", "", 0, MultCall, NUM, NUM, NUM, 1600, kGathers | kLenient, PLAIN_FORM, MULT_OP, "a, b, ...", "the product; 1 without arguments, and 0 as soon as one argument is 0, whatever the others are", "2 * 3 * 4", 24),
    Op("div", "/", "", 2, DivCall, REA, REA, REA, 1600, kLeft, PLAIN_FORM, DIV_OP, "a, b", "a divided by b; 0 / 0 is 0, and anything else divided by 0 is undefined", "7 / 2", 3.5),
    Op("mod", "%", "", 2, ModCall, INT, INT, INT, 1600, kLeft, PLAIN_FORM, MOD_OP, "a, b", "the remainder of a divided by b, with the sign of b; undefined when b is 0 or one of them is not whole", "-7 % 3", 2),
    Op("power", "^", "", 2, PowerCall, NUM, NUM, NUM, 1700, 0, PLAIN_FORM, POWER_OP, "a, b", "a to the power b; 0 ^ 0 is undefined", "2 ^ 3 ^ 2", 512),
    Fn("pow", 2, PowerCall, NUM, NUM, NUM, 0, PLAIN_FORM, "a, b", "the same as a ^ b", "pow(2, 10)", 1024, POWER_OP),
    Op("and", "&&", "", 0, AndCall, BOO, BOO, BOO, 900, kGathers | kLenient, AND_FORM, AND_OP, "a, b, ...", "true when all are true; false as soon as one is false", "true && false", 0),
    Op("or", "||", "", 0, OrCall, BOO, BOO, BOO, 800, kGathers | kLenient, OR_FORM, OR_OP, "a, b, ...", "true when any is true", "true || false", 1),
    Op("if", "?", ":", 3, IfCall, ANY, BOO, ANY, 700, kLenient, IF_FORM, IF_OP, "condition, a, b", "a when the condition is true, else b; the other one is not evaluated", "2 < 3 ? 10 : 20", 10),

    // name, arity, routine, result, first, rest, flags, form, ...
    Fn("_not", 1, NotCall, BOO, BOO, BOO, 0, PLAIN_FORM, "a", "the same as !a", "_not(false)", 1, NOT_OP),
    Fn("sqrt", 1, Sqrt, REA, REA, REA, 0, PLAIN_FORM, "x", "square root; undefined for x below 0", "sqrt(9)", 3, SQRT_OP),
    Fn("exp", 1, Exp, REA, REA, REA, 0, PLAIN_FORM, "x", "e to the power x", "exp(1)", 2.718281828459045, EXP_OP),
    Fn("log", 1, Log, REA, REA, REA, 0, PLAIN_FORM, "x", "natural logarithm; undefined unless x is greater than 0", "log(10)", 2.302585092994046),
    Fn("log2", 1, Log2, REA, REA, REA, 0, PLAIN_FORM, "x", "logarithm to the base 2", "log2(8)", 3),
    Fn("log10", 1, Log10, REA, REA, REA, 0, PLAIN_FORM, "x", "logarithm to the base 10", "log10(1000)", 3),
    Fn("sin", 1, Sin, REA, REA, REA, 0, PLAIN_FORM, "x", "sine of x radians", "sin(30 deg)", 0.5),
    Fn("cos", 1, Cos, REA, REA, REA, 0, PLAIN_FORM, "x", "cosine of x radians", "cos(60 deg)", 0.5),
    Fn("tan", 1, Tan, REA, REA, REA, 0, PLAIN_FORM, "x", "tangent of x radians", "tan(45 deg)", 1),
    Fn("asin", 1, Asin, REA, REA, REA, 0, PLAIN_FORM, "x", "angle in radians whose sine is x; undefined outside -1 to 1", "asin(1)", 1.5707963267948966),
    Fn("acos", 1, Acos, REA, REA, REA, 0, PLAIN_FORM, "x", "angle in radians whose cosine is x; undefined outside -1 to 1", "acos(1)", 0),
    Fn("atan", 1, Atan, REA, REA, REA, 0, PLAIN_FORM, "x", "angle in radians whose tangent is x", "atan(1)", 0.7853981633974483),
    Fn("atan2", 2, Atan2, REA, REA, REA, 0, PLAIN_FORM, "y, x", "angle in radians of the point (x, y), from -pi to pi", "atan2(1, -1)", 2.356194490192345),
    Fn("sinh", 1, Sinh, REA, REA, REA, 0, PLAIN_FORM, "x", "hyperbolic sine", "sinh(1)", 1.1752011936438014),
    Fn("cosh", 1, Cosh, REA, REA, REA, 0, PLAIN_FORM, "x", "hyperbolic cosine", "cosh(1)", 1.5430806348152437),
    Fn("tanh", 1, Tanh, REA, REA, REA, 0, PLAIN_FORM, "x", "hyperbolic tangent", "tanh(1)", 0.7615941559557649),
    Fn("ceil", 1, Ceil, INT, REA, REA, 0, PLAIN_FORM, "x", "least whole number not below x", "ceil(2.1)", 3),
    Fn("ceiling", 1, Ceil, INT, REA, REA, 0, PLAIN_FORM, "x", "the same as ceil", "ceiling(-2.1)", -2),
    Fn("floor", 1, Floor, INT, REA, REA, 0, PLAIN_FORM, "x", "greatest whole number not above x", "floor(-2.1)", -3),
    Fn("frac", 1, Frac, REA, REA, REA, 0, PLAIN_FORM, "x", "what is behind the point, with the sign of x", "frac(-2.25)", -0.25),
    Fn("integer", 1, Integer, INT, REA, REA, 0, PLAIN_FORM, "x", "what is before the point: x rounded towards 0", "integer(-2.7)", -2),
    Fn("min", 0, MinCall, NUM, NUM, NUM, kFolds, PLAIN_FORM, "a, b, ...", "the smallest; undefined without arguments", "min(3, 1, 2)", 1, MIN_OP),
    Fn("max", 0, MaxCall, NUM, NUM, NUM, kFolds, PLAIN_FORM, "a, b, ...", "the largest; undefined without arguments", "max(3, 1, 2)", 3, MAX_OP),
    Fn("argmin0", 0, Argmin0, INT, REA, REA, 0, PLAIN_FORM, "a, b, ...", "which argument is the smallest (the earliest of equals), counted from 0", "argmin0(3, 1, 2)", 1),
    Fn("argmin1", 0, Argmin1, INT, REA, REA, 0, PLAIN_FORM, "a, b, ...", "the same, counted from 1", "argmin1(3, 1, 2)", 2),
    Fn("argmax0", 0, Argmax0, INT, REA, REA, 0, PLAIN_FORM, "a, b, ...", "which argument is the largest (the earliest of equals), counted from 0", "argmax0(3, 1, 3)", 0),
    Fn("argmax1", 0, Argmax1, INT, REA, REA, 0, PLAIN_FORM, "a, b, ...", "the same, counted from 1", "argmax1(3, 1, 3)", 1),
    Fn("nearest0", 0, Nearest0, INT, NUM, NUM, 0, NEAREST0_FORM, "x, a, b, ...", "which of a, b, ... is nearest to x (the earliest of equals), counted from 0", "nearest0(7, 1, 5, 10)", 1),
    Fn("nearest1", 0, Nearest1, INT, NUM, NUM, 0, NEAREST1_FORM, "x, a, b, ...", "the same, counted from 1", "nearest1(7, 1, 5, 10)", 2),
    Fn("_find0", 0, Find0, INT, NUM, NUM, 0, NEAREST0_FORM, "x, a, b, ...", "as nearest0, but undefined unless that value agrees with x within a ratio of 0.99999", "_find0(5, 1, 5, 10)", 1),
    Fn("member", 0, Member, BOO, ANY, ANY, 0, MEMBER_FORM, "x, a, b, ...", "true when one of a, b, ... is x (within a ratio of 0.99999999)", "member(3, 1, 2, 3)", 1),
    Fn("discretize", 0, Discretize, INT, NUM, NUM, 0, DISCRETIZE_FORM, "x, t1, t2, ...", "how many thresholds x has reached before the first that is greater than x", "discretize(15, 10, 20)", 1),
    Fn("_discretize", 0, Discretize, INT, NUM, NUM, 0, DISCRETIZE_FORM, "x, t1, t2, ...", "the same as discretize", "_discretize(5, 10, 20)", 0),
    Fn("select0", 0, Select0, ANY, INT, ANY, kLenient, SELECT0_FORM, "i, a, b, ...", "the one at place i of a, b, ..., counted from 0; undefined when there is none", "select0(1, 10, 20, 30)", 20),
    Fn("_select0", 0, Select0, ANY, INT, ANY, kLenient, SELECT0_FORM, "i, a, b, ...", "the same as select0", "_select0(0, 10, 20)", 10),
    Fn("_levels", 0, Select0, ANY, INT, ANY, kLenient, SELECT0_FORM, "i, a, b, ...", "the same as select0", "_levels(2, 1, 10, 100)", 100),
    Fn("select1", 0, Select1, ANY, INT, ANY, kLenient, SELECT1_FORM, "i, a, b, ...", "the one at place i of a, b, ..., counted from 1", "select1(1, 10, 20, 30)", 10),
    Fn("avg", 0, Avg, NUM, NUM, NUM, kAnyOrder, PLAIN_FORM, "a, b, ...", "the mean; undefined without arguments", "avg(1, 2, 6)", 3),
    Fn("mag", 0, Mag, NUM, NUM, NUM, kAnyOrder, PLAIN_FORM, "a, b, ...", "length of the vector (a, b, ...): the square root of the sum of squares", "mag(3, 4)", 5),
    Fn("clip", 3, Clip, NUM, NUM, NUM, 0, PLAIN_FORM, "x, low, high", "x, but low if it is below, and high if it is above; undefined when low is above high", "clip(12, 0, 10)", 10),
    Fn("rect", 3, Rect, NUM, NUM, NUM, 0, PLAIN_FORM, "x, low, high", "rectangular pulse: 1 when low <= x < high, else 0", "rect(5, 0, 10)", 1),
    Fn("AsState", 1, AsState, STA, NUM, NUM, 0, AS_STATE_FORM, "x", "the state of the node whose level is nearest to x (the lower of equals); only as the outermost function of a deterministic equation for a discrete node with levels", "", 0),
    Fn("increasing", 0, Increasing, BOO, REA, REA, 0, INCREASING_FORM, "a, b, ...", "true when each argument is greater than the one before", "increasing(1, 2, 2)", 0),
    Fn("increasing_eq", 0, Nondecreasing, BOO, REA, REA, 0, NONDECREASING_FORM, "a, b, ...", "true when no argument is less than the one before", "increasing_eq(1, 2, 2)", 1),
    Fn("nondecreasing", 0, Nondecreasing, BOO, REA, REA, 0, NONDECREASING_FORM, "a, b, ...", "the same as increasing_eq", "nondecreasing(1, 3, 2)", 0),
    Fn("eqnear", 3, EqNear, BOO, REA, REA, 0, PLAIN_FORM, "tol, a, b", "true when a and b have one sign and the smaller is at least 1 - tol of the larger; 0 agrees only with 0", "eqnear(0.1, 95, 100)", 1),
    Fn("roundto", 2, RoundTo, REA, REA, REA, 0, PLAIN_FORM, "step, x", "the multiple of step nearest to x; undefined unless step is greater than 0", "roundto(5, 13)", 15),
    Fn("round", 1, Round, INT, REA, REA, 0, PLAIN_FORM, "x", "nearest whole number, halves upwards", "round(-2.5)", -2),
    Fn("sign", 1, Sign, INT, REA, REA, 0, PLAIN_FORM, "x", "1, 0 or -1", "sign(-3.5)", -1),
    Fn("abs", 1, Abs, NUM, NUM, NUM, 0, PLAIN_FORM, "x", "x without its sign", "abs(-3)", 3, ABS_OP),
    Fn("xor", 0, Xor, BOO, BOO, BOO, kFolds, PLAIN_FORM, "a, b, ...", "true when an odd number of the arguments are true", "xor(true, true, true)", 1),
    Fn("factorial", 1, Factorial, INT, INT, INT, 0, PLAIN_FORM, "n", "n!; undefined unless n is whole and not below 0", "factorial(5)", 120),
    Fn("logfactorial", 1, LogFactorial, REA, INT, INT, 0, PLAIN_FORM, "n", "natural logarithm of n!", "logfactorial(10)", 15.104412573075516),
    Fn("gamma", 1, Gamma, REA, REA, REA, 0, PLAIN_FORM, "x", "the gamma function; undefined for x below 0", "gamma(5)", 24),
    Fn("loggamma", 1, LogGamma, REA, REA, REA, 0, PLAIN_FORM, "x", "natural logarithm of the gamma function; undefined for x below 0", "loggamma(0.5)", 0.5723649429247001),
    Fn("beta", 2, Beta, REA, REA, REA, 0, PLAIN_FORM, "a, b", "the beta function; undefined unless both are greater than 0", "beta(2, 3)", 0.08333333333333333),
    Fn("erf", 1, Erf, REA, REA, REA, 0, PLAIN_FORM, "x", "the error function", "erf(1)", 0.8427007929497149),
    Fn("erfc", 1, Erfc, REA, REA, REA, 0, PLAIN_FORM, "x", "1 - erf(x), exact for large x", "erfc(1)", 0.15729920705028513),
    Fn("logit", 1, Logit, REA, REA, REA, 0, PLAIN_FORM, "p", "ln (p / (1 - p)); undefined unless 0 < p < 1", "logit(0.75)", 1.0986122886681098),
    Fn("logistic", 1, Logistic, REA, REA, REA, 0, PLAIN_FORM, "x", "1 / (1 + exp(-x))", "logistic(0)", 0.5),
    Fn("binomial", 2, Binomial, INT, INT, INT, 0, PLAIN_FORM, "n, k", "how many ways there are to choose k of n; undefined unless both are whole and 0 <= k <= n", "binomial(5, 2)", 10),
    Fn("multinomial", 0, Multinomial, INT, INT, INT, 0, PLAIN_FORM, "n1, n2, ...", "how many ways there are to divide n1 + n2 + ... things into groups of these sizes", "multinomial(2, 1, 1)", 12),
    Fn("ExactlyOneTrue", 0, ExactlyOneTrue, BOO, BOO, BOO, kAnyOrder, PLAIN_FORM, "a, b, ...", "true when one argument is true and the others are false", "ExactlyOneTrue(false, true, false)", 1),
    Fn("NumberTrue", 0, NumberTrue, INT, BOO, BOO, kAnyOrder, PLAIN_FORM, "a, b, ...", "how many of the arguments are true", "NumberTrue(true, false, true)", 2),
    Fn("AllUnique", 0, AllUnique, BOO, ANY, ANY, kAnyOrder, MEMBER_FORM, "a, b, ...", "true when no two arguments are equal", "AllUnique(1, 2, 1)", 0),

    // name, arity, density, interval, ...
    Real("TriangularDist", 3, dist::Triangular, dist::TriangularInterval, "x, mode, width", "rises from mode - width to mode and falls to mode + width", "TriangularDist(1, 1, 2)", 0.5),
    Real("UniformDist", 3, dist::Uniform, dist::UniformInterval, "x, low, high", "constant from low to high", "UniformDist(3, 2, 6)", 0.25),
    Real("TriangularEnd3Dist", 4, dist::TriangularEnd3, dist::TriangularEnd3Interval, "x, low, mode, high", "rises from low to mode and falls to high", "TriangularEnd3Dist(1, 0, 2, 4)", 0.25),
    Real("Triangular3Dist", 4, dist::Triangular3, dist::Triangular3Interval, "x, mode, left, right", "rises from mode - left to mode and falls to mode + right", "Triangular3Dist(1, 2, 2, 2)", 0.25),
    Real("LognormalDist", 3, dist::Lognormal, dist::LognormalInterval, "x, mu, sigma", "ln x is normal with mean mu and standard deviation sigma; x > 0", "LognormalDist(1, 0, 1)", 0.3989422804014327),
    Real("NormalDist", 3, dist::Normal, dist::NormalInterval, "x, mean, sd", "normal (Gaussian); sd > 0", "NormalDist(0, 0, 1)", 0.3989422804014327),
    Real("WeibullDist", 3, dist::Weibull, dist::WeibullInterval, "x, shape, scale", "exp(-(x / scale)^shape) is the probability of more than x; x >= 0", "WeibullDist(1, 1, 1)", 0.36787944117144233),
    Real("GammaDist", 3, dist::GammaDist, dist::GammaDistInterval, "x, shape, scale", "mean shape * scale; x >= 0", "GammaDist(1, 1, 1)", 0.36787944117144233),
    Real("Beta4Dist", 5, dist::Beta4, dist::Beta4Interval, "x, a, b, low, high", "beta, stretched from 0 to 1 to low to high", "Beta4Dist(2, 2, 2, 0, 4)", 0.375),
    Real("BetaDist", 3, dist::BetaDist, dist::BetaDistInterval, "x, a, b", "proportional to x^(a-1) (1-x)^(b-1) for 0 <= x <= 1; mean a / (a + b)", "BetaDist(0.5, 2, 2)", 1.5),
    Real("ExponentialDist", 2, dist::Exponential, dist::ExponentialInterval, "x, rate", "mean 1 / rate; x >= 0", "ExponentialDist(0, 2)", 2),
    Real("BetaPertDist", 4, dist::BetaPert, dist::BetaPertInterval, "x, low, mode, high", "beta on low to high with mean (low + 4 mode + high) / 6", "BetaPertDist(2, 0, 2, 4)", 0.46875),
    Real("LogisticDist", 3, dist::LogisticDist, dist::LogisticDistInterval, "x, mean, scale", "1 / (1 + exp(-(x - mean) / scale)) is the probability of at most x", "LogisticDist(0, 0, 1)", 0.25),
    Real("LaplaceDist", 3, dist::Laplace, dist::LaplaceInterval, "x, mean, scale", "exponential to both sides of the mean", "LaplaceDist(0, 0, 1)", 0.5),
    Real("ParetoDist", 3, dist::Pareto, dist::ParetoInterval, "x, shape, low", "(low / x)^shape is the probability of more than x; x >= low > 0", "ParetoDist(1, 2, 1)", 2),
    Real("ExtremeValueDist", 3, dist::ExtremeValue, dist::ExtremeValueInterval, "x, mode, scale", "Gumbel, of largest values: exp(-exp(-(x - mode) / scale)) is the probability of at most x", "ExtremeValueDist(0, 0, 1)", 0.36787944117144233),
    Real("CauchyDist", 3, dist::Cauchy, dist::CauchyInterval, "x, median, scale", "half of the mass within scale of the median; no mean", "CauchyDist(0, 0, 1)", 0.3183098861837907),
    Real("LevyDist", 3, dist::Levy, dist::LevyInterval, "x, low, scale", "erfc(sqrt(scale / (2 (x - low)))) is the probability of at most x; x > low", "LevyDist(1, 0, 1)", 0.24197072451914337),
    Real("StudentTDist", 2, dist::StudentT, dist::StudentTInterval, "x, df", "Student's t; df > 0, not only whole", "StudentTDist(0, 1)", 0.3183098861837907),
    Real("ChiSquareDist", 2, dist::ChiSquare, dist::ChiSquareInterval, "x, df", "sum of df squares of standard normals; x >= 0", "ChiSquareDist(2, 2)", 0.18393972058572117),
    Real("SingleDist", 2, dist::Single, dist::SingleInterval, "x, value", "x is value with certainty", "SingleDist(3, 3)", 1),
    Real("FDist", 3, dist::FDist, dist::FDistInterval, "x, df1, df2", "Fisher's F: ratio of two chi-squares, each over its df; x >= 0", "FDist(1, 2, 2)", 0.25),
    Whole("_BernoulliDist", 2, dist::Bernoulli, dist::BernoulliInterval, "k, p", "k is 1 with probability p, else 0", "_BernoulliDist(1, 0.3)", 0.3),
    Dist("BernoulliDist", 2, dist::Bernoulli, dist::BernoulliInterval, BOO, REA, DISCRETE_DISTS, PLAIN_FORM, "b, p", "b is true with probability p", "BernoulliDist(false, 0.3)", 0.7),
    Whole("BinomialDist", 3, dist::BinomialDist, dist::BinomialDistInterval, "k, n, p", "successes in n trials that each succeed with probability p", "BinomialDist(1, 3, 0.5)", 0.375),
    Whole("DiscUniformDist", 3, dist::DiscUniform, dist::DiscUniformInterval, "k, low, high", "each whole number from low to high equally probable", "DiscUniformDist(2, 1, 4)", 0.25),
    Whole("HypergeometricDist", 4, dist::Hypergeometric, dist::HypergeometricInterval, "k, n, s, m", "successes in n draws without replacement from m things of which s are successes", "HypergeometricDist(1, 2, 2, 4)", 0.6666666666666666),
    Whole("PoissonDist", 2, dist::Poisson, dist::PoissonInterval, "k, mean", "events that happen independently, mean of them on average", "PoissonDist(0, 1)", 0.36787944117144233),
    Whole("GeometricDist", 2, dist::Geometric, dist::GeometricInterval, "k, p", "failures before the first success", "GeometricDist(2, 0.5)", 0.125),
    Whole("NegBinomialDist", 3, dist::NegBinomial, dist::NegBinomialInterval, "k, r, p", "failures before the r-th success; r > 0, not only whole", "NegBinomialDist(1, 2, 0.5)", 0.25),
    Dist("MultinomialDist", 0, dist::MultinomialDist, nullptr, INT, REA, DISCRETE_DISTS, PLAIN_FORM, "n, k1, p1, k2, p2, ..., p_last", "n trials give outcome i k_i times, and the last outcome the rest of the times; the probabilities are divided by their sum", "MultinomialDist(3, 1, 0.5, 0.5)", 0.375),
    Whole("LogarithmicDist", 2, dist::Logarithmic, dist::LogarithmicInterval, "k, p", "log-series: proportional to p^k / k for k = 1, 2, ...; 0 < p < 1", "LogarithmicDist(1, 0.5)", 0.7213475204444817),
    Noisy("NoisyOrDist", dist::NoisyOr, nullptr, BOO, REA, NOISY_OR_FORM, "e, leak, b1, p1, b2, p2, ...", "each true b_i alone makes e true with probability p_i, and unknown causes do with probability leak", "NoisyOrDist(true, 0.1, true, 0.5)", 0.55),
    Noisy("NoisyOrMultiDist", dist::NoisyOrMulti, nullptr, STA, REA, NOISY_MULTI_FORM, "x, num_states, leak, b1, s1, p1, b2, s2, p2, ...", "each true b_i alone raises x to state s_i with probability p_i, and unknown causes raise it to one of the states above 0 (all alike) with probability leak; x is the highest state that it is raised to, 0 if none", "NoisyOrMultiDist(2, 3, 0, true, 2, 0.4)", 0.4),
    Noisy("NoisyMaxTableDist", dist::NoisyMaxTable, nullptr, STA, REA, NOISY_TABLE_FORM, "x, num_states, leak_0, leak_1, ..., parent1, p_0_0, p_0_1, ..., p_1_0, ..., parent2, ...", "x is the largest of independent contributions: one from the leak and one from each parent, whose states each have a list of num_states probabilities", "", 0),
    Noisy("NoisyAndDist", dist::NoisyAnd, nullptr, BOO, REA, NOISY_OR_FORM, "e, inhibit, b1, p1, b2, p2, ...", "each false b_i alone keeps e false with probability p_i, and unknown causes do with probability inhibit", "NoisyAndDist(true, 0.1, false, 0.5)", 0.45),
    Noisy("NoisySumTableDist", dist::NoisySumTable, dist::NoisySumTableInterval, REA, REA, NOISY_TABLE_FORM, "x, num_pairs, p_1, amount_1, ..., parent1, p_0_1, amount_0_1, ..., p_1_1, ..., parent2, ...", "x is the sum of independent amounts: one from the base and one from each parent, whose states each have a list of num_pairs pairs of probability and amount; what the probabilities leave is an amount of 0.  Only for tables of a continuous node with thresholds", "", 0),
};

constexpr ConstantDef kConstants[] = {
    {"pi", REA, 3.141592653589793, "circumference of a circle of diameter 1"},
    {"deg", REA, 0.017453292519943295, "radians per degree"},
    {"Infinity", REA, std::numeric_limits<double>::infinity(), "greater than every number"},
    {"true", BOO, 1, ""},
    {"false", BOO, 0, ""},
};
// clang-format on

constexpr const char* kTypeNames[] = {"none", "boolean", "state", "integer", "real", "numeric", "any"};

constexpr const char* kOrdinals[] = {
    "zeroth",     "first",     "second",    "third",       "fourth",     "fifth",      "sixth",
    "seventh",    "eighth",    "ninth",     "tenth",       "eleventh",   "twelfth",    "thirteenth",
    "fourteenth", "fifteenth", "sixteenth", "seventeenth", "eighteenth", "nineteenth", "twentieth"};

template <class Row>
const Row* FindRow(std::span<const Row> rows, std::string_view name)
{
    static const auto* const index = [&] {
        auto* made = new std::unordered_map<std::string_view, const Row*>;
        for (const Row& row : rows) made->emplace(row.name, &row);
        return made;
    }();
    const auto found = index->find(name);
    return found == index->end() ? nullptr : found->second;
}

// The longest symbol that the text begins with: "<=" before "<".
const FunctionDef* FindOperator(std::string_view text, bool prefix)
{
    const FunctionDef* best = nullptr;
    for (const FunctionDef& def : kFunctions) {
        const std::string_view symbol = def.symbol;
        if (symbol.empty() || (def.arity == 1) != prefix || !text.starts_with(symbol)) continue;
        if (best == nullptr || symbol.size() > std::string_view(best->symbol).size()) best = &def;
    }
    return best;
}

constexpr const char* kSectionTitles[NUM_SECTIONS] = {
    "Operators", "Functions", "Distributions of real numbers", "Distributions of whole numbers and outcomes",
    "Noisy gates and tables"};

constexpr const char* kReferenceIntro =
    "<!-- Written by: talora calc --functions -->\n"
    "# The functions of equations\n\n"
    "Types: boolean, state, integer, real, numeric (integer or real), any.  The undefined value comes from\n"
    "what cannot be computed; a table cannot be made where an equation is undefined.\n";

// "|" would end a cell of the table.
std::string Cell(std::string_view text)
{
    std::string cell;
    for (const char c : text) cell += c == '|' ? std::string("\\|") : std::string(1, c);
    return cell;
}

std::string TypesOf(const FunctionDef& def)
{
    std::string types = TypeName(def.first);
    if (def.arity != 1 && def.rest != def.first) types += std::string(", ") + TypeName(def.rest);
    return types + (def.arity == 0 ? "..." : "") + " -> " + TypeName(def.result);
}

std::string CallOf(const FunctionDef& def)
{
    std::string call = "`" + std::string(def.name) + " (" + def.parameters + ")`";
    if (*def.symbol == '\0') return call;
    return call + " `" + def.symbol + (*def.second ? std::string(" ") + def.second : "") + "`";
}

std::string ExampleOf(const FunctionDef& def)
{
    if (*def.example == '\0') return "";
    const std::string value =
        def.result == BOO ? (def.example_value != 0 ? "true" : "false") : FormatReal15(def.example_value);
    return "`" + std::string(def.example) + "` is " + value;
}

// Sections in the order of the table, then constants and units.
std::string MakeReference()
{
    std::string page = kReferenceIntro;
    for (int section = 0; section < NUM_SECTIONS; ++section) {
        page += std::string("\n## ") + kSectionTitles[section] + "\n\n";
        if (section == OPERATORS)
            page += "Strongest first where the strength is greater; each can also be called by its name.\n\n";
        page += section == OPERATORS
                    ? "| Operator | Strength | Types | Meaning | Example |\n|---|---|---|---|---|\n"
                    : "| Function | Types | Meaning | Example |\n|---|---|---|---|\n";
        for (const FunctionDef& def : kFunctions) {
            if (def.section != section) continue;
            page += "| " + Cell(CallOf(def)) + " | ";
            if (section == OPERATORS) page += std::to_string(def.strength) + " | ";
            page += Cell(TypesOf(def)) + " | " + Cell(def.meaning) + " | " + Cell(ExampleOf(def)) + " |\n";
        }
    }
    page += "\n## Constants\n\n| Name | Type | Value | Meaning |\n|---|---|---|---|\n";
    for (const ConstantDef& def : kConstants)
        page += std::string("| `") + def.name + "` | " + TypeName(def.type) + " | " +
                (std::isinf(def.value) ? "infinity" : FormatShortest(def.value)) + " | " + def.meaning +
                " |\n";
    page +=
        "\n## Units\n\nBehind a number: `30 deg`, `5 percent`, `3 kilo`.\n\n| Unit | Factor | Meaning |\n|---|---|---|\n";
    for (const UnitDef& def : UnitTable())
        page += std::string("| `") + def.name + "` | " + FormatShortest(def.factor) + " | " + def.meaning +
                " |\n";
    return page;
}

}  // namespace

const char* TypeName(EqnType type)
{
    return kTypeNames[type];
}

const char* OrdinalWord(int number)
{
    if (number >= 0 && number < static_cast<int>(std::size(kOrdinals))) return kOrdinals[number];
    thread_local char text[16];
    snprintf(text, sizeof text, "%s", Ordinal(number).c_str());
    return text;
}

std::span<const FunctionDef> FunctionTable()
{
    return kFunctions;
}

std::span<const ConstantDef> ConstantTable()
{
    return kConstants;
}

const FunctionDef* FindFunction(std::string_view name)
{
    return FindRow(FunctionTable(), name);
}

const ConstantDef* FindConstant(std::string_view name)
{
    return FindRow(ConstantTable(), name);
}

const UnitDef* FindUnit(std::string_view name)
{
    return FindRow(UnitTable(), name);
}

const FunctionDef* FindPrefixOperator(std::string_view text)
{
    return FindOperator(text, true);
}

const FunctionDef* FindBinaryOperator(std::string_view text)
{
    return FindOperator(text, false);
}

int LeastArguments(const FunctionDef& def)
{
    if (def.arity > 0) return def.arity;
    return def.form == NOISY_TABLE_FORM ? 1 : 0;
}

const char* EquationReference()
{
    static const std::string page = MakeReference();
    return page.c_str();
}

}  // namespace talora
