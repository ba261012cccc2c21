// The mode that finds the most probable configuration, its report, and the functions that list the best ones.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Basic/Memory.h"
#include "Support/TestEnviron.h"

namespace {

class MostProbableTest : public testing::Test {
protected:
    void SetUp() override
    {
        net_ = NewNet_bn("Weather", env_);
        rain_ = Add("Rain", {}, {0.3f, 0.7f});
        wet_ = Add("Wet", {rain_}, {0.9f, 0.1f, 0.2f, 0.8f});
    }

    node_bn* Add(const char* name, std::vector<node_bn*> parents, std::vector<prob_bn> table)
    {
        node_bn* node = NewNode_bn(name, 2, net_);
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
        return node;
    }

    int LastError()
    {
        const report_vx* error = GetError_vx(env_, ERROR_SEVERITY, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }

    TestEnviron env_;
    net_bn* net_ = nullptr;
    node_bn *rain_ = nullptr, *wet_ = nullptr;
};

TEST_F(MostProbableTest, ReportsAndStates)
{
    const float missing = talora::MissingProb(), impossible = talora::ImpossibleProb();
    struct Row {
        const char* what;
        std::vector<prob_bn> rain, wet;
        const char* report;
        int rain_state, wet_state;
    };
    const Row rows[] = {
        {"one best",
         {0.3f, 0.7f},
         {0.9f, 0.1f, 0.2f, 0.8f},
         "The probability of the most probable configuration is 56 %.\n",
         1,
         1},
        {"one node tied",
         {0.3f, 0.7f},
         {1, 0, 0.5f, 0.5f},
         "The probability of the most probable configuration is 35 %.\n",
         1,
         0},
        {"two nodes tied",
         {0.5f, 0.5f},
         {0.5f, 0.5f, 0.5f, 0.5f},
         "Multiple configurations are possible (add artificial \"findings\" to break ties).\n",
         0,
         0},
        {"nearly as good is as good",
         {0.5f, 0.4999998f},
         {0.5f, 0.4999998f, 0.5f, 0.4999998f},
         "Multiple configurations are possible (add artificial \"findings\" to break ties).\n",
         0,
         0},
        {"a little worse is not",
         {0.5f, 0.499999f},
         {0.5f, 0.499999f, 0.5f, 0.499999f},
         "The probability of the most probable configuration is 25 %.\n",
         0,
         0},
        {"missing",
         {0.1f, 0.9f},
         {0.9f, 0.1f, missing, 0.1f},
         "The most probable configuration is one for which not all probabilities were defined.\n",
         1,
         0},
        {"an impossible row is not in it",
         {0.3f, 0.7f},
         {0.9f, 0.1f, impossible, impossible},
         "The probability of the most probable configuration is 27 %.\n",
         0,
         0},
    };
    SetNetMostProbable_bn(net_, 1);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        SetNodeTable_bn(rain_, row.rain.data(), 2);
        SetNodeTable_bn(wet_, row.wet.data(), 4);
        CompileNet_bn(net_);
        EXPECT_STREQ(ReportMostProbable_bn(net_), row.report);
        EXPECT_EQ(GetNodeMostProbableState_bn(rain_), row.rain_state);
        EXPECT_EQ(GetNodeMostProbableState_bn(wet_), row.wet_state);
    }
}

// 0.7 x 0.8 is best; with rain 0.3 x 0.9 = 0.27, dry after rain 0.03; wet without rain 0.14.
TEST_F(MostProbableTest, BeliefsAreRelativeToTheBest)
{
    CompileNet_bn(net_);
    EXPECT_FLOAT_EQ(GetNodeBeliefs_bn(rain_)[1], 0.7f);
    SetNetMostProbable_bn(net_, 1);
    EXPECT_EQ(GetNodeBeliefs_bn(rain_)[1], 1);
    EXPECT_FLOAT_EQ(GetNodeBeliefs_bn(rain_)[0], 0.27f / 0.56f);
    EXPECT_FLOAT_EQ(GetNodeBeliefs_bn(wet_)[0], 0.27f / 0.56f);
    SetNetMostProbable_bn(net_, 0);
    EXPECT_FLOAT_EQ(GetNodeBeliefs_bn(rain_)[1], 0.7f);
}

TEST_F(MostProbableTest, ListsConfigurationsBestFirst)
{
    const double values[] = {0.56, 0.27, 0.14, 0.03};
    const state_bn states[][2] = {{1, 1}, {0, 0}, {1, 0}, {0, 1}};
    for (int nth : {0, 3, 1, 2}) {
        state_bn setting[2];
        EXPECT_NEAR(MostProbableConfig_bn(net_, setting, nth), std::log(values[nth]), 1e-6);
        EXPECT_EQ(setting[0], states[nth][0]);
        EXPECT_EQ(setting[1], states[nth][1]);
    }
    nodelist_bn* list = NewNodeList2_bn(1, net_);
    SetNthNode_bn(list, 0, rain_);
    state_bn setting[2];
    EXPECT_NEAR(MostProbableSetting_bn(list, setting, 1), std::log(0.27), 1e-6);
    EXPECT_EQ(setting[0], 0);
    EnterFinding_bn(wet_, 0);  // a search that goes on must notice
    EXPECT_NEAR(MostProbableSetting_bn(list, setting, 1), std::log(0.14), 1e-6);
    EXPECT_EQ(GetNodeFinding_bn(wet_), 0);
    // A node that takes no part in inference has one setting.
    node_bn* constant = Add("Site", {}, {1, 0});
    SetNodeKind_bn(constant, CONSTANT_NODE);
    SetNthNode_bn(list, 0, constant);
    EXPECT_NEAR(MostProbableSetting_bn(list, setting, 0), std::log(0.27), 1e-6);
    EXPECT_EQ(setting[0], 0);
    MostProbableSetting_bn(list, setting, 1);
    EXPECT_EQ(LastError(), 6803);
    DeleteNodeList_bn(list);
    EXPECT_EQ(LastError(), 0);
}

TEST_F(MostProbableTest, Refusals)
{
    state_bn setting[8];
    struct Row {
        const char* what;
        int error;
        std::function<void()> act;
    };
    const Row rows[] = {
        {"no place for the setting", 6804, [&] { MostProbableConfig_bn(net_, nullptr, 0); }},
        {"below 0", 6802, [&] { MostProbableConfig_bn(net_, setting, -1); }},
        {"no such configuration", 6803, [&] { MostProbableConfig_bn(net_, setting, 4); }},
        {"report without the mode", 6801, [&] { ReportMostProbable_bn(net_); }},
        {"node without states", 3051, [&] { NewNode_bn("Depth", 0, net_), SetNetMostProbable_bn(net_, 1); }},
        {"decision node", 3465,
         [&] {
             DeleteNode_bn(GetNodeNamed_bn("Depth", net_));
             SetNodeKind_bn(NewNode_bn("Choice", 2, net_), DECISION_NODE);
             SetNetMostProbable_bn(net_, 1);
         }},
    };
    for (const Row& row : rows) {
        row.act();
        EXPECT_EQ(LastError(), row.error) << row.what;
        EXPECT_EQ(GetNetMostProbable_bn(net_), 0);
    }
}

TEST_F(MostProbableTest, ADecisionThatCameLaterIsRefusedInTheReport)
{
    SetNetMostProbable_bn(net_, 1);
    SetNodeKind_bn(NewNode_bn("Choice", 2, net_), DECISION_NODE);
    CompileNet_bn(net_);
    EXPECT_EQ(ReportMostProbable_bn(net_), nullptr);
    EXPECT_EQ(LastError(), 3465);
}

// A table large enough that the halt flag is looked at within one update.
TEST_F(MostProbableTest, AfterAHaltTheSearchStartsAnew)
{
    std::vector<node_bn*> parents;
    for (int i = 0; i < 18; ++i) parents.push_back(Add(("P" + std::to_string(i)).c_str(), {}, {0.4f, 0.6f}));
    std::vector<prob_bn> table(size_t(2) << parents.size(), 0.5f);
    table[table.size() - 2] = 0.75f, table[table.size() - 1] = 0.25f;
    Add("Large", parents, table);
    CompileNet_bn(net_);
    std::vector<state_bn> setting(size_t(LengthNodeList_bn(GetNetNodes2_bn(net_, nullptr))));
    SetHaltFlag_vx(env_, 1);
    MostProbableConfig_bn(net_, setting.data(), 0);
    EXPECT_EQ(LastError(), 6800);
    SetHaltFlag_vx(env_, 0);
    EXPECT_NEAR(MostProbableConfig_bn(net_, setting.data(), 0), std::log(0.56 * 0.75) + 18 * std::log(0.6),
                1e-5);
    EXPECT_EQ(setting.back(), 0);
    EXPECT_EQ(LastError(), 0);
}

TEST_F(MostProbableTest, TheModeIsUndoneCopiedAndKeptInFiles)
{
    SetNetNumUndos_bn(net_, 10, 0, nullptr);
    SetNetMostProbable_bn(net_, 1);
    SetNetMostProbable_bn(net_, 1);
    net_bn* copy = CopyNet_bn(net_, "Copy", env_, nullptr);
    EXPECT_EQ(GetNetMostProbable_bn(copy), 1);
    EXPECT_TRUE(UndoNetLastOper_vx(net_, -1));
    EXPECT_EQ(GetNetMostProbable_bn(net_), 0);
    CompileNet_bn(net_);
    EXPECT_FLOAT_EQ(GetNodeBeliefs_bn(rain_)[1], 0.7f);
    EXPECT_FALSE(UndoNetLastOper_vx(net_, -1)) << "the second switching on left a step";
    stream_vx* stream = NewMemoryStream_vx("Copy.dne", env_, nullptr);
    WriteNet_bn(copy, stream);
    net_bn* back = ReadNet_bn(stream, NO_VISUAL_INFO);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(GetNetMostProbable_bn(back), 1);
}

}  // namespace
