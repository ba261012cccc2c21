// The history of a net: whatever was edited, walking back and forth gives the very nets that were there.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "Talora.h"

namespace {

// A net that is edited at random through the interface, most edits legal.
class RandomEditor {
public:
    RandomEditor(environ_vx* env, unsigned seed, bool compiles)
        : random_(seed), env_(env), net_(NewNet_bn("Edited", env)), compiles_(compiles)
    {
        for (int i = 0; i < 6; ++i) Edit(0);
        for (int i = 0; i < 40; ++i) Edit(Below(kNumEdits));
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    }
    ~RandomEditor() { DeleteNet_bn(net_); }

    net_bn* net() const { return net_; }
    int Below(int count) { return int(random_() % unsigned(count)); }
    void Edit() { Edit(Below(kNumEdits)); }

    // The net as text, and the order of children, which is not in it.  Compiling finds an order without being
    // an edit, so it is left out where nets are compiled in between.
    std::string Text() const
    {
        stream_vx* stream = NewMemoryStream_vx("net.dne", env_, nullptr);
        WriteNet_bn(net_, stream);
        std::string text = GetStreamContents_vx(stream, nullptr);
        DeleteStream_vx(stream);
        const size_t order = compiles_ ? text.find("\tElimOrder") : std::string::npos;
        if (order != std::string::npos) text.erase(order, text.find('\n', order) + 1 - order);
        const nodelist_bn* nodes = GetNetNodes2_bn(net_, nullptr);
        for (int i = 0; i < LengthNodeList_bn(nodes); ++i) {
            const nodelist_bn* children = GetNodeChildren_bn(NthNode_bn(nodes, i));
            for (int child = 0; child < LengthNodeList_bn(children); ++child)
                text.append(GetNodeName_bn(NthNode_bn(children, child))).append(" ");
            text += "\n";
        }
        return text;
    }
    // Beliefs of a copy, so that compiling leaves the net as it is; empty where there are none.
    std::vector<float> Beliefs() const
    {
        net_bn* copy = CopyNet_bn(net_, "Copy", env_, nullptr);
        CompileNet_bn(copy);
        std::vector<float> all;
        const nodelist_bn* nodes = GetNetNodes2_bn(copy, nullptr);
        for (int i = 0; i < LengthNodeList_bn(nodes); ++i) {
            node_bn* node = NthNode_bn(nodes, i);
            const prob_bn* beliefs = GetNodeBeliefs_bn(node);
            if (beliefs) all.insert(all.end(), beliefs, beliefs + GetNodeNumberStates_bn(node));
        }
        DeleteNet_bn(copy);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return all;
    }
    std::vector<node_bn*> Nodes() const
    {
        const nodelist_bn* list = GetNetNodes2_bn(net_, nullptr);
        std::vector<node_bn*> nodes;
        for (int i = 0; i < LengthNodeList_bn(list); ++i) nodes.push_back(NthNode_bn(list, i));
        return nodes;
    }

private:
    static constexpr int kNumEdits = 34;

    node_bn* Any()
    {
        const nodelist_bn* nodes = GetNetNodes2_bn(net_, nullptr);
        const int count = LengthNodeList_bn(nodes);
        return count == 0 ? NewNode_bn("First", 2, net_) : NthNode_bn(nodes, Below(count));
    }
    std::string Word(const char* stem) { return stem + std::to_string(Below(30)); }
    std::vector<state_bn> RowOf(const node_bn* node)
    {
        std::vector<state_bn> row(1, 0);
        const nodelist_bn* parents = GetNodeParents_bn(node);
        for (int i = 0; i < LengthNodeList_bn(parents); ++i) {
            if (i > 0) row.push_back(0);
            const int count = GetNodeNumberStates_bn(NthNode_bn(parents, i));
            row[i] = Below(4) == 0 ? state_bn(EVERY_STATE) : count > 0 ? Below(count) : 0;
        }
        return row;
    }
    std::vector<prob_bn> Distribution(int count)
    {
        std::vector<prob_bn> probs(count);
        double sum = 0;
        for (prob_bn& prob : probs) sum += prob = prob_bn(1 + Below(9));
        for (prob_bn& prob : probs) prob = prob_bn(prob / sum);
        return probs;
    }
    void FillTable(node_bn* node)
    {
        const double size = SizeNodeTable_bn(node);
        const int count = GetNodeNumberStates_bn(node);
        if (!(size > 0 && size < 20000)) return;
        std::vector<prob_bn> table;
        while (double(table.size()) < size)
            for (prob_bn prob : Distribution(count)) table.push_back(prob);
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
    }
    nodelist_bn* SomeNodes()
    {
        nodelist_bn* list = NewNodeList2_bn(0, net_);
        for (int i = Below(4); i >= 0; --i) {
            node_bn* node = Any();
            if (IndexOfNodeInList_bn(node, list, 0) < 0) AddNodeToList_bn(node, list, -1);
        }
        return list;
    }

