// The history of a net: whatever was edited, walking back and forth gives the very nets that were there.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Support/RandomCalls.h"
#include "Support/TestEnviron.h"

namespace {

constexpr unsigned kNumSequences = 400;

bool IsEdit(const char* function)
{
    const std::string_view name = function;
    if (name == "SetNetNumUndos_bn" || name == "SetNetUndoing_bn") return false;  // they end a history
    for (const char* verb :
         {"New", "Add", "Delete", "Remove", "Set", "Switch", "Reorder", "Reconnect", "Copy", "Enter",
          "Retract", "Undo", "Redo", "Compile", "Rename", "EquationToTable", "Open", "Close"})
        if (name.starts_with(verb))
            return name.find("Net") != name.npos || name.find("Node") != name.npos ||
                   name.find("Link") != name.npos || name.find("Finding") != name.npos;
    return false;
}

// Whatever is edited, each step back leads to the net that was there.
TEST(BnUndoTest, RandomEditsWalkedBackAndForth)
{
    const auto check = [](bool holds, const char* promise) {
        if (!holds) throw std::logic_error(promise);
    };
    int num_ended = 0;
    for (unsigned seed = 1; seed <= kNumSequences; ++seed) {  // every other one of all functions
        std::mt19937 random(seed);
        std::vector<uint8_t> bytes(3000);
        for (uint8_t& byte : bytes) byte = uint8_t(random());
        try {
            num_ended +=
                talora::MakeRandomCalls(bytes.data(), bytes.size(), {check, seed % 2 ? IsEdit : nullptr});
        } catch (const std::logic_error& broken) {
            ADD_FAILURE() << "seed " << seed << ": " << broken.what();
        }
    }
    EXPECT_GT(num_ended, int(kNumSequences) * 9 / 10) << "halted";
}

// Smoking -> Cancer, compiled, with undo on.
class SmallNetUndoTest : public testing::Test {
protected:
    void SetUp() override
    {
        ArgumentChecking_vx(CHECK_OBJECTS, env_);  // every call validates the whole net first
        net_ = NewNet_bn("Lung", env_);
        smoking_ = NewNode_bn("Smoking", 2, net_);
        cancer_ = NewNode_bn("Cancer", 2, net_);
        SetNodeStateNames_bn(smoking_, "yes,no");
        AddLink_bn(smoking_, cancer_);
        const prob_bn prior[] = {0.25f, 0.75f}, table[] = {0.5f, 0.5f, 0.125f, 0.875f};
        SetNodeProbs_bn(smoking_, nullptr, prior);
        SetNodeTable_bn(cancer_, table, 4);
        CompileNet_bn(net_);
        SetNetNumUndos_bn(net_, 1000, -1, nullptr);
        ASSERT_EQ(LastError(), 0);
    }
    void TearDown() override
    {
        ArgumentChecking_vx(CHECK_VALUES, env_);
        env_.Taken();
    }
    int LastError() { return env_.Taken(); }
    std::string Text() const { return TextOf(net_); }
    static int Count(const net_bn* net, const char* (*nth)(const net_bn*, int))
    {
        int count = 0;
        while (nth(net, count) != nullptr) ++count;
        return count;
    }
    int NumUndos() const { return Count(net_, GetNetNthUndo_bn); }
    int NumRedos() const { return Count(net_, GetNetNthRedo_bn); }

