// Learning tables: counting and unlearning, expectation maximisation, gradient ascent, the interface.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "BN/Learning/LR_GradientAscent.h"
#include "BN/Learning/LearnData.h"
#include "BN/Learning/LrnCPTs.h"
#include "Support/TestEnviron.h"

namespace {

using namespace talora;

class LearnTest : public testing::Test {
protected:
    LearnTest() : net(NewNet_bn("Test", env)) {}

    // Nodes with two states a and b, or more.
    node_bn* AddNode(const char* name, int num_states = 2, std::vector<node_bn*> parents = {})
    {
        node_bn* node = NewNode_bn(name, num_states, net);
        std::string names = "a";
        for (int s = 1; s < num_states; ++s) names += std::string(",") + char('a' + s);
        SetNodeStateNames_bn(node, names.c_str());
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        return node;
    }
    const nodelist_bn* All() const { return GetNetNodes2_bn(net, nullptr); }
    caseset_cs* Cases(const std::string& text, double degree = 1)
    {
        caseset_cs* cases = NewCaseset_cs("", env);
        stream_vx* stream = File(text);
        AddFileToCaseset_cs(cases, stream, degree, nullptr);
        DeleteStream_vx(stream);
        return cases;
    }
    stream_vx* File(const std::string& text) { return NewStreamOf(env, "t.cas", text); }
    static std::vector<float> Table(const node_bn* node)
    {
        int64_t n = 0;
        const prob_bn* probs = GetNodeTable_bn(node, &n);
        return probs ? std::vector<float>(probs, probs + n) : std::vector<float>();
    }
    // probability x experience of a node without parents or with one
    static std::vector<double> Counts(const node_bn* node)
    {
        const std::vector<float> table = Table(node);
        std::vector<double> counts(table.begin(), table.end());
        const int n = GetNodeNumberStates_bn(node);
        for (size_t at = 0; at < counts.size(); ++at) {
            const state_bn row[] = {state_bn(at) / n, 0};
            const double experience = GetNodeExperience_bn(node, row);
            counts[at] *= experience > 0 ? experience : 0;
        }
        return counts;
    }
    static void ExpectCounts(const std::vector<double>& counts, const std::vector<double>& expected)
    {
        ASSERT_EQ(counts.size(), expected.size());
        for (size_t at = 0; at < counts.size(); ++at)
            EXPECT_NEAR(counts[at], expected[at], 1e-7 * expected[at] + 1e-4) << at;
    }
    void Learn(int method, caseset_cs* cases, double degree = 1, int max_iters = 1000)
    {
        learner = NewLearner_bn(method, env);
        SetLearnerMaxIters_bn(learner, max_iters);
        LearnCPTs_bn(learner, All(), cases, degree);
    }

    TestEnviron env;
    net_bn* net;
    learner_bn* learner = nullptr;
};

TEST_F(LearnTest, CountingTakesCompleteFamilies)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 3, {a});
    const struct {
        const char* label;
        const char* cases;
        double degree;
        std::vector<double> of_a, of_b;
    } rows[] = {
        {"plain", "A B\na a\na c\nb b\na a\n", 1, {3, 1}, {2, 0, 1, 0, 1, 0}},
        {"weights and degree", "A B NumCases\na a 2.5\nb b 1\n", 2, {5, 2}, {5, 0, 0, 0, 2, 0}},
        {"parent missing", "A B\n* a\n* b\na a\n", 1, {1, 0}, {1, 0, 0, 0, 0, 0}},
        {"no column of the child", "A\na\nb\nb\n", 1, {1, 2}, {}},
        {"weights for states", "A B\na {1;3;0}\n{1;1} b\n", 1, {1.5, 0.5}, {0.25, 1.25, 0, 0, 0.5, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        DeleteNodeTables_bn(a);
        DeleteNodeTables_bn(b);
        Learn(1, Cases(row.cases), row.degree);
        ExpectCounts(Counts(a), row.of_a);
        ExpectCounts(Counts(b), row.of_b);
    }
}

TEST_F(LearnTest, UnlearningRestoresCountsAndRefusesMore)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 3, {a});
    Learn(1, Cases("A B NumCases\na a 1234567\na c 1\nb b 3\na b 3333\n"));
    const std::vector<float> table = Table(b);
    stream_vx* file = File("A B\na a\na c\nb b\n");
    const std::vector<double> before = Counts(b);
    ReviseCPTsByCaseFile_bn(All(), file, 1);
    EXPECT_NE(Table(b), table);
    ReviseCPTsByCaseFile_bn(All(), file, -1);
    EXPECT_EQ(Table(b), table);
    ExpectCounts(Counts(b), before);

    // The second of the three was counted once only.
    ReviseCPTsByCaseFile_bn(All(), file, -2);
    EXPECT_EQ(env.Taken(), 6585);
    EXPECT_EQ(
        env.Message(),
        "attempt to unlearn (degree = -2) more cases than were learned, for node 'B' (at case 2), reading file 't.cas'");
    EXPECT_EQ(Table(b), table);

    EnterFinding_bn(a, 0);
    EnterFinding_bn(b, 2);
    ReviseCPTsByFindings_bn(All(), -1);
    EXPECT_EQ(env.Taken(), 0);
    ExpectCounts(Counts(b), {1234567, 3333, 0, 0, 3, 0});
    const std::vector<float> of_a = Table(a);
    ReviseCPTsByFindings_bn(All(), -1);
    EXPECT_EQ(env.Taken(), 6584);
    EXPECT_EQ(env.Message(), "attempt to unlearn (degree = -1) more cases than were learned, for node 'B'");
    EXPECT_EQ(Table(a), of_a);  // A had enough, but all goes or nothing does
}