    void Edit(int edit)
    {
        node_bn* node = Any();
        node_bn* other = Any();
        const int num_states = GetNodeNumberStates_bn(node);
        const int num_parents = LengthNodeList_bn(GetNodeParents_bn(node));
        const int parent = num_parents > 0 ? Below(num_parents) : 0;
        switch (edit) {
            case 0:
                NewNode_bn(Word("N").c_str(), Below(4), net_);
                break;
            case 1:
                DeleteNode_bn(node);
                break;
            case 2:
            case 3:
            case 4:
                if (num_parents < 4) AddLink_bn(other, node);
                break;
            case 5:
                DeleteLink_bn(parent, node);
                break;
            case 6:
                SwitchNodeParent_bn(parent, node, other);
                break;
            case 7:
                SwitchNodeParent_bn(parent, node, nullptr);
                break;
            case 8:
                ReconnectNodeLinks_bn(node);
                break;
            case 9:
                SetNodeName_bn(node, Word("N").c_str());
                break;
            case 10:
                SetNodeTitle_bn(node, Word("title ").c_str());
                break;
            case 11:
                SetNodeComment_bn(node, Word("a comment too long for the string itself ").c_str());
                break;
            case 12:
                SetNodeUserField_bn(node, Word("F").c_str(), Below(3) ? "value" : nullptr, -1, 0);
                break;
            case 13:
            case 14:
                FillTable(node);
                break;
            case 15:
                if (num_states > 0)
                    SetNodeProbs_bn(node, RowOf(node).data(), Distribution(num_states).data());
                break;
            case 16:
                SetNodeExperience_bn(node, RowOf(node).data(), Below(50));
                break;
            case 17:
                SetNodeFuncState_bn(node, RowOf(node).data(), num_states ? Below(num_states) : 0);
                break;
            case 18:
                DeleteNodeTables_bn(node);
                break;
            case 19:
                SetNodeKind_bn(node, nodekind_bn(1 + Below(4)));
                break;
            case 20:
                AddNodeStates_bn(node, -1, nullptr, 1 + Below(2), -1);
                break;
            case 21:
                if (num_states > 0) RemoveNodeState_bn(node, Below(num_states));
                break;
            case 22:
                if (num_states > 0) SetNodeStateName_bn(node, Below(num_states), Word("s").c_str());
                break;
            case 23: {
                std::vector<level_bn> levels = {Below(3) * 0.5};
                while (int(levels.size()) < num_states + 4) levels.push_back(levels.back() + 1);
                SetNodeLevels_bn(node, Below(2) ? num_states : 3, levels.data());
                break;
            }
            case 24:
            case 25:
                if (num_states > 0) EnterFinding_bn(node, Below(num_states));
                break;
            case 26:
                if (num_states > 0) EnterNodeLikelihood_bn(node, Distribution(num_states).data());
                break;
            case 27:
                RetractNodeFindings_bn(node);
                break;
            case 28:
                Below(4) ? RetractNodeFindings_bn(other) : RetractNetFindings_bn(net_);
                break;
            case 29: {
                nodelist_bn* list = SomeNodes();
                DeleteNodeList_bn(CopyNodes_bn(list, net_, Below(2) ? nullptr : "no_links"));
                DeleteNodeList_bn(list);
                break;
            }
            case 30:
                AddNodeToNodeset_bn(node, Word("S").c_str());
                break;
            case 31:
                SetNetAutoUpdate_bn(net_, Below(2) * BELIEF_UPDATE);
                break;
            case 32:
                if (compiles_) CompileNet_bn(net_);
                break;
            case 33: {
                nodelist_bn* order = NewNodeList2_bn(0, net_);
                for (node_bn* member : Nodes())
                    if (GetNodeKind_bn(member) == NATURE_NODE || GetNodeKind_bn(member) == DECISION_NODE)
                        AddNodeToList_bn(member, order, Below(2) - 1);
                SetNetElimOrder_bn(net_, Below(3) ? order : nullptr);
                DeleteNodeList_bn(order);
                break;
            }
        }
    }

