// Messages about environments, nets, nodes, tables, findings and compiling.
#include <cmath>
#include <cstring>

#include "Support/MessageTest.h"

namespace {

class ModelMessages : public MessageTest {
protected:
    // Number of the newest error in whatever environment; all are then cleared.
    int Newest()
    {
        const report_vx* error = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        return number;
    }
};

// Of an environment whose objects are said to live elsewhere.
TEST_F(ModelMessages, OfRemoteEnvironments)
{
    environ_vx* remote = NewTaloraEnviron_vx("far", "remote");
    NewNet_bn("x", remote);
    EXPECT_EQ(Newest(), 5625) << "before it is initialised";
    InitTalora2_bn(remote, nullptr);
    NewNet_bn("x", remote);
    EXPECT_EQ(Newest(), 5155);
    stream_vx* stream = NewMemoryStream_vx("x", remote, nullptr);
    GetStreamName_vx(stream);
    EXPECT_EQ(Newest(), 5156);
    CloseTalora_bn(remote, nullptr);
    InitTalora2_bn(remote, nullptr);
    EXPECT_EQ(Newest(), 5631) << "after it is closed";
}

// NULL is the default environment; without one there is nothing to close.
TEST(CloseTest, ClosesTheDefaultEnvironment)
{
    environ_vx* env = NewTaloraEnviron_vx("other", nullptr);
    char mesg[MESG_LEN_vx];
    ASSERT_GE(InitTalora2_bn(env, mesg), 0);
    ASSERT_EQ(GetDefaultEnviron_vx(), env);
    int number = 0;
    SetMessageHandler_vx(
        env, [](environ_vx*, const char*, const report_vx*, void*) { return 1; }, &number);
    void* data = nullptr;
    EXPECT_NE(GetMessageHandler_vx(env, &data), nullptr);
    EXPECT_EQ(data, &number);
    EXPECT_EQ(GetQuestionHandler_vx(env, &data), nullptr);
    EXPECT_EQ(GetProgressHandler_vx(env, nullptr), nullptr);
    EXPECT_EQ(CloseTalora_bn(nullptr, mesg), 0) << mesg;
    if (GetDefaultEnviron_vx() == nullptr) {
        EXPECT_LT(CloseTalora_bn(nullptr, mesg), 0);
        EXPECT_NE(std::strstr(mesg, "NULL or damaged environ_vx passed"), nullptr) << mesg;
    }
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
}

TEST_F(ModelMessages, OfSettings)
{
    ExpectRaised({
        {5634, [&] { NewTaloraEnviron_vx("x", "moon"); }},
        {5640, [&] { SetLanguage_vx(env_, "Latin"); }},
        {5641, [&] { SetMessageFlavor_vx(env_, "bitter"); }},
        {5642, [&] { ExecuteScript_vx(env_, "run"); }},
        {5643, [&] { SetAppWindowPosition_vx(env_, 0, 0, 1, 1, "Tiny"); }},
        {5630, [&] { InitTalora2_bn(env_, nullptr); }},
        {5635, [&] { CloseTalora_bn(reinterpret_cast<environ_vx*>(net_), nullptr); }},
        {5645, [&] { NewError_vx(env_, 1, 77, "x"); }},
        {5646, [&] { SetReportLimit_vx(env_, -1); }},
        {5647, [&] { SetRepeatMode_vx(env_, 9); }},
        {6191, [&] { SetNetNumDimensions_bn(net_, 100000); }},
        {6422, [&] { CalcFormula_bn(env_, "1", nullptr, nullptr, -1, nullptr); }},
        {6423, [&] { CalcFormula_bn(env_, "AsState (1)", nullptr, nullptr, 0, nullptr); }},
    });
}

TEST_F(ModelMessages, OfNodesAndFields)
{
    const char* name = nullptr;
    ExpectRaised({
        {6111, [&] { NewNode_bn("X", -1, net_); }},
        {5114, [&] { SetNodeStateName_bn(a_, 0, nullptr); }},
        {5142, [&] { SetNodeStateNames_bn(a_, ""); }},
        {5118,
         [&] {
             SetNodeStateName_bn(a_, 0,
                                 "\xFF\xFE"
                                 "a\0 \0b\0\0");
             EXPECT_NE(strstr(ErrorMessage_vx(GetError_vx(env_, ERROR_SEVERITY, 0, nullptr)),
                              "in argument 'state_name', "),
                       nullptr);
         }},
        {2930,
         [&] {
             SetInheritInFirstPass_vx(env_, 1);
             Read(
                 "// ~->[DNET-1]->~\nbnet N {define node D {title = \"d\";}; node A (D) {title = \"a\";};};");
             EXPECT_EQ(GetInheritInFirstPass_vx(env_), 1);
             SetInheritInFirstPass_vx(env_, 0);
         }},
        {6190, [&] { GetNetNthUserField_bn(net_, -1, &name, &name, nullptr, 0); }},
        {6192, [&] { SetNodeUserField_bn(a_, "f", "v", 1, 3); }},
        {6193, [&] { SetNodeUserField_bn(a_, "f", "v", -2, 0); }},
        {6194, [&] { GetNodeLabel_bn(a_, nullptr, nullptr, -1); }},
        {6204, [&] { SetNodeMeasure_bn(a_, "HEAVY"); }},
        {5627, [&] { OptimizeNetElimOrder_bn(net_, 1, "fast"); }},
        {6170, [&] { DeleteNodeset_bn("none", net_); }},
        {6171, [&] { NewNodeset_bn("s", net_), NewNodeset_bn("t", net_), RenameNodeset_bn("s", "t", net_); }},
        {6201, [&] { NthNode_bn(List({a_}), 1); }},
        {6202, [&] { NewNodeList2_bn(-1, net_); }},
        {6203, [&] { IndexOfNodeInList_bn(a_, List({a_}), -1); }},
        {5152,
         [&] {
             nodelist_bn* list = List({a_, b_});
             DeleteNode_bn(b_);
             QueryBeliefs_bn(list, nullptr);
         }},
        {5151,
         [&] {
             nodelist_bn* list = List({a_});
             int nothing[16] = {};
             SetNthNode_bn(list, 0, nullptr);
             ArgumentChecking_vx(CHECK_NOTHING, env_);
             SetNthNode_bn(
                 list, 0,
                 reinterpret_cast<node_bn*>(nothing + (reinterpret_cast<uintptr_t>(nothing) % 8) / 4));
             ArgumentChecking_vx(CHECK_VALUES, env_);
             QueryBeliefs_bn(list, nullptr);
         }},
        {6881,
         [&] {
             net_bn* other = NewNet_bn("Other", env_);
             QueryBeliefs_bn(List({a_, NewNode_bn("X", 2, other)}), nullptr);
         }},
    });
}

TEST_F(ModelMessages, OfStates)
{
    const state_bn twice[] = {1, 1, 0};
    ExpectRaised({
        {6120, [&] { RemoveNodeState_bn(r_, 0), AddNodeStates_bn(r_, -1, "x", 1, -1); }},
        {6121, [&] { SetNodeStateName_bn(r_, 0, "x"); }},
        {6124, [&] { SetNodeStateName_bn(a_, 1, "yes"); }},
        {6129, [&] { AddNodeStates_bn(a_, -1, nullptr, -1, -1); }},
        {6130, [&] { AddNodeStates_bn(a_, -1, "x,y", 3, -1); }},
        {6131, [&] { AddNodeStates_bn(a_, -1, nullptr, INT32_MAX, -1); }},
        {6134, [&] { RemoveNodeState_bn(a_, 0), RemoveNodeState_bn(a_, 0); }},
        {6135, [&] { ReorderNodeStates_bn(c_, twice); }},
        {6142,
         [&] {
             const level_bn levels[] = {0, 1, 2};
             SetNodeLevels_bn(r_, 2, levels);
             const prob_bn probs[] = {0.5f, 0.5f};
             SetNodeTable_bn(r_, probs, 2);
             SetNodeLevels_bn(r_, 1, levels);
         }},
        {6205, [&] { ReorderNodeStates_bn(a_, nullptr); }},
    });
}

TEST_F(ModelMessages, OfLinks)
{
    ExpectRaised({
        {6103, [&] { AddLink_bn(r_, b_); }},
        {6106,
         [&] {
             SwitchNodeParent_bn(0, b_, nullptr);  // a stand-in comes in the place of A
             AddLink_bn(c_, NthNode_bn(GetNodeParents_bn(b_), 0));
         }},
        {6206, [&] { SetNodeInputDelay_bn(b_, 0, "soon"); }},
        {6207, [&] { SetNetNumDimensions_bn(net_, 2), SetNodeInputDelay_bn(b_, 0, "1"); }},
        {6208, [&] { AddLink_bn(c_, b_), SetNodeInputName_bn(b_, 0, "x"), SetNodeInputName_bn(b_, 1, "x"); }},
    });
}

TEST_F(ModelMessages, OfTables)
{
    const prob_bn probs[] = {0.5f, 0.5f, 0.7f, 0.7f};
    const state_bn row[] = {0};
    ExpectRaised({
        {3082, [&] { SetNodeTable_bn(r_, probs, 2); }},
        {6156, [&] { SetNodeTable_bn(b_, probs, 2); }},
        {6157, [&] { SetNodeTable_bn(b_, probs, 4); }},
        {6158, [&] { SetNodeFuncState_bn(r_, nullptr, 0); }},
        {6159, [&] { SetNodeFuncState_bn(b_, row, 2); }},
        {6160, [&] { SetNodeFuncReal_bn(a_, nullptr, 1); }},
        {6161, [&] { SetNodeExperience_bn(b_, row, -1); }},
        {6162, [&] { SetNodeFuncReal_bn(c_, nullptr, std::nan("")); }},
        {6163, [&] { SetNodeExperience_bn(b_, row, HUGE_VAL); }},
        {6417, [&] { CheckNodeEquation_bn(a_, nullptr, nullptr); }},
    });
}

TEST_F(ModelMessages, OfUndo)
{
    ExpectRaised({
        {6310, [&] { UndoNetLastOper_vx(net_, 3); }},
        {6311,
         [&] {
             SetNetNumUndos_bn(net_, 5, 0, nullptr), SetNetTitle_bn(net_, "t"), UndoNetLastOper_vx(net_, -1);
         }},
        {6312, [&] { SetNetNumUndos_bn(net_, -2, 0, nullptr); }},
        {6313, [&] { SetNetNumUndos_bn(net_, 1, -2, nullptr); }},
        {6314, [&] { AbortNetUndoGroup_bn(net_); }},
    });
}

TEST_F(ModelMessages, OfFindings)
{
    const prob_bn bad[] = {0.5f, 0.9f, 0.5f};
    const auto discretize = [&] {
        const level_bn levels[] = {0, 1, 2};
        SetNodeLevels_bn(r_, 2, levels);
    };
    ExpectRaised({
        {6030, [&] { SetNodeKind_bn(a_, CONSTANT_NODE), EnterFindingNot_bn(a_, 0); }},
        {6031, [&] { EnterNodeCalibration_bn(r_, bad); }},
        {3315,
         [&] {
             const prob_bn never[] = {1, 0};
             SetNodeTable_bn(a_, never, 2);
             SetFindingChecking_vx(env_, 1);
             EnterFinding_bn(a_, 1);
         }},
        {6032, [&] { EnterGaussianFinding_bn(a_, 0, 1); }},
        {6033, [&] { discretize(), EnterIntervalFinding_bn(r_, 50, 60); }},
        {3307, [&] { SetNodeFuncReal_bn(r_, nullptr, 3), EnterNodeValue_bn(r_, 4); }},
        {3381,
         [&] {
             const level_bn levels[] = {1, 2};
             SetNodeLevels_bn(b_, 2, levels);
             CompileNet_bn(net_);
             SetFindingChecking_vx(env_, 1);
             EnterFinding_bn(a_, 1);
             EnterNodeValue_bn(b_, 1);
         }},
        {6034, [&] { SetNodeKind_bn(a_, UTILITY_NODE), EnterFinding_bn(a_, 0); }},
        {6035, [&] { EnterFindingNot_bn(Add("One", 1), 0); }},
        {6038, [&] { EnterNodeValue_bn(a_, 1); }},
        {6040, [&] { EnterNodeCalibration_bn(c_, bad); }},
        {6041, [&] { EnterGaussianFinding_bn(c_, 1, -1); }},
        {6042, [&] { EnterIntervalFinding_bn(c_, 2, 1); }},
        {6054, [&] { EnterNodeLikelihood_bn(a_, nullptr); }},
        {6055, [&] { EnterNodeCalibration_bn(a_, nullptr); }},
    });
}

TEST_F(ModelMessages, OfCompiling)
{
    const auto listen = [&] {
        SetMessageHandler_vx(
            env_, [](environ_vx*, const char*, const report_vx*, void*) { return 0; }, nullptr);
    };
    ExpectRaised({
        {6002, [&] { SetNodeKind_bn(a_, UTILITY_NODE), CompileNet_bn(net_); }},
        {6003, [&] { SetNodeKind_bn(a_, CONSTANT_NODE), CompileNet_bn(net_); }},
        {6005, [&] { Add("Bare", 2), CompileNet_bn(net_); }},
        {6006,
         [&] {
             const state_bn row[] = {0};
             const prob_bn probs[] = {0.5f, 0.5f};
             DeleteNodeTables_bn(b_);
             SetNodeProbs_bn(b_, row, probs);
             CompileNet_bn(net_);
         }},
        {6007, [&] { SetNodeKind_bn(Add("U", 0), UTILITY_NODE), CompileNet_bn(net_); }},
        {6009, [&] { listen(), CompileNet_bn(net_); }},
        // 67 million entries, but one column under the finding.
        {7201,
         [&] {
             node_bn *large = Add("L", 8200), *wide = Add("W", 8200);
             AddLink_bn(large, wide);
             EnterFinding_bn(large, 0);
             CompileNet_bn(net_);
             SetQuestionHandler_vx(
                 env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 2; }, nullptr);
             RetractNodeFindings_bn(large);
             GetNodeBeliefs_bn(wide);
             EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, -6013, nullptr), nullptr)
                 << "the question is put again";
         }},
        {6012,
         [&] {
             SetNetAutoUpdate_bn(net_, BELIEF_UPDATE);
             SetNodeKind_bn(a_, UTILITY_NODE);
             GetNodeBeliefs_bn(b_);
         }},
        {5680,
         [&] {
             const double limit = LimitMemoryUsage_vx(GetMemoryUsage_vx(env_) + 1e6, env_);
             net_bn* large = Read(
                 "// ~->[DNET-1]->~\nbnet L {\nAutoCompile = TRUE;\nnode A {kind = NATURE; discrete = TRUE; numstates = 1000000;};\n};\n");
             EXPECT_TRUE(large != nullptr && !IsNetCompiled_bn(large));
             DeleteNet_bn(large);
             LimitMemoryUsage_vx(limit, env_);
         }},
        {2364, [&] { SetNodeKind_bn(c_, UTILITY_NODE), CompileNet_bn(net_), GetNodeBeliefs_bn(c_); }},
        {6014,
         [&] {
             SetNodeKind_bn(c_, UTILITY_NODE), CompileNet_bn(net_), GetNodeExpectedValue_bn(c_, nullptr);
         }},
        {6017, [&] { SetNodeKind_bn(a_, DECISION_NODE), OptimizeNetElimOrder_bn(net_, 1, nullptr); }},
        {6018, [&] { GetNetNumCliques_bn(net_), GetCliqueNodes_bn(net_, 0); }},
        {6050, [&] { CompileNet_bn(net_), GetCliqueNodes_bn(net_, 99); }},
        {6051, [&] { OptimizeNetElimOrder_bn(net_, -1, nullptr); }},
        {6052, [&] { CompileNet_bn(net_), SizeCompiledNet_bn(net_, 1); }},
        {6053, [&] { CompileNet_bn(net_), GetCliqueNeighbor_bn(net_, 0, 99); }},
        {6880,
         [&] {
             SetNodeKind_bn(c_, UTILITY_NODE), CompileNet_bn(net_), QueryBeliefs_bn(List({c_}), nullptr);
         }},
    });
}

