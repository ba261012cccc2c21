// Nets, nodes, states, links and tables through the interface: what is refused with what, and how tables
// follow changes of structure.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Talora.h"

namespace {

class ModelApiTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        net_ = NewNet_bn("Test", env_);
    }
    void TearDown() override
    {
        ArgumentChecking_vx(CHECK_VALUES, env_);
        CloseTalora_bn(env_, nullptr);
    }

    node_bn* Add(const char* name, int num_states, std::vector<node_bn*> parents = {})
    {
        node_bn* node = NewNode_bn(name, num_states, net_);
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        return node;
    }

    // Fills a table with its own entry numbers, scaled to rows of sum 1, so that every row can be recognised.
    void FillTable(node_bn* node)
    {
        const int num_states = GetNodeNumberStates_bn(node);
        std::vector<prob_bn> table(size_t(SizeNodeTable_bn(node)));
        for (size_t row = 0; row * num_states < table.size(); ++row) {
            const float first = 1.0f / float(row + 2);
            table[row * num_states] = first;
            for (int i = 1; i < num_states; ++i)
                table[row * num_states + i] = (1 - first) / float(num_states - 1);
        }
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
    }

    float FirstProb(node_bn* node, std::vector<state_bn> parents)
    {
        const prob_bn* row = GetNodeProbs_bn(node, parents.data());
        return row ? row[0] : -1;
    }

    int TakeError()
    {
        const report_vx* error = GetError_vx(env_, WARNING_SEVERITY, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        message_ = error ? ErrorMessage_vx(error) : "";
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }

    environ_vx* env_ = nullptr;
    net_bn* net_ = nullptr;
    std::string message_;
};

