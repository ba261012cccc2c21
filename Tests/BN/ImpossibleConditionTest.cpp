// What an update says when findings bring about a condition that a table declares impossible.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Talora/TestEnviron.h"

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

}  // namespace