    TestEnviron env_;
    net_bn* net_ = nullptr;
    node_bn *smoking_ = nullptr, *cancer_ = nullptr;
};

TEST_F(SmallNetUndoTest, EachCallIsOneStepWithItsName)
{
    const state_bn every[] = {EVERY_STATE};
    const prob_bn row[] = {0.75f, 0.25f};
    const struct {
        const char* text;
        std::function<void()> edit;
    } kCases[] = {
        {"add node Age", [&] { NewNode_bn("Age", 3, net_); }},
        {"delete node Smoking", [&] { DeleteNode_bn(smoking_); }},
        {"rename node Cancer to Tumor", [&] { SetNodeName_bn(cancer_, "Tumor"); }},
        {"remove link Smoking -> Cancer", [&] { DeleteLink_bn(0, cancer_); }},
        {"disconnect link Smoking -> Cancer", [&] { SwitchNodeParent_bn(0, cancer_, nullptr); }},
        {"set probabilities of Cancer", [&] { SetNodeProbs_bn(cancer_, every, row); }},
        {"set experience of Cancer", [&] { SetNodeExperience_bn(cancer_, every, 20); }},
        {"delete tables of Cancer", [&] { DeleteNodeTables_bn(cancer_); }},
        {"add states to Smoking", [&] { AddNodeStates_bn(smoking_, 1, "rarely", 1, -1); }},
        {"remove state of Smoking", [&] { RemoveNodeState_bn(smoking_, 1); }},
        {"change kind of Smoking", [&] { SetNodeKind_bn(smoking_, DECISION_NODE); }},
        {"change title of Cancer", [&] { SetNodeTitle_bn(cancer_, "Lung cancer"); }},
        {"enter finding Smoking = yes", [&] { EnterFinding_bn(smoking_, 0); }},
        {"add Cancer to node set Diseases", [&] { AddNodeToNodeset_bn(cancer_, "Diseases"); }},
        {"rename net", [&] { SetNetName_bn(net_, "Chest"); }},
        {"change automatic updating", [&] { SetNetAutoUpdate_bn(net_, BELIEF_UPDATE); }},
        {"remove elimination order", [&] { SetNetElimOrder_bn(net_, nullptr); }},
    };
    const std::string before = Text();
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        c.edit();
        ASSERT_EQ(LastError(), 0);
        EXPECT_EQ(NumUndos(), 1);
        EXPECT_STREQ(GetNetNthUndo_bn(net_, 0), c.text);
        const std::string after = Text();
        EXPECT_NE(after, before);
        EXPECT_TRUE(UndoNetLastOper_vx(net_, -1));
        EXPECT_EQ(std::string("Undoing ") + c.text + ".\n",
                  ErrorMessage_vx(GetError_vx(env_, NULL_SEVERITY, 0, nullptr)));
        EXPECT_EQ(Text(), before);
        EXPECT_TRUE(IsNetCompiled_bn(net_));
        EXPECT_EQ(GetNodeBeliefs_bn(cancer_)[0], 0.21875f);
        EXPECT_STREQ(GetNetNthRedo_bn(net_, 0), c.text);
        EXPECT_TRUE(RedoNetOper_vx(net_, -1));
        EXPECT_EQ(Text(), after);
        EXPECT_TRUE(UndoNetLastOper_vx(net_, -1));
        EXPECT_EQ(LastError(), 0);
    }
}

