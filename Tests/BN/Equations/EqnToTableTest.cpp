#include "BN/Equations/EqnToTable.h"

#include <gtest/gtest.h>

#include <cmath>

#include "BN/Model/BnProbs.h"
#include "BN/Model/Bnet.h"
#include "Basic/RandomNum.h"
#include "Talora.h"

namespace talora {
namespace {

class EqnToTableTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        char mesg[MESG_LEN_vx];
        ASSERT_GE(InitTalora2_bn(env_, mesg), 0);
        net_ = NewNet_bn("net", env_);
    }
    void TearDown() override { CloseTalora_bn(env_, nullptr); }

    // A node of named states, or of levels.
    node_bn* Discrete(const char* name, const char* states, int count)
    {
        node_bn* node = NewNode_bn(name, count, net_);
        if (states) SetNodeStateNames_bn(node, states);
        return node;
    }
    node_bn* Continuous(const char* name, const std::vector<double>& thresholds)
    {
        node_bn* node = NewNode_bn(name, 0, net_);
        if (!thresholds.empty())
            SetNodeLevels_bn(node, static_cast<int>(thresholds.size()) - 1, thresholds.data());
        return node;
    }
    // The first error on record, or "" if there is none; the records are cleared.
    std::string Mistake(errseverity_vx least = ERROR_SEVERITY)
    {
        const report_vx* report = GetError_vx(env_, least, 0, nullptr);
        const std::string text = report ? std::to_string(report->number) + ": " + report->message : "";
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return text;
    }
    void Convert(node_bn* node, const char* equation, int samples = 1, int uncertain = 0, bool add = false)
    {
        SetNodeEquation_bn(node, equation);
        ASSERT_EQ(Mistake(), "") << equation;
        EquationToTable_bn(node, samples, uncertain, add);
    }
    static double Prob(const node_bn* node, int64_t row, int state)
    {
        return node->tables.probs.at(row * NumStates(*node) + state);
    }

    environ_vx* env_ = nullptr;
    net_bn* net_ = nullptr;
};

TEST_F(EqnToTableTest, EachKindOfEquationGetsItsKindOfTable)
{
    node_bn* a = Discrete("a", "red,green,blue", 3);
    node_bn* b = Discrete("b", "no,yes", 2);
    node_bn* x = Discrete("x", "low,high", 2);
    node_bn* c = Continuous("c", {0, 1, 3});
    AddLink_bn(a, x);
    AddLink_bn(b, x);
    AddLink_bn(a, c);

    Convert(x, "x (b, a) = a == blue && b ? high : low", 1000);
    EXPECT_EQ(Mistake(), "");
    EXPECT_EQ(std::vector<int>(x->tables.func_states.begin(), x->tables.func_states.end()),
              (std::vector<int>{0, 0, 0, 0, 0, 1}));

    Convert(x, "P (x | a, b) = x == high ? (b ? 0.75 : 0) : b ? 0.25 : 2", 1000);
    EXPECT_EQ(Mistake(), "");
    EXPECT_TRUE(x->tables.func_states.empty());
    EXPECT_EQ(Prob(x, 0, 0), 1) << "normalised";
    EXPECT_EQ(Prob(x, 1, 1), 0.75);

    Convert(c, "c (a) = select0(#a, 0.5, 7, 2.5)", 100);
    EXPECT_EQ(Mistake(), "");
    EXPECT_EQ(std::vector<double>(c->tables.func_reals.begin(), c->tables.func_reals.end()),
              (std::vector<double>{0.5, 7, 2.5}));

    Convert(c, "P (c | a) = NormalDist(c, #a, 1)", 100);
    EXPECT_EQ(Mistake(), "");
    const auto below = [](double z) { return 0.5 * std::erfc(-z / std::sqrt(2.0)); };
    const double left = below(1) - below(0), right = below(3) - below(1);
    EXPECT_NEAR(Prob(c, 0, 0), left / (left + right), 1e-7) << "integrated, not sampled";

    node_bn* y = Discrete("y", "off,on", 2);
    AddLink_bn(c, y);
    Convert(y, "y (c) = c > 1.5", 4000);
    EXPECT_EQ(Mistake(), "");
    EXPECT_EQ(Prob(y, 0, 0), 1);
    EXPECT_NEAR(Prob(y, 1, 1), 0.75, 0.03);
    Convert(y, "y (c) = c > 1.5", 400, 1);
    EXPECT_EQ(y->tables.experience.at(1), 400);
    Convert(y, "y (c) = c > 1.5", 400, 1, true);
    EXPECT_EQ(y->tables.experience.at(1), 800);
}

