// What an update says when findings bring about a condition that a table declares impossible.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Support/RandomNet.h"
#include "Support/TestEnviron.h"

namespace {

// A and B are parents of C, C of D; every node has the states yes and no.
struct Quartet {
    explicit Quartet(environ_vx* env) : net(NewNet_bn("Quartet", env))
    {
        for (const char* name : {"A", "B", "C", "D"})
            SetNodeStateNames_bn(NewNode_bn(name, 2, net), "yes,no");
        AddLink_bn((*this)["A"], (*this)["C"]);
        AddLink_bn((*this)["B"], (*this)["C"]);
        AddLink_bn((*this)["C"], (*this)["D"]);
        Table("A", {0.3f, 0.7f});
        Table("B", {0.2f, 0.8f});
        Table("C", {0.9f, 0.1f, 0.5f, 0.5f, 0.4f, 0.6f, 0.3f, 0.7f});
        Table("D", {1, 0, 0.25f, 0.75f});
    }
    node_bn* operator[](const char* name) const { return GetNodeNamed_bn(name, net); }
    void Table(const char* name, std::vector<prob_bn> table)
    {
        SetNodeTable_bn((*this)[name], table.data(), int64_t(table.size()));
    }
    // C: the row of A and B becomes zeros.
    void Forbid(int a, int b)
    {
        const state_bn parents[] = {a, b};
        const prob_bn zeros[] = {0, 0};
        SetNodeProbs_bn((*this)["C"], parents, zeros);
    }
    void MakeFunction()
    {
        DeleteNodeTables_bn((*this)["C"]);
        for (const int a : {0, 1})
            for (const int b : {0, 1}) {
                const state_bn parents[] = {a, b};
                SetNodeFuncState_bn((*this)["C"], parents, a == 1 && b == 1 ? int(IMPOSS_STATE) : a);
            }
    }
    void Enter(const char* name, int state) { EnterFinding_bn((*this)[name], state); }