TEST_F(LearnTest, FindingsCountAsOneCase)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 3, {a});
    EnterFinding_bn(b, 1);
    ReviseCPTsByFindings_bn(All(), 1);  // has no value for A, so nothing for B given A
    EXPECT_TRUE(Table(a).empty() && Table(b).empty());
    const prob_bn likelihood[] = {0.25f, 0.75f};
    EnterNodeLikelihood_bn(a, likelihood);
    ReviseCPTsByFindings_bn(All(), 4);
    ExpectCounts(Counts(a), {1, 3});
    ExpectCounts(Counts(b), {0, 1, 0, 0, 3, 0});
    EXPECT_EQ(Table(b), (std::vector<float>{0, 1, 0, 0, 1, 0}));
    ReviseCPTsByFindings_bn(All(), -4);
    ExpectCounts(Counts(b), {0, 0, 0, 0, 0, 0});
}

TEST_F(LearnTest, LearningIsOneStepToUndo)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 2, {a});
    SetNetNumUndos_bn(net, 100, 1e9, nullptr);
    for (int method = 1; method <= 4; ++method) {
        Learn(method, Cases("A B\na a\nb *\nb b\n"));
        EXPECT_FALSE(Table(a).empty() || Table(b).empty()) << method;
        UndoNetLastOper_vx(net, -1);
        EXPECT_TRUE(Table(a).empty() && Table(b).empty()) << method;
    }
}

TEST_F(LearnTest, WhatCannotBeLearnedIsRefusedAndChangesNothing)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 2, {a});
    const float zero_one[] = {0, 1, 0.5f, 0.5f};
    const prob_bn half[] = {0.5f, 0.5f};
    SetNodeProbs_bn(a, nullptr, half);
    SetNodeTable_bn(b, zero_one, 4);
    const struct {
        const char* label;
        int method;
        const char* cases;
        double degree;
        int error;
        const char* message;
    } rows[] = {
        {"negative degree", 1, "A B\na a\n", -1, 6599, "the degree argument is negative (-1)"},
        {"degree is no number", 3, "A B\na a\n", NAN, 6599, nullptr},
        {"no columns", 1, "C D\n1 2\n", 1, 6586,
         "can't learn the CPTs using counting-learning, because for none of the requested nodes is there case information for the node and all its parents"},
        {"only unknown", 1, "A B\n* a\n* b\n", 1, 6587,
         "can't read any applicable information from this set of cases"},
        {"impossible complete case", 3, "A B\nb a\n\na a\n", 1, 6592,
         "couldn't calculate log likelihood, because couldn't calculate joint probability of findings for net Test, in case 2 (file line number 4) (while calcuating log-likelihood)"},
        {"impossible case without a value", 4, "A B\nb *\na a\n", 1, 6592, nullptr},
        {"weights that contradict", 3, "A B\n* a\n{1;0} a\n", 1, 6592, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        learner = NewLearner_bn(row.method, env);
        LearnCPTs_bn(learner, All(), Cases(row.cases), row.degree);
        EXPECT_EQ(env.Taken(), row.error);
        const std::string expected = row.message ? row.message : "";
        EXPECT_EQ(env.Message().substr(0, expected.size()), expected);
        EXPECT_EQ(Table(b), std::vector<float>(zero_one, zero_one + 4));
        EXPECT_EQ(GetNodeExperience_bn(a, nullptr), GetUndefDbl_vx());
    }
}