    std::mt19937 random_;
    environ_vx* env_;
    net_bn* net_;
    const bool compiles_;
};

struct Stop {
    std::string text;
    std::vector<float> beliefs;
    std::vector<node_bn*> nodes;
};

class BnUndoTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ArgumentChecking_vx(CHECK_OBJECTS, env_);  // every call validates the whole net first
    }
    void TearDown() override
    {
        ArgumentChecking_vx(CHECK_VALUES, env_);
        CloseTalora_bn(env_, nullptr);
    }

    static Stop StopOf(const RandomEditor& editor)
    {
        return {editor.Text(), editor.Beliefs(), editor.Nodes()};
    }
    static int Count(const net_bn* net, const char* (*nth)(const net_bn*, int))
    {
        int count = 0;
        while (nth(net, count) != nullptr) ++count;
        return count;
    }
    int LastError()
    {
        const report_vx* error = GetError_vx(env_, ERROR_SEVERITY, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }

    environ_vx* env_ = nullptr;
};

// Another elimination order rounds otherwise, so beliefs are the same bits only where none was found.
void ExpectSame(const Stop& now, const Stop& then, double tolerance)
{
    EXPECT_EQ(now.text, then.text);
    EXPECT_EQ(now.nodes, then.nodes);
    ASSERT_EQ(now.beliefs.size(), then.beliefs.size());
    for (size_t i = 0; i < now.beliefs.size(); ++i) ASSERT_NEAR(now.beliefs[i], then.beliefs[i], tolerance);
}

TEST_F(BnUndoTest, RandomEditsWalkedBackAndForth)
{
    for (unsigned seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        const bool compiles = seed % 2 == 0;
        const double tolerance = compiles ? 1e-5 : 0;
        RandomEditor editor(env_, seed, compiles);
        net_bn* net = editor.net();
        UncompileNet_bn(net);
        SetNetElimOrder_bn(net, nullptr);
        SetNetNumUndos_bn(net, 100000, -1, nullptr);
        std::vector<Stop> stops = {StopOf(editor)};
        int at = 0;
        for (int turn = 0; turn < 60 && !HasFailure(); ++turn) {
            for (int edits = 1 + editor.Below(8); edits > 0; --edits) {
                const int count = Count(net, GetNetNthUndo_bn);
                editor.Edit();
                ClearErrors_vx(env_, INTERNAL_SEVERITY);
                const int steps = Count(net, GetNetNthUndo_bn) - count;
                if (steps == 0) {
                    EXPECT_EQ(editor.Text(), stops[at].text);
                    continue;
                }
                stops.resize(++at);
                stops.push_back(StopOf(editor));
                ASSERT_EQ(int(stops.size()), at + 1);
                ASSERT_EQ(Count(net, GetNetNthUndo_bn), at);
            }
            for (int walk = editor.Below(12); walk > 0; --walk) {
                const bool back = editor.Below(3) > 0;
                const bool moved = back ? UndoNetLastOper_vx(net, -1) : RedoNetOper_vx(net, -1);
                ASSERT_EQ(moved, back ? at > 0 : at + 1 < int(stops.size()));
                if (moved) at += back ? -1 : 1;
                ExpectSame(StopOf(editor), stops[at], tolerance);
                if (HasFailure()) FAIL() << "at step " << at;
            }
        }
        while (UndoNetLastOper_vx(net, -1)) --at;
        ASSERT_EQ(at, 0);
        ExpectSame(StopOf(editor), stops[0], tolerance);
        while (RedoNetOper_vx(net, -1)) ++at;
        ASSERT_EQ(at + 1, int(stops.size()));
        ExpectSame(StopOf(editor), stops[at], tolerance);
    }
}

// Smoking -> Cancer, compiled, with undo on.
class SmallNetUndoTest : public BnUndoTest {
protected:
    void SetUp() override
    {
        BnUndoTest::SetUp();
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
    std::string Text() const
    {
        stream_vx* stream = NewMemoryStream_vx("net.dne", env_, nullptr);
        WriteNet_bn(net_, stream);
        std::string text = GetStreamContents_vx(stream, nullptr);
        DeleteStream_vx(stream);
        return text;
    }
    int NumUndos() const { return Count(net_, GetNetNthUndo_bn); }
    int NumRedos() const { return Count(net_, GetNetNthRedo_bn); }

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