    net_bn* net;
};

TEST(ImpossibleConditionTest, NamesNodeAndCondition)
{
    const struct {
        const char* label;
        std::function<void(const Quartet&)> prepare;
        int error;
        const char* message;
    } kCases[] = {
        {"findings at all parents",
         [](Quartet q) {
             q.Forbid(1, 0);
             q.Enter("A", 1);
             q.Enter("B", 0);
         },
         2102, "in the CPT of node C, parent conditions declared \"impossible\" have occurred: A=no, B=yes"},
        {"one parent is constant",
         [](Quartet q) {
             q.Table("B", {1, 0});
             SetNodeKind_bn(q["B"], CONSTANT_NODE);
             q.Forbid(1, 0);
             q.Enter("A", 1);
         },
         2102, "in the CPT of node C, parent conditions declared \"impossible\" have occurred: A=no, B=yes"},
        {"rows of the other parent, the more probable one is named",
         [](Quartet q) {
             q.Forbid(1, 0);
             q.Forbid(1, 1);
             q.Enter("A", 1);
         },
         2489,
         "the CPTable of node C indicates a condition is impossible (e.g. with a row of Xs, or a vector of all "
         "zeros), but in this net it is possible.  Condition is [A=no, B=no]"},
        {"a function table",
         [](Quartet q) {
             q.MakeFunction();
             q.Table("B", {0, 1});
             q.Enter("A", 1);
         },
         2489,
         "the functable of node C indicates a condition is impossible (e.g. with an X), but in this net it is "
         "possible.  Condition is [A=no, B=no]"},
        {"a table made by an equation",
         [](Quartet q) {
             q.Forbid(1, 0);
             q.Forbid(1, 1);
             SetNodeEquation_bn(q["C"], "C (A, B) = A");
             q.Enter("A", 1);
         },
         2487,
         "the equation of node C indicates a condition is impossible, but in this net it is possible.  "
         "Condition is [A=no, B=no]"},
        {"a table without parents",
         [](Quartet q) {
             q.Table("B", {0, 0});
             q.Enter("A", 1);
         },
         2102, "in the CPT of node B, parent conditions declared \"impossible\" have occurred: "},
        {"findings that contradict one another whatever the row says",
         [](Quartet q) {
             q.Forbid(1, 0);
             q.Enter("C", 0);
             q.Enter("D", 1);
         },
         3305, "according to this model, the finding(s) entered are inconsistent"},
        {"a row that is not the cause",
         [](Quartet q) {
             q.Forbid(0, 0);
             q.Enter("A", 1);
         },
         0, ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        TestEnviron env;
        Quartet quartet(env);
        SetNetAutoUpdate_bn(quartet.net, 0);
        c.prepare(quartet);
        ASSERT_EQ(env.Taken(), 0) << env.Message();
        CompileNet_bn(quartet.net);
        UpdateNetBeliefs_bn(quartet.net);
        EXPECT_EQ(env.Taken(), c.error);
        EXPECT_EQ(env.Message(), c.message);
        EXPECT_EQ(FindingsProbability_bn(quartet.net) == 0, c.error != 0);
        EXPECT_EQ(env.Taken(), c.error);
    }
}

bool IsImpossible(const float* row, int n)
{
    double sum = 0;
    for (int s = 0; s < n; ++s) {
        if (row[s] == talora::ImpossibleProb()) return true;
        sum += row[s];
    }
    return sum == 0;
}

// The model with uniform rows in place of the impossible ones.
talora::RandomModel Relaxed(talora::RandomModel model)
{
    for (int v = 0; v < model.size(); ++v) {
        const int n = model.NumStates(v);
        std::vector<float>& table = model.tables[size_t(v)];
        for (size_t row = 0; row < table.size(); row += size_t(n))
            if (IsImpossible(table.data() + row, n))
                std::fill_n(table.begin() + long(row), n, 1.0f / float(n));
    }
    return model;
}

// Whether a message such as "... node v3 ... [v0=#1, v2=#0]" names an impossible row of the model.
bool NamesImpossibleRow(const talora::RandomModel& model, const std::string& message)
{
    const auto number_behind = [&](size_t at) { return std::stoi(message.substr(at)); };
    const int v = number_behind(message.find("node v") + 6);
    int64_t row = 0;
    for (int parent : model.graph.variables[size_t(v)].parents) {
        const std::string name = "v" + std::to_string(parent) + "=#";
        const size_t at = message.find(name);
        if (at == std::string::npos) return false;
        row = row * model.NumStates(parent) + number_behind(at + name.size());
    }
    const int n = model.NumStates(v);
    return IsImpossible(model.tables[size_t(v)].data() + row * n, n);
}

// Impossible rows are blamed exactly when the findings would be possible without them.
TEST(ImpossibleConditionTest, BlamesTheRightCauseInRandomNets)
{
    TestEnviron env;
    int blamed = 0, contradicting = 0;
    for (unsigned seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        talora::RandomModel model = talora::MakeModel(random, 5, 3, 2, true);
        for (std::vector<float>& table : model.tables)  // more impossible rows
            if (!table.empty() && random() % 3 == 0) {
                const int n = model.NumStates(int(&table - model.tables.data()));
                std::fill_n(table.begin() + long(random() % (table.size() / size_t(n))) * n, n, 0.0f);
            }
        net_bn* net = NewNet_bn("random", env);
        const std::vector<node_bn*> nodes = BuildNet(net, model);
        talora::Findings findings(model.size());
        for (int v = 0; v < model.size(); ++v)
            if (random() % 2 == 0) {
                findings.positive[size_t(v)] = int(random() % unsigned(model.NumStates(v)));
                EnterFinding_bn(nodes[size_t(v)], findings.positive[size_t(v)]);
            }
        ASSERT_EQ(env.Taken(), 0) << env.Message();
        CompileNet_bn(net);
        UpdateNetBeliefs_bn(net);
        const int error = env.Taken();
        if (Enumerate(model, findings).total > 0) {
            EXPECT_EQ(error, 0) << env.Message();
        } else if (Enumerate(Relaxed(model), findings).total > 0) {
            EXPECT_TRUE(error == 2102 || error == 2489) << env.Message();
            EXPECT_TRUE(NamesImpossibleRow(model, env.Message())) << env.Message();
            ++blamed;
        } else {
            // Where the findings settle an impossible condition it is named, whatever else is wrong.
            EXPECT_TRUE(error == 3305 || error == 2102) << error;
            ++contradicting;
        }
        DeleteNet_bn(net);
    }
    EXPECT_GT(blamed, 20);
    EXPECT_GT(contradicting, 20);
}

}  // namespace
