// Messages about net files, case files, learning and testing.
#include <cmath>

#include "Support/MessageTest.h"

namespace {

class FileMessages : public MessageTest {
protected:
    // Fields of a net, or of its node A with two states.
    void ReadFields(const std::string& fields) { Read("// ~->[DNET-1]->~\nbnet n {\n" + fields + "\n};\n"); }
    void ReadNode(const std::string& fields)
    {
        ReadFields(
            "numdimensions = 1;\nnode P { kind = NATURE; discrete = TRUE; numstates = 2; };\n"
            "node A { kind = NATURE; " +
            fields + " };");
    }
    void Halt() { SetHaltFlag_vx(env_, 1); }
};

TEST_F(FileMessages, OfNetFiles)
{
    const std::string discrete = "discrete = TRUE; numstates = 2; ";
    ExpectRaised({
        {2979, [&] { ReadFields("numdimensions = -1;"); }},
        {3293, [&] { ReadFields("node A { kind = NATURE; }; NodeSet s { Nodes = A; };"); }},
        {4119, [&] { ReadFields("node A { kind = NATURE; }; NodeSet s { Members = (A); };"); }},
        {2973,
         [&] { ReadNode("discrete = FALSE; levels = (2, 1, " + std::to_string(GetUndefDbl_vx()) + ");"); }},
        {2939,
         [&] {
             ReadFields(
                 "node P { kind = NATURE; numstates = 2; };\n"
                 "node A { kind = DISCONNECTED; numstates = 2; parents = (P); };");
         }},
        {3024, [&] { ReadNode(discrete + "persist = (\"1\");"); }},
        {2962, [&] { ReadNode(discrete + "persist = (;);"); }},
        {2966, [&] { ReadNode(discrete + "persist = (1 2);"); }},
        {2960, [&] { ReadNode(discrete + "parents = (P); delays = ((1) (1));"); }},
        {2936, [&] { ReadNode(discrete + "likelihood = (1e300, 1);"); }},
        {4146, [&] { ReadFields("nonsense = (\"open"); }},
        {4147, [&] { ReadFields("user U1 { x = \"open"); }},
        {5175, [&] { SetStreamContents_vx(Cases(""), nullptr, 3); }},
        {3606, [&] { Halt(), WriteNet_bn(net_, Cases("")); }},
    });
}

TEST_F(FileMessages, OfCaseFiles)
{
    net_bn* other = NewNet_bn("Other", env_);
    node_bn* elsewhere = NewNode_bn("X", 2, other);
    ExpectRaised({
        {6523, [&] { ReadFirst("A\tB\nyes\tno\tyes\n"); }},
        {6536, [&] { ReadFirst("A\t2nd\nyes\tx\n", QUIETLY_ADD_NEW); }},
        {6538, [&] { SetNodeKind_bn(a_, DECISION_NODE), ReadFirst("A\n{1;2}\n"); }},
        {6540, [&] { WriteCaseset_cs(NewCaseset_cs("none", env_), Cases(""), nullptr); }},
        {6514,
         [&] {
             LearnCPTs_bn(NewLearner_bn(1, env_), List({a_}), Caseset("A\nperhaps\nyes\n", "SkipMisfits"), 1);
         }},
        {6519,
         [&] {
             SetQuestionHandler_vx(
                 env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 0; }, nullptr);
             ReadFirst("B\nperhaps\n");
         }},
        {6530, [&] { WriteNetFindings_bn(List({a_}), Cases("A\nyes\n"), -1, 2); }},
        {6541,
         [&] {
             ReadNetFindings2_bn(nullptr, Cases("A\n"), 0, List({}), nullptr, nullptr),
                 WriteNetFindings_bn(List({}), Cases(""), -1, 1);
         }},
        {6542,
         [&] {
             WriteNetFindings_bn(List({a_, elsewhere}), Cases(""), -1, 1);
         }},
        {6553, [&] { ReadNetFindings2_bn(nullptr, Cases("A\nyes\n"), 0, List({a_}), nullptr, nullptr); }},
        {6554, [&] { ReadFirst("A\nyes\n", 99); }},
        {6753,
         [&] {
             WriteCaseBeliefs_bn(Caseset("A\nyes\n"), List({a_, elsewhere}), Cases(""), nullptr);
         }},
        {6754, [&] { WriteCaseBeliefs_bn(Caseset("A\nyes\n"), List({r_}), Cases(""), nullptr); }},
        {6755,
         [&] {
             caseset_cs* cases = Caseset("A\nyes\n");
             AddFileToCaseset_cs(cases, Cases("A\tB\nyes\t0\n"), 1, nullptr);
             WriteCaseBeliefs_bn(cases, List({a_}), Cases(""), nullptr);
         }},
        {6757,
         [&] {
             SetNodeStateNames_bn(b_, "on,off"),
                 WriteCaseBeliefs_bn(Caseset("A\tB\nno\ton\n"), List({c_}), Cases(""), nullptr);
         }},
        {6758,
         [&] {
             caseset_cs* cases = Caseset("A\nyes\n");
             CompileNet_bn(net_);
             Halt();
             WriteCaseBeliefs_bn(cases, List({b_}), Cases(""), nullptr);
         }},
    });
    DeleteNet_bn(other);
}

TEST_F(FileMessages, OfLearning)
{
    net_bn* other = NewNet_bn("Other", env_);
    node_bn* elsewhere = NewNode_bn("X", 2, other);
    const auto learn = [&](int method, std::vector<node_bn*> nodes, const std::string& cases,
                           bool halts = false) {
        caseset_cs* set = Caseset(cases);
        learner_bn* learner = NewLearner_bn(method, env_);
        CompileNet_bn(net_);
        if (halts) Halt();
        LearnCPTs_bn(learner, List(nodes), set, 1);
    };
    ExpectRaised({
        {6601,
         [&] {
             ReviseCPTsByFindings_bn(List({a_, elsewhere}), 1);
         }},
        {6602, [&] { ReviseCPTsByFindings_bn(List({a_}), std::nan("")); }},
        {6589, [&] { learn(3, {r_}, "A\nyes\n"); }},
        {6590, [&] { learn(3, {a_}, "A\nyes\n", true); }},
        {6588,
         [&] {
             std::string many = "A\n";
             for (int i = 0; i < 100000; ++i) many += "yes\n";
             learn(1, {a_}, many, true);
         }},
        {6750,
         [&] {
             tester_bn* tester = NewNetTester_bn(List({a_}), List({a_}), -1);
             caseset_cs* cases = Caseset("A\nyes\n");
             CompileNet_bn(net_);
             Halt();
             TestWithCaseset_bn(tester, cases);
         }},
        {6748,
         [&] {
             CompileNet_bn(net_);
             TestWithCaseset_bn(NewNetTester_bn(List({a_}), List({a_}), -1), Caseset("B\n0\n"));
         }},
        {6795,
         [&] {
             DeleteNode_bn(r_);
             SetNetMostProbable_bn(net_, 1);
             CompileNet_bn(net_);
             GetMutualInfo_bn(NewSensvToFinding_bn(a_, List({b_}), ENTROPY_SENSV), b_);
         }},
    });
    DeleteNet_bn(other);
}

}  // namespace