TEST_F(ModelApiTest, Names)
{
    const struct {
        const char* label;
        const char* name;
        int error;
        const char* text;
    } cases[] = {
        {"30 characters", "A23456789012345678901234567890", 0, ""},
        {"31 characters", "A234567890123456789012345678901", 5118,
         "'A234567890123456789012345678901...' is too long (31 characters, maximum is 30)"},
        {"underscore first", "_x", 0, ""},
        {"digit inside", "A_1", 0, ""},
        {"digit first", "1A", 5118, "'1A' starts with non-alphabetic character '1'"},
        {"space", "a b", 5118, "'a b' contains a space"},
        {"tab", "a\tb", 5118, "'a\tb' contains a tab"},
        {"minus", "a-b", 5118, "contains the illegal character '-'"},
        {"not ascii", "\xC3\xA4", 5118, "contains an illegal character (ascii code 195)"},
        {"empty", "", 5142, "empty string passed for name"},
        {"missing", nullptr, 5114, "NULL passed for name"},
        {"wide", "\xFF\xFEW\0i\0d\0e\0\0", 0, ""},
        {"used before", "_x", 6110, "name '_x' is already used by another node_bn in net_bn 'Test'"},
        {"star", "*", 5118, "illegal character '*'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const node_bn* node = NewNode_bn(c.name, 2, net_);
        EXPECT_EQ(node == nullptr, c.error != 0);
        EXPECT_EQ(TakeError(), c.error);
        EXPECT_NE(message_.find(c.text), std::string::npos) << message_;
    }
    EXPECT_NE(GetNodeNamed_bn("Wide", net_), nullptr);
    SetNodeName_bn(GetNodeNamed_bn("_x", net_), "*");
    EXPECT_EQ(TakeError(), 0) << message_;
    EXPECT_NE(GetNodeNamed_bn("*", net_), nullptr);
    EXPECT_EQ(GetNodeNamed_bn("_x", net_), nullptr);
}

TEST_F(ModelApiTest, BadHandles)
{
    node_bn* node = Add("A", 2);
    DeleteNode_bn(node);
    GetNodeName_bn(node);
    EXPECT_EQ(TakeError(), 5184);
    GetNodeName_bn(nullptr);
    EXPECT_EQ(TakeError(), 5105);
    GetNodeName_bn(reinterpret_cast<node_bn*>(net_));
    EXPECT_EQ(TakeError(), 5144);
    net_bn* gone = NewNet_bn("Gone", env_);
    DeleteNet_bn(gone);
    EXPECT_EQ(GetNetName_bn(gone), nullptr);
    EXPECT_EQ(TakeError(), 5143);
    GetNetName_bn(nullptr);
    EXPECT_EQ(TakeError(), 5104);
    ArgumentChecking_vx(CHECK_NOTHING, env_);
    EXPECT_EQ(GetNetName_bn(nullptr), nullptr);
    EXPECT_EQ(TakeError(), 0);
}

TEST_F(ModelApiTest, LinksAndCycles)
{
    node_bn *a = Add("A", 2), *b = Add("B", 2), *c = Add("C", 2);
    EXPECT_EQ(AddLink_bn(a, b), 0);
    EXPECT_EQ(AddLink_bn(b, c), 0);
    EXPECT_EQ(AddLink_bn(c, a), -1);
    EXPECT_EQ(TakeError(), 6101);
    EXPECT_EQ(AddLink_bn(a, a), -1);
    EXPECT_EQ(TakeError(), 6101);
    EXPECT_EQ(AddLink_bn(a, b), -1);
    EXPECT_EQ(TakeError(), 6102);
    node_bn* stranger = NewNode_bn("S", 2, NewNet_bn("Other", env_));
    EXPECT_EQ(AddLink_bn(stranger, a), -1);
    EXPECT_EQ(TakeError(), 3213);
    // A delayed link closes no cycle, but its delay cannot then be taken away.
    SetNodeInputDelay_bn(b, 0, "1");
    EXPECT_EQ(AddLink_bn(c, a), 0);
    SetNodeInputDelay_bn(b, 0, nullptr);
    EXPECT_EQ(TakeError(), 6101);
    EXPECT_STREQ(GetNodeInputDelay_bn(b, 0), "1");
    CompileNet_bn(net_);
    EXPECT_EQ(TakeError(), 6001);
    DeleteLink_bn(1, b);
    EXPECT_EQ(TakeError(), 6104);
    EXPECT_TRUE(IsNodeAncestor_bn(b, a));
    EXPECT_FALSE(IsNodeAncestor_bn(a, b));
}

TEST_F(ModelApiTest, KindRules)
{
    node_bn* a = Add("A", 2);
    const struct {
        int kind, error;
    } cases[] = {{NATURE_NODE, 0},          {CONSTANT_NODE, 0},     {DECISION_NODE, 0}, {UTILITY_NODE, 0},
                 {DISCONNECTED_NODE, 6113}, {ADVERSARY_NODE, 6114}, {7, 6112},          {-1, 6112}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind);
        SetNodeKind_bn(a, nodekind_bn(c.kind));
        EXPECT_EQ(TakeError(), c.error);
    }
    EXPECT_EQ(GetNodeKind_bn(a), UTILITY_NODE);
    EXPECT_EQ(GetNodeType_bn(a), DISCRETE_TYPE);
    EXPECT_EQ(GetNodeType_bn(NewNode_bn("X", 0, net_)), CONTINUOUS_TYPE);
}