TEST_F(ModelMessages, OfHaltedQueries)
{
    ExpectRaised({{6019, [&] {
                       SetHaltFlag_vx(env_, 1);
                       EXPECT_EQ(QueryBeliefs_bn(List({b_}), nullptr), nullptr);
                       SetHaltFlag_vx(env_, 0);
                       EXPECT_NEAR(QueryBeliefs_bn(List({b_}), nullptr)[0], 0.125, 1e-6);
                   }}});
}

TEST_F(ModelMessages, OfRandomCases)
{
    stream_vx* file = Cases("");
    net_bn* other = NewNet_bn("Other", env_);
    node_bn* elsewhere = NewNode_bn("X", 2, other);
    const prob_bn never[] = {1, 0};
    const auto impossible = [&] {
        SetNodeTable_bn(a_, never, 2);
        EnterFinding_bn(a_, 1);
    };
    ExpectRaised({
        {6669, [&] { impossible(), GenerateRandomCase_bn(List({b_}), FORWARD_SAMPLING, 5); }},
        {6670,
         [&] {
             impossible(), SetHaltFlag_vx(env_, 1), GenerateRandomCase_bn(List({b_}), FORWARD_SAMPLING, 1e6);
         }},
        {6671,
         [&] {
             impossible();
             SetQuestionHandler_vx(
                 env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 0; }, nullptr);
             GenerateRandomCase_bn(List({b_}), FORWARD_SAMPLING, 1e9);
         }},
        {6674,
         [&] {
             EnterFinding_bn(b_, 0), WriteRandomCases_bn(List({a_, b_}), file, 50, FORWARD_SAMPLING, 1000, 0);
         }},
        {6675,
         [&] {
             GenerateRandomCase_bn(List({a_, elsewhere}), AUTO_SAMPLING, 1);
         }},
        {6677, [&] { SetNodeKind_bn(c_, 0), GenerateRandomCase_bn(List({c_}), AUTO_SAMPLING, 1); }},
        {6678, [&] { WriteRandomCases_bn(List({}), file, 1, AUTO_SAMPLING, 1, 0); }},
        {6679, [&] { WriteRandomCases_bn(List({a_}), file, -1, AUTO_SAMPLING, 1, 0); }},
        {6681, [&] { CompileNet_bn(net_), WriteEveryCase_bn(List({r_}), file); }},
        {6682,
         [&] {
             SetNodeKind_bn(c_, CONSTANT_NODE), DeleteNodeTables_bn(c_), CompileNet_bn(net_),
                 WriteEveryCase_bn(List({c_}), file);
         }},
        {6661, [&] { DeleteNodeTables_bn(c_), GenerateRandomCase_bn(List({c_}), FORWARD_SAMPLING, 1); }},
        {6663,
         [&] { SetNodeInputDelay_bn(b_, 0, "1"), GenerateRandomCase_bn(List({b_}), FORWARD_SAMPLING, 1); }},
        {6665,
         [&] {
             SetNodeEquation_bn(r_, "P (R) = 0 < R && R < 1"),
                 GenerateRandomCase_bn(List({r_}), FORWARD_SAMPLING, 1);
         }},
        {6666,
         [&] {
             SetNodeEquation_bn(r_, "R () = log (-1)"),
                 GenerateRandomCase_bn(List({r_}), FORWARD_SAMPLING, 1);
         }},
        {6666,
         [&] {
             SetNodeEquation_bn(r_, "P (R) = NormalDist (R, 0, -1)"),
                 GenerateRandomCase_bn(List({r_}), FORWARD_SAMPLING, 1);
         }},
        {6667,
         [&] {
             SetQuestionHandler_vx(
                 env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 1; }, nullptr);
             GenerateRandomCase_bn(List({a_}), TREE_SAMPLING, 1);
         }},
        {6668, [&] { GenerateRandomCase_bn(List({r_}), TREE_SAMPLING, 1); }},
        {6421,
         [&] {
             environ_vx* second = NewTaloraEnviron_vx("second", nullptr);
             InitTalora2_bn(second, nullptr);
             randgen_vx* generator = NewRandomGenerator_vx("1", second, nullptr);
             SetNetRandomGen_bn(net_, generator);
             learner_bn* learner = NewLearner_bn(1, env_);
             SetLearnerRandomGen_bn(learner, generator);
             EXPECT_NE(GetError_vx(nullptr, ERROR_SEVERITY, 6598, nullptr), nullptr);
             CloseTalora_bn(second, nullptr);
         }},
    });
    DeleteNet_bn(other);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
}