TEST_F(SmallNetUndoTest, FailedCallsAndNoOpsLeaveNothing)
{
    SetNodeTitle_bn(cancer_, "kept for redoing");
    UndoNetLastOper_vx(net_, -1);
    nodelist_bn* twice = NewNodeList2_bn(0, net_);
    AddNodeToList_bn(smoking_, twice, -1);
    AddNodeToList_bn(smoking_, twice, -1);
    const prob_bn bad[] = {0.5f, 0.75f}, prior[] = {0.25f, 0.75f};
    const struct {
        const char* label;
        bool fails;
        std::function<void()> call;
    } kCases[] = {
        {"cycle", true, [&] { AddLink_bn(cancer_, smoking_); }},
        {"name in use", true, [&] { SetNodeName_bn(cancer_, "Smoking"); }},
        {"bad row", true, [&] { SetNodeProbs_bn(smoking_, nullptr, bad); }},
        {"copy that fails after its first node", true, [&] { CopyNodes_bn(twice, net_, nullptr); }},
        {"state out of bounds", true, [&] { EnterFinding_bn(smoking_, 2); }},
        {"same name", false, [&] { SetNodeName_bn(cancer_, "Cancer"); }},
        {"same row", false, [&] { SetNodeProbs_bn(smoking_, nullptr, prior); }},
        {"same parent", false, [&] { SwitchNodeParent_bn(0, cancer_, smoking_); }},
        {"same kind", false, [&] { SetNodeKind_bn(cancer_, NATURE_NODE); }},
        {"same order", false, [&] { SetNetElimOrder_bn(net_, GetNetElimOrder_bn(net_)); }},
        {"same setting", false, [&] { SetNetAutoUpdate_bn(net_, 0); }},
        {"nothing to retract", false, [&] { RetractNetFindings_bn(net_); }},
        {"compiling again", false, [&] { UncompileNet_bn(net_), CompileNet_bn(net_); }},
        {"question", false, [&] { GetNodeBeliefs_bn(cancer_); }},
    };
    const std::string before = Text();
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        c.call();
        EXPECT_EQ(LastError() != 0, c.fails);
        EXPECT_EQ(Text(), before);
        EXPECT_EQ(NumUndos(), 0);
        EXPECT_EQ(NumRedos(), 1);
    }
}

TEST_F(SmallNetUndoTest, NodesComeBackWithTheirHandles)
{
    nodelist_bn* list = NewNodeList2_bn(0, net_);
    AddNodeToList_bn(smoking_, list, -1);
    EnterFinding_bn(smoking_, 0);
    DeleteNode_bn(smoking_);
    EXPECT_EQ(GetNodeNamed_bn("Smoking", net_), nullptr);
    EXPECT_EQ(GetNodeName_bn(smoking_), nullptr);
    EXPECT_EQ(LastError(), 5184);
    node_bn* other = NewNode_bn("Smoking", 4, net_);
    UndoNetLastOper_vx(net_, -1);
    UndoNetLastOper_vx(net_, -1);
    EXPECT_EQ(GetNodeNamed_bn("Smoking", net_), smoking_);
    EXPECT_EQ(NthNode_bn(GetNetNodes2_bn(net_, nullptr), 0), smoking_);
    EXPECT_EQ(NthNode_bn(GetNodeParents_bn(cancer_), 0), smoking_);
    EXPECT_EQ(GetNodeBeliefs_bn(cancer_)[0], 0.5f);
    EXPECT_EQ(LastError(), 0);
    EXPECT_EQ(GetNodeKind_bn(other), 0);
    EXPECT_EQ(LastError(), 5184);
    RedoNetOper_vx(net_, -1);
    RedoNetOper_vx(net_, -1);
    EXPECT_EQ(GetNodeNamed_bn("Smoking", net_), other);
    SetNetUndoing_bn(net_, false);
    EXPECT_EQ(GetNodeName_bn(smoking_), nullptr);
    EXPECT_EQ(LastError(), 5184);
}

// With automatic updating the finding is stored before its consequences fail; it stays, with undo on and off.
TEST_F(SmallNetUndoTest, FindingStaysWhenUpdatingFails)
{
    const prob_bn certain[] = {1, 0, 0, 1};
    SetNodeTable_bn(cancer_, certain, 4);
    EnterFinding_bn(smoking_, 0);
    EnterFinding_bn(cancer_, 1);
    ASSERT_EQ(LastError(), 0);
    SetNetAutoUpdate_bn(net_, BELIEF_UPDATE);
    EXPECT_EQ(LastError(), 3305);
    EXPECT_EQ(GetNetAutoUpdate_bn(net_), BELIEF_UPDATE);
    EXPECT_STREQ(GetNetNthUndo_bn(net_, 0), "change automatic updating");
}

