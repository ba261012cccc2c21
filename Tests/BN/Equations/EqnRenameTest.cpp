// Equations follow new names of nodes, links and states; one step of undo takes all of it back.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Support/TestEnviron.h"

namespace {

TEST(EqnRename, FollowsNamesWhereItMeansThem)
{
    // p (low, high) and q (number) are parents of x (no, yes); the equation is x's.
    struct Nodes {
        node_bn *p, *q, *x;
    };
    const struct {
        const char* label;
        const char* equation;
        std::function<void(const Nodes&)> rename;
        const char* renamed;  // null: it stays, with a warning
    } rows[] = {
        {"parent", "x (p, q) = p == low && q > 1 ? no : yes",
         [](const Nodes& n) { SetNodeName_bn(n.p, "level"); },
         "x (level, q) = level == low && q > 1 ? no : yes"},
        {"node itself", "P (x | q) = x == no ? q / 10 : 1 - q / 10",
         [](const Nodes& n) { SetNodeName_bn(n.x, "out"); }, "P (out | q) = out == no ? q / 10 : 1 - q / 10"},
        {"called f", "f(q)=q>1?no:yes", [](const Nodes& n) { SetNodeName_bn(n.x, "f"); }, "f(q)=q>1?no:yes"},
        {"part of other names", "x (q, p) = abs(q) > sqrt(q) ? no : yes",
         [](const Nodes& n) { SetNodeName_bn(n.q, "quantity"); },
         "x (quantity, p) = abs(quantity) > sqrt(quantity) ? no : yes"},
        {"state of a parent", "x (p) = p == low ? low--p == p ? no : yes : yes",
         [](const Nodes& n) { SetNodeStateName_bn(n.p, 0, "small"); },
         "x (p) = p == small ? small--p == p ? no : yes : yes"},
        {"own state", "x (p) = p == low ? no : yes",
         [](const Nodes& n) { SetNodeStateName_bn(n.x, 0, "low"); }, "x (p) = p == low ? low : yes"},
        {"states exchanged", "x (p) = p == low ? no : yes",
         [](const Nodes& n) { SetNodeStateNames_bn(n.x, "yes,no"); }, "x (p) = p == low ? yes : no"},
        {"name removed", "x (p) = p == low ? no : yes",
         [](const Nodes& n) { RemoveNodeStateNames_bn(n.x, EVERY_STATE); }, "x (p) = p == low ? #0 : #1"},
        {"link", "x (p, q) = q > 1 && p == low ? no : yes",
         [](const Nodes& n) { SetNodeInputName_bn(n.x, 1, "in"); },
         "x (p, in) = in > 1 && p == low ? no : yes"},
        {"hidden by the new name", "x (p) = p == low ? no : yes",
         [](const Nodes& n) { SetNodeName_bn(n.p, "no"); }, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        TestEnviron env;
        net_bn* net = NewNet_bn("net", env);
        SetNetNumUndos_bn(net, 100, -1, nullptr);
        const Nodes n = {NewNode_bn("p", 2, net), NewNode_bn("q", 3, net), NewNode_bn("x", 2, net)};
        SetNodeStateNames_bn(n.p, "low,high");
        SetNodeStateNames_bn(n.x, "no,yes");
        AddLink_bn(n.p, n.x);
        AddLink_bn(n.q, n.x);
        SetNodeEquation_bn(n.x, row.equation);
        ASSERT_EQ(env.Taken(), 0) << env.Message();
        row.rename(n);
        EXPECT_STREQ(GetNodeEquation_bn(n.x), row.renamed ? row.renamed : row.equation);
        EXPECT_EQ(env.Taken(WARNING_SEVERITY), row.renamed ? 0 : 7202) << env.Message();
        UndoNetLastOper_vx(net, -1);
        EXPECT_STREQ(GetNodeEquation_bn(n.x), row.equation);
        EXPECT_STREQ(GetNodeName_bn(n.p), "p");
        RedoNetOper_vx(net, -1);
        EXPECT_STREQ(GetNodeEquation_bn(n.x), row.renamed ? row.renamed : row.equation);
        DeleteNet_bn(net);
    }
}

// A link that was cut finds its parent again under whatever name, and no other node of the old one.
TEST(EqnRename, ReconnectsWithTheParentItself)
{
    for (const bool deletes : {false, true}) {
        TestEnviron env;
        net_bn* net = NewNet_bn("net", env);
        node_bn *parent = NewNode_bn("parent", 2, net), *child = NewNode_bn("child", 2, net);
        AddLink_bn(parent, child);
        SwitchNodeParent_bn(0, child, nullptr);
        if (deletes)
            DeleteNode_bn(parent);
        else
            SetNodeName_bn(parent, "renamed");
        const node_bn* stranger = NewNode_bn("parent", 2, net);
        ReconnectNodeLinks_bn(child);
        EXPECT_EQ(env.Taken(), deletes ? 6108 : 0) << env.Message();
        const node_bn* now = NthNode_bn(GetNodeParents_bn(child), 0);
        EXPECT_NE(now, stranger);
        EXPECT_EQ(now == parent, !deletes);
        DeleteNet_bn(net);
    }
}

}  // namespace
