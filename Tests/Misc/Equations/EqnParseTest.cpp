#include "Misc/Equations/EqnParse.h"

#include "Misc/Equations/EqnPrint.h"
#include "Misc/Equations/EqnTestKit.h"

namespace talora {
namespace {

// x has two states, a and b are numbers, c is continuous, s and t have named states, u unnamed ones.
constexpr const char* kVariables =
    "x:low,high; a:[1,2,5]; b:[0,10]; c:~; d:~[0,1,2]; s:red,green,blue; t:blue,red; u:#3; v:true,false; w:yes,no; y:p,q";

std::string Repeat(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

std::string Parsed(const std::string& text, int* place = nullptr)
{
    return MessageOf([&] { return PrintEquation(ParseEquation(text, MakeVariables(kVariables), place)); });
}

// Parses to the tree whose text this is; "" for the same text.
TEST(EqnParse, GroupsOperators)
{
    const struct {
        const char* text;
        const char* printed;
    } cases[] = {
        {"x (a, b) = a - b - 1 > 0", ""},
        {"f(a,b)=(a-b)-1>0", "x (a, b) = a - b - 1 > 0"},
        {"x (a, b) = a - (b - 1) > 0", ""},
        {"x (a, b) = a + (b + 1) > 0", "x (a, b) = a + b + 1 > 0"},
        {"x (a, b) = min(a, min(b, 1)) > 0", "x (a, b) = min(a, b, 1) > 0"},
        {"x (a, b) = a ^ b ^ 2 > 0", ""},
        {"x (a, b) = (a ^ b) ^ 2 > 0", ""},
        {"x (a, b) = a ^ (b ^ 2) > 0", "x (a, b) = a ^ b ^ 2 > 0"},
        {"x (a, b) = a * b / 2 * 3 > 0", ""},
        {"x (a, b) = -a ^ 2 < - 3 + -3", "x (a, b) = -a ^ 2 < -(3) + -3"},
        {"x (a, b) = !(a < b) || a == b && true", ""},
        {"x (a, b) = (a < b || a == b) && true", ""},
        {"x (a, b) = (a < 1 ? b : a < 2 ? 3 : 4) > 2", ""},
        {"x (a, b) = plus(a) - neg(b) > if(a > b, 1, 2)", "x (a, b) = plus(a) - -b > (a > b ? 1 : 2)"},
        {"x (a) = a>30 deg&&sin(a)<5 percent", "x (a) = a > 30 deg && sin(a) < 5 percent"},
        {"x (a) = high", ""},
        {"x (a) = #1", ""},
        {"x (s, t) = s == red ? low : #t == #1 ? high : low", ""},
        {"x (s, t) = red--s == t && s != blue", ""},
        {"x (s) = red == s", ""},
        {"x (d) = #d == 1", ""},
        {"P (x | a, b) = x == low ? 0.25 : 0.75", ""},
        {"P(x,a)=NormalDist(a,0,1)", "P (x | a) = NormalDist(a, 0, 1)"},
        {"P (x) = 0.5", ""},
        {"P(x|)=0.5", "P (x) = 0.5"},
        {"x () = low", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string printed = Parsed(c.text);
        EXPECT_EQ(printed, *c.printed ? c.printed : c.text);
        EXPECT_EQ(Parsed(printed), printed);
    }
}

TEST(EqnParse, RefusesMistakes)
{
    const struct {
        std::string text;
        const char* message;
        int place;
    } cases[] = {
        {"z(a) = a", "-2460: 'z' is not the correct name for the output variable", 0},
        {"P(z | a) = a", "-2460: 'z' is not the correct name for the output variable", 2},
        {"x = a", "-2026: missing open parenthesis in function declaration", 2},
        {"x(a,a) = a", "-2030: repeated variable name", 4},
        {"x(a, q) = a",
         "-2459: unknown variable 'q' to the left of = in function definition (if links are named, remember to use link names instead of parent names)",
         5},
        {"x(a b) = a", "-2027: missing comma", 4},
        {"x(a; b) = a", "-2028: unexpected punctuation ';'", 3},
        {"x(a, ,b) = a", "-2029: unexpected punctuation ','", 5},
        {"x(a | b) = a", "-2028: unexpected punctuation '|'", 4},
        {"x(a) a", "-2031: missing '=' in function definition", 5},
        {"x(a) = ", "-2494: missing equation after '=' symbol in function definition", 7},
        {"x(a", "-2492: missing end of equation", 3},
        {"x(a) = (", "-2492: missing end of equation", 8},
        {"x(a) = a + 1)", "-2033: character ')' unexpected", 12},
        {"x(a) = (a + 1", "-2034: missing close parenthesis", 13},
        {"x(a) = ()", "-2032: unexpected close parenthesis", 8},
        {"x(a) = a @ 1", "-2033: character '@' unexpected", 9},
        {"x(a) = a \xC3\xA9", "-2033: character '\xC3\xA9' unexpected", 9},
        {"x(a,b) = a + b + c", "-2091: unknown name 'c'", 17},
        {"x(a) = #2",
         "-2091: unknown name '2' (was trying to interpret it as a state name, since it is preceeded by #)",
         7},
        {"x(a) = #nix",
         "-2091: unknown name 'nix' (was trying to interpret it as a state name, since it is preceeded by #)",
         7},
        {"x(s) = pink--s == s", "-2464: 'pink--s' refers to pink, which is not a state of s", 7},
        {"x(s) = red--t == s", "-2356: 'red--t' refers to unknown variable 't'", 7},
        {"x(c) = #c > 1",
         "-2480: continuous variable 'c' is preceeded with a state indicator #, but it hasn't been discretized",
         7},
        {"x(c) = #sin(c)",
         "-2479: the name after a state indicator # is followed by an open parenthesis:  # sin (", 8},
        {"x(c) = #1.5", "-2477: state indicator # is followed by a number (1.5) that is not an integer", 8},
        {"x(c) = #1 deg", "-2478: state indicator # is followed by a number that has units (#1 deg)", 8},
        {"x(a) = cosin(a)", "-2355: unknown function 'cosin'", 7},
        {"x(a) = sin(a, 1)", "-2325: too many arguments for function 'sin' (requires 1)", 7},
        {"x(a) = atan2(a)", "-2038: too few arguments for function 'atan2' (requires 2, but 1 supplied)", 7},
        {"x(a) = max(a,,1)", "-2497: missing second argument of function max", 13},
        {"x(a) = max(a b)",
         "-2369: missing comma or close parenthesis, or malformed expression in function 'max'", 13},
        {"x(a) = sin(a > 1)",
         "-2326: first argument of function 'sin' should be of type real, but it is type boolean", 13},
        {"x(a, s) = select0(a, s, 2)",
         "-2467: third argument of function 'select0' is of type integer, which is not compatible with the other argument(s) of type state",
         24},
        {"x(a) = a +", "-2496: missing second argument of operator +", 10},
        {"x(a) = * a", "-2496: missing first argument of operator *", 7},
        {"x(a) = !", "-2495: argument of operator '!' is missing", 8},
        {"x(a) = !a",
         "-2465: attempt to use variable 'a' as a boolean in function 'not', but it doesn't have 2 states (it has 3)",
         8},
        {"x(a) = !(a + 1)",
         "-2322: argument of operator '!' should be of type 'boolean', but it is type integer", 11},
        {"x(s) = s < 1",
         "-2323: the first argument of operator '<' should be of type 'numeric', but it is type 'state'", 7},
        {"x(s) = 1 < s",
         "-2324: the second argument of operator '<' should be type 'numeric', but it is type 'state'", 11},
        {"x(s) = s == 1",
         "-2036: the second argument of operator '==' is of type 'integer', which is not compatible with the other argument(s) (of type 'state')",
         12},
        {"x(a) = a > 1 ? low", "-2035: missing ':' for '?' operator", 18},
        {"x(s, a) = s == a",
         "-2463: equation equality test of a variable having state names to one without (s and a)", 12},
        {"x(a) = x == low",
         "-2439: 'x' appears as a variable on the right hand side of the = symbol, but it is the output value (which is not allowed unless the equation is probabilistic, that is, starts with P)",
         7},
        {"P(x|a) = NoisyMaxTableDist(x)", "-2501: missing second argument of function NoisyMaxTableDist", 9},
        {"P(x|a) = NoisyMaxTableDist(1, 2, 1, 0)",
         "-2502: first argument of function NoisyMaxTableDist should be a variable (node), but it isn't", 27},
        {"P(x|a) = NoisyMaxTableDist(x, 2.5, 1, 0)",
         "-2504: second argument of function NoisyMaxTableDist should be an integer, but it isn't", 30},
        {"P(x|a) = NoisyMaxTableDist(x, 3, 1, 0)",
         "-2505: second argument of function NoisyMaxTableDist is 3, but it should be the number of states of the output variable (=2)",
         30},
        {"P(x|a) = NoisyMaxTableDist(x, 2, 1, true)",
         "-2506: fourth argument of function 'NoisyMaxTableDist' should be of type real, but it is type boolean",
         36},
        {"P(x|a) = NoisyMaxTableDist(x, 2, 1.5, 0)",
         "-2507: third argument of function NoisyMaxTableDist should be a probability (between 0 and 1), but it is 1.5",
         33},
        {"P(x|a) = NoisyMaxTableDist(x, 2, 0.5, 0.4)",
         "-2509: sum of probabilities for a condition of function NoisyMaxTableDist should be 1, but it is 0.9",
         38},
        {"P(x|y) = NoisyMaxTableDist(x, 2, 0.5, 0.5, y, 1, 0)",
         "-2512: function 'NoisyMaxTableDist' is missing its last arguments", 49},
        {"P(x|a) = NoisyMaxTableDist(x, 2 a)",
         "-2511: missing comma or close parenthesis, or malformed expression in function 'NoisyMaxTableDist'",
         32},
        {"P(x|c) = NoisySumTableDist(x, 1, 0.5, 2)",
         "-2535: x is not a continuous variable (node), however only continuous (but discretized) ones are allowed (in first argument of NoisySumTableDist)",
         27},
        {"P(x|d) = NoisySumTableDist(d, 1, 0.5, true)",
         "-2537: fourth argument of function 'NoisySumTableDist' should be of type real, but it is type boolean (perhaps wrong number of prob/amount pairs specified)",
         38},
        {"P(x|d) = NoisySumTableDist(d, 2, 0.5, 1, 0.6, 2)",
         "-2543: sum of probabilities for a condition of function NoisySumTableDist should not be more than 1, but it is 1.1",
         46},
        {"x(a) = 1e999 > a", "-6403: number '1e999' is too large or too small", 7},
        {"x(a) = a > " + Repeat("(", 250) + "a" + Repeat(")", 250), "x (a) = a > a", -1},
        {"x(a) = a > " + Repeat("(", 251) + "a" + Repeat(")", 251),
         "-6401: equation is nested too deeply (more than 250 levels)", 261},
        {"x(a) = " + Repeat("1 ^ ", 100000) + "a",
         "-6402: equation is too long (400008 characters, but at most 65536 are allowed)", 0},
        {"x(a) = " + Repeat("!", 60000) + "a", "-6401: equation is nested too deeply (more than 250 levels)",
         -1},
        {"x(s) = equal(1, green--s)",
         "-2467: first argument of function 'equal' is of type integer, which is not compatible with the other argument(s) of type state",
         -1},
        {"x(a) = plus(true, 1)",
         "-2326: first argument of function 'plus' should be of type numeric, but it is type boolean", -1},
        {"P(x|d, s) = NoisySumTableDist(d, 1, 0.5, red--s)",
         "-2508: fourth argument of function NoisySumTableDist should be a number, but it isn't", -1},
        {std::string("x(a) = a\0b", 10), "", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 80));
        int place = -2;
        const std::string message = Parsed(c.text, &place);
        if (*c.message) {
            EXPECT_EQ(message, c.message);
        }
        if (c.place >= 0) {
            EXPECT_EQ(place, c.place);
        }
    }
}

TEST(EqnParse, ChecksOutputsOfTruthValues)
{
    const auto parse = [](const char* variables, const char* text) {
        return MessageOf(
            [&] { return PrintEquation(ParseEquation(text, MakeVariables(variables), nullptr)); });
    };
    EXPECT_EQ(
        parse("x:#3; a:[1,2]", "x(a) = a > 1"),
        "-2461: attempt to assign a boolean expression to variable 'x', which doesn't have 2 states (it has 3)");
    EXPECT_EQ(parse("x:~; a:[1,2]", "x(a) = a > 1").substr(0, 5), "-2461");
    EXPECT_EQ(parse("x:left,right; a:[1,2]", "x(a) = a > 1"), "x (a) = a > 1") << "only a warning";
    EXPECT_EQ(parse("P:~; a:[1,2]", "P (a) = a + 1"), "P (a) = a + 1") << "a node called P";
    EXPECT_EQ(parse("P:~; a:[1,2]", "P (P | a) = 1"), "P (P | a) = 1");
}

// Random text over the language's words: what parses prints to the same tree.
TEST(EqnParse, PrintedTreesParseToThemselves)
{
    const char* const words[] = {"a",  "b",  "c",   "d",    "s", "t",   "u",  "v",      "w",
                                 "#s", "#u", "red", "true", "1", "2.5", "-3", "30 deg", "pi"};
    const char* const operators[] = {" + ",  " - ",  " * ",  " / ",  " % ",  " ^ ", " < ",
                                     " >= ", " == ", " != ", " && ", " || ", " ~= "};
    const char* const functions[] = {"min(", "max(",     "plus(", "sqrt(", "if(",        "and(",
                                     "xor(", "select0(", "neg(",  "not(",  "NormalDist("};
    uint32_t seed = 1;
    const auto pick = [&](size_t n) { return (seed = seed * 1664525u + 1013904223u) / 65536u % n; };
    const auto make = [&](auto& self, int depth) -> std::string {
        if (depth == 0) return words[pick(std::size(words))];
        switch (pick(6)) {
            case 0:
                return "(" + self(self, depth - 1) + ")";
            case 1:
                return std::string(pick(2) ? "-" : "!") + (pick(2) ? " " : "") + self(self, depth - 1);
            case 2:
                return self(self, depth - 1) + " ? " + self(self, depth - 1) + " : " + self(self, depth - 1);
            case 3: {
                std::string call = functions[pick(std::size(functions))] + self(self, depth - 1);
                for (size_t i = pick(3); i > 0; --i) call += ", " + self(self, depth - 1);
                return call + ")";
            }
            default:
                return self(self, depth - 1) + operators[pick(std::size(operators))] + self(self, depth - 1);
        }
    };
    const auto variables = MakeVariables(kVariables);
    int parsed = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string text =
            "P (x | a, b, c, d, s, t, u, v, w) = " + make(make, 1 + static_cast<int>(pick(4)));
        try {
            const Equation first = ParseEquation(text, variables, nullptr);
            const std::string printed = PrintEquation(first);
            ASSERT_TRUE(SameTree(first, ParseEquation(printed, variables, nullptr))) << text << "\n"
                                                                                     << printed;
            ++parsed;
        } catch (const Unwind&) {
        }
    }
    EXPECT_GT(parsed, 300);
    RecordProperty("parsed", parsed);
}

}  // namespace
}  // namespace talora