TEST_F(ModelApiTest, ProbabilityVectors)
{
    node_bn* a = Add("A", 3);
    const struct {
        const char* label;
        prob_bn probs[3];
        int error;
        const char* text;
    } cases[] = {
        {"sum a little high", {0.3f, 0.4f, 0.3000015f}, 0, ""},
        {"sum too high", {0.3f, 0.4f, 0.3000035f}, 5133, "sum of probabilities isn't 1 (100%)"},
        {"sum too low", {0.3f, 0.3f, 0.3f}, 5133, "sum of probabilities isn't 1 (100%)"},
        {"all zero", {0, 0, 0}, 0, ""},
        {"negative", {0.5f, -0.1f, 0.6f}, 5133, "has a negative probability"},
        {"above one",
         {1.5f, 0, 0},
         5133,
         "has a probability greater than 1, sum of probabilities isn't 1 (100%)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        SetNodeProbs_bn(a, nullptr, c.probs);
        EXPECT_EQ(TakeError(), c.error);
        EXPECT_NE(message_.find(c.text), std::string::npos) << message_;
    }
    SetNodeProbs_bn(a, nullptr, nullptr);
    EXPECT_EQ(TakeError(), 5113);
}

TEST_F(ModelApiTest, TablesThatCannotBe)
{
    node_bn* child = Add("Big", 400);
    for (int i = 0; i < 20; ++i) AddLink_bn(Add(("P" + std::to_string(i)).c_str(), 2), child);
    std::vector<state_bn> parents(20, 0);
    std::vector<prob_bn> probs(400, 1.0f / 400);
    SetNodeProbs_bn(child, parents.data(), probs.data());
    EXPECT_EQ(TakeError(), 3615);
    EXPECT_NE(message_.find("(4.1943e+08)"), std::string::npos) << message_;
    for (int i = 20; i < 70; ++i) AddLink_bn(Add(("P" + std::to_string(i)).c_str(), 2), child);
    parents.resize(70, 1);
    SetNodeExperience_bn(child, parents.data(), 1);  // more rows than can be numbered
    EXPECT_EQ(TakeError(), 3615);

    node_bn *real = Add("Real", 0), *below = Add("Below", 2, {real});
    const prob_bn half[] = {0.5f, 0.5f};
    const state_bn none[] = {0};
    SetNodeProbs_bn(below, none, half);
    EXPECT_EQ(TakeError(), 3081);
    SetNodeProbs_bn(real, nullptr, half);
    EXPECT_EQ(TakeError(), 6155);
    EXPECT_EQ(GetNodeProbs_bn(below, none), nullptr);
    EXPECT_EQ(TakeError(), 0);
}

TEST_F(ModelApiTest, ParentStates)
{
    node_bn *p = Add("P", 2), *q = Add("Q", 3), *x = Add("X", 2, {p, q});
    const prob_bn probs[] = {0.25f, 0.75f};
    const struct {
        const char* label;
        std::vector<state_bn> states;
        int error;
    } cases[] = {{"in range", {1, 2}, 0},
                 {"undefined", {UNDEF_STATE, 0}, 6151},
                 {"impossible", {0, IMPOSS_STATE}, 6153},
                 {"too large", {0, 3}, 6154},
                 {"illegal negative", {-1, 0}, 6154}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        SetNodeProbs_bn(x, c.states.data(), probs);
        EXPECT_EQ(TakeError(), c.error) << message_;
    }
    SetNodeProbs_bn(x, nullptr, probs);
    EXPECT_EQ(TakeError(), 6150);
    const state_bn second_of_p[] = {1, EVERY_STATE};
    SetNodeProbs_bn(x, second_of_p, probs);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(FirstProb(x, {1, i}), 0.25f);
    EXPECT_TRUE(IsMissingProb_bn(FirstProb(x, {0, 0})));
    EXPECT_EQ(FirstProb(x, {0, 0}), GetMissingProb_bn());
    GetNodeProbs_bn(x, second_of_p);
    EXPECT_EQ(TakeError(), 6152);
}

// Rows of FillTable begin with 1 / (row + 2).
TEST_F(ModelApiTest, TablesFollowParents)
{
    node_bn *p = Add("P", 2), *q = Add("Q", 3), *r = Add("R", 2), *x = Add("X", 2, {p, q});
    FillTable(x);
    const state_bn all[] = {1, 2};
    SetNodeExperience_bn(x, all, 7);
    AddLink_bn(r, x);
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 2; ++k) EXPECT_EQ(FirstProb(x, {i, j, k}), 1.0f / float(3 * i + j + 2));
    const state_bn with_r[] = {1, 2, 1};
    EXPECT_EQ(GetNodeExperience_bn(x, with_r), 7);
    DeleteLink_bn(0, x);  // the slice for P's first state stays
    for (int j = 0; j < 3; ++j) EXPECT_EQ(FirstProb(x, {j, 1}), 1.0f / float(j + 2));
    SwitchNodeParent_bn(0, x, nullptr);
    EXPECT_TRUE(IsLinkDisconnected_bn(0, x));
    node_bn* stand_in = NthNode_bn(GetNodeParents_bn(x), 0);
    EXPECT_EQ(GetNodeKind_bn(stand_in), DISCONNECTED_NODE);
    EXPECT_EQ(FirstProb(x, {2, 0}), 0.25f);
    EXPECT_EQ(AddLink_bn(stand_in, q), -1);
    EXPECT_EQ(TakeError(), 6105);
    EXPECT_EQ(ReconnectNodeLinks_bn(x), 1);
    EXPECT_EQ(NthNode_bn(GetNodeParents_bn(x), 0), q);
    EXPECT_EQ(LengthNodeList_bn(GetNetNodes2_bn(net_, nullptr)), 4);
    SwitchNodeParent_bn(0, x, nullptr);
    DeleteNode_bn(q);
    EXPECT_EQ(ReconnectNodeLinks_bn(x), -1);
    EXPECT_EQ(TakeError(), 6108);
    EXPECT_EQ(FirstProb(x, {2, 0}), 0.25f);
    DeleteNode_bn(r);
    EXPECT_EQ(SizeNodeTable_bn(x), 6);
    EXPECT_EQ(FirstProb(x, {1}), 1.0f / 3);
    ArgumentChecking_vx(CHECK_OBJECTS, env_);
    EXPECT_STREQ(GetNetName_bn(net_), "Test");
    EXPECT_EQ(TakeError(), 0) << message_;
}

