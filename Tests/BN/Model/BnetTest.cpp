// What a net knows of itself: numbers that states stand for, orders, labels; and that validation notices
// every broken invariant.
#include "BN/Model/Bnet.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnFindings.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnProbs.h"
#include "Support/TestNet.h"

namespace talora {
namespace {

using BnetTest = ModelTest;

TEST_F(BnetTest, StatesOfValues)
{
    Make("Rising:0 Falling:0 Open:0 Values:3 Plain:2");
    const double rising[] = {0, 1, 1, 4}, falling[] = {9, 5, 1}, values[] = {3, 1, 2};
    const double open[] = {-HUGE_VAL, 0, HUGE_VAL};
    SetLevels((*this)["Rising"], 3, rising);
    SetLevels((*this)["Falling"], 2, falling);
    SetLevels((*this)["Open"], 2, open);
    SetLevels((*this)["Values"], 3, values);
    const struct {
        const char* node;
        double value;
        int state;
    } cases[] = {
        {"Rising", 0, 0},
        {"Rising", 1, 2},
        {"Rising", 4, 2},
        {"Rising", 4.1, UNDEF_STATE},
        {"Rising", -0.1, -3},
        {"Falling", 9, 0},
        {"Falling", 5, 1},
        {"Falling", 1, 1},
        {"Falling", 0.9, -3},
        {"Open", -1e300, 0},
        {"Open", 0, 1},
        {"Open", 1e300, 1},
        {"Open", UndefDbl(), UNDEF_STATE},
        {"Values", 2, 2},
        {"Values", 2.5, UNDEF_STATE},
        {"Plain", 1, UNDEF_STATE},
    };
    for (const auto& c : cases)
        EXPECT_EQ(StateOfValue((*this)[c.node], c.value), c.state) << c.node << " " << c.value;
    EXPECT_EQ(StateValue((*this)["Rising"], 2), 2.5);
    EXPECT_EQ(StateValue((*this)["Open"], 0), 0);
    EXPECT_EQ(StateValue((*this)["Values"], 1), 1);
    EXPECT_TRUE(IsUndef(StateValue((*this)["Plain"], 0)));
    EXPECT_EQ((*this)["Open"].states.levels.back(), InfinityDbl());
}

TEST_F(BnetTest, LevelsRefused)
{
    Make("X:0 D:2");
    const double bent[] = {0, 2, 1}, none[] = {0, UndefDbl(), 1}, nan[] = {0, std::nan(""), 1};
    const double good[] = {0, 1, 2};
    const struct {
        const char* label;
        const char* node;
        int num_states;
        const double* levels;
        int error;
    } cases[] = {{"not in order", "X", 2, bent, 6138},  {"missing", "X", 2, none, 6137},
                 {"not a number", "X", 2, nan, 6137},   {"not a number", "D", 2, nan, 6137},
                 {"negative", "X", -1, good, 6139},     {"NULL", "X", 2, nullptr, 6141},
                 {"other count", "D", 3, good, 6140},   {"range", "X", 0, good, 0},
                 {"thresholds", "X", 2, good, 0},       {"values", "D", 2, good, 0},
                 {"values removed", "D", 2, nullptr, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(ErrorOf([&] { SetLevels((*this)[c.node], c.num_states, c.levels); }), c.error);
    }
    EXPECT_EQ(NumStates((*this)["X"]), 2);
}

TEST_F(BnetTest, FindingsFollowLevels)
{
    Make("X:0");
    Node& x = (*this)["X"];
    const double low[] = {0, 1, 2}, high[] = {0, 0.2, 2}, beyond[] = {5, 6, 7}, more[] = {0, 1, 2, 3};
    const float half[] = {0.5f, 0.5f};
    SetLevels(x, 2, low);
    SetProbs(x, nullptr, half);
    EnterValue(x, 0.5);
    SetLevels(x, 2, high);
    EXPECT_EQ(x.finding.state, 1);
    SetLevels(x, 2, beyond);
    EXPECT_TRUE(x.finding.IsEmpty());
    EXPECT_EQ(x.tables.probs.size(), 2u);
    EXPECT_EQ(CountReports(), 0);
    SetLevels(x, 3, more);
    EXPECT_TRUE(x.tables.probs.empty());
    EXPECT_EQ(CountReports(), 1);  // of the tables that went
    ValidateNet(*net_);
}

// A function that gives values is a potential by way of the levels.
TEST_F(BnetTest, BeliefsFollowLevels)
{
    Make("P; X:0");
    Node &p = (*this)["P"], &x = (*this)["X"];
    const double low[] = {0, 1, 10}, high[] = {0, 8, 10};
    SetLevels(x, 2, low);
    AddLink(p, x);
    const float probs[] = {0.25f, 0.75f};
    SetProbs(p, nullptr, probs);
    for (const int state : {0, 1}) SetFuncReal(x, &state, state == 0 ? 0.5 : 5);
    CompileNet(*net_);
    EXPECT_FLOAT_EQ(GetBeliefs(x)[0], 0.25f);
    SetLevels(x, 2, high);
    EXPECT_FLOAT_EQ(GetBeliefs(x)[0], 1.0f);
}

TEST_F(BnetTest, LabelsStartAgainBeforeTheyRunOut)
{
    Net& net = Make("A");
    EXPECT_EQ(NewLabel(net), 100u);
    net.label_counter = 999999999990000000u;
    NewLabel(net);
    NewLabel(net);
    EXPECT_EQ(CountReports(), 1);
    net.label_counter = 999999999999998999u;
    NewLabel(net);
    EXPECT_EQ(NewLabel(net), 100u);
}

TEST_F(BnetTest, ParentsComeFirst)
{
    Net& net = Make("D B; B -> C; C D -> A; A -> E");
    (*this)["C"].links[0].delay = "1";  // counts for nothing
    std::string order;
    for (const Node* node : TopologicalOrder(net)) order += node->name;
    EXPECT_EQ(order, "DBCAE");
    EXPECT_TRUE(IsAncestor(net, (*this)["D"], (*this)["E"]));
    EXPECT_FALSE(IsAncestor(net, (*this)["B"], (*this)["E"]));
}

TEST_F(BnetTest, AncestorsInRandomNets)
{
    std::mt19937 random(7);
    for (int run = 0; run < 20; ++run) {
        constexpr int kNodes = 25;
        std::string names;
        for (int i = 0; i < kNodes; ++i) names += "N" + std::to_string(i) + " ";
        const std::vector<Node*>& nodes = Make(names).nodes.nodes;
        bool reaches[kNodes][kNodes] = {};
        for (int child = kNodes - 1; child > 0; --child)
            for (int parent = 0; parent < child; ++parent) {
                if (random() % 12 != 0) continue;
                AddLink(*nodes[parent], *nodes[child]);
                const bool is_delayed = random() % 5 == 0;
                if (is_delayed) nodes[child]->links.back().delay = "1";
                reaches[parent][child] = !is_delayed;
            }
        for (int via = 0; via < kNodes; ++via)
            for (int a = 0; a < kNodes; ++a)
                for (int b = 0; b < kNodes; ++b) reaches[a][b] |= reaches[a][via] && reaches[via][b];
        for (int a = 0; a < kNodes; ++a)
            for (int b = 0; b < kNodes; ++b)
                ASSERT_EQ(IsAncestor(*net_, *nodes[a], *nodes[b]), reaches[a][b])
                    << run << " " << a << " " << b;
    }
}

TEST_F(BnetTest, ValidationNotices)
{
    const struct {
        const char* label;
        std::function<void()> damage;
    } cases[] = {
        {"index of a node", [&] { (*this)["A"].index = 1; }},
        {"child forgotten", [&] { (*this)["A"].children.nodes.pop_back(); }},
        {"parents list", [&] { (*this)["C"].parents.nodes[0] = &(*this)["D"]; }},
        {"parent twice", [&] { (*this)["C"].links[1] = (*this)["C"].links[0]; }},
        {"cycle",
         [&] {
             Node &a = (*this)["A"], &c = (*this)["C"];
             a.links.push_back({&c, "", ""});
             a.parents.nodes.push_back(&c);
             c.children.nodes.push_back(&a);
         }},
        {"size of a table", [&] { (*this)["C"].tables.probs.assign(7, 0.5f); }},
        {"size of experience", [&] { (*this)["C"].tables.experience.assign(8, 1); }},
        {"states", [&] { (*this)["A"].states.texts.resize(3); }},
        {"levels", [&] { (*this)["A"].states.levels.resize(3); }},
        {"finding", [&] { (*this)["A"].finding.state = 2; }},
        {"likelihood", [&] { (*this)["A"].finding.likelihood.assign(3, 1.0f); }},
        {"stranger in a set",
         [&] {
             net_->node_sets.push_back({"S", {nullptr}});
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Make("A B; A B -> C; D");
        EXPECT_EQ(ErrorOf([&] { ValidateNet(*net_); }), 0);
        c.damage();
        EXPECT_NE(ErrorOf([&] { ValidateNet(*net_); }), 0);
    }
}

TEST(CheckProbsTest, FlagsAndWords)
{
    const float m = MissingProb(), x = ImpossibleProb();
    const struct {
        std::vector<float> probs;
        uint32_t problems;
        const char* words;
    } cases[] = {
        {{0.5f, 0.5f}, 0, "okay"},
        {{0.5f, m}, 0x04, "has a missing probability"},
        {{0.5f, m, m}, 0x0C, "has some missing probabilities"},
        {{1, m, m}, 0x04, "has a missing probability"},
        {{m, m, 0.5f, 0.6f}, 0x1C, "sum of probabilities isn't 1 (100%), has some missing probabilities"},
        {{x, x}, 0x02, "has an impossible condition indicator"},
        {{x, 0.5f}, 0x202, "some probabilities indicate an impossible condition and some don't"},
        {{0, 0}, 0x100, "all probabilities are 0 (and none are empty)"},
        {{0, -1}, 0x500, "has a negative probability"},
        {{2, -1},
         0x490,
         "has a negative probability, has a probability greater than 1, sum of probabilities isn't 1 (100%)"},
        {{std::nanf(""), 0.5f}, 0x10, "sum of probabilities isn't 1 (100%)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.words);
        EXPECT_EQ(CheckProbs(c.probs.data(), int(c.probs.size())), c.problems);
        EXPECT_EQ(DescribeProbs(c.problems, false), c.words);
    }
    EXPECT_EQ(DescribeProbs(0x3490, true), "has too few probabilities");
    EXPECT_EQ(DescribeProbs(PROBS_TOO_MANY, false), "has too many probabilities");
}

}  // namespace
}  // namespace talora
