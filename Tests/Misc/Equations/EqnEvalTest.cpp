#include "Misc/Equations/EqnEval.h"

#include <pthread.h>
#include <algorithm>
#include <bit>

#include "Misc/Equations/EqnCompile.h"
#include "Misc/Equations/EqnPrint.h"
#include "Misc/Equations/EqnTestKit.h"

namespace talora {
namespace {

// The value by both evaluators, which must agree to the bit; NaN and the reason for undefined.
double Calc(const Equation& eqn, std::vector<double> values, std::string* why = nullptr)
{
    values.resize(std::max<size_t>(1, eqn.variables.size()));
    EqnScratch scratch(eqn);
    const double tree = Evaluate(eqn, values.data(), scratch);
    const EqnProgram program = CompileEquation(eqn);
    std::vector<double> stack(program.stack_size);
    EqnReason failure;
    const double flat = Run(program, values.data(), stack.data(), failure);
    EXPECT_TRUE((std::isnan(tree) && std::isnan(flat)) ||
                std::bit_cast<uint64_t>(tree) == std::bit_cast<uint64_t>(flat))
        << eqn.text << ": " << tree << " by the tree, " << flat << " by the program";
    EXPECT_STREQ(scratch.failure.text, failure.text);
    if (why) *why = scratch.failure.text;
    return tree;
}

double Calc(const std::string& formula, std::string* why = nullptr)
{
    return Calc(ParseFormula(formula, {}, nullptr), {}, why);
}

// Every row of the table shows an example, which the reference page prints.
TEST(EqnEval, ExamplesOfTheTableHold)
{
    int without = 0;
    for (const FunctionDef& def : FunctionTable()) {
        SCOPED_TRACE(def.name);
        if (*def.example == '\0') {
            ++without;
            continue;
        }
        const double value = Calc(def.example);
        EXPECT_NEAR(value, def.example_value, 1e-14 * std::max(1.0, std::fabs(def.example_value)));
    }
    EXPECT_EQ(without, 3) << "AsState and the noisy tables need variables";
}

// Chains and lists of any length: nothing recurses, and what is printed parses to the same tree.
TEST(EqnEval, TakesChainsOfAnyLength)
{
    const auto repeat = [](const std::string& text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) all += text;
        return all;
    };
    const int n = 6000;
    const struct {
        const char* label;
        std::string formula;
        double value;  // for v = 1
    } cases[] = {
        {"minus", "0" + repeat(" - v", n), -n},
        {"mixed", "0" + repeat(" - v + 2", n), n},
        {"plus", "v" + repeat(" + v", n), n + 1},
        {"power", repeat("v ^ ", n) + "2", 1},
        {"else", repeat("v<0?0:", n) + "7", 7},
        {"and", "v > 0" + repeat(" && v > 0", n), 1},
        {"truth of conditionals", "!(" + repeat("v<0?v>0:", n) + "v<0)", 1},
        {"arguments", "max(" + repeat("v, ", n) + "3)", 3},
        {"more than 16 bits of arguments", "max(" + repeat("1,", 32700) + "3)", 3},
        {"member", "member(v" + repeat(", 2", n) + ")", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const std::vector<EqnVariable> variables = MakeVariables("v:~");
        const Equation eqn = ParseFormula(c.formula, variables, nullptr);
        EXPECT_EQ(Calc(eqn, {1}), c.value);
        const std::string printed = PrintEquation(eqn);
        if (printed.size() <= kMaxEqnText) {
            EXPECT_TRUE(SameTree(eqn, ParseFormula(printed, variables, nullptr)));
        }
    }
}

TEST(EqnEval, ParticularValues)
{
    const double inf = std::numeric_limits<double>::infinity(), nan = kUndefinedEqn;
    const struct {
        const char* formula;
        double value;
    } cases[] = {
        {"plus()", 0},
        {"mult()", 1},
        {"max()", nan},
        {"avg()", nan},
        {"argmin0()", nan},
        {"select0()", nan},
        {"select1(1)", nan},
        {"0 * Infinity", 0},
        {"mult(0, log(-1))", 0},
        {"Infinity * 0 * 5", 0},
        {"0 / 0", 0},
        {"1 / 0", nan},
        {"0 ^ 0", nan},
        {"2 ^ -1", 0.5},
        {"-2 ^ 2", 4},
        {"neg(2 ^ 2)", -4},
        {"7 % -3", -2},
        {"5 % 0", nan},
        {"5.5 % 2", nan},
        {"-6 % 3", 0},
        {"0 ~= 1e-300", 0},
        {"0 ~= 0", 1},
        {"1 ~= 0.99998", 1},
        {"1 ~= 0.99997", 0},
        {"-1 ~= 1", 0},
        {"eqnear(0.5, 1, 2)", 1},
        {"eqnear(0.49, 1, 2)", 0},
        {"log(0)", nan},
        {"log(-1)", nan},
        {"log10(0)", nan},
        {"sqrt(-1)", nan},
        {"asin(2)", nan},
        {"round(2.5)", 3},
        {"round(-2.5)", -2},
        {"roundto(0, 3)", nan},
        {"roundto(0.25, 0.3)", 0.25},
        {"xor()", 0},
        {"xor(true, false, true)", 0},
        {"factorial(-1)", nan},
        {"factorial(2.5)", nan},
        {"factorial(170)", 7.257415615307994e306},
        {"factorial(171)", inf},
        {"gamma(-0.5)", nan},
        {"loggamma(0)", inf},
        {"beta(0, 1)", nan},
        {"erf(-0.5)", -0.5204998778130465},
        {"erfc(-1)", 1.8427007929497148},
        {"erfc(20)", 5.395865611607901e-176},
        {"logit(0)", nan},
        {"logit(1)", nan},
        {"logistic(-701)", 0},
        {"logistic(1000)", 1},
        {"binomial(3, 4)", nan},
        {"binomial(60, 30)", 118264581564861424.0},
        {"binomial(5.5, 2)", nan},
        {"argmax0(1, 3, 3)", 1},
        {"argmin1(2, 1, 1)", 2},
        {"nearest0(5)", nan},
        {"nearest0(3, 2, 4)", 0},
        {"_find0(5.1, 1, 5, 10)", nan},
        {"_find0(0, 1, 0)", 1},
        {"member(0, 1e-300, 1)", 0},
        {"member(1, 1.000000001)", 1},
        {"discretize(5)", 0},
        {"discretize(10, 10, 20)", 1},
        {"discretize(25, 10, 20)", 2},
        {"select0(3, 1, 2)", nan},
        {"select0(-0.5, 7)", 7},
        {"select0(1.9, 5, 6)", 6},
        {"select1(0, 1, 2)", nan},
        {"select0(0, 1, log(-1))", 1},
        {"true ? 1 : log(-1)", 1},
        {"log(-1) > 0 ? 1 : 2", nan},
        {"false && log(-1) > 0", 0},
        {"true && log(-1) > 0", nan},
        {"log(-1) > 0 || true", 1},
        {"log(-1) == log(-1)", nan},
        {"min(1, log(-1))", nan},
        {"mag(3e200, 4e200)", 5e200},
        {"Infinity - Infinity", nan},
        {"frac(2.25)", 0.25},
        {"5 percent", 0.05},
        {"3k + 2 kilo", 5000},
        {"180 deg == pi", 1},
        {"clip(-1, 0, 1)", 0},
        {"clip(1, 2, 0)", nan},
        {"multinomial(3, -1)", nan},
        {"AllUnique()", 1},
        {"increasing()", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.formula);
        const double value = Calc(c.formula);
        if (std::isnan(c.value) || std::isinf(c.value)) {
            EXPECT_TRUE(std::isnan(c.value) ? std::isnan(value) : value == c.value) << value;
        } else {
            EXPECT_NEAR(value, c.value, 1e-13 * std::fabs(c.value));
        }
    }
}

// States are compared by name, booleans by what their names mean, levels by value.
TEST(EqnEval, ReadsVariablesAsTheContextWants)
{
    constexpr const char* kVariables =
        "x:low,high; a:[1,2,5]; d:~[0,1,2]; e:~[2,1,0]; s:red,green,blue; t:blue,red; u:#3; v:true,false; w:no,yes; m:red,blue[10,20]";
    const struct {
        const char* text;
        std::vector<double> values;
        double value;
    } cases[] = {
        {"x(a) = a * 2", {0, 2}, 10},
        {"x(a) = #a * 2", {0, 2}, 4},
        {"x(a) = a == 5", {0, 2}, 1},
        {"x(a) = #a == 2", {0, 2}, 1},
        {"x(a) = a == #2", {0, 2}, 1},
        {"x(u) = u + 1", {0, 2}, 3},
        {"x(s, t) = s == t", {0, 2, 0}, 1},
        {"x(s, t) = s == t", {0, 0, 0}, 0},
        {"x(s, t) = t != s", {0, 1, 0}, 1},
        {"x(s, t) = s == blue && t == blue", {0, 2, 0}, 1},
        {"x(s, t, v) = (v ? s : t) == red", {0, 1, 1, 1}, 1},
        {"x(s, t) = member(s, t, green)", {0, 1, 1}, 1},
        {"x(s, t) = AllUnique(s, t)", {0, 0, 1}, 0},
        {"x(s, m) = s == m", {0, 2, 1}, 1},
        {"x(m) = m > 15", {0, 1}, 1},
        {"x(v, w) = v && w", {0, 0, 1}, 1},
        {"x(v, w) = v == w", {0, 1, 0}, 1},
        {"x(v, w) = v == true && w == false", {0, 0, 0}, 1},
        {"x(v) = NumberTrue(v, !v, true)", {0, 1}, 2},
        {"x(s) = s == red ? low : high", {0, 2}, 1},
        {"x(v) = v ? #0 : #1", {0, 1}, 1},
        {"x(d) = #d == 1", {0, 1.0}, 1},
        {"x(d) = #d", {0, 2.0}, 1},
        {"x(e) = #e", {0, 0.5}, 1},
        {"x(e) = #e", {0, 1.5}, 0},
        {"P (x | v) = NoisyOrDist(x == high, 0.1, v, 0.5)", {1, 0}, 0.55},
        {"P (s | t) = s == t", {2, 0}, 1},
        {"P (s | v) = NoisyMaxTableDist(s, 3, 1, 0, 0, v, 0, 0.5, 0.5, 0.2, 0.8, 0)", {1, 0}, 0.5},
        {"P (s | v) = NoisyMaxTableDist(s, 3, 0.5, 0.5, 0, v, 0, 0.5, 0.5, 0.2, 0.8, 0)", {1, 1}, 0.9},
        {"P (u | v) = BinomialDist(u, 2, v ? 0.5 : 0.1)", {1, 0}, 0.5},
        {"P (s | v) = BinomialDist(s, 2, 0.5)", {1, 0}, 0.5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        // The output is the variable that the head names.
        std::vector<EqnVariable> variables = MakeVariables(kVariables);
        const std::string head = c.text[0] == 'P' ? std::string(1, c.text[3]) : "x";
        std::stable_partition(variables.begin(), variables.end(),
                              [&](const EqnVariable& v) { return v.name == head; });
        EXPECT_EQ(MessageOf([&] {
                      EXPECT_NEAR(Calc(ParseEquation(c.text, variables, nullptr), c.values), c.value, 1e-15);
                      return std::string();
                  }),
                  "");
    }
    // The state of a node by the nearest level.
    const EqnVariable levels = MakeVariable("x:[10,1,4]");
    EXPECT_EQ(NearestLevel(levels, 2.5), 1) << "the lower of equals";
    EXPECT_EQ(NearestLevel(levels, 1e9), 0);
}

TEST(EqnEval, ReportsWhatIsWrong)
{
    const struct {
        const char* formula;
        const char* reason;
    } cases[] = {
        {"MultinomialDist(3, 1, 0.5)", "less than 4 arguments to MultinomialDist"},
        {"MultinomialDist(2.5, 1, 0.5, 0.5)", "n of MultinomialDist must be an integer, but it is 2.5"},
        {"MultinomialDist(3, 1, 0.5, 1, 0.5)", "odd number of arguments to MultinomialDist"},
        {"MultinomialDist(3, 1, 0, 0)", "sum of probability arguments passed to MultinomialDist is 0"},
        {"MultinomialDist(3, 1, 1, 0.5, 1, 1)", "k[1] of MultinomialDist must be an integer, but it is 0.5"},
        {"NoisyOrDist(true)", "less than 2 arguments to NoisyOrDist"},
        {"NoisyOrDist(true, 0.1, true)", "odd number of arguments to NoisyOrDist"},
        {"NoisyAndDist(true)", "less than 2 arguments to NoisyAndDist"},
        {"NoisyAndDist(true, 0.1, true)", "odd number of arguments to NoisyAndDist"},
        {"NoisyOrMultiDist(1, 2)", "less than 3 arguments to NoisyOrMultiDist"},
        {"NoisyOrMultiDist(1, 2, 0.1, true)",
         "missing final state and probability of last clause in NoisyOrMultiDist"},
        {"NoisyOrMultiDist(1, 2, 0.1, true, 1)",
         "missing final probability of last clause in NoisyOrMultiDist"},
        {"NoisyOrMultiDist(1, 0, 0.1)",
         "second argument (num_states) to NoisyOrMultiDist must be at least 1, but it is 0"},
        {"NoisyOrMultiDist(1, 2, 1.5)",
         "third argument is 1.5, but it should be in [0,1] range since it is a probability for NoisyOrMultiDist"},
        {"1 + AsState(2)", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.formula);
        std::string why;
        const std::string message = MessageOf([&] {
            EXPECT_TRUE(std::isnan(Calc(c.formula, &why)));
            return why;
        });
        if (c.reason) {
            EXPECT_EQ(message, "error evaluating function:  " +
                                   std::string(c.formula).substr(0, message.find(" (") - 28) + " (" +
                                   c.reason + ")");
        }
    }
    std::string why;
    const Equation eqn = ParseEquation("x(a, b) = a > 0 ? a : b", MakeVariables("x:~; a:~; b:~"), nullptr);
    EqnScratch scratch(eqn);
    const double values[] = {0, -1, kUndefinedEqn};
    EXPECT_TRUE(std::isnan(Evaluate(eqn, values, scratch)));
    EXPECT_STREQ(scratch.failure.text, "undefined value 'b'");
}

// Random formulas: the tree and the program give the same bits.
TEST(EqnEval, TreeAndProgramAgree)
{
    const char* const words[] = {"a", "b", "c", "0", "1", "2.5", "-3", "pi", "Infinity"};
    const char* const conditions[] = {"a < b",           "c >= 1",   "true",          "a == b",
                                      "b != 0 && c > a", "!(a > c)", "a < 0 || b < 0"};
    uint32_t seed = 5;
    const auto pick = [&](size_t n) { return (seed = seed * 1664525u + 1013904223u) / 65536u % n; };
    const auto make = [&](auto& self, int depth) -> std::string {
        if (depth == 0) return words[pick(std::size(words))];
        const std::string x = self(self, depth - 1), y = self(self, depth - 1);
        switch (pick(14)) {
            case 0:
                return "(" + x + " + " + y + ")";
            case 1:
                return "(" + x + " - " + y + ")";
            case 2:
                return "(" + x + " * " + y + ")";
            case 3:
                return "(" + x + " / " + y + ")";
            case 4:
                return "(" + x + " ^ " + y + ")";
            case 5:
                return "(" + x + " % " + y + ")";
            case 6:
                return "min(" + x + ", " + y + ", 2)";
            case 7:
                return "max(" + x + ", " + y + ")";
            case 8:
                return "neg(" + x + ")";
            case 9:
                return "sqrt(abs(" + x + "))";
            case 10:
                return "exp(" + x + ")";
            case 11:
                return "select0(a, " + x + ", " + y + ", b)";
            case 12:
                return "round(" + x + ")";
            default:
                return "(" + std::string(conditions[pick(std::size(conditions))]) + " ? " + x + " : " + y +
                       ")";
        }
    };
    const auto variables = MakeVariables("a:~; b:~; c:~");
    const double values[] = {0.0, 1.0, -2.0, 0.5, 3e8};
    for (int i = 0; i < 3000; ++i) {
        const Equation eqn = ParseFormula(make(make, 4), variables, nullptr);
        for (int k = 0; k < 4; ++k) Calc(eqn, {values[pick(5)], values[pick(5)], values[pick(5)]});
    }
}

// The deepest equations fit a small stack.
TEST(EqnEval, DeepestTreesNeedLittleStack)
{
    std::string text, powers = "1";
    for (int i = 0; i < 249; ++i) text += "sqrt(";
    text += "c";
    for (int i = 0; i < 249; ++i) text += ")", powers += " ^ 1";
    double roots = 0, power = 0;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    auto work = [&] {
        roots = Calc(ParseFormula(text, MakeVariables("c:~"), nullptr), {16});
        power = Calc(powers);
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* w) -> void* {
                      (*static_cast<decltype(work)*>(w))();
                      return nullptr;
                  },
                  &work),
              0);
    pthread_join(thread, nullptr);
    EXPECT_NEAR(roots, 1, 1e-12);
    EXPECT_EQ(power, 1);
}

}  // namespace
}  // namespace talora
