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
        ClearErrors_vx(env_, XXX_ERR);
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
        ClearErrors_vx(env_, XXX_ERR);
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
                std::vector<level_bn> levels = {0, 1, 2.5, 7, 9};
                while (static_cast<int>(levels.size()) <= num_states) levels.push_back(2 * levels.back());
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
        ArgumentChecking_vx(COMPLETE_CHECK, env_);  // every call validates the whole net first
    }
    void TearDown() override
    {
        ArgumentChecking_vx(REGULAR_CHECK, env_);
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
        const report_vx* error = GetError_vx(env_, ERROR_ERR, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        ClearErrors_vx(env_, XXX_ERR);
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
                ClearErrors_vx(env_, XXX_ERR);
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

}  // namespace