TEST_F(ModelMessages, OfEquations)
{
    ExpectRaised({
        {6407,
         [&] {
             SetQuestionHandler_vx(
                 env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 2; }, nullptr);
             node_bn *p = Add("P", 1000000), *x = Add("X", 2);
             AddLink_bn(p, x);
             const double limit = LimitMemoryUsage_vx(GetMemoryUsage_vx(env_) + 1e6, env_);
             SetNodeEquation_bn(x, "X (P) = 1");
             EquationToTable_bn(x, 10, 0, 0);
             LimitMemoryUsage_vx(limit, env_);
             EXPECT_FALSE(HasNodeTable_bn(x, nullptr));
         }},
    });
}

TEST_F(ModelMessages, OfLearning)
{
    // Halts when the heading of the iterations is shown.
    const auto halt = [](environ_vx* env, const char* text, const report_vx*, void*) {
        if (strstr(text, "Iteration")) SetHaltFlag_vx(env, 1);
        return 0;
    };
    const std::string cases = "A\tB\n" + std::string("yes\t#0\nno\t*\n*\t#1\n*\t#0\n");
    ExpectRaised({
        {6583,
         [&] {
             node_bn *p = Add("P", 1 << 16), *x = Add("X", 1 << 16);
             AddLink_bn(p, x);
             LearnCPTs_bn(NewLearner_bn(1, env_), List({x}), Caseset("P\tX\n#1\t#2\n"), 1);
             EXPECT_FALSE(HasNodeTable_bn(x, nullptr));
         }},
        {6593,
         [&] {
             SetMessageHandler_vx(env_, halt, nullptr);
             LearnCPTs_bn(NewLearner_bn(3, env_), List({a_, b_}), Caseset(cases), 1);
         }},
        {6593,
         [&] {
             SetMessageHandler_vx(env_, halt, nullptr);
             LearnCPTs_bn(NewLearner_bn(4, env_), List({a_, b_}), Caseset(cases), 1);
         }},
    });
}

}  // namespace