TEST_F(EqnToTableTest, SampledTablesComeFromTheSeed)
{
    node_bn* a = Continuous("a", {-GetInfinityDbl_vx(), -2, 0, GetInfinityDbl_vx()});
    node_bn* c = Continuous("c", {-100, 0, 2, 4, 100});
    AddLink_bn(a, c);
    TableVector<float> tables[3];
    const char* const seeds[] = {"11", "11", "12"};
    for (int i = 0; i < 3; ++i) {
        randgen_vx* generator = NewRandomGenerator_vx(seeds[i], env_, nullptr);
        SetNetRandomGen_bn(net_, generator);
        Convert(c, "c (a) = a", 20000);
        DeleteRandomGen_vx(generator);
        EXPECT_EQ(GetNetRandomGen_bn(net_), nullptr);
        tables[i] = c->tables.probs;
    }
    EXPECT_EQ(Mistake(), "");
    EXPECT_EQ(tables[0], tables[1]);
    EXPECT_NE(tables[0], tables[2]);
    // Tails are exponential with the width of the interval beside them, 2.
    EXPECT_NEAR(Prob(c, 2, 1), 1 - std::exp(-1.0), 0.02);
    EXPECT_NEAR(Prob(c, 2, 2), std::exp(-1.0) - std::exp(-2.0), 0.02);
    EXPECT_EQ(Prob(c, 0, 0), 1);
}

TEST_F(EqnToTableTest, MistakesAreReported)
{
    node_bn* a = Discrete("a", "red,green,blue", 3);
    node_bn* x = Discrete("x", "low,high", 2);
    node_bn* c = Continuous("c", {});
    AddLink_bn(a, x);
    const struct {
        const char* equation;
        const char* mistake;
    } cases[] = {
        {"x (a) = #a + 0.5",
         "-6411: since x is discrete, its equation should return a state-index, which is an integer, but it is returning 0.5 with input a=red"},
        {"x (a) = #a",
         "-6412: since x is discrete, its equation should return a state-index between 0 and 1, but it is returning 2 with input a=blue"},
        {"x (a) = round(log(#a))",
         "-6414: equation for node x is returning an undefined value; could one of its parents have an undefined value (-3)?  \nInput is a=red"},
        {"P (x | a) = NoisyOrDist(x == high, 0.5, a == red)",
         "-6416: error evaluating function:  NoisyOrDist (odd number of arguments to NoisyOrDist) in equation of node x for state low, with input a=red"},
        {"P (x | a) = -0.5",
         "-2458: equation of node x gives a negative probability (-0.5) for state low, with input a=red"},
        {"P (x | a) = 1e300",
         "-2457: equation of node x gives a probability (1e+300) for state low that is too large, with input a=red"},
        {"x (a) = NoisyOrDist(true, 0.5, a == red) > 0.5",
         "-6415: error evaluating function:  NoisyOrDist (odd number of arguments to NoisyOrDist) in equation of node x, with input a=red"},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.equation);
        Convert(x, k.equation);
        EXPECT_EQ(Mistake(), k.mistake);
        EXPECT_FALSE(HasNodeTable_bn(x, nullptr)) << "left alone";
    }
    SetNodeEquation_bn(x, "x (a) = b");
    EXPECT_EQ(Mistake(), "-2091: unknown name 'b'");
    EXPECT_STREQ(GetNodeEquation_bn(x), std::rbegin(cases)->equation) << "the old one stays";
    int place = 0;
    EXPECT_FALSE(CheckNodeEquation_bn(x, "x (a) = a + b", &place));
    EXPECT_EQ(place, 12);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
    EquationToTable_bn(x, 0, 0, 0);
    EXPECT_EQ(Mistake(), "-5572: argument 'num_samples' must be one or more (it is 0)");
    EquationToTable_bn(x, 1, 2, 0);
    EXPECT_EQ(Mistake(), "-5573: argument 'samp_unc' must be 0 or 1 (it is 2)");
    x->equation = "x (a) = a +";
    EquationToTable_bn(x, 1, 0, 0);
    EXPECT_EQ(Mistake(), "-2496: problem with equation of node 'x':  missing second argument of operator +");
    Convert(c, "P (c) = NormalDist(c, 0, 1)");
    EXPECT_EQ(Mistake().substr(0, 5), "-2313");
    AddLink_bn(c, x);
    Convert(x, "P (x | c) = 0.5");
    EXPECT_EQ(Mistake().substr(0, 70),
              "-2020: can't convert equation to table for node 'x' because it has a p");
    node_bn* d = Continuous("d", {0, 1});
    node_bn* p = Continuous("p", {0, 1, 2});
    AddLink_bn(p, d);
    Convert(d, "d (p) = p > 1 ? 7 : 0.5", 100);
    EXPECT_EQ(
        Mistake().substr(0, 115),
        "-6413: equation for d is returning 7, which is not between the lowest (0) and highest (1) discretization thresholds");
}