TEST_F(LearnTest, ShrinkingLeansRowsWithFewCasesTowardsTheMarginal)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 2, {a});
    Learn(2, Cases("A B NumCases\na a 900\na b 99\nb b 1\n"));
    // Marginal 0.9, 0.1; each row gets two cases of that kind.
    const std::vector<float> table = Table(b);
    EXPECT_NEAR(table[0], (900 + 1.8) / 1001, 1e-6);
    EXPECT_NEAR(table[2], 1.8 / 3, 1e-6);
    const state_bn second[] = {1};
    EXPECT_EQ(GetNodeExperience_bn(b, second), 1);
}

// ---- Expectation maximisation ----

// A model with a hidden cause of three observed nodes, and cases drawn from it.
struct Planted {
    static constexpr double kCause = 0.3;
    static constexpr double kGiven[3][2] = {{0.9, 0.2}, {0.1, 0.8}, {0.15, 0.7}};
    static std::string Cases(int count)
    {
        std::mt19937 random(5);
        std::uniform_real_distribution<double> uniform;
        std::string text = "X Y Z\n";
        for (int i = 0; i < count; ++i) {
            const int cause = uniform(random) < kCause ? 0 : 1;
            for (int x = 0; x < 3; ++x)
                text += std::string(uniform(random) < kGiven[x][cause] ? "a" : "b") + (x < 2 ? " " : "\n");
        }
        return text;
    }
};

class HiddenCauseTest : public LearnTest {
protected:
    node_bn* hidden = AddNode("H");
    node_bn* x = AddNode("X", 2, {hidden});
    node_bn* y = AddNode("Y", 2, {hidden});
    node_bn* z = AddNode("Z", 2, {hidden});

    void LearnPlanted(int method, int max_iters)
    {
        learner = NewLearner_bn(method, env);
        SetLearnerRandomGen_bn(learner, NewRandomGenerator_vx("1", env, nullptr));
        SetLearnerMaxIters_bn(learner, max_iters);
        SetLearnerMaxTol_bn(learner, 1e-9);
        LearnCPTs_bn(learner, All(), Cases(Planted::Cases(20000)), 1);
    }
    void ExpectPlanted(double tolerance)
    {
        // The states of the hidden node have no names of their own: 0 is the one with the smaller share.
        const int cause = Table(hidden)[0] < 0.5 ? 0 : 1;
        EXPECT_NEAR(Table(hidden)[cause], Planted::kCause, tolerance);
        node_bn* const nodes[] = {x, y, z};
        for (int i = 0; i < 3; ++i)
            for (int state = 0; state < 2; ++state)
                EXPECT_NEAR(Table(nodes[i])[2 * (state == 0 ? cause : 1 - cause)], Planted::kGiven[i][state],
                            tolerance);
    }
    void ExpectFalling()
    {
        const int n = GetLearnerNumIterations_bn(learner);
        ASSERT_GT(n, 2);
        for (int i = 1; i < n; ++i) {
            const double before = GetLearnerIteration_bn(learner, i - 1, nullptr);
            EXPECT_LE(GetLearnerIteration_bn(learner, i, nullptr), before * (1 + 1e-8)) << i;
        }
    }
};

TEST_F(HiddenCauseTest, ExpectationFindsAPlantedModel)
{
    LearnPlanted(3, 1000);
    ExpectPlanted(0.03);
    ExpectFalling();
}

TEST_F(HiddenCauseTest, GradientFindsAPlantedModel)
{
    LearnPlanted(4, 100);
    ExpectPlanted(0.03);
    ExpectFalling();
}

TEST_F(HiddenCauseTest, WithoutRandomNumbersAHiddenNodeStaysUniform)
{
    Learn(3, Cases(Planted::Cases(200)));
    EXPECT_EQ(Table(hidden), (std::vector<float>{0.5f, 0.5f}));
}