TEST_F(ModelApiTest, TablesFollowStates)
{
    node_bn *p = Add("P", 3), *x = Add("X", 3, {p}), *y = Add("Y", 2, {x});
    SetNodeStateNames_bn(x, "a, b, c");
    FillTable(x);
    FillTable(y);
    EnterFinding_bn(x, 2);

    const state_bn order[] = {2, 0, 1};
    ReorderNodeStates_bn(x, order);
    EXPECT_STREQ(GetNodeStateName_bn(x, 0), "c");
    EXPECT_EQ(GetNodeFinding_bn(x), 0);
    const state_bn second[] = {1};
    EXPECT_EQ(GetNodeProbs_bn(x, second)[1], 1.0f / 3);
    EXPECT_EQ(FirstProb(y, {0}), 0.25f);
    EXPECT_EQ(FirstProb(y, {1}), 0.5f);

    AddNodeStates_bn(x, 1, "n", 1, 0);
    EXPECT_EQ(GetStateNamed_bn("n", x), 1);
    EXPECT_EQ(GetNodeProbs_bn(x, second)[1], 0.0f);
    EXPECT_EQ(GetNodeProbs_bn(x, second)[2], 1.0f / 3);
    EXPECT_EQ(FirstProb(y, {2}), 0.5f);
    AddNodeStates_bn(x, -1, nullptr, 1, GetUndefDbl_vx());
    EXPECT_EQ(TakeError(), 6133);  // all names are dropped
    EXPECT_STREQ(GetNodeStateName_bn(x, 0), "");
    EXPECT_TRUE(IsMissingProb_bn(GetNodeProbs_bn(x, second)[4]));
    RemoveNodeState_bn(x, 4);
    RemoveNodeState_bn(x, 1);
    RemoveNodeState_bn(x, 0);
    EXPECT_EQ(GetNodeFinding_bn(x), UNDEF_STATE);
    EXPECT_FLOAT_EQ(GetNodeProbs_bn(x, second)[0], 0.5f);  // 1/3 and 1/3, rescaled
    EXPECT_EQ(FirstProb(y, {1}), 1.0f / 3);
    EXPECT_EQ(TakeError(), 0) << message_;
    const struct {
        const char* label;
        std::function<void()> act;
        int error;
    } cases[] = {
        {"position", [&] { AddNodeStates_bn(x, 5, nullptr, 1, 0); }, 6127},
        {"fill", [&] { AddNodeStates_bn(x, -1, nullptr, 1, 0.5); }, 6128},
        {"state that is not there", [&] { RemoveNodeState_bn(x, 9); }, 6122},
        {"too few names", [&] { SetNodeStateNames_bn(x, "one"); }, 6125},
        {"repeated names", [&] { SetNodeStateNames_bn(x, "one,one"); }, 6126},
        {"illegal name", [&] { SetNodeStateName_bn(x, 0, "a b"); }, 6123},
        {"levels of another number of states", [&] { SetNodeLevels_bn(x, 7, nullptr); }, 6140},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        c.act();
        EXPECT_EQ(TakeError(), c.error) << message_;
        EXPECT_EQ(GetNodeNumberStates_bn(x), 2);
    }
}