// By hand, from what the functions and the drawing of values are defined to be.
TEST_F(EqnToTableTest, RowsOfFewNumbers)
{
    const double infinity = GetInfinityDbl_vx(), levels[] = {10, 20};
    node_bn* a = Discrete("a", "red,green,blue", 3);
    node_bn* x = Discrete("x", "low,high", 2);
    node_bn* l = Discrete("l", nullptr, 2);
    SetNodeLevels_bn(l, 2, levels);
    node_bn* c = Continuous("c", {0, 1, 2, 4});
    node_bn* p = Continuous("p", {0, 1, 2});
    node_bn* d = Continuous("d", {0, 1, 3});
    node_bn* any = Continuous("any", {-infinity, infinity});
    node_bn* sign = Discrete("sign", "minus,plus", 2);
    for (node_bn* child : {x, l, c}) AddLink_bn(a, child);
    AddLink_bn(p, d);
    AddLink_bn(any, sign);
    const struct {
        node_bn* node;
        const char* equation;
        std::vector<double> probs;
    } cases[] = {
        // Largest of the leak's (0.9, 0.1) and what a contributes.
        {x,
         "P (x | a) = NoisyMaxTableDist(x, 2, 0.9, 0.1, a, 1, 0, 0.5, 0.5, 0.2, 0.8)",
         {0.9, 0.1, 0.45, 0.55, 0.18, 0.82}},
        // 1 with probability 1/2, and of a: nothing, 1, or 3 with probability 1/2.
        {c,
         "P (c | a) = NoisySumTableDist(c, 1, 0.5, 1, a, 0, 0, 1, 1, 0.5, 3)",
         {0.5, 0.5, 0, 0, 0.5, 0.5, 0.25, 0.25, 0.5}},
        // A discretised parent counts by its interval.
        {d, "P (d | p) = NoisyMaxTableDist(d, 2, 1, 0, p, 1, 0, 0.25, 0.75)", {1, 0, 0.25, 0.75}},
        {d, "P (d | p) = p > 1 ? (d < 1 ? 1 : 0) : d > 1 ? 0.5 : 0", {0, 1, 1, 0}},
        {d, "P (d | p) = UniformDist(d, p, p + 1)", {0.5, 0.5, 0, 1}},
        {sign, "sign (any) = any > 0", {0.5, 0.5}},
        {l, "l (a) = a == red ? 10 : 20", {1, 0, 0, 1, 0, 1}},
        {l, "l (a) = AsState (9 * #a)", {1, 0, 1, 0, 0, 1}},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.equation);
        Convert(k.node, k.equation, 4000);
        ASSERT_EQ(Mistake(), "");
        TableVector<float> made;
        const float* found = EffectiveProbs(*k.node, made);
        ASSERT_NE(found, nullptr);
        const bool drawn = k.node == d || k.node == sign;
        for (size_t i = 0; i < k.probs.size(); ++i)
            EXPECT_NEAR(found[i], k.probs[i], drawn ? 0.03 : 1e-6) << "entry " << i;
    }
}

