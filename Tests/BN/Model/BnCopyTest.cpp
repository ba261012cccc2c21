// Copies of nets and nodes, and the nodes that stand for parents cut away.
#include <cmath>

#include "BN/Files/BnPrintFile.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "Support/TestNet.h"

namespace talora {
namespace {

class BnCopyTest : public ModelTest {
protected:
    // A net with something in every place that a copy has to take along.
    void MakeFull()
    {
        Make("A B:3; A B -> C; C -> D:0; U");
        Node &a = (*this)["A"], &c = (*this)["C"], &d = (*this)["D"];
        const double levels[] = {0, 1, 2};
        SetLevels(d, 2, levels);
        const int every[] = {EVERY_STATE, EVERY_STATE}, row[] = {1, 2};
        const float probs[] = {0.25f, 0.75f};
        SetProbs(c, every, probs);
        SetExperience(c, row, 12);
        SetFuncReal(d, row, 1.5);
        SetStateNames(a, {"yes", "no"});
        SetKind((*this)["U"], UTILITY_NODE);
        c.links[0].delay = "1";
        c.links[1].input_name = "input";
        c.text.user_fields.push_back({"field", "value"});
        a.text.title = "Title";
        a.finding.state = 1;
        net_->text.comment = "Comment";
        net_->num_dimensions = 1;
        AddToNodeSet(c, "set");
    }
};

TEST_F(BnCopyTest, NetIsTheSameText)
{
    MakeFull();
    const std::string text = PrintNet(*net_);
    Net* copy = CopyNet(*net_, "Test", *env_, {});
    EXPECT_EQ(PrintNet(*copy), text);
    EXPECT_EQ(FindNode(*copy, "A")->finding, (*this)["A"].finding);
    ValidateNet(*copy);
    EXPECT_EQ(PrintNet(*net_), text);

    const Net* bare = CopyNet(*net_, "Bare", *env_, {.no_links = true});
    EXPECT_TRUE(FindNode(*bare, "C")->links.empty());
    EXPECT_EQ(FindNode(*bare, "C")->tables.probs.size(), 2u);  // the row of the parents' first states
    EXPECT_TRUE(CopyNet(*net_, "Empty", *env_, {.no_nodes = true})->nodes.nodes.empty());
    const Net* untabled = CopyNet(*net_, "T", *env_, {.no_tables = true});
    EXPECT_EQ(FindNode(*untabled, "C")->tables, NodeTables());
}

// A call of the interface that fails, as the entry frame runs it: what it has changed is taken back.
class FailingCall {
public:
    FailingCall() : mark_(CallMark()) { ++ThisThread().depth; }
    ~FailingCall()
    {
        RollBackCall(mark_);
        EndCalls();
        --ThisThread().depth;
    }
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

private:
    const uint64_t mark_;
};

TEST_F(BnCopyTest, NamesOfCopies)
{
    Make("A B_1 A23456789012345678901234567890");
    (*this)["B_1"].text.title = "b";
    const auto copy = [&](const char* name) { return CopyNodes({&(*this)[name]}, *net_, {})[0]->name; };
    EXPECT_EQ(copy("A"), "A_1");
    EXPECT_EQ(copy("A"), "A_2");
    EXPECT_EQ(copy("A_1"), "A_1_1");
    EXPECT_EQ(copy("A23456789012345678901234567890"), "A234567890123456789012345678_1");
    RenameNode((*this)["A"], "*");
    EXPECT_EQ(copy("*"), "x");
    EXPECT_EQ(copy("*"), "x_1");
    ValidateNet(*net_);
    {
        const FailingCall call;
        EXPECT_EQ(ErrorOf([&] { CopyNodes({&(*this)["B_1"], &(*this)["B_1"]}, *net_, {}); }), 6180);
    }
    EXPECT_EQ(net_->nodes.nodes.size(), 9u);
}

TEST_F(BnCopyTest, LinksOfCopies)
{
    MakeFull();
    Net& first = *net_;
    Net* other = NewNet(*env_, "Other");
    Node *a = &(*this)["A"], *c = &(*this)["C"];
    // A goes along and stays the parent of C; B does not and is stood for.
    const std::vector<Node*> made = CopyNodes({c, a}, *other, {});
    EXPECT_EQ(made[0]->links[0].parent, made[1]);
    EXPECT_EQ(made[0]->links[0].delay, "1");
    const Node& stand_in = *made[0]->links[1].parent;
    EXPECT_EQ(stand_in.kind, DISCONNECTED_NODE);
    EXPECT_EQ(stand_in.disconnected_from, "B");
    EXPECT_EQ(NumStates(stand_in), 3);
    EXPECT_EQ(made[0]->tables, c->tables);
    ValidateNet(*other);
    // Among the nodes of their own net, links from outside stay.
    const std::vector<Node*> same = CopyNodes({c}, first, {});
    EXPECT_EQ(same[0]->links[0].parent, a);
    ValidateNet(first);
}

// A copy that fails when nodes are linked already, whichever of parent and child was copied first.
TEST_F(BnCopyTest, FailsLate)
{
    Make("X:100000; X -> Y");
    Node &x = (*this)["X"], &y = (*this)["Y"];
    x.finding.likelihood.assign(100000, 1.0f);
    const double limit = MemoryLimit();
    for (const auto& nodes : {std::vector<Node*>{&x, &y}, {&y, &x}}) {
        SetMemoryLimit(double(MemoryInUse()) + 100000);
        {
            const FailingCall call;
            EXPECT_EQ(ErrorOf([&] { CopyNodes(nodes, *net_, {}); }), -1);
        }
        SetMemoryLimit(limit);
        EXPECT_EQ(net_->nodes.nodes.size(), 2u);
        ValidateNet(*net_);
    }
}

TEST_F(BnCopyTest, StandInsComeAndGo)
{
    Net& net = Make("P:3 A_1; P -> A B");
    Node &p = (*this)["P"], &a = (*this)["A"], &b = (*this)["B"];
    SwitchParent(a, 0, nullptr);
    Node* stand_in = a.links[0].parent;
    EXPECT_EQ(stand_in->name, "P_1");
    SwitchParent(a, 0, nullptr);  // is disconnected already
    EXPECT_EQ(a.links[0].parent, stand_in);
    SwitchParent(b, 0, nullptr);
    EXPECT_EQ(net.nodes.nodes.size(), 6u);
    EXPECT_EQ(ErrorOf([&] { SwitchParent(b, 0, stand_in); }), 6107);

    RenameNode(p, "Renamed");
    EXPECT_EQ(stand_in->disconnected_from, "Renamed");
    RenameNode(p, "P");
    EXPECT_EQ(ReconnectLinks(a), 1);
    EXPECT_EQ(ReconnectLinks(a), 0);
    EXPECT_EQ(a.links[0].parent, &p);
    EXPECT_EQ(FindNode(net, "P_1"), nullptr);
    DeleteLink(b, 0);  // the other stand-in goes with its link
    EXPECT_EQ(net.nodes.nodes.size(), 4u);
    ValidateNet(net);

    // A link that would now close a cycle stays disconnected.
    SwitchParent(a, 0, nullptr);
    AddLink(a, p);
    EXPECT_EQ(ErrorOf([&] { ReconnectLinks(a); }), 6101);
    EXPECT_EQ(a.links[0].parent->kind, DISCONNECTED_NODE);
}

}  // namespace
}  // namespace talora