TEST_F(ModelApiTest, CopiesAreEqualAndApart)
{
    node_bn *p = Add("P", 2), *q = Add("Q", 2, {p}), *x = Add("X", 2, {p, q});
    FillTable(x);
    AddNodeToNodeset_bn(q, "middle");
    SetNodeUserField_bn(x, "colour", "red", -1, 0);
    EnterFinding_bn(x, 1);
    net_bn* copy = CopyNet_bn(net_, "Copy", nullptr, nullptr);
    node_bn* x2 = GetNodeNamed_bn("X", copy);
    EXPECT_EQ(NthNode_bn(GetNodeParents_bn(x2), 1), GetNodeNamed_bn("Q", copy));
    EXPECT_EQ(FirstProb(x2, {1, 1}), 0.2f);
    EXPECT_EQ(GetNodeFinding_bn(x2), 1);
    EXPECT_STREQ(GetNodeUserField_bn(x2, "colour", nullptr, 0), "red");
    EXPECT_TRUE(IsNodeInNodeset_bn(GetNodeNamed_bn("Q", copy), "middle"));
    CopyNet_bn(net_, "Copy", nullptr, "no_nodes,colours");
    EXPECT_EQ(TakeError(), 5628);

    // Into another net without its parents: they become disconnected; into the same net: they stay.
    nodelist_bn* list = NewNodeList2_bn(0, net_);
    AddNodeToList_bn(x, list, -1);
    net_bn* other = NewNet_bn("Other", env_);
    nodelist_bn* made = CopyNodes_bn(list, other, nullptr);
    EXPECT_TRUE(IsLinkDisconnected_bn(1, NthNode_bn(made, 0)));
    EXPECT_EQ(LengthNodeList_bn(GetNetNodes2_bn(other, nullptr)), 3);
    nodelist_bn* same = CopyNodes_bn(list, net_, nullptr);
    EXPECT_STREQ(GetNodeName_bn(NthNode_bn(same, 0)), "X_1");
    EXPECT_EQ(NthNode_bn(GetNodeParents_bn(NthNode_bn(same, 0)), 0), p);
    AddNodeToList_bn(nullptr, list, 0);
    EXPECT_EQ(CopyNodes_bn(list, other, nullptr), nullptr);
    EXPECT_EQ(TakeError(), 5150);
    ClearNodeList_bn(const_cast<nodelist_bn*>(GetNetNodes2_bn(net_, nullptr)));
    EXPECT_EQ(TakeError(), 6200);
    DeleteNode_bn(q);
    EXPECT_EQ(LengthNodeList_bn(GetNodeParents_bn(x2)), 2);
    EXPECT_FALSE(IsNodeInNodeset_bn(p, "middle"));
}