// Counts that are kept never leave rows that do not sum to 1, and a value must belong to a state.
TEST_F(EqnToTableTest, KeptCountsAndStrayValues)
{
    node_bn *a = Discrete("a", nullptr, 2), *x = Discrete("x", nullptr, 2);
    AddLink_bn(a, x);
    Convert(x, "P (x | a) = a == 0 ? (x == 0 ? 3 : 1) : 0", 1, 1);
    ASSERT_EQ(Mistake(), "");
    const double expected[] = {0.75, 0.25, 0.5, 0.5};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Prob(x, i / 2, i % 2), expected[i]);
    EXPECT_EQ(x->tables.experience[0], 4);
    EXPECT_EQ(x->tables.experience[1], 0);
    node_bn* c = Continuous("c", {0, 1, 2});
    AddLink_bn(a, c);
    Convert(c, "c (a) = a == 0 ? 1.5 : 99");
    EXPECT_EQ(Mistake(WARNING_SEVERITY).substr(0, 5), "-6413");
    EXPECT_EQ(c->tables.func_reals[1], 99);
    CompileNet_bn(net_);
    EXPECT_NE(GetError_vx(env_, WARNING_SEVERITY, -7203, nullptr), nullptr);
    Mistake(NULL_SEVERITY);
}

// Beyond the limit of memory the person decides; where nobody can be asked the limit holds.
TEST_F(EqnToTableTest, AgreedMemoryIsTaken)
{
    node_bn *p = Discrete("p", nullptr, 300000), *x = Discrete("x", nullptr, 2);
    AddLink_bn(p, x);
    SetNodeEquation_bn(x, "P (x | p) = 0.5");
    const double limit = LimitMemoryUsage_vx(GetMemoryUsage_vx(env_) + 1e6, env_);
    EquationToTable_bn(x, 1, 0, 0);
    EXPECT_EQ(Mistake().substr(0, 5), "-6407");
    SetQuestionHandler_vx(
        env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 0; }, nullptr);
    EquationToTable_bn(x, 1, 0, 0);
    EXPECT_EQ(Mistake(), "");
    EXPECT_EQ(x->tables.probs.size(), 600000u);
    LimitMemoryUsage_vx(limit, env_);
}

TEST_F(EqnToTableTest, ZeroRows)
{
    node_bn* a = Discrete("a", "red,green,blue", 3);
    node_bn* x = Discrete("x", "low,high", 2);
    Convert(x, "P (x) = 0");
    EXPECT_EQ(
        Mistake(),
        "-3810: In equation of node x, its equation specified zero for all its states, which is not allowed for a node with no parents. (It was given a uniform distribution)");
    EXPECT_EQ(Prob(x, 0, 1), 0.5);
    AddLink_bn(a, x);
    Convert(x, "P (x | a) = a == red");
    EXPECT_EQ(
        Mistake(NOTICE_SEVERITY),
        "-6408: In equation of node x, for 2 out of 3 parent settings (i.e. conditions), its equation specified zero for all its states, so they were given uniform distributions");
    EXPECT_EQ(Prob(x, 2, 1), 0.5);
}

// Sums far beyond what single precision can count stay right on average.
TEST(AddToCell, RoundsAtRandomWithTheRightMean)
{
    RandomState random = SeededState(3);
    const struct {
        float start;
        double increment;
        int count;
    } cases[] = {{0, 1, 1000}, {16777216, 1, 2000000}, {1e6f, 1e-3, 5000000}};
    for (const auto& c : cases) {
        float cell = c.start;
        for (int i = 0; i < c.count; ++i) ASSERT_TRUE(AddToCell(cell, c.increment, random));
        const double added = c.count * c.increment, step = c.start * 1e-5;
        EXPECT_NEAR(cell - c.start, added, c.start > 1000 ? 5 * std::sqrt(added * step) + step : 0);
    }
    float cell = -1e-6f;
    EXPECT_TRUE(AddToCell(cell, 0, random));
    EXPECT_EQ(cell, 0);
    cell = 3e38f;
    EXPECT_FALSE(AddToCell(cell, 3e38, random));
}

}  // namespace
}  // namespace talora