TEST_F(SmallNetUndoTest, GroupsFromOutside)
{
    const std::string before = Text();
    OpenNetUndoGroup_bn(net_, "draw model");
    node_bn* age = NewNode_bn("Age", 2, net_);
    AddLink_bn(age, smoking_);
    SetNodeName_bn(age, "Smoking");
    EXPECT_NE(LastError(), 0);
    EXPECT_EQ(GetNetUndoGroup_bn(net_), OPEN_UNDO_GROUP);
    EXPECT_FALSE(UndoNetLastOper_vx(net_, -1));
    EXPECT_NE(LastError(), 0);
    CloseNetUndoGroup_bn(net_);
    EXPECT_STREQ(GetNetNthUndo_bn(net_, 0), "draw model");
    UndoNetLastOper_vx(net_, -1);
    EXPECT_EQ(Text(), before);

    OpenNetUndoGroup_bn(net_, nullptr);
    SetNodeTitle_bn(smoking_, "x");
    AbortNetUndoGroup_bn(net_);
    EXPECT_EQ(Text(), before);
    EXPECT_EQ(GetNetUndoGroup_bn(net_), ABORTED_UNDO_GROUP);
    SetNodeTitle_bn(smoking_, "y");
    CloseNetUndoGroup_bn(net_);
    EXPECT_EQ(Text(), before);
    EXPECT_EQ(NumUndos(), 0);
    EXPECT_EQ(NumRedos(), 1);
    EXPECT_EQ(LastError(), 0);
}

TEST_F(SmallNetUndoTest, LimitsThroughTheInterface)
{
    const struct {
        const char* label;
        int count;
        double memory;
        const char* options;
        bool fails;
        int undos;
    } kCases[] = {
        {"nothing changes", -1, -1, nullptr, false, 5},
        {"bad count", -2, -1, nullptr, true, 5},
        {"bad memory", -1, -7, "", true, 5},
        {"options", 5, -1, "x", true, 5},
        {"count", 3, -1, "", false, 3},
        {"a limit on memory", -1, 100, nullptr, false, 0},
        {"off", 0, 0, nullptr, false, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        SetNetNumUndos_bn(net_, 1000, 0, nullptr);
        while (NumUndos() < 5) SetNodeTitle_bn(cancer_, std::to_string(NumUndos()).c_str());
        SetNetNumUndos_bn(net_, c.count, c.memory, c.options);
        EXPECT_EQ(LastError() != 0, c.fails);
        EXPECT_EQ(NumUndos(), c.undos);
    }
    EXPECT_FALSE(GetNetUndoing_bn(net_));
    SetNetNumUndos_bn(net_, 0, 0, nullptr);
    EXPECT_EQ(LastError(), 0);
    SetNetUndoing_bn(net_, true);
    EXPECT_EQ(LastError(), 3595);
    SetNodeTitle_bn(cancer_, "not recorded");
    EXPECT_FALSE(UndoNetLastOper_vx(net_, -1));
    EXPECT_FALSE(UndoNetLastOper_vx(net_, 7));
    EXPECT_NE(LastError(), 0);
}

TEST_F(SmallNetUndoTest, MemoryCountsWhatTheHistoryHolds)
{
    constexpr int kEntries = 40000;
    node_bn* wide = NewNode_bn("Wide", kEntries, net_);
    SetNodeTable_bn(wide, std::vector<prob_bn>(kEntries, 1.0f / kEntries).data(), kEntries);
    const double small = GetNetUndoMemory_bn(net_);
    EXPECT_LT(small, 10000);  // the net has the table
    DeleteNodeTables_bn(wide);
    EXPECT_GT(GetNetUndoMemory_bn(net_), small + 4 * kEntries);
    UndoNetLastOper_vx(net_, -1);
    DeleteNode_bn(wide);
    EXPECT_GT(GetNetUndoMemory_bn(net_), small + 4 * kEntries);
    EXPECT_LT(GetNetUndoMemory_bn(net_), small + 4 * kEntries + 10000);
    SetNetNumUndos_bn(net_, -1, 100000, nullptr);
    EXPECT_EQ(NumUndos(), 0);
    EXPECT_EQ(GetNetUndoMemory_bn(net_), 0);
}

}  // namespace