TEST_F(LearnTest, ExpectationOfCompleteCasesIsCounting)
{
    node_bn* a = AddNode("A");
    node_bn* b = AddNode("B", 3, {a});
    const char* cases = "A B NumCases\na a 3\na c 1\nb b 2\n";
    Learn(1, Cases(cases));
    const std::vector<float> of_a = Table(a), of_b = Table(b);
    DeleteNodeTables_bn(a);
    DeleteNodeTables_bn(b);
    Learn(3, Cases(cases));
    EXPECT_EQ(Table(a), of_a);
    EXPECT_EQ(Table(b), of_b);
    ExpectCounts(Counts(b), {3, 0, 1, 0, 2, 0});
    // Experience counts as cases seen before.
    Learn(3, Cases("A B\na a\n"));
    ExpectCounts(Counts(b), {4, 0, 1, 0, 2, 0});
}

TEST_F(LearnTest, WeightsForStatesAreLikelihoods)
{
    node_bn* a = AddNode("A");
    AddNode("B", 2, {a});
    // A case that is three times as probable under a as under b pulls A to the root of that equation.
    Learn(3, Cases("A B NumCases\n{3;1} * 2\nb * 1\n"), 1, 1);
    EXPECT_NEAR(Table(a)[0], 2 * 0.75 / 3, 1e-6);
    EXPECT_NEAR(GetLearnerIteration_bn(learner, 0, nullptr), -(2 * std::log(2.0) + std::log(0.5)), 1e-6);
}

TEST_F(LearnTest, CasesReadAnewGiveWhatKeptOnesGive)
{
    for (const int states_of_b : {3, 300}) {  // more than a byte can number
        SCOPED_TRACE(states_of_b);
        DeleteNet_bn(net);
        net = NewNet_bn("Test", env);
        node_bn* a = AddNode("A");
        node_bn* b = NewNode_bn("B", states_of_b, net);
        AddLink_bn(a, b);
        AddNode("C", 2, {a, b});
        std::mt19937 random(3);
        std::string text = "A B C\n";
        const auto any = [&](int num_states) {
            const auto state = int(random() % unsigned(num_states + 1));
            return state == num_states ? "* " : "#" + std::to_string(state) + " ";
        };
        for (int i = 0; i < 500; ++i) {
            text += any(2) + any(states_of_b) + any(2) + "\n";
            if (i % 50 == 0) text += "{1;2} #1 *\n";
        }
        caseset_cs* cases = Cases(text);
        const auto& nodes = All()->nodes;
        LearnData kept(*net, nodes, *cases, 1), streamed(*net, nodes, *cases, 1, 0);
        EXPECT_TRUE(kept.IsKept());
        EXPECT_FALSE(streamed.IsKept());
        Progress progress("test");
        const TableSet tables = kept.StartTables(nullptr);
        std::vector<talora::Counts> counts[2];
        double likelihood[2];
        ASSERT_TRUE(kept.Evaluate(tables, &counts[0], &likelihood[0], progress, 0));
        ASSERT_TRUE(streamed.Evaluate(tables, &counts[1], &likelihood[1], progress, 0));
        EXPECT_NEAR(likelihood[0], likelihood[1], 1e-3);
        for (size_t f = 0; f < counts[0].size(); ++f)
            for (size_t at = 0; at < counts[0][f].size(); ++at)
                EXPECT_NEAR(counts[0][f][at], counts[1][f][at], 1e-3);
        double without_counts = 0;
        ASSERT_TRUE(kept.Evaluate(tables, nullptr, &without_counts, progress, 0));
        EXPECT_NEAR(without_counts, likelihood[0], 1e-3);
    }
}

int KeepText(environ_vx*, const char* text, const report_vx*, void* data)
{
    *static_cast<std::string*>(data) += text;
    return 0;
}

TEST_F(LearnTest, IterationsArePrinted)
{
    node_bn* a = AddNode("A");
    AddNode("B", 2, {a});
    CompileNet_bn(net);
    std::string printed;
    SetMessageHandler_vx(env, KeepText, &printed);
    Learn(3, Cases("A B NumCases\na a 3\nb b 1\n"));
    EXPECT_EQ(printed,
              "\nDoing EM Learning, hold down <ctrl> + <mouse button> to stop ...\n"
              "  Iteration  -Log Likelihood   Change %\n"
              "          0   5.54518       \n"
              "          1   2.24934          59.4361\n"
              "          2   2.24934          0.0000\n");
    double change = 0;
    EXPECT_NEAR(GetLearnerIteration_bn(learner, 1, &change), 2.24934, 1e-5);
    EXPECT_NEAR(change, 0.594361, 1e-6);
    GetLearnerIteration_bn(learner, 0, &change);
    EXPECT_EQ(change, GetUndefDbl_vx());
    GetLearnerIteration_bn(learner, 3, nullptr);
    EXPECT_EQ(env.Taken(), 6600);
    printed.clear();
    Learn(4, Cases("A B\na *\nb *\n"), 0);
    EXPECT_EQ(printed,
              "\nDoing Gradient Ascent Learning, hold down <ctrl> + <mouse button> to stop ...\n"
              "  Iteration  -Log Likelihood   Change %\n"
              "          0   0             \n"
              "Gradient is zero.\n");
}