// Each field is set before any is read, so that none stands in for another.
TEST_F(ModelApiTest, FieldsAreApart)
{
    node_bn *p = Add("P", 2), *a = Add("A", 2, {p});
    static net_bn* net;
    static node_bn* node;
    net = net_, node = a;
    const struct {
        const char* value;
        void (*set)(const char* value);
        const char* (*get)();
    } fields[] = {
        {"net title", [](auto v) { SetNetTitle_bn(net, v); }, [] { return GetNetTitle_bn(net); }},
        {"net comment", [](auto v) { SetNetComment_bn(net, v); }, [] { return GetNetComment_bn(net); }},
        {"net author", [](auto v) { SetNetAuthor_bn(net, v); }, [] { return GetNetAuthor_bn(net); }},
        {"who changed the net", [](auto v) { SetNetLastChange_bn(net, v, 4000000000u); },
         [] { return GetNetLastChange_bn(net, nullptr); }},
        {"net field", [](auto v) { SetNetUserField_bn(net, "f", v, -1, 0); },
         [] { return GetNetUserField_bn(net, "f", nullptr, 0); }},
        {"title", [](auto v) { SetNodeTitle_bn(node, v); }, [] { return GetNodeTitle_bn(node); }},
        {"comment", [](auto v) { SetNodeComment_bn(node, v); }, [] { return GetNodeComment_bn(node); }},
        {"units", [](auto v) { SetNodeUnits_bn(node, v); }, [] { return GetNodeUnits_bn(node); }},
        {"author", [](auto v) { SetNodeAuthor_bn(node, v); }, [] { return GetNodeAuthor_bn(node); }},
        {"who changed the node", [](auto v) { SetNodeLastChange_bn(node, v, 5); },
         [] { return GetNodeLastChange_bn(node, nullptr); }},
        {"node field", [](auto v) { SetNodeUserField_bn(node, "f", v, -1, 0); },
         [] { return GetNodeUserField_bn(node, "f", nullptr, 0); }},
        {"state title", [](auto v) { SetNodeStateTitle_bn(node, 1, v); },
         [] { return GetNodeStateTitle_bn(node, 1); }},
        {"state comment", [](auto v) { SetNodeStateComment_bn(node, 1, v); },
         [] { return GetNodeStateComment_bn(node, 1); }},
        {"input", [](auto v) { SetNodeInputName_bn(node, 0, v); },
         [] { return GetNodeInputName_bn(node, 0); }},
        {"2", [](auto v) { SetNodePersistance_bn(node, v); }, [] { return GetNodePersistance_bn(node); }},
        {"RATIO", [](auto v) { SetNodeMeasure_bn(node, v); }, [] { return GetNodeMeasure_bn(node); }},
    };
    SetNetNumDimensions_bn(net_, 1);
    for (const auto& f : fields) {
        f.set(f.value);
        EXPECT_EQ(TakeError(), 0) << f.value << ": " << message_;
    }
    for (const auto& f : fields) EXPECT_STREQ(f.get(), f.value);
    uint32_t when = 0;
    GetNetLastChange_bn(net_, &when);
    EXPECT_EQ(when, 4000000000u);
    const char *name = nullptr, *value = nullptr;
    int length = 0;
    GetNetNthUserField_bn(net_, 0, &name, &value, &length, 0);
    EXPECT_STREQ(value, "net field");
    GetNodeNthUserField_bn(a, 0, &name, &value, &length, 0);
    EXPECT_STREQ(value, "node field");
    EXPECT_EQ(length, 10);
    GetNodeNthUserField_bn(a, 1, &name, &value, &length, 0);
    EXPECT_EQ(name, nullptr) << "behind the last";

    AddNodeToNodeset_bn(a, "s");
    AddNodeToNodeset_bn(p, "s");
    RemoveNodeFromNodeset_bn(a, "s");
    EXPECT_STREQ(GetNthNodeset_bn(net_, 0), "s");
    nodelist_bn* members = GetNodesetNodes_bn("s", net_);
    EXPECT_EQ(LengthNodeList_bn(members), 1);
    EXPECT_EQ(RemoveNthNode_bn(members, -1), p);
    EXPECT_TRUE(IsNodeInNodeset_bn(p, "s")) << "the list is the caller's own";
    EXPECT_EQ(TakeError(), 0) << message_;
}

// A table that may not match its equation is built again when the user says so.
TEST_F(ModelApiTest, StaleTables)
{
    static std::string question;
    static int answer = 0;
    node_bn *p = Add("P", 2), *x = Add("X", 2, {p});
    SetNodeStateNames_bn(p, "yes,no");
    SetNodeStateNames_bn(x, "yes,no");
    FillTable(p);
    SetQuestionHandler_vx(
        env_,
        [](environ_vx*, const char* text, const char*, const char*, void*) {
            question = text;
            return answer;
        },
        nullptr);
    for (answer = 3; answer >= 0; --answer) {
        SCOPED_TRACE(answer);  // Yes, Not Now, Ignore any Discrepency, Cancel
        SetNodeEquation_bn(x, "X (P) = P");
        ASSERT_EQ(TakeError(), 0) << message_;
        question.clear();
        UncompileNet_bn(net_);
        CompileNet_bn(net_);
        EXPECT_NE(question.find("The tables for some node(s) (e.g. X) may not match their equation."),
                  std::string::npos)
            << question;
        EXPECT_EQ(IsNetCompiled_bn(net_), answer != 3);
        EXPECT_EQ(HasNodeTable_bn(x, nullptr), answer == 0);
        TakeError();
    }
}

TEST_F(ModelApiTest, Labels)
{
    node_bn* a = Add("A", 2);
    SetNodeTitle_bn(a,
                    "Gr\xC3\xB6\xC3\x9F"
                    "e\nof things");
    char label[8];
    EXPECT_EQ(GetNodeLabel_bn(a, nullptr, nullptr, 0), 17);
    GetNodeLabel_bn(a, nullptr, label, sizeof label);
    EXPECT_STREQ(label,
                 "Gr\xC3\xB6\xC3\x9F"
                 "e");
    GetNodeLabel_bn(a, nullptr, label, 6);  // not inside a character
    EXPECT_STREQ(label, "Gr\xC3\xB6");
    GetNodeLabel_bn(a, nullptr, nullptr, 5);
    EXPECT_EQ(TakeError(), 6195);
    GetNodeStateLabel_bn(a, 1, nullptr, label, sizeof label);
    EXPECT_STREQ(label, "#1");
}

// Lists that belong to a net, a node or a junction tree end with it: using one that was kept is an error.
TEST_F(ModelApiTest, ListsOfOthersAreRecognisedAsDeleted)
{
    node_bn *a = Add("A", 2), *b = Add("B", 2, {a}), *c = Add("C", 2, {b});
    const auto cliques = [&] { return GetCliqueNodes_bn(net_, 0); };
    const auto compile = [&] {
        CompileNet_bn(net_);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    };
    const nodelist_bn* kept = nullptr;
    const struct {
        const char* label;
        std::function<const nodelist_bn*()> list;
        std::function<void()> end;
    } rows[] = {
        {"uncompiled", cliques, [&] { UncompileNet_bn(net_); }},
        {"compiled anew", cliques, [&] { UncompileNet_bn(net_), compile(); }},
        {"its like made anew", cliques, [&] { UncompileNet_bn(net_), compile(), cliques(); }},
        {"discarded by an edit", cliques, [&] { AddLink_bn(a, c); }},
        {"by another order", cliques,
         [&] { SetNetElimOrder_bn(net_, NewNodeList2_bn(0, net_)), SetNetElimOrder_bn(net_, nullptr); }},
        {"parents of a node", [&] { return GetNodeParents_bn(c); }, [&] { DeleteNode_bn(c); }},
        {"elimination order of a net", [&] { return GetNetElimOrder_bn(net_); }, [&] { DeleteNet_bn(net_); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        compile();
        kept = row.list();
        EXPECT_GE(LengthNodeList_bn(kept), 1);
        EXPECT_EQ(TakeError(), 0) << message_;
        row.end();
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        EXPECT_EQ(LengthNodeList_bn(kept), -1);
        EXPECT_EQ(TakeError(), 5145) << message_;
        EXPECT_EQ(NthNode_bn(kept, 0), nullptr);
        EXPECT_EQ(TakeError(), 5145) << message_;
    }
}

}  // namespace