// With experience from before, the change is still that of the cases' likelihood alone, and ends learning.
TEST_F(LearnTest, TheChangeIsThatOfTheLikelihood)
{
    for (const int method : {3, 4}) {
        SCOPED_TRACE(method);
        node_bn* a = AddNode("A");
        const prob_bn probs[] = {0.9f, 0.1f};
        SetNodeProbs_bn(a, nullptr, probs);
        SetNodeExperience_bn(a, nullptr, 1000);
        CompileNet_bn(net);
        Learn(method, Cases("A NumCases\na 9\nb 1\na 5\n"));
        const int num_iterations = GetLearnerNumIterations_bn(learner);
        ASSERT_GE(num_iterations, 2);
        for (int i = 1; i < num_iterations; ++i) {
            double change = 0;
            const double before = GetLearnerIteration_bn(learner, i - 1, nullptr);
            const double after = GetLearnerIteration_bn(learner, i, &change);
            EXPECT_DOUBLE_EQ(change, (before - after) / before);
            EXPECT_EQ(change < 1e-5, i == num_iterations - 1);
        }
        DeleteNode_bn(a);
    }
}

TEST_F(LearnTest, SettingsAndTheirLimits)
{
    learner = NewLearner_bn(3, env);
    EXPECT_EQ(SetLearnerMaxIters_bn(learner, 7), 1000);
    EXPECT_EQ(SetLearnerMaxIters_bn(learner, -1), -1);
    EXPECT_EQ(env.Taken(), 6596);
    EXPECT_EQ(env.Message(), "argument 'max_iters' is negative (-1)");
    EXPECT_EQ(GetLearnerMaxIters_bn(learner), 7);
    EXPECT_EQ(SetLearnerMaxTol_bn(learner, 0.5), 1e-5);
    EXPECT_EQ(SetLearnerMaxTol_bn(learner, -2), -1.0);
    EXPECT_EQ(env.Taken(), 6597);
    EXPECT_EQ(env.Message(), "the tolerance argument is negative (-2)");
    EXPECT_EQ(GetLearnerMaxTol_bn(learner), 0.5);
    randgen_vx* generator = NewRandomGenerator_vx("1", env, nullptr);
    SetLearnerRandomGen_bn(learner, generator);
    EXPECT_EQ(GetLearnerRandomGen_bn(learner), generator);
    DeleteRandomGen_vx(generator);
    EXPECT_EQ(GetLearnerRandomGen_bn(learner), nullptr);
    EXPECT_EQ(NewLearner_bn(5, env), nullptr);
    EXPECT_EQ(env.Taken(), 5632);
    EXPECT_EQ(env.Message(), "argument 'method' is out-of-range (5)");
}

// ---- Search along a line ----

TEST(LineSearchTest, FindsTheMinimumOrReportsWhyNot)
{
    const struct {
        const char* label;
        double (*function)(double);
        double step;
        LineStatus status;
        double place;
    } rows[] = {
        {"parabola, step too long", [](double t) { return (t - 3) * (t - 3); }, 50, LineStatus::FOUND, 3},
        {"parabola, step too short", [](double t) { return (t - 3) * (t - 3); }, 1e-3, LineStatus::FOUND, 3},
        {"steep wall", [](double t) { return -std::log(t + 1e-9) + t; }, 0.1, LineStatus::FOUND, 1},
        {"flat far out", [](double t) { return std::exp(-t); }, 1, LineStatus::FOUND, -1},
        {"upwards", [](double t) { return t; }, 1, LineStatus::FLAT, 0},
        {"without end", [](double t) { return -t; }, 1, LineStatus::BRACKET_LIMIT, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        LinePoint lowest;
        const LineStatus status = MinimizeAlongLine(
            [&](double place, double* value) {
                *value = row.function(place);
                return true;
            },
            row.function(0), row.step, &lowest);
        EXPECT_EQ(int(status), int(row.status));
        const double place = row.place >= 0 ? row.place : lowest.place;
        EXPECT_NEAR(lowest.place, place, 0.03 * place);
    }
}

}  // namespace
